// SPDX-License-Identifier: ISC
#include "reverb/sweep_run.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr double kFadeSeconds = 0.01;

using Sources = CapturePlan::Sources;

}  // namespace

void SweepRun::prepare(CaptureExchange& exchange, std::uint32_t serial, double sampleRate) noexcept
{
    exchange_ = &exchange;
    serial_ = serial;
    quietFrames_ = std::lround(kQuietSeconds * sampleRate);
    noiseFrom_ = quietFrames_ - std::lround((kQuietSeconds - kNoiseFromSeconds) * sampleRate);
    fadeFrames_ = std::max(1, static_cast<int>(std::lround(kFadeSeconds * sampleRate)));
    stopsSeen_ = exchange.stops();
}

void SweepRun::reset() noexcept
{
    fadeLeft_ = 0;
    const bool mustFree = capture_ || leaving_;
    for (auto* const capture : {capture_, leaving_})
        if (capture) capture->giveBack(SweepCapture::State::Abandoned);
    capture_ = leaving_ = nullptr;
    if (isUnderWay_) {
        exchange_->serve();
        state_ = State::Idle;
        mustTell_ = true;
    }
    isUnderWay_ = hasFinished_ = false;
    if (mustFree) exchange_->requestWork();
}

void SweepRun::follow() noexcept
{
    if (const auto stops = exchange_->stops(); stops != stopsSeen_) {
        stopsSeen_ = stops;
        if (isUnderWay_) end(State::Idle);
    }
    if (exchange_->takeStart()) begin();
    if (isUnderWay_ && !capture_) receive();
}

void SweepRun::begin() noexcept
{
    if (isUnderWay_) end(State::Idle);
    handOver();
    state_ = State::Noise;
    isUnderWay_ = mustTell_ = true;
    frame_ = 0;
    source_ = pass_ = 0;
}

/// A sound is faded out; what was recorded is given up.
void SweepRun::end(State state) noexcept
{
    isUnderWay_ = false;
    mustTell_ = true;
    const auto was = std::exchange(state_, state);
    auto* const capture = std::exchange(capture_, nullptr);
    if (!capture) return;
    if (was == State::Sweep && !leaving_) {
        leaving_ = capture;
        leavingFrame_ = static_cast<int>(frame_);
        leavingSource_ = source_;
        fadeLeft_ = std::min(fadeFrames_, capture->sweepFrames() - leavingFrame_);
    } else {
        capture->giveBack(SweepCapture::State::Abandoned);
        exchange_->requestWork();
    }
}

void SweepRun::receive() noexcept
{
    auto* const capture = exchange_->take();
    if (!capture) return;
    if (capture->serial() != serial_) {  // for another layout or rate; the right one is on its way
        capture->giveBack(SweepCapture::State::Abandoned);
        return;
    }
    exchange_->serve();
    capture->setStart(exchange_->begun());
    capture_ = capture;
    if (capture->isRefused()) {
        capture_ = nullptr;
        capture->giveBack(SweepCapture::State::Abandoned);
        exchange_->requestWork();
        end(State::Failed);
    }
}

void SweepRun::handOver() noexcept
{
    if (!std::exchange(hasFinished_, false)) return;
    std::exchange(capture_, nullptr)->giveBack(SweepCapture::State::Complete);
    exchange_->requestWork();
}

double SweepRun::progress() const noexcept
{
    if (!isUnderWay_) return state_ == State::Idle || state_ == State::Failed ? 0 : 1;
    if (!capture_) return 0;
    const double pass = capture_->frames();
    const auto& plan = capture_->plan();
    const double all = static_cast<double>(quietFrames_) + pass * plan.passes * plan.sourceCount();
    const double done = state_ == State::Noise ? static_cast<double>(frame_)
                                               : static_cast<double>(quietFrames_ + frame_) +
                                                     pass * (source_ * plan.passes + pass_);
    return done / all;
}

SweepRun::Step SweepRun::step(int n) const noexcept
{
    Step step{.frames = n};
    const auto play = [&](const SweepCapture& capture, int frame, int source) {
        step.sweep = capture.sweep() + frame;
        const auto sources = capture.plan().sources;
        step.firstOutput = sources == Sources::EachInTurn ? source : 0;
        step.outputs = sources == Sources::AllAtOnce ? capture.plan().outputs : 1;
    };
    const auto limit = [&](std::int64_t frames) {
        step.frames = static_cast<int>(std::min<std::int64_t>(step.frames, frames));
    };
    if (state_ == State::Noise) {
        if (frame_ < noiseFrom_)
            limit(noiseFrom_ - frame_);
        else if (capture_)
            limit(quietFrames_ - frame_);
    } else if (isPlaying()) {
        const bool sounds = state_ == State::Sweep;
        limit((sounds ? capture_->sweepFrames() : capture_->frames()) - frame_);
        if (sounds) play(*capture_, static_cast<int>(frame_), source_);
    }
    if (leaving_) {  // the next measurement is still silent
        limit(fadeLeft_);
        play(*leaving_, leavingFrame_, leavingSource_);
        step.gainStep = -1 / static_cast<float>(fadeFrames_);
        step.gain = static_cast<float>(fadeLeft_) / static_cast<float>(fadeFrames_) + step.gainStep;
    }
    return step;
}

void SweepRun::advance(const Step& step, const float* const* inputs,
                       const float* reference) noexcept
{
    if (leaving_) {
        leavingFrame_ += step.frames;
        fadeLeft_ -= step.frames;
        if (fadeLeft_ <= 0) {
            leaving_->giveBack(SweepCapture::State::Abandoned);
            leaving_ = nullptr;
            exchange_->requestWork();
        }
    }
    if (state_ == State::Noise) {
        if (frame_ >= noiseFrom_) {
            if (!capture_) return;  // the silence lasts until there is one
            capture_->takeNoise(inputs, static_cast<int>(frame_ - noiseFrom_), step.frames);
        }
        frame_ += step.frames;
        if (frame_ < quietFrames_) return;
        frame_ = 0;
        state_ = State::Sweep;
        mustTell_ = true;
    } else if (isPlaying()) {
        capture_->take(inputs, reference, source_, static_cast<int>(frame_), step.frames);
        frame_ += step.frames;
        if (frame_ >= capture_->frames()) return finishPass();
        const auto now = frame_ < capture_->sweepFrames() ? State::Sweep : State::Tail;
        mustTell_ |= std::exchange(state_, now) != now;
    }
}

void SweepRun::finishPass() noexcept
{
    frame_ = 0;
    state_ = State::Sweep;
    mustTell_ = true;
    if (++pass_ < capture_->plan().passes) return;
    pass_ = 0;
    if (++source_ < capture_->plan().sourceCount()) return;
    source_ = 0;
    state_ = State::Solving;
    isUnderWay_ = false;
    hasFinished_ = true;
}

}  // namespace quillworks
