// SPDX-License-Identifier: ISC
#include "dynamics/limiter_engine.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {
namespace {

constexpr int kPhases = TruePeakLevel::kPhases;

/// Samples that the levels of a frame wait for.
int detectorDelay(bool truePeak)
{
    return truePeak ? TruePeakLevel::kAhead : 0;
}

}  // namespace

int limiterLatency(double sampleRate, bool truePeak) noexcept
{
    return truePeak
               ? LimitingFollower::lookAheadAt(kPhases * sampleRate) / kPhases + detectorDelay(true)
               : LimitingFollower::lookAheadAt(sampleRate);
}

void LimiterEngine::prepare(double sampleRate, int channels)
{
    rate_ = sampleRate;
    // Gains glide with a half-life of 3 ms, counted in sub-blocks.
    const int subBlocks = std::max(1, static_cast<int>(sampleRate * 0.00009375 + 0.5));
    for (auto* glide : {&inputGainGlide_, &ceilingGlide_}) {
        glide->prepareHalfLife(subBlocks);
        glide->setTolerance(1e-9);
    }
    curve_.prepare(subBlocks);
    plainFollower_.prepare(sampleRate, kSubBlock);
    fastFollower_.prepare(kPhases * sampleRate, kMost);
    truePeakLevel_.prepare(channels);
    past_.resize(static_cast<std::size_t>(channels));
    const int past =
        std::max(limiterLatency(sampleRate, true), TruePeakLevel::kAhead + TruePeakLevel::kBehind);
    for (auto& p : past_) p.prepare(past, kSubBlock, TruePeakLevel::kPadding);
    reset();
}

void LimiterEngine::reset() noexcept
{
    inputGainGlide_.snap();
    ceilingGlide_.snap();
    curve_.snap();
    curveChanged();
    fillGains();
    plainFollower_.reset();
    fastFollower_.reset();
    truePeakLevel_.reset();
    for (auto& p : past_) p.reset();
    latency_ = limiterLatency(rate_, truePeak_);
    sinceLoud_ = std::numeric_limits<int>::max() / 2;
    std::fill(std::begin(levels_), std::end(levels_), 0.0);
    reduction_ = 0;
    isLimiting_ = false;
}

void LimiterEngine::setGains(double inputGain, double ceilingDb) noexcept
{
    inputGainGlide_.target(inputGain);
    ceilingGlide_.target(dbToGain(ceilingDb));
}

void LimiterEngine::setCurve(double thresholdDb, double ratio) noexcept
{
    curve_.setTarget(thresholdDb, ratio);
}

void LimiterEngine::setTimes(double attackSeconds, double releaseSeconds) noexcept
{
    plainFollower_.setTimes(attackSeconds, releaseSeconds);
    fastFollower_.setTimes(attackSeconds, releaseSeconds);
}

void LimiterEngine::setHold(bool holds) noexcept
{
    plainFollower_.setHold(holds);
    fastFollower_.setHold(holds);
}

void LimiterEngine::setProgrammeRelease(bool on) noexcept
{
    plainFollower_.setProgrammeRelease(on);
    fastFollower_.setProgrammeRelease(on);
}

void LimiterEngine::setWall(bool on) noexcept
{
    wall_ = on;
    clipStageChanged();
}

void LimiterEngine::setTruePeak(bool on) noexcept
{
    if (on == truePeak_) return;
    truePeak_ = on;
    latency_ = limiterLatency(rate_, on);
    follower().reset();
    truePeakLevel_.reset();
    for (auto& p : past_) p.reset();
    sinceLoud_ = std::numeric_limits<int>::max() / 2;
    clipStageChanged();
}

void LimiterEngine::clipStageChanged() noexcept
{
    clips_ = wall_ && !truePeak_;
    plainFollower_.setCatches(!clips_);
}

void LimiterEngine::curveChanged() noexcept
{
    const auto& s = curve_.shape();
    sinceLoud_ = 0;                             // "near the threshold" has a new meaning
    const double knee = std::max(s.knee, 1.5);  // dB
    const double top = dbToGain(s.ceiling);
    clipStage_.low = dbToGain(s.ceiling - knee);
    // A slope of 1 at the corner, the working ceiling at the end.
    const double height = top - clipStage_.low;
    clipStage_.curve = {1 / (2 * height), height};
}

/// The ramps of a whole sub-block: what a slice takes of them does not depend on its length.
void LimiterEngine::fillGains() noexcept
{
    const auto gain = inputGainGlide_.next({kSubBlock, 0});
    const auto ceiling = ceilingGlide_.next({kSubBlock, 0});
    vec::ramp(inputGain_, gain.from, gain.to, kSubBlock);
    vec::ramp(outputGain_, ceiling.from, ceiling.to, kSubBlock);
    const double working = dbToGain(LimitingCurve::kMarginDb);
    for (int i = 0; i < kSubBlock; ++i) {
        inputGain_[i] *= 1 / outputGain_[i];
        ceiling_[i] = working * outputGain_[i];
    }
}

