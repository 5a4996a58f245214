// SPDX-License-Identifier: ISC
// EmberDist: drive from a trace of warmth to fuzz that neither aliases nor changes the level.
#pragma once

#include <vector>

#include "distortion/dynamics_restorer.h"
#include "distortion/saturator.h"
#include "dsp/cut_filters.h"
#include "dsp/dry_wet.h"
#include "dsp/gliding_course.h"
#include "framework/effect_component.h"
#include "framework/peak_levels.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct EmberDistSettings {
    float drive;       // dB
    float character;   // a Saturation
    float bias;        // -1 .. 1
    float tight;       // Hz
    float highCut;     // Hz
    float tone;        // -1 .. 1
    float dynamics;    // 0 .. 1
    float levelMatch;  // switch
    float mix;         // 0 .. 1
    float output;      // dB
};

template <typename T> class EmberDistCore {
public:
    using Settings = EmberDistSettings;
    static constexpr CoreHooks kHooks{.wetOnly = true, .publish = true};
    enum Group : unsigned {
        Drive = 1,
        Curve = 2,
        Filters = 4,
        Tone = 8,
        Dynamics = 16,
        Mix = 32,
        Output = 64
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    void processSlice(const AudioBlock<T>& part) noexcept;
    void tilt(GridSlice slice) noexcept;

    double sampleRate_ = 44100;
    CutFilters<T> lowCut_, highCut_;
    Saturator<T> saturator_;
    Smoothed<double> tone_;  // dB at low frequencies
    bool isTilted_ = false;  // in the open sub-block
    SectionChain<T> tilt_;
    DynamicsRestorer<T> restorer_;
    DryWet<T> dryWet_;
    GlidingCourse<T> output_;
    std::vector<T> undelayed_;  // dry signals where there is no latency, kSubBlock per channel
    std::vector<T*> wet_;
    std::vector<const T*> dry_;
    PeakLevels<T> peaks_;
};

class SimpleDistAlgorithm final : public PrecisionAlgorithm<EmberDistCore> {
public:
    SimpleDistAlgorithm();
};

class SimpleDistComponent final : public AudioEffectComponent {
public:
    explicit SimpleDistComponent(SimpleDistAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
