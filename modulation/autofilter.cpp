// SPDX-License-Identifier: ISC
#include "modulation/autofilter.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/level_match.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"
#include "framework/note_sync.h"
#include "framework/sidechain_source.h"

namespace quillworks {
namespace {

using Core = AutofilterCore<float>;
using S = AutofilterSettings;
using namespace conversion;

/// From here on the filter runs at the rate of the signal.
constexpr double kFastEnough = 64000;  // Hz
/// What is lost of the treble when a mean of two neighbours goes down from twice the rate.
constexpr double kTreble = 0.16;
/// Drive from which on nothing passes past the curve.
constexpr double kFullDrive = 6;  // dB

constexpr Tag kStepTag = 100;
constexpr const char* kTypes[] = {"Low 12",  "Low 24",  "High 12", "High 24",
                                  "Band 12", "Band 24", "Notch",   "Peak"};
constexpr Family<S> kSteps{.count = StepSequence::kMost,
                           .element = [](S& s, int i) -> float& { return s.step[i]; },
                           .defaultAt =
                               [](int i) {
                                   constexpr float kPattern[] = {100, 0, 50, -50, 75, 0, 25, -100};
                                   return i < 8 ? kPattern[i] : 0.0f;
                               }};

constexpr const char* kFilter = "Filter";
constexpr const char* kLfo = "LFO";
constexpr const char* kEnvelope = "Envelope";
constexpr const char* kSequence = "Sequence";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr std::array<Parameter<S>, 5> kHead = {{
    // key          tag          title         kind         min  max    def   unit        field           dirty         forward
    {"type",       "Type"_tag, "Type",        Kind::List,   0,   7,     1,    "",         &S::type,       Core::Filter, asIs,
        {.group = kFilter, .help = "What passes, and how steeply the rest falls off, in dB an octave.", .texts = kTypes}},
    {"cutoff",     "Cuto"_tag, "Cutoff",      Kind::Float,  30,  16000, 500,  "Hz",       &S::cutoff,     Core::Sweep,  asIs,
        {.group = kFilter, .help = "Corner of the filter where nothing moves it.", .curve = &curve::logarithmic}},
    {"resonance",  "Reso"_tag, "Resonance",   Kind::Float,  0,   100,   40,   "%",        &S::resonance,  Core::Filter, percent,
        {.group = kFilter, .help = "Raises the corner; loud sounds damp it.", .shortTitle = "Reso"}},
    {"drive",      "Driv"_tag, "Drive",       Kind::Float,  0,   24,    3,    "Media.DB", &S::drive,      Core::Filter, asIs,
        {.group = kFilter, .help = "Warmth before the filter and in its resonance, at the same level.", .flags = VNK::isDecibel}},
    {"lfoamount",  "LFAm"_tag, "LFO Amount",  Kind::Float,  -5,  5,     1.5f, "oct",      &S::lfoAmount,  Core::Sweep,  asIs,
        {.group = kLfo, .help = "How far the oscillator moves the corner.", .shortTitle = "Amount", .flags = VNK::isBipolar}},
}};
constexpr std::array<Parameter<S>, 20> kTail = {{
    {"envamount",  "EnvA"_tag, "Envelope",    Kind::Float,  -6,  6,     2,    "oct",      &S::envelopeAmount, Core::Sweep, asIs,
        {.group = kEnvelope, .help = "How far the level moves the corner.", .shortTitle = "Amount", .flags = VNK::isBipolar}},
    {"sensitivity", "Sens"_tag, "Sensitivity", Kind::Float, -24, 24,    0,    "Media.DB", &S::sensitivity, Core::Sweep,  asIs,
        {.group = kEnvelope, .help = "Takes the level for higher than it is.", .shortTitle = "Sens", .flags = kGainFlags}},
    {"attack",     "Atck"_tag, "Attack",      Kind::Float,  0.5f, 200,  8,    "Media.Milliseconds", &S::attack, Core::Envelope, milliseconds,
        {.group = kEnvelope, .help = "Time in which the corner follows a rising level.", .curve = &curve::logarithmic}},
    {"release",    "Rels"_tag, "Release",     Kind::Float,  5,   2000,  180,  "Media.Milliseconds", &S::release, Core::Envelope, milliseconds,
        {.group = kEnvelope, .help = "Time in which the corner follows a falling level.", .curve = &curve::logarithmic}},
    {"external",   "ExtK"_tag, "External Key", Kind::Toggle, 0,  1,     0,    "",         &S::external,   Core::Envelope, asIs,
        {.group = kEnvelope, .help = "Follows the level of the side-chain, where it is connected, instead of the input's.", .shortTitle = "Ext Key"}},
    {"seqamount",  "SqAm"_tag, "Sequence",    Kind::Float,  -4,  4,     0,    "oct",      &S::sequenceAmount, Core::Sweep, asIs,
        {.group = kSequence, .help = "How far the steps move the corner.", .shortTitle = "Amount", .flags = VNK::isBipolar}},
    {"seqsteps",   "SqSt"_tag, "Sequence Steps", Kind::List, 1,  16,    8,    "",         &S::steps,      Core::Sequence, asIs,
        {.group = kSequence, .help = "Number of steps before the sequence repeats.", .shortTitle = "Steps"}},
    noteRow("seqbeatsnu", "SqBN"_tag, "Step Beats", 0.25f, &S::stepBeats, Core::Sequence,
        {.group = kSequence, .help = "Length of a step as a note value; the sequence always follows the song.", .shortTitle = "Beats"}),
    {"glide",      "Glid"_tag, "Glide",       Kind::Float,  0,   100,   10,   "%",        &S::glide,      Core::Sequence, percent,
        {.group = kSequence, .help = "Share of each step in which it glides from the one before."}},
    {"step",       kStepTag,   "Step",        Kind::Float,  -100, 100,  0,    "%",        nullptr,        Core::Sequence, percent,
        {.group = kSequence, .help = "Height of this step.", .flags = VNK::isBipolar}, kSteps},
    {"mix",        "Mix "_tag, "Mix",         Kind::Float,  0,   100,   100,  "%",        &S::mix,        Core::Output, percent,
        {.group = kOutput, .help = "From the input to the filtered sound alone."}},
    {"output",     "OutG"_tag, "Output",      Kind::Float,  -24, 24,    0,    "Media.DB", &S::output,     Core::Output, asIs,
        {.group = kOutput, .help = "Level behind the mix.", .flags = kGainFlags}},
    {"bypass",     "Bypa"_tag, "Bypass",      Kind::Bypass},
    PeakLevels<float>::inputRow<S>(),
    PeakLevels<float>::outputRow<S>(),
    {"cutoffleft",  "Cut0"_tag, "Cutoff Left",  Kind::Reading, 0, 192000, 0, "Hz"},
    {"cutoffright", "Cut1"_tag, "Cutoff Right", Kind::Reading, 0, 192000, 0, "Hz"},
    {"envelopelevel", "EnvL"_tag, "Envelope Level", Kind::Reading, 0, 1, 0, ""},
    {"sequenceposition", "StpP"_tag, "Sequence Position", Kind::Reading, 0, StepSequence::kMost, 0, "step"},
    lfoPhaseRow<S>(),
}};
// clang-format on
constexpr auto kParameters = joinedRows(
    kHead,
    lfoRows<S>({&S::lfoSync, &S::lfoBeats, &S::lfoRate, &S::lfoWave, &S::stereo},
               {.sync = true, .beats = 2, .rate = 0.5f, .wave = LfoWave::Sine, .stereo = 0},
               Core::Lfo),
    kTail);

double shareOf(double drive) noexcept
{
    return std::min(1.0, drive / kFullDrive);
}

}  // namespace

template <typename T> int AutofilterCore<T>::latencyAt(double sampleRate) noexcept
{
    return sampleRate < kFastEnough ? 32 : 0;
}

template <typename T> void AutofilterCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    factor_ = sampleRate_ < kFastEnough ? 2 : 1;
    lfo_.prepare(sampleRate_);
    sweep_.prepare(factor_ * sampleRate_);
    sequence_.prepare(sampleRate_);
    const double halfLife = 2 * glideSubBlocks(sampleRate_);
    const auto glide = [&](Smoothed<double>& value, double range) {
        value.prepareHalfLife(halfLife);
        value.setTolerance(1e-6 * range);
    };
    glide(glides_.cutoff, std::log2(16000.0 / 30));
    glide(glides_.lfo, 10);
    glide(glides_.envelope, 12);
    glide(glides_.sequence, 8);
    glide(glides_.sensitivity, 48);
    glide(glides_.drive, 24);
    output_.prepare(halfLife, 48e-6);
    for (auto& slots : slots_) slots.prepare(spec.layout);
    filter_.prepare(sampleRate_, factor_, slots_[0].count());
    channels_.resize(static_cast<std::size_t>(spec.channels));
    for (auto& channel : channels_) channel.oversampler.prepare(factor_, kTreble);
    dryWet_.prepareHalfLife(halfLife);
    dryWet_.prepareDry(spec.channels, latencyAt(sampleRate_));
    dryWet_.setDelay(latencyAt(sampleRate_));
}

