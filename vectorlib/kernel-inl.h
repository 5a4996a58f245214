// SPDX-License-Identifier: ISC
// The loop and the tails behind every kernel; compiled once per instruction set.
#if defined(QUILLWORKS_VECTORLIB_KERNEL_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_VECTORLIB_KERNEL_INL_H
#undef QUILLWORKS_VECTORLIB_KERNEL_INL_H
#else
#define QUILLWORKS_VECTORLIB_KERNEL_INL_H
#endif

#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "vectorlib/operations.h"
#include "vectorlib/vector_library.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// Elements per turn of the main loop. One for the scalar build, which then needs no tail.
constexpr std::size_t kGroup = HWY_TARGET == HWY_SCALAR ? 1 : 16;
constexpr std::size_t kSlots = 16;

/// Vectors of at most `bytes`.
template <class T, std::size_t bytes> using Widest = hn::CappedTag<T, bytes / sizeof(T)>;

// Long blocks are bound by their loads and stores, which are faster in 32 bytes; the fewer
// instructions of 64 show in blocks up to this count, and in conversions always (Zen 4).
constexpr std::size_t kShortBlock = 64;

/// What an operation takes and gives. Mixed types compute in the wider one and round once.
template <class Dest, class Source, class Constant, std::size_t sourceCount,
          std::size_t constantCount, Result kind = Result::Stores>
struct Form {
    using D = Dest;
    using S = Source;
    using C = Constant;
    using Work = std::conditional_t<(sizeof(D) > sizeof(S)), D, S>;
    static constexpr std::size_t sources = sourceCount, constants = constantCount;
    static constexpr bool stores = kind != Result::Meters, meters = kind != Result::Stores;
    static constexpr bool converts = sizeof(D) != sizeof(S);
    // In place, a wider destination overtakes its source: such a loop runs from the end.
    static constexpr bool backwards = sizeof(D) > sizeof(S);
};

/// The arguments of a call as the law sees them.
template <class F> struct Frame {
    typename F::D* d;
    const typename F::S* s[2];
    typename F::Work c[3], step;  // step: of the ramp
};

// The functions of the laws, as SSE2 defines them: b wins over a NaN and between zeros, and
// rounding is to nearest. Highway's portable scalar build has other rules.
#if HWY_TARGET == HWY_SCALAR
template <class V> HWY_INLINE V min(V a, V b)
{
    return a.raw < b.raw ? a : b;
}
template <class V> HWY_INLINE V max(V a, V b)
{
    return a.raw > b.raw ? a : b;
}
template <class D, class V> HWY_INLINE hn::Vec<D> rounded(D, V v)
{
    return hn::Vec<D>(static_cast<hn::TFromD<D>>(v.raw));
}
template <class Half, class V> HWY_INLINE V halvesMaximum(Half, V v)
{
    return v;  // one lane has no halves
}
#else
template <class V> HWY_INLINE V min(V a, V b)
{
    return hn::Min(a, b);
}
template <class V> HWY_INLINE V max(V a, V b)
{
    return hn::Max(a, b);
}
template <class D, class V> HWY_INLINE hn::Vec<D> rounded(D d, V v)
{
    return hn::DemoteTo(d, v);
}
template <class Half, class V> HWY_INLINE hn::Vec<Half> halvesMaximum(Half half, V v)
{
    return hn::Max(hn::LowerHalf(half, v), hn::UpperHalf(half, v));
}
#endif
template <class V> HWY_INLINE V abs(V a)
{
    return hn::Abs(a);
}
template <class V> HWY_INLINE V negative(V a)  // flips the sign bit, of zero and NaN too
{
    return hn::Neg(a);
}
template <class V> HWY_INLINE V larger(V a, V b)
{
    return hn::IfThenElse(hn::Ge(abs(a), abs(b)), a, b);
}

/// The operands that a law uses: found by applying it to them.
struct Uses {
    bool d = false, s1 = false, s2 = false, ramp = false;

    friend constexpr Uses operator+(Uses a, Uses b)
    {
        return {a.d || b.d, a.s1 || b.s1, a.s2 || b.s2, a.ramp || b.ramp};
    }
    friend constexpr Uses operator-(Uses a, Uses b) { return a + b; }
    friend constexpr Uses operator*(Uses a, Uses b) { return a + b; }
    friend constexpr Uses min(Uses a, Uses b) { return a + b; }
    friend constexpr Uses max(Uses a, Uses b) { return a + b; }
    friend constexpr Uses larger(Uses a, Uses b) { return a + b; }
    friend constexpr Uses abs(Uses a) { return a; }
    friend constexpr Uses negative(Uses a) { return a; }
};
template <class Law>
constexpr Uses kUses = Law::of(Uses{.d = true}, Uses{.s1 = true}, Uses{.s2 = true}, Uses{}, Uses{},
                               Uses{}, Uses{.ramp = true}, Uses{});

