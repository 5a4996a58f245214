// SPDX-License-Identifier: ISC
#include "editors/canvas.h"

#include <cairo.h>
#include <cctype>
#include <cmath>
#include <cstring>
#include <numbers>

namespace quillworks::editors {
namespace {

std::uint32_t* row(const Pixels& p, int y)
{
    return reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(p.data) + y * p.stride);
}

PixelRect within(const PixelRect& r, int width, int height)
{
    const int x = std::clamp(r.x, 0, width), y = std::clamp(r.y, 0, height);
    return {x, y, std::clamp(r.x + r.w, x, width) - x, std::clamp(r.y + r.h, y, height) - y};
}

/// A premultiplied colour over a pixel that it covers, of 256: two bytes at once, none of whose
/// sums is more than 65535.
std::uint32_t over(std::uint32_t below, std::uint32_t colour, unsigned cover)
{
    const unsigned alpha = colour >> 24;
    const unsigned kept = 256 - cover + ((256 - alpha - (alpha >> 7)) * cover >> 8);
    constexpr std::uint32_t kPair = 0x00FF00FF, kHalf = 0x00800080;
    const auto even = (colour & kPair) * cover + (below & kPair) * kept + kHalf;
    const auto odd = (colour >> 8 & kPair) * cover + (below >> 8 & kPair) * kept + kHalf;
    return (even >> 8 & kPair) | (odd & ~kPair);
}

bool isFinite(const Point& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y);
}

}  // namespace

Image::Image(int width, int height)
    : data_(static_cast<std::size_t>(std::max(width, 0)) *
            static_cast<std::size_t>(std::max(height, 0)))
{
    pixels_ = {data_.data(), width, height, std::ptrdiff_t(width) * 4};
}

Pixels ScrollingImage::pixels() const noexcept
{
    auto part = all_.pixels();
    part.data += left_;
    part.width = width_;
    return part;
}

void ScrollingImage::scroll(int columns) noexcept
{
    const int kept = width_ - columns;
    if (columns < 1 || kept < 1) return;
    left_ += columns;
    if (left_ <= width_) return;
    for (int y = 0; y < height(); ++y)
        std::memmove(row(all_.pixels(), y), row(all_.pixels(), y) + left_,
                     static_cast<std::size_t>(kept) * 4);
    left_ = 0;
}

void Image::clear(const PixelRect& part) noexcept
{
    const auto r = within(part, width(), height());
    for (int y = r.y; y < r.y + r.h; ++y) std::fill_n(row(pixels_, y) + r.x, r.w, 0u);
}

Canvas::Canvas(const Pixels& pixels, double scale, Fonts& fonts, const Theme& theme)
    : pixels_(pixels),
      surface_(cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(pixels.data),
                                                   CAIRO_FORMAT_ARGB32, pixels.width, pixels.height,
                                                   static_cast<int>(pixels.stride))),
      cairo_(cairo_create(surface_)),
      scale_(scale),
      clip_{{0, 0, pixels.width, pixels.height}},
      fonts_(fonts),
      theme_(theme)
{
    cairo_scale(cairo_, scale, scale);
    cairo_set_line_join(cairo_, CAIRO_LINE_JOIN_ROUND);
}

Canvas::~Canvas()
{
    cairo_destroy(cairo_);
    cairo_surface_destroy(surface_);
}

double Canvas::hairline() const noexcept
{
    return std::max(1.0, std::round(scale_)) / scale_;
}

double Canvas::snap(double logical) const noexcept
{
    return std::round(logical * scale_) / scale_;
}

Canvas::Saved::Saved(Canvas& canvas)
    : canvas_(canvas), origin_(canvas.origin_), dim_(canvas.dim_), clip_(canvas.clip_)
{
    cairo_save(canvas.cairo_);
}

Canvas::Saved::~Saved()
{
    cairo_restore(canvas_.cairo_);
    canvas_.origin_ = origin_;
    canvas_.dim_ = dim_;
    canvas_.clip_.swap(clip_);
}

void Canvas::translate(double dx, double dy)
{
    cairo_translate(cairo_, dx, dy);
    origin_ = {origin_.x + dx * scale_, origin_.y + dy * scale_};
}

/// The whole pixels that a rectangle touches.
PixelRect Canvas::outside(const Rect& rect) const noexcept
{
    const auto down = [](double v) { return static_cast<int>(std::floor(v + 1e-6)); };
    const auto up = [](double v) { return static_cast<int>(std::ceil(v - 1e-6)); };
    const int left = down(rect.x * scale_ + origin_.x), top = down(rect.y * scale_ + origin_.y);
    return {left, top, up(rect.right() * scale_ + origin_.x) - left,
            up(rect.bottom() * scale_ + origin_.y) - top};
}

