// SPDX-License-Identifier: ISC
// Names, numbers and their errors. Numbers use "." in every locale.
#pragma once

#include <charconv>
#include <cmath>
#include <span>
#include <string>
#include <string_view>

#include "error.h"

namespace quillhost {

/// Lower case without blanks, hyphens and underscores: how names are compared.
std::string folded(std::string_view name);
inline bool sameName(std::string_view a, std::string_view b)
{
    return folded(a) == folded(b);
}

/// "(nearest: A, B, C)", or "" without names.
std::string nearest(std::string_view word, std::span<const std::string> names);

/// The text with what a terminal would obey (control characters, C0 and C1) written as "\n" or
/// "\x1b"; all else as it is.
std::string escaped(std::string_view text);
std::string inQuotes(std::string_view text);

/// Reads all of `text` as a finite number; false otherwise.
template <class N> bool readNumber(std::string_view text, N& value)
{
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    const auto end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) return false;
    if constexpr (std::is_floating_point_v<N>) return std::isfinite(value);
    return true;
}

/// The shortest text that reads back as the same value.
template <class N> std::string shortText(N value)
{
    char buffer[64];
    return {buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr};
}
/// With a fixed number of digits after the point; "-0" becomes "0".
std::string fixedText(double value, int digits);

/// The double that prints like the float does: 0.1 rather than 0.10000000149.
double asShown(float value);

/// A number from the command line within its range; UsageError names what is right.
template <class N> N number(std::string_view what, std::string_view text, N min, N max)
{
    N value{};
    if (!readNumber(text, value) || value < min || value > max)
        throw UsageError(std::string(what) + " does not take " + inQuotes(text) + " (" +
                         shortText(min) + " to " + shortText(max) + ")");
    return value;
}

}  // namespace quillhost
