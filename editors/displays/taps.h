// SPDX-License-Identifier: ISC
// Display of an echo's repeats in time, each as high as it is loud, left up and right down.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

/// An echo as it will be heard.
struct Echo {
    double place = 0;  // in the axis' unit: quarter notes, or seconds
    double gain = 1;   // linear
    double pan = 0;    // -1 left .. 1 right
};

/// On a beat grid while the delay follows the song, else in seconds. The kinds differ in what they
/// make of their bindings.
class EchoDisplay : public BoundDisplay {
public:
    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    EchoDisplay(const VNK::SkinBox& box, EffectModel& model);

    bool isSynced() const { return sync_.isOn(); }
    /// Quarter notes of a note value, or seconds of a time in ms.
    double period(const Value& beats, const Value& time) const;
    /// Up to where anything is to be heard, oldest first.
    virtual void list(std::vector<Echo>& echoes) const = 0;
    void sized() override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;
    const Plot& plot() const noexcept { return plot_; }

private:
    double end() const;

    Value sync_, reduction_, frozen_;
    Values levels_;
    Plot plot_;
    mutable std::vector<Echo> echoes_;
};

/// Of a delay that repeats: straight, across, or from side to side.
class Taps final : public EchoDisplay {
public:
    Taps(const VNK::SkinBox& box, EffectModel& model);

protected:
    void list(std::vector<Echo>& echoes) const override;

private:
    Value beats_, time_, beatsRight_, timeRight_, offset_, stagger_, feedback_, routing_, link_;
};

/// Of a tape: one line, with its width, and in one of its modes.
class EchoLine final : public EchoDisplay {
public:
    EchoLine(const VNK::SkinBox& box, EffectModel& model);

protected:
    void list(std::vector<Echo>& echoes) const override;

private:
    Value beats_, time_, feedback_, width_, mode_;
};

}  // namespace quillworks::editors
