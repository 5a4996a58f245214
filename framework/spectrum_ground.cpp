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
constexpr double kAverage = 0.2;  // s
constexpr double kLowest = 20;    // Hz
constexpr int kBands = 121, kPerOctave = 12;
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
    sums_.assign(n / 2 + 2, 0);
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
    bands_.clear();
    for (int b = 0; b < kBands; ++b) {
        const double centre = kLowest * std::exp2(double(b) / kPerOctave);
        const double half = std::exp2(0.5 / kPerOctave), bin = n / spec.sampleRate;
        if (centre * half < spec.sampleRate / 2)
            bands_.push_back({centre, centre / half * bin, centre * half * bin});
    }
    reset();
}

void SpectrumGround::release() noexcept
{
    fft_.setSize(0);
    bands_ = {};
    heard_ = {};
    window_ = frame_ = power_ = {};
    sums_ = {};
}

void SpectrumGround::reset()
{
    power_.assign(bands_.size(), 0);
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
    std::fill(sums_.begin(), sums_.end(), 0.0);
    for (const auto& heard : heard_) {
        for (std::size_t i = 0; i < n; ++i) frame_[i] = window_[i] * heard[(place_ + i) % n];
        fft_.forward(frame_.data(), frame_.data());
        // Bin 0 and Nyquist belong to no band.
        for (std::size_t k = 1; k < n / 2; ++k) {
            const double re = double(frame_[2 * k]), im = double(frame_[2 * k + 1]);
            sums_[k + 1] += (re * re + im * im) * scale_;
        }
    }
    for (std::size_t k = 1; k < sums_.size(); ++k) sums_[k] += sums_[k - 1];
    // Each bin is spread over half a bin to both sides, so narrow bands take parts of one.
    const auto below = [this](double bin) {
        const double at = std::clamp(bin + 0.5, 0.0, static_cast<double>(sums_.size()) - 1.001);
        const auto k = static_cast<std::size_t>(at);
        return sums_[k] + (at - static_cast<double>(k)) * (sums_[k + 1] - sums_[k]);
    };
    for (std::size_t b = 0; b < bands_.size(); ++b) {
        const double now = below(bands_[b].high) - below(bands_[b].low);
        if (std::isfinite(now)) power_[b] += static_cast<float>(share_ * (now - double(power_[b])));
    }
}

void SpectrumGround::show(int, VNK::IDisplaySink& sink) const
{
    std::vector<float> hertz, level;
    for (std::size_t b = 0; b < bands_.size(); ++b) {
        hertz.push_back(static_cast<float>(bands_[b].centre));
        level.push_back(power_[b] > kSilence ? 10 * std::log10(power_[b])
                                             : std::numeric_limits<float>::quiet_NaN());
    }
    const auto count = static_cast<std::int64_t>(hertz.size());
    sink.numbers("frequency", hertz.data(), count);
    sink.numbers("level", level.data(), count);
}

}  // namespace quillworks
