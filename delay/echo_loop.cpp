// SPDX-License-Identifier: ISC
#include "delay/echo_loop.h"

#include <algorithm>
#include <cmath>

#include "delay/sinc_rows.h"
#include "dsp/clip_shapes.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr float kBoost = 1.5f;

ColourFilters filtersOf(const AnalogDelaySettings& s)
{
    return {s.lowCut, s.highCut, s.resonance};
}

}  // namespace

void EchoLoop::prepare(int channels, double sampleRate)
{
    channels_ = channels;
    sampleRate_ = sampleRate;
    const double base = glideSubBlocks(sampleRate);
    const double glide = 8 * base * kSubBlock;  // samples: an echo is in its new place after 0.4 s
    tape_.prepare(channels, sampleRate, glide);
    crossingLength_.prepare(glide);
    const int longest = 2 * static_cast<int>(TapeLine::kLongest * sampleRate) + 128;
    for (auto& line : crossing_) line.prepare(channels == 2 ? 1 : 0, channels == 2 ? longest : 1);
    colour_.prepare(channels, sampleRate, 2 * base);
    guard_.prepare(channels, sampleRate, base);
    lfo_.setControlRate(sampleRate / kSubBlock);
    speed_.prepareHalfLife(base);
    gain_.prepareHalfLife(2 * base);
    width_.prepareHalfLife(2 * base);
    swap_.prepareHalfLife(2 * base);
    clipping_.prepareHalfLife(base);
}

void EchoLoop::reset() noexcept
{
    tape_.reset();
    colour_.reset();
    guard_.reset();
    for (auto& line : crossing_) line.clear();
    crossingLength_.snap();
    lfoPhase_.reset();
    speedState_ = targetSpeed(lfo_.read(lfoPhase_.value));
    speed_.target(speedState_);
    for (auto* smoothed : {&speed_, &gain_, &width_, &swap_, &clipping_}) smoothed->snap();
}

void EchoLoop::apply(const AnalogDelaySettings& settings, unsigned dirty) noexcept
{
    s_ = settings;
    if (dirty & Length) updateLength();
    if (dirty & Inertia) {
        const auto blocks = static_cast<int>(double(s_.inertia) * sampleRate_ / kSubBlock + 0.5);
        inertia_ = static_cast<float>(halfLifeFactor(blocks));
    }
    if (dirty & Lfo) {
        lfo_.select(static_cast<int>(s_.lfoWave + 0.5f));
        updateLfo();
    }
    if (dirty & Mode) {
        mode_ = static_cast<PingPong>(static_cast<int>(s_.pingPongMode + 0.5f));
        for (auto& line : crossing_) line.clear();
    }
    if (dirty & Saturation) colour_.setSaturation(s_.saturation);
    if (dirty & Filters) colour_.setFilters(filtersOf(s_));
    if (dirty & (Feedback | Mode | Filters)) updateFeedback();
}

void EchoLoop::setTempo(double beatsPerMinute) noexcept
{
    if (beatsPerMinute == tempo_) return;
    tempo_ = beatsPerMinute;
    updateLength();
    updateLfo();
}

void EchoLoop::updateLength() noexcept
{
    const bool isSynced = s_.sync != 0;
    const auto time = DelayTime::of(isSynced, isSynced ? s_.beats : s_.time,
                                    static_cast<float>(tempo_), s_.speed, sampleRate_);
    speedFactor_ = time.speedFactor;
    tape_.setLength(time.tapeLength());
    crossingLength_.target(time.crossing());
}

void EchoLoop::updateLfo() noexcept
{
    const float hertz =
        s_.lfoSync != 0 ? noteValueToHertz(s_.lfoBeats, static_cast<float>(tempo_)) : s_.lfoRate;
    lfoPhase_.increment = lfo_.increment(double(hertz));
}

void EchoLoop::updateFeedback() noexcept
{
    isBoosted_ = s_.boost != 0;
    const float gain = s_.feedback * (isBoosted_ ? kBoost : 1);
    gain_.target(gain);
    guard_.setLoopGain(gain * static_cast<float>(filtersOf(s_).peakGain()));
    clipping_.target(isBoosted_ ? 1 : 0);
    swap_.target(s_.pingPongSwap != 0 ? 1 : 0);
    // Turned round, an echo comes back on the other side.
    width_.target(mode_ == PingPong::Mono ? s_.width : -s_.width);
}

float EchoLoop::targetSpeed(float lfo) const noexcept
{
    return std::clamp((lfo * s_.lfoDepth + 1) * speedFactor_, TapeLine::kSlowest,
                      TapeLine::kFastest);
}

void EchoLoop::begin() noexcept
{
    const float target = targetSpeed(lfo_.read(lfoPhase_.next()));
    speedState_ = (speedState_ - target) * inertia_ + target;
    if (std::abs(speedState_ - target) < 1e-6f) speedState_ = target;
    speed_.target(speedState_);
    tape_.begin(speed_.next(kWholeSubBlock));

    auto gain = gain_.next(kWholeSubBlock);
    const auto guard = guard_.next(guard_.isArmed(isBoosted_));
    gain.from *= guard.from;
    gain.to *= guard.to;
    feedback_.follow(gain);
    clipped_.follow(clipping_, kWholeSubBlock);
    if (channels_ == 2) {
        const auto width = width_.next(kWholeSubBlock);
        same_.follow({(1 + width.from) * 0.5f, (1 + width.to) * 0.5f});
        other_.follow({(1 - width.from) * 0.5f, (1 - width.to) * 0.5f});
        const auto swap = swap_.next(kWholeSubBlock);
        toLeft_.follow({swap.from * 0.5f, swap.to * 0.5f});
        toRight_.follow({(1 - swap.from) * 0.5f, (1 - swap.to) * 0.5f});
        crossingRests_ = crossingLength_.isResting();
        if (!crossingRests_) crossingLength_.next(crossingLengths_, kSubBlock);
    }
}

