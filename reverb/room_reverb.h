// SPDX-License-Identifier: ISC
// Room Reverb: a room by shape and size, heard from a distance, with decay drawn over frequency.
#pragma once

#include "framework/effect_component.h"
#include "reverb/early_reflections.h"
#include "reverb/room_decay.h"
#include "reverb/tank.h"
#include "reverb/wet_path.h"

namespace quillworks {

struct RoomReverbSettings : ReverbSettings {
    float shape = 0;        // a RoomShape
    float size = 12;        // m
    float distance = 0.4f;  // 0 .. 1
    float decay = 1.4f;     // s, at 1 kHz
    float lowDecay = 1, highDecay = 1;
    float lowFrequency = 250, highFrequency = 4500;  // Hz
    float air = 0;                                   // on while not 0
    float diffusion = 0.8f;                          // 0 .. 1
    float motion = 0.5f;                             // 0 .. 1
    float early = 1, late = 1;                       // linear
    float freeze = 0;                                // on while not 0

    /// What follows from the knobs of the decay.
    RoomDecay roomDecay() const noexcept;
};

template <typename T> class RoomReverbCore {
public:
    using Settings = RoomReverbSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned {
        Room = Settings::kFirstOwnGroup,
        Decay = 2 * Settings::kFirstOwnGroup,
        Lines = 4 * Settings::kFirstOwnGroup,
        Level = 8 * Settings::kFirstOwnGroup,
        Freeze = 16 * Settings::kFirstOwnGroup
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept { path_.setTempo(beatsPerMinute); }
    void setWetOnly(bool wetOnly) noexcept { path_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { path_.publish(meters); }

private:
    void reverberate(const T* const* in, T* const* out, GridSlice slice) noexcept;

    WetPath<T> path_;
    EarlyReflections<T> reflections_;
    Tank<T> tank_;
    Smoothed<T> early_, late_;  // linear
    Course<T> earlies_, lates_;
};

class ReverbAlgorithm final : public WetPathAlgorithm<RoomReverbCore> {
public:
    ReverbAlgorithm();
};

/// Keeps pre-delay and its note value together when sync is switched.
class ReverbComponent final : public AudioEffectComponent {
public:
    explicit ReverbComponent(ReverbAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
