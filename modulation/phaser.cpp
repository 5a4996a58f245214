// SPDX-License-Identifier: ISC
#include "modulation/phaser.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "dsp/sanitise.h"
#include "dsp/vec.h"
#include "framework/note_sync.h"

namespace quillworks {
namespace {

using Core = PhaserCore<float>;
using S = PhaserSettings;
using namespace conversion;

constexpr const char* kModes[] = {"Sweep", "Endless Up", "Endless Down"};
constexpr const char* kStages[] = {"2", "4", "6", "8", "12", "16", "24"};

float stagesOf(float index)
{
    constexpr float kCounts[] = {2, 4, 6, 8, 12, 16, 24};
    return kCounts[std::clamp(static_cast<int>(index), 0, 6)];
}

/// What the level's follower goes by, in seconds.
constexpr double kAttack = 0.005, kRelease = 0.150;
/// The endless modes need some way to go.
constexpr double kLeastRange = 1;  // octaves

constexpr const char* kPath = "Stages";
constexpr const char* kSweep = "Sweep";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr std::array<Parameter<S>, 5> kHead = {{
    // key         tag          title        kind          min  max   def  unit   field          dirty        forward
    {"mode",      "Mode"_tag, "Mode",       Kind::List,   0,   2,    0,   "",    &S::mode,      Core::Path,  asIs,
        {.group = kPath, .help = "Sweeps to and fro, or lets notches rise or fall for ever, for which Mix 100 gives the full effect.", .texts = kModes}},
    {"stages",    "Stgs"_tag, "Stages",     Kind::List,   0,   6,    2,   "",    &S::stages,    Core::Path,  stagesOf,
        {.group = kPath, .help = "Number of all-pass stages; two make a notch.", .texts = kStages}},
    {"frequency", "Freq"_tag, "Frequency",  Kind::Float,  50,  8000, 700, "Hz",  &S::frequency, Core::Sweep, asIs,
        {.group = kSweep, .help = "Middle of the sweep.", .shortTitle = "Freq", .curve = &curve::logarithmic}},
    {"range",     "Rang"_tag, "Range",      Kind::Float,  0,   8,    3,   "oct", &S::range,     Core::Sweep, asIs,
        {.group = kSweep, .help = "Way of the sweep from its lowest to its highest point."}},
    {"feedback",  "Fdbk"_tag, "Feedback",   Kind::Float,  -95, 95,   35,  "%",   &S::feedback,  Core::Sweep, percent,
        {.group = kPath, .help = "Sharpens the resonances between the notches; negative values put them in the notches' places.", .flags = VNK::isBipolar}},
}};
constexpr std::array<Parameter<S>, 7> kTail = {{
    {"envelope",  "EnvA"_tag, "Envelope",   Kind::Float,  -4,  4,    0,   "oct", &S::envelope,  Core::Sweep, asIs,
        {.group = kSweep, .help = "How far the level of the input moves the sweep.", .flags = VNK::isBipolar}},
    {"mix",       "Mix "_tag, "Mix",        Kind::Float,  0,   100,  50,  "%",   &S::mix,       Core::Mix,   percent,
        {.group = kOutput, .help = "From the input to the phased sound alone; notches are deepest in the middle."}},
    {"bypass",    "Bypa"_tag, "Bypass",     Kind::Bypass},
    {"sweepleft", "Frq0"_tag, "Sweep Left", Kind::Reading, 0,  192000, 0, "Hz"},
    {"sweepright", "Frq1"_tag, "Sweep Right", Kind::Reading, 0, 192000, 0, "Hz"},
    {"cycle",     "Cycl"_tag, "Cycle",      Kind::Reading, 0,  1,    0,   ""},
    lfoPhaseRow<S>(),
}};
// clang-format on
constexpr auto kParameters = joinedRows(
    kHead,
    lfoRows<S>({&S::lfoSync, &S::lfoBeats, &S::lfoRate, &S::lfoWave, &S::stereo},
               {.beats = 4, .rate = 0.3f, .wave = LfoWave::Triangle, .stereo = 90}, Core::Lfo),
    kTail);

}  // namespace

template <typename T> void PhaserCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    lfo_.prepare(sampleRate_);
    sweep_.prepare(sampleRate_);
    level_.setTimes(sampleRate_, kAttack, kRelease);
    const double halfLife = 2 * glideSubBlocks(sampleRate_);
    const auto glide = [&](Smoothed<double>& value, double range) {
        value.prepareHalfLife(halfLife);
        value.setTolerance(1e-6 * range);
    };
    glide(glides_.octave, std::log2(8000.0 / 50));
    glide(glides_.range, 8);
    glide(glides_.envelope, 8);
    glide(glides_.feedback, 1.9);
    slots_.prepare(spec.layout);
    for (auto& filters : filters_) {
        filters.lattice.prepare(sampleRate_, slots_.count());
        filters.notches.prepare(sampleRate_, slots_.used());
    }
    way_.prepare(sampleRate_, 0.010);
    dryWet_.prepareHalfLife(halfLife);
    dryWet_.prepareDry(spec.channels);
    const auto channels = static_cast<std::size_t>(spec.channels);
    dry_.resize(channels);
    old_.resize(channels * kSubBlock);
    oldChannels_.resize(channels);
    for (std::size_t c = 0; c < channels; ++c) oldChannels_[c] = old_.data() + c * kSubBlock;
}

