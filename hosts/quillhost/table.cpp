// SPDX-License-Identifier: ISC
#include "table.h"

#include <algorithm>
#include <numeric>

#include "text.h"

namespace quillhost {
namespace {

/// Characters, not bytes, of a UTF-8 text.
std::size_t width(const std::string& text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::vector<std::size_t> widthsOf(const std::vector<Row>& rows)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
    }
    return widths;
}

/// Cuts column `at` to `most` characters; what is over stands below, in rows of its own.
std::vector<Row> withWrapped(const std::vector<Row>& rows, std::size_t at, std::size_t most)
{
    std::vector<Row> result;
    for (const auto& row : rows) {
        result.push_back(row);
        if (row.size() <= at) continue;
        const auto lines = wrapped(row[at], most);
        if (lines.empty()) continue;
        result.back()[at] = lines[0];
        for (std::size_t i = 1; i < lines.size(); ++i) {
            result.emplace_back(at + 1);
            result.back()[at] = lines[i];
        }
    }
    return result;
}

}  // namespace

std::vector<std::string> wrapped(const std::string& text, std::size_t most)
{
    std::vector<std::string> lines;
    // The items of a list stay whole; their commas stay with them.
    const std::string separator = text.find(", ") == std::string::npos ? " " : ", ";
    for (std::size_t at = 0; at < text.size();) {
        const auto end = std::min(text.find(separator, at), text.size());
        const auto word = text.substr(at, end + separator.size() - 1 - at);
        at = end + separator.size();
        if (!lines.empty() && width(lines.back()) + 1 + width(word) <= most)
            lines.back() += " " + word;
        else
            lines.push_back(word);
    }
    return lines;
}

std::string columns(const std::vector<Row>& given, const std::vector<std::size_t>& rightAligned,
                    std::size_t wrapping)
{
    constexpr std::size_t kGap = 2, kLeast = 16;
    auto rows = given;
    for (auto& row : rows)
        for (auto& cell : row) cell = escaped(cell);
    auto widths = widthsOf(rows);
    if (wrapping < widths.size()) {
        const auto all = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
        const auto others = all - widths[wrapping];
        if (all > kPageWidth) {
            rows = withWrapped(rows, wrapping, std::max(kLeast + others, kPageWidth) - others);
            widths = widthsOf(rows);
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string space(widths[i] - width(row[i]), ' ');
            const bool right =
                std::find(rightAligned.begin(), rightAligned.end(), i) != rightAligned.end();
            line += std::string(i ? kGap : 0, ' ') + (right ? space + row[i] : row[i] + space);
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

}  // namespace quillhost
