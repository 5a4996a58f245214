// SPDX-License-Identifier: ISC
#include "reverb/deconvolution.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <new>
#include <numbers>

namespace quillworks {
namespace {

/// The smallest transform that a piece of noise is judged by.
constexpr std::size_t kShortestNoise = 1024;

void setSize(Fft<double>& fft, std::size_t n)
{
    if (n > std::size_t{1} << Fft<double>::kMaxOrder) throw std::bad_alloc();
    fft.setSize(static_cast<std::uint32_t>(n), FftPlanning::Repeatable);
    if (!fft.isReady()) throw std::bad_alloc();
}

void take(std::vector<double>& to, std::span<const float> x)
{
    const auto n = std::min(to.size(), x.size());
    std::fill(std::copy_n(x.begin(), n, to.begin()), to.end(), 0.0);
}

}  // namespace

Deconvolver::Deconvolver(std::size_t frames, std::size_t excitation)
{
    setSize(fft_, std::bit_ceil(std::max<std::size_t>(frames + excitation, 4)));
    inverse_.resize(fft_.length());
    response_.resize(fft_.length());
}

void Deconvolver::setExcitation(std::span<const float> signal, double sampleRate, double floor)
{
    sampleRate_ = sampleRate;
    take(inverse_, signal);
    fft_.forward(inverse_.data(), inverse_.data());
    const auto n = inverse_.size();
    const auto power = [&](std::size_t k) {
        return fft_.binPower(inverse_.data(), static_cast<std::uint32_t>(k));
    };
    double largest = 0;
    for (std::size_t k = 0; k <= n / 2; ++k) largest = std::max(largest, power(k));
    const double least = std::max(largest * floor, 1e-300);
    const auto gain = [&](std::size_t k) { return 1 / std::max(power(k), least); };
    inverse_[0] *= gain(0);
    inverse_[1] *= gain(n / 2);
    for (std::size_t k = 1; k < n / 2; ++k) {
        const double g = gain(k);
        inverse_[2 * k] *= g;
        inverse_[2 * k + 1] *= -g;
    }
}

double Deconvolver::bandGain(double frequency) const noexcept
{
    if (frequency >= high_) return 1;
    const double place = std::max(0.0, (frequency - low_) / (high_ - low_));
    return 0.5 - 0.5 * std::cos(std::numbers::pi * place);
}

std::span<const double> Deconvolver::solve(std::span<const float> recording)
{
    take(response_, recording);
    fft_.forward(response_.data(), response_.data());
    fft_.multiply(response_.data(), inverse_.data(), response_.data());
    for (std::size_t k = 0; frequencyOf(k) < high_; ++k)
        fft_.scaleBin(response_.data(), static_cast<std::uint32_t>(k), bandGain(frequencyOf(k)));
    fft_.inverse(response_.data(), response_.data());
    return response_;
}

double Deconvolver::noisePower(std::span<const float> noise)
{
    // The division's gain is smooth: bins of a short transform are enough.
    const auto n = std::min(length(), std::bit_ceil(std::max(noise.size(), kShortestNoise)));
    if (noise.empty()) return 0;
    Fft<double> fft;
    setSize(fft, n);
    std::vector<double> spectrum(n);
    take(spectrum, noise);
    fft.forward(spectrum.data(), spectrum.data());
    const auto stride = length() / n;
    double energy = 0;  // of the response to the piece of noise
    for (std::size_t k = 0; k <= n / 2; ++k) {
        const double sides = k == 0 || k == n / 2 ? 1 : 2;
        const double w = bandGain(frequencyOf(k * stride));
        energy += sides * w * w * fft.binPower(spectrum.data(), static_cast<std::uint32_t>(k)) *
                  fft_.binPower(inverse_.data(), static_cast<std::uint32_t>(k * stride)) /
                  static_cast<double>(n);
    }
    return energy / static_cast<double>(noise.size());
}

}  // namespace quillworks
