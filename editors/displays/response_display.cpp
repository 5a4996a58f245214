// SPDX-License-Identifier: ISC
#include "editors/displays/response_display.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace quillworks::editors {
namespace {

constexpr double kRing = 12;                           // px around a handle
constexpr double kLabelWidth = 200, kLabelReach = 30;  // px of a handle's value

}  // namespace

void ResponseDisplay::setAxes(const Axis& hertz, const Axis& decibels)
{
    plot_.x = hertz;
    plot_.y = decibels;
    hertz_.clear();
}

void ResponseDisplay::sized()
{
    plot_.area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                           : Rect{30, 10, width() - 40, height() - 32};
    hertz_.clear();
    isSampled_ = isBuilt_ = false;
    ground_.forget();
    place();
}

void ResponseDisplay::sample()
{
    const auto& area = plot_.area;
    if (hertz_.empty())
        for (double x = area.x; x < area.right() + 1; ++x)
            hertz_.push_back(plot_.valueAcross(std::min(x, area.right())));
    countCourses_ = static_cast<std::size_t>(curves());
    for (std::size_t side = 0; side < countCourses_; ++side) {
        auto& course = courses_[side];
        course.resize(hertz_.size());
        beginCurve(static_cast<int>(side));
        for (std::size_t i = 0; i < hertz_.size(); ++i) {
            const double y = plot_.up(response(static_cast<int>(side), hertz_[i]));
            course[i] = {std::min(area.x + static_cast<double>(i), area.right()),
                         std::clamp(y, area.y - 3, area.bottom() + 3)};
        }
    }
    isSampled_ = true;
}

void ResponseDisplay::build()
{
    if (!isSampled_) sample();
    const double opacity = isOn() ? 1 : 0.35;
    auto& graph = graph_.next(plot_.area, scale());
    if (ground_.isThere()) graph.bars(ground_.bars(plot_.area), GroundBars::kInk, GroundBars::kInk);
    // The right one beneath: where both are the same the left one is seen.
    for (auto side = countCourses_; side-- > 0;) {
        const auto& points = courses_[side];
        const bool isFirst = side == 0;
        if (isFirst && countCourses_ == 1)
            graph.fill(points, plot_.upWithin(0), Ink(Color::Accent, 0.14 * opacity));
        graph.stroke(points, isFirst ? 2 : 1.5,
                     isFirst ? Ink(Color::Accent, opacity) : Ink(Color::Output, 0.8 * opacity));
    }
    isBuilt_ = true;
}

std::vector<Rect> ResponseDisplay::above() const
{
    std::vector<Rect> rects;
    const auto& all = handles().all();
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!all[i].isVisible) continue;
        const auto at = all[i].at;
        rects.push_back(Rect{at.x, at.y, 0, 0}.inset(-kRing));
        if (handles().hovered() != static_cast<int>(i)) continue;
        const double x = std::clamp(at.x - kLabelWidth / 2, plot_.area.x,
                                    std::max(plot_.area.x, plot_.area.right() - kLabelWidth));
        rects.push_back({x, at.y - kLabelReach, kLabelWidth, 2 * kLabelReach});
    }
    return rects;
}

void ResponseDisplay::lookChanged()
{
    sample();
    isStale_ = true;
    // Handles go with it, and so do their texts.
    for (const auto& rect : above()) damage(rect);
    place();
    for (const auto& rect : above()) damage(rect);
}

void ResponseDisplay::ticked(double)
{
    if (isSmall()) return;
    ground_.tick(model(), plot_, scale(), [this](const Rect&) { isStale_ = true; });
}

void ResponseDisplay::tick(double seconds)
{
    HandleDisplay::tick(seconds);
    if (!std::exchange(isStale_, false)) return;
    const bool wasBuilt = isBuilt_;
    build();
    if (!wasBuilt || drawsOver()) return damage();
    const auto over = above();
    const bool isKnown = graph_.compare([&](const Rect& rect) {
        moved(rect);
        for (const auto& place : over)
            if (place.overlaps(rect)) damage(place);
    });
    if (!isKnown) damage();
}

void ResponseDisplay::drawStatic(Canvas& canvas)
{
    const auto across = plot_.x.isLogarithmic ? frequencyTicks(plot_.x) : [this] {
        auto ticks = linearTicks(plot_.x, 8, false);
        for (auto& tick : ticks) tick.text = shortFrequency(tick.value);
        return ticks;
    }();
    drawAcross(canvas, plot_, across, !isSmall());
    drawUp(canvas, plot_,
           plot_.y.isLogarithmic ? frequencyTicks(plot_.y)
                                 : linearTicks(plot_.y, static_cast<int>(plot_.area.h / 18), true),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
}

void ResponseDisplay::draw(Canvas& canvas)
{
    place();
    if (!isBuilt_) build();
    graph_.show(canvas);
    handles().draw(canvas);
    if (!isSmall()) handles().drawLabel(canvas, plot_.area);
}

}  // namespace quillworks::editors
