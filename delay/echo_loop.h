// SPDX-License-Identifier: ISC
// The loop of the analog delay: tape, colour, clipper, guard, and the ways between the channels.
#pragma once
#include "delay/colour_stage.h"
#include "delay/delay_time.h"
#include "delay/feedback_guard.h"
#include "delay/tape_line.h"
#include "dsp/course.h"
#include "dsp/lfo.h"

namespace quillworks {

struct AnalogDelaySettings {
    float sync;          // 0 off, else on: `beats` counts, not `time`
    float beats;         // note value: seconds at 120 BPM
    float time;          // seconds
    float speed;         // of the motor, 0.5 .. 2
    float inertia;       // seconds
    float feedback;      // fraction
    float boost;         // 0 off
    float width;         // fraction
    float pingPongMode;  // a PingPong
    float pingPongSwap;  // 0 off
    float saturation;    // fraction
    float resonance;     // 0.3 .. 3
    float lfoSync;       // 0 off, else `lfoBeats` counts, not `lfoRate`
    float lfoBeats;      // note value of one period
    float lfoRate;       // Hz
    float lfoWave;       // an LfoShape
    float lfoDepth;      // fraction of the speed, -0.5 .. 0.5
    float lowCut;        // Hz
    float highCut;       // Hz
    float mix;           // fraction wet
};

enum class PingPong { Mono, PingPong, Stereo };

/// Single precision: what comes back from tape and diodes is no more exact than that. One or two
/// channels.
class EchoLoop {
public:
    enum Group : unsigned {
        Length = 1,
        Inertia = 2,
        Lfo = 4,
        Feedback = 8,
        Mode = 16,
        Saturation = 32,
        Filters = 64,
    };

    /// [main thread]
    void prepare(int channels, double sampleRate);
    void reset() noexcept;
    void apply(const AnalogDelaySettings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;

    /// Wet signal for the input of a slice; both hold slice.frames per channel.
    void process(GridSlice slice, const float* const* in, float* const* wet) noexcept;

    /// Where the motor's modulation is in its wave, in periods.
    double lfoPlace() const noexcept { return lfoPhase_.value * 0x1p-32; }

    /// Half-life of gains, in sub-blocks.
    static double gainHalfLife(double sampleRate) noexcept
    {
        return 2 * glideSubBlocks(sampleRate);
    }

private:
    void updateLength() noexcept;
    void updateLfo() noexcept;
    void updateFeedback() noexcept;
    float targetSpeed(float lfo) const noexcept;
    void begin() noexcept;
    void piece(GridSlice slice, const float* const* in, float* const* wet) noexcept;
    void clip(int phase, int n, float* const* wet) const noexcept;
    void feed(int phase, int n, const float* const* in, const float* const* wet) noexcept;
    void cross(int phase, int n, float* left, float* right) noexcept;

    AnalogDelaySettings s_{};
    double sampleRate_ = 48000;
    double tempo_ = 120;
    int channels_ = 0;

    TapeLine tape_;
    ColourStage colour_;
    FeedbackGuard guard_;
    LfoTable lfo_;
    LfoPhase lfoPhase_;

    float speedFactor_ = 1;
    float speedState_ = 1;  // the motor's, after inertia
    float inertia_ = 0;     // coefficient per sub-block
    Smoothed<float> speed_, gain_, width_, swap_, clipping_;
    bool isBoosted_ = false;
    PingPong mode_ = PingPong::PingPong;

    // The lines that carry echoes to the other side.
    RingLine crossing_[2];
    GlidingDistance crossingLength_;
    double crossingLengths_[kSubBlock]{};
    bool crossingRests_ = true;

    Course<float> feedback_, same_, other_;  // gains of the sub-block
    Course<float> clipped_;                  // part of the clipper in the wet signal
    Course<float> toLeft_, toRight_;         // of the sum of both inputs, for the ping-pong
};

}  // namespace quillworks
