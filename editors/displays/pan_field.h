// SPDX-License-Identifier: ISC
// Display of a place around the listener, seen from above: one point to drag that moves two
// parameters as one gesture, the sources' width, and speakers lit by what they play.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class PanField final : public BoundDisplay {
public:
    PanField(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    bool pointer(const PointerEvent& event) override;
    bool wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    bool takesFocus() const override { return first_ >= 0; }
    void setFocus(bool has) override;
    std::vector<Grasp> grasps() override;
    int focusedGrasp() const override { return first_ >= 0 ? 0 : -1; }
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    bool isRoom() const noexcept { return across_.exists(); }
    Point place(double azimuth, double radius) const;
    double radius() const;
    Point source() const;
    Point speaker(int channel, int channels) const;
    int wheelParameter() const;
    void moveTo(Point at);
    void setAngle(const Value& value, double degrees);
    void begin();
    void end();

    Value across_, along_, azimuth_, elevation_, distance_, width_;
    Values left_, right_;
    int first_ = -1, second_ = -1;  // parameters of the point
    Point centre_;
    double reach_ = 0;  // px, from the middle to the rim
    bool isHeld_ = false, hasFocus_ = false;
    Point offset_;
    double pressed_ = -1;
};

}  // namespace quillworks::editors
