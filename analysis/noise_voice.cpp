// SPDX-License-Identifier: ISC
#include "analysis/noise_voice.h"

#include <cmath>

namespace quillworks {
namespace {

// White noise through the product of (1 - z[i] / z) / (1 - p[i] / z) is pink within 0.03 dB from
// 20 Hz at 384 kHz to 0.45 of the rate; at other rates the lower end moves along.
constexpr int kOrder = 8;
constexpr double kPoles[kOrder] = {0.9998068157, 0.9989839624, 0.9958852674, 0.9836737247,
                                   0.9363836004, 0.7649164138, 0.2854218158, -0.63114809};
constexpr double kZeros[kOrder] = {
    0.9995164336, 0.9979449860, 0.9917918010, 0.9676610780, 0.8763527092, 0.5719276060, 0,
    -0.66086369};

/// The same as a sum: gain[i] / (1 - p[i] / z), which has one multiplication fewer to wait for.
struct PinkParts {
    double gain[kOrder] = {};
    double power = 0;  // of its output for white noise of power 1

    constexpr PinkParts() noexcept
    {
        for (int i = 0; i < kOrder; ++i) {
            gain[i] = 1;
            for (int k = 0; k < kOrder; ++k) {
                gain[i] *= 1 - kZeros[k] / kPoles[i];
                if (k != i) gain[i] /= 1 - kPoles[k] / kPoles[i];
            }
        }
        for (int i = 0; i < kOrder; ++i)
            for (int k = 0; k < kOrder; ++k)
                power += gain[i] * gain[k] / (1 - kPoles[i] * kPoles[k]);
    }
};
constexpr PinkParts kPink;

}  // namespace

void NoiseVoice::reset(std::uint64_t seed) noexcept
{
    random_ = Xoshiro256pp(seed);
    for (double& p : poles_) p = 0;
}

void NoiseVoice::white(double* out, int n) noexcept
{
    auto random = random_;
    for (int i = 0; i < n; ++i) {
        const std::uint64_t word = random.next();
        const auto part = [word](int k) { return int{static_cast<std::int16_t>(word >> 16 * k)}; };
        // 2: the mean of a part is -1/2.
        out[i] = (part(0) + part(1) + part(2) + part(3) + 2) * 0x1p-17;
    }
    random_ = random;
}

void NoiseVoice::pink(double* out, int n) noexcept
{
    static_assert(NoiseVoice::kPoles == kOrder);
    white(out, n);
    double p[kOrder];
    for (int k = 0; k < kOrder; ++k) p[k] = poles_[k];
    for (int i = 0; i < n; ++i) {
        double even = 0, odd = 0;
        for (int k = 0; k < kOrder; k += 2) {
            p[k] = quillworks::kPoles[k] * p[k] + out[i];
            p[k + 1] = quillworks::kPoles[k + 1] * p[k + 1] + out[i];
            even += kPink.gain[k] * p[k];
            odd += kPink.gain[k + 1] * p[k + 1];
        }
        out[i] = even + odd;
    }
    for (int k = 0; k < kOrder; ++k) poles_[k] = p[k];
}

double NoiseVoice::whiteRms() noexcept
{
    return 0.5 / std::sqrt(3.0) * std::sqrt(1 - 0x1p-32);
}

double NoiseVoice::pinkRms() noexcept
{
    return whiteRms() * std::sqrt(kPink.power);
}

}  // namespace quillworks
