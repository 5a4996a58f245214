// SPDX-License-Identifier: ISC
// Display of a low-frequency oscillator: its shape and depth over two periods, left and right.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ModWave final : public BoundDisplay {
public:
    ModWave(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;

private:
    double depth() const;
    std::string period() const;

    Value wave_, rate_, depth_, sync_, beats_, stereo_;
    Plot plot_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