template <typename T> void AutofilterCore<T>::reset() noexcept
{
    lfo_.reset();
    sequence_.reset();
    level_.reset();
    for (auto* value : {&glides_.cutoff, &glides_.lfo, &glides_.envelope, &glides_.sequence,
                        &glides_.sensitivity, &glides_.drive})
        value->snap();
    sweep_.restart();
    isDriveLaid_ = false;
    filter_.reset();
    for (auto& channel : channels_) {
        channel.oversampler.reset();
        channel.restored = 0;
    }
    dryWet_.reset();
    output_.snap();
}

template <typename T> void AutofilterCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Filter) {
        filter_.setType(static_cast<FilterType>(static_cast<int>(s.type)));
        filter_.setResonance(double(s.resonance));
        glides_.drive.target(double(s.drive));
    }
    if (dirty & Sweep) {
        glides_.cutoff.target(std::log2(double(s.cutoff)));
        glides_.lfo.target(double(s.lfoAmount));
        glides_.envelope.target(double(s.envelopeAmount));
        glides_.sequence.target(double(s.sequenceAmount));
        glides_.sensitivity.target(double(s.sensitivity));
    }
    if (dirty & Envelope) {
        level_.setTimes(sampleRate_, double(s.attack), double(s.release));
        isExternal_ = s.external != 0;
    }
    if (dirty & Lfo)
        lfo_.set({.isSynced = s.lfoSync != 0,
                  .noteValue = double(s.lfoBeats),
                  .hertz = double(s.lfoRate),
                  .wave = static_cast<LfoWave>(static_cast<int>(s.lfoWave))},
                 double(s.stereo));
    if (dirty & Sequence) {
        StepSequence::Settings sequence{.count = static_cast<int>(s.steps),
                                        .noteValue = double(s.stepBeats),
                                        .glide = double(s.glide)};
        std::copy_n(s.step, StepSequence::kMost, sequence.steps.begin());
        sequence_.set(sequence);
    }
    if (dirty & Output) {
        dryWet_.target(T(s.mix));
        output_.target(double(s.output));
    }
}

