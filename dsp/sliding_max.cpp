// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/sliding_max.cpp"
#include "dsp/simd.h"
//
#include <algorithm>

#include "dsp/fetch_ahead.h"
#include "dsp/scan-inl.h"
#include "dsp/sliding_max.h"
#include "dsp/vec.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

using D = hn::CappedTag<double, 8>;
constexpr int kLanes = static_cast<int>(hn::MaxLanes(D()));

struct Larger {
    template <class V> HWY_INLINE V operator()(V a, V b) const { return hn::Max(a, b); }
};

/// From i to `end`, along which each window covers the same blocks. Returns the new maximum of the
/// open block. Where new maxima come is not to be foretold: every vector is scanned, rather than
/// looked at first.
HWY_INLINE double slidePart(const SlidingMax::Run& r, int i, int end, double top,
                            const double* whole)
{
    const D d;
    if (end - i >= kLanes) {
        const LaneScan<D> scan;
        auto before = hn::Set(d, top);
        const auto whole0 = hn::Set(d, whole[0]), whole1 = hn::Set(d, whole[1]);
        for (; i + kLanes <= end; i += kLanes) {
            const auto x = hn::LoadU(d, r.x + i);
            if (r.open) hn::StoreU(x, d, r.open + i);
            const auto running = scan.of(x, Larger());
            const auto since = hn::Max(running, before);
            before = hn::Max(before, scan.last(running));
            hn::StoreU(hn::Max(hn::Max(hn::LoadU(d, r.old[0] + i), whole0), since), d,
                       r.out[0] + i);
            if (r.out[1])
                hn::StoreU(hn::Max(hn::Max(hn::LoadU(d, r.old[1] + i), whole1), since), d,
                           r.out[1] + i);
        }
        top = hn::GetLane(before);
    }
    for (; i < end; ++i) {
        if (r.open) r.open[i] = r.x[i];
        top = std::max(top, r.x[i]);
        for (int w = 0; w < 2; ++w)
            if (r.out[w]) r.out[w][i] = std::max({r.old[w][i], whole[w], top});
    }
    return top;
}

double slide(const SlidingMax::Run& r)
{
    double top = r.top;
    for (int i = 0; i < r.n;) {
        int end = r.n;
        double whole[2];
        for (int w = 0; w < 2; ++w) {
            const bool isEarly = i < r.early[w];
            if (isEarly) end = std::min(end, r.early[w]);
            whole[w] = r.whole[w][isEarly ? 0 : 1];
        }
        top = slidePart(r, i, end, top, whole);
        i = end;
    }
    return top;
}

