// SPDX-License-Identifier: ISC
// Display of levels: bars per channel before and behind an effect, with peaks held, and a bar of
// what is taken away.
#pragma once

#include <string>
#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

/// A maximum that stays a while and then falls.
class HeldPeak {
public:
    /// `value` in dB; not-a-number: nothing.
    void take(double value, double seconds) noexcept;
    double value() const noexcept { return value_; }
    void forget() noexcept { *this = {}; }

private:
    static constexpr double kStays = 2, kFalls = 20;  // s, dB/s
    double value_ = -1000, since_ = 0, last_ = 0;
};

class Meters final : public BoundDisplay {
public:
    Meters(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    /// A click forgets the peaks.
    bool pointer(const PointerEvent& event) override;
    std::string describe() const override;
    std::string tip(double, double) const override { return "Click to forget the peaks."; }

protected:
    void sized() override { laidFor_ = {}; }
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    enum class Kind { Level, Reduction };
    /// Bars side by side with one scale.
    struct Group {
        Kind kind = Kind::Level;
        const char *title = "", *foot = "";
        Values levels, rms;  // rms: a narrower bar within
        Values held;         // what the effect itself holds
        Plot plot;           // of all of its bars, `x` in bars
        double scaleAt = 0;  // px; 0: no scale
        std::vector<HeldPeak> peaks;
        double loudest = -1000;  // since the last click
    };
    void layOut();
    double heldAt(const Group& group, int bar) const;
    double shownValue(const Group& group) const;
    void drawBar(Canvas& canvas, const Group& group, int bar) const;
    void drawReduction(Canvas& canvas, const Group& group) const;
    void forget();

    std::vector<Group> groups_;
    Value reset_;
    std::vector<int> laidFor_;  // bars of each group
};

}  // namespace quillworks::editors
