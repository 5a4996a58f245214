// SPDX-License-Identifier: ISC
#include "editors/displays/graph.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr float kNowhere = 1e30f;

}  // namespace

void Graph::begin(const Canvas& canvas, const Rect& area)
{
    theme_ = &canvas.theme();
    scale_ = canvas.scale();
    area_ = area;
    const int w = std::max(1, static_cast<int>(std::lround(area.w * scale_)));
    const int h = std::max(1, static_cast<int>(std::lround(area.h * scale_)));
    if (image_.width() != w || image_.height() != h)
        image_ = Image(w, h);
    else
        image_.clear({0, 0, w, h});
    cover_.assign(static_cast<std::size_t>(h), 0);
}

Graph::Colour Graph::colourOf(Ink ink) const
{
    const auto rgb = theme_->rgb(ink.color);
    const auto o = static_cast<float>(ink.opacity);
    const auto part = [&](int shift) { return o * static_cast<float>(rgb >> shift & 0xFF); };
    return {255 * o, part(16), part(8), part(0), 0};
}

void Graph::measure(std::span<const Point> points)
{
    const auto parts = static_cast<std::size_t>(image_.width() * kParts);
    extents_.assign(parts, {kNowhere, -kNowhere});
    const double perPixel = scale_ * kParts;
    const auto take = [&](std::ptrdiff_t part, double y) {
        if (part < 0 || part >= static_cast<std::ptrdiff_t>(parts)) return;
        auto& e = extents_[static_cast<std::size_t>(part)];
        e.top = std::min(e.top, static_cast<float>(y));
        e.bottom = std::max(e.bottom, static_cast<float>(y));
    };
    for (std::size_t i = 0; i + 1 < points.size(); ++i) {
        const double x0 = (points[i].x - area_.x) * perPixel;
        const double x1 = (points[i + 1].x - area_.x) * perPixel;
        const double y0 = (points[i].y - area_.y) * scale_,
                     y1 = (points[i + 1].y - area_.y) * scale_;
        if (!(std::isfinite(y0) && std::isfinite(y1)) || x1 < 0 || x0 > double(parts)) continue;
        const auto first = static_cast<std::ptrdiff_t>(std::floor(std::max(x0, -1.0)));
        const auto last = static_cast<std::ptrdiff_t>(std::floor(std::min(x1, double(parts))));
        const double slope = x1 > x0 ? (y1 - y0) / (x1 - x0) : 0;
        take(first, x0 < -1 ? y0 + slope * (-1 - x0) : y0);
        for (auto part = first + 1; part <= last; ++part) {  // where it passes from part to part
            const double y = y0 + slope * (double(part) - x0);
            take(part - 1, y);
            take(part, y);
        }
        take(last, x1 > double(parts) ? y0 + slope * (double(parts) - x0) : y1);
    }
}

void Graph::add(float top, float bottom)
{
    const auto rows = static_cast<int>(cover_.size());
    top = std::clamp(top, 0.0f, static_cast<float>(rows));
    bottom = std::clamp(bottom, 0.0f, static_cast<float>(rows));
    if (!(bottom > top)) return;
    constexpr float share = 1.0f / kParts;
    const int first = static_cast<int>(top), last = std::min(rows - 1, static_cast<int>(bottom));
    first_ = std::min(first_, first);
    last_ = std::max(last_, last);
    float* const cover = cover_.data();
    if (first == last) {
        cover[first] += share * (bottom - top);
        return;
    }
    cover[first] += share * (static_cast<float>(first + 1) - top);
    for (int y = first + 1; y < last; ++y) cover[y] += share;
    cover[last] += share * (bottom - static_cast<float>(last));
}

