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
    ground_.forget();
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

void ResponseDisplay::ticked(double)
{
    if (isSmall()) return;
    ground_.tick(model(), plot_, scale(), [this](const Rect& rect) { damage(rect); });
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
    if (!ground_.isThere()) {
        drawCurves(canvas);
    } else {
        // What moves behind them leaves the curves as they are.
        ground_.draw(canvas, plot_.area);
        layer_.draw(canvas, *this, [this](Canvas& own) { drawCurves(own); });
    }
    handles().draw(canvas);
    if (!isSmall()) handles().drawLabel(canvas, plot_.area);
}

}  // namespace quillworks::editors
