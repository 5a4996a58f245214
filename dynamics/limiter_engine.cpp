// SPDX-License-Identifier: ISC
#include "dynamics/limiter_engine.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/decibel.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr int kPhases = TruePeakLevel::kPhases;
constexpr int kVector = 8;  // samples

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
    plainFollower_.prepare(sampleRate);
    fastFollower_.prepare(kPhases * sampleRate);
    // A frame comes out with the look-ahead that its first level has had in full.
    fastFollower_.thinOut(fastFollower_.lookAhead() % kPhases, kPhases);
    truePeakLevel_.prepare(channels);
    delays_.resize(static_cast<std::size_t>(channels));
    for (auto& d : delays_) d.prepare(limiterLatency(sampleRate, true));
    detectorPast_.resize(static_cast<std::size_t>(channels));
    for (auto& p : detectorPast_)
        p.prepare(TruePeakLevel::kAhead + TruePeakLevel::kBehind, kStride, TruePeakLevel::kPadding);
    rowLength_ = std::min(kLongest, kRowsRoom / channels / kVector * kVector);
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
    forgetPast();
    sinceLoud_ = std::numeric_limits<int>::max() / 2;
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
    follower().reset();
    forgetPast();
    sinceLoud_ = std::numeric_limits<int>::max() / 2;
    clipStageChanged();
}

void LimiterEngine::forgetPast() noexcept
{
    truePeakLevel_.reset();
    for (auto& d : delays_) d.setDelay(limiterLatency(rate_, truePeak_));
    for (auto& p : detectorPast_) p.reset();
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

/// The ramps of a whole sub-block: what a slice takes of them does not depend on its length. Where
/// they stand still, those of the longest slice.
void LimiterEngine::fillGains() noexcept
{
    isSteady_ = !isGliding();
    const int n = isSteady_ ? kLongest : kSubBlock;
    const auto gain = inputGainGlide_.next({kSubBlock, 0});
    const auto scale = ceilingGlide_.next({kSubBlock, 0});
    vec::ramp(inputGain_, gain.from, gain.to, n);
    vec::ramp(outputGain_, scale.from, scale.to, n);
    const double working = dbToGain(LimitingCurve::kMarginDb);
    for (int i = 0; i < n; ++i) {
        inputGain_[i] *= 1 / outputGain_[i];
        const double ceiling = working * outputGain_[i];
        const auto rounded = static_cast<float>(ceiling);
        std::get<Limits<double>>(limits_).values[i] = ceiling;
        std::get<Limits<float>>(limits_).values[i] =
            double(rounded) > ceiling ? std::nextafter(rounded, 0.0f) : rounded;
    }
}

int LimiterEngine::begin(GridSlice slice, Scratch& scratch) noexcept
{
    scratch_ = &scratch;
    if (slice.begins()) {
        if (isGliding() || !isSteady_) fillGains();
        if (curve_.advance()) curveChanged();
    }
    const bool keepsGrid = !isSteady_ || isGliding() || curve_.isMoving();
    phase_ = keepsGrid ? slice.phase : 0;
    frames_ = std::min({slice.frames, rowLength_,
                        keepsGrid   ? kSubBlock - slice.phase
                        : truePeak_ ? TruePeakLevel::kMaxFrames
                                    : kLongest});
    peak_ = 0;
    if (!follower().isIdle()) follower().fetchAhead(truePeak_ ? kPhases * frames_ : frames_);
    // Whole vectors are worked: what lies behind the slice must not be left to chance.
    const int end = truePeak_ ? kMost : frames_;
    for (double* const values : {scratch.levels, scratch.wanted, scratch.due})
        std::fill_n(values + end, TruePeakLevel::kPadding, 0.0);
    return frames_;
}

void LimiterEngine::findGain() noexcept
{
    const bool isLoud = truePeak_ ? findTruePeakLevels() : peak_ > curve_.shape().gate;
    isLimiting_ = false;
    if (!isLoud && follower().isIdle()) return;

    const double most = follow(isLoud);
    isLimiting_ = most > 0;
    reduction_ = std::max(reduction_, most);
}

/// Leaves the gain and returns the largest reduction in dB.
double LimiterEngine::follow(bool isLoud) noexcept
{
    const int n = truePeak_ ? kPhases * frames_ : frames_;
    const bool isHard = curve_.shape().isHard();
    if (!isLoud) {
        vec::clear(scratch_->wanted, n);
        return follower().process(scratch_->wanted, scratch_->wanted, scratch_->gain, n);
    }
    if (!truePeak_) {
        curve_.reductions(scratch_->levels, scratch_->wanted, scratch_->due, n);
        return follower().process(scratch_->wanted, isHard ? scratch_->wanted : scratch_->due,
                                  scratch_->gain, n);
    }
    // The levels lie phase by phase.
    alignas(64) double wanted[kMost], due[kMost];
    curve_.reductions(scratch_->levels, scratch_->wanted, scratch_->due, kMost);
    for (int i = 0; i < frames_; ++i)
        for (int p = 0; p < kPhases; ++p)
            wanted[kPhases * i + p] = scratch_->wanted[p * kStride + i];
    if (!isHard)
        for (int i = 0; i < frames_; ++i)
            for (int p = 0; p < kPhases; ++p) due[kPhases * i + p] = scratch_->due[p * kStride + i];
    return follower().process(wanted, isHard ? wanted : due, scratch_->gain, n);
}

bool LimiterEngine::findTruePeakLevels() noexcept
{
    const bool isNear = peak_ >= curve_.shape().gate / TruePeakLevel::kMaxGain;
    constexpr int reach = TruePeakLevel::kAhead + TruePeakLevel::kBehind;
    sinceLoud_ = isNear ? 0 : std::min(sinceLoud_, 4 * reach) + frames_;
    if (sinceLoud_ > reach + frames_) {
        truePeakLevel_.pass();
        return false;
    }
    double* level[kPhases];
    for (int p = 0; p < kPhases; ++p) level[p] = scratch_->levels + p * kStride;
    vec::clear(scratch_->levels, kMost);
    for (int c = 0; c < channels(); ++c) {
        const double* const x = detectorPast(c).end() - frames_ - TruePeakLevel::kAhead;
        truePeakLevel_.raise(c, x, frames_, level);
    }
    return vec::peak(scratch_->levels, kMost) > curve_.shape().gate;
}

/// Delayed samples, the slice's from `first` on, with their gain, rounded off above the wall's
/// corner.
const double* LimiterEngine::clip(const double* x, int first, int n) noexcept
{
    const double* const gain = scratch_->gain + first;
    double* const clipped = scratch_->clipped;
    for (int i = 0; i < n; ++i) {
        const double v = isLimiting_ ? x[i] * gain[i] : x[i];
        const double above = std::abs(v) - clipStage_.low;
        const double rounded =
            clipStage_.low + clipStage_.curve.apply<ClipShape::Parabola>(std::max(above, 0.0));
        clipped[i] = above > 0 ? std::copysign(rounded, v) : v;
    }
    return clipped;
}

double LimiterEngine::takeReduction() noexcept
{
    const double taken = reduction_;
    reduction_ = 0;
    return taken;
}

}  // namespace quillworks
