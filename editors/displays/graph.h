// SPDX-License-Identifier: ISC
// Curves y = f(x) drawn column by column: a tenth of the time of an outline through all points, for
// displays that move.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "editors/canvas.h"

namespace quillworks::editors {

class Graph {
public:
    /// Empties the picture, which covers `area` of the canvas.
    void begin(const Canvas& canvas, const Rect& area);
    /// Through points of growing x, in the canvas' pixels, round at its corners; a y that is not
    /// finite leaves a gap.
    void stroke(std::span<const Point> points, double width, Ink ink);
    /// Between the curve and a height, from one ink at the top of the area to one at its bottom.
    void fill(std::span<const Point> points, double base, Ink top, Ink bottom);
    void fill(std::span<const Point> points, double base, Ink ink) { fill(points, base, ink, ink); }
    void show(Canvas& canvas) const { canvas.image(image_, area_.x, area_.y); }

private:
    struct Colour {
        float alpha, red, green, blue;  // 0 .. 255, by alpha already
        std::uint32_t packed;           // the same in a pixel
    };
    /// Extent of the curve within a part of a column, in device pixels of the area.
    struct Extent {
        float top, bottom;
    };
    Colour colourOf(Ink ink) const;
    /// kParts extents per column; an empty one has its top below its bottom.
    void measure(std::span<const Point> points);
    void add(float top, float bottom);
    void setColours(Ink top, Ink bottom);
    void blend(int column);

    static constexpr int kParts = 4;  // of a column, for smooth edges
    const Theme* theme_ = nullptr;
    double scale_ = 1;
    Rect area_;
    Image image_;
    std::vector<Extent> extents_, widened_;
    std::vector<float> cover_;  // of one column
    std::vector<Colour> colours_;
    int first_ = 0, last_ = 0;  // rows that it covers
};

}  // namespace quillworks::editors
