// SPDX-License-Identifier: ISC
#include "dynamics/bandpress.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"
#include "dynamics/compressor.h"

namespace quillworks {
namespace {

using Core = TriBandCore<float>;
using S = TriBandSettings;
using namespace conversion;

constexpr int kBands = S::kBands;
constexpr Tag kReduction = 1500, kLevel = 1600;  // first of the meters' families
constexpr float kMostReduction = 48;             // dB, of the meter
constexpr float kLowestLevel = -144, kHighestLevel = 20;

/// A row for each band.
template <float (S::*field)[kBands]>
constexpr Family<S> kPerBand{.count = kBands,
                             .element = [](S& s, int i) -> float& { return (s.*field)[i]; }};

constexpr const char* kPress = "Press";
constexpr const char* kBandsGroup = "Bands";
constexpr const char* kEnvelope = "Envelope";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key           tag          title           kind           min   max    def   unit                  field          dirty           forward
    {"press",      "Pres"_tag, "Press",         Kind::Float,     0,    24,     0, "dB",                 &S::press,     Core::Curves,   asIs,
     {.group = kPress, .help = "Lowers all thresholds together, so that more is compressed and the balance of the bands stays.", .flags = VNK::isDecibel}},
    {"freqlow",    "FrLo"_tag, "Low Split",     Kind::Float,    40,  1000,   160, "Hz",                 &S::freqLow,   Core::Splits,   asIs,
     {.group = kBandsGroup, .help = "Where the low band ends.", .curve = &curve::logarithmic}},
    {"freqhigh",   "FrHi"_tag, "High Split",    Kind::Float,  1000, 12000,  2500, "Hz",                 &S::freqHigh,  Core::Splits,   asIs,
     {.group = kBandsGroup, .help = "Where the high band begins.", .curve = &curve::logarithmic}},
    {"threshold",         100, "Threshold",     Kind::Float,   -60,     0,   -24, "Media.DB",           nullptr,       Core::Curves,   asIs,
     {.group = kBandsGroup, .help = "Level of the band above which it is reduced.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}, kPerBand<&S::threshold>},
    {"ratio",             200, "Ratio",         Kind::Float,     1,    20,  2.5f, "Media.Ratio",        nullptr,       Core::Curves,   ratioToSlope,
     {.group = kBandsGroup, .help = "How many decibels above the threshold become one.", .curve = &curve::middleAt<2000>}, kPerBand<&S::slope>},
    {"gain",              300, "Gain",          Kind::Float,   -18,    18,     0, "Media.DB",           nullptr,       Core::Curves,   asIs,
     {.group = kBandsGroup, .help = "Gain of the band behind its compression.", .curve = &curve::decibel, .flags = kGainFlags}, kPerBand<&S::gain>},
    {"bandon",            400, "On",            Kind::Toggle,    0,     1,     1, "",                   nullptr,       Core::Switches, asIs,
     {.group = kBandsGroup, .help = "Off, the band passes as it is."}, kPerBand<&S::bandOn>},
    {"solo",              500, "Solo",          Kind::Toggle,    0,     1,     0, "",                   nullptr,       Core::Switches, asIs,
     {.group = kBandsGroup, .help = "Only soloed bands are heard."}, kPerBand<&S::solo>},
    {"mute",              600, "Mute",          Kind::Toggle,    0,     1,     0, "",                   nullptr,       Core::Switches, asIs,
     {.group = kBandsGroup, .help = "The band is not heard, unless it is soloed."}, kPerBand<&S::mute>},
    {"attack",     "Atck"_tag, "Attack",        Kind::Float,  0.1f,   200,    12, "Media.Milliseconds", &S::attack,    Core::Times,    milliseconds,
     {.group = kEnvelope, .help = "Time in which the reduction sets in.", .curve = &curve::logarithmic}},
    {"release",    "Rels"_tag, "Release",       Kind::Float,     5,  2000,   150, "Media.Milliseconds", &S::release,   Core::Times,    milliseconds,
     {.group = kEnvelope, .help = "Time in which the reduction goes back.", .curve = &curve::logarithmic}},
    {"bandtimes",  "BTim"_tag, "Band Times",    Kind::Toggle,    0,     1,     1, "",                   &S::bandTimes, Core::Times,    asIs,
     {.group = kEnvelope, .help = "Doubles both times for the low band and halves them for the high one.", .shortTitle = "By Band"}},
    {"knee",       "Knee"_tag, "Knee",          Kind::Float,  0.1f,    20,     6, "dB",                 &S::knee,      Core::Curves,   asIs,
     {.group = kEnvelope, .help = "How far below and above the threshold the curves bend; small is a hard corner.", .flags = VNK::isDecibel}},
    {"auto",       "AutG"_tag, "Auto Gain",     Kind::Toggle,    0,     1,     1, "",                   &S::autoGain,  Core::Curves,   asIs,
     {.group = kOutput, .help = "Makes up for what each band loses by its threshold and ratio.", .shortTitle = "Auto"}},
    {"linked",     "Link"_tag, "Link Channels", Kind::Toggle,    0,     1,     1, "",                   &S::linked,    Core::Linking,  asIs,
     {.group = kOutput, .help = "Reduces all channels alike, so that the stereo image stays.", .shortTitle = "Link"}},
    {"mix",        "Mix "_tag, "Mix",           Kind::Float,     0,     1,     1, "",                   &S::mix,       Core::Mixing,   asIs,
     {.group = kOutput, .help = "Share of the compressed signal; below 1 the same bands without compression are added."}},
    {"outgain",    "OutG"_tag, "Output",        Kind::Float,   -24,    24,     0, "Media.DB",           &S::outGain,   Core::Mixing,   asIs,
     {.group = kOutput, .help = "Gain of the whole.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"reduction",  kReduction, "Reduction",     Kind::Meter, -kMostReduction, 0, 0, "dB",               nullptr,       0,              asIs, {}, {.count = kBands}},
    {"bandlevel",      kLevel, "Level",         Kind::Meter, kLowestLevel, kHighestLevel, kLowestLevel, "dB", nullptr, 0,              asIs, {}, {.count = kBands}},
    {"bypass",     "Bypa"_tag, "Bypass",        Kind::Bypass},
    {"editor",     "Edit"_tag, "Editor",        Kind::Command,   0,     1,     0, "",                   &S::editorOpen, Core::Editor},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
    levelRow<S>(kOutputFast),
    levelRow<S>(kOutputSlow),
};
// clang-format on

constexpr double kPowerFloor = 1e-16;  // added to powers: -160 dB
/// Share of the whole make-up that leaves the level of music about where it was: a band's peaks lie
/// above its threshold for a part of the time only.
constexpr double kMakeUpShare = 0.75;

}  // namespace

template <typename T> void TriBandCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    channels_.splitter().setBands(kBands);
    channels_.prepare(sampleRate_, spec.channels);
    linked_.prepare(1);
    apart_.prepare(spec.channels);
    sharing_.prepare(sampleRate_, 0.01);
    const double half = glideSubBlocks(sampleRate_);
    constexpr double kTolerance = 0.0087;  // dB: 0.1 %
    for (auto& gain : gain_) gain.prepare(half, kTolerance);
    outGain_.prepare(half, kTolerance);
    mix_.prepare(sampleRate_, 0.03);
    switches_.prepare(sampleRate_);
    levels_.prepare(spec);
}

template <typename T> void TriBandCore<T>::reset() noexcept
{
    channels_.reset();
    linked_.hold.reset();
    apart_.hold.reset();
    sharing_.snap();
    for (auto& gain : gain_) gain.snap();
    outGain_.snap();
    mix_.snap();
    switches_.snap();
    levels_.reset();
    history_.reset();
}

template <typename T> void TriBandCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Splits) {
        channels_.splitter().target(0, s.freqLow);
        channels_.splitter().target(1, s.freqHigh);
    }
    if (dirty & Curves) {
        for (int b = 0; b < kBands; ++b) {
            const float threshold = s.threshold[b] - s.press;
            curve_[b] = CompressionCurve::of(threshold, s.slope[b], s.knee);
            const double makeUp =
                s.autoGain != 0 ? kMakeUpShare * double(autoMakeUp(s.slope[b], threshold)) : 0;
            gain_[b].target(double(s.gain[b]) + makeUp);
        }
    }
    if (dirty & (Times | Splits)) {
        constexpr double kFactors[kBands] = {2, 1, 0.5};
        const double edges[kBands] = {0, s.freqLow, s.freqHigh};
        for (int b = 0; b < kBands; ++b) {
            const double factor = s.bandTimes != 0 ? kFactors[b] : 1;
            const double attack = followerCoefficient(sampleRate_, factor * s.attack);
            const double release = followerCoefficient(sampleRate_, factor * s.release);
            const int hold = PeakHold::holdFrames(sampleRate_, edges[b]);
            for (auto* const bank : {&linked_, &apart_})
                for (int key = b; key < bank->hold.keys(); key += kBands)
                    bank->hold.setTimes(key, attack, release, hold);
        }
    }
    if (dirty & Switches) switches_.target(s.bandOn, s.solo, s.mute, kBands);
    if (dirty & Linking)
        sharing_.target(s.linked != 0 ? KeySharing::Linked : KeySharing::PerChannel);
    if (dirty & Mixing) {
        mix_.target(T(s.mix));
        outGain_.target(s.outGain);
    }
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
}

template <typename T> void TriBandCore<T>::process(const AudioBlock<T>& block) noexcept
{
    for (auto& meter : meter_) meter = {};
    levels_.around(
        block, [](T* x, int n) { sanitise(x, n, kLoudestSignal); },
        [this](const AudioBlock<T>& piece) {
            forEachSubBlock(piece, [this](const AudioBlock<T>& part) { processSlice(part); });
        });
    if (ground_) ground_->write(block.channel, block.frames);
}

template <typename T> void TriBandCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    channels_.begin(part);
    channels_.split(part);
    if (sharing_.next(part))
        bank(sharing_.present()).hold.takeOver(bank(sharing_.leaving()).hold, kBands);
    switches_.next(part);
    for (auto& gain : gain_) gain.follow(part, [](double db) { return db; });
    mixCourse_.follow(mix_, part);
    if (sharing_.isFading()) detect(sharing_.leaving(), part, false);
    detect(sharing_.present(), part, true);
    applyGains(part);
    channels_.join(part);
    outGain_.follow(part, [](double db) { return dbToGain(db); });
    for (int c = 0; c < part.channels; ++c) outGain_.scale(part[c], part);
    switches_.advance(n);
    sharing_.advance(n);
}

