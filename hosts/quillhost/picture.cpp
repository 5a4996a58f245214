// SPDX-License-Identifier: ISC
#include "picture.h"

#include <algorithm>
#include <cairo-svg.h>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "error.h"
#include "png_file.h"
#include "text.h"

namespace quillhost {
namespace {

constexpr double kScale = 2;  // pixels of a PNG per px
constexpr const char* kFont = "Inter";

bool endsWith(const std::string& path, const char* extension)
{
    return folded(path).ends_with(extension);
}

cairo_status_t store(void* file, const unsigned char* data, unsigned length)
{
    try {
        static_cast<OutputFile*>(file)->write(data, length);
        return CAIRO_STATUS_SUCCESS;
    } catch (const WorkError&) {
        return CAIRO_STATUS_WRITE_ERROR;
    }
}

const std::string& checkedPath(const std::string& path)
{
    if (!endsWith(path, ".png") && !endsWith(path, ".svg"))
        throw UsageError(path + ": pictures end in .png or .svg");
    return path;
}

std::string tickText(double value, bool isLogarithmic)
{
    if (isLogarithmic && value >= 1000) return shortText(value / 1000) + "k";
    std::string text = shortText(std::round(value * 1e6) / 1e6);
    if (text == "-0") text = "0";
    if (text.front() == '-') text = "\u2212" + text.substr(1);
    return text;
}

void requireSuccess(cairo_status_t status)
{
    if (status == CAIRO_STATUS_SUCCESS) return;
    throw WorkError(std::string("the picture cannot be written: ") +
                    cairo_status_to_string(status));
}

}  // namespace

Colour accentOf(const std::string& subCategory)
{
    struct Accent {
        const char* family;
        Colour colour;
    };
    constexpr Accent kAccents[] = {
        {"Dynamics", 0xF5A742},   {"Mixing", 0xA6D06A},  {"Distortion", 0xFF8A70},
        {"Modulation", 0xC79BFF}, {"Delay", 0x5CC8F2},   {"Reverb", 0x8FB0FF},
        {"Analysis", 0x4FD1B5},   {"Spatial", 0xF29ACB},
    };
    for (const auto& a : kAccents)
        if (subCategory == a.family) return a.colour;
    return 0xA6D06A;
}

Picture::Picture(const std::string& path, double height)
    : file_(checkedPath(path)), height_(height), isSvg_(endsWith(path, ".svg"))
{
    surface_ = isSvg_ ? cairo_svg_surface_create_for_stream(store, &file_, kWidth, height)
                      : cairo_image_surface_create(CAIRO_FORMAT_RGB24, int(kWidth * kScale),
                                                   int(height * kScale));
    cr_ = cairo_create(surface_);
    if (!isSvg_) cairo_scale(cr_, kScale, kScale);
    setColour(colour::kBackground);
    cairo_paint(cr_);
    cairo_set_line_join(cr_, CAIRO_LINE_JOIN_ROUND);
}

Picture::~Picture()
{
    cairo_destroy(cr_);
    cairo_surface_destroy(surface_);
}

void Picture::setColour(Colour c, double alpha) const
{
    const auto part = [c](int shift) { return double(c >> shift & 0xFF) / 255; };
    cairo_set_source_rgba(cr_, part(16), part(8), part(0), alpha);
}

void Picture::title(const std::string& heading, const std::string& subtitle) const
{
    text(16, 28, heading, Anchor::Left, 15, colour::kText, true);
    text(16, 46, escaped(subtitle), Anchor::Left, 12, colour::kAxis);
}

double Picture::textWidth(const std::string& text, double size) const
{
    cairo_text_extents_t extents;
    cairo_set_font_size(cr_, size);
    cairo_text_extents(cr_, text.c_str(), &extents);
    return extents.x_advance;
}

void Picture::text(double x, double y, const std::string& text, Anchor anchor, double size,
                   Colour c, bool isBold) const
{
    cairo_select_font_face(cr_, kFont, CAIRO_FONT_SLANT_NORMAL,
                           isBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    const double width = textWidth(text, size);
    setColour(c);
    if (anchor == Anchor::Middle) x -= width / 2;
    if (anchor == Anchor::Right) x -= width;
    cairo_move_to(cr_, x, y);
    cairo_show_text(cr_, text.c_str());
}

void finishPng(cairo_surface_t* surface, OutputFile& file, int tolerance)
{
    cairo_surface_flush(surface);
    const int width = cairo_image_surface_get_width(surface),
              height = cairo_image_surface_get_height(surface);
    const auto* const data = cairo_image_surface_get_data(surface);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) *
                                      static_cast<std::size_t>(height));
    const auto rowBytes = static_cast<std::size_t>(width) * sizeof(std::uint32_t);
    for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y)
        std::memcpy(pixels.data() + y * static_cast<std::size_t>(width), data + y * stride,
                    rowBytes);
    file.write(pngOf(pixels, width, height, tolerance));
    file.finish();
}

