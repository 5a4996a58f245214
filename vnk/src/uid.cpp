// SPDX-License-Identifier: ISC
#include "vnk/uid.h"

#include <cstdio>

namespace VNK {

bool UID::parse(std::string_view text, UID& id) noexcept
{
    if (text.size() != 38 || text.front() != '{' || text.back() != '}') return false;
    UID read;
    std::size_t digits = 0;
    for (std::size_t i = 1; i < 37; ++i) {
        if (i == 9 || i == 14 || i == 19 || i == 24) {
            if (text[i] != '-') return false;
            continue;
        }
        const int v = digit(text[i]);
        if (v < 0) return false;
        auto& byte = read.bytes[digits++ / 2];
        byte = static_cast<std::uint8_t>(byte << 4 | v);
    }
    id = read;
    return true;
}

std::string UID::text() const
{
    const auto& b = bytes;
    const auto word = [&](std::size_t i) { return static_cast<unsigned>(b[i] << 8 | b[i + 1]); };
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  static_cast<unsigned long>(word(0)) << 16 | word(2), word(4), word(6), b[8], b[9],
                  b[10], b[11], b[12], b[13], b[14], b[15]);
    return buffer;
}

}  // namespace VNK
