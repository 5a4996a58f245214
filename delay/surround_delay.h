// SPDX-License-Identifier: ISC
// Surround delay: echoes of a whole bus, or of one source, that walk from speaker to speaker.
#pragma once

#include <array>
#include <atomic>

#include "delay/echo_algorithm.h"
#include "delay/echo_entry.h"
#include "delay/echo_output.h"
#include "delay/echo_pattern.h"
#include "delay/feedback_network.h"
#include "dsp/gliding_course.h"
#include "dsp/hull_panner.h"
#include "framework/effect_component.h"

namespace quillworks {

struct SurroundDelaySettings : EchoSettings {
    float sync;     // a note value instead of a time while not 0
    float beats;    // note value
    float time;     // s
    float source;   // 0 as played, 1 a point
    float start;    // degrees clockwise from the front
    float height;   // degrees
    float pattern;  // an EchoPattern
    float stagger;  // -0.5 .. 0.5
    float centre;   // the centre speaker has echoes while not 0
    float lfe;      // linear gain
};

/// A line per speaker. While the centre has no echoes, what comes in there goes to left and right,
/// and no way leads through it: dialogue stays free.
template <typename T> class SurroundDelayCore {
public:
    using Settings = SurroundDelaySettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned {
        Time = Settings::kFirstOwnGroup,
        Way = 2 * Settings::kFirstOwnGroup,
        Place = 4 * Settings::kFirstOwnGroup,
        Lfe = 8 * Settings::kFirstOwnGroup
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;
    void setWetOnly(bool wetOnly) noexcept { output_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { output_.publish(meters, network_.lines()); }

private:
    struct Entrance {
        bool isPoint = false, hasCentre = true;

        bool operator==(const Entrance&) const = default;
    };
    /// A gain for each channel.
    using Gains = std::array<GlidingCourse<T>, kMostEchoChannels>;

    struct Channel {
        bool isLfe = false;
        double rear = 0;  // 0 in front .. 1 behind: its share of the stagger
        T inPoint = 0;    // its share of the point's signal
    };

    void updateTimes() noexcept;
    void updateGains() noexcept;
    void preparePoint(const AudioBlock<T>& part) noexcept;
    void enter(const Entrance& entrance, const AudioBlock<T>& part, const ChannelRows<T>& rows,
               ChannelList<const T>& in) const noexcept;
    void foldCentre(const AudioBlock<T>& part, const ChannelRows<T>& rows,
                    ChannelList<const T>& in) const noexcept;
    void leave(GridSlice slice) noexcept;

    int channels_ = 0;
    int left_ = -1, right_ = -1,
        centre_ = -1;  // centre: -1 if there is none that could be left out
    std::array<Channel, kMostEchoChannels> channel_;
    /// By pattern, without and with the centre.
    std::array<std::array<std::array<int, kMostEchoChannels>, 2>, kEchoPatterns> orders_;
    HullPanner panner_;
    std::array<int, kMostEchoChannels> speakers_{};  // the panner's, as channels
    SurroundDelaySettings settings_{};
    double tempo_ = 120;
    FeedbackNetwork<T> network_;
    EchoOutput<T> output_;
    EchoEntry<T, Entrance> entry_;
    std::array<Gains, 2> gains_;  // of a point, without and with the centre
    GlidingCourse<T> lfe_;
    ChannelRows<T> echoes_;
    bool hasPoint_ = false;  // in the open sub-block
    T point_[kSubBlock]{};
    ChannelList<T> block_{};
};

class SurroundDelayAlgorithm final : public EchoAlgorithm<SurroundDelayCore> {
public:
    SurroundDelayAlgorithm();
};

/// Keeps time and note value together when sync is switched.
class SurroundDelayComponent final : public AudioEffectComponent {
public:
    explicit SurroundDelayComponent(SurroundDelayAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void reconcile() noexcept override;
    Delays delays(double sampleRate) const noexcept override;

    SurroundDelayAlgorithm& of_;
    std::atomic<float> farthest_{0};  // share of the stagger of the rearmost speaker
};

}  // namespace quillworks
