// SPDX-License-Identifier: ISC
// Texts between UTF-8 and the UTF-16 of the format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace quillworks::vst3 {

/// Writes the text and a zero, cut at a whole character where it is too long.
void writeText(std::int16_t* to, std::size_t size, std::string_view text) noexcept;
template <std::size_t size> void writeText(std::int16_t (&to)[size], std::string_view text) noexcept
{
    writeText(to, size, text);
}
/// The same in UTF-8.
template <std::size_t size> void writeText(char (&to)[size], std::string_view text) noexcept
{
    const auto n = text.size() < size ? text.size() : size - 1;
    text.copy(to, n);
    to[n] = 0;
}
/// Up to the zero, 128 units at most. May throw std::bad_alloc.
std::string readText(const std::int16_t* text);

}  // namespace quillworks::vst3
