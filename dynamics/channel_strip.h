// SPDX-License-Identifier: ISC
// Channel Strip: low cut, four bands, gate and compressor in one unit without latency.
#pragma once

#include <vector>

#include "dsp/crossfade.h"
#include "dsp/gliding_course.h"
#include "dynamics/strip_dynamics.h"
#include "dynamics/strip_equaliser.h"
#include "framework/editor_levels.h"
#include "framework/effect_component.h"
#include "framework/peak_levels.h"
#include "framework/precision_algorithm.h"
#include "framework/spectrum_ground.h"

namespace quillworks {

struct SimpleStripSettings {
    float inputGain, outputGain, makeUp;                                   // dB
    float polarity;                                                        // switch
    float lowCut, lowCutSlope;                                             // Hz, choice
    float equaliserOn;                                                     // switch
    float lowFrequency, lowMidFrequency, highMidFrequency, highFrequency;  // Hz
    float lowGain, lowMidGain, highMidGain, highGain;                      // dB
    float lowMidQ, highMidQ;
    float lowBell, highBell;                      // switches
    float order;                                  // choice of SimpleStripCore::Order
    float gateOn;                                 // switch
    float gateThreshold, gateRange, gateRelease;  // dB, dB, seconds
    float compressorOn;                           // switch
    float threshold, slope, attack, release;      // dB, 1 - 1/ratio, seconds
    float editorOpen;                             // switch
};

template <typename T> class SimpleStripCore {
public:
    using Settings = SimpleStripSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Gains = 1,
        Polarity = 2,
        Cut = 4,
        Bands = 8,
        Path = 16,
        Gate = 32,
        Compressor = 64,
        Editor = 128,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setCapture(CaptureRing& ring) noexcept { ring_ = &ring; }

private:
    /// Equaliser and dynamics of one path; two of them run while paths are cross-faded.
    struct Run {
        StripEqualiser<T> equaliser;
        StripDynamics<T> dynamics;
    };

    Run& run() noexcept { return runs_[present_]; }
    void processSlice(const AudioBlock<T>& part) noexcept;
    void nextPath(GridSlice slice) noexcept;
    void process(Run& run, const StripPath& path, T* const* x, GridSlice slice) noexcept;
    void applyDynamics(StripDynamics<T>& dynamics, T* const* x, GridSlice slice) noexcept;
    void turn(T* x, int n) const noexcept;

    int channelCount_ = 0;
    GlidingCourse<T> inputGain_, outputGain_, makeUp_;
    Switch<bool> isTurned_;  // polarity
    StripCourses courses_;
    Switch<StripPath> path_;
    Run runs_[2];
    int present_ = 0;
    std::vector<T> leaving_;  // channel by channel, a sub-block of the path that is being left
    EditorLevels levels_;
    PeakLevels<T> peaks_;
    CaptureRing* ring_ = nullptr;  // of the output
};

/// Display ".spectrum": what is put out.
class SimpleStripAlgorithm final : public DisplayAlgorithm<SimpleStripCore, SpectrumGround> {
public:
    SimpleStripAlgorithm();
};

class SimpleStripComponent final : public DisplayComponent<SimpleStripAlgorithm> {
public:
    explicit SimpleStripComponent(SimpleStripAlgorithm& algorithm);
};

}  // namespace quillworks
