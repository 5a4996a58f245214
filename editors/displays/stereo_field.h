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
    void drawMoved(Canvas& canvas) override;
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
    void fade(double passed);
    void fadeRows(std::size_t parity, double passed, double persistence);
    void light(double x, double y);
    /// Tells what drawMoved() will draw.
    void tellMoved();
    template <class F> void forEachStrip(std::vector<std::uint64_t>& strips, F&& f);
    void drawGlow(Canvas& canvas);

    Value view_, pair_, gain_, persistence_, correlation_;
    Rect square_;                      // of the picture
    Rect strip_;                       // of the correlation
    int side_ = 0;                     // device pixels
    int stride_ = 0;                   // of a row of lights, whole strips
    std::vector<std::uint16_t> glow_;  // 0 .. 65535, row by row
    // A bit for each strip, row by row: where anything glows, and what is to be drawn anew.
    std::size_t words_ = 0;  // of a row
    std::vector<std::uint64_t> lit_, stale_;
    bool isDark_ = true;                // nothing glows
    double pending_[2] = {};            // seconds that even and odd rows have still to fade by
    bool isOddTurn_ = false;            // which of them are faded next
    double frames_ = -1, before_ = -1;  // of the effect; seconds
};

}  // namespace quillworks::editors
