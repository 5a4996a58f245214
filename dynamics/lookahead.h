// SPDX-License-Identifier: ISC
// Look-ahead: the audio is delayed behind its gain, and the gain changes only at zero crossings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/delay_line.h"
#include "dsp/vec.h"

namespace quillworks {

/// Look-ahead of the pack's dynamics effects in samples: 2 ms.
inline int lookAheadFrames(double sampleRate) noexcept
{
    return static_cast<int>(sampleRate * 0.002 + 0.5);
}

/// Gains of a sub-block with room in front for the one that is still held.
template <typename T> struct GainBuffer {
    T room[kSubBlock + 1];
    T* values() noexcept { return room + 1; }
};

/// One channel's delay and held gain.
template <typename T> class LookAhead {
public:
    void prepare(int frames) { line_.prepare(frames); }
    void reset() noexcept
    {
        line_.reset();
        held_ = 1;
    }
    /// x = its delayed self, gain 1.
    void delay(T* x, int n) noexcept { vec::copy(x, line_.push(x, n), n); }
    /// x = its delayed self times the held gain, which takes the value of `gains` where the sign of
    /// the delayed signal differs from the sample before, and at zeros (0 counts as negative).
    /// `isConstant`: all gains are the same.
    void run(T* x, GainBuffer<T>& gains, bool isConstant, int n) noexcept
    {
        const T* const s = line_.push(x, n);
        T* const gain = gains.values();
        if (isConstant && gain[0] == held_)
            return gain[0] == 1 ? vec::copy(x, s, n) : vec::scaleCopy(x, s, gain[0], n);
        // Which gain holds is found in integers, so that a noisy signal costs no branches.
        using Bits = std::conditional_t<sizeof(T) == 4, std::int32_t, std::int64_t>;
        Bits keeps[kSubBlock];  // all ones for true
        for (int i = 0; i < n; ++i)
            keeps[i] = ((s[i] > 0) == (s[i - 1] > 0)) & (s[i] != 0) ? Bits(-1) : Bits(0);
        gain[-1] = held_;
        std::ptrdiff_t at = -1;
        for (int i = 0; i < n; ++i) {
            at = keeps[i] ? at : i;
            x[i] = s[i] * gain[at];
        }
        held_ = gain[at];
    }

private:
    DelayLine<T> line_;
    T held_ = 1;
};

}  // namespace quillworks
