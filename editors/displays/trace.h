// SPDX-License-Identifier: ISC
// Display of a waveform: an oscilloscope's trace, or what a generator makes.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/moving_graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class Trace final : public BoundDisplay {
public:
    Trace(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    void drawMoved(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    enum class Layout { Overlay, Stack, XY };
    struct Line {
        std::string name;
        std::vector<double> samples;
        bool operator==(const Line&) const = default;
    };
    Layout layout() const { return static_cast<Layout>(static_cast<int>(layout_.get(0))); }
    bool hasFigures() const noexcept { return height() >= 90; }
    double span() const;  // seconds
    double amplitude() const;
    Plot plotOf(std::size_t line) const;
    void course(const Plot& plot, const std::vector<double>& samples);
    void build(Graph& graph, double opacity);
    /// Of the lines as they are now.
    void rebuild();
    void drawFigure(Canvas& canvas, double opacity);
    void drawNames(Canvas& canvas);
    bool isWhole() const { return layout() == Layout::XY || persistence_.get(0) > 0; }
    /// The lines that have gone, which fade.
    void drawGlow(Canvas& canvas);

    Value time_, level_, pretrigger_, gain_, layout_, persistence_;
    Rect area_;
    std::vector<Line> lines_, now_;
    double period_ = 0, state_ = 0;
    Image glow_;             // of the area, in device pixels
    double seconds_ = 0;     // second of the last tick
    double faded_ = 0;       // second up to which the glow has faded
    double changed_ = -1e9;  // second of the last other line
    bool isGlowStale_ = false;
    MovingGraph graph_;
    Graph glowing_;
    std::vector<double> builtOf_;  // what the graph is made of beside its lines
    std::vector<Rect> names_;      // places of their texts
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
