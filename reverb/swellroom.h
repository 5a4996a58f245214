// SPDX-License-Identifier: ISC
// Swellroom: a light, dense reverberation for many channels, which can swell in behind the sound.
#pragma once

#include "reverb/tank.h"
#include "reverb/wet_path.h"

namespace quillworks {

struct SwellroomSettings : ReverbSettings {
    float size;    // 0 .. 1
    float decay;   // s
    float swell;   // 0 .. 1
    float damp;    // 0 .. 1
    float warmth;  // -1 .. 1
};

/// A tank whose lines have a shelf for the lows and one for the highs. Swell puts a second, smaller
/// tank with a shorter decay in front: of two exponential decays in series the energy rises first,
/// to a peak at ln(T/T1)/(13.8/T1 - 13.8/T), and falls in the end with the longer time.
template <typename T> class SwellroomCore {
public:
    using Settings = SwellroomSettings;
    static constexpr CoreHooks kHooks{.wetOnly = true, .publish = true};
    enum Group : unsigned {
        Size = Settings::kFirstOwnGroup,
        Decay = 2 * Settings::kFirstOwnGroup,
        Swell = 4 * Settings::kFirstOwnGroup
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setWetOnly(bool wetOnly) noexcept { path_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { path_.publish(meters); }

private:
    void reverberate(const T* const* in, T* const* out, GridSlice slice) noexcept;
    bool swell(const T* const* in, T* const* out, GridSlice slice) noexcept;

    WetPath<T> path_;
    Tank<T> tank_, swellTank_;
    bool isSwelling_ = false;               // the second tank runs
    Smoothed<T> direct_, swelled_, level_;  // gains: past the second tank, behind it, at the end
    Course<T> directs_, swelleds_, levels_;
};

class SwellroomAlgorithm final : public WetPathAlgorithm<SwellroomCore> {
public:
    SwellroomAlgorithm();
};

class SwellroomComponent final : public AudioEffectComponent {
public:
    explicit SwellroomComponent(SwellroomAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