template <typename T> void PhaserCore<T>::reset() noexcept
{
    lfo_.reset();
    level_.reset();
    glides_.octave.snap();
    glides_.range.snap();
    glides_.envelope.snap();
    glides_.feedback.snap();
    sweep_.restart();
    way_.snap();
    take(present(), way_.present());
    dryWet_.reset();
}

template <typename T> void PhaserCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Path)
        way_.target(
            {static_cast<PhaserMode>(static_cast<int>(s.mode)), static_cast<int>(s.stages)});
    if (dirty & Sweep) {
        glides_.octave.target(std::log2(double(s.frequency)));
        glides_.range.target(double(s.range));
        glides_.envelope.target(double(s.envelope));
        glides_.feedback.target(double(s.feedback));
    }
    if (dirty & Lfo)
        lfo_.set({.isSynced = s.lfoSync != 0,
                  .noteValue = double(s.lfoBeats),
                  .hertz = double(s.lfoRate),
                  .wave = static_cast<LfoWave>(static_cast<int>(s.lfoWave))},
                 double(s.stereo));
    if (dirty & Mix) dryWet_.target(T(s.mix));
}

template <typename T> void PhaserCore<T>::take(Filters& filters, const Way& way) noexcept
{
    filters.way = way;
    if (way.sweeps()) {
        filters.lattice.setStages(way.stages);
        filters.lattice.reset();
    } else {
        filters.notches.set(way.notches(), way.mode == PhaserMode::EndlessDown);
        filters.notches.reset();
    }
}

template <typename T> void PhaserCore<T>::process(const AudioBlock<T>& block) noexcept
{
    lfo_.begin(*block.transport, block.frames);
    forEachSubBlock(
        block, [&](const AudioBlock<T>& part) { processSlice(part, part.offset - block.offset); });
}

/// Where a sub-block begins: what moves with the control grid.
template <typename T> void PhaserCore<T>::beginSubBlock(int offset) noexcept
{
    lfo_.next(offset);
    octave_ = glides_.octave.next(kWholeSubBlock);
    range_ = glides_.range.next(kWholeSubBlock);
    envelope_ = glides_.envelope.next(kWholeSubBlock);
    const auto feedback = glides_.feedback.next(kWholeSubBlock);
    feedback_.follow({T(feedback.from), T(feedback.to)});
    if (!usesEnvelope()) level_.reset();
    if (!sweeps()) sweep_.stand(octave_.to);
    for (auto* filters : {&present(), &leaving()}) {
        if (filters->way.sweeps() || (filters == &leaving() && !way_.isFading())) continue;
        filters->notches.next({lfo_.place(kLeft), lfo_.place(kRight)}, lfo_.hasJumped(),
                              {octave_.to, std::max(kLeastRange, range_.to), feedback.to});
    }
}

/// The sweep over the groups of frames that begin in the slice.
template <typename T> void PhaserCore<T>::layGroups(GridSlice slice) noexcept
{
    const auto groups = GroupRange::of(slice);
    if (!sweeps() || groups.count() == 0) return;
    const auto& corners = sweep_.lay(groups, [&](int group, Side side) {
        const double level = usesEnvelope() ? atEnd(envelope_, group) * level_.at(group) : 0;
        return atEnd(octave_, group) + level +
               atEnd(range_, group) * atEnd(lfo_.value(side), group) / 2;
    });
    if (present().way.sweeps())
        present().lattice.lay(groups.first, groups.count(), corners, feedback_);
    if (way_.isFading() && leaving().way.sweeps())
        leaving().lattice.lay(groups.first, groups.count(), corners, feedback_);
}

