// SPDX-License-Identifier: ISC
#include "analysis/level_meter.h"

#include <cmath>
#include <limits>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = LevelMeterCore<float>;
using S = LevelMeterSettings;
using namespace conversion;

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();

constexpr Family<S> kPerChannel{.count = VNK::kMaxChannels, .perChannel = true};

// Families of readings per channel.
constexpr Tag kLevel = 1000, kLevelHold = 1100, kRms = 1200, kRmsHold = 1300, kClipRun = 1400,
              kSamplePeak = 1500, kProgrammeRms = 1600;

constexpr ParameterNotes notes(const char* group, const char* help)
{
    return {.group = group, .help = help};
}

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key               tag         title                kind             min  max def   unit  field                 dirty                forward            notes
    {"correlation",      "Corr"_tag, "Phase Correlation", Kind::Meter,      -1,   1,  0,    "",   nullptr,              0,                   asIs, notes("Correlation", "Correlation of the two channels of a stereo bus: 1 equal, -1 inverted.")},
    {"usecorr",          "UCor"_tag, "Show Correlation",  Kind::Toggle,      0,   1,  0,    "",   &S::showCorrelation,  Core::Correlation,   asIs, notes("Correlation", "Measures and shows the phase correlation.")},
    {"resethold",        "RstH"_tag, "Reset Hold",        Kind::Trigger,     0,   1,  0,    "",   nullptr,              Core::ResetHold,     asIs, notes("Levels", "Clears held levels, clip counts and the error lamp.")},
    {"togglesize",       "TgSz"_tag, "Toggle Size",       Kind::Toggle,      0,   1,  0,    "",   nullptr,              0,                   asIs, notes("View", "Switches between the large and the compact view.")},
    {"resetloudness",    "RstL"_tag, "Reset Loudness",    Kind::Trigger,     0,   1,  0,    "",   nullptr,              Core::ResetLoudness, asIs, notes("Loudness", "Starts the loudness measurement anew.")},
    {"showvalues",       "Sval"_tag, "Show Values",       Kind::Toggle,      0,   1,  0,    "",   nullptr,              0,                   asIs, notes("View", "Shows the readings as numbers.")},
    {"bypass",           "Bypa"_tag, "Bypass",            Kind::Bypass,      0,   1,  0,    "",   nullptr,              0,                   asIs, notes("", "Stops measuring; the readings stand.")},

    {"holdlength",       "HldL"_tag, "Hold Length",       Kind::Command,    -1,  60,  1,    "s",  &S::holdSeconds,      Core::Hold},
    {"rmslength",        "RmsL"_tag, "RMS Length",        Kind::Command,     0, 3600, 0.6f, "s",  &S::rmsSeconds,       Core::RmsLength},
    {"measurement",      "Strc"_tag, "Measurement",       Kind::Command,     0,   2,  0,    "",   &S::measurement,      Core::Law},
    {"layoutweights",    "LayW"_tag, "Layout Weights",    Kind::Command,     0,   1,  1,    "",   &S::useLayoutWeights, Core::Weights},

    {"level",             kLevel,      "Level",             Kind::Reading,  -144,  24, -144,  "dB", nullptr, 0, asIs, {}, kPerChannel},
    {"levelHold",         kLevelHold,  "Peak Hold",         Kind::Reading,  -144,  24, -144,  "dB", nullptr, 0, asIs, {}, kPerChannel},
    {"rms",               kRms,        "RMS",               Kind::Reading,  -144,  24, -144,  "dB", nullptr, 0, asIs, {}, kPerChannel},
    {"rmsHold",           kRmsHold,    "RMS Hold",          Kind::Reading,  -144,  24, -144,  "dB", nullptr, 0, asIs, {}, kPerChannel},
    {"clipRun",           kClipRun,    "Clip Run",          Kind::Reading,     0, 100, 0,     "",   nullptr, 0, asIs, {}, kPerChannel},
    {"speakerCount",      "SpkC"_tag, "Speakers",         Kind::Reading,     0,  32, 0,     ""},
    {"processingError",   "PErr"_tag, "Invalid Input",    Kind::Reading,     0,   1, 0,     ""},
    // The first two keys have always been spelt this way.
    {"loundessMomentary", "LMom"_tag, "Momentary",        Kind::Reading,  -144,  10, -70,   "LUFS"},
    {"loundessShortTerm", "LSho"_tag, "Short-Term",       Kind::Reading,  -144,  10, -70,   "LUFS"},
    {"loudnessIntegral",  "LInt"_tag, "Integrated",       Kind::Reading,  -144,  10, -70,   "LUFS"},
    {"loudnessRangeMin",  "LRLo"_tag, "Range Low",        Kind::Reading,  -144,  10, -70,   "LUFS"},
    {"loudnessRangeMax",  "LRHi"_tag, "Range High",       Kind::Reading,  -144,  10, -70,   "LUFS"},
    {"loudnessTruePeak",  "LTPk"_tag, "True Peak",        Kind::Reading,  -144,  24, -144,  "dB"},
    // A whole programme under the strict law; not-a-number while there is nothing to report.
    {"momentaryMax",      "PMom"_tag, "Maximum Momentary",  Kind::Reading, -144, 10, kNothing, "LUFS"},
    {"shortTermMax",      "PSho"_tag, "Maximum Short-Term", Kind::Reading, -144, 10, kNothing, "LUFS"},
    {"integrated",        "PInt"_tag, "Programme Loudness", Kind::Reading, -144, 10, kNothing, "LUFS"},
    {"range",             "PRng"_tag, "Loudness Range",     Kind::Reading,    0, 60, kNothing, "LU"},
    {"rangeLow",          "PRLo"_tag, "Range Low",          Kind::Reading, -144, 10, kNothing, "LUFS"},
    {"rangeHigh",         "PRHi"_tag, "Range High",         Kind::Reading, -144, 10, kNothing, "LUFS"},
    {"truePeak",          "PTPk"_tag, "Maximum True Peak",  Kind::Reading, -144, 24, kNothing, "dB"},
    {"samplePeak",        kSamplePeak,   "Sample Peak",        Kind::Reading, -144, 24, kNothing, "dB", nullptr, 0, asIs, {}, kPerChannel},
    {"programmeRms",      kProgrammeRms, "Programme RMS",      Kind::Reading, -144, 24, kNothing, "dB", nullptr, 0, asIs, {}, kPerChannel},
};