void LimiterEngine::begin(GridSlice slice) noexcept
{
    phase_ = slice.phase;
    frames_ = slice.frames;
    if (!slice.begins()) return;
    if (inputGainGlide_.isGliding() || ceilingGlide_.isGliding()) fillGains();
    if (curve_.advance()) curveChanged();
}

double* LimiterEngine::input(int channel) noexcept
{
    return past_[static_cast<std::size_t>(channel)].append(frames_);
}

void LimiterEngine::findGain() noexcept
{
    auto& follower = this->follower();
    const int phases = truePeak_ ? kPhases : 1;
    const bool isLoud = truePeak_ ? findTruePeakLevels() : findLevels();
    isLimiting_ = false;
    if (!isLoud && follower.isIdle()) return;

    const int n = phases * frames_;
    if (isLoud) {
        if (truePeak_) {  // the levels lie phase by phase
            alignas(64) double wanted[kMost], due[kMost];
            curve_.reductions(levels_, wanted_, due_, kPhases * kSubBlock);
            for (int i = 0; i < frames_; ++i)
                for (int p = 0; p < kPhases; ++p) {
                    wanted[kPhases * i + p] = wanted_[p * kSubBlock + i];
                    due[kPhases * i + p] = due_[p * kSubBlock + i];
                }
            follower.process(wanted, due, smooth_, n);
        } else {
            curve_.reductions(levels_, wanted_, due_, n);
            follower.process(wanted_, due_, smooth_, n);
        }
    } else {
        vec::clear(wanted_, n);
        follower.process(wanted_, wanted_, smooth_, n);
    }

    if (truePeak_) {  // the frame that comes out now, of each four
        const int first = follower.lookAhead() % kPhases;
        for (int i = 0; i < frames_; ++i) smooth_[i] = smooth_[kPhases * i + first];
    }
    const double most = vec::peak(smooth_, frames_);
    if (most == 0) return;
    isLimiting_ = true;
    reduction_ = std::max(reduction_, most);
    vec::negateCopy(gain_, smooth_, frames_);
    vec::gainFromDecibels(gain_, gain_, frames_);
    for (int i = 0; i < frames_; ++i) gain_[i] = smooth_[i] == 0 ? 1.0 : gain_[i];
}

bool LimiterEngine::findLevels() noexcept
{
    vec::absCopy(levels_, past_[0].end() - frames_, frames_);
    for (int c = 1; c < channels(); ++c)
        vec::maxAbs(levels_, past_[static_cast<std::size_t>(c)].end() - frames_, frames_);
    return vec::peak(levels_, frames_) > curve_.shape().gate;
}

bool LimiterEngine::findTruePeakLevels() noexcept
{
    const double near = curve_.shape().gate / TruePeakLevel::kMaxGain;
    bool isNear = false;
    for (const auto& p : past_) isNear |= vec::peak(p.end() - frames_, frames_) >= near;
    constexpr int reach = TruePeakLevel::kAhead + TruePeakLevel::kBehind;
    sinceLoud_ = isNear ? 0 : std::min(sinceLoud_, 4 * reach) + frames_;
    if (sinceLoud_ > reach + frames_) {
        truePeakLevel_.pass();
        return false;
    }
    double* level[kPhases];
    for (int p = 0; p < kPhases; ++p) level[p] = levels_ + p * kSubBlock;
    vec::clear(levels_, kMost);
    for (int c = 0; c < channels(); ++c) {
        const double* const x =
            past_[static_cast<std::size_t>(c)].end() - frames_ - TruePeakLevel::kAhead;
        truePeakLevel_.raise(c, x, frames_, level);
    }
    return vec::peak(levels_, kMost) > curve_.shape().gate;
}

void LimiterEngine::shape(int channel, double* out) const noexcept
{
    const double* const x = past_[static_cast<std::size_t>(channel)].end() - frames_ - latency_;
    if (isLimiting_)
        vec::mulCopy(out, x, gain_, frames_);
    else
        vec::copy(out, x, frames_);
    if (!clips_) return;
    for (int i = 0; i < frames_; ++i) {
        const double above = std::abs(out[i]) - clipStage_.low;
        if (above > 0)
            out[i] = std::copysign(
                clipStage_.low + clipStage_.curve.apply<ClipShape::Parabola>(above), out[i]);
    }
}

double LimiterEngine::takeReduction() noexcept
{
    const double taken = reduction_;
    reduction_ = 0;
    return taken;
}

}  // namespace quillworks