void Picture::finish()
{
    cairo_surface_flush(surface_);
    requireSuccess(cairo_status(cr_));
    if (!isSvg_) return finishPng(surface_, file_);
    cairo_surface_finish(surface_);
    requireSuccess(cairo_surface_status(surface_));
    file_.finish();
}

double Axis::place(double value) const noexcept
{
    return isLogarithmic ? std::log(value / from) / std::log(to / from)
                         : (value - from) / (to - from);
}

std::vector<double> roundTicks(double from, double to, int most, bool isDecibel)
{
    const double range = to - from;
    double step = 0;
    if (isDecibel)
        for (const double s : {0.1, 0.2, 0.5, 1.0, 2.0, 3.0, 6.0, 12.0, 24.0, 48.0}) {
            step = s;
            if (range / s <= most) break;
        }
    else
        for (double power = std::pow(10, std::floor(std::log10(range / most)));; power *= 10) {
            for (const double s : {1.0, 2.0, 5.0})
                if (step == 0 && range / (s * power) <= most) step = s * power;
            if (step > 0) break;
        }
    std::vector<double> ticks;
    for (double k = std::ceil(from / step - 1e-9); k * step <= to + step * 1e-9; ++k)
        ticks.push_back(k * step);
    return ticks;
}

Graph::Graph(Picture& picture, double top, double bottom, Axis x, Axis y)
    : picture_(picture),
      left_(64),
      right_(Picture::kWidth - 64),
      top_(top),
      bottom_(bottom),
      x_(std::move(x)),
      y_(std::move(y))
{
    scales();
}

void Graph::scales()
{
    using Anchor = Picture::Anchor;
    auto* const cr = picture_.context();
    picture_.setColour(colour::kWell);
    cairo_rectangle(cr, left_, top_, right_ - left_, bottom_ - top_);
    cairo_fill(cr);
    if (x_.ticks.empty()) x_.ticks = roundTicks(x_.from, x_.to, 10);
    if (y_.ticks.empty()) y_.ticks = roundTicks(y_.from, y_.to, 8);
    cairo_set_line_width(cr, 1);
    const auto gridLine = [&](double x1, double y1, double x2, double y2, bool isEnd) {
        picture_.setColour(isEnd ? colour::kGridEnd : colour::kGrid);
        cairo_move_to(cr, std::floor(x1) + 0.5, std::floor(y1) + 0.5);
        cairo_line_to(cr, std::floor(x2) + 0.5, std::floor(y2) + 0.5);
        cairo_stroke(cr);
    };
    for (const double v : x_.ticks) {
        if (!x_.isBetween(v)) continue;
        gridLine(px(v), top_, px(v), bottom_, v == 0);
        picture_.text(px(v), bottom_ + 17, tickText(v, x_.isLogarithmic), Anchor::Middle, 11,
                      colour::kAxis);
    }
    for (const double v : y_.ticks) {
        if (!y_.isBetween(v)) continue;
        gridLine(left_, py(v, false), right_, py(v, false), v == 0);
        picture_.text(left_ - 8, py(v, false) + 4, tickText(v, y_.isLogarithmic), Anchor::Right, 11,
                      colour::kAxis);
    }
    picture_.setColour(colour::kEdge);
    cairo_rectangle(cr, left_ + 0.5, top_ + 0.5, right_ - left_ - 1, bottom_ - top_ - 1);
    cairo_stroke(cr);
    picture_.text((left_ + right_) / 2, bottom_ + 36, x_.label, Anchor::Middle, 12, colour::kLabel);
    picture_.text(16, top_ - 10, y_.label, Anchor::Left, 12, colour::kLabel);
}

void Graph::addRightAxis(Axis y)
{
    rightY_ = std::move(y);
    hasRight_ = true;
    if (rightY_.ticks.empty()) rightY_.ticks = roundTicks(rightY_.from, rightY_.to, 8);
    for (const double v : rightY_.ticks)
        if (rightY_.isBetween(v))
            picture_.text(right_ + 8, py(v, true) + 4, tickText(v, false), Picture::Anchor::Left,
                          11, colour::kAxis);
    picture_.text(Picture::kWidth - 16, top_ - 10, rightY_.label, Picture::Anchor::Right, 12,
                  colour::kLabel);
}

double Graph::py(double y, bool onRight) const noexcept
{
    return bottom_ - (bottom_ - top_) * (onRight ? rightY_ : y_).place(y);
}

