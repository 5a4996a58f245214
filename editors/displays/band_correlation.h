// SPDX-License-Identifier: ISC
// Display of the correlation of two channels by octaves or thirds of them.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class BandCorrelation final : public BoundDisplay {
public:
    BandCorrelation(const VNK::SkinBox& box, EffectModel& model) : BoundDisplay(box, model) {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    struct Band {
        double centre, correlation, coherence;
        bool isValid;
    };
    Rect bar(std::size_t band) const;

    std::vector<Band> bands_;
    Plot plot_;
};

}  // namespace quillworks::editors
