// SPDX-License-Identifier: ISC
// Display of a flanger's comb as it moves.
#pragma once

#include "editors/displays/response_display.h"

namespace quillworks::editors {

class CombCurve final : public ResponseDisplay {
public:
    CombCurve(const VNK::SkinBox& box, EffectModel& model);

    std::string describe() const override;

protected:
    void look(std::vector<double>& numbers) const override;
    double response(int side, double hertz) const override;
    int curves() const override;

private:
    Value delays_[2];  // ms
    Value feedback_, damp_, invert_, mix_;
};

}  // namespace quillworks::editors
