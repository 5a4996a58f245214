// SPDX-License-Identifier: ISC
#include "modulation/wobbla.h"

#include <algorithm>
#include <cmath>

#include "dsp/sanitise.h"
#include "dsp/sine.h"
#include "dsp/vec.h"
#include "framework/note_sync.h"

namespace quillworks {
namespace {

using Core = WobblaCore<float>;
using S = WobblaSettings;
using namespace conversion;

/// Where the modes that treat lows and highs apart part them.
constexpr double kCrossover = 700;  // Hz
/// Differences of places, in steps, and of values that are rounding.
constexpr double kSamePlace = 1e-9, kSameValue = 1e-9;

constexpr Tag kStepLevel = 100;
constexpr const char* kModes[] = {"Volume", "Pan", "Harmonic"};
constexpr const char* kShapes[] = {"Steps", "Sine", "Triangle", "Ramp Up", "Ramp Down", "Square"};
constexpr NoteSync kSync{"sync", "beatsnu", "speed", NoteSync::Unit::Hertz};
constexpr Family<S> kLevels{.count = kMostSteps,
                            .element = [](S& s, int i) -> float& { return s.levels[i]; },
                            .defaultAt = [](int i) { return i % 2 == 0 ? 100.0f : 0.0f; }};

constexpr const char* kPattern = "Pattern";
constexpr const char* kTime = "Time";
constexpr const char* kSteps = "Steps";
constexpr const char* kOutput = "Output";

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key        tag         title           kind          min    max  def     unit                  field         dirty          forward
    {"mode",      "Mode"_tag, "Mode",         Kind::List,   0,     2,   0,      "",                   &S::mode,     Core::Mode,    asIs,
     {.group = kOutput, .help = "Moves the level, the place between left and right, or the balance of lows and highs.", .texts = kModes}},
    {"shape",     "Shap"_tag, "Shape",        Kind::List,   0,     5,   0,      "",                   &S::shape,    Core::Pattern, asIs,
     {.group = kPattern, .help = "Plays the levels of the steps, or one cycle of a wave in every step.", .texts = kShapes}},
    {"sync",      "Sync"_tag, "Sync",         Kind::Toggle, 0,     1,   1,      "",                   &S::sync,     Core::Rate,    asIs,
     {.group = kTime, .help = "The pattern follows the song's tempo and position."}},
    noteRow("beatsnu", "BtNu"_tag, "Step Beats", 0.125f, &S::beats, Core::Rate,
     {.group = kTime, .help = "Length of a step as a note value.", .shortTitle = "Beats"}),
    {"speed",     "Spee"_tag, "Step Speed",   Kind::Float,  0.05f, 40,  8,      "Hz",                 &S::speed,    Core::Rate,    asIs,
     {.group = kTime, .help = "Steps a second while the pattern does not follow the tempo.", .shortTitle = "Speed", .curve = &curve::logarithmic, .drivenBy = "sync"}},
    {"steps",     "Stps"_tag, "Steps",        Kind::List,   1,     kMostSteps, 16, "",                &S::steps,    Core::Pattern, asIs,
     {.group = kPattern, .help = "Number of steps before the pattern repeats."}},
    {"swing",     "Swng"_tag, "Swing",        Kind::Float,  0,     100, 0,      "%",                  &S::swing,    Core::Pattern, percent,
     {.group = kTime, .help = "Delays every second step by up to half a step."}},
    {"gate",      "Gate"_tag, "Gate",         Kind::Float,  1,     100, 100,    "%",                  &S::gate,     Core::Pattern, percent,
     {.group = kPattern, .help = "Share of each step that sounds, for the shapes Steps and Square."}},
    {"edge",      "Edge"_tag, "Edge",         Kind::Float,  1,     100, 3,      "Media.Milliseconds", &S::edge,     Core::Pattern, milliseconds,
     {.group = kPattern, .help = "Time of each rise, which ends on the step, and of each fall, which begins there.", .curve = &curve::logarithmic}},
    {"depth",     "Dpth"_tag, "Depth",        Kind::Float,  0,     100, 100,    "%",                  &S::depth,    Core::Depth,   percent,
     {.group = kOutput, .help = "How far the pattern moves the sound."}},
    {"stereo",    "StSh"_tag, "Stereo Shift", Kind::Float,  -16,   16,  0,      "step",               &S::stereo,   Core::Pattern, asIs,
     {.group = kPattern, .help = "How many steps the right channels are ahead of the left ones.", .shortTitle = "Stereo", .flags = VNK::isBipolar}},
    {"steplevel", kStepLevel, "Step",         Kind::Float,  0,     100, 100,    "%",                  nullptr,      Core::Pattern, percent,
     {.group = kSteps, .help = "Level of this step."}, kLevels},
    {"bypass",    "Bypa"_tag, "Bypass",       Kind::Bypass},
    {"position",  "Posi"_tag, "Position",     Kind::Reading, 0,    kMostSteps, 0, "step"},
    {"gainleft",  "Gan0"_tag, "Gain Left",    Kind::Reading, 0,    1,   0,      ""},
    {"gainright", "Gan1"_tag, "Gain Right",   Kind::Reading, 0,    1,   0,      ""},
};
// clang-format on

}  // namespace

