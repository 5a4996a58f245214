// SPDX-License-Identifier: ISC
// Reads long lines between their samples.
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/long_line.h"
#include "dsp/sinc_table.h"

namespace quillworks {

/// Rows of an interpolating table, one behind the other, phases + 1 of them and one more that is
/// read and counts for nothing.
template <typename T> struct TapRows {
    const T* rows;
    int phases;
};

/// out[c][i] = what channel `channel` + c of the line held at distances[i], between its samples:
/// the sum of `taps` neighbours, weighted by a row interpolated linearly. Distances are more than
/// taps/2 - 1 and at most the capacity less taps/2 + 1; taps before the last clear are 0. One or
/// two channels. A sample does not depend on the others that are asked for with it.
/// Made for <float, 24>, <double, 24> and <float, 32>.
template <typename T, int taps>
void readBetween(const LongLine<T>& line, int channel, int channels, TapRows<T> rows,
                 const double* distances, int n, T* const* out) noexcept;

/// Distances of a run of points, in 2^-32 of a sample: sums of them are exact, so that a point of a
/// longer run is the same wherever the run is cut.
struct TapGlide {
    static constexpr std::int64_t kOne = std::int64_t{1} << 32;  // a sample

    std::int64_t first;  // of the first point
    std::int64_t step;   // from each to the next

    /// From samples; what lies below 2^-32 falls away.
    static std::int64_t of(double samples) noexcept
    {
        return static_cast<std::int64_t>(samples * double(kOne));
    }
};

/// As readBetween, for up to 32 distances that run evenly and rows of 256 phases: faster, the most
/// so in short runs. Made for <float, 24> and <double, 24>. (The fraction between two rows has more
/// digits than there: a point read by one function may differ from the other's in its last bits.)
/// With gains, out[c][i] grows by the point times gains[c][i].
template <typename T, int taps>
void followBetween(const LongLine<T>& line, int channel, int channels, TapRows<T> rows,
                   TapGlide glide, int n, const T* const* gains, T* const* out) noexcept;

/// The interpolator of modulated delays. Errors of a tap that moves by 2 ms at 1 Hz, 48 kHz: below
/// -95 dB to 15 kHz, -88 at 18, -35 at 20 kHz; on a sample it is read bit by bit.
template <typename T> class TapReader {
public:
    static constexpr int kTaps = 24;
    static constexpr int kPhases = 256;
    static constexpr double kBeta = 9;
    static constexpr int kLeast = kTaps / 2;  // samples back from the newest: the least distance
    static constexpr int kMost = kTaps / 2;   // samples that the line must hold beyond the largest

    /// [main thread]
    void prepare() { table_ = SincTable<T>::shared({kTaps, kPhases, kBeta}); }
    /// As readBetween. In a loop of r samples the next min(m, floor(r) - kLeast) outputs can be
    /// read before anything is written; output i then lies at the distance r - 1 - i.
    void read(const LongLine<T>& line, int channel, int channels, const double* distances, int n,
              T* const* out) const noexcept
    {
        readBetween<T, kTaps>(line, channel, channels, {table_->row(0), kPhases}, distances, n,
                              out);
    }
    /// The same for distances that run evenly.
    void follow(const LongLine<T>& line, int channel, int channels, TapGlide glide, int n,
                T* const* out) const noexcept
    {
        follow(line, channel, channels, glide, n, nullptr, out);
    }
    /// out[c][i] grows by what is read times gains[c][i].
    void add(const LongLine<T>& line, int channel, int channels, TapGlide glide, int n,
             const T* const* gains, T* const* out) const noexcept
    {
        follow(line, channel, channels, glide, n, gains, out);
    }

private:
    void follow(const LongLine<T>& line, int channel, int channels, TapGlide glide, int n,
                const T* const* gains, T* const* out) const noexcept
    {
        followBetween<T, kTaps>(line, channel, channels, {table_->row(0), kPhases}, glide, n, gains,
                                out);
    }

    std::shared_ptr<const SincTable<T>> table_;
};

}  // namespace quillworks
