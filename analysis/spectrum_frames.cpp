// SPDX-License-Identifier: ISC
#include "analysis/spectrum_frames.h"

#include <cmath>
#include <numbers>

#include "dsp/vec.h"

namespace quillworks {

std::vector<double> windowOf(WindowShape shape, int length)
{
    constexpr double kTerms[][5] = {
        {0.3635819, -0.4891775, 0.1365995, -0.0106411, 0},
        {0.5, -0.5, 0, 0, 0},
        {1, -1.9383379, 1.304520, -0.4028270, 0.0350665},
        {1, 0, 0, 0, 0},
    };
    const auto& a = kTerms[static_cast<int>(shape)];
    std::vector<double> window(static_cast<std::size_t>(length));
    for (std::size_t n = 0; n < window.size(); ++n) {
        const double turn = 2 * std::numbers::pi * static_cast<double>(n) / length;
        for (int k = 0; k < 5; ++k) window[n] += a[k] * std::cos(k * turn);
    }
    return window;
}

void SpectrumFrames::prepare(int channels, int length, WindowShape shape)
{
    const auto window = windowOf(shape, length);
    length_ = length;
    window_.require(window.size());
    windowed_.require(window.size());
    sum_ = squares_ = 0;
    for (std::size_t n = 0; n < window.size(); ++n) {
        window_[n] = static_cast<float>(window[n]);
        sum_ += window[n];
        squares_ += window[n] * window[n];
    }
    recent_.resize(static_cast<std::size_t>(channels));
    for (auto& channel : recent_) channel.prepare(length, hop());
    fft_.setSize(static_cast<std::uint32_t>(length), FftPlanning::Repeatable);
    if (!fft_.isReady()) throw std::bad_alloc();
}

void SpectrumFrames::release() noexcept
{
    length_ = 0;
    window_.clear();
    windowed_.clear();
    recent_ = std::vector<RecentSamples<float>>();
    fft_.setSize(0);
}

void SpectrumFrames::begin(std::int64_t first) noexcept
{
    first_ = end_ = first;
}

void SpectrumFrames::append(const float* const* x, int at, int n) noexcept
{
    for (std::size_t c = 0; c < recent_.size(); ++c) vec::copy(recent_[c].append(n), x[c] + at, n);
    end_ += n;
}

void SpectrumFrames::transform(int channel, float* spectrum) noexcept
{
    const float* const x = recent_[static_cast<std::size_t>(channel)].end() - length_;
    vec::mulCopy(windowed_.data(), x, static_cast<const float*>(window_.data()), length_);
    fft_.forward(windowed_.data(), spectrum);
}

void powersOf(const float* spectrum, int length, float* powers) noexcept
{
    const int half = length / 2;
    powers[0] = spectrum[0] * spectrum[0];
    powers[half] = spectrum[1] * spectrum[1];
    for (int k = 1; k < half; ++k) {
        const float re = spectrum[2 * k], im = spectrum[2 * k + 1];
        powers[k] = re * re + im * im;
    }
}

}  // namespace quillworks
