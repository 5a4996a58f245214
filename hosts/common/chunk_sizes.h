// SPDX-License-Identifier: ISC
// What the headers of AIFF, W64, AU and CAF files say of their own length, so that one that was cut
// short is noticed: libsndfile takes what is there for the whole.
#pragma once

#include <cstdint>
#include <string>

namespace quillhost {

/// Whether a 32-bit size is one of those that programs leave where they could not know it: all
/// ones, or the largest signed one, each less a header and rounding to frames.
constexpr bool isUnknownSize(std::uint32_t size) noexcept
{
    return size >= 0xFFFFF000 || (size >= 0x7FFFF000 && size <= 0x7FFFFFFF);
}

/// Reads an open file of `bytes` bytes. Where its audio is said to end beyond the end of the file,
/// the reason to refuse it; empty for whole files and those of other kinds.
std::string cutShort(int fd, std::int64_t bytes);

}  // namespace quillhost
