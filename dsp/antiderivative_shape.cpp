// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/antiderivative_shape.cpp"
#include "dsp/simd.h"
//
#include "dsp/antiderivative_shape.h"
#include "dsp/saturation-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

template <Saturation curve, bool isBiased, typename T>
HWY_INLINE void means(const T* const* x, int phases, const T* bias, const T* output, T* const* y,
                      int n)
{
    using Curve = CurveMean<curve, T>;
    const CurveTag<T> d;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(CurveTag<T>()));
    static_assert(kLanes <= AntiderivativeShape<T>::kPadding + 1);
    for (int i = 0; i < n; i += kLanes) {
        const auto value = isBiased ? hn::LoadU(d, bias + i) : hn::Zero(d);
        const auto zero = isBiased ? hn::LoadU(d, output + i) : hn::Zero(d);
        const auto at = [&](const T* from) HWY_ATTR {
            const auto v = hn::LoadU(d, from);
            return Curve::at(isBiased ? hn::Add(v, value) : v);
        };
        auto before = at(x[phases - 1] + i - 1);
        for (int p = 0; p < phases; ++p) {
            const auto now = at(x[p] + i);
            const auto mean = Curve::mean(now, before);
            hn::StoreU(isBiased ? hn::Sub(mean, zero) : mean, d, y[p] + i);
            before = now;
        }
    }
}

template <typename T, Saturation curve>
void shape(const T* const* x, int phases, const T* bias, const T* output, T* const* y, int n)
{
    if (bias)
        means<curve, true>(x, phases, bias, output, y, n);
    else
        means<curve, false>(x, phases, bias, output, y, n);
}

#define QUILLWORKS_SHAPES(T, suffix)                                                               \
    auto shapes##suffix(Saturation curve)                                                          \
    {                                                                                              \
        using enum Saturation;                                                                     \
        constexpr decltype(&shape<T, Warm>) kOf[] = {                                              \
            shape<T, Warm>, shape<T, Soft>, shape<T, Hard>, shape<T, Tube>, shape<T, Fold>};       \
        static_assert(std::size(kOf) == kSaturations);                                             \
        return kOf[static_cast<int>(curve)];                                                       \
    }
QUILLWORKS_SHAPES(float, OfFloats)
QUILLWORKS_SHAPES(double, OfDoubles)
#undef QUILLWORKS_SHAPES

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(shapesOfFloats);
HWY_EXPORT(shapesOfDoubles);

template <typename T>
using Shapes = void (*(*)(Saturation))(const T* const*, int, const T*, const T*, T* const*, int);
template <typename T> const Shapes<T> chosen = nullptr;
template <> const Shapes<float> chosen<float> = SIMD_CHOOSE(shapesOfFloats);
template <> const Shapes<double> chosen<double> = SIMD_CHOOSE(shapesOfDoubles);

}  // namespace

template <typename T>
void AntiderivativeShape<T>::process(Saturation curve, const T* const* x, int phases,
                                     const Bias& bias, T* const* y, int n) noexcept
{
    chosen<T>(curve)(x, phases, bias.value, bias.output, y, n);
}

template struct AntiderivativeShape<float>;
template struct AntiderivativeShape<double>;

}  // namespace quillworks
#endif
