// SPDX-License-Identifier: ISC
#include "dsp/cut_filters.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr double kFadeSeconds = 0.01;
constexpr double kGlideTolerance = 0.00144;  // octaves: 0.1 %

}  // namespace

template <typename T>
void CutFilters<T>::prepare(const Design& design, int channels, double sampleRate,
                            double glideHalfLife)
{
    design_ = design;
    sampleRate_ = sampleRate;
    fadeStep_ = 1 / std::max(1.0, std::trunc(kFadeSeconds * sampleRate / kSubBlock + 0.5));
    low_.order = design.lowOrder;
    high_.order = design.highOrder;
    high_.isHigh = true;
    high_.first = low_.count();
    for (Cut* const cut : {&low_, &high_}) {
        cut->octave.prepareHalfLife(glideHalfLife);
        cut->octave.setTolerance(kGlideTolerance);
    }
    chain_.prepare(std::max(1, low_.count() + high_.count()), channels, design.form);
    tune(design.lowEnd, design.highEnd);
    reset();
}

template <typename T> void CutFilters<T>::reset() noexcept
{
    chain_.reset();
    for (Cut* const cut : {&low_, &high_}) {
        cut->octave.snap();
        cut->share = cut->wanted ? 1 : 0;
        cut->runs = false;
        lay(*cut, false);
    }
}

template <typename T> void CutFilters<T>::tune(float lowCut, float highCut) noexcept
{
    low_.wanted = low_.order > 0 && !isNeutral(lowCut, design_.lowEnd);
    high_.wanted = high_.order > 0 && !isNeutral(highCut, design_.highEnd) &&
                   double(highCut) < kHighestCutOff * sampleRate_;
    low_.octave.target(std::log2(double(lowCut)));
    high_.octave.target(std::log2(double(highCut)));
}

/// Coefficients of a cut where it stands.
template <typename T> void CutFilters<T>::lay(const Cut& cut, bool glides) noexcept
{
    const double g = warpedFrequency(std::exp2(cut.octave.current()), sampleRate_);
    for (int i = 0; i < cut.count(); ++i) {
        const double k = 1 / (cut.order == 4 ? kButterworth4Q[i] : kButterworthQ);
        const auto output = cut.isHigh ? SectionOutput::lowPass() : SectionOutput::highPass(k);
        const auto c = SectionCoefficients<T>::of(g, k, output.faded(cut.share));
        if (glides)
            chain_.glide(cut.first + i, c);
        else
            chain_.set(cut.first + i, c);
    }
}

/// A sub-block begins.
template <typename T> void CutFilters<T>::begin(Cut& cut) noexcept
{
    if (cut.isOut()) return cut.octave.snap();
    if (cut.share == 0) {  // it comes in, at its frequency
        cut.octave.snap();
        lay(cut, false);
        chain_.clear(cut.first, cut.count());
    }
    const double share = std::clamp(cut.share + (cut.wanted ? fadeStep_ : -fadeStep_), 0.0, 1.0);
    // Steps of a fade add up to a little beside 0 and 1.
    const double rounded = share < fadeStep_ / 2 ? 0 : share > 1 - fadeStep_ / 2 ? 1 : share;
    if (rounded == cut.share && !cut.octave.isGliding()) return;
    cut.share = rounded;
    cut.octave.next(kWholeSubBlock);
    lay(cut, true);
}

template <typename T> void CutFilters<T>::process(T* const* x, GridSlice slice) noexcept
{
    if (slice.begins()) {
        // A cut that has been faded out in the last sub-block is left out from this one on.
        for (Cut* const cut : {&low_, &high_}) {
            cut->runs = !cut->isOut();
            begin(*cut);
        }
    }
    const int first = low_.runs ? low_.first : high_.first;
    const int end = high_.runs ? high_.first + high_.count() : low_.count();
    if (low_.runs || high_.runs) chain_.process(x, slice, first, end - first);
}

template class CutFilters<float>;
template class CutFilters<double>;

}  // namespace quillworks