template <typename T> void AutofilterCore<T>::setTempo(double beatsPerMinute) noexcept
{
    lfo_.setTempo(beatsPerMinute);
    sequence_.setTempo(beatsPerMinute);
}

template <typename T> void AutofilterCore<T>::process(const AudioBlock<T>& block) noexcept
{
    lfo_.begin(*block.transport, block.frames);
    sequence_.begin(*block.transport, block.frames);
    peaks_.begin();
    forEachSubBlock(
        block, [&](const AudioBlock<T>& part) { processSlice(part, part.offset - block.offset); });
    if (ring_) ring_->write(block.channel, block.frames);
}

/// Where a sub-block begins: what moves with the control grid.
template <typename T> void AutofilterCore<T>::beginSubBlock(int offset) noexcept
{
    lfo_.next(offset);
    sequence_.next(offset);
    cutoff_ = glides_.cutoff.next(kWholeSubBlock);
    lfoAmount_ = glides_.lfo.next(kWholeSubBlock);
    envelopeAmount_ = glides_.envelope.next(kWholeSubBlock);
    sequenceAmount_ = glides_.sequence.next(kWholeSubBlock);
    sensitivity_ = glides_.sensitivity.next(kWholeSubBlock).to;
    layDrive();
    filter_.next(shareOf(glides_.drive.current()));
}

