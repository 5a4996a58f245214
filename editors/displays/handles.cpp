// SPDX-License-Identifier: ISC
#include "editors/displays/handles.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "editors/displays/plot.h"

namespace quillworks::editors {
namespace {

constexpr double kFine = 0.1;         // of a move while Shift is held
constexpr double kDrawn = 12;         // px around a handle
constexpr double kFullRange = 200;    // px, of grips without a place
constexpr double kFirst = 3;          // px that the last one held is nearer than the others
constexpr double kDoubleClick = 0.4;  // s
constexpr double kStep = 0.01, kFineStep = 0.001, kPage = 0.1;  // of a range

}  // namespace

double Grip::valueAt(double pixel) const
{
    if (warped) return warped(pixel);
    const double p = (pixel - start) / (end - start);
    return isLogarithmic ? from * std::pow(to / from, p) : from + p * (to - from);
}

int Handles::nearest(double x, double y) const
{
    int found = -1;
    double least = kReach;
    for (std::size_t i = 0; i < handles_.size(); ++i) {
        const auto& h = handles_[i];
        if (!h.isVisible) continue;
        const bool isCell = !h.cell.isEmpty();
        if (isCell && !h.cell.contains(x, y)) continue;
        // Of two in one place the one that was brought there can be taken away again.
        const double first = focus_ == static_cast<int>(i) ? kFirst : 0;
        const double distance = isCell ? 0 : std::hypot(h.at.x - x, h.at.y - y) - first;
        if (!(distance < least)) continue;
        least = distance;
        found = static_cast<int>(i);
    }
    return found;
}

void Handles::press(int at, const PointerEvent& event)
{
    held_ = focus_ = at;
    last_ = {event.x, event.y};
    const auto& h = handle(at);
    wanted_ = h.at;
    // A click on a written value types one: there the gesture begins with the first move.
    if (!h.isSwitch && !h.value.contains(event.x, event.y)) grasp();
}

void Handles::grasp()
{
    isGrasped_ = true;
    const auto& h = handle(held_);
    const bool isPair = h.x.exists() && h.y.exists() && h.x.parameter != h.y.parameter;
    if (isPair) model_.beginGroup();
    both(h, [&](const Grip& grip, bool isX) {
        model_.begin(grip.parameter);
        (isX ? stepX_ : stepY_) = model_.position(grip.parameter);
    });
}

void Handles::drag(const PointerEvent& event)
{
    const auto& h = handle(held_);
    if (h.isSwitch) return;
    if (!isGrasped_) grasp();
    const double pace = event.modifiers & kShift ? kFine : 1;
    const double dx = (event.x - last_.x) * pace, dy = (event.y - last_.y) * pace;
    if (dx != 0 || dy != 0) pressed_ = -1;  // no click
    last_ = {event.x, event.y};
    wanted_ = {wanted_.x + dx, wanted_.y + dy};
    both(h, [&](const Grip& grip, bool isX) {
        const auto& info = model_.info(grip.parameter);
        float next = 0;
        if (grip.hasPlace()) {
            double value = grip.valueAt(isX ? wanted_.x : wanted_.y);
            if (!std::isfinite(value)) return;
            if (grip.snap > 0 && !(event.modifiers & kShift))
                value = std::round(value / grip.snap) * grip.snap;
            next = static_cast<float>(value);
        } else {
            // One that both directions move is more to the right and up.
            const bool isBoth = h.x.parameter == h.y.parameter;
            const double way = isBoth ? dx - dy : isX ? dx : -dy;
            auto& step = isX ? stepX_ : stepY_;
            step += static_cast<float>(way / kFullRange);
            step = info.wraps ? step - std::floor(step) : std::clamp(step, 0.0f, 1.0f);
            next = model_.effect().fromNormalized(grip.parameter, step);
        }
        if (event.modifiers & kControl) next = roundValue(info, next);
        model_.set(grip.parameter, next);
    });
}

void Handles::release(const PointerEvent& event)
{
    const auto& h = handle(held_);
    held_ = -1;
    if (h.isSwitch && h.cell.contains(event.x, event.y)) toggle(h);
    if (!std::exchange(isGrasped_, false)) return;
    both(h, [&](const Grip& grip, bool) { model_.end(grip.parameter); });
    if (h.x.exists() && h.y.exists() && h.x.parameter != h.y.parameter) model_.endGroup();
}

void Handles::toggle(const Handle& h)
{
    const int p = h.x.parameter;
    if (p >= 0) model_.set(p, model_.value(p) > 0.5f ? 0 : 1);
}

void Handles::reset(const Handle& h)
{
    const bool isPair = h.x.exists() && h.y.exists() && h.x.parameter != h.y.parameter;
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
        const int at = nearest(event.x, event.y);
        if (at < 0) return false;
        changed = true;
        const bool isSecond = clicked_ == at && event.seconds - pressed_ < kDoubleClick;
        pressed_ = isSecond ? -1 : event.seconds;
        clicked_ = at;
        if (held_ >= 0) release(event);
        if (isSecond && !handle(at).isSwitch)
            reset(handle(at));
        else
            press(at, event);
        return true;
    }
    case PointerAction::Release:
        if (held_ < 0 || event.button != 1) return false;
        release(event);
        changed = true;
        return true;
    case PointerAction::Move: {
        if (held_ >= 0) {
            drag(event);
            return true;
        }
        const int at = nearest(event.x, event.y);
        changed = std::exchange(hovered_, at) != at;
        return at >= 0;
    }
    default:
        changed = std::exchange(hovered_, -1) >= 0;
        return false;
    }
}

