// SPDX-License-Identifier: ISC
#include "framework/base64.h"

#include <array>
#include <cstdint>

namespace quillworks {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr auto kValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < kDigits.size(); ++i)
        values[static_cast<unsigned char>(kDigits[i])] = static_cast<std::int8_t>(i);
    return values;
}();

}  // namespace

std::string base64(std::string_view bytes)
{
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group =
                group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            out += i + k <= bytes.size() ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

bool readBase64(std::string_view text, std::string& bytes)
{
    if (text.size() % 4 != 0) return false;
    std::size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=')
        ++padding;
    text.remove_suffix(padding);
    std::string read;
    read.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int value = kValues[static_cast<unsigned char>(text[i])];
        if (value < 0) return false;
        group = group << 6 | static_cast<std::uint32_t>(value);
        // A digit completes the byte that the one before it began.
        if (const auto bits = 6 * (i % 4 + 1) % 8; i % 4 != 0)
            read += static_cast<char>(group >> bits & 0xFF);
    }
    bytes = std::move(read);
    return true;
}

}  // namespace quillworks
