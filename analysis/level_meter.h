// SPDX-License-Identifier: ISC
// Level meter: peak, RMS and holds per channel, loudness and true peak of the bus, correlation.
#pragma once

#include <vector>

#include "analysis/channel_meter.h"
#include "analysis/loudness_meter.h"
#include "analysis/ring_handover.h"
#include "dsp/fine_true_peak.h"
#include "dsp/phase_correlation.h"
#include "dsp/true_peak.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct LevelMeterSettings {
    float showCorrelation;   // 0 or 1
    float holdSeconds;       // below 0: for ever
    float rmsSeconds;        // as much as there is memory for
    float measurement;       // a Measurement
    float useLayoutWeights;  // 0: every channel counts alike
};

/// The values of the attribute "loudnessStrict".
enum class Measurement {
    Own = 0,     // the meter's own law, for ever
    Strict = 1,  // by the standards, from the change to this value on
    Ended = 2,   // the strictly measured programme is over: results are final, audio is ignored
};

template <typename T> class LevelMeterCore {
public:
    using Settings = LevelMeterSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Correlation = 1,
        Hold = 2,
        RmsLength = 4,
        ResetHold = 8,
        ResetLoudness = 16,
        Law = 32,
        Weights = 64,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    /// Takes other room for the RMS windows, which are set afresh after it.
    void exchangeRoom(RingHandover::Rings& rings) noexcept;

private:
    static constexpr int kPiece = 256;  // frames measured at a time: they stay in the first cache

    struct Channel {
        ChannelMeter meter;
        TruePeak interpolator;      // of the meter's own law
        FineTruePeak fineTruePeak;  // of the strict law
        bool isInvalid = false;     // a block began with infinity or not-a-number
        // Of the whole programme, under the strict law.
        float samplePeak = 0;
        double power = 0;  // sum of squares
    };

    void measure(const AudioBlock<T>& piece) noexcept;
    void setMeasurement(Measurement measurement) noexcept;
    void restartLoudness() noexcept;
    void endProgramme() noexcept;
    void publishProgramme(MeterSlots& meters) noexcept;

    std::vector<Channel> channels_;
    LoudnessMeter loudness_;
    PhaseCorrelation correlation_;
    bool showsCorrelation_ = false;
    float truePeak_ = 0;  // largest of all channels so far
    float truePeakDb_ = -144;
    Measurement measurement_ = Measurement::Own;
    StrictLoudness::Results results_{};
    bool showsProgramme_ = true;  // the slots hold programme figures, or nobody knows
    std::int64_t frames_ = 0;     // of the programme
    std::int64_t evaluated_ = 0;  // frames at the last evaluation
    double sampleRate_ = 44100;
};

class LevelMeterAlgorithm final : public PrecisionAlgorithm<LevelMeterCore> {
public:
    LevelMeterAlgorithm();
    void setParameter(Tag tag, float value) noexcept override;
    /// Makes room for RMS windows of a length that is set next. False if memory cannot be had.
    /// [main thread]
    bool reserveRms(float seconds) noexcept;

private:
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override;
    bool reserveRms(double sampleRate, int channels, float seconds) noexcept;
    void takeRoom() noexcept;

    RingHandover room_;
};

class LevelMeterComponent final : public AudioEffectComponent {
public:
    explicit LevelMeterComponent(LevelMeterAlgorithm& algorithm);

private:
    void attributeChanged(const std::string& key, std::int64_t value) noexcept override;
    std::int64_t attribute(const char* key) const noexcept;
    void setRmsLength(float seconds) noexcept;

    LevelMeterAlgorithm& meter_;
};

}  // namespace quillworks
