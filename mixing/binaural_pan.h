// SPDX-License-Identifier: ISC
// Binaural pan: one or two sources anywhere around a head, with a small room, for headphones or two
// loudspeakers.
#pragma once

#include <array>

#include "dsp/crossfade.h"
#include "dsp/follower.h"
#include "dsp/pair_power.h"
#include "dsp/phase_correlation.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "framework/stereo_field_engine.h"
#include "mixing/binaural_source.h"
#include "mixing/crosstalk_canceller.h"
#include "mixing/image_taps.h"
#include "mixing/late_room.h"

namespace quillworks {

struct PanToolSettings {
    float azimuth, elevation, width;  // degrees
    float distance;                   // m
    float room, timing;               // 0 .. 1
    float head;                       // radius, cm
    float playback;                   // 0: headphones, 1: loudspeakers
    float speakerAngle;               // degrees
};

template <typename T> class PanToolCore {
public:
    using Settings = PanToolSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned { Place = 1, Room = 2, Speakers = 4 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setCapture(CaptureRing& ring) noexcept { ring_ = &ring; }

private:
    /// Of one slice: up to two sources, or both ears.
    struct Pair {
        T samples[2][kSubBlock];
        T* channels[2] = {samples[0], samples[1]};
    };

    void processSlice(const AudioBlock<T>& slice) noexcept;
    void addRoom(const Pair& sources, Pair& ears, GridSlice slice) noexcept;
    void feedSpeakers(Pair& ears, GridSlice slice) noexcept;
    void measure(const Pair& ears, GridSlice slice) noexcept;

    int inputs_ = 2, outputs_ = 2;
    std::array<BinauralSource<T>, 2> sources_;
    EarFilters<T> filters_;  // of both ears, source by source
    ImageTaps<T> images_;
    LateRoom<T> late_;
    Smoothed<T> room_;  // linear
    Course<T> roomCourse_;
    bool isRoomOpen_ = false;
    Switch<bool> onSpeakers_;
    CrosstalkCanceller<T> canceller_;

    std::array<T, 2> peaks_{};  // of what leaves, since publish()
    PairPower<T> power_;        // of the ears
    PhaseCorrelation correlation_;
    PowerFollower mono_, mean_;
    CaptureRing* ring_ = nullptr;  // of the output
};

class PanToolAlgorithm final : public DisplayAlgorithm<PanToolCore, StereoFieldEngine> {
public:
    PanToolAlgorithm();
    /// Mono or stereo as it is, and a single channel to left and right.
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;
};

class PanToolComponent final : public DisplayComponent<PanToolAlgorithm> {
public:
    explicit PanToolComponent(PanToolAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
