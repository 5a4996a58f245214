// SPDX-License-Identifier: ISC
// Display of filters: cuts, an equaliser's bands, a swept filter or a phaser, as the skin binds
// them.
#pragma once

#include "editors/displays/response_display.h"

namespace quillworks::editors {

class FilterCurve final : public ResponseDisplay {
public:
    FilterCurve(const VNK::SkinBox& box, EffectModel& model);

    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void look(std::vector<double>& numbers) const override;
    double response(int side, double hertz) const override;
    void beginCurve(int side) override;
    int curves() const override;
    bool isOn() const override { return !on_.exists() || on_.isOn(); }
    void place() override;

private:
    enum class Kind { Cuts, Bands, Swept, Phaser };
    struct Band {
        Value frequency, gain, q, bell;
    };
    bool cutsLow() const;
    bool cutsHigh() const;
    double cuts(double hertz) const;
    double bands(double hertz) const;
    double phased(int side, double hertz) const;
    double corner(int side) const;

    Kind kind_ = Kind::Cuts;
    Value low_, high_, slope_, resonance_, type_, stages_, corners_[2], on_;
    Value mix_, mode_, centre_, range_, cycle_;
    int lowOrder_ = 2, countStages_ = 2;
    std::vector<Band> bands_;
};

}  // namespace quillworks::editors
