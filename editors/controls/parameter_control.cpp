// SPDX-License-Identifier: ISC
#include "editors/controls/parameter_control.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kPixelsPerRange = 200, kFinePixelsPerRange = 2000;
constexpr double kWheelPause = 0.3;   // s without a notch that end the gesture
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

float roundValue(const VNK::ParameterInfo& info, float value)
{
    if (info.kind != VNK::ValueKind::Continuous) return std::round(value);
    double step = 0;
    if (info.has(VNK::isDecibel)) {
        step = 1;
    } else if (info.logarithmic) {
        const double decade = std::pow(10, std::floor(std::log10(std::max(value, 1e-9f))));
        const double lead = value / decade;
        double best = 10;
        for (const double round : {1.0, 1.2, 1.5, 2.0, 2.5, 3.0, 4.0, 5.0, 6.0, 8.0})
            if (std::abs(std::log(lead / round)) < std::abs(std::log(lead / best))) best = round;
        return std::clamp(static_cast<float>(best * decade), info.minimum, info.maximum);
    } else {
        const double wanted = (info.maximum - info.minimum) / 40;
        step = std::pow(10, std::floor(std::log10(wanted)));
        for (const double more : {2.0, 2.5, 2.0})
            if (step < wanted * 0.7) step *= more;
    }
    return std::clamp(static_cast<float>(std::round(value / step) * step), info.minimum,
                      info.maximum);
}

ParameterControl::ParameterControl(ControlHost& host, const VNK::SkinControl& skin, int parameter,
                                   const Rect& bounds)
    : Control(host, skin.kind, titleOf(skin, host.model().info(parameter)), bounds),
      parameter_(parameter),
      driver_(-1),
      attributes_(skin.attributes)
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
    if (isWheeling_ && seconds >= wheelEnd_) {
        isWheeling_ = false;
        model().end(parameter_);
    }
}

void ParameterControl::setOnce(float value)
{
    model().begin(parameter_);
    model().set(parameter_, value);
    model().end(parameter_);
    damage();
}

float ParameterControl::moved(double fraction) const
{
    if (isStepped()) return stepped(fraction > 0 ? 1 : -1);
    double position = model().position(parameter_) + fraction;
    if (info().wraps) position -= std::floor(position);
    return model().effect().fromNormalized(parameter_,
                                           static_cast<float>(std::clamp(position, 0.0, 1.0)));
}

float ParameterControl::stepped(double steps) const
{
    return std::clamp(value() + static_cast<float>(steps), info().minimum, info().maximum);
}

bool ParameterControl::wheel(const WheelEvent& event)
{
    if (!isWheeling_) {
        isWheeling_ = true;
        wheelRest_ = 0;
        model().begin(parameter_);
    }
    wheelEnd_ = event.seconds + kWheelPause;
    float next = value();
    if (isStepped()) {
        wheelRest_ += event.notches;
        const double whole = std::trunc(wheelRest_);
        wheelRest_ -= whole;
        next = stepped(whole);
    } else {
        next = moved(event.notches / (event.modifiers & kShift ? 500 : 50));
    }
    if (next != value()) model().set(parameter_, next);
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
    const bool begins =
        event.text.size() == 1 && !(event.modifiers & kControl) &&
        std::string_view("0123456789-+.,").find(event.text[0]) != std::string_view::npos;
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
        next = moved(fine);
        break;
    case Key::Down:
    case Key::Left:
        next = moved(-fine);
        break;
    case Key::PageUp:
        next = isStepped() ? stepped(std::round(page)) : moved(0.1);
        break;
    case Key::PageDown:
        next = isStepped() ? stepped(-std::round(page)) : moved(-0.1);
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
    TextRequest request;
    request.field = valueField();
    request.text = text;
    request.isSelected = isWhole;
    request.take = [this](const std::string& typed, std::string& reason) {
        float read = 0;
        if (!model().read(parameter_, typed, read)) {
            reason = "Not a value of " + std::string(info().title) + ": " +
                     model().text(parameter_, info().minimum) + " to " +
                     model().text(parameter_, info().maximum);
            return false;
        }
        setOnce(read);
        return true;
    };
    host().editText(*this, std::move(request));
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
    menu.entries.push_back({info().title, {}});
    if (!valueField().isEmpty()) menu.entries.push_back({"Enter value…", [this] { enterValue(); }});
    menu.entries.push_back({"Default (" + model().text(parameter_, info().defaultValue) + ")",
                            [this] { setDefault(); }});
    menu.entries.push_back({"Copy", [this] { host().copyText(model().text(parameter_)); }});
    ListEntry paste{"Paste", [this] {
                        float read = 0;
                        if (model().read(parameter_, host().pasteText(), read)) setOnce(read);
                    }};
    menu.entries.push_back(std::move(paste));
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
