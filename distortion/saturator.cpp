// SPDX-License-Identifier: ISC
#include "distortion/saturator.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/level_match.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kLeastRate = 320000;  // Hz, inside
constexpr double kFadeSeconds = 0.01;
constexpr double kDriveTolerance = 48e-6;  // dB, where a glide ends
constexpr double kConstantCorner = 5;      // Hz
constexpr double kForgetSeconds = 0.5;     // until the high-pass holds -136 dB of what it held

int factorAt(double sampleRate) noexcept
{
    int factor = 1;
    while (factor < 8 && factor * sampleRate < kLeastRate) factor *= 2;
    return factor;
}

}  // namespace

template <typename T> int Saturator<T>::latencyAt(double sampleRate) noexcept
{
    const int factor = factorAt(sampleRate);
    return factor == 8 ? 39 : factor == 4 ? 38 : factor == 2 ? 32 : 0;
}

template <typename T>
std::uint32_t Saturator<T>::tailAt(double sampleRate, bool makesConstant) noexcept
{
    return static_cast<std::uint32_t>(latencyAt(sampleRate)) +
           static_cast<std::uint32_t>((makesConstant ? 0.25 : 0.05) * sampleRate);
}

template <typename T>
void Saturator<T>::prepare(double sampleRate, int channels, double glideHalfLife)
{
    for (auto* value : {&drive_, &bias_, &match_}) value->prepareHalfLife(glideHalfLife);
    drive_.setTolerance(kDriveTolerance);
    curve_.prepare(sampleRate, kFadeSeconds);
    oversamplers_.resize(static_cast<std::size_t>(channels));
    for (auto& oversampler : oversamplers_) oversampler.prepare(factorAt(sampleRate));
    highPass_ = OnePoleCoefficients<double>::highPass(kConstantCorner, sampleRate);
    constants_.resize(static_cast<std::size_t>(channels));
    blockFrames_ = static_cast<int>(kForgetSeconds * sampleRate);
}

template <typename T> void Saturator<T>::reset() noexcept
{
    for (auto* value : {&drive_, &bias_, &match_}) value->snap();
    curve_.snap();
    isLaid_ = false;
    for (auto& oversampler : oversamplers_) oversampler.reset();
    blockLeft_ = 0;
}

/// A sub-block begins.
template <typename T> void Saturator<T>::begin(GridSlice slice) noexcept
{
    const bool starts = curve_.next(slice);
    if (starts) leaving_ = present_;
    const bool moves = drive_.isGliding() || bias_.isGliding() || match_.isGliding();
    if (moves || starts || !isLaid_) {
        const Ends ends{drive_.next(kWholeSubBlock), bias_.next(kWholeSubBlock),
                        match_.next(kWholeSubBlock)};
        lay(present_, curve_.present(), ends, starts || !isLaid_);
        if (curve_.isFading()) lay(leaving_, curve_.leaving(), ends, false);
        isLaid_ = true;
    }

    const auto isTube = [](Saturation curve) { return curve == Saturation::Tube; };
    const bool makesConstant = bias_.current() != 0 || bias_.isGliding() ||
                               isTube(curve_.present()) ||
                               (curve_.isFading() && isTube(curve_.leaving()));
    if (makesConstant && blockLeft_ == 0)
        for (auto& constant : constants_) constant.reset();
    blockLeft_ = makesConstant ? blockFrames_ : std::max(0, blockLeft_ - kSubBlock);
}

/// Lays the values of a sub-block out, from where the way was unless it is fresh.
template <typename T>
void Saturator<T>::lay(Way& way, Saturation curve, const Ends& ends, bool isFresh) const noexcept
{
    const double gain = dbToGain(ends.drive.to * (curve == Saturation::Fold ? 0.5 : 1));
    const double match = ends.match.to;
    const double level = match == 0 ? 1 : std::pow(levelMatch(curve, gain, ends.bias.to), match);
    if (isFresh) {
        way.gain = gain;
        way.level = level;
    }
    vec::ramp(way.drive.gain, T(way.gain), T(gain), kSubBlock);
    vec::ramp(way.drive.level, T(way.level), T(level), kSubBlock);
    vec::ramp(way.drive.bias, T(ends.bias.from), T(ends.bias.to), kSubBlock);
    AntiderivativeShape<T>::findRest(curve, way.drive);
    way.gain = gain;
    way.level = level;
}

/// One channel, by two curves while one follows the other: the fade is made at the inner rate.
template <typename T>
void Saturator<T>::shape(Oversampler<T>& oversampler, T* x, GridSlice slice,
                         const T* weights) noexcept
{
    const int n = slice.frames, phases = oversampler.factor();
    const T* const* const in = oversampler.up(x, n);
    T* const* const out = oversampler.shaped();
    AntiderivativeShape<T>::process(curve_.present(), present_.drive, in, phases, out, slice);
    if (curve_.isFading()) {
        T old[kMostPhases][kSubBlock + kShapePadding];
        std::array<T*, kMostPhases> to;
        for (int p = 0; p < phases; ++p) to[static_cast<std::size_t>(p)] = old[p];
        AntiderivativeShape<T>::process(curve_.leaving(), leaving_.drive, in, phases, to.data(),
                                        slice);
        for (int p = 0; p < phases; ++p)
            for (int i = 0; i < n; ++i)
                out[p][i] = old[p][i] + (out[p][i] - old[p][i]) * weights[i];
    }
    oversampler.down(x);
}

/// In double: the pole lies close to the unit circle. Two channels at a time, since each waits for
/// its own last sample.
template <typename T> void Saturator<T>::blockConstant(T* const* x, int n) noexcept
{
    const std::size_t channels = constants_.size();
    for (std::size_t c = 0; c + 1 < channels; c += 2) {
        auto a = constants_[c], b = constants_[c + 1];
        for (int i = 0; i < n; ++i) {
            x[c][i] = static_cast<T>(a.next(highPass_, double(x[c][i])));
            x[c + 1][i] = static_cast<T>(b.next(highPass_, double(x[c + 1][i])));
        }
        constants_[c] = a;
        constants_[c + 1] = b;
    }
    if (channels % 2 == 0) return;
    auto a = constants_.back();
    for (int i = 0; i < n; ++i)
        x[channels - 1][i] = static_cast<T>(a.next(highPass_, double(x[channels - 1][i])));
    constants_.back() = a;
}

template <typename T> void Saturator<T>::process(T* const* x, GridSlice slice) noexcept
{
    if (slice.begins()) begin(slice);
    T weights[kSubBlock];
    if (curve_.isFading()) curve_.fade().weights(weights, slice.frames);
    for (std::size_t c = 0; c < oversamplers_.size(); ++c)
        shape(oversamplers_[c], x[c], slice, weights);
    if (blockLeft_ > 0) blockConstant(x, slice.frames);
    curve_.advance(slice.frames);
}

template class Saturator<float>;
template class Saturator<double>;

}  // namespace quillworks
