// SPDX-License-Identifier: ISC
#include "distortion/bitcrusher.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/neutral.h"
#include "dsp/sanitise.h"

namespace quillworks {
namespace {

using Core = BitcrusherCore<float>;
using S = BitcrusherSettings;
using namespace conversion;

constexpr float kRateOff = 48000, kBitsOff = 24;
/// Corner of the filters: a share of the clock's rate.
constexpr float kCorner = 0.4f;
constexpr float kFilterOff = 20000;  // Hz, above the corner of any rate
static_assert(kCorner * kRateOff < kFilterOff);

constexpr double kGainTolerance = 48e-6;  // dB

constexpr const char* kLaws[] = {"Mid-tread", "Mid-rise", "Mu-law"};
constexpr const char* kInput = "Input";
constexpr const char* kConverter = "Converter";
constexpr const char* kFilters = "Filters";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key         tag          title          kind          min   max    def    unit        field           dirty            forward
    {"ingain",     "InGn"_tag, "Input",       Kind::Float,  -24,  24,    0,     "Media.DB", &S::inputGain,  Core::Gains,     asIs,
        {.group = kInput, .help = "Level before the converter: it clips at full scale, and quiet sounds meet few of its steps.", .flags = kGainFlags}},
    {"rate",       "Rate"_tag, "Rate",        Kind::Float,  200,  48000, 12000, "Hz",       &S::rate,       Core::Clock,     asIs,
        {.group = kConverter, .help = "Rate of the converter's clock; every sound above half of it comes back mirrored.", .curve = &curve::logarithmic, .maxText = "Off"}},
    {"bits",       "Bits"_tag, "Bits",        Kind::Float,  1,    24,    8,     "bit",      &S::bits,       Core::Quantiser, asIs,
        {.group = kConverter, .help = "Length of the converter's words, in bits and parts of one.", .maxText = "Off"}},
    {"quantizer",  "Qant"_tag, "Quantizer",   Kind::List,   0,    2,     0,     "",         &S::quantiser,  Core::Quantiser, asIs,
        {.group = kConverter, .help = "Steps with a level at silence, steps on both sides of it, or the telephone's, which are finer where it is quiet.", .texts = kLaws}},
    {"dither",     "Dith"_tag, "Dither",      Kind::Float,  0,    100,   0,     "%",        &S::dither,     Core::Quantiser, percent,
        {.group = kConverter, .help = "Noise before the steps, which turns their distortion into hiss."}},
    {"jitter",     "Jitt"_tag, "Jitter",      Kind::Float,  0,    100,   0,     "%",        &S::jitter,     Core::Clock,     percent,
        {.group = kConverter, .help = "Uneven ticks of the clock: noise in step with the signal."}},
    {"prefilter",  "PreF"_tag, "Pre Filter",  Kind::Toggle, 0,    1,     0,     "",         &S::preFilter,  Core::Clock,     asIs,
        {.group = kFilters, .help = "Takes out what would be mirrored, before the converter.", .shortTitle = "Pre"}},
    {"postfilter", "PosF"_tag, "Post Filter", Kind::Toggle, 0,    1,     0,     "",         &S::postFilter, Core::Clock,     asIs,
        {.group = kFilters, .help = "Rounds off the steps, behind the converter.", .shortTitle = "Post"}},
    {"mix",        "Mix "_tag, "Mix",         Kind::Float,  0,    100,   100,   "%",        &S::mix,        Core::Mix,       percent,
        {.group = kOutput, .help = "From the input to the converted sound alone."}},
    {"output",     "OutG"_tag, "Output",      Kind::Float,  -24,  24,    0,     "Media.DB", &S::outputGain, Core::Gains,     asIs,
        {.group = kOutput, .help = "Level behind the mix.", .flags = kGainFlags}},
    {"bypass",     "Bypa"_tag, "Bypass",      Kind::Bypass},
    PeakLevels<float>::inputRow<S>(),
    PeakLevels<float>::outputRow<S>(),
};
// clang-format on

bool isClocked(float rate, double sampleRate)
{
    return !isNeutral(rate, kRateOff) && double(rate) < sampleRate;
}

}  // namespace

