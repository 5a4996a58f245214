// SPDX-License-Identifier: ISC
// The level meter's own loudness law: a reading every 100 ms, gates over histograms.
#pragma once
#include <span>
#include <vector>

#include "analysis/loudness_histogram.h"
#include "dsp/power_window.h"

namespace quillworks {

/// Integer windows per channel, read at each hop; a window that is not yet full reads as if silence
/// had gone before.
class HistogramLoudness {
public:
    /// May throw std::bad_alloc.
    void prepare(double sampleRate, int channels);
    /// Windows, hop and all results.
    void reset() noexcept;
    /// Histograms and results; the windows go on.
    void restart() noexcept;

    /// Samples to the next reading, at least 1.
    int untilNext() const noexcept { return hop_ - sinceHop_; }
    /// The K-weighted squares of a channel, at most untilNext() of them.
    void add(int channel, const PowerQuanta& squares) noexcept;
    /// n samples have been added to every channel.
    void advance(int n, std::span<const double> weights) noexcept;
    /// Brings integrated loudness and range up to date.
    void evaluate() noexcept;

    double momentary() const noexcept { return momentary_; }
    double shortTerm() const noexcept { return shortTerm_; }
    double integrated() const noexcept { return integrated_; }
    const RangeHistogram::Range& range() const noexcept { return range_; }

private:
    struct Channel {
        PowerWindow momentary, shortTerm;
    };
    void read(std::span<const double> weights) noexcept;

    std::vector<Channel> channels_;
    int hop_ = 1;  // samples
    int sinceHop_ = 0;
    BlockHistogram blocks_;
    RangeHistogram shortTerms_;
    bool isCounted_ = true;  // blocks counted since the last evaluation
    double momentary_ = kAbsoluteGate, shortTerm_ = kAbsoluteGate, integrated_ = kAbsoluteGate;
    RangeHistogram::Range range_;
};

}  // namespace quillworks