// Choices of the menus, by the attribute's value.
constexpr float kRmsLengths[] = {0.6f, 1.8f};    // seconds; 15 s saturates below full scale
constexpr float kHoldLengths[] = {1.8f, 15.0f};  // seconds
constexpr float kPlainHold = 1;                  // while "vuHold" is off

struct Text {
    const char* key;
    const char* text;
};
/// What the display offers and shows. Choices are separated by "|", and a scale's text is its name,
/// the offset that it adds to a level in dB, and its ends.
constexpr Text kTexts[] = {
    {"SetHoldLength", "Hold Length"},
    {"SetRmsLength", "RMS Length"},
    {"SetHold", "Hold"},
    {"resetClip", "Reset Clip"},
    {"resetLoudness", "Reset Loudness"},
    {"resetLevels", "Reset Hold"},
    {"meterActivate", "Activate"},
    {"SelectPreset", "Preset"},
    {"holdLengthMenu", "1.8 s|15 s"},
    {"rmsLengthMenu", "0.6 s|1.8 s"},
    {"meterDisplay", "Peak Hold|Peak/RMS|K-20|K-14|K-12|EBU R128"},
    {"meterScale", "Peak Hold,0,-60,0|Peak/RMS,0,-60,0|K-20,20,-40,20|K-14,14,-46,14|"
                   "K-12,12,-48,12|EBU R128,23,-18,9"},
    {"peakHoldText", "Peak Hold: %(1:1) dB"},
    {"peakHoldStereoText", "Peak Hold L: %(1:1) dB - R: %(2:1) dB"},
    {"rmsHoldText", "K-RMS Hold: %(1:1) dB"},
    {"rmsHoldStereoText", "K-RMS Hold L: %(1:1) dB - R: %(2:1) dB"},
    {"loudnessRangeText", "Loudness Range: %(1:1) LU"},
    {"loudnessBarsText", "Short-Term | Momentary"},
    {"integratedLufsText", "Integrated: %(1:1) LUFS"},
    {"integratedLuText", "Integrated: %(1:1) LU"},
};
// clang-format on

/// A linear level as its meter shows it, in dB.
float reading(double linear)
{
    return static_cast<float>(gainToDb(linear));
}

/// The same for a programme: silence has nothing to report.
float readingOrNothing(double linear)
{
    return linear >= kSilence ? reading(linear) : kNothing;
}

}  // namespace

template <typename T> void LevelMeterCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    const auto channels = static_cast<std::size_t>(spec.channels);
    channels_.resize(channels);
    for (auto& c : channels_) {
        c.meter.prepare(spec.sampleRate);
        c.interpolator.prepare(spec.sampleRate);
        c.fineTruePeak.prepare(kPiece);
    }
    loudness_.prepare(spec.sampleRate, spec.layout);
    correlation_.prepare(spec.sampleRate);
    reset();
}

