// SPDX-License-Identifier: ISC
// How much later, and which way up, one channel has what the other has.
#pragma once

#include <optional>

#include "dsp/fft.h"
#include "dsp/recent_samples.h"

namespace quillworks {

/// Generalised cross-correlation with phase transform (Knapp and Carter 1976), four times a second
/// over the last half to three quarters of a second.
class DelaySearch {
public:
    static constexpr double kFarthest = 0.02;  // seconds either way

    /// May throw std::bad_alloc.
    void prepare(double sampleRate);
    void release() noexcept;
    bool isPrepared() const noexcept { return length_ > 0; }
    /// The next frame is number `first`; averages go on.
    void begin(std::int64_t first) noexcept { first_ = end_ = first; }
    /// Forgets what has been found.
    void clear() noexcept;
    void take(const float* left, const float* right, int n) noexcept;

    struct Result {
        double samples;     // positive: the right channel is later
        double confidence;  // 0 .. 1
        int polarity;       // 1 or -1
    };
    /// None before the first search.
    const std::optional<Result>& result() const noexcept { return result_; }

private:
    std::int64_t nextSearch() const noexcept;
    void search() noexcept;

    double rate_ = 1;
    int length_ = 0;  // frames that are compared
    std::int64_t first_ = 0, end_ = 0;
    RecentSamples<float> recent_[2];
    Fft<float> fft_;  // twice as long, so that nothing wraps
    AlignedBuffer<float> padded_, spectra_[2], average_;
    bool isFirst_ = true;
    std::optional<Result> result_;
};

}  // namespace quillworks
