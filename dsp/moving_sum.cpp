// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/moving_sum.cpp"
#include "dsp/simd.h"
//
#include <algorithm>

#include "dsp/moving_sum.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using I = hn::CappedTag<std::int64_t, 8>;
using V = hn::Vec<I>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(I()));

/// Lane k takes lane k - by, the first ones take 0.
struct Shift {
    decltype(hn::IndicesFromVec(I(), V())) from;
    hn::Mask<I> keeps;
    explicit HWY_INLINE Shift(int by)
        : from(hn::IndicesFromVec(
              I(), hn::Max(hn::Sub(hn::Iota(I(), 0), hn::Set(I(), by)), hn::Zero(I())))),
          keeps(hn::Gt(hn::Iota(I(), 0), hn::Set(I(), by - 1)))
    {}
    HWY_INLINE V of(V v) const { return hn::IfThenElseZero(keeps, hn::TableLookupLanes(v, from)); }
};

/// x becomes the sums, from `sum` on, of what comes, x, less what goes. Returns the last one.
std::int64_t addUp(std::int64_t* x, const std::int64_t* goes, int n, std::int64_t sum)
{
    const I d;
    int i = 0;
    if (n >= kLanes && kLanes > 1) {
        const Shift one(1), two(2), four(4);
        const auto last = hn::IndicesFromVec(d, hn::Set(d, kLanes - 1));
        V before = hn::Set(d, sum);
        for (; i + kLanes <= n; i += kLanes) {
            V sums = hn::Sub(hn::LoadU(d, x + i), hn::LoadU(d, goes + i));
            sums = hn::Add(sums, one.of(sums));
            if constexpr (kLanes > 2) sums = hn::Add(sums, two.of(sums));
            if constexpr (kLanes > 4) sums = hn::Add(sums, four.of(sums));
            sums = hn::Add(sums, before);
            hn::StoreU(sums, d, x + i);
            before = hn::TableLookupLanes(sums, last);
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
