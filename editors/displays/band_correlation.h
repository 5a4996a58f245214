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
    void look(std::vector<double>&) const override {}
    void lookStatic(std::vector<double>& numbers) const override;

private:
    struct Band {
        double centre, correlation, coherence;
        bool isValid;
    };
    /// As it is drawn; none where a band has no value.
    struct Bar {
        Rect place;
        Ink ink = Color::Accent;
        bool isValid = false;
        bool operator==(const Bar& b) const noexcept
        {
            return place.y == b.place.y && place.h == b.place.h && ink.color == b.ink.color &&
                   ink.opacity == b.ink.opacity && isValid == b.isValid;
        }
    };
    Rect column(std::size_t band) const;
    Bar bar(std::size_t band) const;

    std::vector<Band> bands_;
    std::vector<Bar> bars_;
    Plot plot_;
};

}  // namespace quillworks::editors
