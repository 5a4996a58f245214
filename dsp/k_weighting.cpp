// SPDX-License-Identifier: ISC
#include "dsp/k_weighting.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "dsp/single_precision.h"

namespace quillworks {
namespace {

KWeightingSection rounded(double b0, double b1, double b2, double c1, double c2) noexcept
{
    return {toSingle(b0), toSingle(b1), toSingle(b2), toSingle(c1), toSingle(c2)};
}

/// tan(angle / rate); below some 3.5 kHz the shelf would lie beyond half the rate.
double prewarped(double angle, double sampleRate) noexcept
{
    return std::tan(std::min(angle / sampleRate, 1.5));
}

}  // namespace

KWeighting KWeighting::at(double sampleRate) noexcept
{
    KWeighting design;
    {
        const double k = prewarped(5284.078578647619, sampleRate);  // pi 1681.97445095553 Hz
        const double kq = 1.414076664088621 * k;                    // Q = 0.7071752369554196
        const double high = 1.584864701130855;                      // +3.9998438539733434 dB
        const double band = 1.258720930232562 * kq;                 // gain at the shelf corner
        const double n = 1 / (1 + kq + k * k);
        design.shelf =
            rounded((k * k + band + high) * n, 2 * (k * k - high) * n, (k * k - band + high) * n,
                    -2 * (k * k - 1) * n, (kq - k * k - 1) * n);
    }
    {
        const double k = prewarped(119.8061151453059, sampleRate);  // pi 38.13547087602444 Hz
        const double kq = 1.9986927057725021 * k;                   // Q = 0.5003270373238773
        const double n = 1 / (1 + kq + k * k);
        // Numerator not normalised: the calibration constant -0.691 counts on it.
        design.highPass = rounded(1, -2, 1, -2 * (k * k - 1) * n, (kq - k * k - 1) * n);
    }
    return design;
}

void KWeightingTail::prepare(const KWeighting& k) noexcept
{
    constexpr int kSize = std::tuple_size_v<KWeightingState>;
    const auto product = [](const auto& a, const auto& b) {
        Matrix c{};
        for (std::size_t i = 0; i < kSize; ++i)
            for (std::size_t j = 0; j < kSize; ++j)
                for (std::size_t l = 0; l < kSize; ++l) c[i][j] += a[i][l] * b[l][j];
        return c;
    };
    const auto &s = k.shelf, &p = k.highPass;
    // x = 0; v and y of one sample from x1, x2, v1, v2, y1, y2.
    const KWeightingState v = {s.b1, s.b2, s.c1, s.c2, 0, 0};
    KWeightingState y = {0, 0, p.b1, p.b2, p.c1, p.c2};
    for (std::size_t i = 0; i < kSize; ++i) y[i] += p.b0 * v[i];
    auto& one = spans_.front();
    one.next = {{{}, {1}, v, {0, 0, 1}, y, {0, 0, 0, 0, 1}}};
    for (std::size_t i = 0; i < kSize; ++i)
        for (std::size_t j = 0; j < kSize; ++j) one.power[i][j] = y[i] * y[j];
    for (std::size_t n = 1; n < spans_.size(); ++n) {
        const auto& half = spans_[n - 1];
        Matrix transposed;
        for (std::size_t i = 0; i < kSize; ++i)
            for (std::size_t j = 0; j < kSize; ++j) transposed[i][j] = half.next[j][i];
        spans_[n].next = product(half.next, half.next);
        spans_[n].power = product(transposed, product(half.power, half.next));
        for (std::size_t i = 0; i < kSize; ++i)
            for (std::size_t j = 0; j < kSize; ++j) spans_[n].power[i][j] += half.power[i][j];
    }
}

double KWeightingTail::pass(KWeightingState& state, int n) const noexcept
{
    double power = 0;
    for (std::size_t bit = 0; bit < spans_.size(); ++bit) {
        if ((n >> bit & 1) == 0) continue;
        const auto& span = spans_[bit];
        KWeightingState after{};
        for (std::size_t i = 0; i < state.size(); ++i) {
            double weighted = 0;
            for (std::size_t j = 0; j < state.size(); ++j) {
                weighted += span.power[i][j] * state[j];
                after[i] += span.next[i][j] * state[j];
            }
            power += state[i] * weighted;
        }
        state = after;
    }
    return std::max(power, 0.0);
}

}  // namespace quillworks
