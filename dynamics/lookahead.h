// SPDX-License-Identifier: ISC
// Look-ahead: the audio is delayed behind its gain, and the gain changes only at zero crossings.
#pragma once

#include "dsp/delay_line.h"
#include "dsp/vec.h"

namespace quillworks {

/// Look-ahead of the pack's dynamics effects in samples: 2 ms.
inline int lookAheadFrames(double sampleRate) noexcept
{
    return static_cast<int>(sampleRate * 0.002 + 0.5);
}

/// x = s times a held gain, which takes the value of `gain` where the sign of s differs from the
/// sample before, and at zeros (0 counts as negative). s[-1] is read. Returns the gain held at
/// last.
float applyHeldGain(float* x, const float* s, const float* gain, float held, int n) noexcept;
double applyHeldGain(double* x, const double* s, const double* gain, double held, int n) noexcept;

/// One channel's delay and held gain.
template <typename T> class LookAhead {
public:
    void prepare(int frames) { line_.prepare(frames); }
    void reset() noexcept
    {
        line_.reset();
        held_ = 1;
    }
    /// x = its delayed self; run() goes on with the gain `held`.
    void delay(T* x, T held, int n) noexcept
    {
        vec::copy(x, line_.push(x, n), n);
        held_ = held;
    }
    /// x = its delayed self times the held gain. `isConstant`: all gains are the same.
    void run(T* x, const T* gain, bool isConstant, int n) noexcept
    {
        const T* const s = line_.push(x, n);
        if (!isConstant || gain[0] != held_)
            held_ = applyHeldGain(x, s, gain, held_, n);
        else if (held_ == 1)
            vec::copy(x, s, n);
        else
            vec::scaleCopy(x, s, held_, n);
    }

private:
    DelayLine<T> line_;
    T held_ = 1;
};

}  // namespace quillworks
