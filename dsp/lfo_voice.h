// SPDX-License-Identifier: ISC
// One voice of a low-frequency oscillator that is read at a place in its cycle: wave, smoothing of
// its steps, and the way over a jump.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "dsp/control_grid.h"
#include "dsp/decibel.h"
#include "dsp/lfo.h"
#include "dsp/random.h"

namespace quillworks {

/// The waves of a modulation effect. The first four are those of the wave table; "Random" wanders
/// between values that the number of the cycle draws, so that chance repeats in every rendering.
enum class LfoWave { Triangle, Sine, Sawtooth, Square, Random };

/// The wave of all voices of an effect.
class LfoWaves {
public:
    void select(LfoWave wave) noexcept
    {
        wave_ = wave;
        if (wave != LfoWave::Random) table_.select(static_cast<int>(wave));
    }
    LfoWave wave() const noexcept { return wave_; }
    /// Whether the wave has edges, which a voice rounds.
    bool hasEdges() const noexcept
    {
        return wave_ == LfoWave::Sawtooth || wave_ == LfoWave::Square;
    }
    /// Value within -1 .. 1 at `cycle` periods; `voice` draws its own chance.
    double at(double cycle, std::uint32_t voice) const noexcept
    {
        const double whole = wholePart(cycle), u = cycle - whole;
        if (wave_ != LfoWave::Random)
            return double(table_.read(
                static_cast<std::uint32_t>(static_cast<std::uint64_t>(u * 4294967296.0))));
        // Far from 0 the number of the cycle wraps.
        const auto n =
            static_cast<std::uint32_t>(static_cast<std::int64_t>(std::clamp(whole, -9e18, 9e18)));
        const double from = double(hashRandom(n, voice)), to = double(hashRandom(n + 1, voice));
        return from + (to - from) * u * u * (3 - 2 * u);
    }

private:
    /// floor(), without a call where the processor that is built for has no instruction for it.
    static double wholePart(double x) noexcept
    {
        if (!(std::abs(x) < 0x1p52)) return x;
        const auto whole = static_cast<double>(static_cast<std::int64_t>(x));
        return whole - (whole > x ? 1 : 0);
    }

    LfoTable table_;
    LfoWave wave_ = LfoWave::Triangle;
};

/// What one voice remembers. One value per sub-block of the control grid.
class LfoVoice {
public:
    void prepare(double sampleRate) noexcept
    {
        const double subBlocks = sampleRate / kSubBlock;
        edge_ = halfLifeFactor(std::max(1.0, std::trunc(0.004 * subBlocks + 0.5)));
        wayOfJump_ = static_cast<int>(std::max(1.0, std::trunc(0.02 * subBlocks + 0.5)));
    }
    /// The next value is taken as it is.
    void reset() noexcept { isFresh_ = true, left_ = 0; }

    /// Value at the end of the sub-block, within about -1 .. 1 (beyond it only on the way over a
    /// jump). Where the cycle `jumps`, the value goes over to the new course in 20 ms.
    double next(const LfoWaves& waves, double cycle, std::uint32_t voice, bool jumps) noexcept
    {
        double value = waves.at(cycle, voice);
        if (isFresh_)
            smooth_ = value;
        else if (waves.hasEdges())
            value = smooth_ = value + edge_ * (smooth_ - value);
        else
            smooth_ = value;
        if (jumps && !isFresh_) {
            offset_ = now_ - value;
            left_ = wayOfJump_;
        }
        isFresh_ = false;
        if (left_ > 0) value += offset_ * --left_ / wayOfJump_;
        return now_ = value;
    }

private:
    double edge_ = 0;    // half-life factor of what rounds an edge
    int wayOfJump_ = 1;  // sub-blocks
    double smooth_ = 0, now_ = 0;
    double offset_ = 0;
    int left_ = 0;  // sub-blocks until a jump is over
    bool isFresh_ = true;
};

}  // namespace quillworks
