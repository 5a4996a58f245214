// SPDX-License-Identifier: ISC
// The interpolator, built for each instruction set.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/true_peak.cpp"
#include "dsp/simd.h"
//
#include <algorithm>

#include "dsp/true_peak.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// A phase h and its reversal share their work: with e = x[-k] + x[k-11] and o = x[-k] - x[k-11],
/// h gives s + d and its reversal s - d, where s sums e (h[k] + h[11-k])/2 and d sums
/// o (h[k] - h[11-k])/2 over half the taps. The larger magnitude of the two is |s| + |d|.
float interpolatedPeakKernel(const TruePeakFilter& filter, const float* x, int n)
{
    constexpr int kTaps = TruePeakFilter::kTaps, kHalf = kTaps / 2;
    const hn::ScalableTag<float> d;
    const int lanes = static_cast<int>(hn::Lanes(d));
    float even1[kHalf], odd1[kHalf], even2[kHalf], odd2[kHalf];
    for (int k = 0; k < kHalf; ++k) {
        const auto near = static_cast<std::size_t>(k),
                   far = static_cast<std::size_t>(kTaps - 1 - k);
        even1[k] = 0.5f * (filter.first[near] + filter.first[far]);
        odd1[k] = 0.5f * (filter.first[near] - filter.first[far]);
        even2[k] = 0.5f * (filter.second[near] + filter.second[far]);
        odd2[k] = 0.5f * (filter.second[near] - filter.second[far]);
    }
    auto largest = hn::Zero(d);
    for (int i = 0; i < n; i += lanes) {
        auto s1 = hn::Zero(d), d1 = s1, s2 = s1, d2 = s1;
        for (int k = 0; k < kHalf; ++k) {
            const auto newer = hn::LoadU(d, x + i - k);
            const auto older = hn::LoadU(d, x + i - (kTaps - 1 - k));
            const auto e = hn::Add(newer, older), o = hn::Sub(newer, older);
            s1 = hn::MulAdd(e, hn::Set(d, even1[k]), s1);
            d1 = hn::MulAdd(o, hn::Set(d, odd1[k]), d1);
            s2 = hn::MulAdd(e, hn::Set(d, even2[k]), s2);
            d2 = hn::MulAdd(o, hn::Set(d, odd2[k]), d2);
        }
        auto peak = hn::Max(hn::Add(hn::Abs(s1), hn::Abs(d1)), hn::Add(hn::Abs(s2), hn::Abs(d2)));
        if (n - i < lanes)
            peak = hn::IfThenElseZero(hn::FirstN(d, static_cast<std::size_t>(n - i)), peak);
        largest = hn::Max(largest, peak);
    }
    return hn::GetLane(hn::MaxOfLanes(d, largest));
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

// Taps from the newest sample to the oldest. Phases 0 and 1 of Annex 2's table.
constexpr TruePeakFilter kAnnex2{
    {0.0017089843750f, 0.0109863281250f, -0.0196533203125f, 0.0332031250000f, -0.0594482421875f,
     0.1373291015625f, 0.9721679687500f, -0.1022949218750f, 0.0476074218750f, -0.0266113281250f,
     0.0148925781250f, -0.0083007812500f},
    {-0.0291748046875f, 0.0292968750000f, -0.0517578125000f, 0.0891113281250f, -0.1665039062500f,
     0.4650878906250f, 0.7797851562500f, -0.2003173828125f, 0.1015625000000f, -0.0582275390625f,
     0.0330810546875f, -0.0189208984375f}};

// Its phases lie nearer the samples: the second is almost a unit impulse.
constexpr TruePeakFilter kOtherRates{
    {-0.0017290408356729625f, 0.029158784881692677f, -0.046099555711141285f, 0.08616031626350772f,
     -0.15946140818094268f, 0.46467030920006835f, 0.7591584024185642f, -0.19886324660220642f,
     0.09586897108756887f, -0.05455391567180414f, 0.029503254469618413f, -0.018858971165698207f},
    {-0.014399872264161291f, 0.008044286857665084f, -0.019872243136754036f, 0.029619329487854916f,
     -0.05927231810554856f, 0.13017896194978784f, 0.9923597071451201f, -0.0971058995519968f,
     0.04833968399400932f, -0.023399433193661764f, 0.01352769296977451f, -0.011801861541890165f}};

}  // namespace

HWY_EXPORT(interpolatedPeakKernel);
float (*const interpolatedPeak)(const TruePeakFilter&, const float*,
                                int) = SIMD_CHOOSE(interpolatedPeakKernel);

const TruePeakFilter& TruePeakFilter::at(double sampleRate) noexcept
{
    const bool isListed = sampleRate == 48000 || sampleRate == 96000 || sampleRate == 192000;
    return isListed ? kAnnex2 : kOtherRates;
}

void TruePeak::prepare(double sampleRate)
{
    filter_ = &TruePeakFilter::at(sampleRate);
    reset();
}

float TruePeak::advance(float* samples, int n) noexcept
{
    std::copy(history_.begin(), history_.end(), samples);
    std::copy_n(samples + n, kHistory, history_.begin());
    return interpolatedPeak(*filter_, samples + kHistory, n);
}

}  // namespace quillworks
#endif
