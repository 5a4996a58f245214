// SPDX-License-Identifier: ISC
#include "editors/displays/level_bars.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr double kGap = 4;            // px between bars
constexpr double kWidest = 28;        // px of a bar
constexpr double kFigures = 34;       // px for the scale, at both sides
constexpr double kRememberRange = 5;  // s

/// The usual names by the number of channels.
constexpr const char* kNames[] = {"L", "R", "C", "LFE", "Ls", "Rs", "Lrs", "Rrs"};

}  // namespace

LevelBars::LevelBars(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      levels_(values("level")),
      rms_(values("rms")),
      held_(values("hold")),
      rmsHeld_(values("rmsHold")),
      clips_(values("clip")),
      correlation_(model, "correlation"),
      showsCorrelation_(model, "usecorr"),
      scale_(readScale())
{}

LevelBars::Scale LevelBars::readScale() const
{
    const char* const texts = model().effect().getString("meterScale");
    if (!texts) return {};
    std::int64_t chosen = 0;
    model().effect().getInteger("mode", chosen);
    std::string text = texts;
    for (std::int64_t i = 0; i < chosen && text.find('|') != std::string::npos; ++i)
        text.erase(0, text.find('|') + 1);
    text = text.substr(0, text.find('|'));
    Scale scale;
    scale.name = text.substr(0, text.find(','));
    const char* at = text.c_str() + scale.name.size();
    for (double* to : {&scale.offset, &scale.low, &scale.high}) {
        if (*at != ',') return {};
        char* end = nullptr;
        *to = std::strtod(at + 1, &end);
        at = end;
    }
    return scale.high > scale.low ? scale : Scale{};
}

void LevelBars::sized()
{
    const double foot = hasFigures() ? (correlation_.exists() ? 56 : 34) : 8;
    const double head = hasFigures() ? (clips_.exist() ? 32 : 12) : 8;
    const double side = hasFigures() ? kFigures : 26;
    plot_.area = {side, head, width() - 2 * side, height() - head - foot};
    if (isFlat()) plot_.area = {4, 4, width() - 8, height() - 8};
}

void LevelBars::ticked(double seconds)
{
    seconds_ = seconds;
    scale_ = readScale();
    plot_.y = {scale_.low, scale_.high, false};
    const double now = correlation_.get(0);
    if (std::isnan(now)) return;
    if (now <= lowest_ || seconds - lowestAt_ > kRememberRange) {
        lowest_ = now;
        lowestAt_ = seconds;
    }
    if (now >= highest_ || seconds - highestAt_ > kRememberRange) {
        highest_ = now;
        highestAt_ = seconds;
    }
}

Rect LevelBars::bar(int channel) const
{
    const int count = std::max(1, levels_.count());
    const auto& area = plot_.area;
    if (isFlat()) {  // side by side the other way round, the loudest two
        const int rows = std::min(2, count);
        const double h = (area.h - kGap * (rows - 1)) / rows;
        return {area.x, area.y + channel * (h + kGap), area.w, h};
    }
    const double gap = count > 8 ? 2 : kGap;
    const double w = std::min(kWidest, (area.w - gap * (count - 1)) / count);
    const double used = count * w + gap * (count - 1);
    return {area.centre().x - used / 2 + channel * (w + gap), area.y, w, area.h};
}

Rect LevelBars::lamp(int channel) const
{
    const auto b = bar(channel);
    return {b.x, b.y - 19, b.w, 14};
}

std::string LevelBars::nameOf(int channel) const
{
    const int count = levels_.count();
    if (count == 1) return "M";
    if (count == 2 || count == 3 || count == 6 || count == 8)
        return kNames[static_cast<std::size_t>(channel)];
    return std::to_string(channel + 1);
}

void LevelBars::look(std::vector<double>& numbers) const
{
    const auto pixel = [&](double db) {
        return std::round(plot_.y.limited(shown(db)) * (isFlat() ? plot_.area.w : plot_.area.h) *
                          scale());
    };
    for (int c = 0; c < levels_.count(); ++c) {
        for (const auto* v : {&levels_, &rms_, &held_, &rmsHeld_})
            numbers.push_back(pixel((*v)[c]));
        numbers.push_back(clips_[c]);
    }
    for (int c = 0; c < held_.count(); ++c) numbers.push_back(std::round(held_[c] * 10));
    if (!hasFigures()) return;
    numbers.insert(numbers.end(), {std::round(correlation_.get(0) * 200), std::round(lowest_ * 200),
                                   std::round(highest_ * 200)});
}

void LevelBars::lookStatic(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {static_cast<double>(levels_.count()), scale_.offset, scale_.low,
                                   scale_.high, showsCorrelation_.get(1)});
}

void LevelBars::drawStatic(Canvas& canvas)
{
    if (isFlat()) {
        for (int c = 0; c < std::min(2, levels_.count()); ++c) canvas.fill(bar(c), Color::Panel);
        return;
    }
    const auto ticks = linearTicks(plot_.y, static_cast<int>(plot_.area.h / 26), true);
    drawUp(canvas, plot_, ticks, FiguresAt::Left);
    if (hasFigures()) {
        for (const auto& tick : ticks)
            canvas.text(Type::Axis, tick.text, plot_.area.right() + 6, plot_.up(tick.value) + 3.5,
                        Align::Left, Color::Text3);
        canvas.text(Type::Axis, scale_.name, 10, 14, Align::Left, Color::Text3);
    }
    for (int c = 0; c < levels_.count(); ++c) {
        const auto b = bar(c);
        canvas.fill(b, Color::Panel);
        if (!hasFigures()) continue;
        if (canvas.textWidth(Type::Axis, nameOf(c)) < b.w + kGap)
            canvas.text(Type::Axis, nameOf(c), b.centre().x, b.bottom() + 14, Align::Centre,
                        Color::Text2);
        if (clips_.exist()) canvas.fillRounded(lamp(c), 3, Color::Raised);
    }
}

