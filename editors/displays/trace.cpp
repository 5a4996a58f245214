// SPDX-License-Identifier: ISC
#include "editors/displays/trace.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace quillworks::editors {
namespace {

constexpr double kFaded = 6;   // times the persistence, after which nothing is left
constexpr double kGlow = 0.6;  // of a line's brightness once it is over
constexpr int kLeastFade = 8;  // of 256 by which pixels are dimmed at once, so that steps are true

/// Every pixel times `share` of 256, rounded down so that all of them end.
void dim(Image& image, unsigned share)
{
    const auto& p = image.pixels();
    for (int y = 0; y < p.height; ++y) {
        auto* const row = p.data + y * (p.stride / 4);
        for (int x = 0; x < p.width; ++x) {
            const std::uint32_t even = (row[x] & 0xff00ffu) * share >> 8 & 0xff00ffu;
            const std::uint32_t odd = (row[x] >> 8 & 0xff00ffu) * share & 0xff00ff00u;
            row[x] = even | odd;
        }
    }
}

Ink inkOf(std::size_t line)
{
    if (line == 0) return Color::Accent;
    return line == 1 ? Ink(Color::Output) : Ink(Color::Text2, 0.7);
}

}  // namespace

Trace::Trace(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      time_(value("time")),
      level_(value("level")),
      pretrigger_(value("pretrigger")),
      gain_(value("gain")),
      layout_(value("layout")),
      persistence_(value("persistence"))
{}

void Trace::sized()
{
    area_ = !hasFigures() ? Rect{1, 1, width() - 2, height() - 2}
                          : Rect{34, 8, width() - 46, height() - 32};
    builtOf_.clear();
}

double Trace::span() const
{
    if (time_.exists()) return time_.get() / 1000;
    return 2 * period_;  // of two periods
}

/// At the rim: full scale less the gain, or what holds the whole of a signal that has none.
double Trace::amplitude() const
{
    if (gain_.exists()) return std::pow(10, -gain_.get() / 20);
    double peak = 0;
    for (const auto& line : lines_)
        for (const double v : line.samples) peak = std::max(peak, std::abs(v));
    for (double most = 1; most > 1e-4; most /= 10)
        for (const double share : {0.2, 0.5})
            if (peak <= most * share && peak > most * share / 5) return most * share;
    return peak > 0.5 || peak == 0 ? 1 : 1e-4;
}

Plot Trace::plotOf(std::size_t line) const
{
    const bool isStacked = layout() == Layout::Stack && lines_.size() > 1;
    const auto count = isStacked ? static_cast<double>(lines_.size()) : 1;
    const double h = area_.h / count,
                 y = isStacked ? area_.y + h * static_cast<double>(line) : area_.y;
    const double most = amplitude();
    return {{area_.x, y, area_.w, h}, {0, 1, false}, {-most, most, false}};
}

void Trace::ticked(double seconds)
{
    seconds_ = seconds;
    const auto& node = model().display("trace");
    const auto& channels = node["channels"];
    period_ = node["period"].number();
    state_ = node["state"].number();
    now_.resize(channels.size());
    for (std::size_t c = 0; c < now_.size(); ++c) {
        now_[c].name = channels[c]["name"].text();
        now_[c].samples = channels[c]["samples"].numbers();
    }
    const double persistence = persistence_.get(0);
    const bool isNew = now_ != lines_;
    if (isNew) {
        changed_ = seconds;
        isGlowStale_ = true;
        if (!std::equal(now_.begin(), now_.end(), lines_.begin(), lines_.end(),
                        [](const Line& a, const Line& b) { return a.name == b.name; }))
            builtOf_.clear();
        lines_.swap(now_);
    } else if (persistence > 0 && seconds - changed_ < kFaded * persistence) {
        isGlowStale_ = true;
        damage();
    }
    std::vector<double> of;
    lookStatic(of);
    const bool isOther = of != builtOf_;
    if (!isNew && !isOther) return;
    rebuild();
    if (isOther || isWhole()) return damage();
    const bool isKnown = graph_.compare([this](const Rect& rect) {
        moved(rect);
        for (const auto& name : names_)
            if (name.overlaps(rect)) damage(name);
    });
    if (!isKnown) damage();
}

void Trace::rebuild()
{
    builtOf_.clear();
    lookStatic(builtOf_);
    if (layout() != Layout::XY) build(graph_.next(area_, scale()), 1);
}

void Trace::look(std::vector<double>& numbers) const
{
    numbers.push_back(persistence_.get(0));
}

void Trace::lookStatic(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(),
                   {time_.get(0), gain_.get(0), layout_.get(0), level_.get(0), pretrigger_.get(0),
                    static_cast<double>(lines_.size()), amplitude()});
    if (!time_.exists()) numbers.push_back(period_);
}