template <typename T> void WobblaCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    channels_.assign(static_cast<std::size_t>(spec.channels), {});
    const auto sides = channelSides(spec.layout);
    for (std::size_t c = 0; c < channels_.size(); ++c) channels_[c].side = sides[c];
    lowPass_ = OnePoleCoefficients<T>::lowPass(kCrossover, sampleRate_);
    clock_.prepare(sampleRate_);
    cycle_.prepare(sampleRate_);
    edges_.prepare(sampleRate_);
    depth_.prepareHalfLife(2 * glideSubBlocks(sampleRate_));
    mode_.prepare(sampleRate_, 0.010);
    jumpFrames_ = fadeFrames(sampleRate_, 0.020);
    isFresh_ = true;
}

template <typename T> void WobblaCore<T>::reset() noexcept
{
    clock_.reset();
    cycle_.reset();
    edges_.snap();
    depth_.snap();
    depths_.set(depth_.current());
    mode_.snap();
    for (auto& channel : channels_) channel.low.reset();
    jumpLeft_ = 0;
    hasExpected_ = false;
    isFresh_ = true;
}

template <typename T> void WobblaCore<T>::apply(const Settings& settings, unsigned dirty) noexcept
{
    settings_ = settings;
    if (dirty & Pattern) {
        const bool hadJumped = hasExpected_;
        rememberCourse();
        StepPattern p;
        p.shape = static_cast<StepShape>(static_cast<int>(settings.shape));
        p.steps = std::clamp(static_cast<int>(settings.steps), 1, kMostSteps);
        p.swing = double(settings.swing);
        p.gate = double(settings.gate);
        p.edge = double(settings.edge);
        std::copy_n(settings.levels, kMostSteps, p.levels.begin());
        const bool jumps = edges_.set(p) || stereo_ != double(settings.stereo);
        stereo_ = double(settings.stereo);
        if (!jumps && !hadJumped) hasExpected_ = false;  // levels glide by themselves
    }
    if (dirty & Rate) updateRate();
    if (dirty & Depth) depth_.target(T(settings.depth));
    if (dirty & Mode) {
        wantedMode_ = static_cast<WobblaMode>(static_cast<int>(settings.mode));
        mode_.target(wantedMode_);
    }
}

template <typename T> void WobblaCore<T>::setTempo(double beatsPerMinute) noexcept
{
    tempo_ = beatsPerMinute;
    updateRate();
}

template <typename T> void WobblaCore<T>::updateRate() noexcept
{
    const bool isSynced = settings_.sync != 0;
    const double note = settings_.beats > 0 ? double(settings_.beats) : 0.5;
    cycle_.set(isSynced, note, isSynced ? tempo_ / (120 * note) : double(settings_.speed));
}

