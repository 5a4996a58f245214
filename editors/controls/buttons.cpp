// SPDX-License-Identifier: ISC
#include "editors/controls/buttons.h"

namespace quillworks::editors {
namespace {

constexpr double kRadius = 4;
constexpr double kPadding = 5;  // least, at each side of a title

}  // namespace

void drawButton(Canvas& canvas, const Rect& r, const std::string& title, const ButtonState& state)
{
    if (state.isOn) {
        canvas.fillRounded(r, kRadius, Ink(Color::Accent, state.isDown ? 0.26 : 0.16));
        canvas.strokeRounded(r, kRadius, 0, Color::Accent);
        canvas.fillRounded({r.centre().x - 8, r.bottom() - 5, 16, 2}, 1, Color::Accent);
    } else {
        canvas.fillRounded(r, kRadius, Color::Raised);
        if (state.isDown) canvas.fillRounded(r, kRadius, Ink(Color::Well, 0.4));
        canvas.strokeRounded(r, kRadius, 0, Color::Edge);
    }
    const auto color = state.isOn                         ? Color::Accent
                       : state.isHovered && !state.isDown ? Color::Text
                                                          : Color::Text2;
    canvas.text(Type::Button, canvas.fitted(Type::Button, title, r.w - kPadding), r.centre().x,
                r.centre().y + (state.isOn ? 3 : 4), Align::Centre, color);
}

bool Press::pointer(const PointerEvent& event, const Rect& target)
{
    const bool isInside = target.contains(event.x, event.y);
    if (event.action == PointerAction::Press && event.button == 1 && isInside) isDown_ = true;
    isInside_ = isInside;
    if (event.action != PointerAction::Release || event.button != 1) return false;
    const bool acts = isDown_ && isInside_;
    isDown_ = false;
    return acts;
}

void Toggle::draw(Canvas& canvas)
{
    const auto saved = canvas.save();
    canvas.dim(opacity());
    const bool isOn = !isTrigger() && value() >= 0.5f;
    drawButton(canvas, bounds(), title(), {isOn, press_.isPressed(), isHovered_});
}

void Toggle::hover(bool isOver)
{
    if (isHovered_ == isOver) return;
    isHovered_ = isOver;
    damage();
}

void Toggle::pointer(const PointerEvent& event)
{
    if (menuPress(event)) return;
    const bool was = press_.isPressed();
    if (press_.pointer(event, bounds())) act();
    if (was != press_.isPressed()) damage();
}

bool Toggle::key(const KeyEvent& event)
{
    if ((event.key == Key::Space || event.key == Key::Enter) && !event.modifiers) {
        act();
        return true;
    }
    return !isTrigger() && ParameterControl::key(event);
}

void Toggle::act()
{
    setOnce(isTrigger() ? info().maximum : value() >= 0.5f ? info().minimum : info().maximum);
}

std::string Toggle::describe() const
{
    return isTrigger() ? std::string() : ParameterControl::describe();
}

void Toggle::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    checkText(fonts, theme.face(Type::Button), title(), bounds().w - kPadding, problems);
}

void ActionButton::draw(Canvas& canvas)
{
    shown_ = state_ ? state_() : 0;
    draw_(canvas, bounds(), {(shown_ & 1) != 0, press_.isPressed(), isHovered_});
}

void ActionButton::tick(double)
{
    if (state_ && state_() != shown_) damage();
}

void ActionButton::hover(bool isOver)
{
    if (isHovered_ == isOver) return;
    isHovered_ = isOver;
    damage();
}

void ActionButton::pointer(const PointerEvent& event)
{
    const bool was = press_.isPressed();
    const bool acts = press_.pointer(event, bounds());
    if (was != press_.isPressed()) damage();
    if (acts) act_();
}

bool ActionButton::key(const KeyEvent& event)
{
    if ((event.key != Key::Space && event.key != Key::Enter) || event.modifiers) return false;
    act_();
    return true;
}

}  // namespace quillworks::editors
