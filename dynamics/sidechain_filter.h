// SPDX-License-Identifier: ISC
// The filter in front of a detector: a low-cut and a high-cut, in series they pass a band, with
// their frequencies swapped they are averaged in parallel and reject it.
#pragma once

#include <algorithm>
#include <vector>

#include "dsp/control_grid.h"
#include "dsp/svf.h"

namespace quillworks {

/// Low-cut: fourth-order Butterworth, 24 dB per octave; high-cut: second order, 12 dB per octave,
/// or fourth. Computed in double in both precisions of an effect, like the detectors behind it.
class SidechainFilter {
public:
    static constexpr double kLowest = 20, kHighest = 16000;  // Hz; beyond, a stage is left out

    /// `highCutOrder` 2 or 4. Allocates.
    void prepare(double sampleRate, int channels, int highCutOrder = 2);
    void reset() noexcept;
    /// All channels go on from where the first one stands.
    void spread() noexcept { std::fill(channels_.begin(), channels_.end(), channels_.front()); }
    /// Corner frequencies in Hz, at once. Which of them is higher decides on the form; a change of
    /// form waits for the next sub-block and is cross-faded over it.
    void tune(double lowCut, double highCut) noexcept { tune(lowCut, highCut, highCut < lowCut); }
    /// For frequencies that glide: the form is given.
    void tune(double lowCut, double highCut, bool isParallel) noexcept;
    bool isActive() const noexcept { return lowCutOn_ || highCutOn_; }

    /// Once per slice, before run().
    void next(GridSlice slice) noexcept;
    /// One channel, in place.
    void run(int channel, double* x, GridSlice slice) noexcept;
    /// `channel` and the one behind it, in place: in about the time of one, to the same bits.
    void runPair(int channel, double* x, double* y, GridSlice slice) noexcept;

private:
    static constexpr int kSections = 2;  // of a cut, at most

    /// V is double, or a pair of them.
    template <class V> struct States {
        SvfStateOf<V> lowCut[kSections], highCut[kSections];
        SvfStateOf<V> fadingHighCut[kSections];  // of the form that is being left
    };
    using Channel = States<double>;

    template <class V> void filter(States<V>& s, V* x, GridSlice slice) const noexcept;
    template <class V>
    void cuts(SvfStateOf<V>* low, SvfStateOf<V>* high, V* x, int n) const noexcept;
    template <class V> void parallel(States<V>& s, V* x, int n) const noexcept;
    template <class V> void crossFade(States<V>& s, V* x, GridSlice slice) const noexcept;
    template <int low, int high, class V>
    void cascade(SvfStateOf<V>* lowCut, SvfStateOf<V>* highCut, V* x, int n) const noexcept;

    double sampleRate_ = 44100;
    SvfCoefficients lowCutSection_[kSections], highCutSection_[kSections];
    int highCutSections_ = 1;
    bool lowCutOn_ = false, highCutOn_ = false;
    bool wantsParallel_ = false, isParallel_ = false;
    bool isFading_ = false;
    std::vector<Channel> channels_;
};

}  // namespace quillworks
