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

/// Frame 0 of x and y is frame `phase` of the drive.
template <typename T, Saturation curve>
void shape(const ShapeDrive<T>& drive, int phase, const T* const* x, int phases, T* const* y, int n)
{
    using Curve = CurveMean<curve, T>;
    const CurveTag<T> d;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(CurveTag<T>()));
    static_assert(kLanes <= kShapePadding + 1);
    for (int i = 0; i < n; i += kLanes) {
        const auto gain = hn::LoadU(d, drive.gain + phase + i);
        const auto bias = hn::LoadU(d, drive.bias + phase + i);
        const auto rest = hn::LoadU(d, drive.rest + phase + i);
        const auto level = hn::LoadU(d, drive.level + phase + i);
        auto before = Curve::at(hn::MulAdd(gain, hn::LoadU(d, x[phases - 1] + i - 1), bias));
        for (int p = 0; p < phases; ++p) {
            const auto now = Curve::at(hn::MulAdd(gain, hn::LoadU(d, x[p] + i), bias));
            const auto mean = Curve::mean(now, before);
            hn::StoreU(hn::Mul(level, hn::Sub(mean, rest)), d, y[p] + i);
            before = now;
        }
    }
}

template <typename T, Saturation curve> void findRest(ShapeDrive<T>& drive)
{
    using Curve = CurveMean<curve, T>;
    const CurveTag<T> d;
    constexpr int kLanes = static_cast<int>(hn::MaxLanes(CurveTag<T>()));
    static_assert(kSubBlock % kLanes == 0);
    for (int i = 0; i < kSubBlock; i += kLanes) {
        const auto at = Curve::at(hn::LoadU(d, drive.bias + i));
        hn::StoreU(Curve::mean(at, at), d, drive.rest + i);
    }
}

template <typename T> struct Shapes {
    decltype(&shape<T, Saturation::Warm>) process;
    decltype(&findRest<T, Saturation::Warm>) findRest;
};

template <typename T> Shapes<T> shapesOf(Saturation curve)
{
    using enum Saturation;
    constexpr Shapes<T> kOf[] = {{shape<T, Warm>, findRest<T, Warm>},
                                 {shape<T, Soft>, findRest<T, Soft>},
                                 {shape<T, Hard>, findRest<T, Hard>},
                                 {shape<T, Tube>, findRest<T, Tube>},
                                 {shape<T, Fold>, findRest<T, Fold>}};
    static_assert(std::size(kOf) == kSaturations);
    return kOf[static_cast<int>(curve)];
}

void shapeFloats(Saturation curve, const ShapeDrive<float>& drive, int phase, const float* const* x,
                 int phases, float* const* y, int n)
{
    shapesOf<float>(curve).process(drive, phase, x, phases, y, n);
}
void shapeDoubles(Saturation curve, const ShapeDrive<double>& drive, int phase,
                  const double* const* x, int phases, double* const* y, int n)
{
    shapesOf<double>(curve).process(drive, phase, x, phases, y, n);
}
void restOfFloats(Saturation curve, ShapeDrive<float>& drive)
{
    shapesOf<float>(curve).findRest(drive);
}
void restOfDoubles(Saturation curve, ShapeDrive<double>& drive)
{
    shapesOf<double>(curve).findRest(drive);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(shapeFloats);
HWY_EXPORT(shapeDoubles);
HWY_EXPORT(restOfFloats);
HWY_EXPORT(restOfDoubles);

template <typename T> struct Builds {
    void (*process)(Saturation, const ShapeDrive<T>&, int, const T* const*, int, T* const*, int);
    void (*findRest)(Saturation, ShapeDrive<T>&);
};
template <typename T> const Builds<T> chosen{};
template <>
const Builds<float> chosen<float> = {SIMD_CHOOSE(shapeFloats), SIMD_CHOOSE(restOfFloats)};
template <>
const Builds<double> chosen<double> = {SIMD_CHOOSE(shapeDoubles), SIMD_CHOOSE(restOfDoubles)};

}  // namespace

template <typename T>
void AntiderivativeShape<T>::process(Saturation curve, const ShapeDrive<T>& drive,
                                     const T* const* x, int phases, T* const* y,
                                     GridSlice slice) noexcept
{
    chosen<T>.process(curve, drive, slice.phase, x, phases, y, slice.frames);
}

template <typename T>
void AntiderivativeShape<T>::findRest(Saturation curve, ShapeDrive<T>& drive) noexcept
{
    chosen<T>.findRest(curve, drive);
}

template struct AntiderivativeShape<float>;
template struct AntiderivativeShape<double>;

}  // namespace quillworks
#endif
