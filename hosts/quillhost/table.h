// SPDX-License-Identifier: ISC
// Columns of text on standard output.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quillhost {

using Row = std::vector<std::string>;

inline constexpr std::size_t kPageWidth = 100;  // characters

inline constexpr std::size_t kNoColumn = static_cast<std::size_t>(-1);
/// Rows as lines, columns two spaces apart, control characters escaped. Columns named in
/// `rightAligned` stand at their right edge. Where a line would be wider than the page, the column
/// `wrapping`, if there is one, goes on in further lines.
std::string columns(const std::vector<Row>& rows, const std::vector<std::size_t>& rightAligned = {},
                    std::size_t wrapping = kNoColumn);

/// The text in lines of at most `width` characters, broken behind the commas of a list, else at
/// blanks; a longer item stands alone.
std::vector<std::string> wrapped(const std::string& text, std::size_t width);

}  // namespace quillhost
