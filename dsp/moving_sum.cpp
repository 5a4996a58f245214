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

/// x becomes the sums from `sum` on, of x less what `past` held, which becomes x.
std::int64_t addUp(std::int64_t* x, std::int64_t* past, int n, std::int64_t sum)
{
    const I d;
    int i = 0;
    if (n >= kLanes && kLanes > 1) {
        const Shift one(1), two(2), four(4);
        const auto last = hn::IndicesFromVec(d, hn::Set(d, kLanes - 1));
        V before = hn::Set(d, sum);
        for (; i + kLanes <= n; i += kLanes) {
            const V v = hn::LoadU(d, x + i);
            V sums = hn::Sub(v, hn::LoadU(d, past + i));
            hn::StoreU(v, d, past + i);
            sums = hn::Add(sums, one.of(sums));
            if constexpr (kLanes > 2) sums = hn::Add(sums, two.of(sums));
            if constexpr (kLanes > 4) sums = hn::Add(sums, four.of(sums));
            sums = hn::Add(sums, before);
            hn::StoreU(sums, d, x + i);
            before = hn::TableLookupLanes(sums, last);
        }
        sum = hn::GetLane(before);
    }
    for (; i < n; ++i) {
        const std::int64_t v = x[i];
        sum += v - past[i];
        past[i] = v;
        x[i] = sum;
    }
    return sum;
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(addUp);
namespace {

std::int64_t (*const addUpBest)(std::int64_t*, std::int64_t*, int,
                                std::int64_t) = SIMD_CHOOSE(addUp);

}  // namespace

void MovingSum::process(std::int64_t* x, int n) noexcept
{
    for (int done = 0; done < n;) {
        const int run = std::min(n - done, length() - at_);
        sum_ = addUpBest(x + done, past_.data() + at_, run, sum_);
        done += run;
        at_ = at_ + run == length() ? 0 : at_ + run;
    }
}

}  // namespace quillworks
#endif
