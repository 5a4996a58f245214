// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/moving_sum.cpp"
#include "dsp/simd.h"
//
#include <algorithm>
#include <cstdint>

#include "dsp/moving_sum.h"
#include "dsp/scan-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using I = hn::CappedTag<std::int64_t, 4>;  // a scan of 8 lanes takes a step more and is no faster
constexpr int kLanes = static_cast<int>(hn::MaxLanes(I()));

/// The sums, from `sum` on, of what comes less what goes. Returns the last one.
std::int64_t addUp(const std::int64_t* comes, const std::int64_t* goes, std::int64_t* sums, int n,
                   std::int64_t sum)
{
    const I d;
    int i = 0;
    if (n >= kLanes && kLanes > 1) {
        const LaneScan<I> scan;
        const auto add = [](auto a, auto b) HWY_ATTR { return hn::Add(a, b); };
        auto before = hn::Set(d, sum);
        for (; i + kLanes <= n; i += kLanes) {
            const auto change = hn::Sub(hn::LoadU(d, comes + i), hn::LoadU(d, goes + i));
            const auto since = scan.of(change, add);
            hn::StoreU(hn::Add(since, before), d, sums + i);
            before = hn::Add(before, scan.last(since));
        }
        sum = hn::GetLane(before);
    }
    for (; i < n; ++i) sums[i] = sum += comes[i] - goes[i];
    return sum;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(addUp);
namespace {

std::int64_t (*const chosenAddUp)(const std::int64_t*, const std::int64_t*, std::int64_t*, int,
                                  std::int64_t) = SIMD_CHOOSE(addUp);

}  // namespace

void MovingSum::run(const std::int64_t* x, std::int64_t* sums, int n) noexcept
{
    constexpr int kPiece = 256;
    alignas(64) std::int64_t goes[kPiece];
    for (int done = 0; done < n; done += kPiece) {
        const int piece = std::min(kPiece, n - done);
        past_.run(x + done, goes, piece);
        sum_ = chosenAddUp(x + done, goes, sums + done, piece, sum_);
    }
}

}  // namespace quillworks
#endif