/// The curve's gains over the sub-block that begins.
template <typename T> void AutofilterCore<T>::layDrive() noexcept
{
    if (isDriveLaid_ && !glides_.drive.isGliding()) return;
    const auto drive = glides_.drive.next(kWholeSubBlock);
    const double gain = dbToGain(drive.to);
    const double level = levelMatch(Saturation::Warm, gain, 0);
    if (!isDriveLaid_) gain_ = gain, gainOfLevel_ = level;
    vec::ramp(drive_.gain, T(gain_), T(gain), kSubBlock);
    vec::ramp(drive_.level, T(gainOfLevel_), T(level), kSubBlock);
    share_.follow({T(shareOf(drive.from)), T(shareOf(drive.to))});
    gain_ = gain;
    gainOfLevel_ = level;
    isDriveLaid_ = true;
}

/// The largest magnitude of the key's channels.
template <typename T> void AutofilterCore<T>::hear(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    if (isExternal_ && part.sideChainChannels > 0) {
        double largest[kSubBlock]{}, x[kSubBlock];
        for (int c = 0; c < part.sideChainChannels; ++c) {
            takeBusChannel(x, part, c);
            vec::maxAbs(largest, x, n);
        }
        level_.follow(largest, part, sensitivity_);
        return;
    }
    T largest[kSubBlock];
    vec::absCopy(largest, part[0], n);
    for (int c = 1; c < part.channels; ++c) vec::maxAbs(largest, part[c], n);
    level_.follow(largest, part, sensitivity_);
}

/// The corner over the groups of frames that begin in the slice.
template <typename T> void AutofilterCore<T>::layGroups(GridSlice slice) noexcept
{
    const auto groups = GroupRange::of(slice);
    if (groups.count() == 0) return;
    const auto& corners = sweep_.lay(groups, [&](int group, Side side) {
        return atEnd(cutoff_, group) + atEnd(envelopeAmount_, group) * level_.at(group) +
               atEnd(sequenceAmount_, group) * atEnd(sequence_.value(), group) +
               atEnd(lfoAmount_, group) * atEnd(lfo_.value(side), group);
    });
    filter_.lay(groups.first, groups.count(), corners);
}