// By bytes, since the memory may hold elements of the other precision when working in place.
template <class D, class T> HWY_INLINE hn::Vec<D> loadBytes(D d, const T* p)
{
#if HWY_TARGET == HWY_SCALAR
    T x;
    std::memcpy(&x, p, sizeof x);
    return hn::Set(d, x);
#else
    return hn::LoadU(d, p);
#endif
}
template <class D, class T> HWY_INLINE void storeBytes(D d, hn::Vec<D> v, T* p)
{
#if HWY_TARGET == HWY_SCALAR
    std::memcpy(p, &v.raw, sizeof v.raw);
    static_cast<void>(d);
#else
    hn::StoreU(v, d, p);
#endif
}

template <class D, class T> HWY_INLINE hn::Vec<D> load(D d, const T* p)
{
    if constexpr (std::is_same_v<T, hn::TFromD<D>>)
        return loadBytes(d, p);
    else
        return hn::PromoteTo(d, loadBytes(hn::Rebind<T, D>(), p));
}

template <class D, class T> HWY_INLINE void store(D d, hn::Vec<D> v, T* p)
{
    if constexpr (std::is_same_v<T, hn::TFromD<D>>) {
        storeBytes(d, v, p);
    } else {
        const hn::Rebind<T, D> narrow;
        storeBytes(narrow, rounded(narrow, v), p);
    }
}

/// The element count less one and the lane number, counted down: the ramp's clock. In 32-bit
/// integers for float, so that counts above 2^24 still convert as the scalar formula does.
template <class D> struct Countdown {
    using Clock = std::conditional_t<sizeof(hn::TFromD<D>) == 4, hn::Rebind<std::int32_t, D>, D>;
    using Tick = hn::TFromD<Clock>;
    hn::Vec<Clock> value;

    static HWY_INLINE Countdown from(std::size_t count)
    {
        const Clock clock;
        return {hn::Sub(hn::Set(clock, static_cast<Tick>(static_cast<std::int32_t>(count) - 1)),
                        hn::Iota(clock, Tick{0}))};
    }
    HWY_INLINE Countdown minus(std::size_t elements) const
    {
        return {hn::Sub(value, hn::Set(Clock(), static_cast<Tick>(elements)))};
    }
    HWY_INLINE hn::Vec<D> left() const
    {
        if constexpr (sizeof(hn::TFromD<D>) == 4)
            return hn::ConvertTo(D(), value);
        else
            return value;
    }
};

