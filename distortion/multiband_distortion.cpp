// SPDX-License-Identifier: ISC
#include "distortion/multiband_distortion.h"

#include <algorithm>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = MultibandDistortionCore<float>;
using S = MultibandDistortionSettings;
using namespace conversion;

constexpr double kGainTolerance = 48e-6;  // dB
constexpr Tag kDrives = 100, kCharacters = 200, kLevels = 300, kSolos = 400;
constexpr const char* kCurves[] = {"Warm", "Soft", "Hard", "Tube", "Fold"};
static_assert(std::size(kCurves) == kSaturations);

/// A value of each band.
template <float (S::*field)[kDistortedBands]>
constexpr Family<S> kEach{.count = kDistortedBands,
                          .element = [](S& s, int i) -> float& { return (s.*field)[i]; }};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key          tag          title         kind          min   max    def   unit        field          dirty         forward
    {"freqlow",     "XLow"_tag,  "Low Split",  Kind::Float,  80,   800,   200,  "Hz",       &S::lowSplit,  Core::Splits, asIs,
        {.group = "Splits", .help = "Where the low band ends.", .curve = &curve::logarithmic}},
    {"freqhigh",    "XHig"_tag,  "High Split", Kind::Float,  1000, 10000, 3000, "Hz",       &S::highSplit, Core::Splits, asIs,
        {.group = "Splits", .help = "Where the high band begins.", .curve = &curve::logarithmic}},
    {"drive",       kDrives,     "Drive",      Kind::Float,  0,    48,    12,   "Media.DB", nullptr,       Core::Bands,  asIs,
        {.group = "Bands", .help = "How far this band is driven into its curve.", .flags = VNK::isDecibel}, kEach<&S::drive>},
    {"character",   kCharacters, "Character",  Kind::List,   0,    4,     0,    "",         nullptr,       Core::Bands,  asIs,
        {.group = "Bands", .help = "The curve of this band.", .texts = kCurves}, kEach<&S::character>},
    {"level",       kLevels,     "Level",      Kind::Float,  -24,  12,    0,    "Media.DB", nullptr,       Core::Bands,  asIs,
        {.group = "Bands", .help = "Level of this band behind its curve.", .flags = kGainFlags}, kEach<&S::level>},
    {"solo",        kSolos,      "Solo",       Kind::Toggle, 0,    1,     0,    "",         nullptr,       Core::Bands,  asIs,
        {.group = "Bands", .help = "Only the bands whose solo is on are heard."}, kEach<&S::solo>},
    {"mix",         "Mix "_tag,  "Mix",        Kind::Float,  0,    100,   100,  "%",        &S::mix,       Core::Mix,    percent,
        {.group = "Output", .help = "From the input to the distorted sound alone."}},
    {"output",      "OutG"_tag,  "Output",     Kind::Float,  -24,  24,    0,    "Media.DB", &S::output,    Core::Output, asIs,
        {.group = "Output", .help = "Level behind the mix.", .flags = kGainFlags}},
    {"bypass",      "Bypa"_tag,  "Bypass",     Kind::Bypass},
};
// clang-format on

}  // namespace

template <typename T> void MultibandDistortionCore<T>::prepare(const ProcessSpec& spec)
{
    channels_ = spec.channels;
    const double halfLife = 2 * glideSubBlocks(spec.sampleRate);
    const int pairs = (channels_ + 1) / 2;
    splitter_.setBands(kDistortedBands);
    splitter_.prepare(spec.sampleRate, pairs);
    pairs_.resize(static_cast<std::size_t>(pairs));
    for (int b = 0; b < kDistortedBands; ++b) {
        auto& band = bands_[static_cast<std::size_t>(b)];
        band.saturator.prepare(spec.sampleRate, channels_, halfLife);
        band.saturator.setLevelMatch(true);
        band.level.prepare(halfLife, kGainTolerance);
        band.presence.prepareHalfLife(halfLife);
        band.dry.resize(static_cast<std::size_t>(channels_));
        band.rows.clear();
        for (int c = 0; c < channels_; ++c)
            band.rows.push_back(pairs_[static_cast<std::size_t>(c / 2)].of(b, c % 2));
    }
    dryWet_.prepareHalfLife(halfLife);
    dryWet_.prepareDry(kDistortedBands * channels_, Saturator<T>::latencyAt(spec.sampleRate));
    output_.prepare(halfLife, kGainTolerance);
}

