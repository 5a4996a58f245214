// SPDX-License-Identifier: ISC
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "dsp/level_match.cpp"
#include "dsp/simd.h"
//
#include "dsp/level_match.h"
#include "dsp/saturation-inl.h"

HWY_BEFORE_NAMESPACE();
namespace quillworks::HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Var f(scale points[i] + bias) under the weights, n whole vectors.
template <Saturation curve>
double varianceOf(const double* points, const double* weights, int n, double scale, double bias)
{
    using Curve = CurveMean<curve, double>;
    const CurveTag<double> d;
    const auto gain = hn::Set(d, scale), offset = hn::Set(d, bias);
    auto sum = hn::Zero(d), squares = sum;
    for (int i = 0; i < n; i += static_cast<int>(hn::MaxLanes(CurveTag<double>()))) {
        const auto p = Curve::at(hn::MulAdd(gain, hn::LoadU(d, points + i), offset));
        const auto y = Curve::mean(p, p), weighted = hn::Mul(hn::LoadU(d, weights + i), y);
        sum = hn::Add(sum, weighted);
        squares = hn::MulAdd(weighted, y, squares);
    }
    const double mean = hn::GetLane(hn::SumOfLanes(d, sum));
    return hn::GetLane(hn::SumOfLanes(d, squares)) - mean * mean;
}

double variance(Saturation curve, const double* points, const double* weights, int n, double scale,
                double bias)
{
    using enum Saturation;
    constexpr decltype(&varianceOf<Warm>) kOf[] = {
        varianceOf<Warm>, varianceOf<Soft>, varianceOf<Hard>, varianceOf<Tube>, varianceOf<Fold>};
    static_assert(std::size(kOf) == kSaturations);
    return kOf[static_cast<int>(curve)](points, weights, n, scale, bias);
}

}  // namespace
}  // namespace quillworks::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace quillworks {
namespace {

HWY_EXPORT(variance);
const auto chosenVariance = SIMD_CHOOSE(variance);

constexpr double kSigma = 0.12589254117941673;  // -18 dBFS
constexpr int kPoints = 257, kPaddedPoints = 260;

/// The normal distribution in points and weights.
struct Normal {
    double points[kPaddedPoints]{}, weights[kPaddedPoints]{};

    Normal() noexcept
    {
        double sum = 0;
        for (int i = 0; i < kPoints; ++i) {
            points[i] = (i - (kPoints - 1) / 2) * (8.0 / ((kPoints - 1) / 2));
            const double share = i == 0 || i == kPoints - 1 ? 0.5 : 1;
            sum += weights[i] = share * std::exp(-0.5 * points[i] * points[i]);
        }
        for (double& w : weights) w /= sum;
    }
};
const Normal kNormal;

}  // namespace

double levelMatch(Saturation curve, double gain, double bias) noexcept
{
    const double v =
        chosenVariance(curve, kNormal.points, kNormal.weights, kPaddedPoints, gain * kSigma, bias);
    return kSigma / std::sqrt(v);
}

}  // namespace quillworks
#endif
