// SPDX-License-Identifier: ISC
// Loudness of a bus: K-weighting and quantisation of all channels, and the law that reads them.
#pragma once
#include <span>
#include <vector>

#include "analysis/histogram_loudness.h"
#include "analysis/strict_loudness.h"
#include "dsp/k_weighting.h"
#include "vnk/speaker_arrangement.h"

namespace quillworks {

/// Weight of a channel's power after ITU-R BS.1770-4, Table 3: none for the LFE, +1.5 dB for
/// speakers to the side. A layout without surrounds or LFE, or without places, has 1.
double loudnessWeight(VNK::Speaker speaker) noexcept;

class LoudnessMeter {
public:
    enum class Law { Own, Strict };

    /// May throw std::bad_alloc.
    void prepare(double sampleRate, const VNK::SpeakerArrangement& layout);
    void reset() noexcept;
    void restart() noexcept;
    void setLaw(Law law) noexcept;
    void useLayoutWeights(bool on) noexcept;

    /// n samples of every channel; all must be finite and at most 1e6.
    template <typename T> void add(const T* const* x, int n) noexcept;
    /// Lets 1.5 s of silence follow for the strict range, at the price of a few blocks.
    void endProgramme() noexcept;

    HistogramLoudness& own() noexcept { return own_; }
    const HistogramLoudness& own() const noexcept { return own_; }
    const StrictLoudness& strict() const noexcept { return strict_; }

private:
    static constexpr int kPiece = 256;  // samples weighted at a time: stays in the first cache

    template <typename T, class L> void addBy(L& law, const T* const* x, int n) noexcept;

    double sampleRate_ = 44100;
    VNK::SpeakerArrangement layout_;
    std::vector<double> weights_;
    KWeighting weighting_;
    KWeightingTail tail_;
    std::vector<KWeightingPair> filters_;  // for channels 2i and 2i + 1
    Law law_ = Law::Own;
    HistogramLoudness own_;
    StrictLoudness strict_;
};

}  // namespace quillworks
