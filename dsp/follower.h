// SPDX-License-Identifier: ISC
// One-pole envelopes of magnitudes and powers with separate times to rise and to fall.
#pragma once

#include <algorithm>
#include <cassert>
#include <cmath>
#include <iterator>

#include "dsp/control_grid.h"
#include "dsp/decibel.h"

namespace quillworks {

/// Coefficients and envelope of all kinds.
template <typename V> struct BasicFollower {
    V rise = 0, fall = 0;  // share of the distance left after a sample
    V envelope = 0;

    /// Times in seconds; the envelope covers all but exp(-2 pi) of a step in that time.
    void setTimes(double sampleRate, double riseTime, double fallTime) noexcept
    {
        rise = static_cast<V>(followerCoefficient(sampleRate, riseTime));
        fall = static_cast<V>(followerCoefficient(sampleRate, fallTime));
    }
    void reset() noexcept { envelope = 0; }
};

/// Rises at least as fast as it falls: keeps to the peaks.
template <typename V> struct BasicPeakFollower : BasicFollower<V> {
    /// Envelope after a magnitude x >= 0.
    V next(V x) noexcept
    {
        const V rise = this->rise, fall = this->fall, e = this->envelope;
        assert(rise <= fall);
        // Of the two one-poles the one that applies gives the larger value, rising or falling:
        // no branch on the signal, and a chain of three operations from sample to sample.
        this->envelope = std::max(rise * e + (1 - rise) * x, fall * e + (1 - fall) * x);
        return this->envelope;
    }
};

/// Rises no faster than it falls: keeps to the floor of a signal.
template <typename V> struct BasicFloorFollower : BasicFollower<V> {
    V next(V x) noexcept
    {
        const V rise = this->rise, fall = this->fall, e = this->envelope;
        assert(rise >= fall);
        this->envelope = std::min(rise * e + (1 - rise) * x, fall * e + (1 - fall) * x);
        return this->envelope;
    }
};

/// Any two times, neither need be the longer.
template <typename V> struct BasicEnvelopeFollower : BasicFollower<V> {
    /// Envelope after a magnitude x >= 0.
    V next(V x) noexcept
    {
        const V e = this->envelope;
        const V keep = x > e ? this->rise : this->fall;  // a select: both are in registers
        this->envelope = x + keep * (e - x);
        return this->envelope;
    }
};

// In double whatever the audio's precision is: with a fall time of seconds a step is smaller than a
// float's rounding, and a recursion costs the same in both.
using Follower = BasicFollower<double>;
using PeakFollower = BasicPeakFollower<double>;
using FloorFollower = BasicFloorFollower<double>;
using EnvelopeFollower = BasicEnvelopeFollower<double>;

/// Mean square of a signal over each sub-block, all channels added. Summed in double and in an
/// order that hangs on the frame alone, so it has the same bits however the signal is divided.
class SubBlockPower {
public:
    void reset() noexcept
    {
        std::fill(std::begin(sums_), std::end(sums_), 0.0);
        power_ = 0;
    }
    /// A slice of all channels. Where the sub-block ends with it, power() is that sub-block's.
    template <typename T> void add(const T* const* x, int channels, GridSlice slice) noexcept
    {
        if (slice.begins()) std::fill(std::begin(sums_), std::end(sums_), 0.0);
        if (slice.frames == kSubBlock)
            addWhole(x, channels);
        else
            addPiece(x, channels, slice);
        if (!slice.ends()) return;
        double sum = 0;
        for (const double s : sums_) sum += s;
        power_ = sum / kSubBlock;
    }
    /// Of the last whole sub-block; of one that is not finite 0.
    double power() const noexcept { return std::isfinite(power_) ? power_ : 0; }

private:
    // Eight sums side by side: a chain of additions would take longer than the rest.
    static constexpr int kSums = 8;

    template <typename T> void addPiece(const T* const* x, int channels, GridSlice slice) noexcept
    {
        double squares[kSubBlock]{};
        const int n = slice.frames;
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < n; ++i) squares[i] += double(x[c][i]) * double(x[c][i]);
        for (int i = 0; i < n; ++i) sums_[(slice.phase + i) % kSums] += squares[i];
    }
    /// The same sums in the same order, in registers.
    template <typename T> void addWhole(const T* const* x, int channels) noexcept
    {
        double sums[kSums]{};
        for (int from = 0; from < kSubBlock; from += kSums) {
            double squares[kSums]{};
            for (int c = 0; c < channels; ++c)
                for (int i = 0; i < kSums; ++i)
                    squares[i] += double(x[c][from + i]) * double(x[c][from + i]);
            for (int i = 0; i < kSums; ++i) sums[i] += squares[i];
        }
        std::copy(std::begin(sums), std::end(sums), sums_);
    }

    double sums_[kSums]{};
    double power_ = 0;
};

/// Follows a power, one value per sub-block, with two time constants: y = z + exp(-32/(fs t))
/// (y - z), t the rise time while z > y. Unlike the pack's attack times these leave exp(-1).
class PowerFollower {
public:
    /// Time constants in seconds, 0 for none.
    void setTimes(double sampleRate, double riseTime, double fallTime) noexcept
    {
        const auto keep = [&](double seconds) {
            return seconds > 0 ? std::exp(-kSubBlock / (sampleRate * seconds)) : 0;
        };
        rise_ = keep(riseTime);
        fall_ = keep(fallTime);
    }
    void reset() noexcept { value_ = 0; }
    /// The value after a sub-block of the power z, finite and 0 or more.
    double next(double z) noexcept
    {
        value_ = z + (z > value_ ? rise_ : fall_) * (value_ - z);
        return value_;
    }
    double value() const noexcept { return value_; }

private:
    double rise_ = 0, fall_ = 0;  // share of the distance left after a sub-block
    double value_ = 0;
};

}  // namespace quillworks
