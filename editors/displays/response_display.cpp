// SPDX-License-Identifier: ISC
#include "editors/displays/response_display.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kReach = 2;  // px of a stroke

}  // namespace

void ResponseDisplay::setAxes(const Axis& hertz, const Axis& decibels)
{
    plot_.x = hertz;
    plot_.y = decibels;
}

void ResponseDisplay::sized()
{
    plot_.area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                           : Rect{30, 10, width() - 40, height() - 32};
    layer_.forget();
    groundTops_.clear();
    place();
    differences_.clear();
}

void ResponseDisplay::sample()
{
    const auto count = static_cast<std::size_t>(curves());
    if (differences_.size() != count || isOn() != wasOn_) {
        damage();
        differences_.clear();
    }
    wasOn_ = isOn();
    for (std::size_t side = 0; side < count; ++side) {
        auto& course = courses_[side];
        sampleCurve(course, plot_, 1,
                    [&](double hertz) { return response(static_cast<int>(side), hertz); });
        if (differences_.size() == side)
            differences_.emplace_back(plot_.area, scale(), kReach, plot_.upWithin(0));
        differences_[side].update(course, [this](const Rect& rect) { damage(rect); });
    }
}

void ResponseDisplay::lookChanged()
{
    sample();
    layer_.forget();
    if (!handles().all().empty()) damage();  // they go with it
}

/// Bars of the bands move a little at a time: only the stripe is drawn in which they have moved.
void ResponseDisplay::ticked(double)
{
    if (ground_.empty() || isSmall()) return;
    const auto& node = model().display(ground_);
    const auto& hertz = node["frequency"].numbers();
    const auto& level = node["level"].numbers();
    const auto n = std::min(hertz.size(), level.size());
    const Plot levels{plot_.area, plot_.x, kGroundLevels};
    const double pixel = 1 / scale();
    double top = plot_.area.bottom(), bottom = plot_.area.y;
    if (groundTops_.size() != n) {
        groundTops_.assign(n, plot_.area.bottom());
        damage();
    }
    groundEdges_.resize(n + 1);
    for (std::size_t i = 0; i < n; ++i) {
        // From half way to the neighbours, which lie in equal ratios.
        const double ratio = i + 1 < n ? hertz[i + 1] / hertz[i] : hertz[i] / hertz[i - (i > 0)];
        groundEdges_[i] = plot_.across(hertz[i] / std::sqrt(ratio));
        groundEdges_[i + 1] = plot_.across(hertz[i] * std::sqrt(ratio));
        double y = plot_.area.bottom();
        if (level[i] > kGroundLevels.minimum)
            y = std::round(levels.upWithin(level[i]) / pixel) * pixel;
        double& was = groundTops_[i];
        if (y == was) continue;
        top = std::min({top, y, was});
        bottom = std::max({bottom, y, was});
        was = y;
    }
    if (top < bottom) damage({plot_.area.x, top - 1, plot_.area.w, bottom - top + 2});
}

void ResponseDisplay::drawGround(Canvas& canvas) const
{
    const auto& area = plot_.area;
    for (std::size_t i = 0; i < groundTops_.size(); ++i) {
        const double left = std::max(groundEdges_[i], area.x),
                     right = std::min(groundEdges_[i + 1], area.right());
        if (left < right && groundTops_[i] < area.bottom())
            canvas.fill({left, groundTops_[i], right - left, area.bottom() - groundTops_[i]},
                        Ink(Color::Level, 0.5));
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

void ResponseDisplay::drawCurves(Canvas& canvas)
{
    const double opacity = isOn() ? 1 : 0.35;
    if (differences_.empty()) sample();
    graph_.begin(canvas, plot_.area);
    // The right one beneath: where both are the same the left one is seen.
    for (auto side = differences_.size(); side-- > 0;) {
        const auto& points = courses_[side];
        const bool isFirst = side == 0;
        if (isFirst && differences_.size() == 1)
            graph_.fill(points, plot_.upWithin(0), Ink(Color::Accent, 0.14 * opacity));
        graph_.stroke(points, isFirst ? 2 : 1.5,
                      isFirst ? Ink(Color::Accent, opacity) : Ink(Color::Output, 0.8 * opacity));
    }
    graph_.show(canvas);
}

void ResponseDisplay::draw(Canvas& canvas)
{
    place();
    if (groundTops_.empty()) {
        drawCurves(canvas);
    } else {
        // What moves behind them leaves the curves as they are.
        drawGround(canvas);
        layer_.draw(canvas, *this, [this](Canvas& own) { drawCurves(own); });
    }
    handles().draw(canvas);
    if (!isSmall()) handles().drawLabel(canvas, plot_.area);
}

}  // namespace quillworks::editors