template <typename T>
void PhaserCore<T>::processSlice(const AudioBlock<T>& part, int offset) noexcept
{
    const int n = part.frames;
    if (way_.next(part)) {
        current_ = 1 - current_;
        take(present(), way_.present());
    }
    if (part.begins()) beginSubBlock(offset);
    dryWet_.next(part);
    for (int c = 0; c < part.channels; ++c) {
        sanitise(part[c], n, kLoudestSignal);
        dry_[static_cast<std::size_t>(c)] = dryWet_.keep(c, part[c], n);
    }
    if (usesEnvelope()) hear(part);
    layGroups(part);

    T* channels[VNK::kMaxChannels];
    for (int c = 0; c < part.channels; ++c) channels[c] = part[c];
    if (way_.isFading()) {
        for (int c = 0; c < part.channels; ++c)
            vec::copy(oldChannels_[std::size_t(c)], channels[c], n);
        run(leaving(), oldChannels_.data(), part);
    }
    run(present(), channels, part);
    for (int c = 0; c < part.channels; ++c) {
        const auto at = static_cast<std::size_t>(c);
        if (way_.isFading()) way_.fade().mix(channels[c], oldChannels_[at], n);
        dryWet_.mix(channels[c], dry_[at], part);
    }
    way_.advance(n);
}

template <typename T>
void PhaserCore<T>::run(Filters& filters, T* const* channels, GridSlice slice) noexcept
{
    T* const* const x = slots_.of(channels);
    if (filters.way.sweeps())
        filters.lattice.process(x, slice);
    else
        filters.notches.process(x, slice);
}

/// The largest magnitude of all channels.
template <typename T> void PhaserCore<T>::hear(const AudioBlock<T>& part) noexcept
{
    T largest[kSubBlock];
    vec::absCopy(largest, part[0], part.frames);
    for (int c = 1; c < part.channels; ++c) vec::maxAbs(largest, part[c], part.frames);
    level_.follow(largest, part, 0);
}

template <typename T> void PhaserCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publish("Frq0"_tag, sweep_.hertz(kLeft));
    meters.publish("Frq1"_tag, sweep_.hertz(kRight));
    const auto& way = filters_[current_].way;
    const double rounds = way.sweeps() ? 0 : lfo_.place(kLeft) / way.notches();
    meters.publish("Cycl"_tag, static_cast<float>(rounds - std::floor(rounds)));
    publishLfoPhase(meters, lfo_.place(kLeft));
}

template class PhaserCore<float>;
template class PhaserCore<double>;

PhaserAlgorithm::PhaserAlgorithm() : PrecisionAlgorithm(kParameters) {}

PhaserComponent::PhaserComponent(PhaserAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "Phaser", .kind = "phaser"})
{}

void PhaserComponent::changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kLfoSync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

Delays PhaserComponent::delays(double sampleRate) const noexcept
{
    const double stages = double(stagesOf(value("stages")));
    const double feedback = double(value("feedback")) / 100;
    const double frequency = double(value("frequency")), range = double(value("range"));
    double ringing = 0;  // s
    if (value("mode") == 0) {
        // Trips through the stages, at the lowest point of the sweep, until the feedback has taken
        // 60 dB.
        const double down = -range / 2 + std::min(0.0, double(value("envelope")));
        const double lowest = std::max(20.0, frequency * std::exp2(down));
        const double perTrip = -20 * std::log10(std::max(std::abs(feedback), 0.001));
        ringing = 2 * stages / (2 * std::numbers::pi * lowest) * std::ceil(60 / perTrip);
    } else {
        const double way = std::max(kLeastRange, range);
        const double lowest = std::max(20.0, frequency * std::exp2(-way / 2));
        const int notches = static_cast<int>(stages) / 2;
        ringing = 2.2 / (RisingNotches<float>::damping(way, feedback, notches) * lowest);
    }
    const double tail = sampleRate * std::min(30.0, 0.3 + ringing);
    return {.latency = 0, .tail = static_cast<std::uint32_t>(tail)};
}

}  // namespace quillworks
