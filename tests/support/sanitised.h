// SPDX-License-Identifier: ISC
// Whether this is a build with a sanitizer.
#pragma once

namespace quillworks::test {

/// Slower tenfold, and for faults of memory and threads, not of sound: sweeps keep to their
/// corners.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitised = true;
#else
inline constexpr bool kIsSanitised = false;
#endif

}  // namespace quillworks::test
