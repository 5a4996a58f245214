// SPDX-License-Identifier: ISC
// 16-byte identifiers of classes and interfaces, and their registry form.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "vnk/export.h"

namespace VNK {

struct UID {
    std::uint8_t bytes[16] = {};

    friend bool operator==(const UID&, const UID&) = default;
    friend auto operator<=>(const UID&, const UID&) = default;

    /// The identifier written as {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}, bytes in reading order.
    /// Anything else gives a compile error, since the function is only for constants.
    static consteval UID constant(std::string_view text)
    {
        UID id;
        std::size_t digits = 0;
        if (text.size() != 38 || text.front() != '{' || text.back() != '}') throw "not a UID";
        for (std::size_t i = 1; i < 37; ++i) {
            if (i == 9 || i == 14 || i == 19 || i == 24) {
                if (text[i] != '-') throw "not a UID";
                continue;
            }
            const int v = digit(text[i]);
            if (v < 0) throw "not a UID";
            auto& byte = id.bytes[digits / 2];
            byte = static_cast<std::uint8_t>(byte << 4 | v);
            ++digits;
        }
        return id;
    }

    /// Reads the registry form, upper or lower case. Returns false and leaves `id` alone otherwise.
    VNK_API static bool parse(std::string_view text, UID& id) noexcept;

    /// The registry form, upper case.
    VNK_API std::string text() const;

private:
    static constexpr int digit(char c)
    {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    }
};

}  // namespace VNK
