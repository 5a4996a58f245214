// SPDX-License-Identifier: ISC
// The one loop and tail behind every kernel; compiled once per instruction set.
#if defined(QUILLWORKS_VECTORLIB_KERNEL_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_VECTORLIB_KERNEL_INL_H
#undef QUILLWORKS_VECTORLIB_KERNEL_INL_H
#else
#define QUILLWORKS_VECTORLIB_KERNEL_INL_H
#endif

#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

#include "vectorlib/vector_library.h"

HWY_BEFORE_NAMESPACE();
namespace DSP::VectorLib::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

// Elements per turn of the main loop. One for the scalar build, which then needs no tails.
inline constexpr std::size_t kGroup = HWY_TARGET == HWY_SCALAR ? 1 : 16;
inline constexpr std::size_t kSlots = 16;

/// Vectors of at most `bytes`.
template <class T, std::size_t bytes> using Widest = hn::CappedTag<T, bytes / sizeof(T)>;

// Long blocks are bound by their loads and stores, which are faster in 32 bytes; the fewer
// instructions of 64 show in blocks up to this count, and in conversions always (Zen 4).
inline constexpr std::size_t kShortBlock = 64;

/// Element types of an operation. Mixed ones compute in the wider type and round once.
template <class Dest, class Source = Dest, class Constant = Dest> struct Types {
    using D = Dest;
    using S = Source;
    using C = Constant;
    using Work = std::conditional_t<(sizeof(D) > sizeof(S)), D, S>;
};

/// The arguments of a call as the operands see them.
template <class Ty> struct Frame {
    typename Ty::D* d;
    const typename Ty::S* s[2];
    typename Ty::Work c[3];
};

// Minimum, maximum and rounding as SSE2 defines them: b wins over a NaN and between zeros, and
// rounding is to nearest. Highway's portable scalar build has other rules.
#if HWY_TARGET == HWY_SCALAR
template <class D, class V> HWY_INLINE V minimum(D, V a, V b)
{
    return a.raw < b.raw ? a : b;
}
template <class D, class V> HWY_INLINE V maximum(D, V a, V b)
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
template <class D, class V> HWY_INLINE V minimum(D, V a, V b)
{
    return hn::Min(a, b);
}
template <class D, class V> HWY_INLINE V maximum(D, V a, V b)
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

template <class D, class T> HWY_INLINE hn::Vec<D> load(D d, const T* p)
{
    if constexpr (std::is_same_v<T, hn::TFromD<D>>)
        return hn::LoadU(d, p);
    else
        return hn::PromoteTo(d, hn::LoadU(hn::Rebind<T, D>(), p));
}

template <class D, class T> HWY_INLINE void store(D d, hn::Vec<D> v, T* p)
{
    if constexpr (std::is_same_v<T, hn::TFromD<D>>) {
        hn::StoreU(v, d, p);
    } else {
        const hn::Rebind<T, D> narrow;
        hn::StoreU(rounded(narrow, v), narrow, p);
    }
}

// Operands. `at` is an element index; `left` holds count - 1 - index per lane, for ramps.

struct Dest {
    template <class D, class F>
    static HWY_INLINE hn::Vec<D> get(D d, const F& f, std::size_t at, hn::Vec<D>)
    {
        return load(d, f.d + at);
    }
};

template <int index> struct Source {
    template <class D, class F>
    static HWY_INLINE hn::Vec<D> get(D d, const F& f, std::size_t at, hn::Vec<D>)
    {
        return load(d, f.s[index] + at);
    }
};
using S1 = Source<0>;
using S2 = Source<1>;

template <int index> struct Constant {
    template <class D, class F>
    static HWY_INLINE hn::Vec<D> get(D d, const F& f, std::size_t, hn::Vec<D>)
    {
        return hn::Set(d, f.c[index]);
    }
};
using C1 = Constant<0>;
using C2 = Constant<1>;
using C3 = Constant<2>;

/// Linear ramp whose last element is c2 exactly: c2 - (c2 - c1)/n (n - 1 - i). c[0] holds the step.
struct Ramp {
    template <class D, class F>
    static HWY_INLINE hn::Vec<D> get(D d, const F& f, std::size_t, hn::Vec<D> left)
    {
        return hn::Sub(hn::Set(d, f.c[1]), hn::Mul(hn::Set(d, f.c[0]), left));
    }
};

template <class Operand> struct Magnitude {
    template <class D, class F>
    static HWY_INLINE hn::Vec<D> get(D d, const F& f, std::size_t at, hn::Vec<D> left)
    {
        return hn::Abs(Operand::get(d, f, at, left));
    }
};

