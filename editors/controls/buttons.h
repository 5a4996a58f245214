// SPDX-License-Identifier: ISC
// What is pressed: switches, triggers, and buttons of the view itself.
#pragma once

#include "editors/controls/parameter_control.h"

namespace quillworks::editors {

/// How a button looks.
struct ButtonState {
    bool isOn = false, isDown = false, isHovered = false;
};
void drawButton(Canvas& canvas, const Rect& r, const std::string& title, const ButtonState& state);

/// A press that acts when it is let go, and may be left before: `isPressed` while it would act.
class Press {
public:
    /// True where the press acts now.
    bool pointer(const PointerEvent& event, const Rect& target);
    bool isPressed() const noexcept { return isDown_ && isInside_; }

private:
    bool isDown_ = false, isInside_ = false;
};

/// A switch; one that is a trigger (Button) acts and springs back.
class Toggle final : public ParameterControl {
public:
    using ParameterControl::ParameterControl;

    void draw(Canvas& canvas) override;
    void pointer(const PointerEvent& event) override;
    void hover(bool isOver) override;
    bool key(const KeyEvent& event) override;
    std::string describe() const override;
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;

private:
    bool isTrigger() const { return info().has(VNK::isTrigger); }
    void act();

    Press press_;
    bool isHovered_ = false;
};

/// A button of the view: what it draws and does is given.
class ActionButton final : public Control {
public:
    using Draw = std::function<void(Canvas&, const Rect&, const ButtonState&)>;

    ActionButton(ControlHost& host, std::string title, const Rect& bounds, Draw draw,
                 std::function<void()> act, std::function<int()> state = {})
        : Control(host, "Button", std::move(title), bounds),
          draw_(std::move(draw)),
          act_(std::move(act)),
          state_(std::move(state))
    {}

    void draw(Canvas& canvas) override;
    void tick(double seconds) override;
    void pointer(const PointerEvent& event) override;
    void hover(bool isOver) override;
    bool key(const KeyEvent& event) override;
    std::string describe() const override { return state_ && state_() & 1 ? "On" : ""; }

private:
    Draw draw_;
    std::function<void()> act_;
    std::function<int()> state_;  // what it shows: bit 0 whether it is on

    int shown_ = 0;
    Press press_;
    bool isHovered_ = false;
};

}  // namespace quillworks::editors
