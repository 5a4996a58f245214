// SPDX-License-Identifier: ISC
// Beat delay: echoes on the beat of left and right, straight, crossing or in ping-pong.
#pragma once

#include "delay/echo_algorithm.h"
#include "delay/echo_entry.h"
#include "delay/echo_output.h"
#include "delay/feedback_network.h"
#include "dsp/stereo_width.h"
#include "framework/effect_component.h"
#include "framework/speakers.h"

namespace quillworks {

struct BeatDelaySettings : EchoSettings {
    float sync;               // note values instead of times while not 0
    float beats, beatsRight;  // note values
    float time, timeRight;    // s
    float link;               // right as left while not 0
    float offset;             // s
    float routing;            // a BeatRouting
    float width;              // 0 .. 1
};

enum class BeatRouting { Stereo, Cross, PingPongLeft, PingPongRight };

/// Each pair of speakers has the left and the right delay; what is in no pair repeats in its place
/// after the left one.
template <typename T> class BeatDelayCore {
public:
    using Settings = BeatDelaySettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned {
        Time = Settings::kFirstOwnGroup,
        Routing = 2 * Settings::kFirstOwnGroup,
        Width = 4 * Settings::kFirstOwnGroup
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;
    void setWetOnly(bool wetOnly) noexcept { output_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { output_.publish(meters, network_.lines()); }

private:
    void updateTimes() noexcept;
    void enter(BeatRouting routing, const AudioBlock<T>& part, const ChannelRows<T>& rows,
               ChannelList<const T>& in) const noexcept;
    void narrow(T* const* echoes, GridSlice slice) noexcept;

    int channels_ = 0;
    ChannelPairs pairs_;
    BeatDelaySettings settings_{};
    double tempo_ = 120;
    FeedbackNetwork<T> network_;
    EchoOutput<T> output_;
    EchoEntry<T, BeatRouting> entry_;
    StereoWidth<T> width_;
    ChannelRows<T> echoes_;
    ChannelList<T> block_{};
};

class BeatDelayAlgorithm final : public EchoAlgorithm<BeatDelayCore> {
public:
    BeatDelayAlgorithm();
};

/// Keeps times and note values together when sync is switched.
class BeatDelayComponent final : public AudioEffectComponent {
public:
    explicit BeatDelayComponent(BeatDelayAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
