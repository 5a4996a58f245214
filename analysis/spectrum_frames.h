// SPDX-License-Identifier: ISC
// Overlapping windowed transforms of a signal.
#pragma once

#include <cstdint>
#include <vector>

#include "dsp/fft.h"
#include "dsp/recent_samples.h"

namespace quillworks {

enum class WindowShape { Nuttall, Hann, FlatTop, Rectangular };

/// A periodic window w[n] = sum of a[k] cos(2 pi k n / N). Nuttall's of four terms (1981, side
/// lobes below -98 dB), Hann's, the flat top of Heinzel, Rüdiger and Schilling (2002), or none.
std::vector<double> windowOf(WindowShape shape, int length);

/// Transforms of the latest frames of several channels, a quarter of their length apart. They begin
/// at frame numbers that are multiples of that, so where they lie depends on the frames alone.
class SpectrumFrames {
public:
    /// `length`: a power of two. May throw std::bad_alloc.
    void prepare(int channels, int length, WindowShape window);
    void release() noexcept;
    /// Forgets the signal; the next frame is number `first`.
    void begin(std::int64_t first) noexcept;
    /// The next n frames. Calls complete() whenever the last length() frames are due: transform()
    /// is for then, and end() the number of the frame behind them.
    template <class F> void take(const float* const* x, int n, F&& complete)
    {
        for (int done = 0; done < n;) {
            const int run = std::min(n - done, hop() - static_cast<int>(end_ % hop()));
            append(x, done, run);
            done += run;
            if (end_ % hop() == 0 && end_ - first_ >= length_) complete();
        }
    }
    /// The packed spectrum (dsp/packed_spectrum.h) of a channel, length() values.
    void transform(int channel, float* spectrum) noexcept;

    int length() const noexcept { return length_; }
    int hop() const noexcept { return length_ / 4; }
    /// Bins from 0 to half the sample rate, both included.
    int bins() const noexcept { return length_ / 2 + 1; }
    std::int64_t end() const noexcept { return end_; }
    double windowSum() const noexcept { return sum_; }
    double windowSquares() const noexcept { return squares_; }

private:
    void append(const float* const* x, int at, int n) noexcept;

    int length_ = 0;
    std::int64_t first_ = 0, end_ = 0;
    double sum_ = 0, squares_ = 0;
    AlignedBuffer<float> window_, windowed_;
    std::vector<RecentSamples<float>> recent_;  // channel by channel
    Fft<float> fft_;
};

/// |X|^2 of each bin of a packed spectrum of `length` points, length / 2 + 1 values.
void powersOf(const float* spectrum, int length, float* powers) noexcept;

}  // namespace quillworks