/// What the next frame would have, before the pattern or its course changes.
template <typename T> void WobblaCore<T>::rememberCourse() noexcept
{
    if (isFresh_ || hasExpected_) return;
    for (const Side side : {Left, Right}) {
        const auto i = static_cast<std::size_t>(side);
        const double left = jumpLeft_ > 0 ? double(jumpLeft_) / jumpFrames_ : 0;
        expected_[i] =
            std::clamp(edges_.at(nextPlace_ + aheadOf(side)) + jump_[i] * left, 0.0, 1.0);
    }
    hasExpected_ = true;
}

/// Where the pattern stands; and whether it goes on from where it was, or over a jump.
template <typename T> void WobblaCore<T>::findPlace(const AudioBlock<T>& block) noexcept
{
    const double speed = cycle_.line().perFrame();
    clock_.begin(*block.transport, block.frames);
    const FrameLine& line = cycle_.next(clock_, block.frames);
    const bool goesOn = std::abs(line.at(0) - nextPlace_) < kSamePlace && line.perFrame() == speed;
    if (!goesOn) rememberCourse();
    edges_.setSpeed(line.perFrame() * sampleRate_);
    if (hasExpected_) {
        hasExpected_ = false;
        jumpLeft_ = 0;
        for (const Side side : {Left, Right}) {
            const auto i = static_cast<std::size_t>(side);
            jump_[i] = expected_[i] - edges_.at(line.at(0) + aheadOf(side));
            if (std::abs(jump_[i]) > kSameValue) jumpLeft_ = jumpFrames_;
        }
    }
    isFresh_ = false;
}

template <typename T> void WobblaCore<T>::process(const AudioBlock<T>& block) noexcept
{
    findPlace(block);
    for (int done = 0; done < block.frames;) {
        const int most = isAtRest() ? kChunk : kSubBlock;
        const int phase = (block.phase + done) % most;
        const int n = std::min(most - phase % most, block.frames - done);
        processSlice(block.slice(done, n), done);
        done += n;
    }
    const FrameLine& line = cycle_.line();
    nextPlace_ = line.at(block.frames);
    head_ = edges_.head(line.at(block.frames - 1));
    edges_.advance(block.frames);
    jumpLeft_ = std::max(0, jumpLeft_ - block.frames);
}

/// `first`: frames from the block's first to the slice's.
template <typename T>
void WobblaCore<T>::processSlice(const AudioBlock<T>& slice, int first) noexcept
{
    depths_.follow(depth_, slice);
    if (mode_.next(slice) && mode_.present() == WobblaMode::Harmonic)
        for (auto& channel : channels_) channel.low.reset();

    Values values;
    Gains gains, leaving;
    for (const Side side : {Left, Right}) {
        const bool isOwn = stereo_ != 0 || first < jumpLeft_;
        if (side == Left || isOwn) valuesOf(side, first, slice.frames, values);
        gainsOf(mode_.present(), side, values, slice, gains);
        if (mode_.isFading()) gainsOf(mode_.leaving(), side, values, slice, leaving);
        for (int c = 0; c < slice.channels; ++c) {
            auto& channel = channels_[static_cast<std::size_t>(c)];
            if ((channel.side == ChannelSide::Right) != (side == Right)) continue;
            T* const x = slice[c];
            sanitise(x, slice.frames, kLoudestSignal);
            if (!mode_.isFading()) {
                play(mode_.present(), channel, gains, x, slice.frames);
                continue;
            }
            T old[kSubBlock];
            vec::copy(old, x, slice.frames);
            play(mode_.leaving(), channel, leaving, old, slice.frames);
            play(mode_.present(), channel, gains, x, slice.frames);
            mode_.fade().mix(x, old, slice.frames);
        }
        const int last = gains.isConstant ? 0 : slice.frames - 1;
        lastGain_[static_cast<std::size_t>(side)] = float(gains.low[last]);
    }
    mode_.advance(slice.frames);
}

