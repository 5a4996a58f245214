// SPDX-License-Identifier: ISC
// What all controls of a parameter do alike: wheel, keys, typed values, the menu, the tip.
#pragma once

#include "editors/control.h"
#include "editors/value_steps.h"
#include "vnk/skin.h"

namespace quillworks::editors {

class ParameterControl : public Control {
public:
    /// `parameter` is that of the skin's key.
    ParameterControl(ControlHost& host, const VNK::SkinControl& skin, int parameter,
                     const Rect& bounds);

    int parameter() const override { return parameter_; }
    void tick(double seconds) override;
    bool wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    Tip tip() const override;
    std::string describe() const override { return shortened(model().text(parameter_)); }

    /// Where the value is typed; empty where it is not.
    virtual Rect valueField() const { return {}; }
    /// Texts that may have to be shown: at the ends, and between them.
    std::vector<std::string> sampleTexts() const;
    void enterValue() { startEntry(model().text(parameter_), true); }

protected:
    const VNK::ParameterInfo& info() const { return model().info(parameter_); }
    bool isStepped() const { return info().kind != VNK::ValueKind::Continuous; }
    /// An automatic function sets it.
    bool isDriven() const;
    double opacity() const { return isDriven() ? 0.6 : 1; }
    float value() const { return model().value(parameter_); }
    /// As one gesture.
    void setOnce(float value);
    void setDefault() { setOnce(info().defaultValue); }
    void openMenu(double x, double y);
    /// A press of the right button, which opens the menu. True where it was that.
    bool menuPress(const PointerEvent& event);
    float stepped(double steps) const;
    const std::map<std::string, std::string>& attributes() const { return attributes_; }

private:
    void startEntry(const std::string& text, bool isWhole);
    bool pressKey(const KeyEvent& event);

    int parameter_, driver_;
    std::map<std::string, std::string> attributes_;
    unsigned seen_ = 0;
    bool wasDriven_ = false;
    WheelTurn turn_;
};

/// A knob or slider: dragged up or right.
class DragControl : public ParameterControl {
public:
    using ParameterControl::ParameterControl;

    void pointer(const PointerEvent& event) override;
    void hover(bool isOver) override;

protected:
    bool isHeld() const noexcept { return isHeld_; }
    bool isHovered() const noexcept { return isHovered_; }
    /// Place of the value, 0 .. 1, and of where its arc or bar begins.
    double position() const { return model().position(parameter()); }
    double origin() const;

private:
    void press(const PointerEvent& event);
    void drag(const PointerEvent& event);
    void release();

    bool isDown_ = false, isHeld_ = false, isHovered_ = false, hasMoved_ = false;
    bool isOnValue_ = false;
    Point last_, pressed_;
    double pressedAt_ = -1;
    double raw_ = 0;  // position that the hand has reached
};

}  // namespace quillworks::editors