int Handles::wheelAt(double x, double y) const
{
    const int at = nearest(x, y);
    if (at < 0 || handle(at).isSwitch) return -1;
    const auto& h = handle(at);
    return h.wheel >= 0 ? h.wheel : h.y.exists() ? h.y.parameter : h.x.parameter;
}

/// To the next handle that is seen.
void Handles::goOn(int by)
{
    const int count = static_cast<int>(handles_.size());
    for (int i = 0; i < count; ++i) {
        focus_ = (focus_ + by + count) % count;
        if (handle(focus_).isVisible) return;
    }
}

bool Handles::key(const KeyEvent& event, bool& changed)
{
    changed = true;
    if (handles_.empty()) return false;
    if (!handle(focus_).isVisible) goOn(1);
    const auto& h = handle(focus_);
    const auto move = [&](const Grip& grip, double amount) {
        if (!grip.exists() || h.isSwitch) return false;
        model_.set(grip.parameter, movedValue(model_, grip.parameter, amount));
        return true;
    };
    const double step = event.modifiers & kShift ? kFineStep : kStep;
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
        goOn(-1);
        return true;
    case Key::End:
        goOn(1);
        return true;
    case Key::Delete:
        reset(h);
        return true;
    case Key::Space:
    case Key::Enter:
        if (h.isSwitch) toggle(h);
        return h.isSwitch;
    default:
        return false;
    }
}

std::vector<Grasp> Handles::grasps() const
{
    std::vector<Grasp> all;
    for (const auto& h : handles_) {
        if (!h.isVisible) continue;
        Grasp grasp;
        grasp.at = h.cell.isEmpty() ? Rect{h.at.x, h.at.y, 0, 0}.inset(-0.8 * kReach) : h.cell;
        grasp.across = h.x.parameter;
        grasp.up = h.y.parameter;
        grasp.wheel = h.wheel;
        grasp.isSwitch = h.isSwitch;
        grasp.value = h.value;
        all.push_back(std::move(grasp));
    }
    return all;
}

int Handles::focusedGrasp() const
{
    int grasp = 0;
    for (int i = 0; i < static_cast<int>(handles_.size()); ++i) {
        if (!handle(i).isVisible) continue;
        if (i >= focus_) return grasp;
        ++grasp;
    }
    return grasp - 1;
}

void Handles::focusGrasp(int grasp)
{
    for (int i = 0; i < static_cast<int>(handles_.size()); ++i)
        if (handle(i).isVisible && grasp-- == 0) focus_ = i;
}

void Handles::draw(Canvas& canvas) const
{
    for (std::size_t i = 0; i < handles_.size(); ++i)
        if (handles_[i].isVisible && handles_[i].cell.isEmpty() &&
            canvas.sees(Rect{handles_[i].at.x, handles_[i].at.y, 0, 0}.inset(-kDrawn)))
            drawHandle(canvas, handles_[i].at,
                       isHeld(static_cast<int>(i)) || hovered_ == static_cast<int>(i),
                       isFocused(static_cast<int>(i)));
}

void Handles::drawLabel(Canvas& canvas, const Rect& area) const
{
    if (hovered() < 0) return;
    const auto& h = handle(hovered());
    if (!h.isVisible || h.isSwitch || !h.value.isEmpty()) return;
    std::string text;
    const bool isPair = h.x.exists() && h.y.exists() && h.x.parameter != h.y.parameter;
    for (const auto* grip : {&h.x, &h.y}) {
        const int p = grip->parameter;
        if (p < 0 || (grip == &h.y && !isPair && h.x.exists())) continue;
        if (!text.empty()) text += "   ";
        text += (isPair ? "" : std::string(model_.info(p).shortTitle) + " ") + model_.text(p);
    }
    const double half = canvas.textWidth(Type::Label, text) / 2 + 2;
    const double x =
        std::clamp(h.at.x, area.x + half, std::max(area.x + half, area.right() - half));
    const bool isBelow = h.at.y < area.y + 20;
    canvas.text(Type::Label, text, x, isBelow ? h.at.y + 20 : h.at.y - 12, Align::Centre,
                Color::Text);
}

bool HandleDisplay::pointer(const PointerEvent& event)
{
    place();
    bool changed = false;
    const bool used = handles_.pointer(event, changed);
    if (changed) damage();
    return used;
}

bool HandleDisplay::wheel(const WheelEvent& event)
{
    place();
    return turn(handles_.wheelAt(event.x, event.y), event);
}

bool HandleDisplay::key(const KeyEvent& event)
{
    bool changed = false;
    const bool used = handles_.key(event, changed);
    if (changed) damage();
    return used;
}

void HandleDisplay::setFocus(bool has)
{
    handles_.setFocus(has);
    damage();
}

std::vector<Grasp> HandleDisplay::grasps()
{
    place();
    return handles_.grasps();
}

void HandleDisplay::focusGrasp(int grasp)
{
    handles_.focusGrasp(grasp);
    damage();
}

}  // namespace quillworks::editors
