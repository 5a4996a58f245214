// SPDX-License-Identifier: ISC
// The control grid: smoothing and modulation advance once per sub-block of 32 frames, counted from
// the last reset and not from the start of a host block, so that their speed does not depend on how
// the host divides the signal.
#pragma once

namespace quillworks {

inline constexpr int kSubBlock = 32;  // frames

/// A run of frames within one sub-block (frames <= kSubBlock - phase), or a longer run that starts
/// at `phase`.
struct GridSlice {
    int frames = 0;
    int phase = 0;  // frames of the open sub-block already processed, 0 .. 31

    /// Whether a sub-block begins here: smoothed values and modulation advance now.
    bool begins() const noexcept { return phase == 0; }
    /// Whether the sub-block ends with this slice.
    bool ends() const noexcept { return phase + frames == kSubBlock; }
};

inline constexpr GridSlice kWholeSubBlock{kSubBlock, 0};

/// A value that moves linearly from `from` (before the first frame) to `to` (at the last one).
template <typename T> struct Ramp {
    T from, to;

    bool isConstant() const noexcept { return from == to; }
};

/// The piece that `slice` covers of a ramp over a whole sub-block; the ends of the sub-block are
/// met exactly.
template <typename T> Ramp<T> rampSlice(Ramp<T> whole, GridSlice slice) noexcept
{
    if (whole.isConstant()) return whole;
    const T step = (whole.to - whole.from) / T(kSubBlock);
    const int end = slice.phase + slice.frames;
    return {slice.phase == 0 ? whole.from : whole.from + step * T(slice.phase),
            end == kSubBlock ? whole.to : whole.from + step * T(end)};
}

}  // namespace quillworks
