// SPDX-License-Identifier: ISC
#include "dither.h"

#include <algorithm>
#include <cstdint>

namespace quillhost {
namespace {

constexpr double kAudible[] = {2.033, -2.165, 1.959, -1.590, 0.6149};
constexpr double kHighPass[] = {1, 0, 0, 0, 0};

/// To the nearest whole number, ties to even: adding and taking away 1.5 * 2^52.
double nearest(double x) noexcept
{
    constexpr double kRounder = 0x1.8p52;
    return (x + kRounder) - kRounder;
}

}  // namespace

Ditherer::Ditherer(Dither kind, int channels, int sampleRate)
    : kind_(kind),
      shape_(sampleRate >= 44100 && sampleRate <= 48000 ? kAudible : kHighPass),
      channels_(static_cast<std::size_t>(channels))
{
    for (std::size_t c = 0; c < channels_.size(); ++c) channels_[c].random.seed(c + 1);
}

/// Between -1 and 1 step, triangular.
double Ditherer::noise(Channel& channel) const noexcept
{
    const std::uint64_t draw = channel.random();
    const auto first = static_cast<double>(draw >> 32);
    const auto second = static_cast<double>(draw & 0xFFFFFFFF);
    return (first - second) * 0x1p-32;
}

void Ditherer::round(int channel, double* steps, std::size_t n) noexcept
{
    auto& state = channels_[static_cast<std::size_t>(channel)];
    std::size_t i = 0;
    while (!state.isOn && i < n) {
        const double rounded = nearest(steps[i]);
        if (rounded != steps[i] && kind_ != Dither::None)
            state.isOn = true;
        else
            steps[i++] = rounded;
    }
    if (kind_ == Dither::Triangular) {
        for (; i < n; ++i) steps[i] = nearest(steps[i] + noise(state));
        return;
    }
    for (; i < n; ++i) {
        double wanted = steps[i];
        for (std::size_t k = 0; k < kTaps; ++k) wanted -= shape_[k] * state.errors[k];
        steps[i] = nearest(wanted + noise(state));
        std::copy_backward(state.errors, state.errors + kTaps - 1, state.errors + kTaps);
        // What a limit takes off is no rounding, and would return for ever.
        state.errors[0] = std::clamp(steps[i] - wanted, -1.5, 1.5);
    }
}

}  // namespace quillhost
