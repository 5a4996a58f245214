// SPDX-License-Identifier: ISC
// Names as parts of URIs and file names.
#pragma once

#include <cctype>
#include <string>
#include <string_view>

namespace quillworks::adapters {

/// "Vocal Bus, soft" as "vocal-bus-soft".
inline std::string slug(std::string_view name)
{
    std::string out;
    for (const char c : name)
        if (std::isalnum(static_cast<unsigned char>(c)))
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        else if (!out.empty() && out.back() != '-')
            out += '-';
    while (!out.empty() && out.back() == '-') out.pop_back();
    return out;
}

}  // namespace quillworks::adapters
