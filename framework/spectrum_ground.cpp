// SPDX-License-Identifier: ISC
#include "framework/spectrum_ground.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>

namespace quillworks {
namespace {

constexpr int kMostChannels = 2;
constexpr double kSeconds = 0.17;  // of a transform, at least half of it
constexpr std::size_t kOverlap = 4;
constexpr double kAverage = 0.2;    // s
constexpr float kSilence = 1e-12f;  // power, -120 dB

}  // namespace

CaptureFormat SpectrumGround::format(const ProcessSpec& spec) const
{
    return {std::min(spec.channels, kMostChannels), spec.sampleRate};
}

void SpectrumGround::prepare(const ProcessSpec& spec)
{
    const auto n =
        std::bit_floor(static_cast<std::uint32_t>(std::max(64.0, kSeconds * spec.sampleRate)));
    fft_.setSize(n, FftPlanning::Repeatable);
    hop_ = n / kOverlap;
    heard_.assign(static_cast<std::size_t>(format(spec).channels), std::vector<float>(n));
    frame_.assign(n, 0);
    window_.resize(n);
    double energy = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double turn = 2 * std::numbers::pi * static_cast<double>(i) / n;
        window_[i] = static_cast<float>(0.5 - 0.5 * std::cos(turn));
        energy += double(window_[i]) * double(window_[i]);
    }
    // By Parseval's theorem the bins of a sine of amplitude 1 hold n·energy/4 on one side.
    scale_ = 4 / (n * energy);
    share_ = 1 - std::exp(-static_cast<double>(hop_) / (kAverage * spec.sampleRate));
    bands_.prepare(n, spec.sampleRate);
    reset();
}

void SpectrumGround::release() noexcept
{
    fft_.setSize(0);
    bands_ = {};
    heard_ = {};
    window_ = frame_ = power_ = {};
}

void SpectrumGround::reset()
{
    power_.assign(bands_.count(), 0);
    place_ = count_ = 0;
}

void SpectrumGround::feed(float* const* x, int n, std::int64_t)
{
    const auto size = window_.size();
    for (int i = 0; i < n; ++i) {
        for (std::size_t c = 0; c < heard_.size(); ++c) heard_[c][place_] = x[c][i];
        place_ = (place_ + 1) % size;
        if (++count_ < size) continue;
        analyse();
        count_ -= hop_;
    }
}

void SpectrumGround::analyse()
{
    const auto n = window_.size();
    bands_.clear();
    for (const auto& heard : heard_) {
        for (std::size_t i = 0; i < n; ++i) frame_[i] = window_[i] * heard[(place_ + i) % n];
        fft_.forward(frame_.data(), frame_.data());
        bands_.add(frame_.data(), scale_);
    }
    bands_.sum();
    for (std::size_t b = 0; b < bands_.count(); ++b) {
        const double now = bands_.power(b);
        if (std::isfinite(now)) power_[b] += static_cast<float>(share_ * (now - double(power_[b])));
    }
}

void SpectrumGround::show(int, VNK::IDisplaySink& sink) const
{
    std::vector<float> hertz, level;
    for (std::size_t b = 0; b < bands_.count(); ++b) {
        hertz.push_back(static_cast<float>(bands_.hertz(b)));
        level.push_back(power_[b] > kSilence ? 10 * std::log10(power_[b])
                                             : std::numeric_limits<float>::quiet_NaN());
    }
    const auto count = static_cast<std::int64_t>(hertz.size());
    sink.numbers("frequency", hertz.data(), count);
    sink.numbers("level", level.data(), count);
}

}  // namespace quillworks
