// SPDX-License-Identifier: ISC
// The course of a measurement on the audio thread: silence, sweeps, tails.
#pragma once

#include <cstdint>
#include <utility>

#include "dsp/control_grid.h"
#include "reverb/sweep_capture.h"

namespace quillworks {

/// Counts frames and nothing else: neither the song nor the calls matter. [audio thread]
class SweepRun {
public:
    enum class State { Idle, Noise, Sweep, Tail, Solving, Done, Failed };

    void prepare(CaptureExchange& exchange, std::uint32_t serial, double sampleRate) noexcept;
    /// Ends what is under way, without a fade.
    void reset() noexcept;

    /// Where a sub-block begins: takes starts, stops and captures.
    void follow() noexcept;
    /// The next frames, at most n, in which nothing but the place changes.
    struct Step {
        int frames = 0;
        const float* sweep = nullptr;  // what is played; null: silence
        int firstOutput = 0, outputs = 0;
        float gain = 1, gainStep = 0;  // of its first frame, and from frame to frame
    };
    Step step(int n) const noexcept;
    /// Takes what came in meanwhile, `reference` null without a loopback, and moves on.
    void advance(const Step& step, const float* const* inputs, const float* reference) noexcept;

    /// From the trigger to the end of the last tail.
    bool isUnderWay() const noexcept { return isUnderWay_; }
    /// The source that is played.
    int source() const noexcept { return source_; }
    State state() const noexcept { return state_; }
    double progress() const noexcept;  // 0 .. 1
    /// Whether state() is to be published: not for ever, for it ends with the worker's word.
    bool tellsState() noexcept { return std::exchange(mustTell_, false) || isUnderWay_; }
    /// Gives a finished recording to the worker. Once state() has been published, so that the
    /// worker's word comes later.
    void handOver() noexcept;

private:
    bool isPlaying() const noexcept { return state_ == State::Sweep || state_ == State::Tail; }
    void begin() noexcept;
    void end(State state) noexcept;
    void receive() noexcept;
    void finishPass() noexcept;

    CaptureExchange* exchange_ = nullptr;
    std::uint32_t serial_ = 0, stopsSeen_ = 0;
    std::int64_t quietFrames_ = 0, noiseFrom_ = 0;
    int fadeFrames_ = 1;

    State state_ = State::Idle;
    bool isUnderWay_ = false, hasFinished_ = false, mustTell_ = false;
    SweepCapture* capture_ = nullptr;
    std::int64_t frame_ = 0;  // of the silence, or of the sweep with its tail
    int source_ = 0, pass_ = 0;

    // What is being faded out after a stop.
    SweepCapture* leaving_ = nullptr;
    int leavingFrame_ = 0, leavingSource_ = 0, fadeLeft_ = 0;
};

}  // namespace quillworks
