// SPDX-License-Identifier: ISC
#include "analysis/averaged_spectrum.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

void takeLarger(std::vector<double>& to, const std::vector<double>& from)
{
    for (std::size_t k = 0; k < to.size(); ++k) to[k] = std::max(to[k], from[k]);
}

}  // namespace

void AveragedSpectrum::prepare(int signals, bool isLoudest, int length, WindowShape window,
                               double sampleRate)
{
    frames_.prepare(signals, length, window);
    isLoudest_ = isLoudest;
    rate_ = sampleRate;
    spectrum_.resize(static_cast<std::size_t>(length));
    squares_.resize(static_cast<std::size_t>(frames_.bins()));
    latest_.assign(static_cast<std::size_t>(signals), Powers(squares_.size()));
    averaged_ = latest_;
    loudest_ = Powers(isLoudest ? squares_.size() : 0);
    held_.assign(curves(), {});
    setHold(holdSeconds_);
    clear();
}

void AveragedSpectrum::release() noexcept
{
    frames_.release();
    spectrum_ = squares_ = std::vector<float>();
    latest_ = averaged_ = std::vector<Powers>();
    loudest_ = Powers();
    held_ = std::vector<HeldPowers>();
    clear();
}

void AveragedSpectrum::clear() noexcept
{
    hasFigures_ = false;
    count_ = 0;
    for (auto& held : held_) held.forget();
}

void AveragedSpectrum::setAverage(double seconds) noexcept
{
    if (std::isinf(seconds) && !std::isinf(averageSeconds_)) count_ = 0;
    averageSeconds_ = seconds;
}

void AveragedSpectrum::setHold(double seconds) noexcept
{
    holdSeconds_ = seconds;
    for (auto& held : held_) held.setTime(seconds * rate_, rate_);
}

void AveragedSpectrum::restart() noexcept
{
    count_ = 0;
    for (auto& held : held_) held.restart();
}

void AveragedSpectrum::average()
{
    // The first transform is taken whole.
    double part = 1;
    if (count_ > 0 && averageSeconds_ > 0)
        part = std::isinf(averageSeconds_)
                   ? 1 / static_cast<double>(count_ + 1)
                   : 1 - std::exp(-frames_.hop() / (rate_ * averageSeconds_));
    ++count_;
    const double scale = 4 / (frames_.windowSum() * frames_.windowSum());
    for (std::size_t s = 0; s < latest_.size(); ++s) {
        frames_.transform(static_cast<int>(s), spectrum_.data());
        powersOf(spectrum_.data(), frames_.length(), squares_.data());
        Powers &latest = latest_[s], &averaged = averaged_[s];
        for (std::size_t k = 0; k < latest.size(); ++k)
            latest[k] = scale * static_cast<double>(squares_[k]);
        latest.front() /= 4;
        latest.back() /= 4;
        if (part == 1)
            averaged = latest;
        else
            for (std::size_t k = 0; k < latest.size(); ++k)
                averaged[k] += part * (latest[k] - averaged[k]);
    }
    if (isLoudest_) {
        loudest_ = averaged_[0];
        for (const auto& signal : averaged_) takeLarger(loudest_, signal);
    }
    hasFigures_ = true;
    for (std::size_t c = 0; c < held_.size(); ++c) held_[c].advance(curve(c), frames_.hop());
}

std::vector<AveragedSpectrum::Powers> AveragedSpectrum::latest() const
{
    if (!isLoudest_) return latest_;
    std::vector<Powers> loudest = {latest_[0]};
    for (const auto& signal : latest_) takeLarger(loudest[0], signal);
    return loudest;
}

double AveragedSpectrum::power(const Powers& weights) const noexcept
{
    double highest = 0;
    for (const Powers& powers : averaged_) {
        const std::size_t last = powers.size() - 1;
        double sum = 2 * (powers[0] * weights[0] + powers[last] * weights[last]);
        for (std::size_t k = 1; k < last; ++k) sum += powers[k] * weights[k];
        highest = std::max(highest, sum);
    }
    // By Parseval, over the window's own power.
    const double sum = frames_.windowSum();
    return highest * sum * sum / (frames_.length() * frames_.windowSquares());
}

}  // namespace quillworks
