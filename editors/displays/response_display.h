// SPDX-License-Identifier: ISC
// A display of magnitude over frequency: one curve, or one for the left and one for the right.
#pragma once

#include <vector>

#include "editors/displays/ground_bars.h"
#include "editors/displays/handles.h"
#include "editors/displays/moving_graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ResponseDisplay : public HandleDisplay {
public:
    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    void drawMoved(Canvas& canvas) override { graph_.showMoved(canvas); }
    void tick(double seconds) override;

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
    /// What does not depend on the frequency is worked out here, before a curve's values are asked
    /// for.
    virtual void beginCurve(int) {}
    /// Whether something is drawn over the curves beside handles.
    virtual bool drawsOver() const { return false; }

private:
    /// The courses as they are now.
    void sample();
    void build();
    /// What lies over the curves, and may have moved with them.
    std::vector<Rect> above() const;

    Plot plot_;
    MovingGraph graph_;
    GroundBars ground_;
    std::vector<double> hertz_;  // at every pixel
    std::vector<Point> courses_[2];
    std::size_t countCourses_ = 0;
    bool isSampled_ = false, isBuilt_ = false;  // for this size
    bool isStale_ = false;                      // the graph, since the last tick
};

}  // namespace quillworks::editors
