// SPDX-License-Identifier: ISC
// Delay lines that any number of moving taps read between the samples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "dsp/aligned_buffer.h"
#include "dsp/control_grid.h"

namespace quillworks {

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

/// The structure of Farrow ("A continuously variable digital delay element", 1988): around each
/// sample the signal is a polynomial in the distance from it, whose coefficients are signals of
/// their own, filtered out of the input once, as it is written. Where many taps read, each costs
/// no more than the polynomial, and since a tap that moves slowly meets the samples one after the
/// other, several frames at a time.
///
/// Lines of one length for several channels. Distances count back from the newest sample. What lies
/// before the last clear is 0; memory that has not been written yet is not touched.
///
/// Errors of a tap that moves by 2 ms at 1 Hz, 48 kHz: below -94 dB to 18 kHz, -34 at 20 kHz; on a
/// sample it is read bit by bit.
template <typename T> class FarrowLine {
public:
    static constexpr int kOrder = 6;            // of the polynomial
    static constexpr int kReach = 12;           // samples on either side that it is made of
    static constexpr int kLeast = kReach;       // samples back from the newest: the least distance
    static constexpr int kLongest = kSubBlock;  // samples written and points read at a time

    /// For distances to `capacity`. Allocates; throws std::bad_alloc. Empty afterwards.
    void prepare(int channels, int capacity);
    void clear() noexcept;

    /// Where the next samples of a channel belong, kLongest at most. They are in the line once all
    /// channels have theirs and advance(n) has taken them.
    T* incoming(int channel) noexcept { return history(channel) + filled_; }
    void advance(int n) noexcept;

    /// What a channel held at n distances, kLongest at most.
    struct Tap {
        int channel;
        TapGlide glide;
        T* out;                    // gets the n values, or
        const T* gains = nullptr;  // if there are gains, grows by them times the values
    };
    void read(std::span<const Tap> taps, int n) const noexcept;

private:
    static constexpr int kPlanes = kOrder + 1;  // a ring for each coefficient
    static constexpr int kVector = 8;           // points that are computed together, at most
    // Behind a ring its first samples once more, for vectors that pass its end, and room for what
    // is written past it before that goes to the start.
    static constexpr int kBehind = kLongest + kVector;
    static constexpr int kHistory = 16 * kLongest;

    void wrap(int channel, int n) noexcept;
    T* plane(int channel) noexcept { return planes_.data() + channel * kPlanes * stride_; }
    T* history(int channel) noexcept { return history_.data() + channel * kHistory; }

    AlignedBuffer<T> planes_;   // channel by channel, coefficient by coefficient
    AlignedBuffer<T> history_;  // of each channel, the last samples
    std::ptrdiff_t stride_ = 0;
    int channels_ = 0;
    int capacity_ = 0;         // of a ring
    int next_ = 0;             // where the next coefficients go
    int valid_ = 0;            // samples that have them, since the clear
    int filled_ = 2 * kReach;  // of the history
};

}  // namespace quillworks
