// SPDX-License-Identifier: ISC
// Display of two cycles of a sine through a sample-and-hold and a quantiser.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class StepCurve final : public BoundDisplay {
public:
    StepCurve(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;

private:
    double input(double milliseconds) const;
    double output(double milliseconds) const;

    Value rate_, bits_, law_, gain_;
    Plot plot_;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
