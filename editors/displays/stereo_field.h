// SPDX-License-Identifier: ISC
// Display of two channels against each other: goniometer, X/Y or polar, with their correlation.
#pragma once

#include <cstdint>
#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class StereoField final : public BoundDisplay {
public:
    StereoField(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;
    void lookChanged() override;

private:
    enum class View { Goniometer, XY, Polar };
    View view() const { return static_cast<View>(static_cast<int>(view_.get(0))); }
    Point place(double x, double y) const;
    bool fade(double passed);
    void light(double x, double y);
    Rect glowing() const;
    void drawGlow(Canvas& canvas) const;

    Value view_, pair_, gain_, persistence_, correlation_;
    Rect square_;                      // of the picture
    Rect strip_;                       // of the correlation
    int side_ = 0;                     // device pixels
    std::vector<std::uint16_t> glow_;  // 0 .. 65535, row by row
    struct Lit {
        int from = 0, to = 0;
    };
    std::vector<Lit> lit_;              // what may glow of each row
    Rect glowing_;                      // as it was drawn
    bool isDark_ = true;                // nothing glows
    double frames_ = -1, before_ = -1;  // of the effect; seconds
};

}  // namespace quillworks::editors