/// The elements of an operation. Nothing but `tail` knows the remainder of the count, which keeps
/// compile times down.
template <class Law, class F> struct Elements {
    using Work = typename F::Work;
    static constexpr Uses kUse = kUses<Law>;

    /// One vector of elements; `left` is how many follow each, for ramps.
    template <class Tag>
    static HWY_INLINE void step(Tag tag, const Frame<F>& f, std::size_t at, hn::Vec<Tag> left,
                                [[maybe_unused]] hn::Vec<Tag>& peak)
    {
        const auto zero = hn::Zero(tag);
        auto d = zero, s1 = zero, s2 = zero, c1 = zero, c2 = zero, c3 = zero, g = zero;
        if constexpr (kUse.d) d = load(tag, f.d + at);
        if constexpr (kUse.s1) s1 = load(tag, f.s[0] + at);
        if constexpr (kUse.s2) s2 = load(tag, f.s[1] + at);
        if constexpr (F::constants > 0) c1 = hn::Set(tag, f.c[0]);
        if constexpr (F::constants > 1) c2 = hn::Set(tag, f.c[1]);
        if constexpr (F::constants > 2) c3 = hn::Set(tag, f.c[2]);
        if constexpr (kUse.ramp) g = hn::Sub(c2, hn::Mul(hn::Set(tag, f.step), left));
        const auto v = Law::of(d, s1, s2, c1, c2, c3, g, zero);
        if constexpr (F::stores) store(tag, v, f.d + at);
        if constexpr (F::meters) peak = max(abs(v), peak);  // a NaN loses
    }

    /// How many elements follow each of a vector's, `elements` behind the clock's.
    template <class Tag>
    static HWY_INLINE hn::Vec<Tag> left(const Countdown<Tag>& clock, std::size_t elements)
    {
        if constexpr (kUse.ramp)
            return clock.minus(elements).left();
        else
            return hn::Zero(Tag());
    }

    template <class D, std::size_t vectors, std::size_t... v>
    static HWY_INLINE void group(const Frame<F>& f, std::size_t at, const Countdown<D>& clock,
                                 hn::Vec<D> (&peaks)[vectors], std::index_sequence<v...>)
    {
        constexpr std::size_t lanes = hn::MaxLanes(D()), turn = F::backwards ? vectors - 1 : 0;
        (step(D(), f, at + (turn ^ v) * lanes, left(clock, (turn ^ v) * lanes), peaks[v]), ...);
    }

    /// `whole` elements in groups, in vectors of up to `bytes`, and `rest` elements behind them.
    /// Returns their peak.
    template <std::size_t bytes, std::size_t rest>
    static HWY_INLINE Work groups(const Frame<F>& f, std::size_t whole, std::size_t count)
    {
        using D = Widest<Work, bytes>;
        constexpr std::size_t vectors = kGroup / hn::MaxLanes(D());
        hn::Vec<D> peaks[vectors];
        for (auto& peak : peaks) peak = hn::Zero(D());
        const auto all = std::make_index_sequence<vectors>();
        if constexpr (F::backwards) {
            for (std::size_t at = whole; at > 0; at -= kGroup)
                group(f, at - kGroup, Countdown<D>(), peaks, all);
            return {};
        } else {
            auto clock = Countdown<D>::from(count);
            for (std::size_t at = 0; at < whole; at += kGroup) {
                group(f, at, clock, peaks, all);
                if constexpr (kUse.ramp) clock = clock.minus(kGroup);
            }
            if constexpr (F::meters)
                for (std::size_t v = 1; v < vectors; ++v) peaks[0] = max(peaks[v], peaks[0]);
            return finish<kGroup / 2, rest>(D(), f, whole, peaks[0]);
        }
    }

    /// The last `rest` elements, fewer than 2 * bit, from `at` on. The vectors get narrower with
    /// the bits, and the peak, lane by lane, with them. Returns the peak of all lanes.
    template <std::size_t bit, std::size_t rest, class Tag>
    static HWY_INLINE Work finish(Tag tag, const Frame<F>& f, std::size_t at, hn::Vec<Tag> peak)
    {
        constexpr std::size_t lanes = hn::MaxLanes(Tag());
        if constexpr (bit == 0 || (rest == 0 && !F::meters)) {
            return F::meters ? hn::GetLane(peak) : Work{};
        } else if constexpr (lanes > bit) {
            const hn::Half<Tag> half;
            if constexpr (F::meters)
                return finish<bit, rest>(half, f, at, halvesMaximum(half, peak));
            else
                return finish<bit, rest>(half, f, at, hn::Zero(half));
        } else if constexpr (F::backwards) {
            constexpr std::size_t here = rest & bit;
            finish<bit / 2, rest % bit>(tag, f, at + here, peak);
            for (std::size_t i = here; i > 0; i -= lanes)
                step(tag, f, at + i - lanes, hn::Zero(tag), peak);
            return {};
        } else {
            constexpr std::size_t here = rest & bit;
            for (std::size_t i = 0; i < here; i += lanes)
                step(tag, f, at + i, left(Countdown<Tag>::from(rest), i), peak);
            return finish<bit / 2, rest % bit>(tag, f, at + here, peak);
        }
    }

    /// The last `rest` elements of `count`. Returns their peak.
    template <std::size_t rest> static HWY_INLINE Work tail(const Frame<F>& f, std::size_t count)
    {
        const Widest<Work, 32> tag;
        return finish<kGroup / 2, rest>(tag, f, count - rest, hn::Zero(tag));
    }
};

template <class T, std::size_t> using Repeat = T;

/// The C functions of an operation: as many pointers as the form has sources, constants and
/// results.
template <class Law, class F, class Sources, class Constants, class Outputs> struct Kernels;

