// SPDX-License-Identifier: ISC
#include "editors/displays/loudness.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr double kPerSecond = 2;
constexpr double kHighestTruePeak = -1;  // dBTP that EBU R 128 allows
constexpr double kGate = -70;            // LUFS: what lies below is silence

bool isThere(double lufs)
{
    return lufs > kGate;
}

}  // namespace

Loudness::Loudness(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      momentary_(value("momentary")),
      shortTerm_(value("shortTerm")),
      integrated_(value("integrated")),
      low_(value("low")),
      high_(value("high")),
      truePeak_(value("truePeak"))
{}

void Loudness::sized()
{
    const double top = 76, foot = 84;
    bars_.area = {40, top, std::min(90.0, width() - 90), height() - top - foot - 30};
    history_.area = {40, height() - foot + 14, width() - 52, foot - 34};
}

void Loudness::ticked(double seconds)
{
    std::int64_t absolute = 0, wide = 0;
    model().effect().getInteger("loudnessInLUFS", absolute);
    model().effect().getInteger("loudnessEBU18", wide);
    isAbsolute_ = absolute != 0;
    isWide_ = wide != 0;
    const double shift = isAbsolute_ ? kTarget : 0;
    bars_.y = {shift + (isWide_ ? -36 : -18), shift + (isWide_ ? 18 : 9), false};
    history_.y = bars_.y;
    history_.x = {-kSeconds, 0, false};
    if (taken_ < 0 || seconds < taken_) taken_ = seconds;
    while (seconds - taken_ >= 1 / kPerSecond) {
        taken_ += 1 / kPerSecond;
        const double now = shortTerm_.get();
        const auto nothing = std::numeric_limits<double>::quiet_NaN();
        past_.push_back(isThere(now) ? now : nothing);
    }
    const auto most = static_cast<std::size_t>(kSeconds * kPerSecond) + 1;
    if (past_.size() > most)
        past_.erase(past_.begin(), past_.end() - static_cast<std::ptrdiff_t>(most));
}

double Loudness::length() const
{
    return high_.get() - low_.get();
}

void Loudness::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&momentary_, &shortTerm_, &integrated_, &low_, &high_, &truePeak_})
        numbers.push_back(isThere(v->get()) ? std::round(v->get() * 10) : 0);
    // Silence all along looks as before.
    double sum = 0, count = 0;
    for (std::size_t i = 0; i < past_.size(); ++i) {
        if (std::isnan(past_[i])) continue;
        sum += past_[i] * static_cast<double>(i + 1);
        ++count;
    }
    numbers.insert(numbers.end(), {sum, count});
}

void Loudness::lookStatic(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {double(isAbsolute_), double(isWide_)});
}

void Loudness::drawStatic(Canvas& canvas)
{
    const auto ticks = linearTicks(bars_.y, isWide_ ? 10 : 9, true);
    for (const auto* plot : {&bars_, &history_}) {
        const auto shown = plot == &bars_ ? ticks : linearTicks(plot->y, 3, true);
        // The target and one unit to both sides.
        const double target = isAbsolute_ ? kTarget : 0;
        const double top = plot->up(target + 1), bottom = plot->up(target - 1);
        canvas.fill({plot->area.x, top, plot->area.w, bottom - top}, Ink(Color::Ok, 0.12));
        drawUp(canvas, *plot, shown, FiguresAt::Left);
        canvas.horizontal(plot->area.x, plot->area.right(), plot->up(target), Ink(Color::Ok, 0.7));
    }
    const auto& area = history_.area;
    for (double t = -60; t <= 0; t += 20) {
        canvas.vertical(history_.across(t), area.y, area.bottom(), Color::Grid);
        const auto text = t == 0 ? std::string("now") : figure(t) + " s";
        canvas.text(Type::Axis, text, std::min(history_.across(t), area.right() - 6),
                    area.bottom() + 14, Align::Centre, Color::Text3);
    }
    canvas.text(Type::Axis, "Short-Term | Momentary", bars_.area.x, bars_.area.bottom() + 16,
                Align::Left, Color::Text3);
}