/// From the input to the shaped signal at the inner rate.
template <typename T>
void AutofilterCore<T>::shape(Channel& channel, const T* x, GridSlice slice) noexcept
{
    const int n = slice.frames;
    const T* const* const in = channel.oversampler.up(x, n);
    T* const* const out = channel.oversampler.shaped();
    const T* const share = share_.of(slice);
    if (factor_ == 1) {
        // What makes up the half sample and the treble that the mean of two neighbours loses.
        AntiderivativeShape<T>::process(Saturation::Warm, drive_, in, 1, out, slice);
        T restored = channel.restored;
        for (int i = 0; i < n; ++i) {
            restored = T(1.8) * out[0][i] - T(0.8) * restored;
            out[0][i] = in[0][i] + share[i] * (restored - in[0][i]);
        }
        channel.restored = restored;
        return;
    }
    const T *const even = in[0], *const odd = in[1];
    if (share_.is(0)) {
        for (int i = 0; i < n; ++i) out[0][i] = T(0.5) * (even[i] + odd[i - 1]);
        for (int i = 0; i < n; ++i) out[1][i] = T(0.5) * (even[i] + odd[i]);
        return;
    }
    AntiderivativeShape<T>::process(Saturation::Warm, drive_, in, 2, out, slice);
    if (share_.is(1)) return;
    for (int i = 0; i < n; ++i) {
        const T mean = T(0.5) * (even[i] + odd[i - 1]);
        out[0][i] = mean + share[i] * (out[0][i] - mean);
    }
    for (int i = 0; i < n; ++i) {
        const T mean = T(0.5) * (even[i] + odd[i]);
        out[1][i] = mean + share[i] * (out[1][i] - mean);
    }
}

template <typename T>
void AutofilterCore<T>::processSlice(const AudioBlock<T>& part, int offset) noexcept
{
    const int n = part.frames;
    if (part.begins()) beginSubBlock(offset);
    dryWet_.next(part);
    output_.follow(part, dbToGain<double>);
    for (int c = 0; c < part.channels; ++c) {
        sanitise(part[c], n, kLoudestSignal);
        peaks_.measureInput(part[c], n);
    }
    hear(part);
    layGroups(part);

    T* phases[2][VNK::kMaxChannels];
    for (int c = 0; c < part.channels; ++c) {
        auto& channel = channels_[static_cast<std::size_t>(c)];
        channel.dry = dryWet_.keep(c, part[c], n);
        shape(channel, part[c], part);
        for (int p = 0; p < factor_; ++p) phases[p][c] = channel.oversampler.shaped()[p];
    }
    T* const* const x[2] = {slots_[0].of(phases[0]), slots_[1].of(phases[factor_ - 1])};
    filter_.process(x, part);
    for (int c = 0; c < part.channels; ++c) {
        auto& channel = channels_[static_cast<std::size_t>(c)];
        T* const y = part[c];
        channel.oversampler.down(y);
        dryWet_.mix(y, channel.dry, part);
        output_.scale(y, part);
        peaks_.measureOutput(y, n);
    }
}

template <typename T> void AutofilterCore<T>::publish(MeterSlots& meters) noexcept
{
    peaks_.publish(meters);
    meters.publish("Cut0"_tag, sweep_.hertz(kLeft));
    meters.publish("Cut1"_tag, sweep_.hertz(kRight));
    meters.publish("EnvL"_tag, static_cast<float>(level_.at(kGroups - 1)));
    meters.publish("StpP"_tag, static_cast<float>(sequence_.position()));
    publishLfoPhase(meters, lfo_.place(kLeft));
}

template class AutofilterCore<float>;
template class AutofilterCore<double>;

AutoFilterAlgorithm::AutoFilterAlgorithm() : DisplayAlgorithm(kParameters) {}

AutoFilterComponent::AutoFilterComponent(AutoFilterAlgorithm& algorithm)
    : DisplayComponent(algorithm, {.viewPrefix = "AutoFilter", .kind = "filter"}, {kSpectrumGround})
{}

void AutoFilterComponent::changed(const AlgorithmParameter& parameter, float before,
                                  Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kLfoSync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

Delays AutoFilterComponent::delays(double sampleRate) const noexcept
{
    const int latency = Core::latencyAt(sampleRate);
    const double quality = SweptFilter<float>::qualityOf(
        static_cast<FilterType>(static_cast<int>(value("type"))), double(value("resonance")) / 100);
    const double ringing = std::min(2.0, 2.2 * quality / double(value("cutoff")));
    const auto tail = static_cast<std::uint32_t>(latency + std::trunc(sampleRate * ringing));
    return {static_cast<std::uint32_t>(latency), tail};
}

}  // namespace quillworks
