// SPDX-License-Identifier: ISC
// A low cut and a high cut that glide, fade in and out at their neutral ends, and cost nothing
// there.
#pragma once

#include "dsp/neutral.h"
#include "dsp/section_chain.h"
#include "dsp/smoothed.h"

namespace quillworks {

/// A low cut and a high cut in series, Butterworth, each of second or fourth order or absent. Their
/// frequencies glide in octaves. A cut at its neutral end, or a high cut from 0.45 of the sample
/// rate on, is faded out in 10 ms and then skipped: with both out, the signal passes untouched bit
/// by bit. One that comes in starts from silence and fades in.
///
/// Standing or gliding it adds gain at no frequency, so it may be part of a loop of gain 1. (While
/// a cut of fourth order fades, its gain may pass 1 by 1 % for some milliseconds.)
template <typename T> class CutFilters {
public:
    struct Design {
        int lowOrder = 2, highOrder = 2;     // 0 (absent), 2 or 4
        float lowEnd = 20, highEnd = 20000;  // Hz, where isNeutral() leaves the cut out
        SectionForm form = SectionForm::Lanes;
    };

    /// `glideHalfLife` in sub-blocks. Allocates; may throw std::bad_alloc.
    void prepare(const Design& design, int channels, double sampleRate, double glideHalfLife);
    /// Silence, and the frequencies and fades at their targets.
    void reset() noexcept;
    /// Frequencies in Hz, above 0.
    void tune(float lowCut, float highCut) noexcept;
    /// Neither cut is heard: process() does nothing.
    bool isIdle() const noexcept
    {
        return low_.isOut() && high_.isOut() && !low_.runs && !high_.runs;
    }

    /// All channels in place; a slice lies within a sub-block.
    void process(T* const* x, GridSlice slice) noexcept;

private:
    struct Cut {
        int first = 0, order = 0;  // first section; one section per two orders
        bool isHigh = false;
        bool wanted = false;  // not neutral
        bool runs = false;    // in the open sub-block
        double share = 0;     // of the filtered signal, at the end of the open sub-block
        Smoothed<double> octave;

        bool isOut() const noexcept { return share == 0 && !wanted; }
        int count() const noexcept { return order / 2; }
    };
    void begin(Cut& cut) noexcept;
    void lay(const Cut& cut, bool glides) noexcept;

    double sampleRate_ = 44100;
    double fadeStep_ = 1;  // of a share, per sub-block
    Design design_;
    Cut low_, high_;
    SectionChain<T> chain_;
};

}  // namespace quillworks
