// SPDX-License-Identifier: ISC
// Display of a level meter: a bar for each channel with its mean and what is held, a lamp for
// overloads, on the scale that is chosen.
#pragma once

#include <string>
#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class LevelBars final : public BoundDisplay {
public:
    LevelBars(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    /// A click on a lamp, or on the bars, forgets what is held.
    bool pointer(const PointerEvent& event) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    /// Of the effect's list of scales.
    struct Scale {
        std::string name;
        double offset = 0;  // added to a level in dB
        double low = -60, high = 0;
        bool operator==(const Scale&) const = default;
    };
    Scale readScale() const;
    bool hasFigures() const noexcept { return height() >= 200; }
    bool isFlat() const noexcept { return height() < 60; }
    Rect bar(int channel) const;
    Rect lamp(int channel) const;
    std::string nameOf(int channel) const;
    double shown(double db) const { return db + scale_.offset; }
    void drawZones(Canvas& canvas, const Rect& bar, double level, double opacity) const;

    Values levels_, rms_, held_, rmsHeld_, clips_;
    Value correlation_, showsCorrelation_;
    Scale scale_;
    Plot plot_;
    double lowest_ = 0, highest_ = 0;  // correlation within the last seconds
    double lowestAt_ = 0, highestAt_ = 0, seconds_ = 0;
};

}  // namespace quillworks::editors
