// SPDX-License-Identifier: ISC
// Display of a chorus' voices: each at its place from left to right and at its present delay.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class VoiceField final : public BoundDisplay {
public:
    VoiceField(const VNK::SkinBox& box, EffectModel& model)
        : BoundDisplay(box, model),
          voices_(value("voices")),
          spread_(value("spread")),
          delays_(values("delays"))
    {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    int voices() const;

    Value voices_, spread_;
    Values delays_;  // ms; 0: off
    Plot plot_;
    double longest_ = 20;  // ms, of the axis
};

}  // namespace quillworks::editors
