// SPDX-License-Identifier: ISC
#include "editors/displays/meters.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr Axis kLevels{-60, 6, false};
constexpr Axis kReductions{24, 0, false};
constexpr double kAccentFrom = -9, kWarnFrom = 0;  // dB, zones of a level
constexpr double kPad = 8, kGap = 2;
constexpr double kWidestBar = 18;
constexpr double kFoot = 36, kHead = 26;  // px for the figures below and the titles above
constexpr double kTall = 100;             // px from which there is room for them
constexpr double kTenths = 26;            // px a figure needs for one
constexpr double kNothing = -1000;

bool isShown(double db)
{
    return db > kNothing;  // not for not-a-number
}

/// Where a level ends, to half a device pixel: what lies between looks the same.
double endOf(const Plot& plot, double db, double scale)
{
    return std::round(plot.upWithin(db) * 2 * scale) / (2 * scale);
}

/// The part of an upright bar between two levels, with `gap` px left out at its lower end.
Rect part(const Plot& plot, double x, double width, double from, double to, double gap,
          double scale)
{
    const double top = endOf(plot, to, scale), bottom = endOf(plot, from, scale) - gap;
    return {x, top, width, std::max(0.0, bottom - top)};
}

}  // namespace

void HeldPeak::take(double value, double seconds) noexcept
{
    const double passed = seconds - last_;
    last_ = seconds;
    if (value >= value_) {
        value_ = value;
        since_ = seconds;
    } else if (seconds - since_ > kStays && passed > 0) {
        value_ = std::max(std::isnan(value) ? kNothing : value, value_ - kFalls * passed);
    }
}

Meters::Meters(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model), reset_(value("reset"))
{
    const auto levels = [&](const char* name, const char* family, const char* title) {
        const auto own = attribute(name);
        const bool isNamed = !own.empty();
        // Where the skin names neither side, those that every such effect has.
        if (!isNamed && !(attribute("in").empty() && attribute("out").empty())) return;
        Group group;
        group.title = title;
        group.foot = "peak";
        group.levels = Values(model, isNamed ? own : family);
        if (group.levels.exist()) groups_.push_back(std::move(group));
    };
    levels("in", "inlevel", "In");
    if (!attribute("reduction").empty()) {
        Group group;
        group.kind = Kind::Reduction;
        group.title = "GR";
        group.foot = "dB";
        group.levels = values("reduction");
        group.held = values("hold");
        groups_.push_back(std::move(group));
    }
    levels("out", "outlevel", "Out");
}

void Meters::layOut()
{
    std::vector<int> bars;
    int all = 0;
    for (auto& group : groups_) {
        bars.push_back(group.kind == Kind::Reduction ? 1 : std::max(1, group.levels.count()));
        all += bars.back();
        group.peaks.resize(static_cast<std::size_t>(bars.back()));
    }
    laidFor_ = bars;
    if (groups_.empty()) return;
    const bool hasText = height() >= kTall;
    const double top = hasText ? kHead : kPad, bottom = hasText ? kFoot + 4 : kPad;
    // Each group has its scale at its right; that of the last one is the first one's again.
    const auto scales = std::max<std::size_t>(1, groups_.size() - 1);
    const double inner = width() - 2 * kPad;
    const double wanted = isSmall() && width() < 40 ? 0 : inner > 80 ? 26 : 15;
    const double room = inner - static_cast<double>(scales) * wanted;
    const double gaps = kGap * (all - static_cast<int>(groups_.size()));
    const double bar = std::clamp((room - gaps) / all, 2.0, kWidestBar);
    const double used = bar * all + gaps + static_cast<double>(scales) * wanted;
    double x = kPad + std::max(0.0, (inner - used) / 2);
    for (std::size_t g = 0; g < groups_.size(); ++g) {
        auto& group = groups_[g];
        const double w = bars[g] * (bar + kGap) - kGap;
        group.plot = {{x, top, w, height() - top - bottom},
                      {0, double(bars[g]), false},
                      group.kind == Kind::Level ? kLevels : kReductions};
        x += w;
        group.scaleAt = g < scales && wanted > 0 ? x + wanted / 2 : 0;
        if (g < scales) x += wanted;
    }
}

void Meters::ticked(double seconds)
{
    std::vector<int> bars;
    for (const auto& group : groups_)
        bars.push_back(group.kind == Kind::Reduction ? 1 : std::max(1, group.levels.count()));
    if (bars != laidFor_) layOut();
    for (auto& group : groups_) {
        for (std::size_t i = 0; i < group.peaks.size(); ++i) {
            const double level = group.levels.decibels(static_cast<int>(i));
            const double shown = group.kind == Kind::Reduction ? std::abs(level) : level;
            group.peaks[i].take(shown, seconds);
            if (shown > group.loudest) group.loudest = shown;
        }
    }
}

double Meters::heldAt(const Group& group, int bar) const
{
    if (group.held.exist()) return std::abs(group.held.decibels(bar));
    return group.peaks[static_cast<std::size_t>(bar)].value();
}

double Meters::shownValue(const Group& group) const
{
    if (group.kind == Kind::Level) return group.loudest;
    double most = kNothing;
    for (int i = 0; i < group.levels.count(); ++i)
        most = std::max(most, std::abs(group.levels.decibels(i)));
    return most;
}