template <typename T> void MultibandDistortionCore<T>::reset() noexcept
{
    splitter_.reset();
    for (auto& band : bands_) {
        band.saturator.reset();
        band.level.snap();
        band.presence.snap();
    }
    dryWet_.reset();
    output_.snap();
}

template <typename T>
void MultibandDistortionCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Splits) {
        splitter_.target(0, double(s.lowSplit));
        splitter_.target(1, double(s.highSplit));
    }
    if (dirty & Bands) {
        const bool hasSolo = std::ranges::any_of(s.solo, [](float on) { return on != 0; });
        for (std::size_t b = 0; b < kDistortedBands; ++b) {
            bands_[b].saturator.setDrive(double(s.drive[b]));
            bands_[b].saturator.setCurve(static_cast<Saturation>(static_cast<int>(s.character[b])));
            bands_[b].level.target(double(s.level[b]));
            bands_[b].presence.target(!hasSolo || s.solo[b] != 0 ? T(1) : T(0));
        }
    }
    if (dirty & Mix) dryWet_.target(T(s.mix));
    if (dirty & Output) output_.target(double(s.output));
}

template <typename T> void MultibandDistortionCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& part) { processSlice(part); });
}

/// One band of all channels, its dry signal mixed in.
template <typename T> void MultibandDistortionCore<T>::distort(int number, GridSlice slice) noexcept
{
    auto& band = bands_[static_cast<std::size_t>(number)];
    const auto lines = band.dry.size();
    for (std::size_t c = 0; c < lines; ++c)
        band.dry[c] =
            dryWet_.keep(number * channels_ + static_cast<int>(c), band.rows[c], slice.frames);
    band.saturator.process(band.rows.data(), slice);
    band.level.follow(slice, dbToGain<double>);
    band.presences.follow(band.presence, slice);
    for (std::size_t c = 0; c < lines; ++c) {
        band.level.scale(band.rows[c], slice);
        dryWet_.mix(band.rows[c], band.dry[c], slice);
        band.presences.scale(band.rows[c], slice);
    }
}

template <typename T>
void MultibandDistortionCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const auto right = [&](int pair) {
        return 2 * pair + 1 < part.channels ? part[2 * pair + 1] : nullptr;
    };
    for (int c = 0; c < part.channels; ++c) sanitise(part[c], part.frames, kLoudestSignal);
    splitter_.begin(part);
    dryWet_.next(part);
    output_.follow(part, dbToGain<double>);
    for (int p = 0; 2 * p < part.channels; ++p)
        splitter_.split(p, part[2 * p], right(p), pairs_[static_cast<std::size_t>(p)], part);
    for (int b = 0; b < kDistortedBands; ++b) distort(b, part);
    for (int p = 0; 2 * p < part.channels; ++p)
        splitter_.join(p, pairs_[static_cast<std::size_t>(p)], part[2 * p], right(p), part);
    for (int c = 0; c < part.channels; ++c) output_.scale(part[c], part);
}

template class MultibandDistortionCore<float>;
template class MultibandDistortionCore<double>;

MultiDistAlgorithm::MultiDistAlgorithm() : PrecisionAlgorithm(kParameters) {}

MultiDistComponent::MultiDistComponent(MultiDistAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "MultiDist"})
{}

Delays MultiDistComponent::delays(double sampleRate) const noexcept
{
    const auto isTube = [this](const char* key) {
        return static_cast<Saturation>(static_cast<int>(value(key))) == Saturation::Tube;
    };
    const bool makesConstant = isTube("character0") || isTube("character1") || isTube("character2");
    return {static_cast<std::uint32_t>(Saturator<float>::latencyAt(sampleRate)),
            Saturator<float>::tailAt(sampleRate, makesConstant)};
}

}  // namespace quillworks