/// The gains of all keys of one sharing.
template <typename T>
void TriBandCore<T>::detect(KeySharing sharing, GridSlice slice, bool isMetered) noexcept
{
    const int n = slice.frames;
    Bank& bank = this->bank(sharing);
    KeyRows<T>& rows = bank.gains;
    channels_.powers(sharing, rows.data(), n);
    Meter seen[kBands];
    if (isMetered)
        rows.forEach(
            [&](int b, T* row) { seen[b].power = std::max(seen[b].power, vec::peak(row, n)); });
    rows.map(n, [](T* x, int count) { vec::decibelsFromPower(x, x, T(kPowerFloor), count); });
    rows.forEach([&](int b, T* row) { curve_[b].reduce(row, n); });
    bank.isIdle = bank.hold.run(rows.data(), n);
    rows.forEach([&](int b, T* row) {
        const T* const gain = gain_[b].of(slice);
        if (bank.isIdle) return vec::copy(row, gain, n);
        if (isMetered) seen[b].reduction = std::max(seen[b].reduction, vec::peak(row, n));
        vec::subCopy(row, gain, row, n);
    });
    if (isMetered) keep(seen, slice);
    rows.map(n, [](T* x, int count) { vec::gainFromDecibels(x, x, count); });
    rows.forEach([&](int b, T* row) { switches_.apply(b, row, mixCourse_, slice); });
}

