// SPDX-License-Identifier: ISC
// Pictures of views beside stored ones, alike but for how versions of a library smooth their edges.
#pragma once

#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>

#include "editors/canvas.h"

namespace quillworks::test {

/// Empty where the file cannot be read.
inline editors::Image readPicture(const std::string& path)
{
    auto* const surface = cairo_image_surface_create_from_png(path.c_str());
    editors::Image picture;
    if (cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS) {
        picture = editors::Image(cairo_image_surface_get_width(surface),
                                 cairo_image_surface_get_height(surface));
        const auto* from = cairo_image_surface_get_data(surface);
        const auto stride = cairo_image_surface_get_stride(surface);
        const auto& to = picture.pixels();
        for (int y = 0; y < to.height; ++y)
            std::memcpy(reinterpret_cast<char*>(to.data) + y * to.stride, from + y * stride,
                        static_cast<std::size_t>(to.width) * sizeof *to.data);
    }
    cairo_surface_destroy(surface);
    return picture;
}

inline bool writePicture(const editors::Image& picture, const std::string& path)
{
    const auto& p = picture.pixels();
    auto* const surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(p.data), CAIRO_FORMAT_RGB24, p.width, p.height,
        static_cast<int>(p.stride));
    const bool isWritten =
        cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface);
    return isWritten;
}

/// How two pictures of one size differ, by squares of 8 x 8 pixels, in 255ths of a colour.
struct PictureDifference {
    double most = 0;           // mean distance of the colours in the worst square
    int x = 0, y = 0;          // where that is
    double tintedSquares = 0;  // share of the squares whose mean colour is another one

    /// Edges that are smoothed otherwise move a square by a few 255ths and leave its mean; a text
    /// or a line elsewhere moves one by dozens, and another colour the means of many.
    bool isSeen() const noexcept { return most > 14 || tintedSquares > 0.02; }
};

inline PictureDifference differenceOf(const editors::Image& a, const editors::Image& b)
{
    constexpr int kSquare = 8;
    constexpr double kTint = 2.5;
    PictureDifference found;
    int squares = 0, tinted = 0;
    const auto pixel = [](const editors::Image& image, int x, int y) {
        const auto& p = image.pixels();
        return *(reinterpret_cast<const std::uint32_t*>(reinterpret_cast<const char*>(p.data) +
                                                        y * p.stride) +
                 x);
    };
    for (int top = 0; top < a.height(); top += kSquare)
        for (int left = 0; left < a.width(); left += kSquare) {
            std::array<int, 3> distance{}, shift{};
            int count = 0;
            for (int y = top; y < std::min(top + kSquare, a.height()); ++y)
                for (int x = left; x < std::min(left + kSquare, a.width()); ++x, ++count)
                    for (std::size_t c = 0; c < 3; ++c) {
                        const int d = static_cast<int>(pixel(a, x, y) >> 8 * c & 0xFF) -
                                      static_cast<int>(pixel(b, x, y) >> 8 * c & 0xFF);
                        distance[c] += std::abs(d);
                        shift[c] += d;
                    }
            const double mean = double(*std::max_element(distance.begin(), distance.end())) / count;
            if (mean > found.most) found.most = mean, found.x = left, found.y = top;
            ++squares;
            tinted += std::any_of(shift.begin(), shift.end(),
                                  [&](int s) { return std::abs(s) > kTint * count; });
        }
    found.tintedSquares = squares ? double(tinted) / squares : 0;
    return found;
}

}  // namespace quillworks::test
