// SPDX-License-Identifier: ISC
// Display of taps on a step grid: each to drag in time and level, with the wheel for its place.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/handles.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class TapGrid final : public BoundDisplay {
public:
    TapGrid(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    /// A right click, or a press on the square below, switches a tap on or off.
    bool pointer(const PointerEvent& event) override;
    bool wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    bool takesFocus() const override { return true; }
    void setFocus(bool has) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;
    void ticked(double seconds) override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    enum class Lane { On, Pan, Tone };
    void place();
    Rect cell(int tap, Lane lane) const;
    double warped(double step) const;
    /// Drag in one of the two small lanes.
    bool dragLane(const PointerEvent& event);

    Values on_, steps_, levels_, pans_, tones_, peaks_;
    Value swing_, length_, feedback_, frozen_;
    std::vector<double> heard_;  // levels of the taps, dB
    Plot plot_;
    Handles handles_;
    int held_ = -1;  // parameter of a lane
    double last_ = 0;
    float position_ = 0;
};

}  // namespace quillworks::editors
