// SPDX-License-Identifier: ISC
// Overdrive: the voicing of a pedal that drives the middle and leaves the bass clean.
#pragma once

#include <vector>

#include "distortion/saturator.h"
#include "dsp/delay_line.h"
#include "dsp/gliding_course.h"
#include "dsp/section_chain.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct OverdriveSettings {
    float drive;  // dB
    float tone;   // 0 .. 1
    float level;  // dB
};

/// What lies above 720 Hz is driven and added to the whole input; a low-pass of first order behind.
template <typename T> class OverdriveCore {
public:
    using Settings = OverdriveSettings;
    static constexpr CoreHooks kHooks{};
    enum Group : unsigned { Drive = 1, Tone = 2, Level = 4 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;

private:
    void processSlice(const AudioBlock<T>& part) noexcept;
    void layTone(bool glides) noexcept;

    double sampleRate_ = 44100;
    SectionChain<T> highPass_, lowPass_;
    Saturator<T> saturator_;
    Smoothed<double> tone_;  // octaves
    GlidingCourse<T> level_;
    std::vector<DelayLine<T>> clean_;
    std::vector<const T*> delayed_;
    std::vector<T*> driven_;
};

class OverdriveAlgorithm final : public PrecisionAlgorithm<OverdriveCore> {
public:
    OverdriveAlgorithm();
};

class OverdriveComponent final : public AudioEffectComponent {
public:
    explicit OverdriveComponent(OverdriveAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
