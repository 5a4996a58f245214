// SPDX-License-Identifier: ISC
// The module's version as LV2 counts versions.
#pragma once

#include <algorithm>
#include <charconv>
#include <string>

namespace quillworks::lv2 {

/// Even numbers are releases, 0 stands for none yet. Of two versions the later one has the greater
/// pair, as hosts compare them; each of the three parts goes to 999.
struct Version {
    int minor, micro;

    /// "5.0.0"; what is missing counts as 0.
    static Version of(const char* text)
    {
        int parts[3] = {};
        const char* at = text;
        const char* const end = text + std::char_traits<char>::length(text);
        for (int& part : parts) {
            const auto read = std::from_chars(at, end, part);
            if (read.ec != std::errc()) break;
            part = std::clamp(part, 0, 999);
            at = read.ptr < end ? read.ptr + 1 : end;
        }
        return {2 * (1000 * parts[0] + parts[1]), 2 * parts[2]};
    }
};

}  // namespace quillworks::lv2
