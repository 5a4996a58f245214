// SPDX-License-Identifier: ISC
#include "editors/controls/parameter_control.h"

#include <algorithm>
#include <cmath>

#include "editors/value_entry.h"

namespace quillworks::editors {
namespace {

constexpr double kPixelsPerRange = 200, kFinePixelsPerRange = 2000;
constexpr double kDoubleClick = 0.4;  // s
constexpr double kStill = 3;          // px that a hand may stray without dragging

std::string attribute(const VNK::SkinControl& control, const char* name)
{
    const auto at = control.attributes.find(name);
    return at == control.attributes.end() ? std::string() : at->second;
}

std::string titleOf(const VNK::SkinControl& control, const VNK::ParameterInfo& info)
{
    const auto own = attribute(control, "title");
    if (!own.empty()) return own;
    return info.shortTitle && *info.shortTitle ? info.shortTitle : info.title;
}

}  // namespace

ParameterControl::ParameterControl(ControlHost& host, const VNK::SkinControl& skin, int parameter,
                                   const Rect& bounds)
    : Control(host, skin.kind, titleOf(skin, host.model().info(parameter)), bounds),
      parameter_(parameter),
      driver_(-1),
      attributes_(skin.attributes),
      turn_(host.model())
{
    auto driver = attribute(skin, "disabledBy");
    if (driver.empty()) driver = info().drivenBy ? info().drivenBy : "";
    if (!driver.empty()) driver_ = model().parameter(driver);
    seen_ = model().changes(parameter_);
    wasDriven_ = isDriven();
}

bool ParameterControl::isDriven() const
{
    return driver_ >= 0 && model().value(driver_) >= 0.5f;
}

void ParameterControl::tick(double seconds)
{
    const bool driven = isDriven();
    if (seen_ != model().changes(parameter_) || driven != wasDriven_) damage();
    seen_ = model().changes(parameter_);
    wasDriven_ = driven;
    turn_.tick(seconds);
}

void ParameterControl::setOnce(float value)
{
    editors::setOnce(model(), parameter_, value);
    damage();
}

float ParameterControl::stepped(double steps) const
{
    return std::clamp(value() + static_cast<float>(steps), info().minimum, info().maximum);
}

bool ParameterControl::wheel(const WheelEvent& event)
{
    turn_.turn(parameter_, event);
    damage();
    return true;
}

bool ParameterControl::key(const KeyEvent& event)
{
    if (event.modifiers & kAlt) return false;
    if (pressKey(event)) return true;
    if (event.key == Key::Delete) {
        setDefault();
        return true;
    }
    if (event.key == Key::Menu || (event.key == Key::F10 && event.modifiers & kShift)) {
        openMenu(bounds().x, bounds().bottom());
        return true;
    }
    if (valueField().isEmpty()) return false;
    if (event.key == Key::Enter) {
        enterValue();
        return true;
    }
    const bool begins = beginsValue(event);
    if (begins) startEntry(event.text, false);
    return begins;
}

bool ParameterControl::pressKey(const KeyEvent& event)
{
    const double fine = event.modifiers & kShift ? 0.001 : 0.01;
    const double page = std::max(1.0, (double(info().maximum) - info().minimum) / 10);
    float next = value();
    switch (event.key) {
    case Key::Up:
    case Key::Right:
        next = movedValue(model(), parameter_, fine);
        break;
    case Key::Down:
    case Key::Left:
        next = movedValue(model(), parameter_, -fine);
        break;
    case Key::PageUp:
        next = isStepped() ? stepped(std::round(page)) : movedValue(model(), parameter_, 0.1);
        break;
    case Key::PageDown:
        next = isStepped() ? stepped(-std::round(page)) : movedValue(model(), parameter_, -0.1);
        break;
    case Key::Home:
        next = info().minimum;
        break;
    case Key::End:
        next = info().maximum;
        break;
    default:
        return false;
    }
    if (next != value()) setOnce(next);
    return true;
}

void ParameterControl::startEntry(const std::string& text, bool isWhole)
{
    host().editText(*this, valueRequest(model(), parameter_, valueField(), text, isWhole));
}

bool ParameterControl::menuPress(const PointerEvent& event)
{
    if (event.action != PointerAction::Press || event.button != 3) return false;
    openMenu(event.x, event.y);
    return true;
}

void ParameterControl::openMenu(double x, double y)
{
    ListContent menu;
    std::function<void()> enter;
    if (!valueField().isEmpty()) enter = [this] { enterValue(); };
    addValueEntries(menu.entries, host(), parameter_, std::move(enter));
    for (auto& entry : host().commonEntries()) menu.entries.push_back(std::move(entry));
    host().openList({x, y, 0, 0}, std::move(menu));
}

Tip ParameterControl::tip() const
{
    Tip tip{info().title, info().help ? info().help : "", {}};
    tip.lines.push_back("Now " + describe() + ", default " +
                        model().text(parameter_, info().defaultValue));
    if (!isStepped()) {
        tip.lines.push_back("Range " + model().text(parameter_, info().minimum) + " to " +
                            model().text(parameter_, info().maximum));
        tip.lines.push_back("Shift: finer, Ctrl: round values, double click: default");
    }
    return tip;
}

std::vector<std::string> ParameterControl::sampleTexts() const
{
    std::vector<std::string> texts;
    if (isStepped()) {
        const auto count = static_cast<int>(info().maximum - info().minimum);
        for (int i = 0; i <= std::min(count, 64); ++i)
            texts.push_back(model().text(parameter_, info().minimum + static_cast<float>(i)));
        return texts;
    }
    constexpr int kPlaces = 40;
    for (int i = 0; i <= kPlaces; ++i) {
        const auto at = static_cast<float>(i) / kPlaces;
        texts.push_back(
            shortened(model().text(parameter_, model().effect().fromNormalized(parameter_, at))));
    }
    return texts;
}

double DragControl::origin() const
{
    const auto at = attributes().find("origin");
    if (at != attributes().end()) {
        if (at->second == "max") return 1;
        if (at->second == "middle") return 0.5;
        return 0;
    }
    return model().effect().toNormalized(parameter(), info().origin);
}

void DragControl::hover(bool isOver)
{
    if (isHovered_ == isOver) return;
    isHovered_ = isOver;
    damage();
}

void DragControl::pointer(const PointerEvent& event)
{
    if (menuPress(event)) return;
    if (event.action == PointerAction::Press && event.button == 1) press(event);
    if (event.action == PointerAction::Move && isDown_) drag(event);
    if (event.action == PointerAction::Release && event.button == 1) release();
}

void DragControl::press(const PointerEvent& event)
{
    const bool isDouble = event.seconds - pressedAt_ < kDoubleClick &&
                          std::hypot(event.x - pressed_.x, event.y - pressed_.y) <= kStill;
    pressedAt_ = isDouble ? -1 : event.seconds;
    pressed_ = last_ = {event.x, event.y};
    isDown_ = true;
    hasMoved_ = false;
    isOnValue_ = !isDouble && valueField().contains(event.x, event.y);
    raw_ = position();
    if (isOnValue_) return;  // it may be typed; a drag from here begins when it moves
    isHeld_ = true;
    model().begin(parameter());
    if (isDouble && value() != info().defaultValue) {
        model().set(parameter(), info().defaultValue);
        raw_ = position();
    }
    damage();
}

void DragControl::drag(const PointerEvent& event)
{
    if (!hasMoved_) {
        // What a click strays by is no drag; what a drag begins with is not lost.
        hasMoved_ = !isOnValue_ || std::hypot(event.x - pressed_.x, event.y - pressed_.y) > kStill;
        if (!hasMoved_) return;
        if (!isHeld_) model().begin(parameter());
        isHeld_ = true;
    }
    const double pixels = (event.x - last_.x) - (event.y - last_.y);
    last_ = {event.x, event.y};
    raw_ += pixels / (event.modifiers & kShift ? kFinePixelsPerRange : kPixelsPerRange);
    if (info().wraps)
        raw_ -= std::floor(raw_);
    else
        raw_ = std::clamp(raw_, 0.0, 1.0);
    float next = model().effect().fromNormalized(parameter(), static_cast<float>(raw_));
    if (isStepped()) next = std::round(next);
    if (event.modifiers & kControl) next = roundValue(info(), next);
    if (next == value()) return;
    model().set(parameter(), next);
    damage();
}

void DragControl::release()
{
    if (!isDown_) return;
    isDown_ = false;
    if (isHeld_) model().end(parameter());
    isHeld_ = false;
    damage();
    if (isOnValue_ && !hasMoved_) enterValue();
}

}  // namespace quillworks::editors
