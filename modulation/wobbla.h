// SPDX-License-Identifier: ISC
// Wobbla: tremolo, auto-pan and gate by a pattern of steps that follows the song to the sample.
#pragma once

#include <array>
#include <vector>

#include "dsp/course.h"
#include "dsp/crossfade.h"
#include "dsp/section.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "framework/song_clock.h"
#include "modulation/channel_sides.h"
#include "modulation/step_edges.h"

namespace quillworks {

struct WobblaSettings {
    float mode;   // a WobblaMode
    float shape;  // a StepShape
    float sync;   // follows the song while not 0
    float beats;  // note value of a step
    float speed;  // steps a second
    float steps;
    float swing;               // 0 .. 1
    float gate;                // 0 .. 1
    float edge;                // s
    float depth;               // 0 .. 1
    float stereo;              // steps by which right channels are ahead
    float levels[kMostSteps];  // 0 .. 1
};

enum class WobblaMode { Volume, Pan, Harmonic };

/// The pattern is evaluated at every frame; only depth and mode move with the control grid.
template <typename T> class WobblaCore {
public:
    using Settings = WobblaSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .publish = true};
    enum Group : unsigned { Mode = 1, Pattern = 2, Rate = 4, Depth = 8 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    enum Side { Left, Right, kSides };
    /// Frames that are worked on at once: whole sub-blocks.
    static constexpr int kChunk = 8 * kSubBlock;

    struct Channel {
        ChannelSide side = ChannelSide::Middle;
        OnePoleState<T> low;
    };
    /// Gains over a chunk: of the signal, or of its lows and highs. Constant: only the first.
    struct Gains {
        bool isConstant;
        T low[kChunk], high[kChunk];
    };
    /// Values of the pattern over a chunk.
    struct Values {
        bool isConstant;
        T at[kChunk];
    };

    void updateRate() noexcept;
    void rememberCourse() noexcept;
    void findPlace(const AudioBlock<T>& block) noexcept;
    void processSlice(const AudioBlock<T>& slice, int first) noexcept;
    void valuesOf(Side side, int first, int n, Values& v) const noexcept;
    void gainsOf(WobblaMode mode, Side side, const Values& v, GridSlice slice,
                 Gains& gains) const noexcept;
    void play(WobblaMode mode, Channel& channel, const Gains& gains, T* x, int n) noexcept;
    double aheadOf(Side side) const noexcept { return side == Right ? stereo_ : 0; }
    bool isAtRest() const noexcept
    {
        return !depth_.isGliding() && !mode_.isFading() && mode_.present() == wantedMode_;
    }

    double sampleRate_ = 48000;
    std::vector<Channel> channels_;
    OnePoleCoefficients<T> lowPass_;
    WobblaSettings settings_{};
    double tempo_ = 120;

    SongClock clock_;
    FrameCycle cycle_;
    StepEdges edges_;
    double stereo_ = 0;
    /// Place of the frame behind the last call, as the course was then, and the values there.
    double nextPlace_ = 0;
    std::array<double, kSides> expected_{};
    bool hasExpected_ = false, isFresh_ = true;
    /// The way over a jump: what is added at its first frame, and what is left of it.
    std::array<double, kSides> jump_{};
    int jumpFrames_ = 1, jumpLeft_ = 0;

    Smoothed<T> depth_;
    Course<T> depths_;
    Switch<WobblaMode> mode_;
    WobblaMode wantedMode_ = WobblaMode::Volume;
    double head_ = 0;
    std::array<float, kSides> lastGain_{1, 1};
};

class SuperTremAlgorithm final : public PrecisionAlgorithm<WobblaCore> {
public:
    SuperTremAlgorithm();
};

class SuperTremComponent final : public AudioEffectComponent {
public:
    explicit SuperTremComponent(SuperTremAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
};

}  // namespace quillworks
