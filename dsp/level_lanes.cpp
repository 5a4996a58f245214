// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/level_lanes.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/decibel.h"
#include "dsp/level_lanes.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<float, 8>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));
constexpr int kSignals = LevelLanes::kSignals, kAll = 2 * kSignals;
constexpr int kVectors = kAll / kLanes;

constexpr float kLoudest = 1e6f;

HWY_INLINE hn::Vec<D> magnitude(const float* x)
{
    const D d;
    const auto a = hn::Abs(hn::LoadU(d, x));
    return hn::IfThenElseZero(hn::Eq(a, a), hn::Min(a, hn::Set(d, kLoudest)));
}

/// Magnitudes frame by frame; whole vectors of each signal are read.
HWY_INLINE void interleave(const float* const* x, int n, float* rows)
{
    for (int i = 0; i < n; i += kLanes)
        hn::StoreInterleaved4(magnitude(x[0] + i), magnitude(x[1] + i), magnitude(x[2] + i),
                              magnitude(x[3] + i), D(), rows + kSignals * i);
}

/// The signals of a frame in the lanes from `lane` on.
HWY_INLINE hn::Vec<D> frame(const float* row, int lane)
{
    if constexpr (kLanes > kSignals)
        return hn::LoadDup128(D(), row);
    else
        return hn::LoadU(D(), row + lane % kSignals);
}

/// Whole vectors of frames along which nothing rises, as most are: all that is to be known of them
/// is their largest magnitudes and their weighted sums, and no frame waits for the one before.
/// Returns false, and has done nothing, where something may rise or is no number.
bool fall(const LevelLanes::Times& t, const float* const* x, int n, double* envelopes)
{
    const D d;
    auto fast = hn::Load(d, t.weights[0]), slow = hn::Load(d, t.weights[1]);
    const auto growFast = hn::Set(d, t.growth[kLanes / 4][0]);
    const auto growSlow = hn::Set(d, t.growth[kLanes / 4][1]);
    hn::Vec<D> most[kSignals], sums[2][kSignals];
    for (int s = 0; s < kSignals; ++s) most[s] = sums[0][s] = sums[1][s] = hn::Zero(d);
    for (int i = 0; i < n; i += kLanes) {
        for (int s = 0; s < kSignals; ++s) {
            const auto a = hn::Abs(hn::LoadU(d, x[s] + i));
            most[s] = hn::Max(most[s], a);
            sums[0][s] = hn::MulAdd(a, fast, sums[0][s]);
            sums[1][s] = hn::MulAdd(a, slow, sums[1][s]);
        }
        fast = hn::Mul(fast, growFast);
        slow = hn::Mul(slow, growSlow);
    }
    double fallen[kAll];
    bool falls = true;
    for (int s = 0; s < kSignals; ++s) {
        const double top = hn::GetLane(hn::MaxOfLanes(d, most[s]));
        for (int speed = 0; speed < 2; ++speed) {
            const int lane = speed * kSignals + s;
            const double left = t.left[n][speed];
            // Below the envelope's end none of them is above it on its way; a sum of what is no
            // number compares as false.
            falls &= top <= envelopes[lane] * left;
            const double sum = hn::GetLane(hn::SumOfLanes(d, sums[speed][s]));
            fallen[lane] = (envelopes[lane] + sum) * left;
            falls &= fallen[lane] >= 0;
        }
    }
    if (falls) std::copy_n(fallen, kAll, envelopes);
    return falls;
}

/// At most kPiece frames, in single precision: of what a fall leaves of the envelope nothing is
/// taken off before the end, and what a fall takes on is summed up apart, where no step is too
/// small to count.
void follow(const LevelLanes::Times& t, const float* const* x, int n, double* envelopes)
{
    if (n % kLanes == 0 && fall(t, x, n, envelopes)) return;
    const D d;
    alignas(64) float rows[kSignals * (LevelLanes::kPiece + LevelLanes::kReadsBeyond)];
    alignas(64) float base[kAll], added[kAll];
    interleave(x, n, rows);
    for (int lane = 0; lane < kAll; ++lane) base[lane] = static_cast<float>(envelopes[lane]);
    for (int v = 0; v < kVectors; ++v) {
        const int lane = v * kLanes;
        const auto grow = hn::Load(d, t.grow + lane), rise = hn::Load(d, t.rise + lane);
        const auto keep = hn::Load(d, t.keep + lane);
        auto weight = hn::Load(d, t.take + lane), u = hn::Load(d, base + lane);
        auto sum = hn::Zero(d);
        // What a rise at the next frame would make of nothing, less the sum of all that has been
        // taken on; a rise adds what it keeps of u, a fall leaves u as it is.
        const auto risen = [&](int i) HWY_ATTR {
            weight = hn::Mul(weight, grow);
            const auto taken = hn::Mul(frame(rows + kSignals * i, lane), weight);
            sum = hn::Add(sum, taken);
            return hn::MulSub(taken, rise, sum);
        };
        int i = 0;
        for (; i + 2 <= n; i += 2) {  // two at a time: what one waits for is what takes time
            const auto first = risen(i), second = risen(i + 1);
            const auto both = hn::MulAdd(first, keep, second);
            u = hn::Max(hn::Max(u, both), hn::MulAdd(u, keep, hn::Max(first, second)));
        }
        if (i < n) u = hn::Max(u, hn::MulAdd(u, keep, risen(i)));
        hn::Store(u, d, base + lane);
        hn::Store(sum, d, added + lane);
    }
    for (int lane = 0; lane < kAll; ++lane) {
        envelopes[lane] = (double(base[lane]) + double(added[lane])) * t.left[n][lane / kSignals];
    }
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(follow);
namespace {

void (*const chosenFollow)(const LevelLanes::Times&, const float* const*, int,
                           double*) = SIMD_CHOOSE(follow);

}  // namespace

void LevelLanes::Times::prepare(double sampleRate) noexcept
{
    const double risen = followerCoefficient(sampleRate, 1 / sampleRate);
    for (int speed = 0; speed < 2; ++speed) {
        const double fallen = followerCoefficient(sampleRate, speed == 0 ? 1 : 3);
        std::fill_n(take + speed * kSignals, kSignals, static_cast<float>(1 - fallen));
        std::fill_n(rise + speed * kSignals, kSignals,
                    static_cast<float>((1 - risen) / (1 - fallen)));
        std::fill_n(keep + speed * kSignals, kSignals, static_cast<float>(risen / fallen));
        std::fill_n(grow + speed * kSignals, kSignals, static_cast<float>(1 / fallen));
        left[0][speed] = 1;
        for (int i = 0; i < kPiece; ++i) left[i + 1][speed] = left[i][speed] * fallen;
        for (int i = 0; i < kWidest; ++i)
            weights[speed][i] = static_cast<float>((1 - fallen) / left[i + 1][speed]);
        for (int i = 0; i < 3; ++i)
            growth[i][speed] = static_cast<float>(1 / left[std::max(1, 4 * i)][speed]);
    }
}

void LevelLanes::reset() noexcept
{
    std::fill(std::begin(envelopes_), std::end(envelopes_), 0.0);
}

void LevelLanes::run(const Times& times, const float* const* x, int n) noexcept
{
    for (int done = 0; done < n; done += kPiece) {
        const float* const piece[] = {x[0] + done, x[1] + done, x[2] + done, x[3] + done};
        chosenFollow(times, piece, std::min(kPiece, n - done), envelopes_);
    }
}

}  // namespace quillworks
#endif
