// SPDX-License-Identifier: ISC
// Compressor: adaptive two-band detector, soft knee, look-ahead that releases behind the delay,
// filtered or external side-chain.
#pragma once

#include <vector>

#include "dsp/dry_wet.h"
#include "dsp/zero_crossing_gain.h"
#include "dynamics/gain_computer.h"
#include "dynamics/level_detector.h"
#include "dynamics/lookahead.h"
#include "dynamics/sidechain_component.h"
#include "dynamics/sidechain_filter.h"
#include "framework/editor_levels.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct CompressorSettings {
    float slope;            // 1 - 1/ratio
    float threshold;        // dB
    float knee;             // half-width, dB
    float autoGain;         // switch: make-up from slope and threshold
    float gain;             // make-up, dB
    float inputGain;        // linear
    float autoSpeed;        // switch
    float attack, release;  // seconds
    float adaptive;         // switch
    float filter, listen;   // switches
    float lowCut, highCut;  // Hz
    float linked;           // switch
    float lookAhead;        // switch
    float mix;              // fraction wet
    float editorOpen;       // switch
};

/// Make-up gain in dB, 0 .. 35, for a slope and a threshold in dB: a fit by ear, chosen so that
/// programme material keeps about its loudness.
float autoMakeUp(float slope, float threshold) noexcept;

template <typename T> class CompressorCore {
public:
    using Settings = CompressorSettings;
    static constexpr CoreHooks kHooks{.wetOnly = true, .publish = true};
    enum Group : unsigned {
        Curve = 1,
        Times = 2,
        Filters = 4,
        Switches = 8,
        Gains = 16,
        LookAheadSwitch = 32,
        Editor = 64,
        ResetMinimum = 128,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setWetOnly(bool wetOnly) noexcept { mixer_.setWetOnly(wetOnly); }

private:
    struct Coefficients {  // one set for all channels
        CompressionCurve curve;
        double makeUpDb = 0;
        double gainRelease = 0;  // per sample, of the gain computer
        bool adaptive = true, autoSpeed = false;
        bool filter = false, listen = false;
        bool linked = true, lookAhead = false;
    };
    struct Channel {
        LevelDetector detector;
        GainComputer computer;
        ZeroCrossingGain<T> inputGain;
        LookAhead<T> lookAhead;
    };

    void processSlice(const AudioBlock<T>& part) noexcept;
    void applyInputGain(const AudioBlock<T>& part) noexcept;
    void takeKey(double* key, const AudioBlock<T>& part, int c) const noexcept;
    void setAdaptive(bool isAdaptive) noexcept;
    void setFilter(bool isOn) noexcept;
    void setLinked(bool isLinked) noexcept;
    bool detect(Channel& channel, const double* key, T* gain, GridSlice slice) noexcept;
    bool isLinked() const noexcept { return k_.linked && channels_.size() > 1; }
    LevelDetector::Speed speedNow() const noexcept
    {
        return autoSpeedNow_ ? LevelDetector::Speed::Auto : LevelDetector::Speed::Timed;
    }

    double sampleRate_ = 44100;
    Coefficients k_;
    Smoothed<T> inputGain_;
    DryWet<T> mixer_;
    SidechainFilter filter_;
    EditorLevels levels_;
    std::vector<Channel> channels_;
    bool autoSpeedNow_ = false, isFading_ = false;  // from one smoother to the other
    int keyChannels_ = 0;                           // of the external bus, in the last call
    double minimum_ = 0;                            // lowest reduction since it was reset, dB
};

class CompressorAlgorithm final
    : public PrecisionAlgorithm<CompressorCore, AudioSideChainInsertAlgorithm> {
public:
    CompressorAlgorithm();
};

class CompressorComponent final : public SidechainComponent {
public:
    explicit CompressorComponent(CompressorAlgorithm& algorithm);

private:
    void migrate(StoredState& state) const override;
};

}  // namespace quillworks
