// SPDX-License-Identifier: ISC
// Autofilter: a driven filter that an oscillator, the level and a sequence of steps sweep.
#pragma once

#include <array>
#include <vector>

#include "dsp/antiderivative_shape.h"
#include "dsp/dry_wet.h"
#include "dsp/gliding_course.h"
#include "dsp/oversampler.h"
#include "framework/effect_component.h"
#include "framework/peak_levels.h"
#include "framework/precision_algorithm.h"
#include "framework/spectrum_ground.h"
#include "modulation/channel_slots.h"
#include "modulation/corner_sweep.h"
#include "modulation/level_envelope.h"
#include "modulation/step_sequence.h"
#include "modulation/stereo_lfo.h"
#include "modulation/swept_filter.h"

namespace quillworks {

struct AutofilterSettings {
    float type;                       // a FilterType
    float cutoff;                     // Hz
    float resonance;                  // 0 .. 1
    float drive;                      // dB
    float lfoAmount;                  // octaves
    float lfoSync;                    // follows the song while not 0
    float lfoBeats;                   // note value of a period
    float lfoRate;                    // Hz
    float lfoWave;                    // an LfoWave
    float stereo;                     // degrees
    float envelopeAmount;             // octaves
    float sensitivity;                // dB
    float attack, release;            // s
    float external;                   // switch
    float sequenceAmount;             // octaves
    float steps;                      // 1 .. 16
    float stepBeats;                  // note value of a step
    float glide;                      // 0 .. 1, share of the step
    float step[StepSequence::kMost];  // -1 .. 1
    float mix;                        // 0 .. 1
    float output;                     // dB
};

template <typename T> class AutofilterCore {
public:
    using Settings = AutofilterSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned {
        Filter = 1,
        Sweep = 2,
        Envelope = 4,
        Lfo = 8,
        Sequence = 16,
        Output = 32,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setCapture(CaptureRing& ring) noexcept { ring_ = &ring; }

    /// In samples.
    static int latencyAt(double sampleRate) noexcept;

private:
    struct Channel {
        Oversampler<T> oversampler;
        T restored = 0;  // last output of what makes up the shaper's delay
        const T* dry = nullptr;
    };
    /// Octaves, but for the sensitivity and the drive, which are decibels.
    struct Glides {
        Smoothed<double> cutoff, lfo, envelope, sequence, sensitivity, drive;
    };

    void beginSubBlock(int offset) noexcept;
    void layDrive() noexcept;
    void hear(const AudioBlock<T>& part) noexcept;
    void layGroups(GridSlice slice) noexcept;
    void shape(Channel& channel, const T* x, GridSlice slice) noexcept;
    void processSlice(const AudioBlock<T>& part, int offset) noexcept;

    double sampleRate_ = 44100;
    int factor_ = 2;
    StereoLfo lfo_;
    StepSequence sequence_;
    LevelEnvelope level_;
    bool isExternal_ = false;
    Glides glides_;
    Ramp<double> cutoff_{}, lfoAmount_{}, envelopeAmount_{}, sequenceAmount_{};
    double sensitivity_ = 0;
    CornerSweep sweep_;
    bool isDriveLaid_ = false;

    ShapeDrive<T> drive_;
    Course<T> share_;  // of the driven signal
    double gain_ = 1, gainOfLevel_ = 1;
    SweptFilter<T> filter_;
    std::array<ChannelSlots<T>, 2> slots_;
    std::vector<Channel> channels_;
    DryWet<T> dryWet_;
    GlidingCourse<T> output_;
    PeakLevels<T> peaks_;
    CaptureRing* ring_ = nullptr;  // of the output
};

/// Display ".spectrum": what is put out.
class AutoFilterAlgorithm final
    : public DisplayAlgorithm<AutofilterCore, SpectrumGround, AudioSideChainInsertAlgorithm> {
public:
    AutoFilterAlgorithm();
};

class AutoFilterComponent final : public DisplayComponent<AutoFilterAlgorithm> {
public:
    explicit AutoFilterComponent(AutoFilterAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
