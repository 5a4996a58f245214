// SPDX-License-Identifier: ISC
// White and pink noise whose levels are known in theory.
#pragma once

#include <cstdint>

#include "dsp/random.h"

namespace quillworks {

/// White: four 16-bit numbers added, so that samples are nearly Gaussian and lie within -1 .. 1.
/// Pink: that through eight poles and zeros of the analogue kind, spaced over the ten octaves below
/// the rate.
class NoiseVoice {
public:
    void reset(std::uint64_t seed) noexcept;
    void white(double* out, int n) noexcept;
    void pink(double* out, int n) noexcept;

    static double whiteRms() noexcept;
    static double pinkRms() noexcept;

private:
    static constexpr int kPoles = 8;

    Xoshiro256pp random_;
    double poles_[kPoles] = {};  // outputs of the one-pole filters that pink noise is the sum of
};

}  // namespace quillworks
