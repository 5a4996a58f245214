// SPDX-License-Identifier: ISC
// Display of how long a room rings at each frequency.
#pragma once

#include "editors/displays/response_display.h"

namespace quillworks::editors {

class DecayCurve final : public ResponseDisplay {
public:
    DecayCurve(const VNK::SkinBox& box, EffectModel& model);

    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void look(std::vector<double>& numbers) const override;
    /// In seconds.
    double response(int side, double hertz) const override;
    bool drawsOver() const override { return true; }
    void place() override;

private:
    Value decay_, low_, lowFrequency_, high_, highFrequency_, air_;
};

}  // namespace quillworks::editors