template <typename T>
void WobblaCore<T>::valuesOf(Side side, int first, int n, Values& v) const noexcept
{
    const FrameLine& line = cycle_.line();
    const bool jumps = first < jumpLeft_;
    v.isConstant = false;
    for (int done = 0; done < n;) {
        const auto run = edges_.next(line, aheadOf(side), first + done, n - done, v.at + done);
        if (run.isConstant) {
            if (run.frames == n && !jumps) {
                v.isConstant = true;
                return;
            }
            vec::set(v.at + done, v.at[done], run.frames);
        }
        done += run.frames;
    }
    if (!jumps) return;
    const double jump = jump_[static_cast<std::size_t>(side)];
    for (int i = 0; i < n && first + i < jumpLeft_; ++i) {
        const double left = double(jumpLeft_ - first - i) / jumpFrames_;
        v.at[i] = T(std::clamp(double(v.at[i]) + jump * left, 0.0, 1.0));
    }
}

/// f(gain, value, depth) over the slice, or once if nothing moves in it.
template <typename T>
void WobblaCore<T>::gainsOf(WobblaMode mode, Side side, const Values& v, GridSlice slice,
                            Gains& gains) const noexcept
{
    const bool isSteady = depths_.isConstant();
    gains.isConstant = v.isConstant && isSteady && mode != WobblaMode::Harmonic;
    const int n = gains.isConstant ? 1 : slice.frames;
    T depth[kChunk], value[kChunk];
    if (isSteady)
        vec::set(depth, depths_.at[0], n);
    else
        vec::copy(depth, depths_.of(slice), n);  // one sub-block at most
    if (v.isConstant)
        vec::set(value, v.at[0], n);
    else
        vec::copy(value, v.at, n);
    switch (mode) {
    case WobblaMode::Volume:
        for (int i = 0; i < n; ++i) gains.low[i] = 1 - depth[i] * (1 - value[i]);
        break;
    case WobblaMode::Pan: {
        // 0 the middle, +-1 the ends: away from its side a channel fades.
        const T away = side == Left ? T(2) : T(-2);
        for (int i = 0; i < n; ++i) {
            const T way = away * depth[i] * (value[i] - T(0.5));
            gains.low[i] = std::max(T(0), cosQuarterTurn(std::max(T(0), way)));
        }
        break;
    }
    case WobblaMode::Harmonic:
        for (int i = 0; i < n; ++i) {
            gains.low[i] = 1 - depth[i] * (1 - value[i]);
            gains.high[i] = 1 - depth[i] * value[i];
        }
        break;
    }
}

template <typename T>
void WobblaCore<T>::play(WobblaMode mode, Channel& channel, const Gains& gains, T* x,
                         int n) noexcept
{
    switch (mode) {
    case WobblaMode::Pan:
        if (channel.side == ChannelSide::Middle) return;
        [[fallthrough]];
    case WobblaMode::Volume:
        if (!gains.isConstant)
            vec::mulInplace(x, gains.low, n);
        else if (gains.low[0] != 1)
            vec::scale(x, gains.low[0], n);
        break;
    case WobblaMode::Harmonic: {
        auto state = channel.low;  // in registers
        for (int i = 0; i < n; ++i) {
            const T low = state.next(lowPass_, x[i]);
            x[i] = low * gains.low[i] + (x[i] - low) * gains.high[i];
        }
        channel.low = state;
        break;
    }
    }
}

template <typename T> void WobblaCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publish("Posi"_tag, float(head_));
    meters.publish("Gan0"_tag, lastGain_[Left]);
    meters.publish("Gan1"_tag, lastGain_[Right]);
}

template class WobblaCore<float>;
template class WobblaCore<double>;

SuperTremAlgorithm::SuperTremAlgorithm() : PrecisionAlgorithm(kParameters) {}

SuperTremComponent::SuperTremComponent(SuperTremAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "SuperTrem"})
{}

void SuperTremComponent::changed(const AlgorithmParameter& parameter, float before,
                                 Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kSync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

}  // namespace quillworks