void Canvas::clip(const Rect& rect)
{
    // On whole pixels, where clipping costs nothing.
    const auto part = outside(rect);
    clip({&part, 1});
}

void Canvas::clip(std::span<const PixelRect> parts)
{
    std::vector<PixelRect> left;
    cairo_matrix_t matrix;
    cairo_get_matrix(cairo_, &matrix);
    cairo_identity_matrix(cairo_);
    cairo_new_path(cairo_);
    for (const auto& part : parts) {
        for (const auto& before : clip_)
            if (const auto both = before.common(part); !both.isEmpty()) left.push_back(both);
        cairo_rectangle(cairo_, part.x, part.y, std::max(0, part.w), std::max(0, part.h));
    }
    cairo_clip(cairo_);
    cairo_set_matrix(cairo_, &matrix);
    clip_ = std::move(left);
}

bool Canvas::sees(const Rect& rect) const noexcept
{
    const auto part = outside(rect);
    return std::any_of(clip_.begin(), clip_.end(),
                       [&](const PixelRect& seen) { return seen.overlaps(part); });
}

PixelRect Canvas::inPicture(double x, double y, int width, int height) const noexcept
{
    return {static_cast<int>(std::lround(x * scale_ + origin_.x)),
            static_cast<int>(std::lround(y * scale_ + origin_.y)), width, height};
}

void Canvas::beginPixels()
{
    cairo_surface_flush(surface_);
}

void Canvas::endPixels()
{
    cairo_surface_mark_dirty(surface_);
}

void Canvas::source(Ink ink)
{
    const auto rgb = theme_.rgb(ink.color);
    cairo_set_source_rgba(cairo_, (rgb >> 16 & 0xFF) / 255.0, (rgb >> 8 & 0xFF) / 255.0,
                          (rgb & 0xFF) / 255.0, ink.opacity * dim_);
}

void Canvas::source(const Paint& paint)
{
    if (!(paint.y1 > paint.y0)) return source(paint.top);
    auto* const run = cairo_pattern_create_linear(0, paint.y0, 0, paint.y1);
    const auto stop = [&](double at, Ink ink) {
        const auto rgb = theme_.rgb(ink.color);
        cairo_pattern_add_color_stop_rgba(run, at, (rgb >> 16 & 0xFF) / 255.0,
                                          (rgb >> 8 & 0xFF) / 255.0, (rgb & 0xFF) / 255.0,
                                          ink.opacity * dim_);
    };
    stop(0, paint.top);
    stop(1, paint.bottom);
    cairo_set_source(cairo_, run);
    cairo_pattern_destroy(run);
}

void Canvas::roundedPath(const Rect& r, double radius)
{
    constexpr double q = std::numbers::pi / 2;
    const double k = std::min({radius, r.w / 2, r.h / 2});
    cairo_new_path(cairo_);
    if (k <= 0) return cairo_rectangle(cairo_, r.x, r.y, r.w, r.h);
    cairo_arc(cairo_, r.right() - k, r.y + k, k, -q, 0);
    cairo_arc(cairo_, r.right() - k, r.bottom() - k, k, 0, q);
    cairo_arc(cairo_, r.x + k, r.bottom() - k, k, q, 2 * q);
    cairo_arc(cairo_, r.x + k, r.y + k, k, 2 * q, 3 * q);
    cairo_close_path(cairo_);
}

void Canvas::dashed(Dash dash)
{
    if (dash == Dash::None) return cairo_set_dash(cairo_, nullptr, 0, 0);
    const double dots[] = {1.5, 2.5}, dashes[] = {4, 4};
    cairo_set_dash(cairo_, dash == Dash::Dots ? dots : dashes, 2, 0);
}

void Canvas::strokePath(double width, Ink ink, Dash dash)
{
    source(ink);
    dashed(dash);
    cairo_set_line_width(cairo_, width > 0 ? width : hairline());
    cairo_stroke(cairo_);
}

void Canvas::fill(const Rect& rect, const Paint& paint)
{
    if (rect.isEmpty()) return;
    source(paint);
    cairo_rectangle(cairo_, rect.x, rect.y, rect.w, rect.h);
    cairo_fill(cairo_);
}

void Canvas::fillRounded(const Rect& rect, double radius, const Paint& paint)
{
    if (rect.isEmpty()) return;
    source(paint);
    roundedPath(rect, radius);
    cairo_fill(cairo_);
}

void Canvas::strokeRounded(const Rect& rect, double radius, double width, Ink ink)
{
    const double w = width > 0 ? width : hairline();
    roundedPath(rect.inset(w / 2), radius - w / 2);
    strokePath(w, ink, Dash::None);
}

