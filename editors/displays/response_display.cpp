// SPDX-License-Identifier: ISC
#include "editors/displays/response_display.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace quillworks::editors {

void ResponseDisplay::setAxes(const Axis& hertz, const Axis& decibels)
{
    plot_.x = hertz;
    plot_.y = decibels;
}

void ResponseDisplay::sized()
{
    plot_.area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                           : Rect{30, 10, width() - 40, height() - 32};
    isStale_ = true;
    place();
}

void ResponseDisplay::ticked(double)
{
    if (ground_.empty() || isSmall()) return;
    readGround();
    if (std::equal(groundNow_.begin(), groundNow_.end(), groundPoints_.begin(), groundPoints_.end(),
                   [](const Point& a, const Point& b) { return a.x == b.x && a.y == b.y; }))
        return;
    groundPoints_.swap(groundNow_);
    damage();
}

/// To half a pixel, below which nobody sees a difference.
void ResponseDisplay::readGround()
{
    groundNow_.clear();
    const auto& node = model().display(ground_);
    const auto& hertz = node["frequency"].numbers();
    const auto& level = node["level"].numbers();
    const double half = 0.5 / scale();
    const Plot levels{plot_.area, plot_.x, kGroundLevels};
    for (std::size_t i = 0; i < std::min(hertz.size(), level.size()); ++i) {
        const double y = std::isnan(level[i]) ? plot_.area.bottom() : levels.upWithin(level[i]);
        groundNow_.push_back({plot_.across(hertz[i]), std::round(y / half) * half});
    }
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
    const double opacity = isOn() ? 1 : 0.35;
    if (std::exchange(isStale_, false))
        for (int side = 0; side < curves(); ++side)
            sampleCurve(points_[side], plot_, 1,
                        [&](double hertz) { return response(side, hertz); });
    graph_.begin(canvas, plot_.area);
    if (!groundPoints_.empty())
        graph_.fill(groundPoints_, plot_.area.bottom(), Ink(Color::Level, 0.75),
                    Ink(Color::Level, 0.35));
    // The right one beneath: where both are the same the left one is seen.
    for (int side = curves() - 1; side >= 0; --side) {
        const auto& points = points_[side];
        const bool isFirst = side == 0;
        if (isFirst && curves() == 1)
            graph_.fill(points, plot_.upWithin(0), Ink(Color::Accent, 0.14 * opacity));
        graph_.stroke(points, isFirst ? 2 : 1.5,
                      isFirst ? Ink(Color::Accent, opacity) : Ink(Color::Output, 0.8 * opacity));
    }
    graph_.show(canvas);
    handles().draw(canvas);
    if (!isSmall()) handles().drawLabel(canvas, plot_.area);
}

}  // namespace quillworks::editors
