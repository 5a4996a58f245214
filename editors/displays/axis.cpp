// SPDX-License-Identifier: ISC
#include "editors/displays/axis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace quillworks::editors {
namespace {

std::string printed(double value, int decimals)
{
    std::array<char, 64> text{};
    const int n = std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
    return {text.data(), static_cast<std::size_t>(std::clamp(n, 0, 63))};
}

/// With at most `digits` behind the point, none of them a nought at the end.
std::string trimmed(double value, int digits)
{
    auto text = printed(value, digits);
    if (text.find('.') == std::string::npos) return text;
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

}  // namespace

double Axis::position(double value) const noexcept
{
    if (isLogarithmic) return std::log(value / minimum) / std::log(maximum / minimum);
    return (value - minimum) / (maximum - minimum);
}

double Axis::value(double position) const noexcept
{
    if (isLogarithmic) return minimum * std::pow(maximum / minimum, position);
    return minimum + position * (maximum - minimum);
}

double Axis::limited(double value) const noexcept
{
    const double p = position(value);
    return p < 0 ? 0 : p > 1 ? 1 : p;
}

std::vector<Tick> frequencyTicks(const Axis& hertz)
{
    std::vector<Tick> ticks;
    const double low = std::min(hertz.minimum, hertz.maximum) * 0.9999;
    const double high = std::max(hertz.minimum, hertz.maximum) * 1.0001;
    if (!(low > 0 && std::isfinite(high))) return ticks;  // no end of decades
    for (double decade = std::pow(10, std::floor(std::log10(low))); decade <= high; decade *= 10) {
        for (int n = 1; n < 10; ++n) {
            const double value = decade * n;
            if (value < low || value > high) continue;
            const bool hasText = n == 1 || n == 2 || n == 5;
            ticks.push_back({value, hasText ? shortFrequency(value) : "", n == 1});
        }
    }
    return ticks;
}

std::vector<Tick> linearTicks(const Axis& axis, int most, bool inDecibels)
{
    constexpr std::array decibels{1.0, 2.0, 3.0, 6.0, 12.0, 24.0, 48.0};
    const double low = std::min(axis.minimum, axis.maximum);
    const double high = std::max(axis.minimum, axis.maximum);
    const double least = (high - low) / std::max(1, most);
    double step = 0;
    if (inDecibels && least <= decibels.back()) {
        step = *std::lower_bound(decibels.begin(), decibels.end(), least * (1 - 1e-9));
    } else {
        const double power = std::pow(10, std::floor(std::log10(least)));
        for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
            step = power * factor;
            if (step >= least * (1 - 1e-9)) break;
        }
    }
    std::vector<Tick> ticks;
    if (!(step > 0)) return ticks;
    const int decimals = step < 0.1 ? 2 : step < 1 ? 1 : 0;
    const double rounding = 1e-6 * step;
    for (double n = std::ceil((low - rounding) / step); n * step <= high + rounding; ++n)
        ticks.push_back({n * step + 0.0, figure(n * step, decimals), n == 0});  // no nought below 0
    return ticks;
}

std::string figure(double value, int decimals, bool isSigned)
{
    if (!std::isfinite(value)) return "-";
    const auto text = printed(std::abs(value), decimals);
    const bool isZero = text.find_first_of("123456789") == std::string::npos;
    if (isZero) return text;
    if (value < 0) return "\u2212" + text;
    return isSigned ? "+" + text : text;
}

std::string shortFrequency(double hertz)
{
    if (!std::isfinite(hertz)) return "-";
    if (hertz >= 999.5) return trimmed(hertz / 1000, hertz < 9995 ? 2 : 1) + "k";
    return trimmed(hertz, hertz < 9.995 ? 1 : 0);
}

std::string frequencyText(double hertz)
{
    auto text = shortFrequency(hertz);
    const bool isLarge = text.back() == 'k';
    if (isLarge) text.pop_back();
    return text + (isLarge ? " kHz" : " Hz");
}

std::string shortTime(double seconds)
{
    if (!std::isfinite(seconds)) return "-";
    if (seconds >= 0.9995) return trimmed(seconds, seconds < 9.995 ? 2 : 1) + " s";
    return trimmed(seconds * 1000, seconds < 0.00995 ? 2 : seconds < 0.0995 ? 1 : 0) + " ms";
}

}  // namespace quillworks::editors
