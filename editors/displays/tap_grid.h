// SPDX-License-Identifier: ISC
// Display of taps on a step grid: each to drag in time and level, with the wheel for its place.
#pragma once

#include "editors/displays/handles.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class TapGrid final : public HandleDisplay {
public:
    TapGrid(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    /// Space switches the tap of the focused handle on or off, as a press on its square does.
    bool key(const KeyEvent& event) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void place() override;
    void look(std::vector<double>& numbers) const override;
    void ticked(double seconds) override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    enum class Lane { On, Pan, Tone };
    static constexpr int kPerTap = 4;  // handles: the ring, and one in each lane
    Rect cell(int tap, Lane lane) const;
    double warped(double step) const;
    double unwarped(double place) const;

    Values on_, steps_, levels_, pans_, tones_, peaks_;
    Value swing_, length_, feedback_, frozen_;
    std::vector<double> heard_;  // levels of the taps, dB
    Plot plot_;
};

}  // namespace quillworks::editors