/// For the meters, which show the call's extremes, and the history.
template <typename T>
void TriBandCore<T>::keep(const Meter (&seen)[kBands], GridSlice slice) noexcept
{
    for (int b = 0; b < kBands; ++b) {
        meter_[b].power = std::max(meter_[b].power, seen[b].power);
        meter_[b].reduction = std::max(meter_[b].reduction, seen[b].reduction);
        if (history_.isRead())
            history_.add(b, std::sqrt(double(seen[b].power)), dbToGain(-double(seen[b].reduction)));
    }
    history_.end(slice);
}

/// The bands times their gains; while the sharing changes, times both, faded.
template <typename T> void TriBandCore<T>::applyGains(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    Bank& present = bank(sharing_.present());
    const bool isFading = sharing_.isFading();
    for (int b = 0; b < kBands; ++b) {
        if (!isFading && present.isIdle && gain_[b].is(0) && switches_.passes(b)) continue;
        for (int c = 0; c < part.channels; ++c) {
            T room[kSubBlock];
            const T* const gain = fadedRow(sharing_, room, n, [&](KeySharing sharing) {
                return bank(sharing).gains.of(sharing == KeySharing::Linked ? 0 : c, b);
            });
            vec::mulInplace(channels_.band(b, c), gain, n);
        }
    }
}

template <typename T> void TriBandCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publishFamily(kReduction, kBands, [&](int b) {
        if (!switches_.isOn(b)) return 0.0f;
        return 0 - std::min(static_cast<float>(meter_[b].reduction), kMostReduction);
    });
    meters.publishFamily(kLevel, kBands, [&](int b) {
        const double level = gainToDb(std::sqrt(double(meter_[b].power)));
        return std::clamp(static_cast<float>(level), kLowestLevel, kHighestLevel);
    });
    levels_.publish(meters);
}

template class TriBandCore<float>;
template class TriBandCore<double>;

TriBandCompressorAlgorithm::TriBandCompressorAlgorithm()
    : GroundedAlgorithm(kParameters, std::vector<const char*>{"Low", "Mid", "High"})
{}

TriBandComponent::TriBandComponent(TriBandCompressorAlgorithm& algorithm)
    : GroundedComponent(algorithm, {.viewPrefix = "TriBand", .kind = "compressor"}, {"history"})
{}

}  // namespace quillworks
