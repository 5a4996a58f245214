// SPDX-License-Identifier: ISC
#include "analysis/tone_source.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/decibel.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kRamp = 0.01;  // seconds
constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();

// Highest frequencies, of the rate: of sines, and of waves whose harmonics begin to be taken off.
// Impulses closer than 16 samples, at whole samples as they are, add up between them.
constexpr double kHighestSine = 0.49, kHighestEdge = 0.45, kHighestImpulses = 1.0 / 16;

// Peaks between the samples. Gibbs' overshoot at one jump, and at two close to each other; white
// noise is bounded between samples by more than an ideal interpolator has found in hours of it, and
// pink noise is held to what it does not reach in minutes.
constexpr double kSawtoothPeak = 1.1790, kPulsePeak = 2.66, kWhitePeak = 1.45;
constexpr double kSquarePeak = 1.2732395447351628;  // 4 / pi: the fundamental has the level exactly
constexpr double kPinkCrest = 15;                   // dB

}  // namespace

double usableFrequency(Wave wave, double frequency, double sampleRate, bool snaps) noexcept
{
    const bool hasEdges = wave == Wave::Triangle || wave == Wave::Sawtooth ||
                          wave == Wave::Square || wave == Wave::Pulse;
    const double share = hasEdges                 ? kHighestEdge
                         : wave == Wave::Impulses ? kHighestImpulses
                                                  : kHighestSine;
    const double highest = share * sampleRate;
    frequency = std::min(frequency, highest);
    const bool isSteady = hasEdges || wave == Wave::Sine || wave == Wave::TwoTone;
    if (!snaps || !isSteady) return frequency;
    const double line = sampleRate / periodicLength(sampleRate);
    double nearest = std::max(1.0, 2 * std::round((frequency / line - 1) / 2) + 1);
    if (nearest * line > highest && nearest > 1) nearest -= 2;
    return nearest * line;
}

TwoToneParts twoToneParts(double frequency, double frequency2) noexcept
{
    const auto [low, high] = std::minmax(frequency, frequency2);
    if (high < 2 * low) return {0.5, 0.5};
    return {0.8, 0.2};
}

WaveLevels waveLevels(Wave wave, double width, TwoToneParts parts,
                      const PeriodicSignals* signals) noexcept
{
    const auto ofTable = [&](const PeriodicSignal PeriodicSignals::*signal) -> WaveLevels {
        return {1, signals ? (signals->*signal).rms : 1};
    };
    switch (wave) {
    case Wave::Triangle:
        return {1, std::sqrt(1.0 / 3)};
    case Wave::Sawtooth:
        return {kSawtoothPeak, std::sqrt(1.0 / 3)};
    case Wave::Square:
        return {kSquarePeak, 1};
    case Wave::Pulse:
        return {kPulsePeak * std::max(width, 1 - width), 2 * std::sqrt(width * (1 - width))};
    case Wave::TwoTone:
        return {1, std::sqrt((parts.first * parts.first + parts.second * parts.second) / 2)};
    case Wave::Multitone:
        return ofTable(&PeriodicSignals::multitone);
    case Wave::PeriodicPink:
        return ofTable(&PeriodicSignals::pink);
    case Wave::White:
        return {kWhitePeak, NoiseVoice::whiteRms()};
    case Wave::Pink:
        return {NoiseVoice::pinkRms() * dbToGain(kPinkCrest), NoiseVoice::pinkRms()};
    case Wave::Impulses:
        return {1, std::sqrt(0.5)};  // a level is always that of the peak
    case Wave::Sine:
    case Wave::LogSweep:
    case Wave::LinearSweep:
        break;
    }
    return {1, std::sqrt(0.5)};
}

ToneGain toneGain(const WaveLevels& levels, double level, double rmsShare) noexcept
{
    const double ofPeak = 1 / levels.peak, ofRms = std::sqrt(0.5) / levels.rms;
    const double gain = level * (ofPeak + rmsShare * (ofRms - ofPeak));
    const double bound = gain * levels.peak;
    if (bound <= 1) return {gain, bound, 0};
    return {gain / bound, 1, gainToDb(bound)};
}

