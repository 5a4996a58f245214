// SPDX-License-Identifier: ISC
// The level meter's own loudness law: a reading every 100 ms, gates over histograms.
#pragma once
#include <span>
#include <vector>

#include "analysis/loudness_histogram.h"
#include "dsp/power_window.h"

namespace quillworks {

/// Sums of integers per channel, read at each hop; a window that is not yet full reads as if
/// silence had gone before. Windows begin and end where pieces do, so that the sums of the pieces
/// are all that has to be kept.
class HistogramLoudness {
public:
    /// May throw std::bad_alloc.
    void prepare(double sampleRate, int channels);
    /// Windows, hop and all results.
    void reset() noexcept;
    /// Histograms and results; the windows go on.
    void restart() noexcept;

    /// Samples to the end of the present piece, at least 1.
    int untilNext() const noexcept { return ends_[part_] - sinceHop_; }
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
    static constexpr int kParts = 3;  // pieces of a hop, at most

    /// Mean power of the pieces that make up the last `length` samples; a hop ends here.
    double power(std::size_t channel, int length) const noexcept;
    void read(std::span<const double> weights) noexcept;

    std::size_t channelCount_ = 0;
    int hop_ = 1;                                    // samples
    int momentaryLength_ = 1, shortTermLength_ = 1;  // of the windows, in samples
    int ends_[kParts] = {};                          // of the pieces of a hop, in samples
    int parts_ = 1;                                  // how many there are
    int part_ = 0, sinceHop_ = 0;                    // the present one, and how far
    std::vector<std::int64_t> sums_;                 // of the latest pieces, by channel
    std::size_t kept_ = 1, at_ = 0;                  // pieces kept, and the present one
    BlockHistogram blocks_;
    RangeHistogram shortTerms_;
    bool isCounted_ = true;  // blocks counted since the last evaluation
    double momentary_ = kAbsoluteGate, shortTerm_ = kAbsoluteGate, integrated_ = kAbsoluteGate;
    RangeHistogram::Range range_;
};

}  // namespace quillworks
