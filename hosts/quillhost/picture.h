// SPDX-License-Identifier: ISC
// Diagrams as PNG or SVG: axes with units, curves, areas and a legend.
#pragma once

#include <cairo.h>
#include <string>
#include <vector>

#include "output_file.h"

namespace quillhost {

/// 0xRRGGBB of the skin's tokens.
using Colour = unsigned;
namespace colour {
inline constexpr Colour kBackground = 0x14161A, kWell = 0x101215, kGrid = 0x262A31,
                        kGridEnd = 0x343A43, kEdge = 0x3E4550, kText = 0xECEEF1, kLabel = 0xAEB5C0,
                        kAxis = 0x868E9B, kLevel = 0x5B6675, kOut = 0x98A3B2, kSecond = 0x5CC8F2;
}
/// Of a class's family, by the browser's sub-category.
Colour accentOf(const std::string& subCategory);

class Picture {
public:
    static constexpr double kWidth = 880;  // px; a PNG has twice as many

    /// The kind by the extension; UsageError when it is neither .png nor .svg.
    Picture(const std::string& path, double height);
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    cairo_t* context() const noexcept { return cr_; }
    double height() const noexcept { return height_; }
    void setColour(Colour c, double alpha = 1) const;
    enum class Anchor { Left, Middle, Right };
    /// `y` is the base line.
    void text(double x, double y, const std::string& text, Anchor anchor, double size, Colour c,
              bool isBold = false) const;
    /// Heading and what it was made with.
    void title(const std::string& text, const std::string& subtitle) const;
    double textWidth(const std::string& text, double size) const;
    /// Writes the file; WorkError when that fails.
    void finish();

private:
    OutputFile file_;
    double height_;
    bool isSvg_;
    cairo_surface_t* surface_ = nullptr;
    cairo_t* cr_ = nullptr;
};

/// Writes a picture in memory, of 32 bits a pixel, as PNG and gives the file its name; WorkError
/// when that fails. `tolerance`: see pngOf().
void finishPng(cairo_surface_t* surface, OutputFile& file, int tolerance = 0);

struct Axis {
    std::string label;  // with the unit
    double from = 0, to = 1;
    bool isLogarithmic = false;
    std::vector<double> ticks = {};  // empty: chosen
    bool isBetween(double v) const noexcept { return v >= from - 1e-9 && v <= to + 1e-9; }
    /// 0 .. 1 along the axis.
    double place(double value) const noexcept;
};

/// Round steps, at most `most` of them. `base` 10 gives 1, 2, 5 times a power of ten; 6 suits dB.
std::vector<double> roundTicks(double from, double to, int most, bool isDecibel = false);

struct Point {
    double x, y;  // y may be not-a-number: the line has a gap there
};

/// A well with grid and scales.
class Graph {
public:
    Graph(Picture& picture, double top, double bottom, Axis x, Axis y);

    /// A second scale on the right.
    void addRightAxis(Axis y);
    void line(const std::vector<Point>& points, Colour c, double width = 2, bool isDashed = false,
              bool onRight = false);
    /// Filled down to the lower edge.
    void area(const std::vector<Point>& points, Colour c, bool onRight = false);
    /// A wave form: what `samples` span in each column of pixels, x from `from` by `step`.
    void wave(const std::vector<float>& samples, double from, double step, Colour c);
    /// A filled rectangle between two corners.
    void box(Point from, Point to, Colour c, double alpha = 1);
    void dots(const std::vector<Point>& points, Colour c, double radius, double alpha);
    /// Pixels row by row from the upper left on, stretched over the well.
    void image(const std::vector<Colour>& pixels, int columns, int rows);
    struct Key {
        std::string text;
        Colour colour;
    };
    /// Above the well, from the right.
    void legend(const std::vector<Key>& keys) const;

private:
    double px(double x) const noexcept { return left_ + (right_ - left_) * x_.place(x); }
    double py(double y, bool onRight) const noexcept;
    void clipToWell() const;
    void trace(const std::vector<Point>& points, bool onRight) const;
    void scales();

    Picture& picture_;
    double left_, right_, top_, bottom_;
    Axis x_, y_, rightY_;
    bool hasRight_ = false;
};

}  // namespace quillhost
