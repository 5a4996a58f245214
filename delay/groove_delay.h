// SPDX-License-Identifier: ISC
// Groove Delay: a rhythm of eight taps on a grid with swing, repeating as a whole.
#pragma once

#include "delay/echo_algorithm.h"
#include "delay/echo_output.h"
#include "delay/feedback_network.h"
#include "delay/tap_bank.h"
#include "framework/effect_component.h"

namespace quillworks {

struct RhythmDelaySettings : EchoSettings {
    static constexpr int kTaps = kBankTaps;

    float sync;             // note values instead of times while not 0
    float grid;             // note value of a step
    float stepTime;         // s
    float swing;            // share of a pair of steps that the first one takes
    float length;           // steps
    float tapOn[kTaps];     // switches
    float tapStep[kTaps];   // steps
    float tapLevel[kTaps];  // linear
    float tapPan[kTaps];    // -1 .. 1
    float tapTone[kTaps];   // -1 .. 1
};

/// Works on the first pair of speakers, or on a single channel; others pass.
template <typename T> class RhythmDelayCore {
public:
    using Settings = RhythmDelaySettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned { Time = Settings::kFirstOwnGroup, Taps = 2 * Settings::kFirstOwnGroup };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;
    void setWetOnly(bool wetOnly) noexcept { output_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    void updateTimes() noexcept;
    void listen(GridSlice run, int offset) noexcept;

    int first_ = 0, second_ = 1;  // channels
    int lines_ = 0;               // 1 or 2
    RhythmDelaySettings settings_{};
    double tempo_ = 120;
    FeedbackNetwork<T> network_;
    TapBank<T> taps_;
    EchoOutput<T> output_;
    ChannelRows<T> echoes_, loop_;
};

class RhythmDelayAlgorithm final : public EchoAlgorithm<RhythmDelayCore> {
public:
    RhythmDelayAlgorithm();
};

/// Keeps time and note value together when sync is switched.
class RhythmDelayComponent final : public AudioEffectComponent {
public:
    explicit RhythmDelayComponent(RhythmDelayAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;

    int firstOn_, firstStep_;  // indices
};

}  // namespace quillworks
