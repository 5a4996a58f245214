// SPDX-License-Identifier: ISC
#include "editors/control.h"

#include <charconv>
#include <cmath>

namespace quillworks::editors {

std::string Control::shortened(const std::string& text)
{
    const auto end = text.find_first_not_of("+-0123456789.");
    const auto point = text.find('.');
    if (point == std::string::npos || point >= end) return text;
    double value = 0;
    const auto number = text.substr(0, end);
    const auto read = std::from_chars(number.data(), number.data() + number.size(), value);
    if (read.ec != std::errc() || read.ptr != number.data() + number.size()) return text;
    const double size = std::abs(value);
    const int wanted = size >= 100 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : 3;
    if (static_cast<int>(number.size() - point) - 1 <= wanted) return text;
    char rounded[64];
    const auto written =
        std::to_chars(rounded, rounded + sizeof rounded, value, std::chars_format::fixed, wanted);
    return std::string(rounded, written.ptr) +
           (end == std::string::npos ? std::string() : text.substr(end));
}

void Control::checkText(Fonts& fonts, const Theme::Face& face, const std::string& text, double room,
                        std::vector<std::string>& problems) const
{
    const double width = fonts.width(face.weight, face.size, withMinus(text));
    if (width > room + 0.5)
        problems.push_back(kind_ + " \"" + title_ + "\": the text \"" + text + "\" takes " +
                           std::to_string(std::lround(width)) + " px of " +
                           std::to_string(std::lround(room)));
}

}  // namespace quillworks::editors