void Trace::drawStatic(Canvas& canvas)
{
    const auto figures = hasFigures() ? FiguresAt::Left : FiguresAt::None;
    if (layout() == Layout::XY) {
        const double side = std::min(area_.w, area_.h), most = amplitude();
        const Plot square{{area_.centre().x - side / 2, area_.y, side, side},
                          {-most, most, false},
                          {-most, most, false}};
        drawAcross(canvas, square, linearTicks(square.x, 4, false), hasFigures());
        drawUp(canvas, square, linearTicks(square.y, 4, false), figures);
        return;
    }
    const bool isStacked = layout() == Layout::Stack;
    for (std::size_t i = 0; i < (isStacked ? std::max<std::size_t>(1, lines_.size()) : 1); ++i) {
        const auto plot = plotOf(i);
        auto ticks = linearTicks(plot.y, std::max(2, static_cast<int>(plot.area.h / 30)), false);
        // The top of one is the bottom of that above it.
        if (i > 0 && !ticks.empty()) ticks.back().text.clear();
        drawUp(canvas, plot, ticks, figures);
        if (i > 0) canvas.horizontal(area_.x, area_.right(), plot.area.y, Color::GridEnd);
    }
    const double seconds = span();
    if (!(seconds > 0)) return;
    const bool isLong = seconds >= 1;
    const double ahead = seconds * pretrigger_.get(0) / 100, unit = isLong ? 1 : 1000;
    const Plot times{area_, {-ahead * unit, (seconds - ahead) * unit, false}, {0, 1, false}};
    auto ticks = linearTicks(times.x, 10, false);
    for (auto& tick : ticks) tick.isMain = tick.value == 0;
    if (!ticks.empty()) ticks.back().text += isLong ? " s" : " ms";
    drawAcross(canvas, times, ticks, hasFigures());
    if (!level_.exists() || !hasFigures()) return;
    // Beneath the lines, as a graticule: what moves over it need not draw it again.
    const Ink mark(Color::Text3, 0.7);
    const double level = level_.get(0) / 100;
    if (std::abs(level) <= amplitude())
        canvas.horizontal(area_.x, area_.right(), plotOf(0).up(level), mark, Dash::Dots);
    canvas.vertical(area_.x + area_.w * pretrigger_.get(0) / 100, area_.y, area_.bottom(), mark,
                    Dash::Dots);
}

/// Where many samples share a pixel, from the lowest to the highest of them.
void Trace::course(const Plot& plot, const std::vector<double>& samples)
{
    points_.clear();
    const auto n = samples.size();
    if (n < 2) return;
    const double perSample = plot.area.w / static_cast<double>(n - 1);
    const auto within = [&](double v) {
        return std::clamp(plot.up(v), plot.area.y - 3, plot.area.bottom() + 3);
    };
    const double pixel = 0.5 / scale();
    double low = 0, high = 0, begun = -1;
    for (std::size_t i = 0; i < n; ++i) {
        const double x = plot.area.x + static_cast<double>(i) * perSample;
        const double y = within(samples[i]);
        if (perSample > pixel) {
            points_.push_back({x, y});
            continue;
        }
        if (begun < 0 || x - begun >= pixel) {
            if (begun >= 0) {
                points_.push_back({begun, low});
                points_.push_back({begun, high});
            }
            begun = x;
            low = high = y;
        }
        low = std::min(low, y);
        high = std::max(high, y);
    }
    if (begun >= 0) {
        points_.push_back({begun, low});
        points_.push_back({begun, high});
    }
}

