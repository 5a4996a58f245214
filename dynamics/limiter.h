// SPDX-License-Identifier: ISC
// Limiter: look-ahead peak or true-peak limiting below a ceiling, with a soft clipper.
#pragma once

#include "dynamics/limiter_engine.h"
#include "framework/editor_levels.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct LimiterSettings {
    float inputGain;       // linear
    float ceiling;         // dB
    float threshold;       // dB relative to the ceiling
    float attackSeconds;   // of the body
    float releaseSeconds;  // of the body
    float fastFall;        // on: the gain recovers within the period of a low tone
    float wall;            // on: what the attack leaves is clipped, not dipped
    float truePeak;        // on: limits what lies between the samples
    float programme;       // on: release by programme
    float ratio = 2;       // of the curve above the threshold, while the wall is in use
    float editorOpen;      // switch
};

template <typename T> class LimiterCore {
public:
    using Settings = LimiterSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Gains = 1,
        Curve = 2,
        Times = 4,
        Hold = 8,
        Clip = 16,
        Mode = 32,
        Detector = 64,
        ResetHold = 128,
        Editor = 256
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    LimiterEngine engine_;
    EditorLevels levels_;
    double most_ = 0;              // dB, largest reduction since the hold was reset
    float absoluteThreshold_ = 0;  // dB
};

class LimiterAlgorithm final : public PrecisionAlgorithm<LimiterCore> {
public:
    LimiterAlgorithm();
};

class LimiterComponent final : public AudioEffectComponent {
public:
    explicit LimiterComponent(LimiterAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
