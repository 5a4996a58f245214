// SPDX-License-Identifier: ISC
// Eight taps of a stereo delay, each with its level, place and tone, added up.
#pragma once

#include "delay/tap_bank_kernels.h"
#include "dsp/aligned_buffer.h"
#include "dsp/smoothed.h"

namespace quillworks {

/// What a tap is set to.
struct TapSettings {
    bool isOn = false;
    double level = 1;  // linear
    double pan = 0;    // -1 .. 1; there is the whole echo in one side, at +3 dB
    double tone = 0;   // -1 (dark) .. 1 (thin); 0 leaves the echo as it was read
};

/// At pan 0 the tap is stereo, towards a side its width shrinks and its power stays. The tone is a
/// low-pass below 0, a high-pass above. The taps are lanes of vectors. All glide: gains and places
/// with twice the half-life of the tones; a tap that is switched fades for 10 ms. The same bits
/// however the signal is divided; builds for different instruction sets differ by rounding.
template <typename T> class TapBank {
public:
    static constexpr int kTaps = kBankTaps;

    /// A mono bank has no places: all is heard on the left. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, bool isMono);
    /// Silence in the filters, everything at its target.
    void reset() noexcept;
    void set(int tap, const TapSettings& settings) noexcept;

    /// Once per slice, before process().
    void next(GridSlice slice) noexcept;
    bool runs(int tap) const noexcept { return running_ >> tap & 1; }
    /// Room of kSubBlock frames for what a tap reads, left and right.
    T* const* room(int tap) noexcept { return rooms_[tap]; }
    /// Where that lies, left and right: at least the run, and 7 frames that are not used.
    void place(int tap, const T* const* samples) noexcept
    {
        left_[tap] = samples[0];
        right_[tap] = samples[1];
    }
    /// A run within the slice: the sum of all taps. Each that runs has been placed.
    void process(T* left, T* right, GridSlice run) noexcept;

    /// Peak of a tap since it was last taken, linear.
    T takePeak(int tap) noexcept;

private:
    struct Tap {
        bool isOn = false;
        double weight = 0;  // of the fade in and out
        Smoothed<double> left, right, own, tone;
        double toneNow = 0;  // at the end of the open sub-block
    };
    T* row(int i) noexcept { return lanes_.data() + i * kTaps; }
    bool advance(int tap) noexcept;
    void layTone(int tap, bool glides, double tone, bool isDark) noexcept;
    void layGains(int tap, bool glides) noexcept;
    void write(int tap, int first, const T* values, int count, bool glides) noexcept;
    void leaveOut(int tap) noexcept;
    void clear(int tap) noexcept;
    void clearIfBad() noexcept;

    double sampleRate_ = 44100;
    bool isMono_ = false;
    double fadeStep_ = 1;  // of a weight, per sub-block
    Tap taps_[kTaps];
    unsigned running_ = 0;
    bool isMoving_ = false;     // within the open sub-block
    bool isSettled_ = false;    // nor will anything in the next ones
    AlignedBuffer<T> lanes_;    // rows: values, their steps, four states, peaks
    AlignedBuffer<T> samples_;  // rooms of the taps, and two sums
    T* rooms_[kTaps][2]{};
    const T *left_[kTaps]{}, *right_[kTaps]{};
};

}  // namespace quillworks