template <typename T> void BitcrusherCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    const double halfLife = 2 * glideSubBlocks(sampleRate_);
    inputGain_.prepare(halfLife, kGainTolerance);
    outputGain_.prepare(halfLife, kGainTolerance);
    dryWet_.prepareHalfLife(halfLife);
    dryWet_.prepareDry(spec.channels, Digitiser::kLatency);
    for (auto* filter : {&preFilter_, &postFilter_})
        filter->prepare({.lowOrder = 0, .highOrder = 4, .highEnd = kFilterOff}, spec.channels,
                        sampleRate_, halfLife);
    digitiser_.prepare(sampleRate_, spec.channels, halfLife);
    const auto channels = static_cast<std::size_t>(spec.channels);
    wet_.resize(channels * kSubBlock);
    wetChannels_.resize(channels);
    for (std::size_t c = 0; c < channels; ++c) wetChannels_[c] = wet_.data() + c * kSubBlock;
    dry_.resize(channels);
}

template <typename T> void BitcrusherCore<T>::reset() noexcept
{
    inputGain_.snap();
    outputGain_.snap();
    dryWet_.reset();
    preFilter_.reset();
    postFilter_.reset();
    digitiser_.reset();
}

template <typename T> void BitcrusherCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Gains) {
        inputGain_.target(s.inputGain);
        outputGain_.target(s.outputGain);
    }
    if (dirty & Clock) {
        const bool isOn = isClocked(s.rate, sampleRate_);
        digitiser_.setClock(isOn, s.rate);
        digitiser_.setJitter(s.jitter);
        const auto tune = [&](CutFilters<double>& filter, float isWanted) {
            filter.tune(20, isOn && isWanted != 0 ? kCorner * s.rate : kFilterOff);
        };
        tune(preFilter_, s.preFilter);
        tune(postFilter_, s.postFilter);
    }
    if (dirty & Quantiser) {
        const auto law = static_cast<QuantiserLaw>(static_cast<int>(s.quantiser));
        digitiser_.setQuantiser(isNeutral(s.bits, kBitsOff) ? QuantiserLaw::None : law, s.bits);
        digitiser_.setDither(s.dither);
    }
    if (dirty & Mix) dryWet_.target(s.mix);
}

template <typename T> void BitcrusherCore<T>::process(const AudioBlock<T>& block) noexcept
{
    peaks_.begin();
    forEachSubBlock(block, [this](const AudioBlock<T>& part) { processSlice(part); });
}

template <typename T> void BitcrusherCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    inputGain_.follow(part, dbToGain<double>);
    outputGain_.follow(part, dbToGain<double>);
    dryWet_.next(part);
    for (int c = 0; c < part.channels; ++c) {
        const auto at = static_cast<std::size_t>(c);
        T* const x = part[c];
        sanitise(x, n, kLoudestSignal);
        peaks_.measureInput(x, n);
        double* const wet = wetChannels_[at];
        for (int i = 0; i < n; ++i) wet[i] = double(x[i]);
        if (!inputGain_.is(1)) {
            inputGain_.scale(wet, part);
            for (int i = 0; i < n; ++i) x[i] = T(wet[i]);
        }
        dry_[at] = dryWet_.keep(c, x, n);
    }
    preFilter_.process(wetChannels_.data(), part);
    digitiser_.process(wetChannels_.data(), part);
    postFilter_.process(wetChannels_.data(), part);
    for (int c = 0; c < part.channels; ++c) {
        const auto at = static_cast<std::size_t>(c);
        T* const x = part[c];
        for (int i = 0; i < n; ++i) x[i] = T(wetChannels_[at][i]);
        dryWet_.mix(x, dry_[at], part);
        outputGain_.scale(x, part);
        peaks_.measureOutput(x, n);
    }
}

template class BitcrusherCore<float>;
template class BitcrusherCore<double>;

BitcrusherAlgorithm::BitcrusherAlgorithm() : PrecisionAlgorithm(kParameters) {}

BitcrusherComponent::BitcrusherComponent(BitcrusherAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Bitcrusher"})
{}

Delays BitcrusherComponent::delays(double sampleRate) const noexcept
{
    constexpr std::uint32_t latency = Digitiser::kLatency;
    // Dither never falls silent.
    if (value("dither") > 0 && !isNeutral(value("bits"), kBitsOff))
        return {latency, VNK::kEndlessTail};
    double tail = latency + 64;
    if (const float rate = value("rate"); isClocked(rate, sampleRate)) {
        // The last value held, the pre filter's ringing until a mid-rise quantiser takes it for
        // silence, and the post filter's.
        const double periods = 2 + 22 * isOn("prefilter") + 8 * isOn("postfilter");
        tail += std::trunc(sampleRate / double(rate) * periods);
    }
    return {latency, static_cast<std::uint32_t>(tail)};
}

}  // namespace quillworks
