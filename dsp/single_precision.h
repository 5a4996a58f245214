// SPDX-License-Identifier: ISC
// Rounding to single precision that takes place.
#pragma once

namespace quillworks {

/// `v` rounded to single precision, as a double. By way of memory: where several values that are
/// narrowed and widened again at once become a vector, g++ 12 leaves both conversions out.
inline double toSingle(double v) noexcept
{
    const volatile float single = static_cast<float>(v);
    return single;
}

}  // namespace quillworks