// What the operands of an operation ask of the call.
template <class Operand> struct Needs {
    static constexpr std::size_t sources = 0, constants = 0;
};
template <int index> struct Needs<Source<index>> {
    static constexpr std::size_t sources = index + 1, constants = 0;
};
template <int index> struct Needs<Constant<index>> {
    static constexpr std::size_t sources = 0, constants = index + 1;
};
template <> struct Needs<Ramp> {
    static constexpr std::size_t sources = 0, constants = 2;
};
template <class Operand> struct Needs<Magnitude<Operand>> : Needs<Operand> {};

enum class Result { Store, StoreAndPeak, Peak };

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

/// The operation Op over Operands in vectors of up to `bytes`: groups of 16 elements, then a tail
/// split by the bits of its length. Nothing but `run` and `finish` knows that length, which keeps
/// compile times down.
template <class Op, class Ty, Result result, std::size_t bytes, class... Operands> struct Loop {
    using Work = typename Ty::Work;
    static constexpr bool ramps = (std::is_same_v<Operands, Ramp> || ...);
    using D = Widest<Work, bytes>;
    static constexpr std::size_t kLanes = hn::MaxLanes(D());
    static constexpr std::size_t kVectors = kGroup / kLanes;

    template <class Tag>
    static HWY_INLINE void step(Tag tag, const Frame<Ty>& f, std::size_t at,
                                [[maybe_unused]] hn::Vec<Tag> left, hn::Vec<Tag>& peak)
    {
        const auto v = Op::run(tag, Operands::get(tag, f, at, left)...);
        if constexpr (result != Result::Peak) store(tag, v, f.d + at);
        if constexpr (result != Result::Store)
            peak = maximum(tag, hn::Abs(v), peak);  // a NaN loses
    }

    template <std::size_t... v>
    static HWY_INLINE void group(const Frame<Ty>& f, std::size_t at, const Countdown<D>& clock,
                                 hn::Vec<D> (&peaks)[kVectors], std::index_sequence<v...>)
    {
        (step(D(), f, at + v * kLanes, leftAt(clock, v), peaks[v]), ...);
    }
    static HWY_INLINE hn::Vec<D> leftAt(const Countdown<D>& clock, std::size_t vector)
    {
        if constexpr (ramps)
            return clock.minus(vector * kLanes).left();
        else
            return hn::Zero(D());
    }

    /// The last `rest` elements, fewer than 2 * bit. The vectors get narrower with the bits, and
    /// the peak, lane by lane, with them. Returns the peak of all lanes.
    template <std::size_t bit, std::size_t rest, class Tag>
    static HWY_INLINE Work finish(Tag tag, const Frame<Ty>& f, std::size_t at, hn::Vec<Tag> peak)
    {
        constexpr std::size_t lanes = hn::MaxLanes(Tag());
        if constexpr (bit == 0 || (rest == 0 && result == Result::Store)) {
            return result == Result::Store ? Work{} : hn::GetLane(peak);
        } else if constexpr (lanes > bit) {
            const hn::Half<Tag> half;
            if constexpr (result == Result::Store)
                return finish<bit, rest>(half, f, at, hn::Zero(half));
            else
                return finish<bit, rest>(half, f, at, halvesMaximum(half, peak));
        } else {
            if constexpr ((rest & bit) != 0) {
                for (std::size_t i = 0; i < bit; i += lanes)
                    step(tag, f, at + i, Countdown<Tag>::from(rest - i).left(), peak);
                at += bit;
            }
            return finish<bit / 2, rest % bit>(tag, f, at, peak);
        }
    }

    template <std::size_t tail> static HWY_INLINE Work run(const Frame<Ty>& f, std::size_t count)
    {
        hn::Vec<D> peaks[kVectors];
        for (auto& peak : peaks) peak = hn::Zero(D());
        const std::size_t whole = count - tail;
        if (tail == 0 && whole == 0) __builtin_unreachable();  // counts begin at 1
        auto clock = Countdown<D>::from(count);
        for (std::size_t at = 0; at < whole; at += kGroup) {
            group(f, at, clock, peaks, std::make_index_sequence<kVectors>());
            if constexpr (ramps) clock = clock.minus(kGroup);
        }
        if constexpr (result != Result::Store)
            for (std::size_t v = 1; v < kVectors; ++v) peaks[0] = maximum(D(), peaks[v], peaks[0]);
        return finish<kGroup / 2, tail>(D(), f, whole, peaks[0]);
    }
};