void Meters::look(std::vector<double>& numbers) const
{
    for (const auto& group : groups_) {
        const auto pixel = [&](double db) { return endOf(group.plot, db, scale()); };
        for (std::size_t i = 0; i < group.peaks.size(); ++i) {
            const int bar = static_cast<int>(i);
            numbers.push_back(
                pixel(std::abs(group.levels.decibels(bar)) *
                      (group.kind == Kind::Level && group.levels.decibels(bar) < 0 ? -1 : 1)));
            numbers.push_back(pixel(heldAt(group, bar)));
        }
        numbers.push_back(std::round(shownValue(group) * 10));
    }
}

void Meters::lookStatic(std::vector<double>& numbers) const
{
    for (const int bars : laidFor_) numbers.push_back(bars);
    numbers.push_back(width());
}

void Meters::drawStatic(Canvas& canvas)
{
    if (laidFor_.empty()) layOut();
    for (const auto& group : groups_) {
        const auto& area = group.plot.area;
        const auto bars = static_cast<int>(group.peaks.size());
        const double step = (area.w + kGap) / bars;
        for (int i = 0; i < bars; ++i)
            canvas.fill({area.x + i * step, area.y, step - kGap, area.h}, Color::Panel);
        if (area.y >= kHead && canvas.textWidth(Type::Label, group.title) < area.w + 16)
            canvas.text(Type::Label, group.title, area.centre().x, kHead - 9, Align::Centre,
                        Color::Text2);
        if (group.scaleAt <= 0) continue;
        const bool isLevel = group.kind == Kind::Level;
        for (const auto& tick : linearTicks(group.plot.y, area.h > 110 ? 6 : 4, true)) {
            const double y = group.plot.up(tick.value);
            if (y > area.bottom() - 4 && isLevel) continue;
            canvas.text(Type::MeterScale, figure(std::abs(tick.value)), group.scaleAt, y + 3,
                        Align::Centre, Color::Text3);
        }
    }
}

void Meters::drawBar(Canvas& canvas, const Group& group, int bar) const
{
    const auto& area = group.plot.area;
    const double step = (area.w + kGap) / static_cast<double>(group.peaks.size());
    const double x = area.x + bar * step, w = step - kGap, gap = canvas.hairline();
    const double level = group.levels.decibels(bar);
    const auto zone = [&](double from, double to, Color color) {
        const auto rect =
            part(group.plot, x, w, from, std::min(level, to), from > -60 ? gap : 0, scale());
        if (level > from)
            canvas.fill(rect, Paint(Ink(color), area.y, Ink(color, 0.5), area.bottom()));
    };
    zone(kLevels.minimum, kAccentFrom, Color::Ok);
    zone(kAccentFrom, kWarnFrom, Color::Accent);
    zone(kWarnFrom, kLevels.maximum, Color::Warn);
    if (const double held = heldAt(group, bar); held > kLevels.minimum)
        canvas.fill({x, canvas.snap(endOf(group.plot, held, scale())) - gap, w, 1.5 * gap},
                    Color::Text);
}

void Meters::drawReduction(Canvas& canvas, const Group& group) const
{
    const auto& area = group.plot.area;
    const double most = shownValue(group);
    if (most > 0)
        canvas.fill({area.x, area.y, area.w, endOf(group.plot, most, scale()) - area.y},
                    Color::Accent);
    const double held = heldAt(group, 0), line = canvas.hairline();
    if (held > 0)
        canvas.fill({area.x, canvas.snap(endOf(group.plot, held, scale())), area.w, 1.5 * line},
                    Color::Text);
}

void Meters::draw(Canvas& canvas)
{
    for (const auto& group : groups_) {
        const auto& area = group.plot.area;
        if (group.kind == Kind::Reduction)
            drawReduction(canvas, group);
        else
            for (std::size_t i = 0; i < group.peaks.size(); ++i)
                drawBar(canvas, group, static_cast<int>(i));
        if (area.y < kHead) continue;
        const bool isReduction = group.kind == Kind::Reduction;
        const double value = shownValue(group);
        const double shown = isReduction ? -value : value;
        const bool isThere = isReduction ? isShown(value) : value > -100;
        const double room = std::max(area.w, (width() - kPad) / double(groups_.size()) - 2);
        const bool isFine = std::abs(shown) < 99.95 && room >= kTenths;
        const auto text = isThere ? figure(shown, isFine ? 1 : 0) : "-";
        const auto type =
            canvas.textWidth(Type::Value, text) < room ? Type::Value : Type::MeterScale;
        const double x = std::clamp(area.centre().x, kPad / 2 + canvas.textWidth(type, text) / 2,
                                    width() - kPad / 2 - canvas.textWidth(type, text) / 2);
        canvas.text(type, text, x, height() - 21, Align::Centre,
                    isReduction         ? Color::Accent
                    : value > kWarnFrom ? Color::Warn
                                        : Color::Text);
        canvas.text(Type::MeterScale, group.foot, x, height() - 8, Align::Centre, Color::Text3);
    }
}

void Meters::forget()
{
    for (auto& group : groups_) {
        group.loudest = kNothing;
        for (auto& peak : group.peaks) peak.forget();
    }
    if (const int parameter = reset_.parameter(); parameter >= 0) model().set(parameter, 1);
    damage();
}

bool Meters::pointer(const PointerEvent& event)
{
    if (event.action != PointerAction::Press || event.button != 1) return false;
    forget();
    return true;
}

std::string Meters::describe() const
{
    std::string text = "Meters";
    for (const auto& group : groups_) {
        const double value = shownValue(group);
        const bool isReduction = group.kind == Kind::Reduction;
        text += std::string(", ") + group.title + " " +
                (value > -100 ? figure(isReduction ? -value : value, 1) + " dB" : "-");
    }
    return text;
}

}  // namespace quillworks::editors