void ToneSource::prepare(double sampleRate, int channels)
{
    rate_ = sampleRate;
    for (auto* ramp : {&gate_, &level_, &rmsShare_, &width_, &part_})
        ramp->prepare(sampleRate, kRamp);
    frequency_.prepare(sampleRate);
    frequency2_.prepare(sampleRate);
    edges_.prepare();
    sweeps_.prepare(sampleRate);
    const auto count = static_cast<std::size_t>(channels);
    voices_.resize(count);
    rows_.assign(count * kSubBlock, 0);
    signals_ = nullptr;
    isDirty_ = true;
}

void ToneSource::reset() noexcept
{
    for (std::size_t c = 0; c < voices_.size(); ++c) voices_[c].reset(c);
    isFresh_ = isDirty_ = true;
    isStarted_ = ran_ = false;
}

void ToneSource::set(const ToneSettings& settings) noexcept
{
    wanted_ = settings;
    isDirty_ = true;
}

void ToneSource::layTargets() noexcept
{
    const auto usable = [&](double f) { return usableFrequency(wave_, f, rate_, wanted_.snaps); };
    const double f = usable(wanted_.frequency), f2 = usable(wanted_.frequency2);
    frequency_.target(f);
    frequency2_.target(f2);
    part_.target(twoToneParts(f, f2).first);
    level_.target(wanted_.level);
    rmsShare_.target(wanted_.levelIsRms ? 1 : 0);
    width_.target(wanted_.width);
    if (isSweep(wave_))
        sweeps_.set({f, f2, wanted_.seconds, wave_ == Wave::LogSweep}, wanted_.pause,
                    wanted_.repeats);
}

/// In silence: nothing glides from what another wave was at.
void ToneSource::beginWave() noexcept
{
    wave_ = wanted_.wave;
    isIndependent_ = wanted_.isIndependent && isNoise(wave_);
    layTargets();
    for (auto* ramp : {&level_, &rmsShare_, &width_, &part_}) ramp->snap();
    frequency_.snap();
    frequency2_.snap();
    sine_.begin();
    sine2_.begin();
    impulses_.begin();
    place_ = 0;
    const double increment = frequency_.current() / rate_;
    if (wave_ == Wave::Triangle)
        edges_.begin(WaveShape::Triangle, 0.5, increment);
    else if (wave_ == Wave::Sawtooth)
        edges_.begin(WaveShape::Sawtooth, 0.5, increment);
    else if (wave_ == Wave::Square || wave_ == Wave::Pulse)
        edges_.begin(WaveShape::Pulse, wave_ == Wave::Square ? 0.5 : width_.current(), increment);
    else if (isSweep(wave_))
        sweeps_.begin();
}

void ToneSource::followTables() noexcept
{
    if (!tables_ || !tables_->take()) {
        const auto* const held = tables_ ? tables_->current() : nullptr;
        const auto* const signals = held ? held->get() : nullptr;
        signals_ = signals && signals->rate == rate_ ? signals : nullptr;
        return;
    }
    tables_->release();
    followTables();
    isDirty_ = true;
}

