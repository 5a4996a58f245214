// SPDX-License-Identifier: ISC
#include "delay/colour_stage.h"

#include "dsp/neutral.h"

namespace quillworks {
namespace {

/// Peak of a second-order low-pass or high-pass of quality q.
double peakOf(double q)
{
    return q <= kButterworthQ ? 1 : q / std::sqrt(1 - 1 / (4 * q * q));
}

}  // namespace

bool ColourFilters::cutsLow() const noexcept
{
    return !isNeutral(lowCut, kNeutralLowCut);
}

bool ColourFilters::cutsHigh() const noexcept
{
    return !isNeutral(highCut, kNeutralHighCut);
}

double ColourFilters::q(int section) const noexcept
{
    const double r = double(resonance) * kButterworthQ;
    const double gain = (r - kButterworthQ) * 6;  // dB, of the second section over the first
    return std::sqrt(r * 0.5) * (section == 0 ? 1 : std::pow(10.0, gain / 40));
}

double ColourFilters::peakGain() const noexcept
{
    const double filter = peakOf(q(0)) * peakOf(q(1));
    return (cutsLow() ? filter : 1) * (cutsHigh() ? filter : 1);
}

void ColourStage::prepare(int channels, double sampleRate, double driveHalfLife)
{
    channels_ = channels;
    sampleRate_ = sampleRate;
    diode_.prepare(sampleRate);
    drive_.prepareHalfLife(driveHalfLife);
}

void ColourStage::reset() noexcept
{
    for (int s = 0; s < 2; ++s) {
        diodeState_[s] = 0;
        lowState_[s] = highState_[s] = {};
    }
    drive_.snap();
    isSaturating_ = highBegins_ = false;
}

void ColourStage::setFilters(const ColourFilters& filters) noexcept
{
    for (int s = 0; s < 2; ++s) {
        low_[s] = SvfCoefficients::at(double(filters.lowCut), sampleRate_, filters.q(s));
        high_[s] = SvfCoefficients::at(double(filters.highCut), sampleRate_, filters.q(s));
    }
    // A filter that comes in begins as if it had been in use: the low cut at rest, the high cut
    // with the signal's present value passing.
    const bool low = filters.cutsLow(), high = filters.cutsHigh();
    if (low && !cutsLow_) lowState_[0] = lowState_[1] = {};
    highBegins_ = high && (highBegins_ || !cutsHigh_);
    cutsLow_ = low;
    cutsHigh_ = high;
}

void ColourStage::saturate(float* const* x, GridSlice slice) noexcept
{
    const float before = drive_.current();
    drive_.next(slice);
    const float drive = drive_.current();
    if (drive == 0) {
        isSaturating_ = false;
        return;
    }
    // Driven harder, the circuit is in the state that the smaller signal would have brought it to:
    // neither a new drive nor the stage's coming in steps.
    for (int c = 0; c < channels_; ++c) {
        float& state = diodeState_[c];
        if (!isSaturating_)
            state = diode_.stateFor(x[c][0] * drive);
        else if (slice.begins())
            state *= drive / before;
    }
    isSaturating_ = true;
    const float back = 1 / drive;
    float* const left = x[0];
    float stateLeft = diodeState_[0];
    if (channels_ == 1) {
        for (int i = 0; i < slice.frames; ++i)
            left[i] = diode_.next(stateLeft, left[i] * drive) * back;
    } else {
        float* const right = x[1];
        float stateRight = diodeState_[1];
        for (int i = 0; i < slice.frames; ++i) {
            left[i] = diode_.next(stateLeft, left[i] * drive) * back;
            right[i] = diode_.next(stateRight, right[i] * drive) * back;
        }
        diodeState_[1] = stateRight;
    }
    diodeState_[0] = stateLeft;
}

/// All sections in one loop: their recursions overlap.
template <bool low, bool high> void ColourStage::filter(float* const* x, int n) noexcept
{
    float* const left = x[0];
    float* const right = x[channels_ - 1];
    auto l0 = lowState_[0], l1 = lowState_[1], h0 = highState_[0], h1 = highState_[1];
    if (high && highBegins_) {
        h0 = h1 = {Pair{}, Pair{double(left[0]), double(right[0])}};
        highBegins_ = false;
    }
    for (int i = 0; i < n; ++i) {
        Pair v{double(left[i]), double(right[i])};
        if constexpr (low) v = l1.highPass(low_[1], l0.highPass(low_[0], v));
        if constexpr (high) v = h1.lowPass(high_[1], h0.lowPass(high_[0], v));
        left[i] = static_cast<float>(v[0]);
        right[i] = static_cast<float>(v[1]);
    }
    lowState_[0] = l0, lowState_[1] = l1, highState_[0] = h0, highState_[1] = h1;
}

void ColourStage::process(float* const* x, GridSlice slice) noexcept
{
    saturate(x, slice);
    if (cutsLow_ && cutsHigh_)
        filter<true, true>(x, slice.frames);
    else if (cutsLow_)
        filter<true, false>(x, slice.frames);
    else if (cutsHigh_)
        filter<false, true>(x, slice.frames);
}

}  // namespace quillworks
