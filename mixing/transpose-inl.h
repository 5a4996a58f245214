// SPDX-License-Identifier: ISC
// Channels to frames and back, within 128 bits, so that shuffles stay cheap on every processor;
// compiled once per instruction set.
#if defined(QUILLWORKS_MIXING_TRANSPOSE_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef QUILLWORKS_MIXING_TRANSPOSE_INL_H
#undef QUILLWORKS_MIXING_TRANSPOSE_INL_H
#else
#define QUILLWORKS_MIXING_TRANSPOSE_INL_H
#endif

#include <hwy/highway.h>

#if HWY_TARGET != HWY_SCALAR
HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {

template <typename T> using Short = hwy::HWY_NAMESPACE::FixedTag<T, 16 / sizeof(T)>;
template <typename T> constexpr int kShort = static_cast<int>(16 / sizeof(T));

/// A square of kShort: sample k of line i becomes sample i of line k.
template <typename T, class From, class To>
HWY_INLINE void transpose(const From& from, const To& to)
{
    namespace hn = hwy::HWY_NAMESPACE;
    const Short<T> d;
    if constexpr (kShort<T> == 2) {
        const auto a = hn::LoadU(d, from(0)), b = hn::LoadU(d, from(1));
        hn::StoreU(hn::InterleaveLower(d, a, b), d, to(0));
        hn::StoreU(hn::InterleaveUpper(d, a, b), d, to(1));
    } else {
        const auto a = hn::LoadU(d, from(0)), b = hn::LoadU(d, from(1));
        const auto c = hn::LoadU(d, from(2)), e = hn::LoadU(d, from(3));
        const auto ab = hn::InterleaveLower(d, a, b), ce = hn::InterleaveLower(d, c, e);
        const auto ab2 = hn::InterleaveUpper(d, a, b), ce2 = hn::InterleaveUpper(d, c, e);
        hn::StoreU(hn::ConcatLowerLower(d, ce, ab), d, to(0));
        hn::StoreU(hn::ConcatUpperUpper(d, ce, ab), d, to(1));
        hn::StoreU(hn::ConcatLowerLower(d, ce2, ab2), d, to(2));
        hn::StoreU(hn::ConcatUpperUpper(d, ce2, ab2), d, to(3));
    }
}

/// `frames` samples of each of `channels` lines, a multiple of kShort, into rows of `stride`.
template <typename T>
HWY_INLINE void toRows(const T* const* lines, int channels, int frames, T* rows, int stride)
{
    constexpr int n = kShort<T>;
    const int whole = frames / n * n;
    for (int c = 0; c < channels; c += n) {
        for (int i = 0; i < whole; i += n)
            transpose<T>([&](int k) HWY_ATTR { return lines[c + k] + i; },
                         [&](int k) HWY_ATTR { return rows + (i + k) * stride + c; });
        for (int i = whole; i < frames; ++i)
            for (int k = 0; k < n; ++k) rows[i * stride + c + k] = lines[c + k][i];
    }
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif

#endif
