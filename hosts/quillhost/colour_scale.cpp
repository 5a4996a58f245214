// SPDX-License-Identifier: ISC
#include "colour_scale.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace quillhost {
namespace {

struct Rgb {
    double r, g, b;  // linear
    bool isShown() const
    {
        const auto [least, most] = std::minmax({r, g, b});
        return least >= 0 && most <= 1;
    }
};

/// CIE L*a*b* (D65) to linear sRGB.
Rgb linearOf(double lightness, double a, double b)
{
    const auto cube = [](double t) {
        constexpr double kLinear = 6.0 / 29;
        return t > kLinear ? t * t * t : 3 * kLinear * kLinear * (t - 4.0 / 29);
    };
    const double middle = (lightness + 16) / 116;
    const double x = 0.95047 * cube(middle + a / 500), y = cube(middle),
                 z = 1.08883 * cube(middle - b / 200);
    return {3.2406 * x - 1.5372 * y - 0.4986 * z, -0.9689 * x + 1.8758 * y + 0.0415 * z,
            0.0557 * x - 0.2040 * y + 1.0570 * z};
}

unsigned encoded(double linear)
{
    const double x = std::clamp(linear, 0.0, 1.0);
    const double coded = x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
    return static_cast<unsigned>(std::lround(255 * coded));
}

Colour colourAt(double place)
{
    struct Hue {
        double a, b;
    };
    constexpr Hue kHues[] = {{0, 0}, {45, -75}, {62, -45}, {40, 60}, {2, 20}};
    constexpr int kSpans = static_cast<int>(std::size(kHues)) - 1;
    const int i = std::min(static_cast<int>(place * kSpans), kSpans - 1);
    const double part = place * kSpans - i;
    const double a = kHues[i].a + part * (kHues[i + 1].a - kHues[i].a);
    const double b = kHues[i].b + part * (kHues[i + 1].b - kHues[i].b);
    // As much of the hue as a screen can show at this lightness.
    double chroma = 1;
    Rgb rgb{};
    do {
        rgb = linearOf(5 + 90 * place, chroma * a, chroma * b);
        chroma -= 0.02;
    } while (!rgb.isShown() && chroma > 0);
    return encoded(rgb.r) << 16 | encoded(rgb.g) << 8 | encoded(rgb.b);
}

}  // namespace

const std::array<Colour, 256>& levelColours()
{
    static const auto colours = [] {
        std::array<Colour, 256> all{};
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = colourAt(static_cast<double>(i) / 255);
        return all;
    }();
    return colours;
}

}  // namespace quillhost
