// SPDX-License-Identifier: ISC
// Linear dry/wet mixer: out = dry + (wet - dry) m, m smoothed.
#pragma once

#include "dsp/smoothed.h"
#include "dsp/vec.h"

namespace quillworks {

template <typename T> class DryWet {
public:
    void prepare(double sampleRate, double seconds) noexcept { mix_.prepare(sampleRate, seconds); }
    /// Fraction wet, 0 .. 1.
    void target(T mix) noexcept { mix_.target(mix); }
    void reset() noexcept { mix_.snap(); }

    /// Advances m where a sub-block begins. Before mix().
    void next(GridSlice slice) noexcept { ramp_ = mix_.next(slice); }
    /// m is 1 throughout the slice: the dry signal is not needed.
    bool isWet() const noexcept { return ramp_.from == 1 && ramp_.to == 1; }
    /// Mixes `dry` into `wet`; m = 0 and m = 1 copy bit by bit.
    void mix(T* wet, const T* dry, int n) const noexcept
    {
        if (isWet()) return;
        if (ramp_.from == 0 && ramp_.to == 0) return vec::copy(wet, dry, n);
        vec::subInplace(wet, dry, n);
        vec::rampGain(wet, ramp_.from, ramp_.to, n);
        vec::addInplace(wet, dry, n);
    }

private:
    Smoothed<T> mix_;
    Ramp<T> ramp_{1, 1};
};

}  // namespace quillworks