template <typename T> void LevelMeterCore<T>::reset() noexcept
{
    for (auto& c : channels_) {
        c.meter.reset();
        c.interpolator.reset();
        c.isInvalid = false;
    }
    correlation_.reset();
    loudness_.reset();
    restartLoudness();
}

template <typename T> void LevelMeterCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Correlation) {
        showsCorrelation_ = s.showCorrelation != 0;
        correlation_.reset();
    }
    for (auto& c : channels_) {
        if (dirty & Hold) c.meter.setHold(s.holdSeconds);
        if (dirty & RmsLength) c.meter.setRmsLength(s.rmsSeconds);
        if (dirty & ResetHold) {
            c.meter.resetHolds();
            c.isInvalid = false;
        }
    }
    if (dirty & Weights) loudness_.useLayoutWeights(s.useLayoutWeights != 0);
    if (dirty & ResetLoudness) {
        loudness_.restart();
        restartLoudness();
    }
    if (dirty & Law) setMeasurement(static_cast<Measurement>(static_cast<int>(s.measurement)));
}

template <typename T> void LevelMeterCore<T>::exchangeRoom(RingHandover::Rings& rings) noexcept
{
    for (std::size_t c = 0; c < std::min(channels_.size(), rings.size()); ++c)
        channels_[c].meter.exchangeRoom(rings[c]);
}

template <typename T> void LevelMeterCore<T>::setMeasurement(Measurement measurement) noexcept
{
    const Measurement before = std::exchange(measurement_, measurement);
    if (measurement == before) return;
    if (measurement == Measurement::Ended) {
        if (before == Measurement::Strict) endProgramme();
        return;
    }
    loudness_.setLaw(measurement == Measurement::Strict ? LoudnessMeter::Law::Strict
                                                        : LoudnessMeter::Law::Own);
    loudness_.reset();
    for (auto& c : channels_) c.interpolator.reset();
    restartLoudness();
}

template <typename T> void LevelMeterCore<T>::restartLoudness() noexcept
{
    for (auto& c : channels_) {
        c.fineTruePeak.reset();  // what still waits in it belongs to the past
        c.samplePeak = 0;
        c.power = 0;
    }
    truePeak_ = 0;
    truePeakDb_ = static_cast<float>(kSilenceDb);
    results_ = {kNothing, kNothing, kNothing, kNothing, kNothing, kNothing};
    frames_ = evaluated_ = 0;
}

template <typename T> void LevelMeterCore<T>::process(const AudioBlock<T>& block) noexcept
{
    if (measurement_ == Measurement::Ended) return;
    // Only the first sample is looked at: cheap, and a source that went bad stays bad.
    for (int c = 0; c < block.channels; ++c)
        if (!std::isfinite(block[c][0])) channels_[static_cast<std::size_t>(c)].isInvalid = true;

    for (int done = 0; done < block.frames; done += kPiece)
        measure(block.slice(done, std::min(kPiece, block.frames - done)));

    for (auto& c : channels_) c.meter.endBlock(block.frames);
    truePeakDb_ = std::max(truePeakDb_, reading(truePeak_));
    frames_ += block.frames;
    if (measurement_ == Measurement::Own) {
        loudness_.own().evaluate();
    } else if (double(frames_ - evaluated_) >= sampleRate_) {  // once a second is often enough
        results_ = loudness_.strict().evaluate();
        evaluated_ = frames_;
    }
}

template <typename T> void LevelMeterCore<T>::measure(const AudioBlock<T>& piece) noexcept
{
    const int n = piece.frames;
    const bool isStrict = measurement_ == Measurement::Strict;
    const T* x[VNK::kMaxChannels];
    T clean[VNK::kMaxChannels][kPiece];
    std::int64_t quanta[kPiece];
    TruePeak::Row<kPiece> row;
    for (const auto& channel : channels_) channel.meter.fetchAhead(n);
    for (int c = 0; c < piece.channels; ++c) {
        auto& channel = channels_[static_cast<std::size_t>(c)];
        T* const cleaned = clean[c];
        float* const single = isStrict ? channel.fineTruePeak.input() : row.input();
        vec::copy(cleaned, static_cast<const T*>(piece[c]), n);
        sanitise(cleaned, n);
        if constexpr (std::is_same_v<T, float>)
            vec::copy(single, cleaned, n);
        else
            vec::convert(single, cleaned, n);  // readings are single precision anyway
        const auto squares = quantisePower(quanta, cleaned, n);
        channel.samplePeak = std::max(channel.samplePeak, channel.meter.add(single, squares));
        if (isStrict) {
            channel.power += squares.total();
            truePeak_ = channel.fineTruePeak.advance(n, truePeak_);
        } else {
            truePeak_ = std::max(truePeak_, channel.interpolator.advance(row, n));
        }
        x[c] = cleaned;
    }
    loudness_.add(x, n);
    if (showsCorrelation_ && piece.channels == 2) correlation_.add(x[0], x[1], n);
}

