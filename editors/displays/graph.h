// SPDX-License-Identifier: ISC
// Curves y = f(x) and bars drawn column by column, straight into the picture and only where it is
// to be drawn: a tenth of the time of an outline through all points, for displays that move.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "editors/canvas.h"

namespace quillworks::editors {

class Graph {
public:
    /// Forgets what it has; what follows lies in `area`, one above the other, for a canvas of this
    /// scale.
    void begin(const Rect& area, double scale);
    void begin(const Canvas& canvas, const Rect& area) { begin(area, canvas.scale()); }
    /// Through points of growing x, in the canvas' pixels, round at its corners; a y that is not
    /// finite leaves a gap.
    void stroke(std::span<const Point> points, double width, Ink ink);
    /// Between the curve and a height, from one ink at the top of the area to one at its bottom.
    void fill(std::span<const Point> points, double base, Ink top, Ink bottom);
    void fill(std::span<const Point> points, double base, Ink ink) { fill(points, base, ink, ink); }
    /// Rectangles, none above another; empty ones are none.
    void bars(std::span<const Rect> bars, Ink top, Ink bottom);
    void show(Canvas& canvas);

private:
    friend class MovingGraph;
    static constexpr int kParts = 4;  // of a column, for smooth edges
    /// What is covered of each part of a column: one extent, in pixels of the area, empty where its
    /// top is below its bottom.
    struct Extents {
        std::vector<float> top, bottom;
        void clear(std::size_t parts);
        void take(std::ptrdiff_t part, double y) noexcept;
    };
    struct Layer {
        Extents extents;
        Ink top = Color::Text, bottom = Color::Text;
        std::vector<std::uint32_t> colours;  // of each row, by alpha already
        std::array<double, 8> coloursOf{};   // what they are made of
    };
    void measure(std::span<const Point> points);
    /// With its colours; the extents are as they were left.
    Layer& addLayer(Ink top, Ink bottom);
    void mixColours(const Canvas& canvas);
    /// Columns and rows of the area, a strip at most, into pixels of which the first is that of
    /// the part.
    void drawStrip(const Layer& layer, std::uint32_t* first, std::ptrdiff_t stride,
                   const PixelRect& part);

    double scale_ = 1;
    Rect area_;
    int width_ = 1, height_ = 1;  // of the area, device pixels
    Extents course_;
    std::vector<Layer> layers_;  // those beyond count_ keep their memory
    std::size_t count_ = 0;
    std::vector<std::int16_t> steps_;  // of the coverage, from row to row of a strip
    std::vector<std::uint32_t> rest_;  // less than a strip
};

}  // namespace quillworks::editors