/// The colour of every row, from one to the other.
void Graph::setColours(Ink top, Ink bottom)
{
    const auto from = colourOf(top), to = colourOf(bottom);
    colours_.resize(cover_.size());
    for (std::size_t y = 0; y < colours_.size(); ++y) {
        const float t = static_cast<float>(y) / static_cast<float>(colours_.size());
        const auto mixed = [t](float a, float b) { return a + t * (b - a); };
        auto& c = colours_[y];
        c = {mixed(from.alpha, to.alpha), mixed(from.red, to.red), mixed(from.green, to.green),
             mixed(from.blue, to.blue), 0};
        const auto part = [](float v) { return static_cast<std::uint32_t>(v + 0.5f); };
        c.packed = part(c.alpha) << 24 | part(c.red) << 16 | part(c.green) << 8 | part(c.blue);
    }
    first_ = static_cast<int>(cover_.size());
    last_ = -1;
}

void Graph::blend(int column)
{
    const auto& pixels = image_.pixels();
    auto* row = reinterpret_cast<char*>(pixels.data + column) + first_ * pixels.stride;
    for (int y = first_; y <= last_; ++y, row += pixels.stride) {
        const float c = cover_[static_cast<std::size_t>(y)];
        cover_[static_cast<std::size_t>(y)] = 0;
        if (c <= 0) continue;
        const auto& colour = colours_[static_cast<std::size_t>(y)];
        auto& pixel = *reinterpret_cast<std::uint32_t*>(row);
        if (pixel == 0 && c > 0.999f) {  // the inside of an area
            pixel = colour.packed;
            continue;
        }
        const float kept = 1 - c * colour.alpha / 255;
        const auto over = [&](float source, int shift) {
            const float below = static_cast<float>(pixel >> shift & 0xFF);
            return static_cast<std::uint32_t>(std::min(255.0f, c * source + kept * below + 0.5f))
                   << shift;
        };
        pixel = over(colour.alpha, 24) | over(colour.red, 16) | over(colour.green, 8) |
                over(colour.blue, 0);
    }
    first_ = static_cast<int>(cover_.size());
    last_ = -1;
}

void Graph::stroke(std::span<const Point> points, double width, Ink ink)
{
    measure(points);
    // The union of discs around the curve: in each column the farthest that one of those beside
    // reaches.
    const auto radius = static_cast<float>(width * scale_ / 2);
    const int reach = static_cast<int>(radius * kParts);
    const auto parts = static_cast<int>(extents_.size());
    widened_.assign(extents_.size(), {kNowhere, -kNowhere});
    for (int k = -reach; k <= reach; ++k) {
        const float dx = static_cast<float>(k) / kParts;
        const float pen = std::sqrt(std::max(0.0f, radius * radius - dx * dx));
        for (int p = std::max(0, -k); p < std::min(parts, parts - k); ++p) {
            const auto& from = extents_[static_cast<std::size_t>(p + k)];
            auto& to = widened_[static_cast<std::size_t>(p)];
            to.top = std::min(to.top, from.top - pen);
            to.bottom = std::max(to.bottom, from.bottom + pen);
        }
    }
    setColours(ink, ink);
    for (int column = 0; column < image_.width(); ++column) {
        for (int p = 0; p < kParts; ++p) {
            const auto& e = widened_[static_cast<std::size_t>(column * kParts + p)];
            if (e.top <= e.bottom) add(e.top, e.bottom);
        }
        blend(column);
    }
}

void Graph::fill(std::span<const Point> points, double base, Ink top, Ink bottom)
{
    measure(points);
    const auto level = static_cast<float>((base - area_.y) * scale_);
    setColours(top, bottom);
    for (int column = 0; column < image_.width(); ++column) {
        for (int p = 0; p < kParts; ++p) {
            const auto& e = extents_[static_cast<std::size_t>(column * kParts + p)];
            if (e.top > e.bottom) continue;
            const float middle = (e.top + e.bottom) / 2;
            add(std::min(middle, level), std::max(middle, level));
        }
        blend(column);
    }
}

}  // namespace quillworks::editors
