// SPDX-License-Identifier: ISC
// Flanger: a comb that moves, with feedback in tune with it, and through zero if wanted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "dsp/course.h"
#include "dsp/crossfade.h"
#include "dsp/delay_line.h"
#include "dsp/dry_wet.h"
#include "dsp/farrow_line.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "modulation/moving_delay.h"
#include "modulation/song_lfo.h"

namespace quillworks {

struct FlangerSettings {
    float delay, depth;  // s
    float throughZero;   // a switch
    float feedback;      // -1 .. 1
    float damp;          // Hz
    float invert;        // a switch
    float lfoSync;       // follows the song while not 0
    float lfoBeats;      // note value of a period
    float lfoRate;       // Hz
    float wave;          // an LfoWave
    float stereo;        // degrees
    float mix;           // 0 .. 1
};

/// Each channel has a line into which its output returns. Its delay r moves with the control grid
/// and runs linearly in between. No tap lies nearer than 13 samples: below, the delay turns round,
/// which sounds as a sweep that goes on, since a comb's magnitude is even in its delay. Through
/// zero the dry signal is late instead, and r is negative while the copy is ahead of it.
template <typename T> class FlangerCore {
public:
    using Settings = FlangerSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned { Time = 1, Way = 2, Feedback = 4, Damping = 8, Lfo = 16, Mix = 32 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept { lfo_.setTempo(beatsPerMinute); }
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    enum Phase : std::size_t { Left, Right, kPhases };  // middle channels go with the left ones

    struct Channel {
        Phase phase = Left;
        DelayLine<T> dry;
        T low = 0;  // what the damping remembers
    };
    /// How the delay of a tap follows from that of the comb: the comb's, which turns round at a
    /// point or goes on, and an offset. In the loop it makes up for the damping.
    struct TapLaw {
        std::int64_t offset = 0, turn = 0;
        bool turns = false, isInLoop = false;
    };
    /// Delays of a tap over a sub-block, in samples of 2^-32: evenly spaced, or frame by frame
    /// where it turns round.
    struct TapPath {
        bool isEven = true;
        std::int64_t first = 0, step = 0;
        std::array<std::int64_t, kSubBlock> at{};

        std::int64_t least() const noexcept;
    };
    struct TapPaths {
        TapPath heard, loop;
    };
    /// Of the way past zero and, while it changes, of the one before.
    using Ways = std::array<TapPaths, 2>;

    void begin(int offset) noexcept;
    void moveDelays() noexcept;
    void moveFeedback() noexcept;
    void moveDamping() noexcept;
    void layTaps() noexcept;
    TapLaw heardLaw(bool throughZero) const noexcept;
    static TapLaw loopLaw(bool throughZero) noexcept;
    void lay(const TapLaw& law, Phase phase, TapPath& path) const noexcept;
    void read(TapPath TapPaths::*tap, std::size_t way, int at, std::int64_t later, int n,
              T* const* out) noexcept;
    void processSlice(const AudioBlock<T>& part, int offset) noexcept;
    void feedBack(const AudioBlock<T>& part, int done, int n) noexcept;
    void hear(const AudioBlock<T>& part) noexcept;
    void output(const AudioBlock<T>& part) noexcept;
    template <std::size_t count>
    void damp(T* const* x, Channel* channels, int phase, int n) const noexcept;
    float heard(Phase phase) const noexcept;
    const T* dryOf(Channel& channel, int n, T* faded) const noexcept;
    const Ways& waysOf(Phase phase) const noexcept { return ways_[together_ ? Left : phase]; }
    int delayOfDry(bool throughZero) const noexcept { return throughZero ? zero_ : 0; }

    double sampleRate_ = 48000;
    int zero_ = 0;  // delay of the dry signal through zero, in samples
    bool isFresh_ = true;
    std::vector<Channel> channels_;
    std::vector<T> loops_, leavings_;  // kSubBlock frames per channel: taps in the loop, and of the
                                       // way that is left
    std::vector<T*> outs_, backs_, olds_;
    std::vector<typename FarrowLine<T>::Tap> taps_;
    FarrowLine<T> line_;

    SongLfo lfo_;
    std::array<LfoVoice, kPhases> voices_;
    Smoothed<double> delay_, depth_, stereo_;
    std::array<MovingDelay, kPhases> delays_;
    bool together_ = true;  // both phases have the same delays
    std::array<Ways, kPhases> ways_;
    Switch<bool> throughZero_;

    Smoothed<T> feedback_, sign_;
    Course<T> feedbacks_, wetGains_;
    bool isLoopHeard_ = false;  // the tap that is heard is the one in the loop
    int run_ = 1;               // frames that the loop can be read ahead
    int lastFrame_ = 0;         // of the open sub-block

    Smoothed<double> octave_, damped_;  // damping: log2 of the frequency, share of its output
    Course<T> dampKeep_, dampStep_, dampLow_, dampDirect_;
    MovingDelay dampDelay_;  // at low frequencies
    bool damps_ = false;

    DryWet<T> dryWet_;
};

class FlangerAlgorithm final : public PrecisionAlgorithm<FlangerCore> {
public:
    FlangerAlgorithm();
};

class FlangerComponent final : public AudioEffectComponent {
public:
    explicit FlangerComponent(FlangerAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
