// SPDX-License-Identifier: ISC
// Display of a measured response's magnitude over frequency, path by path.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ResponseSpectrum final : public BoundDisplay {
public:
    ResponseSpectrum(const VNK::SkinBox& box, EffectModel& model) : BoundDisplay(box, model) {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void look(std::vector<double>&) const override {}
    void ticked(double seconds) override;

private:
    using Line = std::vector<double>;
    std::vector<double> hertz_;
    std::vector<Line> lines_;  // in dB over the middle of the loudest
    Plot plot_;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