/// Green below the scale's own mark, then the accent, then what is too much.
void LevelBars::drawZones(Canvas& canvas, const Rect& b, double level, double opacity) const
{
    const bool isFullScale = scale_.high <= 0;
    const double accentFrom = isFullScale ? -9 : 0, warnFrom = isFullScale ? 0 : 4;
    const double gap = canvas.hairline();
    const auto zone = [&](double from, double to, Color color) {
        const double top = std::min(level, std::min(to, plot_.y.maximum));
        if (!(top > from)) return;
        const double low = plot_.y.limited(from), high = plot_.y.limited(top);
        const bool isFirst = from <= plot_.y.minimum;
        if (isFlat())
            canvas.fill({b.x + low * b.w + (isFirst ? 0 : gap), b.y,
                         (high - low) * b.w - (isFirst ? 0 : gap), b.h},
                        Ink(color, opacity));
        else
            canvas.fill(
                {b.x, b.bottom() - high * b.h, b.w, (high - low) * b.h - (isFirst ? 0 : gap)},
                Ink(color, opacity));
    };
    zone(plot_.y.minimum, accentFrom, Color::Ok);
    zone(accentFrom, warnFrom, Color::Accent);
    zone(warnFrom, 1000, Color::Warn);
}

void LevelBars::draw(Canvas& canvas)
{
    const int count = isFlat() ? std::min(2, levels_.count()) : levels_.count();
    const double line = canvas.hairline();
    for (int c = 0; c < count; ++c) {
        const auto b = bar(c);
        const bool hasRms = rms_.exist();
        drawZones(canvas, b, shown(levels_[c]), hasRms ? 0.5 : 1);
        if (hasRms) {
            const auto inner = isFlat() ? Rect{b.x, b.y + 0.2 * b.h, b.w, 0.6 * b.h}
                                        : Rect{b.x + 0.2 * b.w, b.y, 0.6 * b.w, b.h};
            drawZones(canvas, inner, shown(rms_[c]), 1);
        }
        if (isFlat()) continue;
        for (const auto* held : {&held_, &rmsHeld_}) {
            const double db = shown((*held)[c]);
            if (!(db > plot_.y.minimum)) continue;
            const double w = held == &held_ ? b.w : 0.6 * b.w;
            canvas.fill(
                {b.centre().x - w / 2, canvas.snap(plot_.upWithin(db)) - line, w, 1.5 * line},
                held == &held_ ? Color::Text : Color::Text2);
        }
        if (hasFigures() && clips_[c] > 0) {
            canvas.fillRounded(lamp(c), 3, Color::Warn);
            const auto text = figure(clips_[c]);
            if (canvas.textWidth(Type::MeterScale, text) < b.w)
                canvas.text(Type::MeterScale, text, lamp(c).centre().x, lamp(c).bottom() - 4,
                            Align::Centre, Color::OnAccent);
        }
    }
    if (!hasFigures()) return;
    double loudest = -1000;
    for (int c = 0; c < held_.count(); ++c) loudest = std::max(loudest, held_[c]);
    std::string text = "Peak hold";
    if (held_.count() == 2) {
        for (int c = 0; c < 2; ++c)
            text += (c ? "   R " : "   L ") +
                    (held_[c] > -140 ? figure(shown(held_[c]), 1) : std::string("-"));
        text += " dB";
    } else {
        text += loudest > -140 ? "   " + figure(shown(loudest), 1) + " dB" : "   -";
    }
    const double foot = plot_.area.bottom() + 28;
    canvas.text(Type::Axis, text, plot_.area.centre().x, foot, Align::Centre,
                loudest > 0 ? Color::Warn : Color::Text2);
    if (!correlation_.exists() || !showsCorrelation_.isOn()) return;
    // -1 .. 1, with the range of the last seconds as a shadow.
    const Plot strip{{plot_.area.x + 20, foot + 10, plot_.area.w - 70, 6}, {-1, 1, false}, {}};
    canvas.fillRounded(strip.area, 3, Color::Panel);
    const double now = correlation_.get();
    canvas.fill({strip.across(lowest_), strip.area.y,
                 std::max(0.0, strip.across(highest_) - strip.across(lowest_)), strip.area.h},
                Ink(lowest_ < 0 ? Color::Warn : Color::Accent, 0.35));
    canvas.vertical(strip.across(0), strip.area.y - 2, strip.area.bottom() + 2, Color::Text3);
    if (std::isnan(now)) return;
    const Ink ink = now < 0 ? Color::Warn : Color::Accent;
    canvas.fill({strip.across(now) - 1, strip.area.y - 3, 2, strip.area.h + 6}, ink);
    canvas.text(Type::Axis, figure(now, 2, true), strip.area.right() + 8, strip.area.bottom() + 1,
                Align::Left, ink);
    canvas.text(Type::Axis, "-1", strip.area.x - 4, strip.area.bottom() + 1, Align::Right,
                Color::Text3);
}

bool LevelBars::pointer(const PointerEvent& event)
{
    if (event.action != PointerAction::Press || event.button != 1) return false;
    const Value reset(model(), "resethold");
    if (reset.parameter() < 0) return false;
    model().set(reset.parameter(), 1);
    return true;
}

std::string LevelBars::describe() const
{
    std::string text = "Level, " + scale_.name;
    for (int c = 0; c < levels_.count(); ++c)
        text += ", " + nameOf(c) + " " +
                (levels_[c] > -140 ? figure(shown(levels_[c]), 1) + " dB" : std::string("-"));
    return text;
}

}  // namespace quillworks::editors
