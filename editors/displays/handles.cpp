// SPDX-License-Identifier: ISC
#include "editors/displays/handles.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "editors/displays/plot.h"

namespace quillworks::editors {
namespace {

constexpr double kFine = 0.1;                                     // of a move while Shift is held
constexpr double kFullRange = 200;                                // px, of grips without a place
constexpr double kDoubleClick = 0.4;                              // s
constexpr float kStep = 0.01f, kFineStep = 0.001f, kPage = 0.1f;  // of a range
constexpr float kNotch = 0.02f, kFineNotch = 0.002f;

}  // namespace

double Grip::valueAt(double pixel) const noexcept
{
    const double p = (pixel - start) / (end - start);
    return isLogarithmic ? from * std::pow(to / from, p) : from + p * (to - from);
}

int Handles::nearest(double x, double y) const
{
    int found = -1;
    double least = kReach;
    for (std::size_t i = 0; i < handles_.size(); ++i) {
        const auto& h = handles_[i];
        const double distance = std::hypot(h.at.x - x, h.at.y - y);
        if (!h.isVisible || !(distance < least)) continue;
        least = distance;
        found = static_cast<int>(i);
    }
    return found;
}

void Handles::grasp(int handle, const PointerEvent& event)
{
    held_ = focus_ = handle;
    last_ = {event.x, event.y};
    const auto& h = handles_[static_cast<std::size_t>(handle)];
    wanted_ = h.at;
    const bool isPair = h.x.exists() && h.y.exists() && h.x.parameter != h.y.parameter;
    if (isPair) model_.beginGroup();
    both(h, [&](const Grip& grip, bool isX) {
        model_.begin(grip.parameter);
        (isX ? stepX_ : stepY_) = model_.position(grip.parameter);
    });
}

void Handles::drag(const PointerEvent& event)
{
    const auto& h = handles_[static_cast<std::size_t>(held_)];
    const double pace = event.modifiers & kShift ? kFine : 1;
    const double dx = (event.x - last_.x) * pace, dy = (event.y - last_.y) * pace;
    last_ = {event.x, event.y};
    wanted_ = {wanted_.x + dx, wanted_.y + dy};
    both(h, [&](const Grip& grip, bool isX) {
        if (grip.hasPlace()) {
            const double value = grip.valueAt(isX ? wanted_.x : wanted_.y);
            if (std::isfinite(value)) model_.set(grip.parameter, static_cast<float>(value));
            return;
        }
        auto& step = isX ? stepX_ : stepY_;
        step = std::clamp(step + static_cast<float>((isX ? dx : -dy) / kFullRange), 0.0f, 1.0f);
        model_.setPosition(grip.parameter, step);
    });
}

void Handles::release()
{
    const auto& h = handles_[static_cast<std::size_t>(held_)];
    held_ = -1;
    both(h, [&](const Grip& grip, bool) { model_.end(grip.parameter); });
    if (h.x.exists() && h.y.exists() && h.x.parameter != h.y.parameter) model_.endGroup();
}

void Handles::reset(const Handle& h)
{
    const bool isPair = h.x.exists() && h.y.exists();
    if (isPair) model_.beginGroup();
    both(h, [&](const Grip& grip, bool) {
        model_.set(grip.parameter, model_.info(grip.parameter).defaultValue);
    });
    if (isPair) model_.endGroup();
}

bool Handles::pointer(const PointerEvent& event, bool& changed)
{
    changed = false;
    switch (event.action) {
    case PointerAction::Press: {
        if (event.button != 1) return false;
        const int handle = nearest(event.x, event.y);
        if (handle < 0) return false;
        changed = true;
        const bool isSecond = clicked_ == handle && event.seconds - pressed_ < kDoubleClick;
        pressed_ = isSecond ? -1 : event.seconds;
        clicked_ = handle;
        if (isSecond) {
            if (held_ >= 0) release();
            reset(handles_[static_cast<std::size_t>(handle)]);
        } else {
            if (held_ >= 0) release();
            grasp(handle, event);
        }
        return true;
    }
    case PointerAction::Release:
        if (held_ < 0 || event.button != 1) return false;
        release();
        changed = true;
        return true;
    case PointerAction::Move: {
        if (held_ >= 0) {
            drag(event);
            return true;
        }
        const int handle = nearest(event.x, event.y);
        changed = std::exchange(hovered_, handle) != handle;
        return handle >= 0;
    }
    default:
        changed = std::exchange(hovered_, -1) >= 0;
        return false;
    }
}

bool Handles::wheel(const WheelEvent& event)
{
    const int handle = nearest(event.x, event.y);
    if (handle < 0) return false;
    const auto& h = handles_[static_cast<std::size_t>(handle)];
    const int parameter = h.wheel >= 0 ? h.wheel : h.y.exists() ? h.y.parameter : h.x.parameter;
    if (parameter < 0) return false;
    const float step = event.modifiers & kShift ? kFineNotch : kNotch;
    model_.setPosition(parameter,
                       model_.position(parameter) + step * static_cast<float>(event.notches));
    return true;
}

bool Handles::key(const KeyEvent& event, bool& changed)
{
    changed = true;
    const int count = static_cast<int>(handles_.size());
    if (count == 0) return false;
    const auto& h = handles_[static_cast<std::size_t>(std::clamp(focus_, 0, count - 1))];
    const auto move = [&](const Grip& grip, float amount) {
        if (!grip.exists()) return false;
        model_.setPosition(grip.parameter, model_.position(grip.parameter) + amount);
        return true;
    };
    const float step = event.modifiers & kShift ? kFineStep : kStep;
    switch (event.key) {
    case Key::Left:
        return move(h.x, -step);
    case Key::Right:
        return move(h.x, step);
    case Key::Up:
        return move(h.y, step);
    case Key::Down:
        return move(h.y, -step);
    case Key::PageUp:
        return move(h.y, kPage);
    case Key::PageDown:
        return move(h.y, -kPage);
    case Key::Home:
        focus_ = (focus_ + count - 1) % count;
        return true;
    case Key::End:
        focus_ = (focus_ + 1) % count;
        return true;
    case Key::Delete:
        reset(h);
        return true;
    default:
        return false;
    }
}

void Handles::draw(Canvas& canvas) const
{
    for (std::size_t i = 0; i < handles_.size(); ++i)
        if (handles_[i].isVisible)
            drawHandle(canvas, handles_[i].at,
                       isHeld(static_cast<int>(i)) || hovered_ == static_cast<int>(i),
                       isFocused(static_cast<int>(i)));
}

}  // namespace quillworks::editors