template <class T, std::size_t> using Repeat = T;

/// The C function of one slot: as many pointers as the operands ask for.
template <class Op, class Ty, Result result, std::size_t tail, class Sources, class Constants,
          class Outputs, class... Operands>
struct Kernel;

template <class Op, class Ty, Result result, std::size_t tail, std::size_t... s, std::size_t... c,
          std::size_t... o, class... Operands>
struct Kernel<Op, Ty, result, tail, std::index_sequence<s...>, std::index_sequence<c...>,
              std::index_sequence<o...>, Operands...> {
    static void run(typename Ty::D* d, Repeat<const typename Ty::S*, s>... sources,
                    Repeat<const typename Ty::C*, c>... constants,
                    Repeat<typename Ty::D*, o>... output, std::int32_t count)
    {
        using Long = Loop<Op, Ty, result, 32, Operands...>;
        using Short = Loop<Op, Ty, result, 64, Operands...>;
        constexpr bool converts = sizeof(typename Ty::D) != sizeof(typename Ty::S);
        constexpr bool same = Long::kLanes == Short::kLanes;
        const auto n = static_cast<std::size_t>(count);
        // Each loop loads the constants itself: straight into all lanes.
        const auto through = [&](auto loop) HWY_ATTR {
            Frame<Ty> f{d, {sources...}, {static_cast<typename Ty::Work>(*constants)...}};
            if constexpr (Long::ramps)
                f.c[0] = (f.c[1] - f.c[0]) / static_cast<typename Ty::Work>(count);
            return decltype(loop)::template run<tail>(f, n);
        };
        [[maybe_unused]] typename Ty::Work peak;
        if (converts || (!same && n <= kShortBlock))
            peak = through(Short());
        else
            peak = through(Long());
        ((*output = peak), ...);
    }
};

using Fill = void (*)(RawKernel*);

template <class Op, class Ty, Result result, class... Operands, std::size_t... tail>
void fillSlots(RawKernel* slots, std::index_sequence<tail...>)
{
    using Sources =
        std::make_index_sequence<std::max({std::size_t{0}, Needs<Operands>::sources...})>;
    using Constants =
        std::make_index_sequence<std::max({std::size_t{0}, Needs<Operands>::constants...})>;
    using Outputs = std::make_index_sequence<result == Result::Store ? 0 : 1>;
    ((slots[tail] = slots[tail + kSlots] = reinterpret_cast<RawKernel>(
          &Kernel<Op, Ty, result, tail % kGroup, Sources, Constants, Outputs, Operands...>::run)),
     ...);
}

template <class Op, class Ty, Result result, class... Operands> void fill(RawKernel* slots)
{
    fillSlots<Op, Ty, result, Operands...>(slots, std::make_index_sequence<kSlots>());
}

/// A row of a table of kernels: `operation` + "_float" or "_double" + `operands` is the name.
/// Operations with their own spelling of the types have one Fill only, for `operation` alone.
struct Row {
    std::string_view operation, operands;
    Fill single, wide;  // float and double
};

template <class Op, class... Operands>
constexpr Row row(std::string_view operation, std::string_view operands)
{
    return {operation, operands, fill<Op, Types<float>, Result::Store, Operands...>,
            fill<Op, Types<double>, Result::Store, Operands...>};
}

template <class Op, Result result, class... Operands>
constexpr Row meterRow(std::string_view operation, std::string_view operands)
{
    return {operation, operands, fill<Op, Types<float>, result, Operands...>,
            fill<Op, Types<double>, result, Operands...>};
}

template <class Op, class Ty, class... Operands> constexpr Row mixedRow(std::string_view name)
{
    return {name, "", fill<Op, Ty, Result::Store, Operands...>, nullptr};
}

/// Binds `entry` if its name is among `rows`.
template <std::size_t count> bool bindAmong(const Row (&rows)[count], VectorOpTableEntryRaw* entry)
{
    const std::string_view name = entry->name;
    for (const Row& r : rows) {
        if (!name.starts_with(r.operation)) continue;
        const std::string_view rest = name.substr(r.operation.size());
        const auto is = [&](std::string_view type) {
            return rest.starts_with(type) && rest.substr(type.size()) == r.operands;
        };
        const Fill fill = r.wide == nullptr ? (rest.empty() ? r.single : nullptr)
                          : is("_float")    ? r.single
                          : is("_double")   ? r.wide
                                            : nullptr;
        if (fill == nullptr) continue;
        fill(entry->slots);
        return true;
    }
    return false;
}

}  // namespace DSP::VectorLib::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
