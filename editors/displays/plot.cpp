// SPDX-License-Identifier: ISC
#include "editors/displays/plot.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kFigureGap = 6;  // px between neighbouring figures
constexpr double kRise = 3.5;     // px from a line to the base line of the figure beside it

bool isEnd(const Axis& axis, double value)
{
    const double p = axis.position(value);
    return p < 1e-6 || p > 1 - 1e-6;
}

}  // namespace

void drawAcross(Canvas& canvas, const Plot& plot, std::span<const Tick> ticks, bool hasFigures)
{
    const double baseline = plot.area.bottom() + 14;
    double taken = plot.area.x - 1000;
    for (const auto& tick : ticks) {
        const double x = plot.across(tick.value);
        if (!(x > plot.area.x - 0.5 && x < plot.area.right() + 0.5)) continue;
        canvas.vertical(x, plot.area.y, plot.area.bottom(),
                        isEnd(plot.x, tick.value) || tick.isMain ? Color::GridEnd : Color::Grid);
        if (!hasFigures || tick.text.empty()) continue;
        const double half = canvas.textWidth(Type::Axis, tick.text) / 2;
        const double at = std::min(x, plot.area.right() + 5 - half);
        if (at - half < taken + kFigureGap) continue;
        canvas.text(Type::Axis, tick.text, at, baseline, Align::Centre, Color::Text3);
        taken = at + half;
    }
}

void drawUp(Canvas& canvas, const Plot& plot, std::span<const Tick> ticks, FiguresAt figures)
{
    constexpr double kLine = 11;  // px that a figure takes
    double taken = 1e9;
    for (const auto& tick : ticks) {
        const double y = plot.up(tick.value);
        if (!(y > plot.area.y - 0.5 && y < plot.area.bottom() + 0.5)) continue;
        canvas.horizontal(plot.area.x, plot.area.right(), y,
                          isEnd(plot.y, tick.value) || tick.isMain ? Color::GridEnd : Color::Grid);
        if (figures == FiguresAt::None || tick.text.empty()) continue;
        if (std::abs(y - taken) < kLine) continue;
        taken = y;
        const bool isLeft = figures == FiguresAt::Left;
        canvas.text(Type::Axis, tick.text, isLeft ? plot.area.x - 6 : plot.area.right() + 6,
                    y + kRise, isLeft ? Align::Right : Align::Left, Color::Text3);
    }
}

void drawHandle(Canvas& canvas, Point at, bool isHeld, bool isFocused)
{
    canvas.circle(at, 5, isHeld ? Color::Accent : Color::Well);
    canvas.strokeCircle(at, 5, 2, Color::Accent);
    if (isFocused) canvas.strokeCircle(at, 9, 2, Color::Focus);
}

void drawDot(Canvas& canvas, Point at, Ink ink)
{
    canvas.circle(at, 7, Ink(ink.color, 0.25 * ink.opacity));
    canvas.circle(at, 3.5, ink);
}

}  // namespace quillworks::editors
