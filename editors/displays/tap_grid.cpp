// SPDX-License-Identifier: ISC
#include "editors/displays/tap_grid.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kSteps = 32;
constexpr Axis kLevels{-48, 6, false};
constexpr double kCell = 18, kLeft = 44;  // px

}  // namespace

TapGrid::TapGrid(const VNK::SkinBox& box, EffectModel& model)
    : HandleDisplay(box, model),
      on_(values("on")),
      steps_(values("steps")),
      levels_(values("levels")),
      pans_(values("pans")),
      tones_(values("tones")),
      peaks_(values("peaks")),
      swing_(value("swing")),
      length_(value("length")),
      feedback_(value("feedback")),
      frozen_(value("frozen"))
{
    handles().all().resize(static_cast<std::size_t>(kPerTap * steps_.count()));
}

void TapGrid::sized()
{
    plot_ = {{kLeft, 10, width() - kLeft - 12, height() - 34 - 3 * (kCell + 4)},
             {0, kSteps, false},
             kLevels};
    place();
}

/// Where a step lies when each second one comes late.
double TapGrid::warped(double step) const
{
    const double swing = swing_.get(50) / 100;
    const double pair = 2 * std::floor(step / 2), within = step - pair;
    return pair + (within < 1 ? 2 * swing * within : 2 * swing + (within - 1) * (2 - 2 * swing));
}

double TapGrid::unwarped(double place) const
{
    const double swing = std::clamp(swing_.get(50) / 100, 0.01, 0.99);
    const double pair = 2 * std::floor(place / 2), within = place - pair;
    return pair +
           (within < 2 * swing ? within / (2 * swing) : 1 + (within - 2 * swing) / (2 - 2 * swing));
}

Rect TapGrid::cell(int tap, Lane lane) const
{
    const double w = plot_.area.w / std::max(1, steps_.count());
    const double y = plot_.area.bottom() + 20 + static_cast<double>(lane) * (kCell + 4);
    return {plot_.area.x + tap * w + 2, y, w - 4, kCell};
}

void TapGrid::place()
{
    auto& all = handles().all();
    const auto& area = plot_.area;
    std::size_t h = 0;
    for (int tap = 0; tap < steps_.count(); ++tap) {
        auto& ring = all[h++];
        ring.at = {plot_.across(warped(steps_[tap])), plot_.upWithin(levels_[tap])};
        ring.x = {steps_.parameter(tap), 0, kSteps, area.x, area.right(), false, 1};
        ring.x.warped = [this](double x) { return unwarped(plot_.valueAcross(x)); };
        ring.y = {levels_.parameter(tap), kLevels.minimum, kLevels.maximum,
                  area.bottom(),          area.y,          false};
        ring.wheel = pans_.parameter(tap);
        ring.isVisible = on_[tap] > 0.5;
        for (const auto lane : {Lane::On, Lane::Pan, Lane::Tone}) {
            const auto& values = lane == Lane::On ? on_ : lane == Lane::Pan ? pans_ : tones_;
            auto& handle = all[h++];
            handle.cell = cell(tap, lane);
            handle.at = handle.cell.centre();
            handle.x.parameter = handle.y.parameter = values.parameter(tap);
            handle.isVisible = values.parameter(tap) >= 0;
            handle.isSwitch = lane == Lane::On;
        }
    }
}

void TapGrid::look(std::vector<double>& numbers) const
{
    for (int i = 0; i < steps_.count(); ++i)
        for (const auto* v : {&on_, &steps_, &levels_, &pans_, &tones_}) numbers.push_back((*v)[i]);
    numbers.insert(numbers.end(),
                   {swing_.get(50), length_.get(16), feedback_.get(0), frozen_.get(0)});
}

/// The level that is heard of each tap, to the nearest decibel.
void TapGrid::ticked(double)
{
    heard_.resize(static_cast<std::size_t>(steps_.count()), kLevels.minimum);
    for (int i = 0; i < steps_.count(); ++i) {
        auto& was = heard_[static_cast<std::size_t>(i)];
        const double now = std::max(kLevels.minimum, std::round(peaks_[i]));
        if (now == was) continue;
        const double a = plot_.upWithin(was), b = plot_.upWithin(now);
        damage({plot_.across(warped(steps_[i])) - 1, std::min(a, b) - 1, 2, std::abs(a - b) + 2});
        was = now;
    }
}

void TapGrid::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(swing_.get(50));
}

void TapGrid::drawStatic(Canvas& canvas)
{
    const auto& area = plot_.area;
    drawUp(canvas, plot_, linearTicks(kLevels, 5, true), FiguresAt::Left);
    for (int step = 0; step <= static_cast<int>(kSteps); ++step) {
        const double x = plot_.across(warped(step));
        canvas.vertical(x, area.y, area.bottom(), step % 4 ? Color::Grid : Color::Track);
        if (step % 4 == 0)
            canvas.text(Type::Axis, std::to_string(step), x, area.bottom() + 13, Align::Centre,
                        Color::Text3);
    }
    const char* const names[] = {"Tap", "Pan", "Tone"};
    for (int lane = 0; lane < 3; ++lane)
        canvas.text(Type::Axis, names[lane], 10, cell(0, static_cast<Lane>(lane)).bottom() - 5,
                    Align::Left, Color::Text3);
}

