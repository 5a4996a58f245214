// SPDX-License-Identifier: ISC
// What editors draw with: shapes, lines and text in the theme's colours, in logical pixels.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "editors/fonts.h"
#include "editors/geometry.h"
#include "editors/surface.h"
#include "editors/theme.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace quillworks::editors {

/// A picture of its own, in device pixels, empty (transparent) at first.
class Image {
public:
    Image() = default;
    Image(int width, int height);

    int width() const noexcept { return pixels_.width; }
    int height() const noexcept { return pixels_.height; }
    bool isEmpty() const noexcept { return data_.empty(); }
    const Pixels& pixels() const noexcept { return pixels_; }
    void clear(const PixelRect& part) noexcept;

private:
    std::vector<std::uint32_t> data_;
    Pixels pixels_;
};

/// A picture that moves to the left: the place for it is twice as wide, so that nothing has to be
/// moved most of the time.
class ScrollingImage {
public:
    ScrollingImage() = default;
    ScrollingImage(int width, int height) : all_(2 * width, height), width_(width) {}

    int width() const noexcept { return width_; }
    int height() const noexcept { return all_.height(); }
    bool isEmpty() const noexcept { return all_.isEmpty(); }
    /// As it stands now.
    Pixels pixels() const noexcept;
    /// By some columns, less than it has; its last ones are to be painted then.
    void scroll(int columns) noexcept;

private:
    Image all_;
    int width_ = 0, left_ = 0;
};

/// One colour, or a vertical run from one to another.
struct Paint {
    Ink top = Color::Text, bottom = Color::Text;
    double y0 = 0, y1 = 0;  // equal: one colour

    Paint(Color c) : top(c), bottom(c) {}
    Paint(Ink ink) : top(ink), bottom(ink) {}
    Paint(Ink from, double yFrom, Ink to, double yTo) : top(from), bottom(to), y0(yFrom), y1(yTo) {}
};

enum class Align { Left, Centre, Right };
enum class Dash { None, Dots, Dashes };

class Canvas {
public:
    /// Draws into `pixels`, of which one logical pixel takes `scale` by `scale`. All must outlive
    /// the canvas.
    Canvas(const Pixels& pixels, double scale, Fonts& fonts, const Theme& theme);
    ~Canvas();
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    double scale() const noexcept { return scale_; }
    /// A picture of the same size with what lies beneath everything that moves; empty where there
    /// is none.
    void setGround(const Pixels& ground) noexcept { ground_ = ground; }
    const Pixels& ground() const noexcept { return ground_; }
    const Theme& theme() const noexcept { return theme_; }
    Fonts& fonts() const noexcept { return fonts_; }
    /// Width of a line of 1 px, whole device pixels.
    double hairline() const noexcept;
    /// The nearest border of device pixels.
    double snap(double logical) const noexcept;

    /// What is set until the returned object goes: place, clip, dimming.
    class Saved {
    public:
        explicit Saved(Canvas& canvas);
        ~Saved();
        Saved(const Saved&) = delete;
        Saved& operator=(const Saved&) = delete;

    private:
        Canvas& canvas_;
        Point origin_;
        double dim_;
        std::vector<PixelRect> clip_;
    };
    [[nodiscard]] Saved save() { return Saved(*this); }
    void translate(double dx, double dy);
    void clip(const Rect& rect);
    /// To parts of the picture that do not overlap, in its own pixels.
    void clip(std::span<const PixelRect> parts);
    /// Whether anything of a rectangle is within the clip.
    bool sees(const Rect& rect) const noexcept;
    double opacity() const noexcept { return dim_; }
    /// Everything from now on at this part of its opacity.
    void dim(double opacity) noexcept { dim_ *= opacity; }

    void fill(const Rect& rect, const Paint& paint);
    void fillRounded(const Rect& rect, double radius, const Paint& paint);
    /// The line lies within the rectangle; 0 width: a hairline.
    void strokeRounded(const Rect& rect, double radius, double width, Ink ink);
    void circle(Point centre, double radius, const Paint& paint);
    void strokeCircle(Point centre, double radius, double width, Ink ink);
    /// Clockwise, degrees from 12 o'clock; the ends are round.
    void arc(Point centre, double radius, double from, double to, double width, Ink ink);
    void line(Point a, Point b, double width, Ink ink, Dash dash = Dash::None);
    /// Hairlines on the device grid.
    void horizontal(double x0, double x1, double y, Ink ink, Dash dash = Dash::None);
    void vertical(double x, double y0, double y1, Ink ink, Dash dash = Dash::None);
    /// Lines through points; one that is not finite leaves a gap.
    void polyline(std::span<const Point> points, double width, Ink ink, Dash dash = Dash::None);
    /// The area between points and a horizontal line.
    void area(std::span<const Point> points, double base, const Paint& paint);
    void polygon(std::span<const Point> points, const Paint& paint);
    /// At (x, y), pixel by pixel.
    void image(const Image& image, double x, double y);
    /// The same for a picture without holes, over whatever is there.
    void copy(const Pixels& image, double x, double y);
    /// Where a point lies in the picture, to the nearest border of pixels.
    PixelRect inPicture(double x, double y, int width, int height) const noexcept;
    /// For pictures drawn pixel by pixel: calls `draw(pixels, part)` with the whole picture and
    /// each part of a rectangle, in its pixels, that is within the clip.
    template <class F> void paint(const PixelRect& rect, F&& draw)
    {
        beginPixels();
        for (const auto& part : clip_)
            if (const auto seen = part.common(rect); !seen.isEmpty()) draw(pixels_, seen);
        endPixels();
    }
    /// Pixels within the current clip are set to nothing.
    void erase(const Rect& rect);

    double textWidth(Type type, std::string_view text) { return textWidth(face(type), text); }
    double textWidth(const Theme::Face& face, std::string_view text);
    /// "-" before a digit is drawn as a minus sign. Returns the text's extent.
    Rect text(Type type, std::string_view text, double x, double baseline, Align align, Ink ink)
    {
        return this->text(face(type), text, x, baseline, align, ink);
    }
    Rect text(const Theme::Face& face, std::string_view text, double x, double baseline,
              Align align, Ink ink);
    /// The text, or as much of it as there is room for and an ellipsis.
    std::string fitted(Type type, std::string_view text, double width);
    const Theme::Face& face(Type type) const noexcept { return theme_.face(type); }

private:
    friend class Saved;
    std::uint32_t pixelOf(Ink ink) const noexcept;
    void ring(Point centre, double inner, double outer, Ink ink);
    void source(Ink ink);
    void source(const Paint& paint);
    void roundedPath(const Rect& rect, double radius);
    void strokePath(double width, Ink ink, Dash dash);
    void dashed(Dash dash);
    PixelRect outside(const Rect& rect) const noexcept;
    void beginPixels();
    void endPixels();

    Pixels pixels_, ground_;
    cairo_surface_t* surface_;
    cairo_t* cairo_;
    double scale_;
    Point origin_;  // of what is drawn, device pixels
    double dim_ = 1;
    std::vector<PixelRect> clip_;
    Fonts& fonts_;
    const Theme& theme_;
};

/// With a minus sign (U+2212) where a hyphen stands before a digit or ".".
std::string withMinus(std::string_view text);

}  // namespace quillworks::editors
