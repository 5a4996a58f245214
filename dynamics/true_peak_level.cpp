// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dynamics/true_peak_level.cpp"
#include "dsp/simd.h"
//
#include <array>

#include "dsp/midpoint-inl.h"
#include "dsp/midpoint_filter.h"
#include "dynamics/true_peak_level.h"

#ifndef QUILLWORKS_TRUE_PEAK_FILTERS
#define QUILLWORKS_TRUE_PEAK_FILTERS
namespace quillworks {
namespace {

struct Filters {
    std::array<float, 40> longHalf;
    std::array<float, 8> shortHalf;
    std::array<float, 6> quarter;
    std::array<float, 3> eighth;
};

}  // namespace
}  // namespace quillworks
#endif

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = PairTag<float>;
using V = hn::Vec<D>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

HWY_INLINE V at(const float* x)
{
    return hn::LoadU(D(), x);
}

/// The safe level of a point that the two chains see as a and b.
HWY_INLINE V joined(V a, V b)
{
    return hn::MulAdd(hn::Set(D(), 0.6f), hn::Abs(hn::Sub(a, b)), hn::Max(hn::Abs(a), hn::Abs(b)));
}

struct Points {
    const float *half, *first, *third;
};

/// level[0 .. lanes) becomes the larger of itself and v.
HWY_INLINE void raise(double* level, V v)
{
    const hn::CappedTag<double, 4> wide;
    const hn::Rebind<float, decltype(wide)> narrow;
    HWY_ALIGN float here[kLanes];
    hn::Store(v, D(), here);
    for (int i = 0; i < kLanes; i += static_cast<int>(hn::MaxLanes(wide))) {
        const auto raised = hn::PromoteTo(wide, hn::LoadU(narrow, here + i));
        hn::StoreU(hn::Max(hn::LoadU(wide, level + i), raised), wide, level + i);
    }
}

void raiseLevels(const Filters& f, TruePeakLevel::Channel& channel, const double* samples,
                 int frames, double* const* level)
{
    using Level = TruePeakLevel;
    using Chain = Level::Chain;
    constexpr int kReach = Level::kBehind + Level::kAhead + 2 * Level::kPadding;
    HWY_ALIGN float single[kReach + Level::kMaxFrames];
    const float* x = single + Level::kBehind;
    const int size = Level::kBehind + frames + Level::kAhead;
    for (int i = 0; i < size; ++i) single[i] = static_cast<float>(samples[i - Level::kBehind]);
    // Whole vectors are worked; what decides about all lanes at once must not meet chance.
    for (int i = size; i < size + 2 * Level::kPadding; ++i) single[i] = 0;
    // Points that the frames need and the call before did not: the midway ones end three frames
    // later than the quarters, and those one frame later than the eighths.
    const int halvesKept = channel.goesOn ? Chain::kHalves : 0;
    const int kept = channel.goesOn ? Chain::kQuarters : 0;
    const int newHalves = frames + Chain::kHalves - halvesKept;
    const int newQuarters = frames + Chain::kQuarters - kept;
    Points points[2];
    for (int c = 0; c < 2; ++c) {
        Chain& chain = channel.chains[c];
        const float* const m = chain.half + 3;  // of frame 0
        const float* const from = x - 3 + halvesKept;
        if (c == 0)
            midpoints(f.longHalf.data(), 40, from, chain.half + halvesKept, newHalves);
        else
            midpoints(f.shortHalf.data(), 8, from, chain.half + halvesKept, newHalves);
        const float* const two[2] = {x + kept, m + kept};
        midpoints<2, 0, 6>(f.quarter.data(), two, chain.first + kept, newQuarters);
        // Behind each of the frames before, so that frame 0 has one before it.
        midpoints<2, -1, 6>(f.quarter.data(), two, chain.third + kept, newQuarters);
        points[c] = {m, chain.first, chain.third + 1};
    }
    for (int i = 0; i < frames; i += kLanes, x += kLanes) {
        V eighth[4][2];
        for (int c = 0; c < 2; ++c) {
            const float* const four[4] = {x, points[c].first + i, points[c].half + i,
                                          points[c].third + i};
            const float* const h = f.eighth.data();
            eighth[0][c] = midpointAt<4, 0, 3>(h, four, 0);
            eighth[1][c] = midpointAt<4, 1, 3>(h, four, 0);
            eighth[2][c] = midpointAt<4, 2, 3>(h, four, 0);
            eighth[3][c] = midpointAt<4, 3, 3>(h, four, 0);
        }
        const auto& [a, b] = points;
        const V own[4] = {hn::Abs(at(x)), joined(at(a.first + i), at(b.first + i)),
                          joined(at(a.half + i), at(b.half + i)),
                          joined(at(a.third + i), at(b.third + i))};
        for (int p = 0; p < 4; ++p) {
            raise(level[p] + i, hn::Max(own[p], joined(eighth[p][0], eighth[p][1])));
        }
    }
    for (Chain& chain : channel.chains) {
        for (int i = 0; i < Chain::kHalves; ++i) chain.half[i] = chain.half[frames + i];
        chain.first[0] = chain.first[frames];
        chain.third[0] = chain.third[frames];
    }
    channel.goesOn = true;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(raiseLevels);
namespace {

void (*const chosenRaise)(const Filters&, TruePeakLevel::Channel&, const double*, int,
                          double* const*) = SIMD_CHOOSE(raiseLevels);

const Filters kFilters = {midpointTaps<float, 40>(8), midpointTaps<float, 8>(4),
                          midpointTaps<float, 6>(8), midpointTaps<float, 3>(6)};

}  // namespace

void TruePeakLevel::prepare(int channels)
{
    channels_.resize(static_cast<std::size_t>(channels));
    reset();
}

void TruePeakLevel::reset() noexcept
{
    for (auto& c : channels_) c = Channel{};
}

void TruePeakLevel::raise(int channel, const double* x, int frames, double* const* level) noexcept
{
    chosenRaise(kFilters, channels_[static_cast<std::size_t>(channel)], x, frames, level);
}

void TruePeakLevel::pass() noexcept
{
    for (auto& c : channels_) c.goesOn = false;
}

}  // namespace quillworks
#endif
