// SPDX-License-Identifier: ISC
// Display of a waveshaper: what a sample becomes, with the peaks that are present.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/layer.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ShapeCurve final : public BoundDisplay {
public:
    ShapeCurve(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void lookChanged() override
    {
        curves_.forget();
        damage();
    }
    void look(std::vector<double>& numbers) const override;

private:
    double output(double x) const;

    Value curve_, drive_, bias_, point_;
    Plot plot_;
    Layer curves_;
    Graph graph_;
    double peak_ = 0;  // linear
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
