// SPDX-License-Identifier: ISC
// Display of a low-frequency oscillator: its shape and depth over two periods, left and right.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/layer.h"
#include "editors/displays/plot.h"
#include "editors/displays/waves.h"

namespace quillworks::editors {

class ModWave final : public BoundDisplay {
public:
    ModWave(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void lookChanged() override
    {
        curve_.forget();
        damage();
    }
    void look(std::vector<double>& numbers) const override;

private:
    double depth() const;
    ModulationWave wave() const;
    double shift() const { return stereo_.get(0) / 360; }
    /// Where the oscillator is on a side's curve, the first of its periods shown.
    Point dot(double shift) const;
    void drawCurves(Canvas& canvas);
    std::string period() const;

    Value wave_, rate_, depth_, sync_, beats_, stereo_, phase_;
    Plot plot_;
    Layer curve_;
    Point dots_[2];  // left, right; not-a-number: none
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
