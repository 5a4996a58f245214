// SPDX-License-Identifier: ISC
#include "table.h"

#include <algorithm>

namespace quillhost {
namespace {

/// Characters, not bytes, of a UTF-8 text.
std::size_t width(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::string columns(const std::vector<Row>& rows, const std::vector<std::size_t>& rightAligned)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string space(widths[i] - width(row[i]), ' ');
            const bool right =
                std::find(rightAligned.begin(), rightAligned.end(), i) != rightAligned.end();
            line += (i ? "  " : "") + (right ? space + row[i] : row[i] + space);
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

}  // namespace quillhost