/// Once a tick, so that drawing again draws the same.
void Trace::drawGlow(Canvas& canvas)
{
    const double persistence = persistence_.get(0);
    const auto device = [this](double px) { return static_cast<int>(std::lround(px * scale())); };
    const int w = device(area_.w), h = device(area_.h);
    if (!(persistence > 0)) {
        glow_ = {};
        return;
    }
    if (glow_.width() != w || glow_.height() != h) {
        glow_ = Image(w, h);
        faded_ = seconds_;
    }
    if (std::exchange(isGlowStale_, false)) {
        const double left = std::exp(-(seconds_ - faded_) / persistence);
        if (const int share = static_cast<int>(256 * left); 256 - share >= kLeastFade) {
            dim(glow_, static_cast<unsigned>(std::max(0, share)));
            faded_ = seconds_;
        }
        Canvas own(glow_.pixels(), scale(), canvas.fonts(), canvas.theme());
        own.translate(-area_.x, -area_.y);
        if (layout() == Layout::XY) {
            drawFigure(own, kGlow);
        } else {
            build(glowing_, kGlow);
            glowing_.show(own);
        }
    }
    canvas.image(glow_, area_.x, area_.y);
}

void Trace::draw(Canvas& canvas)
{
    drawGlow(canvas);
    if (layout() == Layout::XY) return drawFigure(canvas, 1);
    if (builtOf_.empty()) rebuild();
    graph_.show(canvas);
    drawNames(canvas);
}

void Trace::drawMoved(Canvas& canvas)
{
    if (!isWhole()) graph_.showMoved(canvas);
}

/// One channel over the other.
void Trace::drawFigure(Canvas& canvas, double opacity)
{
    const double side = std::min(area_.w, area_.h), most = amplitude();
    if (lines_.size() < 2) return;
    const Plot square{{area_.centre().x - side / 2, area_.y, side, side},
                      {-most, most, false},
                      {-most, most, false}};
    points_.clear();
    const auto n = std::min(lines_[0].samples.size(), lines_[1].samples.size());
    for (std::size_t i = 0; i < n; ++i)
        points_.push_back({square.across(lines_[0].samples[i]), square.up(lines_[1].samples[i])});
    const auto saved = canvas.save();
    canvas.clip(square.area);
    canvas.polyline(points_, 1.25, Ink(Color::Accent, opacity));
}

void Trace::build(Graph& graph, double opacity)
{
    graph.begin(area_, scale());
    const bool isStacked = layout() == Layout::Stack;
    for (std::size_t i = lines_.size(); i-- > 0;) {
        // A generator's channels are alike: one is enough.
        if (!time_.exists() && i > 0 && lines_[i].samples == lines_[0].samples) continue;
        course(plotOf(i), lines_[i].samples);
        const auto ink = isStacked ? Ink(Color::Accent) : inkOf(i);
        graph.stroke(points_, 1.5, Ink(ink.color, opacity * ink.opacity));
    }
}

void Trace::drawNames(Canvas& canvas)
{
    names_.clear();
    if (!hasFigures()) return;
    const bool isStacked = layout() == Layout::Stack;
    double x = area_.x + 8;
    for (std::size_t i = 0; time_.exists() && i < lines_.size(); ++i) {
        const double y = isStacked ? plotOf(i).area.y + 15 : area_.y + 15;
        const auto extent = canvas.text(Type::Axis, lines_[i].name, isStacked ? area_.x + 8 : x, y,
                                        Align::Left, isStacked ? Ink(Color::Text2) : inkOf(i));
        names_.push_back(extent.inset(-1));
        x = extent.right() + 10;
    }
}

std::string Trace::describe() const
{
    double peak = 0;
    for (const auto& line : lines_)
        for (const double v : line.samples) peak = std::max(peak, std::abs(v));
    return "Trace of " + shortTime(span()) + ", " + std::to_string(lines_.size()) +
           " channels, peak " + figure(20 * std::log10(std::max(peak, 1e-7)), 1) + " dB";
}

}  // namespace quillworks::editors