void EchoLoop::process(GridSlice slice, const float* const* in, float* const* wet) noexcept
{
    if (slice.begins()) begin();
    for (int done = 0; done < slice.frames;) {
        const int phase = slice.phase + done;
        int n = tape_.run(phase, slice.frames - done);
        if (channels_ == 2 && mode_ == PingPong::PingPong) {
            // Likewise what crosses over; its taps reach 16 samples ahead.
            const double shortest = crossingRests_ ? crossingLength_.current()
                                                   : std::min(crossingLengths_[phase],
                                                              crossingLengths_[phase + n - 1]) -
                                                         (SincRows::kTaps - SincRows::kBefore);
            n = std::min(n, static_cast<int>(shortest));
        }
        const float* const from[2] = {in[0] + done, channels_ == 2 ? in[1] + done : nullptr};
        float* const to[2] = {wet[0] + done, channels_ == 2 ? wet[1] + done : nullptr};
        piece({n, phase}, from, to);
        done += n;
    }
}

/// A piece no longer than the loop.
void EchoLoop::piece(GridSlice slice, const float* const* in, float* const* wet) noexcept
{
    const int n = slice.frames;
    tape_.play(slice.phase, n, wet);
    colour_.process(wet, slice);
    if (clipping_.current() > 0) clip(slice.phase, n, wet);
    if (guard_.isArmed(isBoosted_)) guard_.listen(wet, n);
    feed(slice.phase, n, in, wet);
}

/// Boosted, the loop may gain: a clipper keeps it within 1. It comes and goes in a fade.
void EchoLoop::clip(int phase, int n, float* const* wet) const noexcept
{
    const ClipCurve<float> curve;
    const bool isWhole = clipping_.current() == 1 && !clipping_.isGliding();
    for (int c = 0; c < channels_; ++c) {
        if (isWhole) {
            curve.apply<ClipShape::Rational>(wet[c], n);
            continue;
        }
        for (int i = 0; i < n; ++i) {
            const float clean = wet[c][i];
            wet[c][i] += clipped_.at[phase + i] * (curve.apply<ClipShape::Rational>(clean) - clean);
        }
    }
}

/// What goes back onto the tape.
void EchoLoop::feed(int phase, int n, const float* const* in, const float* const* wet) noexcept
{
    float left[kSubBlock], right[kSubBlock];
    const float* const tape[2] = {left, right};
    const float* const g = feedback_.at + phase;
    if (channels_ == 1) {
        for (int i = 0; i < n; ++i) left[i] = g[i] * wet[0][i] + in[0][i];
        tape_.record(tape, n);
        return;
    }
    const float *const inLeft = in[0], *const inRight = in[1];
    const float *const wetLeft = wet[0], *const wetRight = wet[1];
    const float *const same = same_.at + phase, *const other = other_.at + phase;
    switch (mode_) {
    case PingPong::Mono:
        for (int i = 0; i < n; ++i) {
            const float mono = (inLeft[i] + inRight[i]) * 0.5f;
            left[i] = g[i] * wetLeft[i] + mono;
            right[i] = g[i] * wetRight[i] + mono;
        }
        break;
    case PingPong::Stereo:
        for (int i = 0; i < n; ++i) {
            left[i] = g[i] * wetLeft[i] + inLeft[i];
            right[i] = g[i] * wetRight[i] + inRight[i];
        }
        break;
    case PingPong::PingPong: {
        const float *const toLeft = toLeft_.at + phase, *const toRight = toRight_.at + phase;
        for (int i = 0; i < n; ++i) {
            const float sum = inLeft[i] + inRight[i];
            left[i] = g[i] * 0.5f * wetLeft[i] + toLeft[i] * sum;
            right[i] = g[i] * 0.5f * wetRight[i] + toRight[i] * sum;
        }
        cross(phase, n, left, right);
        break;
    }
    }
    for (int i = 0; i < n; ++i) {
        const float l = left[i], r = right[i];
        left[i] = l * same[i] + r * other[i];
        right[i] = l * other[i] + r * same[i];
    }
    tape_.record(tape, n);
}

/// To each side comes what the other side was given one echo ago.
void EchoLoop::cross(int phase, int n, float* left, float* right) noexcept
{
    float late[2][kSubBlock];
    float* const fromLeft[1] = {late[0]};
    float* const fromRight[1] = {late[1]};
    if (crossingRests_) {
        const int distance = static_cast<int>(crossingLength_.current()) - 1;
        crossing_[0].copy(fromLeft, distance, n);
        crossing_[1].copy(fromRight, distance, n);
    } else {
        double distances[kSubBlock];
        for (int i = 0; i < n; ++i) distances[i] = crossingLengths_[phase + i] - 1 - i;
        const float* const rows = SincRows::shared().below(1);
        crossing_[0].read(fromLeft, distances, n, rows);
        crossing_[1].read(fromRight, distances, n, rows);
    }
    const float* const toLeft[1] = {left};
    const float* const toRight[1] = {right};
    crossing_[0].write(toLeft, n);
    crossing_[1].write(toRight, n);
    vec::addInplace(left, late[1], n);
    vec::addInplace(right, late[0], n);
}

}  // namespace quillworks
