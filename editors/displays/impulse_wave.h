// SPDX-License-Identifier: ISC
// Display of an impulse response: its peaks over time, where its made tail begins, and what of it
// cannot be shown.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ImpulseWave final : public BoundDisplay {
public:
    ImpulseWave(const VNK::SkinBox& box, EffectModel& model) : BoundDisplay(box, model) {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>&) const override {}
    void lookStatic(std::vector<double>& numbers) const override;

private:
    /// In dB over the highest of all, column by column.
    std::vector<std::vector<double>> lines_, now_;
    double seconds_ = 0, tailStart_ = 0;
    std::string failure_;
    Plot plot_;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