std::uint32_t Canvas::pixelOf(Ink ink) const noexcept
{
    const auto rgb = theme_.rgb(ink.color);
    const double o = std::clamp(ink.opacity * dim_, 0.0, 1.0);
    const auto part = [&](int shift) {
        return static_cast<std::uint32_t>(o * double(rgb >> shift & 0xFF) + 0.5) << shift;
    };
    return static_cast<std::uint32_t>(255 * o + 0.5) << 24 | part(16) | part(8) | part(0);
}

/// Between two radii, by the distance of each pixel: a twentieth of the time of a path.
void Canvas::ring(Point centre, double inner, double outer, Ink ink)
{
    const float x = static_cast<float>(centre.x * scale_ + origin_.x);
    const float y = static_cast<float>(centre.y * scale_ + origin_.y);
    const float from = static_cast<float>(inner * scale_), to = static_cast<float>(outer * scale_);
    if (!(to > 0) || !std::isfinite(x) || !std::isfinite(y)) return;
    const int left = static_cast<int>(std::floor(x - to - 1)),
              top = static_cast<int>(std::floor(y - to - 1));
    const int size = static_cast<int>(std::ceil(2 * to + 3));
    const auto colour = pixelOf(ink);
    paint({left, top, size, size}, [&](const Pixels& pixels, const PixelRect& part) {
        for (int py = part.y; py < part.bottom(); ++py) {
            auto* const line = row(pixels, py);
            const float dy = static_cast<float>(py) + 0.5f - y;
            for (int px = part.x; px < part.right(); ++px) {
                const float dx = static_cast<float>(px) + 0.5f - x;
                const float d = std::sqrt(dx * dx + dy * dy);
                float cover = std::clamp(to + 0.5f - d, 0.0f, 1.0f);
                if (from > 0) cover -= std::clamp(from + 0.5f - d, 0.0f, 1.0f);
                const auto share = static_cast<unsigned>(256 * std::max(cover, 0.0f) + 0.5f);
                if (share > 0) line[px] = over(line[px], colour, share);
            }
        }
    });
}

void Canvas::circle(Point centre, double radius, const Paint& paint)
{
    if (!(paint.y1 > paint.y0)) return ring(centre, 0, radius, paint.top);
    source(paint);
    cairo_new_path(cairo_);
    cairo_arc(cairo_, centre.x, centre.y, radius, 0, 2 * std::numbers::pi);
    cairo_fill(cairo_);
}

void Canvas::strokeCircle(Point centre, double radius, double width, Ink ink)
{
    const double w = width > 0 ? width : hairline();
    ring(centre, radius - w / 2, radius + w / 2, ink);
}

void Canvas::arc(Point centre, double radius, double from, double to, double width, Ink ink)
{
    const auto angle = [](double degrees) { return (degrees - 90) * std::numbers::pi / 180; };
    cairo_new_path(cairo_);
    cairo_arc(cairo_, centre.x, centre.y, radius, angle(std::min(from, to)),
              angle(std::max(from, to)));
    cairo_set_line_cap(cairo_, CAIRO_LINE_CAP_ROUND);
    strokePath(width, ink, Dash::None);
    cairo_set_line_cap(cairo_, CAIRO_LINE_CAP_BUTT);
}

void Canvas::line(Point a, Point b, double width, Ink ink, Dash dash)
{
    const Point points[] = {a, b};
    polyline(points, width, ink, dash);
}

void Canvas::horizontal(double x0, double x1, double y, Ink ink, Dash dash)
{
    const double w = hairline();
    const double at = snap(y - w / 2) + w / 2;
    line({snap(x0), at}, {snap(x1), at}, w, ink, dash);
}

void Canvas::vertical(double x, double y0, double y1, Ink ink, Dash dash)
{
    const double w = hairline();
    const double at = snap(x - w / 2) + w / 2;
    line({at, snap(y0)}, {at, snap(y1)}, w, ink, dash);
}

void Canvas::polyline(std::span<const Point> points, double width, Ink ink, Dash dash)
{
    cairo_new_path(cairo_);
    bool isDown = false;
    for (const auto& p : points) {
        if (!isFinite(p)) {
            isDown = false;
            continue;
        }
        if (isDown)
            cairo_line_to(cairo_, p.x, p.y);
        else
            cairo_move_to(cairo_, p.x, p.y);
        isDown = true;
    }
    strokePath(width, ink, dash);
}

