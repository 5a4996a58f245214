// SPDX-License-Identifier: ISC
// Points and rectangles of editors, in logical pixels unless said otherwise.
#pragma once

#include <algorithm>

namespace quillworks::editors {

struct Point {
    double x = 0, y = 0;
};

struct Rect {
    double x = 0, y = 0, w = 0, h = 0;

    constexpr double right() const noexcept { return x + w; }
    constexpr double bottom() const noexcept { return y + h; }
    constexpr Point centre() const noexcept { return {x + w / 2, y + h / 2}; }
    constexpr bool isEmpty() const noexcept { return !(w > 0 && h > 0); }
    constexpr bool contains(double px, double py) const noexcept
    {
        return px >= x && py >= y && px < right() && py < bottom();
    }
    constexpr bool contains(const Rect& r) const noexcept
    {
        return r.x >= x && r.y >= y && r.right() <= right() && r.bottom() <= bottom();
    }
    constexpr bool overlaps(const Rect& r) const noexcept
    {
        return x < r.right() && r.x < right() && y < r.bottom() && r.y < bottom();
    }
    /// Smaller by `d` at each side.
    constexpr Rect inset(double d) const noexcept { return {x + d, y + d, w - 2 * d, h - 2 * d}; }
    constexpr Rect inset(double dx, double dy) const noexcept
    {
        return {x + dx, y + dy, w - 2 * dx, h - 2 * dy};
    }
    constexpr Rect moved(double dx, double dy) const noexcept { return {x + dx, y + dy, w, h}; }
    constexpr Rect united(const Rect& r) const noexcept
    {
        if (isEmpty()) return r;
        if (r.isEmpty()) return *this;
        const double left = std::min(x, r.x), top = std::min(y, r.y);
        return {left, top, std::max(right(), r.right()) - left,
                std::max(bottom(), r.bottom()) - top};
    }
};

}  // namespace quillworks::editors
