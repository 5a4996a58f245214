// SPDX-License-Identifier: ISC
#include "editors/displays/step_bars.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kGap = 2;     // px
constexpr double kGrasp = 24;  // px around a level
constexpr double kDoubleClick = 0.4;

}  // namespace

StepBars::StepBars(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      levels_(values("levels")),
      steps_(value("steps")),
      position_(value("position"))
{
    if (const int p = levels_.parameter(0); p >= 0)
        plot_.y = {double(model.info(p).minimum), double(model.info(p).maximum), false};
}

int StepBars::steps() const
{
    return std::clamp(static_cast<int>(steps_.get(levels_.count())), 1,
                      std::max(1, levels_.count()));
}

void StepBars::sized()
{
    const double foot = isSmall() ? 6 : 20;
    plot_.area = {8, 8, width() - 16, height() - 8 - foot};
}

void StepBars::look(std::vector<double>& numbers) const
{
    for (int i = 0; i < steps(); ++i) numbers.push_back(levels_[i]);
    numbers.push_back(std::floor(position_.get(-1)));
}

void StepBars::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(steps());
}

Rect StepBars::bar(int step) const
{
    const double w = plot_.area.w / steps();
    return {plot_.area.x + step * w + kGap / 2, plot_.area.y, w - kGap, plot_.area.h};
}

int StepBars::at(double x) const
{
    const double p = (x - plot_.area.x) / plot_.area.w * steps();
    return std::clamp(static_cast<int>(std::floor(p)), 0, steps() - 1);
}

void StepBars::drawStatic(Canvas& canvas)
{
    const auto& area = plot_.area;
    for (const double share : {0.0, 0.25, 0.5, 0.75, 1.0})
        canvas.horizontal(area.x, area.right(), area.y + share * area.h,
                          share == 0 || share == 1 ? Color::GridEnd : Color::Grid);
    const int every = bar(0).w > 16 ? 1 : 4;
    for (int i = 0; i < steps(); ++i) {
        const auto rect = bar(i);
        // Groups of four, as beats.
        canvas.fill(rect, Ink(Color::Raised, i / 4 % 2 ? 0.25 : 0.5));
        if (!isSmall() && i % every == 0)
            canvas.text(Type::Axis, std::to_string(i + 1), rect.centre().x, height() - 7,
                        Align::Centre, Color::Text3);
    }
}

void StepBars::draw(Canvas& canvas)
{
    const int playing = static_cast<int>(std::floor(position_.get(-1)));
    const double base = plot_.up(std::max(0.0, plot_.y.minimum));
    for (int i = 0; i < steps(); ++i) {
        const auto rect = bar(i);
        const double y = plot_.upWithin(levels_[i]);
        const bool isPlaying = i == playing;
        if (isPlaying) canvas.fill(rect, Ink(Color::Text, 0.1));
        const double top = std::min(y, base), bottom = std::max(y, base);
        canvas.fill({rect.x, top, rect.w, bottom - top},
                    Paint(Ink(Color::Accent, isPlaying ? 1 : 0.75), plot_.area.y,
                          Ink(Color::Accent, isPlaying ? 0.8 : 0.45), plot_.area.bottom()));
        // The level itself stays to be seen where the bar has no height.
        canvas.fill({rect.x, canvas.snap(y) - 1, rect.w, 2},
                    isPlaying ? Color::Text : Color::Accent);
        if (hasFocus_ && i == chosen_) canvas.strokeRounded(rect.inset(-1), 2, 2, Color::Focus);
    }
    if (plot_.y.minimum < 0)
        canvas.horizontal(plot_.area.x, plot_.area.right(), base, Color::Track);
}

void StepBars::set(int step, double y)
{
    const int p = levels_.parameter(step);
    if (p < 0) return;
    if (std::find(touched_.begin(), touched_.end(), p) == touched_.end()) {
        touched_.push_back(p);
        model().begin(p);
    }
    model().set(p,
                static_cast<float>(std::clamp(plot_.valueUp(y), plot_.y.minimum, plot_.y.maximum)));
}

/// All steps between the last place and this one.
void StepBars::paint(Point to)
{
    const int from = at(last_.x), until = at(to.x);
    const int count = std::abs(until - from);
    for (int k = 0; k <= count; ++k) {
        const double t = count == 0 ? 1 : double(k) / count;
        if (k == 0 && count > 0) continue;
        set(from + (until > from ? k : -k), last_.y + t * (to.y - last_.y));
    }
    last_ = to;
    chosen_ = until;
    damage();
}

bool StepBars::pointer(const PointerEvent& event)
{
    switch (event.action) {
    case PointerAction::Press:
        if (event.button != 1 || isPainting_ || levels_.count() == 0) return false;
        model().beginGroup();
        isPainting_ = true;
        last_ = {event.x, event.y};
        if (event.seconds - pressed_ < kDoubleClick) {
            const int p = levels_.parameter(at(event.x));
            if (p >= 0) model().set(p, model().info(p).defaultValue);
            pressed_ = -1;
        } else {
            pressed_ = event.seconds;
            paint(last_);
        }
        return true;
    case PointerAction::Move:
        if (!isPainting_) return false;
        pressed_ = -1;  // no click
        paint({event.x, event.modifiers & kControl ? last_.y : event.y});
        return true;
    case PointerAction::Release:
        if (!isPainting_ || event.button != 1) return false;
        for (const int p : touched_) model().end(p);
        touched_.clear();
        isPainting_ = false;
        model().endGroup();
        return true;
    default:
        return false;
    }
}

bool StepBars::wheel(const WheelEvent& event)
{
    return turn(levels_.parameter(at(event.x)), event);
}

bool StepBars::key(const KeyEvent& event)
{
    const int p = levels_.parameter(chosen_);
    const auto choose = [&](int step) {
        chosen_ = std::clamp(step, 0, steps() - 1);
        damage();
        return true;
    };
    const double by = event.modifiers & kShift ? 0.001 : 0.01;
    switch (event.key) {
    case Key::Left:
        return choose(chosen_ - 1);
    case Key::Right:
        return choose(chosen_ + 1);
    case Key::Home:
        return choose(0);
    case Key::End:
        return choose(steps() - 1);
    case Key::Up:
        return step(p, by);
    case Key::Down:
        return step(p, -by);
    case Key::PageUp:
        return step(p, 0.1);
    case Key::PageDown:
        return step(p, -0.1);
    case Key::Delete:
        if (p >= 0) model().set(p, model().info(p).defaultValue);
        return p >= 0;
    default:
        return false;
    }
}

void StepBars::setFocus(bool has)
{
    hasFocus_ = has;
    damage();
}

std::vector<Grasp> StepBars::grasps()
{
    std::vector<Grasp> all;
    for (int i = 0; i < steps(); ++i) {
        const auto rect = bar(i);
        Grasp grasp;
        grasp.at = {rect.x, plot_.upWithin(levels_[i]) - kGrasp / 2, rect.w, kGrasp};
        grasp.up = grasp.wheel = levels_.parameter(i);
        all.push_back(grasp);
    }
    return all;
}

void StepBars::focusGrasp(int grasp)
{
    chosen_ = std::clamp(grasp, 0, steps() - 1);
    damage();
}

std::string StepBars::describe() const
{
    std::string text = "Steps";
    for (int i = 0; i < steps(); ++i) text += (i ? ", " : " ") + levels_.text(i);
    return text;
}

std::string StepBars::tip(double x, double) const
{
    const int step = at(x);
    return levels_.title(step) + " " + levels_.text(step) + ". Draw to set the steps.";
}

}  // namespace quillworks::editors