template <typename T> void LevelMeterCore<T>::endProgramme() noexcept
{
    loudness_.endProgramme();
    results_ = loudness_.strict().evaluate();
    for (auto& c : channels_) truePeak_ = c.fineTruePeak.finish(truePeak_);
    truePeakDb_ = std::max(truePeakDb_, reading(truePeak_));
}

template <typename T> void LevelMeterCore<T>::publish(MeterSlots& meters) noexcept
{
    const int n = static_cast<int>(channels_.size());
    const auto at = [this](int c) -> const Channel& {
        return channels_[static_cast<std::size_t>(c)];
    };
    meters.publishFamily(kLevel, n, [&](int c) { return reading(at(c).meter.level()); });
    meters.publishFamily(kLevelHold, n, [&](int c) { return reading(at(c).meter.levelHold()); });
    meters.publishFamily(kRms, n, [&](int c) { return reading(at(c).meter.rms()); });
    meters.publishFamily(kRmsHold, n, [&](int c) { return reading(at(c).meter.rmsHold()); });
    meters.publishFamily(kClipRun, n, [&](int c) { return float(at(c).meter.clipRun()); });
    const bool isInvalid =
        std::any_of(channels_.begin(), channels_.end(), [](const auto& c) { return c.isInvalid; });
    meters.publish("SpkC"_tag, static_cast<float>(n));
    meters.publish("PErr"_tag, isInvalid ? 1.0f : 0.0f);
    meters.publish("Corr"_tag, static_cast<float>(correlation_.value()));
    meters.publish("LTPk"_tag, truePeakDb_);

    const bool isStrict = measurement_ != Measurement::Own;
    if (isStrict || showsProgramme_) publishProgramme(meters);
    showsProgramme_ = isStrict;
    if (isStrict) return;
    const auto& own = loudness_.own();
    meters.publish("LMom"_tag, static_cast<float>(own.momentary()));
    meters.publish("LSho"_tag, static_cast<float>(own.shortTerm()));
    meters.publish("LInt"_tag, static_cast<float>(own.integrated()));
    meters.publish("LRLo"_tag, static_cast<float>(own.range().low));
    meters.publish("LRHi"_tag, static_cast<float>(own.range().high));
}

/// The strict results, or nothing once the meter's own law is back.
template <typename T> void LevelMeterCore<T>::publishProgramme(MeterSlots& meters) noexcept
{
    const auto& r = results_;
    meters.publish("PMom"_tag, static_cast<float>(r.momentaryMax));
    meters.publish("PSho"_tag, static_cast<float>(r.shortTermMax));
    meters.publish("PInt"_tag, static_cast<float>(r.integrated));
    meters.publish("PRng"_tag, static_cast<float>(r.range));
    meters.publish("PRLo"_tag, static_cast<float>(r.rangeLow));
    meters.publish("PRHi"_tag, static_cast<float>(r.rangeHigh));

    const bool isStrict = measurement_ != Measurement::Own;
    const auto shown = [&](double linear) {
        return isStrict ? readingOrNothing(linear) : kNothing;
    };
    const double scale = 2 / PowerQuanta::kPerUnit / double(std::max<std::int64_t>(frames_, 1));
    float truePeak = truePeak_;  // of what has been looked at, which is a little behind
    for (const auto& c : channels_) truePeak = std::max(truePeak, c.samplePeak);
    const auto at = [this](int c) -> const Channel& {
        return channels_[static_cast<std::size_t>(c)];
    };
    const int n = static_cast<int>(channels_.size());
    meters.publish("PTPk"_tag, shown(truePeak));
    meters.publishFamily(kSamplePeak, n, [&](int c) { return shown(at(c).samplePeak); });
    meters.publishFamily(kProgrammeRms, n,
                         [&](int c) { return shown(std::sqrt(at(c).power * scale)); });
    if (!isStrict) return;
    // The readings of the display show the same law.
    const auto orFloor = [](double x, double floor) {
        return static_cast<float>(std::isnan(x) ? floor : x);
    };
    meters.publish("LMom"_tag, static_cast<float>(loudness_.strict().momentary()));
    meters.publish("LSho"_tag, static_cast<float>(loudness_.strict().shortTerm()));
    meters.publish("LInt"_tag, orFloor(r.integrated, kNoLoudness));
    meters.publish("LRLo"_tag, orFloor(r.rangeLow, kAbsoluteGate));
    meters.publish("LRHi"_tag, orFloor(r.rangeHigh, kAbsoluteGate));
}