template <class Law, class F, std::size_t... s, std::size_t... c, std::size_t... o>
struct Kernels<Law, F, std::index_sequence<s...>, std::index_sequence<c...>,
               std::index_sequence<o...>> {
    using D = typename F::D;
    using S = typename F::S;
    using C = typename F::C;
    using Work = typename F::Work;
    using All = Elements<Law, F>;

    static HWY_INLINE Frame<F> frame(D* d, Repeat<const S*, s>... sources,
                                     Repeat<const C*, c>... constants, Work step)
    {
        return {d, {sources...}, {static_cast<Work>(*constants)...}, step};
    }
    static HWY_INLINE Work rampStep(const Work (&constant)[3], std::int32_t count)
    {
        if constexpr (All::kUse.ramp)
            return (constant[1] - constant[0]) / static_cast<Work>(count);
        else
            return {};
    }

    /// The whole groups of 16, and `rest` elements behind them.
    template <std::size_t rest>
    static void groups(D* d, Repeat<const S*, s>... sources, Repeat<const C*, c>... constants,
                       Repeat<D*, o>... output, std::int32_t count)
    {
        constexpr bool same = hn::MaxLanes(Widest<Work, 32>()) == hn::MaxLanes(Widest<Work, 64>());
        constexpr std::size_t fused = F::meters ? rest : 0;
        const auto n = static_cast<std::size_t>(count), whole = n - rest;
        if (rest == 0 && n == 0) __builtin_unreachable();  // counts begin at 1
        const Work step = rampStep({static_cast<Work>(*constants)...}, count);
        [[maybe_unused]] Work peak;
        // Each loop loads the constants itself: straight into all lanes.
        if (F::converts || (!same && n <= kShortBlock))
            peak =
                All::template groups<64, fused>(frame(d, sources..., constants..., step), whole, n);
        else
            peak =
                All::template groups<32, fused>(frame(d, sources..., constants..., step), whole, n);
        if constexpr (rest != fused)
            All::template tail<rest>(frame(d, sources..., constants..., step), n);
        ((*output = peak), ...);
    }

    /// The same with the groups by a call of groups<0>, which all remainders share: half the
    /// compile time. The remainder comes first, so that the call is a jump, unless the destination
    /// is narrower than its source and would overtake it.
    template <std::size_t rest>
    static void restAndGroups(D* d, Repeat<const S*, s>... sources,
                              Repeat<const C*, c>... constants, std::int32_t count)
    {
        constexpr bool groupsFirst = sizeof(D) < sizeof(S);
        const auto n = static_cast<std::size_t>(count);
        const auto whole = static_cast<std::int32_t>(count - static_cast<std::int32_t>(rest));
        if (groupsFirst && n >= kGroup) groups<0>(d, sources..., constants..., whole);
        All::template tail<rest>(frame(d, sources..., constants..., {}), n);
        if (!groupsFirst && n >= kGroup) groups<0>(d, sources..., constants..., whole);
    }

    template <std::size_t... k> static void fill(RawKernel* slots, std::index_sequence<k...>)
    {
        const auto raw = [](auto kernel) { return reinterpret_cast<RawKernel>(kernel); };
        slots[0] = raw(&groups<0>);
        if constexpr (kGroup == 1)
            ((slots[k + 1] = slots[0]), ...);
        else if constexpr (F::meters || All::kUse.ramp)  // two peaks to join, two divisions to do
            ((slots[k + 1] = raw(&groups<k + 1>)), ...);
        else
            ((slots[k + 1] = raw(&restAndGroups<k + 1>)), ...);
        std::copy(slots, slots + kSlots, slots + kSlots);
    }
};

/// Fills the slots of an operation.
template <class Law, class F> void fill(RawKernel* slots)
{
    using K = Kernels<Law, F, std::make_index_sequence<F::sources>,
                      std::make_index_sequence<F::constants>, std::make_index_sequence<F::meters>>;
    K::fill(slots, std::make_index_sequence<kSlots - 1>());
}

struct Row {
    std::string_view name;
    void (*fill)(RawKernel* slots);
};

/// Binds `entry` if its name is among `rows`.
template <std::size_t count> bool bindAmong(const Row (&rows)[count], VectorOpTableEntryRaw* entry)
{
    for (const Row& row : rows) {
        if (row.name != entry->name) continue;
        row.fill(entry->slots);
        return true;
    }
    return false;
}

// The rows of an operation, whose laws are defined.
#define VECTORLIB_TYPED_ROW(front, operation, operands, sources, constants, result, law)           \
    {operation "_float" operands,                                                                  \
     fill<front##Law, Form<float, float, float, sources, constants, Result::result>>},             \
        {operation "_double" operands,                                                             \
         fill<front##Law, Form<double, double, double, sources, constants, Result::result>>},
#define VECTORLIB_MIXED_ROW(id, front, name, D, S, C, constants, law)                              \
    {name, fill<id##Law, Form<D, S, C, 1, constants>>},

}  // namespace
}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
