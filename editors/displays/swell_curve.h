// SPDX-License-Identifier: ISC
// Display of a reverb's energy over time, from its onset on.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class SwellCurve final : public BoundDisplay {
public:
    SwellCurve(const VNK::SkinBox& box, EffectModel& model)
        : BoundDisplay(box, model), decay_(value("decay")), swell_(value("swell"))
    {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    double span() const;
    /// dB over the highest.
    double energy(double seconds) const;

    Value decay_, swell_;
    Plot plot_;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