void Canvas::area(std::span<const Point> points, double base, const Paint& paint)
{
    source(paint);
    cairo_new_path(cairo_);
    for (std::size_t i = 0; i < points.size();) {
        if (!isFinite(points[i])) {
            ++i;
            continue;
        }
        cairo_move_to(cairo_, points[i].x, base);
        std::size_t k = i;
        for (; k < points.size() && isFinite(points[k]); ++k)
            cairo_line_to(cairo_, points[k].x, points[k].y);
        cairo_line_to(cairo_, points[k - 1].x, base);
        cairo_close_path(cairo_);
        i = k;
    }
    cairo_fill(cairo_);
}

void Canvas::polygon(std::span<const Point> points, const Paint& paint)
{
    source(paint);
    cairo_new_path(cairo_);
    for (const auto& p : points)
        if (isFinite(p)) cairo_line_to(cairo_, p.x, p.y);
    cairo_close_path(cairo_);
    cairo_fill(cairo_);
}

void Canvas::image(const Image& image, double x, double y)
{
    if (image.isEmpty()) return;
    const auto& p = image.pixels();
    const auto place = inPicture(x, y, p.width, p.height);
    auto* const picture = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(p.data), CAIRO_FORMAT_ARGB32, p.width, p.height,
        static_cast<int>(p.stride));
    cairo_save(cairo_);
    cairo_identity_matrix(cairo_);
    cairo_set_source_surface(cairo_, picture, place.x, place.y);
    cairo_pattern_set_filter(cairo_get_source(cairo_), CAIRO_FILTER_NEAREST);
    cairo_paint_with_alpha(cairo_, dim_);
    cairo_restore(cairo_);
    cairo_surface_destroy(picture);
}

void Canvas::copy(const Pixels& image, double x, double y)
{
    const auto place = inPicture(x, y, image.width, image.height);
    paint(place, [&](const Pixels& pixels, const PixelRect& part) {
        for (int at = part.y; at < part.bottom(); ++at)
            std::memcpy(row(pixels, at) + part.x, row(image, at - place.y) + part.x - place.x,
                        static_cast<std::size_t>(part.w) * 4);
    });
}

void Canvas::erase(const Rect& rect)
{
    cairo_save(cairo_);
    cairo_set_operator(cairo_, CAIRO_OPERATOR_CLEAR);
    cairo_rectangle(cairo_, rect.x, rect.y, rect.w, rect.h);
    cairo_fill(cairo_);
    cairo_restore(cairo_);
}

double Canvas::textWidth(const Theme::Face& face, std::string_view text)
{
    return fonts_.width(face.weight, face.size, withMinus(text));
}

Rect Canvas::text(const Theme::Face& face, std::string_view text, double x, double baseline,
                  Align align, Ink ink)
{
    const auto shown = withMinus(text);
    const double width = fonts_.width(face.weight, face.size, shown);
    const double left = align == Align::Left    ? x
                        : align == Align::Right ? x - width
                                                : x - width / 2;
    const auto colour = pixelOf(ink);
    const double pen = left * scale_ + origin_.x;
    const int start = static_cast<int>(std::floor(pen));
    const int base = static_cast<int>(std::round(baseline * scale_ + origin_.y));
    beginPixels();
    fonts_.layOut(face.weight, face.size * scale_, pen - start, shown, [&](const Glyph& g, int dx) {
        const PixelRect place{start + dx + g.left, base - g.top, g.width, g.height};
        for (const auto& part : clip_) {
            const auto seen = part.common(place);
            if (!g.coverage || seen.isEmpty()) continue;
            for (int y = seen.y; y < seen.bottom(); ++y) {
                auto* const line = row(pixels_, y);
                const auto* const coverage = g.coverage + (y - place.y) * g.stride - place.x;
                for (int at = seen.x; at < seen.right(); ++at)
                    if (const unsigned c = coverage[at])
                        line[at] = over(line[at], colour, c + (c >> 7));
            }
        }
    });
    endPixels();
    return {left, baseline - face.size * 0.75, width, face.size};
}

std::string Canvas::fitted(Type type, std::string_view text, double width)
{
    std::string shown(text);
    if (textWidth(type, shown) <= width) return shown;
    do {
        while (!shown.empty() && (shown.back() & 0xC0) == 0x80) shown.pop_back();
        if (!shown.empty()) shown.pop_back();
    } while (!shown.empty() && textWidth(type, shown + "…") > width);
    return shown + "…";
}

std::string withMinus(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isSign =
            text[i] == '-' && i + 1 < text.size() &&
            (std::strchr("0123456789.", text[i + 1]) || !text.compare(i, 4, "-inf")) &&
            (i == 0 || !std::isalnum(static_cast<unsigned char>(text[i - 1])));
        if (isSign)
            out += "\u2212";
        else
            out += text[i];
    }
    return out;
}

}  // namespace quillworks::editors
