// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/moving_sum.cpp"
#include "dsp/simd.h"
//
#include <algorithm>

#include "dsp/moving_sum.h"
#include "dsp/scan-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using I = hn::CappedTag<std::int64_t, 8>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(I()));

/// x becomes the sums, from `sum` on, of what comes, x, less what goes. Returns the last one.
std::int64_t addUp(std::int64_t* x, const std::int64_t* goes, int n, std::int64_t sum)
{
    const I d;
    int i = 0;
    if (n >= kLanes && kLanes > 1) {
        const LaneScan<I> scan;
        const auto add = [](auto a, auto b) HWY_ATTR { return hn::Add(a, b); };
        auto before = hn::Set(d, sum);
        for (; i + kLanes <= n; i += kLanes) {
            const auto sums = scan.of(hn::Sub(hn::LoadU(d, x + i), hn::LoadU(d, goes + i)), add);
            hn::StoreU(hn::Add(sums, before), d, x + i);
            before = hn::Add(before, scan.last(sums));
        }
        sum = hn::GetLane(before);
    }
    for (; i < n; ++i) x[i] = sum += x[i] - goes[i];
    return sum;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(addUp);
namespace {

std::int64_t (*const addUpBest)(std::int64_t*, const std::int64_t*, int,
                                std::int64_t) = SIMD_CHOOSE(addUp);

}  // namespace

void MovingSum::process(std::int64_t* x, int n) noexcept
{
    for (int done = 0; done < n;) {
        const int run = std::min(n - done, kRun);
        std::int64_t* const room = past_.append(run);
        std::copy_n(x + done, run, room);
        sum_ = addUpBest(x + done, room - length_, run, sum_);
        done += run;
    }
}

}  // namespace quillworks
#endif