/// Running maxima of x from its end backwards.
void runBack(const double* x, int n, double* kept)
{
    const D d;
    const LaneScan<D> scan;
    auto after = hn::Zero(d);
    int i = n;
    for (; i >= kLanes; i -= kLanes) {
        const auto running = scan.of(hn::Reverse(d, hn::LoadU(d, x + i - kLanes)), Larger());
        hn::StoreU(hn::Reverse(d, hn::Max(running, after)), d, kept + i - kLanes);
        after = hn::Max(after, scan.last(running));
    }
    double most = hn::GetLane(after);
    while (i-- > 0) kept[i] = most = std::max(most, x[i]);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {

HWY_EXPORT(slide);
HWY_EXPORT(runBack);
namespace {

double (*const chosenSlide)(const SlidingMax::Run&) = SIMD_CHOOSE(slide);
void (*const chosenRunBack)(const double*, int, double*) = SIMD_CHOOSE(runBack);

}  // namespace

void SlidingMax::prepare(int shortest, int longest)
{
    block_ = 1;
    while (2 * block_ < shortest && block_ * block_ < longest) block_ *= 2;
    slots_ = (longest - 1) / block_ + 2;
    const auto slots = static_cast<std::size_t>(slots_), block = static_cast<std::size_t>(block_);
    const bool isNew =
        fromEnd_.size() != slots * block && tops_.size() != slots && open_.size() != block;
    fromEnd_.require(slots * block);
    tops_.require(slots);
    open_.require(block);
    isSilent_ = isNew;  // they come with zeros
    for (auto& w : windows_) w.length = shortest;
    reset();
}

void SlidingMax::reset() noexcept
{
    if (!isSilent_) {
        fromEnd_.fill(0);
        tops_.fill(0);
        open_.fill(0);
    }
    isSilent_ = true;
    present_ = at_ = 0;
    top_ = 0;
    for (auto& w : windows_) setLength(w, w.length);
}

void SlidingMax::takeOver(const SlidingMax& other) noexcept
{
    isSilent_ = false;
    std::copy(other.fromEnd_.begin(), other.fromEnd_.end(), fromEnd_.begin());
    std::copy(other.tops_.begin(), other.tops_.end(), tops_.begin());
    std::copy(other.open_.begin(), other.open_.end(), open_.begin());
    present_ = other.present_;
    at_ = other.at_;
    top_ = other.top_;
    std::copy(std::begin(other.windows_), std::end(other.windows_), windows_);
}

void SlidingMax::setLength(Window& w, int length) noexcept
{
    w.length = length;
    w.blocks = (length - 1) / block_;
    w.rest = (length - 1) % block_;
    measure(w);
}

void SlidingMax::measure(Window& w) noexcept
{
    w.top = peakOf(w.blocks - 1);
    w.more = w.blocks > 0 ? std::max(w.top, *fromEnd(w.blocks)) : 0;
}

/// Where the backward maxima of the block `back` before the open one start.
const double* SlidingMax::fromEnd(int back) const noexcept
{
    const int slot = present_ - back + (back > present_ ? slots_ : 0);
    return fromEnd_.data() + slot * block_;
}

/// What a window sees, from the next sample on, of the block that it begins in.
const double* SlidingMax::begunIn(const Window& w) const noexcept
{
    return at_ < w.rest ? fromEnd(w.blocks + 1) + block_ - w.rest + at_
                        : fromEnd(w.blocks) + at_ - w.rest;
}

/// Of the latest `count` complete blocks.
double SlidingMax::peakOf(int count) const noexcept
{
    const int straight = std::clamp(count, 0, present_);
    const int wrapped = count - straight;
    const double* const tops = tops_.data();
    if (count <= 2) {
        double most = 0;
        for (int i = 0; i < straight; ++i) most = std::max(most, tops[present_ - 1 - i]);
        for (int i = 0; i < wrapped; ++i) most = std::max(most, tops[slots_ - 1 - i]);
        return most;
    }
    const double late = vec::peak(tops + present_ - straight, straight);
    return wrapped > 0 ? std::max(late, vec::peak(tops + slots_ - wrapped, wrapped)) : late;
}

/// What the second window begins in, and where the blocks that close will lie; the first window's
/// has just been written.
void SlidingMax::fetchAhead(int n) const noexcept
{
    const auto ask = [this, n](const double* from) {
        const int behind = static_cast<int>(fromEnd_.end() - from);
        quillworks::fetchAhead(from, std::min(n, behind));
        quillworks::fetchAhead(fromEnd_.data(), n - behind);
    };
    ask(begunIn(windows_[1]));
    ask(fromEnd_.data() + present_ * block_);
}

void SlidingMax::process(const double* x, int n, double* first, double* second) noexcept
{
    double* const out[2] = {first, second};
    isSilent_ = false;
    int begun = -at_;  // where the open block begins in x
    for (int done = 0; done < n;) {
        // A block that x has from end to end is closed from there.
        const bool isWhole = begun >= 0 && begun + block_ <= n;
        int run = std::min(n - done, block_ - at_);
        Run r{x + done, isWhole ? nullptr : open_.data() + at_, top_, {}, {}, {}, {}, 0};
        for (int k = 0; k < 2; ++k) {
            const auto& w = windows_[k];
            r.out[k] = out[k] ? out[k] + done : nullptr;
            r.whole[k][0] = w.more;
            r.whole[k][1] = w.top;
            r.old[k] = begunIn(w);
            r.early[k] = std::max(0, w.rest - at_);
            // Blocks lie one behind the other, but for the first behind the last.
            const bool isLast = r.old[k] >= fromEnd_.end() - block_;
            if (r.early[k] > 0 && isLast) run = std::min(run, r.early[k]);
        }
        r.n = run;
        top_ = chosenSlide(r);
        for (int k = 0; k < 2; ++k)  // a window of one sample reaches into no block
            if (r.out[k] && windows_[k].length == 1) vec::copy(r.out[k], r.x, run);
        done += run;
        at_ += run;
        if (at_ < block_) continue;
        closeBlock(isWhole ? x + begun : open_.data());
        begun = done;
    }
}

void SlidingMax::closeBlock(const double* block) noexcept
{
    double* const kept = fromEnd_.data() + present_ * block_;
    chosenRunBack(block, block_, kept);
    tops_[static_cast<std::size_t>(present_)] = *kept;
    present_ = present_ + 1 == slots_ ? 0 : present_ + 1;
    at_ = 0;
    top_ = 0;
    for (auto& w : windows_) measure(w);
}

}  // namespace quillworks
#endif