void TapGrid::draw(Canvas& canvas)
{
    place();
    const auto& area = plot_.area;
    // From where on the pattern comes again.
    const double end = plot_.across(warped(length_.get(16)));
    if (end < area.right())
        canvas.fill({end, area.y, area.right() - end, area.h}, Ink(Color::Raised, 0.35));
    canvas.vertical(end, area.y, area.bottom(), Color::Accent, Dash::Dashes);
    canvas.fill({area.x - 1, area.y, 2, area.h}, Color::Output);
    const double again = feedback_.get(0) / 100;
    for (int i = 0; i < steps_.count(); ++i) {
        const bool isOn = on_[i] > 0.5;
        const auto stem = [&](double step, double level, double opacity) {
            if (step > kSteps || level <= kLevels.minimum) return;
            const double x = plot_.across(warped(step)), y = plot_.upWithin(level);
            canvas.fillRounded({x - 2, y, 4, area.bottom() - y}, 2, Ink(Color::Accent, opacity));
        };
        if (isOn) {
            stem(steps_[i], levels_[i], 0.7);
            if (again > 0.01)
                stem(steps_[i] + length_.get(16), levels_[i] + 20 * std::log10(again), 0.25);
            // What is heard of it.
            const double heard = i < static_cast<int>(heard_.size())
                                     ? heard_[static_cast<std::size_t>(i)]
                                     : kLevels.minimum;
            if (heard > kLevels.minimum) {
                const double y = plot_.upWithin(heard);
                canvas.fill({plot_.across(warped(steps_[i])) - 1, y, 2, area.bottom() - y},
                            Color::Ok);
            }
        }
        const auto square = cell(i, Lane::On);
        canvas.fillRounded(square, 4, isOn ? Ink(Color::Accent, 0.2) : Ink(Color::Raised));
        if (isOn) canvas.strokeRounded(square, 4, 0, Color::Accent);
        canvas.text(Type::Axis, std::to_string(i + 1), square.centre().x, square.bottom() - 5,
                    Align::Centre, isOn ? Color::Accent : Color::Text2);
        for (const auto lane : {Lane::Pan, Lane::Tone}) {
            const auto box = cell(i, lane);
            const auto& list = lane == Lane::Pan ? pans_ : tones_;
            canvas.fillRounded(box, 4, Ink(Color::Raised, 0.6));
            const double middle = box.centre().x, share = list[i] / 100;
            const double x = middle + share * (box.w / 2 - 3);
            canvas.fill(
                {std::min(middle, x), box.y + 3, std::max(1.5, std::abs(x - middle)), box.h - 6},
                Ink(Color::Accent, isOn ? 0.8 : 0.3));
        }
    }
    handles().draw(canvas);
    for (std::size_t i = 0; i < handles().all().size(); ++i) {
        const auto& handle = handles().all()[i];
        const bool isRing = handle.cell.isEmpty();
        if (isRing && handle.isVisible)
            canvas.text(Type::MeterScale, std::to_string(i / kPerTap + 1), handle.at.x,
                        std::max(area.y + 8, handle.at.y - 9), Align::Centre, Color::Text2);
        if (!isRing && handles().isFocused(static_cast<int>(i)))
            canvas.strokeRounded(handle.cell.inset(-2), 5, 2, Color::Focus);
    }
    handles().drawLabel(canvas, {0, area.y, width(), height()});
    if (frozen_.isOn())
        canvas.text(Type::Axis, "Frozen", area.right() - 4, area.y + 12, Align::Right,
                    Color::Accent);
}

bool TapGrid::key(const KeyEvent& event)
{
    const int tap = handles().focus() / kPerTap;
    if (event.key != Key::Space || on_.parameter(tap) < 0) return HandleDisplay::key(event);
    model().set(on_.parameter(tap), on_[tap] > 0.5 ? 0 : 1);
    return true;
}

std::string TapGrid::describe() const
{
    std::string text = "Taps";
    for (int i = 0; i < steps_.count(); ++i)
        text += ", " + std::to_string(i + 1) +
                (on_[i] > 0.5 ? " at " + steps_.text(i) + " " + levels_.text(i) + " pan " +
                                    pans_.text(i) + " tone " + tones_.text(i)
                              : " off");
    return text;
}

std::string TapGrid::tip(double, double) const
{
    return "Drag a ring in time and level, with Shift between the steps; the bars below are pan "
           "and "
           "tone.";
}

}  // namespace quillworks::editors
