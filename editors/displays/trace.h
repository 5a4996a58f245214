// SPDX-License-Identifier: ISC
// Display of a waveform: an oscilloscope's trace, or what a generator makes.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class Trace final : public BoundDisplay {
public:
    Trace(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
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
    void drawLines(Canvas& canvas, double opacity);
    void drawMarks(Canvas& canvas);
    /// The lines that have gone, which fade.
    void drawGlow(Canvas& canvas);

    Value time_, level_, pretrigger_, gain_, layout_, persistence_;
    Rect area_;
    std::vector<Line> lines_, now_;
    std::vector<CourseDifference> differences_;  // of each line
    double period_ = 0, state_ = 0;
    Image glow_;             // of the area, in device pixels
    double seconds_ = 0;     // second of the last tick
    double faded_ = 0;       // second up to which the glow has faded
    double changed_ = -1e9;  // second of the last other line
    bool isGlowStale_ = false;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
