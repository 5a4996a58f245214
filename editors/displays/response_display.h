// SPDX-License-Identifier: ISC
// A display of magnitude over frequency: one curve, or one for the left and one for the right.
#pragma once

#include <vector>

#include "editors/displays/graph.h"
#include "editors/displays/ground_bars.h"
#include "editors/displays/handles.h"
#include "editors/displays/layer.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ResponseDisplay : public HandleDisplay {
public:
    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;

protected:
    ResponseDisplay(const VNK::SkinBox& box, EffectModel& model)
        : HandleDisplay(box, model), ground_(attribute("ground"))
    {}

    void setAxes(const Axis& hertz, const Axis& decibels);
    const Plot& plot() const noexcept { return plot_; }
    void sized() override;
    void ticked(double seconds) override;
    void lookChanged() override;

    /// In dB; side 0 is left, or both where there is one curve.
    virtual double response(int side, double hertz) const = 0;
    virtual int curves() const { return 1; }
    virtual bool isOn() const { return true; }

private:
    void drawCurves(Canvas& canvas);

    Plot plot_;
    /// The courses as they are now.
    void sample();

    Graph graph_;
    GroundBars ground_;
    Layer layer_;  // the curves, while something lies behind
    std::vector<Point> courses_[2];
    std::vector<CourseDifference> differences_;  // of each curve
    bool wasOn_ = true;
};

}  // namespace quillworks::editors