void Loudness::draw(Canvas& canvas)
{
    const char* const unit = isAbsolute_ ? "LUFS" : "LU";
    const auto number = [&](double lufs) {
        return isThere(lufs) ? figure(units(lufs), 1, !isAbsolute_) : std::string("-");
    };
    // Integrated, large.
    const double integrated = integrated_.get();
    canvas.text(Type::Label, "Integrated", 14, 22, Align::Left, Color::Text2);
    const Theme::Face large{Weight::SemiBold, 28};
    const auto extent = canvas.text(large, number(integrated), 14, 54, Align::Left, Color::Text);
    canvas.text(Type::Label, unit, extent.right() + 6, 54, Align::Left, Color::Text2);

    const auto& area = bars_.area;
    const double w = (area.w - 12) / 2;
    const auto bar = [&](double x, double lufs) {
        canvas.fill({x, area.y, w, area.h}, Ink(Color::Panel, 0.7));
        if (!isThere(lufs)) return;
        const double value = units(lufs), target = isAbsolute_ ? kTarget : 0;
        const auto part = [&](double from, double to, Color color) {
            const double top = bars_.upWithin(std::min(value, to)), bottom = bars_.upWithin(from);
            if (value > from && bottom > top) canvas.fill({x, top, w, bottom - top}, color);
        };
        part(bars_.y.minimum, target - 1, Color::Ok);
        part(target - 1, target + 1, Color::Accent);
        part(target + 1, bars_.y.maximum, Color::Warn);
    };
    bar(area.x, shortTerm_.get());
    bar(area.x + w + 4, momentary_.get());
    // The range as a bracket, and its length.
    double y = area.y + 8;
    const double x = area.right() + 22;
    const auto entry = [&](const char* title, const std::string& text, Ink ink) {
        canvas.text(Type::Axis, title, x, y, Align::Left, Color::Text3);
        canvas.text(Type::Value, text, x, y + 16, Align::Left, ink);
        y += 38;
    };
    if (isThere(low_.get()) && isThere(high_.get())) {
        const double top = bars_.upWithin(units(high_.get())),
                     bottom = bars_.upWithin(units(low_.get()));
        const double at = area.right() + 2;
        canvas.vertical(at + 5, top, bottom, Color::Text2);
        canvas.horizontal(at, at + 5, top, Color::Text2);
        canvas.horizontal(at, at + 5, bottom, Color::Text2);
    }
    entry("Range", isThere(low_.get()) ? figure(length(), 1) + " LU" : "-", Color::Text);
    const double peak = truePeak_.get();
    entry("True peak", peak > -140 ? figure(peak, 1) + " dBTP" : "-",
          peak > kHighestTruePeak ? Color::Warn : Color::Text);
    entry("Momentary", number(momentary_.get()), Color::Text);
    entry("Short-term", number(shortTerm_.get()), Color::Text);
    // The last minute.
    points_.clear();
    for (std::size_t i = 0; i < past_.size(); ++i) {
        const double t = -static_cast<double>(past_.size() - 1 - i) / kPerSecond;
        points_.push_back(
            {history_.across(t), std::clamp(history_.up(units(past_[i])), history_.area.y - 3,
                                            history_.area.bottom() + 3)});
    }
    graph_.begin(canvas, history_.area);
    graph_.fill(points_, history_.area.bottom(), Ink(Color::Accent, 0.2));
    graph_.stroke(points_, 1.5, Color::Accent);
    graph_.show(canvas);
}

std::string Loudness::describe() const
{
    return "Loudness, integrated " + integrated_.text() + ", short-term " + shortTerm_.text() +
           ", momentary " + momentary_.text() + ", true peak " + truePeak_.text();
}

}  // namespace quillworks::editors
