// SPDX-License-Identifier: ISC
// Multiband Dynamics: two to five bands, each with a part above one threshold and a part below
// another, without latency or without phase.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "dsp/delay_line.h"
#include "dsp/gliding_course.h"
#include "dynamics/band_channels.h"
#include "dynamics/band_learner.h"
#include "dynamics/band_switches.h"
#include "dynamics/gain_computer.h"
#include "dynamics/gain_history.h"
#include "dynamics/key_rows.h"
#include "dynamics/peak_hold.h"
#include "dynamics/reversed_all_pass.h"
#include "framework/editor_levels.h"
#include "framework/effect_component.h"
#include "framework/grounded_display.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct MultiBandSettings {
    float bands;                                                // 2 .. 5
    float split[kMaxBands - 1];                                 // Hz
    float linear;                                               // switch
    float stereo;                                               // a KeySharing
    float bandOn[kMaxBands], solo[kMaxBands], mute[kMaxBands];  // switches
    float threshold[kMaxBands];                                 // dB
    float slope[kMaxBands];                                     // 1 - 1/ratio
    float lowThreshold[kMaxBands];                              // dB
    float lowRatio[kMaxBands];
    float range[kMaxBands];                       // dB
    float attack[kMaxBands], release[kMaxBands];  // seconds
    float gain[kMaxBands];                        // dB
    float knee;                                   // dB, half-width
    float amount;                                 // factor of the decibels
    float lookAhead, learn;                       // switches
    float mix;                                    // fraction processed
    float outGain;                                // dB
    float learnings;                              // how often it has been pressed
    float editorOpen;                             // switch
};

template <typename T> class MultiBandCore {
public:
    using Settings = MultiBandSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Structure = 1,
        Splits = 2,
        Curves = 4,
        Times = 8,
        Switches = 16,
        Stereo = 32,
        Gains = 64,
        Mixing = 128,
        Learning = 256,
        Editor = 512,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setCapture(CaptureRing& ring) noexcept { history_.setRing(ring); }
    void setGround(CaptureRing& ring) noexcept { ground_ = &ring; }

private:
    /// What cannot change but in silence.
    struct Form {
        int bands = 4;
        bool isLinear = false, looksAhead = false;

        bool operator==(const Form&) const = default;
    };
    /// Detectors of one sharing of keys, and the gains they give.
    struct Bank {
        PeakHold above;
        TroughHold below;
        KeyRows<T> gains, low;
        bool isIdle = false;  // no gain moves
    };
    /// Static curves of a band.
    struct BandLaw {
        CompressionCurve above;  // of the magnitude
        T aboveSign = -1;        // of what it gives, in dB
        T lowThreshold = 0;      // dB
        T lowSlope = 0;          // |ratio - 1|, dB per dB below
        T lowSign = -1;
        T mostLow = 0;  // dB
    };
    /// Gains of two channels; `cross` is what each takes of the other.
    struct Matrix {
        const T *left, *right, *cross;  // cross: null for none
    };

    Bank& bank(KeySharing sharing) noexcept { return banks_[static_cast<int>(sharing)]; }
    int latency() const noexcept;
    void adopt() noexcept;
    void updateTimes() noexcept;
    void updateCurves() noexcept;
    void updateSwitches() noexcept;
    void processSlice(const AudioBlock<T>& part) noexcept;
    void measureKeys(KeyRows<T>& rows, int n) noexcept;
    void gather(GridSlice slice) noexcept;
    bool runsBelow(GridSlice slice) noexcept;
    void detect(KeySharing sharing, GridSlice slice, bool isPresent) noexcept;
    void combine(Bank& bank, bool hasBelow, GridSlice slice, bool isPresent) noexcept;
    const T* delayed(int band, int channel, int n) noexcept;
    void applyGains(const AudioBlock<T>& part) noexcept;
    void applyToPair(int band, int n) noexcept;
    Matrix matrix(KeySharing sharing, int band, T (*room)[kSubBlock], int n) noexcept;

    double sampleRate_ = 44100;
    Settings settings_{};
    Form present_, wanted_;
    Dip dip_;
    BandChannels<T> channels_;
    ReversedAllPass<T> reversed_;
    std::vector<DelayLine<T>> lookAhead_;  // by channel and band
    Bank banks_[3];
    Switch<KeySharing> sharing_;
    BandLaw law_[kMaxBands];
    bool asksBelow_ = false;   // a band has a ratio below its low threshold
    bool restsBelow_ = false;  // nothing of it moves, for the open sub-block
    GlidingCourse<T> gain_[kMaxBands], range_[kMaxBands];  // dB
    GlidingCourse<T> amount_;
    GlidingCourse<T> outGain_;  // set in dB, linear
    Smoothed<T> mix_;
    Course<T> mixCourse_;
    BandSwitches<T> switches_;
    BandLearner learner_;
    bool isLearning_ = false;
    float learnings_ = 0;
    EditorLevels levels_;
    struct Meter {
        T change = 0;  // dB, the farthest from 0
        T power = 0;
    };
    Meter seen_[kMaxBands];   // of the slice
    Meter meter_[kMaxBands];  // of the call
    GainCapture<kMaxBands> history_;
    CaptureRing* ground_ = nullptr;  // of the output
};

class MultiBandCompressorAlgorithm final
    : public GroundedAlgorithm<MultiBandCore, GainHistory, AudioSideChainInsertAlgorithm> {
public:
    MultiBandCompressorAlgorithm();
};

class MultiBandComponent final : public GroundedComponent<MultiBandCompressorAlgorithm> {
public:
    explicit MultiBandComponent(MultiBandCompressorAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;

    int bands_, phase_, lookAhead_, threshold_;  // indices
    int learned_;                                // of the meters, the first
    std::atomic<std::uint32_t> learnings_{0};
};

}  // namespace quillworks
