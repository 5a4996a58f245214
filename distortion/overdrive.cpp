// SPDX-License-Identifier: ISC
#include "distortion/overdrive.h"

#include <cmath>
#include <cstdint>

#include "dsp/decibel.h"
#include "dsp/one_pole_section.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = OverdriveCore<float>;
using S = OverdriveSettings;
using namespace conversion;

constexpr double kDrivenFrom = 720;         // Hz
constexpr double kLowestTone = 800;         // Hz, and a decade above it at full tone
constexpr double kBias = 0.08;              // some even harmonics
constexpr double kGainTolerance = 48e-6;    // dB
constexpr double kToneTolerance = 0.00144;  // octaves: 0.1 %

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key     tag         title     kind          min  max  def  unit        field      dirty        forward
    {"drive",  "Driv"_tag, "Drive",  Kind::Float,  0,   36,  18,  "Media.DB", &S::drive, Core::Drive, asIs,
        {.help = "How far the middle and the highs are driven.", .flags = VNK::isDecibel}},
    {"tone",   "Tone"_tag, "Tone",   Kind::Float,  0,   100, 50,  "%",        &S::tone,  Core::Tone,  percent,
        {.help = "How bright it is."}},
    {"level",  "OutG"_tag, "Level",  Kind::Float,  -24, 12,  0,   "Media.DB", &S::level, Core::Level, asIs,
        {.help = "Level of the output.", .flags = kGainFlags}},
    {"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
};
// clang-format on

}  // namespace

template <typename T> void OverdriveCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    const double halfLife = 2 * glideSubBlocks(sampleRate_);
    highPass_.prepare(1, spec.channels);
    highPass_.set(0, asSection(OnePoleCoefficients<T>::highPass(kDrivenFrom, sampleRate_)));
    lowPass_.prepare(1, spec.channels);
    saturator_.prepare(sampleRate_, spec.channels, halfLife);
    saturator_.setCurve(Saturation::Soft);
    saturator_.setBias(kBias);
    saturator_.setLevelMatch(true);
    tone_.prepareHalfLife(halfLife);
    tone_.setTolerance(kToneTolerance);
    level_.prepare(halfLife, kGainTolerance);
    const auto channels = static_cast<std::size_t>(spec.channels);
    clean_.resize(channels);
    for (auto& line : clean_) line.prepare(Saturator<T>::latencyAt(sampleRate_));
    delayed_.resize(channels);
    driven_.resize(channels);
}

template <typename T> void OverdriveCore<T>::reset() noexcept
{
    highPass_.reset();
    lowPass_.reset();
    saturator_.reset();
    tone_.snap();
    layTone(false);
    level_.snap();
    for (auto& line : clean_) line.reset();
}

template <typename T> void OverdriveCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Drive) saturator_.setDrive(double(s.drive));
    if (dirty & Tone) tone_.target(std::log2(kLowestTone * std::pow(10.0, double(s.tone))));
    if (dirty & Level) level_.target(double(s.level));
}

template <typename T> void OverdriveCore<T>::layTone(bool glides) noexcept
{
    const double corner = std::exp2(tone_.current());
    const auto c = asSection(OnePoleCoefficients<T>::lowPass(corner, sampleRate_));
    if (glides)
        lowPass_.glide(0, c);
    else
        lowPass_.set(0, c);
}

template <typename T> void OverdriveCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& part) { processSlice(part); });
}

template <typename T> void OverdriveCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    level_.follow(part, dbToGain<double>);
    if (part.begins() && tone_.isGliding()) {
        tone_.next(kWholeSubBlock);
        layTone(true);
    }
    for (int c = 0; c < part.channels; ++c) {
        const auto at = static_cast<std::size_t>(c);
        T* const x = part[c];
        sanitise(x, n, kLoudestSignal);
        delayed_[at] = clean_[at].push(x, n);
        driven_[at] = x;
    }
    highPass_.process(driven_.data(), part);
    saturator_.process(driven_.data(), part);
    for (std::size_t c = 0; c < driven_.size(); ++c) vec::addInplace(driven_[c], delayed_[c], n);
    lowPass_.process(driven_.data(), part);
    for (T* const x : driven_) level_.scale(x, part);
}

template class OverdriveCore<float>;
template class OverdriveCore<double>;

OverdriveAlgorithm::OverdriveAlgorithm() : PrecisionAlgorithm(kParameters) {}

OverdriveComponent::OverdriveComponent(OverdriveAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Overdrive"})
{}

Delays OverdriveComponent::delays(double sampleRate) const noexcept
{
    return {static_cast<std::uint32_t>(Saturator<float>::latencyAt(sampleRate)),
            Saturator<float>::tailAt(sampleRate, true)};
}

}  // namespace quillworks
