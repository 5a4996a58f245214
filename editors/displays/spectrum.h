// SPDX-License-Identifier: ISC
// Display of an analyser: spectra, bands, or a sonogram that scrolls, with the frequency and level
// under the pointer.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/moving_graph.h"
#include "editors/displays/plot.h"
#include "editors/displays/sonogram_picture.h"

namespace quillworks::editors {

class Spectrum final : public BoundDisplay {
public:
    Spectrum(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    void drawMoved(Canvas& canvas) override;
    bool pointer(const PointerEvent& event) override;
    std::string describe() const override;
    Rect covered() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    enum class Mode { Spectrum, Bands, Sonogram };
    struct Curve {
        std::string name;
        std::vector<Point> level, hold, reference;
        std::vector<Rect> bars, marks, grey;  // the same where they are bands
    };
    Mode mode() const { return static_cast<Mode>(static_cast<int>(mode_.get(0))); }
    Rect readingPlace() const;
    static Rect dotPlace(Point at);
    bool hasFigures() const noexcept { return height() >= 90; }
    double tilted(double db, double hertz) const;
    void group();
    void trace(std::vector<Point>& points, const std::vector<double>& levels) const;
    void readCurves(const char* display, const char* frequencies);
    void buildCurves();
    /// Tell what has moved.
    void moveCurves();
    void damageBars();
    void markPeak();
    void drawBars(Canvas& canvas);
    void drawCursor(Canvas& canvas);
    void drawNames(Canvas& canvas);

    Value mode_, tilt_, top_, range_, low_, high_, compare_;
    Plot plot_;
    std::vector<Curve> curves_;
    std::vector<double> hertz_;  // frequencies
    struct Group {               // those within a pixel
        std::size_t begin, end;
        double x, octaves;  // px; from where a tilt changes nothing
    };
    std::vector<Group> groups_;
    Plot acrossOf_;
    double peakHertz_, peakLevel_;  // of the first curve
    std::string reading_;           // at the pointer or the peak
    Point peak_;
    Graph bands_;
    MovingGraph graph_;
    bool isBuilt_ = false;  // the graph, for this size
    double names_ = 0;      // px, right end of the names
    SonogramPicture sonogram_;
    double cursor_ = -1;  // px
};

}  // namespace quillworks::editors
