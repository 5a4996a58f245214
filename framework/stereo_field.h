// SPDX-License-Identifier: ISC
// The points of a goniometer.
#pragma once

#include <cstdint>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "vnk/effect_displays.h"

namespace quillworks {

/// For editors, which keep a glow of what they have drawn: the newest points alone.
inline constexpr const char* kRecentField = ".recent";

/// x is right minus left, y left plus right, each over the root of two: mono stands upright, and
/// the left channel alone lies to the upper left.
struct FieldPoint {
    double x, y;
};

/// Remembers the last seconds of two channels, and finds the gain at which they fill the display.
class StereoField {
public:
    static constexpr double kLongest = 5, kShortest = 0.05;  // seconds that are shown
    static constexpr int kOversampling = 4;

    /// Nothing is known. May throw std::bad_alloc.
    void prepare(double sampleRate);
    void release() noexcept;
    /// The signal has a seam: points before it are not shown. The gain goes on.
    void begin() noexcept;
    /// Nothing is known; the gain is `gain` until there is something.
    void clear(double gain) noexcept;
    /// `automatic`: brings the 99th percentile of the radius over the last second to 0.9, within
    /// 1 dB, by 6 dB a second; the first one at once. Else the gain is `gain`. dB.
    void setGain(bool automatic, double gain) noexcept;
    void take(const float* left, const float* right, int n) noexcept;

    double gain() const noexcept { return gain_; }  // dB
    /// Frames taken since the beginning or the last seam.
    std::int64_t frames() const noexcept { return end_; }
    /// Those of the last `seconds` after the gain, oldest first, four to a sample. May throw
    /// std::bad_alloc.
    std::vector<FieldPoint> points(double seconds) const;
    /// The same as two lists.
    void points(double seconds, std::vector<float>& x, std::vector<float>& y) const;
    /// "x" and "y" of the newest points as lists, and "frames", at which they end. May throw
    /// std::bad_alloc.
    void showRecent(VNK::IDisplaySink& sink) const;

private:
    void count(float left, float right) noexcept;
    void follow() noexcept;

    double rate_ = 1, gain_ = 0;
    bool isAutomatic_ = true, isFirst_ = true;
    // A ring of the channels' frames.
    AlignedBuffer<float> left_, right_;
    std::size_t mask_ = 0;
    std::int64_t first_ = 0, end_ = 0;  // frames since the seam that are there

    // How many points of the last second have which radius: classes of a tenth of a decibel.
    AlignedBuffer<std::uint16_t> classes_;  // frame by frame
    std::vector<std::int32_t> counts_;
    std::size_t oldest_ = 0, counted_ = 0;
    int untilFollow_ = 0, followFrames_ = 1;
};

}  // namespace quillworks
