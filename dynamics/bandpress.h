// SPDX-License-Identifier: ISC
// Bandpress: three-band compressor without latency, one knob deep.
#pragma once

#include "dsp/gliding_course.h"
#include "dynamics/band_channels.h"
#include "dynamics/band_switches.h"
#include "dynamics/gain_computer.h"
#include "dynamics/gain_history.h"
#include "dynamics/key_rows.h"
#include "dynamics/peak_hold.h"
#include "framework/editor_levels.h"
#include "framework/effect_component.h"
#include "framework/grounded_display.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct TriBandSettings {
    static constexpr int kBands = 3;

    float press;                                       // dB that the thresholds are lowered by
    float freqLow, freqHigh;                           // Hz
    float threshold[kBands];                           // dB
    float slope[kBands];                               // 1 - 1/ratio
    float gain[kBands];                                // dB
    float bandOn[kBands], solo[kBands], mute[kBands];  // switches
    float attack, release;                             // seconds
    float bandTimes;                                   // switch
    float knee;                                        // dB, half-width
    float autoGain, linked;                            // switches
    float mix;                                         // fraction compressed
    float outGain;                                     // dB
    float editorOpen;                                  // switch
};

template <typename T> class TriBandCore {
public:
    using Settings = TriBandSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Splits = 1,
        Curves = 2,
        Times = 4,
        Switches = 8,
        Linking = 16,
        Mixing = 32,
        Editor = 64,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setCapture(CaptureRing& ring) noexcept { history_.setRing(ring); }
    void setGround(CaptureRing& ring) noexcept { ground_ = &ring; }

private:
    static constexpr int kBands = TriBandSettings::kBands;

    struct Meter {
        T reduction = 0;  // dB, the largest of a time
        T power = 0;
    };
    /// Detectors of one sharing of keys, and the gains they give.
    struct Bank {
        PeakHold hold;
        KeyRows<T> gains;
        bool isIdle = false;  // nothing is reduced

        void prepare(int sets)
        {
            hold.prepare(sets * kBands);
            gains.prepare(sets * kBands);
            gains.shape(sets, kBands);
        }
    };
    Bank& bank(KeySharing sharing) noexcept
    {
        return sharing == KeySharing::Linked ? linked_ : apart_;
    }
    void processSlice(const AudioBlock<T>& part) noexcept;
    void detect(KeySharing sharing, GridSlice slice, bool isMetered) noexcept;
    void keep(const Meter (&seen)[kBands], GridSlice slice) noexcept;
    void applyGains(const AudioBlock<T>& part) noexcept;

    double sampleRate_ = 44100;
    BandChannels<T> channels_;
    Bank linked_, apart_;
    Switch<KeySharing> sharing_;
    CompressionCurve curve_[kBands];
    GlidingCourse<T> gain_[kBands];  // dB, make-up included
    GlidingCourse<T> outGain_;       // set in dB, linear
    Smoothed<T> mix_;
    Course<T> mixCourse_;
    BandSwitches<T> switches_;
    EditorLevels levels_;
    Meter meter_[kBands];
    GainCapture<kBands> history_;
    CaptureRing* ground_ = nullptr;  // of the output
};

class TriBandCompressorAlgorithm final
    : public GroundedAlgorithm<TriBandCore, GainHistory, AudioSideChainInsertAlgorithm> {
public:
    TriBandCompressorAlgorithm();
};

class TriBandComponent final : public GroundedComponent<TriBandCompressorAlgorithm> {
public:
    explicit TriBandComponent(TriBandCompressorAlgorithm& algorithm);
};

}  // namespace quillworks
