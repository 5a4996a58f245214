// SPDX-License-Identifier: ISC
#include "editors/displays/graph.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "editors/displays/blend.h"

namespace quillworks::editors {
namespace {

constexpr float kNowhere = 1e30f;
// Coverage is counted in whole steps, so that it is the same wherever a drawing begins.
constexpr int kFine = kCovered / 4;

}  // namespace

void Graph::Extents::clear(std::size_t parts)
{
    top.assign(parts, kNowhere);
    bottom.assign(parts, -kNowhere);
}

void Graph::Extents::take(std::ptrdiff_t part, double y) noexcept
{
    if (part < 0 || part >= static_cast<std::ptrdiff_t>(top.size())) return;
    const auto i = static_cast<std::size_t>(part);
    top[i] = std::min(top[i], static_cast<float>(y));
    bottom[i] = std::max(bottom[i], static_cast<float>(y));
}

void Graph::begin(const Rect& area, double scale)
{
    scale_ = scale;
    area_ = area;
    width_ = std::max(1, static_cast<int>(std::lround(area.w * scale_)));
    height_ = std::max(1, static_cast<int>(std::lround(area.h * scale_)));
    count_ = 0;
}

void Graph::measure(std::span<const Point> points)
{
    const auto parts = static_cast<std::size_t>(width_ * kParts);
    course_.clear(parts);
    const double perPixel = scale_ * kParts;
    for (std::size_t i = 0; i + 1 < points.size(); ++i) {
        const double x0 = (points[i].x - area_.x) * perPixel;
        const double x1 = (points[i + 1].x - area_.x) * perPixel;
        const double y0 = (points[i].y - area_.y) * scale_,
                     y1 = (points[i + 1].y - area_.y) * scale_;
        if (!(std::isfinite(y0) && std::isfinite(y1)) || x1 < 0 || x0 > double(parts)) continue;
        const auto first = static_cast<std::ptrdiff_t>(std::floor(std::max(x0, -1.0)));
        const auto last = static_cast<std::ptrdiff_t>(std::floor(std::min(x1, double(parts))));
        const double slope = x1 > x0 ? (y1 - y0) / (x1 - x0) : 0;
        course_.take(first, x0 < -1 ? y0 + slope * (-1 - x0) : y0);
        for (auto part = first + 1; part <= last; ++part) {  // where it passes from part to part
            const double y = y0 + slope * (double(part) - x0);
            course_.take(part - 1, y);
            course_.take(part, y);
        }
        course_.take(last, x1 > double(parts) ? y0 + slope * (double(parts) - x0) : y1);
    }
}

Graph::Layer& Graph::addLayer(Ink top, Ink bottom)
{
    if (count_ == layers_.size()) layers_.emplace_back();
    auto& layer = layers_[count_++];
    layer.top = top;
    layer.bottom = bottom;
    layer.extents.clear(static_cast<std::size_t>(width_ * kParts));
    return layer;
}

void Graph::mixColours(const Canvas& canvas)
{
    for (auto& layer : std::span(layers_).first(count_)) {
        std::array<double, 8> ends{};
        const auto put = [&](std::size_t at, Ink ink) {
            const auto rgb = canvas.theme().rgb(ink.color);
            const double o = ink.opacity * canvas.opacity();
            ends[at] = 255 * o;
            for (std::size_t i = 1; i < 4; ++i)
                ends[at + i] = o * double(rgb >> (24 - 8 * i) & 0xFF);
        };
        put(0, layer.top);
        put(4, layer.bottom);
        const auto rows = static_cast<std::size_t>(height_);
        if (layer.colours.size() == rows && layer.coloursOf == ends) continue;
        layer.coloursOf = ends;
        layer.colours.resize(rows);
        for (std::size_t y = 0; y < rows; ++y) {
            const double t = double(y) / double(height_);
            std::uint32_t mixed = 0;
            for (std::size_t i = 0; i < 4; ++i)
                mixed = mixed << 8 |
                        static_cast<std::uint32_t>(ends[i] + t * (ends[i + 4] - ends[i]) + 0.5);
            layer.colours[y] = mixed;
        }
    }
}

void Graph::stroke(std::span<const Point> points, double width, Ink ink)
{
    measure(points);
    auto& extents = addLayer(ink, ink).extents;
    // The union of discs around the curve: in each column the farthest that one of those beside
    // reaches.
    const auto radius = static_cast<float>(width * scale_ / 2);
    const int reach = static_cast<int>(radius * kParts);
    const int parts = width_ * kParts;
    for (int k = -reach; k <= reach; ++k) {
        const float dx = static_cast<float>(k) / kParts;
        const float pen = std::sqrt(std::max(0.0f, radius * radius - dx * dx));
        const int from = std::max(0, -k), to = std::min(parts, parts - k);
        const float* const top = course_.top.data() + k;
        const float* const bottom = course_.bottom.data() + k;
        float* const highest = extents.top.data();
        float* const lowest = extents.bottom.data();
        for (int p = from; p < to; ++p) {
            const float a = top[p] - pen, b = bottom[p] + pen;
            highest[p] = a < highest[p] ? a : highest[p];
            lowest[p] = b > lowest[p] ? b : lowest[p];
        }
    }
}

void Graph::fill(std::span<const Point> points, double base, Ink top, Ink bottom)
{
    measure(points);
    auto& extents = addLayer(top, bottom).extents;
    const auto level = static_cast<float>((base - area_.y) * scale_);
    for (std::size_t p = 0; p < course_.top.size(); ++p) {
        if (course_.top[p] > course_.bottom[p]) continue;
        const float middle = (course_.top[p] + course_.bottom[p]) / 2;
        extents.top[p] = std::min(middle, level);
        extents.bottom[p] = std::max(middle, level);
    }
}

void Graph::bars(std::span<const Rect> bars, Ink top, Ink bottom)
{
    auto& extents = addLayer(top, bottom).extents;
    const double perPixel = scale_ * kParts;
    for (const auto& bar : bars) {
        if (bar.isEmpty()) continue;
        const auto from = std::lround((bar.x - area_.x) * perPixel);
        const auto to = std::lround((bar.right() - area_.x) * perPixel);
        for (auto part = from; part < to; ++part) {
            extents.take(part, (bar.y - area_.y) * scale_);
            extents.take(part, (bar.bottom() - area_.y) * scale_);
        }
    }
}

void Graph::show(Canvas& canvas)
{
    mixColours(canvas);
    const auto place = canvas.inPicture(area_.x, area_.y, width_, height_);
    canvas.paint(place, [&](const Pixels& pixels, const PixelRect& part) {
        const auto stride = pixels.stride / 4;
        const PixelRect inArea{part.x - place.x, part.y - place.y, part.w, part.h};
        for (int x = inArea.x; x < inArea.right();) {
            const int next = std::min(inArea.right(), (x / kStrip + 1) * kStrip);
            auto* const first = pixels.data + part.y * stride + x + place.x;
            for (std::size_t i = 0; i < count_; ++i)
                drawStrip(layers_[i], first, stride, {x, inArea.y, next - x, inArea.h});
            x = next;
        }
    });
}

void Graph::drawStrip(const Layer& layer, std::uint32_t* first, std::ptrdiff_t stride,
                      const PixelRect& part)
{
    // Each extent is a step up and a step down of the coverage; rows are summed on the way down.
    const float above = static_cast<float>(part.y), below = static_cast<float>(part.bottom());
    float top = below, bottom = above;
    const auto begin = static_cast<std::size_t>(part.x * kParts);
    const auto end =
        std::min(begin + static_cast<std::size_t>(part.w * kParts), layer.extents.top.size());
    const float* const tops = layer.extents.top.data();
    const float* const bottoms = layer.extents.bottom.data();
    for (auto p = begin; p < end; ++p) {
        top = std::min(top, tops[p]);
        bottom = std::max(bottom, bottoms[p]);
    }
    top = std::max(top, above);
    bottom = std::min(bottom, below);
    if (!(bottom > top)) return;
    const int row = static_cast<int>(top);
    const int rows = static_cast<int>(std::ceil(bottom)) - row;
    steps_.assign(static_cast<std::size_t>((rows + 2) * kStrip), 0);
    for (auto p = begin; p < end; ++p) {
        const float from = std::max(tops[p], above), to = std::min(bottoms[p], below);
        if (!(to > from)) continue;
        std::int16_t* const column = steps_.data() + (p - begin) / kParts;
        const auto step = [&](float at, int sign) {
            const int fine = static_cast<int>(at * kFine + 0.5f), within = fine % kFine;
            std::int16_t* const cell = column + (fine / kFine - row) * kStrip;
            cell[0] = static_cast<std::int16_t>(cell[0] + sign * (kFine - within));
            cell[kStrip] = static_cast<std::int16_t>(cell[kStrip] + sign * within);
        };
        step(from, 1);
        step(to, -1);
    }
    const auto* const colours = layer.colours.data() + row;
    first += (row - part.y) * stride;
    if (part.w == kStrip) return blendSteps(first, stride, rows, steps_.data(), colours);
    // Of less than a strip a copy, for all of a strip is written.
    rest_.resize(static_cast<std::size_t>(rows * kStrip));
    const auto bytes = static_cast<std::size_t>(part.w) * 4;
    for (int y = 0; y < rows; ++y)
        std::memcpy(rest_.data() + y * kStrip, first + y * stride, bytes);
    blendSteps(rest_.data(), kStrip, rows, steps_.data(), colours);
    for (int y = 0; y < rows; ++y)
        std::memcpy(first + y * stride, rest_.data() + y * kStrip, bytes);
}

}  // namespace quillworks::editors
