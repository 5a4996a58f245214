// SPDX-License-Identifier: ISC
#include "adapters/vst3/text.h"

namespace quillworks::vst3 {
namespace {

constexpr std::size_t kLongest = 128;  // units of a text that a host hands over
constexpr std::uint32_t kUnknown = 0xFFFD;

/// The next character; advances `text`. What is not UTF-8 becomes the character for that.
std::uint32_t next(std::string_view& text) noexcept
{
    const auto lead = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    if (lead < 0x80) return lead;
    const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < more) return kUnknown;
    std::uint32_t code = lead & (0x3Fu >> more);
    for (std::size_t i = 0; i < more; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) return kUnknown;
        code = code << 6 | (byte & 0x3Fu);
    }
    text.remove_prefix(more);
    return code;
}

}  // namespace

void writeText(std::int16_t* to, std::size_t size, std::string_view text) noexcept
{
    std::size_t n = 0;
    while (!text.empty()) {
        const std::uint32_t code = next(text);
        if (n + (code > 0xFFFF ? 2 : 1) >= size) break;
        if (code > 0xFFFF) {
            to[n++] = static_cast<std::int16_t>(0xD800 + ((code - 0x10000) >> 10));
            to[n++] = static_cast<std::int16_t>(0xDC00 + (code & 0x3FF));
        } else {
            to[n++] = static_cast<std::int16_t>(code);
        }
    }
    to[n] = 0;
}

std::string readText(const std::int16_t* text)
{
    std::string out;
    const auto unit = [&](std::size_t i) { return static_cast<std::uint16_t>(text[i]); };
    for (std::size_t i = 0; text && i < kLongest && text[i] != 0; ++i) {
        std::uint32_t code = unit(i);
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < kLongest && (unit(i + 1) & 0xFC00) == 0xDC00)
            code = 0x10000 + ((code & 0x3FF) << 10) + (unit(++i) & 0x3FFu);
        const auto add = [&](std::uint32_t byte) { out += static_cast<char>(byte); };
        const auto addMore = [&](int shift) { add(0x80 | (code >> shift & 0x3F)); };
        if (code < 0x80) {
            add(code);
        } else if (code < 0x800) {
            add(0xC0 | code >> 6);
            addMore(0);
        } else if (code < 0x10000) {
            add(0xE0 | code >> 12);
            addMore(6);
            addMore(0);
        } else {
            add(0xF0 | code >> 18);
            addMore(12);
            addMore(6);
            addMore(0);
        }
    }
    return out;
}

}  // namespace quillworks::vst3
