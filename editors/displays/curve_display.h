// SPDX-License-Identifier: ISC
// Display of a static curve: input to output level of a compressor or expander, with the level that
// is present, and the threshold to drag.
#pragma once

#include "editors/displays/handles.h"
#include "editors/displays/layer.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class CurveDisplay final : public HandleDisplay {
public:
    CurveDisplay(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void place() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookChanged() override
    {
        curve_.forget();
        damage();
    }

private:
    double output(double input) const;
    Point dot() const;
    void drawCurve(Canvas& canvas);

    Value threshold_, ratio_, knee_, range_, point_;
    Values levels_;  // where no `point` is named
    Plot plot_;
    std::vector<Point> points_;
    Layer curve_;
    Point dot_;
};

}  // namespace quillworks::editors
