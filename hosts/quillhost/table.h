// SPDX-License-Identifier: ISC
// Columns of text for people.
#pragma once

#include <string>
#include <vector>

namespace quillhost {

using Row = std::vector<std::string>;

/// The rows with their columns under each other, two blanks between; `rightAligned` columns (by
/// index) end under each other.
std::string columns(const std::vector<Row>& rows,
                    const std::vector<std::size_t>& rightAligned = {});

}  // namespace quillhost