template class LevelMeterCore<float>;
template class LevelMeterCore<double>;

LevelMeterAlgorithm::LevelMeterAlgorithm() : PrecisionAlgorithm(kParameters) {}

void LevelMeterAlgorithm::setParameter(Tag tag, float value) noexcept
{
    if (tag == "HldL"_tag) markDirty(Core::Hold);  // clears the holds even with the same time
    if (tag == "RmsL"_tag) takeRoom();
    PrecisionAlgorithm::setParameter(tag, value);
}

void LevelMeterAlgorithm::prepareCore(const ProcessSpec& spec, VNK::Precision precision)
{
    PrecisionAlgorithm::prepareCore(spec, precision);
    const float seconds = settings().rmsSeconds;
    if (seconds <= ChannelMeter::kUsualRms) return;
    if (!reserveRms(spec.sampleRate, spec.channels, seconds)) return;
    takeRoom();
    applyChanges();
}

bool LevelMeterAlgorithm::reserveRms(float seconds) noexcept
{
    return !isPrepared() || reserveRms(spec().sampleRate, spec().channels, seconds);
}

bool LevelMeterAlgorithm::reserveRms(double sampleRate, int channels, float seconds) noexcept
{
    const int samples = ChannelMeter::rmsSamples(sampleRate, seconds);
    const int usual = ChannelMeter::rmsSamples(sampleRate, ChannelMeter::kUsualRms);
    return samples > 0 && room_.offer(channels, static_cast<std::size_t>(std::max(samples, usual)));
}

void LevelMeterAlgorithm::takeRoom() noexcept
{
    room_.take([this](RingHandover::Rings& rings) {
        withCore([&](auto& core) { core.exchangeRoom(rings); });
        markDirty(Core::RmsLength);
    });
}

LevelMeterComponent::LevelMeterComponent(LevelMeterAlgorithm& algorithm)
    : AudioEffectComponent(
          algorithm,
          {.viewPrefix = "LevelMeter", .layouts = "stereo;mono;5.1;7.1", .copiesAtDefaults = true}),
      meter_(algorithm)
{
    // Kept with songs and presets.
    declareAttribute("mode", -1);  // of the choices of "meterDisplay"; -1: none chosen yet
    declareAttribute("rmsLength", 0);
    declareAttribute("vuHold", 0);
    declareAttribute("holdLength", 0);
    declareAttribute("loudnessInLUFS", 0);
    declareAttribute("loudnessEBU18", 0);
    // What the display shows, and how this run measures.
    declareAttribute("loudnessRange", 1, false);
    declareAttribute("loudnessIntegratedPlain", 0, false);
    declareAttribute("loudnessTruePeak", 1, false);
    declareAttribute("loudnessStrict", 0, false);
    declareAttribute("rmsMilliseconds", 0, false);  // 0: the choice of "rmsLength"
    declareAttribute("useLayoutWeights", 1, false);
    for (const auto& text : kTexts) publishAttribute(text.key, std::string(text.text));
}

std::int64_t LevelMeterComponent::attribute(const char* key) const noexcept
{
    std::int64_t value = 0;
    getInteger(key, value);
    return value;
}

void LevelMeterComponent::setRmsLength(float seconds) noexcept
{
    if (meter_.reserveRms(seconds)) command("RmsL"_tag, seconds);
}

void LevelMeterComponent::attributeChanged(const std::string& key, std::int64_t value) noexcept
{
    const auto choice = [](std::int64_t i) { return i == 1 ? 1 : 0; };  // others: the default
    if (key == "rmsLength" || key == "rmsMilliseconds") {
        const auto asked = attribute("rmsMilliseconds");
        setRmsLength(asked > 0 ? static_cast<float>(double(asked) / 1000)
                               : kRmsLengths[choice(attribute("rmsLength"))]);
    } else if (key == "vuHold" || (key == "holdLength" && attribute("vuHold") != 0)) {
        const bool isOn = attribute("vuHold") != 0;
        command("HldL"_tag, isOn ? kHoldLengths[choice(attribute("holdLength"))] : kPlainHold);
    } else if (key == "loudnessStrict") {
        command("Strc"_tag, static_cast<float>(std::clamp<std::int64_t>(value, 0, 2)));
    } else if (key == "useLayoutWeights") {
        command("LayW"_tag, value != 0 ? 1.0f : 0.0f);
    }
}

}  // namespace quillworks