void ToneSource::next() noexcept
{
    if (isPeriodic(wanted_.wave)) followTables();
    const bool isOther =
        wave_ != wanted_.wave || isIndependent_ != (wanted_.isIndependent && isNoise(wave_));
    hasBegun_ = isFresh_ || isStarted_ || (wanted_.runs && !ran_);
    // What sounds fades out before it is another or begins anew.
    beginsAnew_ |= isFresh_ || isOther || (wanted_.runs && !ran_) ||
                   (isStarted_ && isSweep(wave_) && sweeps_.isSounding());
    const bool beginsNow = isFresh_ || (beginsAnew_ && gate_.current() == 0);
    if (beginsNow) {
        beginWave();
        beginsAnew_ = false;
    } else if (isStarted_ && !beginsAnew_) {
        if (isSweep(wave_)) sweeps_.begin();
        if (wave_ == Wave::Impulses) impulses_.begin();
    }
    isStarted_ = false;
    ran_ = wanted_.runs;
    const bool lacksTable = isPeriodic(wave_) && !signals_;
    gate_.target(wanted_.runs && !beginsAnew_ && !lacksTable ? 1 : 0);
    const bool isNew = std::exchange(isDirty_, false) || beginsNow;
    if (isNew) layTargets();
    if (std::exchange(isFresh_, false)) gate_.snap();

    const bool moves =
        level_.isMoving() || rmsShare_.isMoving() || width_.isMoving() || part_.isMoving();
    level_.next();
    rmsShare_.next();
    const auto width = width_.next(), part = part_.next();
    const auto gate = gate_.next();
    const auto increment = frequency_.next(), increment2 = frequency2_.next();
    double before = gain_;
    if (isNew || moves) {
        const auto now = toneGain(levels(), level_.current(), rmsShare_.current());
        gain_ = now.gain;
        bound_ = now.bound;
        lowered_ = now.lowered;
        if (beginsNow) before = gain_;
    }
    isSounding_ = gate.from > 0 || gate.to > 0;
    if (!isSounding_) return;
    play(increment, increment2, wave_ == Wave::Square ? Ramp<double>{0.5, 0.5} : width, part);
    applyGain({before * gate.from, gain_ * gate.to});
}

WaveLevels ToneSource::levels() const noexcept
{
    const double first = part_.current();
    return waveLevels(wave_, width_.current(), {first, 1 - first}, signals_);
}

void ToneSource::play(Ramp<double> increment, Ramp<double> increment2, Ramp<double> width,
                      Ramp<double> part) noexcept
{
    double* const out = rows_.data();
    switch (wave_) {
    case Wave::Sine:
        return sine_.next(increment, out);
    case Wave::Triangle:
    case Wave::Sawtooth:
    case Wave::Square:
    case Wave::Pulse:
        return edges_.next(increment, width, out);
    case Wave::TwoTone: {
        double second[kSubBlock];
        sine_.next(increment, out);
        sine2_.next(increment2, second);
        vec::rampGain(out, part.from, part.to, kSubBlock);
        vec::addRampGain(out, second, 1 - part.from, 1 - part.to, kSubBlock);
        return;
    }
    case Wave::Multitone:
    case Wave::PeriodicPink:
        return playPeriodic(out);
    case Wave::White:
    case Wave::Pink: {
        const double limit = waveLevels(wave_, 0, {}, nullptr).peak;
        const std::size_t count = isIndependent_ ? voices_.size() : 1;
        for (std::size_t c = 0; c < count; ++c) {
            double* const row = out + c * kSubBlock;
            if (wave_ == Wave::White) {
                voices_[c].white(row, kSubBlock);
            } else {
                voices_[c].pink(row, kSubBlock);
                vec::offsetRange(row, 0, -limit, limit, kSubBlock);
            }
        }
        return;
    }
    case Wave::LogSweep:
    case Wave::LinearSweep:
        return sweeps_.next(out);
    case Wave::Impulses:
        return impulses_.next(increment, out);
    }
}

void ToneSource::playPeriodic(double* out) noexcept
{
    if (!signals_) return vec::clear(out, kSubBlock);
    const auto& x = (wave_ == Wave::Multitone ? signals_->multitone : signals_->pink).samples;
    vec::copy(out, x.data() + place_, kSubBlock);  // the period is a multiple of it
    place_ = (place_ + kSubBlock) % x.size();
}

void ToneSource::applyGain(Ramp<double> gain) noexcept
{
    const int n = static_cast<int>(isIndependent_ ? voices_.size() : 1) * kSubBlock;
    if (gain.isConstant()) return vec::scale(rows_.data(), gain.to, n);
    for (int at = 0; at < n; at += kSubBlock)
        vec::rampGain(rows_.data() + at, gain.from, gain.to, kSubBlock);
}

double ToneSource::frequency() const noexcept
{
    if (isSweep(wave_)) return sweeps_.frequency();
    return isPeriodic(wave_) || isNoise(wave_) ? kNothing : frequency_.current();
}

double ToneSource::progress() const noexcept
{
    return isSweep(wave_) ? sweeps_.progress() : kNothing;
}

}  // namespace quillworks
