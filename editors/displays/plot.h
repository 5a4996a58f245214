// SPDX-License-Identifier: ISC
// The ground of a display: a well, the area in it with its two axes, their lines and figures.
#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "editors/canvas.h"
#include "editors/displays/axis.h"

namespace quillworks::editors {

/// Where values lie: `x` grows to the right, `y` upwards.
struct Plot {
    Rect area;
    Axis x, y;

    double across(double value) const noexcept { return area.x + x.position(value) * area.w; }
    double up(double value) const noexcept { return area.bottom() - y.position(value) * area.h; }
    /// Limited to the area's height; where not-a-number stays what it is.
    double upWithin(double value) const noexcept
    {
        return area.bottom() - y.limited(value) * area.h;
    }
    double valueAcross(double at) const noexcept { return x.value((at - area.x) / area.w); }
    double valueUp(double at) const noexcept { return y.value((area.bottom() - at) / area.h); }
};

enum class FiguresAt { None, Left, Right, Below };
/// Lines of one axis with their figures, which are left out where they would meet.
void drawAcross(Canvas& canvas, const Plot& plot, std::span<const Tick> ticks, bool hasFigures);
void drawUp(Canvas& canvas, const Plot& plot, std::span<const Tick> ticks, FiguresAt figures);

/// A grip: a ring in the accent's colour, filled while it is held.
void drawHandle(Canvas& canvas, Point at, bool isHeld, bool isFocused);
/// Where the signal is: a dot with a halo.
void drawDot(Canvas& canvas, Point at, Ink ink);

/// y = f(x) every `step` px; values that are not finite leave gaps, and those beyond the area lie
/// just outside.
template <class F>
void sampleCurve(std::vector<Point>& points, const Plot& plot, double step, F&& f)
{
    points.clear();
    const int n = static_cast<int>(plot.area.w / step);
    for (int i = 0; i <= n; ++i) {
        const double x = i == n ? plot.area.right() : plot.area.x + i * step;
        const double y = plot.up(f(plot.valueAcross(x)));
        points.push_back({x, std::clamp(y, plot.area.y - 3, plot.area.bottom() + 3)});
    }
}

}  // namespace quillworks::editors
