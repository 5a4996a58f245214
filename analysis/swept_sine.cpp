// SPDX-License-Identifier: ISC
#include "analysis/swept_sine.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "analysis/oscillators.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kFade = 0.005;          // seconds
constexpr double kNearest = 1.0 / 1200;  // octaves

}  // namespace

void SweptSine::begin(const SweepLaw& law, double sampleRate) noexcept
{
    law_ = law;
    rate_ = sampleRate;
    double seconds = law.seconds;
    chirp_ = (law.to - law.from) / (2 * seconds);
    if (std::abs(std::log2(law.to / law.from)) < kNearest) {
        law_.isLogarithmic = false;
        chirp_ = 0;
    } else if (law.isLogarithmic) {
        const double ratio = std::log(law.to / law.from);
        const double m = std::round(law.from * seconds / ratio);
        periods_ = std::copysign(std::max(1.0, std::abs(m)), ratio);
        const double scale = periods_ / law.from;
        seconds = scale * ratio;
        growth_ = 1 / (scale * sampleRate);
        for (int k = 0; k < kSubBlock; ++k) grown_[k] = std::expm1(k * growth_);
    }
    length_ = seconds * sampleRate;
}

void SweptSine::play(std::int64_t frame, double* out, int n) const noexcept
{
    const auto first = static_cast<double>(frame);
    const int sounding =
        std::clamp(static_cast<int>(std::ceil(std::min(length_ - first, 64.0))), 0, n);
    vec::clear(out + sounding, n - sounding);
    if (law_.isLogarithmic) {
        // In two parts, so that neither is a small difference of large numbers.
        const double before = periods_ * std::expm1(first * growth_);
        const double scale = before + periods_;
        const double base = before - std::floor(before);
        for (int k = 0; k < sounding; ++k) out[k] = base + scale * grown_[k];
    } else {
        for (int k = 0; k < sounding; ++k) {
            const double t = (first + k) / rate_;
            out[k] = (law_.from + chirp_ * t) * t;
        }
    }
    sinesOfCycles(out, sounding);
    const double fade = kFade * rate_;
    if (first >= fade && length_ - (first + n) >= fade) return;
    for (int k = 0; k < sounding; ++k)
        for (const double fromEnd : {first + k, length_ - (first + k)})
            if (fromEnd < fade) out[k] *= 0.5 - 0.5 * std::cos(std::numbers::pi * fromEnd / fade);
}

double SweptSine::frequencyAt(double frame) const noexcept
{
    if (law_.isLogarithmic) return law_.from * std::exp(frame * growth_);
    return law_.from + 2 * chirp_ * (frame / rate_);
}

void SweepCycle::set(const SweepLaw& law, double pause, bool repeats) noexcept
{
    law_ = law;
    pause_ = pause * rate_;
    repeats_ = repeats;
}

void SweepCycle::begin() noexcept
{
    sweep_.begin(law_, rate_);
    frame_ = 0;
}

void SweepCycle::next(double* out) noexcept
{
    for (int at = 0; at < kSubBlock;) {
        // The first whole sample behind the pause, whatever the rounding of times.
        const double end = sweep_.length() + pause_ - 1e-3;
        const auto due = std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(end)));
        if (repeats_ && frame_ >= due) {
            begin();
            continue;
        }
        const std::int64_t left = kSubBlock - at;
        const auto n = static_cast<int>(repeats_ ? std::min(left, due - frame_) : left);
        sweep_.play(frame_, out + at, n);
        frame_ += n;
        at += n;
    }
}

bool SweepCycle::isSounding() const noexcept
{
    return static_cast<double>(frame_) < sweep_.length();
}

double SweepCycle::frequency() const noexcept
{
    return isSounding() ? sweep_.frequencyAt(static_cast<double>(frame_))
                        : std::numeric_limits<double>::quiet_NaN();
}

double SweepCycle::progress() const noexcept
{
    return std::min(1.0, static_cast<double>(frame_) / sweep_.length());
}

}  // namespace quillworks