void Graph::trace(const std::vector<Point>& points, bool onRight) const
{
    auto* const cr = picture_.context();
    bool isDown = false;
    for (const auto& p : points) {
        if (!std::isfinite(p.y)) {
            isDown = false;
            continue;
        }
        // Far outside is outside; numbers without bounds are not for the painter.
        const double y = std::clamp(py(p.y, onRight), top_ - 4000, bottom_ + 4000);
        isDown ? cairo_line_to(cr, px(p.x), y) : cairo_move_to(cr, px(p.x), y);
        isDown = true;
    }
}

void Graph::line(const std::vector<Point>& points, Colour c, double width, bool isDashed,
                 bool onRight)
{
    auto* const cr = picture_.context();
    cairo_save(cr);
    clipToWell();
    picture_.setColour(c);
    cairo_set_line_width(cr, width);
    constexpr double dash[] = {5, 5};
    if (isDashed) cairo_set_dash(cr, dash, 2, 0);
    trace(points, onRight);
    cairo_stroke(cr);
    cairo_restore(cr);
}

void Graph::area(const std::vector<Point>& points, Colour c, bool onRight)
{
    if (points.empty()) return;
    auto* const cr = picture_.context();
    cairo_save(cr);
    clipToWell();
    picture_.setColour(c, 0.55);
    trace(points, onRight);
    cairo_line_to(cr, px(points.back().x), bottom_);
    cairo_line_to(cr, px(points.front().x), bottom_);
    cairo_close_path(cr);
    cairo_fill(cr);
    cairo_restore(cr);
}

void Graph::clipToWell() const
{
    auto* const cr = picture_.context();
    cairo_rectangle(cr, left_, top_, right_ - left_, bottom_ - top_);
    cairo_clip(cr);
}

void Graph::box(Point from, Point to, Colour c, double alpha)
{
    if (!std::isfinite(from.y) || !std::isfinite(to.y)) return;
    auto* const cr = picture_.context();
    cairo_save(cr);
    clipToWell();
    picture_.setColour(c, alpha);
    cairo_rectangle(cr, px(from.x), py(from.y, false), px(to.x) - px(from.x),
                    py(to.y, false) - py(from.y, false));
    cairo_fill(cr);
    cairo_restore(cr);
}

void Graph::dots(const std::vector<Point>& points, Colour c, double radius, double alpha)
{
    auto* const cr = picture_.context();
    cairo_save(cr);
    clipToWell();
    picture_.setColour(c, alpha);
    for (const Point& p : points)
        cairo_rectangle(cr, px(p.x) - radius, py(p.y, false) - radius, 2 * radius, 2 * radius);
    cairo_fill(cr);
    cairo_restore(cr);
}

void Graph::image(const std::vector<Colour>& pixels, int columns, int rows)
{
    auto* const cr = picture_.context();
    auto* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, columns, rows);
    if (cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS) {
        const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
        auto* const bytes = cairo_image_surface_get_data(surface);
        const auto width = static_cast<std::size_t>(columns);
        for (std::size_t r = 0; r < static_cast<std::size_t>(rows); ++r)
            std::memcpy(bytes + r * stride, &pixels[r * width], width * sizeof(Colour));
        cairo_surface_mark_dirty(surface);
        cairo_save(cr);
        cairo_translate(cr, left_, top_);
        cairo_scale(cr, (right_ - left_) / columns, (bottom_ - top_) / rows);
        cairo_set_source_surface(cr, surface, 0, 0);
        cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_BILINEAR);
        cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
        cairo_rectangle(cr, 0, 0, columns, rows);
        cairo_fill(cr);
        cairo_restore(cr);
    }
    cairo_surface_destroy(surface);
}

void Graph::wave(const std::vector<float>& samples, double from, double step, Colour c)
{
    // Four columns per px keep single echoes visible.
    const auto perColumn = std::max<std::size_t>(
        1, static_cast<std::size_t>(double(samples.size()) / (4 * (right_ - left_))));
    std::vector<Point> points;
    for (std::size_t i = 0; i < samples.size(); i += perColumn) {
        const auto end = std::min(samples.size(), i + perColumn);
        const auto [low, high] = std::minmax_element(samples.begin() + std::ptrdiff_t(i),
                                                     samples.begin() + std::ptrdiff_t(end));
        const double x = from + step * static_cast<double>(i);
        if (perColumn > 1) points.push_back({x, *low});
        points.push_back({x, *high});
    }
    line(points, c, 1.5);
}

void Graph::legend(const std::vector<Key>& keys) const
{
    double x = right_ - (hasRight_ ? 130 : 0);
    auto* const cr = picture_.context();
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) {
        picture_.text(x, top_ - 10, key->text, Picture::Anchor::Right, 12, colour::kLabel);
        x -= picture_.textWidth(key->text, 12) + 24;
        picture_.setColour(key->colour);
        cairo_rectangle(cr, x, top_ - 15.5, 18, 3);
        cairo_fill(cr);
        x -= 18;
    }
}

}  // namespace quillhost
