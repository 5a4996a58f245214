// SPDX-License-Identifier: ISC
// Learns the levels of bands from what is played.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/band_splitter.h"
#include "dsp/crossfade.h"
#include "dsp/vec.h"

namespace quillworks {

/// Mean of the highest levels in stretches of 20 ms: where a band's peaks lie, and so where a
/// threshold acts on them. Stretches below -60 dB are pauses and do not count.
class BandLearner {
public:
    void prepare(double sampleRate) noexcept { length_ = fadeFrames(sampleRate, kStretch); }
    /// Forgets everything; stretches are counted from here.
    void start() noexcept
    {
        position_ = 0;
        for (auto& band : bands_) band = {};
    }
    /// n samples of a band's power. When all bands are taken, advance(n) follows.
    template <typename T> void take(int band, const T* power, int n) noexcept
    {
        Band& b = bands_[band];
        int position = position_;
        for (int i = 0; i < n;) {
            const int part = std::min(n - i, length_ - position);
            b.peak = std::max(b.peak, double(vec::peak(power + i, part)));
            i += part;
            position += part;
            if (position < length_) continue;
            position = 0;
            const double level = 10 * std::log10(b.peak + 1e-16);
            if (level > kPause) {
                b.sum += level;
                ++b.count;
            }
            b.peak = 0;
        }
    }
    void advance(int n) noexcept { position_ = (position_ + n) % length_; }
    /// dB; not-a-number before one second counts.
    double level(int band) const noexcept
    {
        const Band& b = bands_[band];
        return b.count * kStretch >= 1 - 1e-9 ? b.sum / b.count
                                              : std::numeric_limits<double>::quiet_NaN();
    }

private:
    static constexpr double kStretch = 0.02, kPause = -60;  // seconds, dB

    struct Band {
        double peak = 0, sum = 0;  // power; dB
        int count = 0;
    };
    Band bands_[kMaxBands];
    int length_ = 1, position_ = 0;  // frames
};

}  // namespace quillworks
