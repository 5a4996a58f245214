// SPDX-License-Identifier: ISC
// Phaser: all-pass stages with feedback that sweep with the song, or notches that rise for ever.
#pragma once

#include <vector>

#include "dsp/crossfade.h"
#include "dsp/dry_wet.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "modulation/allpass_lattice.h"
#include "modulation/channel_slots.h"
#include "modulation/corner_sweep.h"
#include "modulation/level_envelope.h"
#include "modulation/rising_notches.h"

namespace quillworks {

struct PhaserSettings {
    float mode;       // a PhaserMode
    float stages;     // 2 .. 24
    float frequency;  // Hz
    float range;      // octaves
    float feedback;   // -0.95 .. 0.95
    float lfoSync;    // follows the song while not 0
    float lfoBeats;   // note value of a period
    float lfoRate;    // Hz
    float lfoWave;    // an LfoWave
    float stereo;     // degrees
    float envelope;   // octaves
    float mix;        // 0 .. 1
};

enum class PhaserMode { Sweep, EndlessUp, EndlessDown };

template <typename T> class PhaserCore {
public:
    using Settings = PhaserSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned { Path = 1, Sweep = 2, Lfo = 4, Mix = 8 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept { lfo_.setTempo(beatsPerMinute); }
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    /// What the sound goes through.
    struct Way {
        PhaserMode mode = PhaserMode::Sweep;
        int stages = 6;

        bool operator==(const Way&) const = default;
        bool sweeps() const noexcept { return mode == PhaserMode::Sweep; }
        int notches() const noexcept { return stages / 2; }
    };
    struct Filters {
        Way way;
        AllPassLattice<T> lattice;
        RisingNotches<T> notches;
    };
    struct Glides {
        Smoothed<double> octave, range, envelope, feedback;
    };

    void take(Filters& filters, const Way& way) noexcept;
    void beginSubBlock(int offset) noexcept;
    void layGroups(GridSlice slice) noexcept;
    void processSlice(const AudioBlock<T>& part, int offset) noexcept;
    void run(Filters& filters, T* const* channels, GridSlice slice) noexcept;
    void hear(const AudioBlock<T>& part) noexcept;
    Filters& present() noexcept { return filters_[current_]; }
    Filters& leaving() noexcept { return filters_[1 - current_]; }
    /// Whether any of the two that are heard does.
    bool sweeps() noexcept
    {
        return present().way.sweeps() || (way_.isFading() && leaving().way.sweeps());
    }
    bool usesEnvelope() const noexcept { return !(envelope_.isConstant() && envelope_.to == 0); }

    double sampleRate_ = 44100;
    StereoLfo lfo_;
    LevelEnvelope level_;
    Glides glides_;
    Ramp<double> octave_{}, range_{}, envelope_{};  // over the open sub-block
    Course<T> feedback_;
    CornerSweep sweep_;

    Switch<Way> way_;
    Filters filters_[2];
    int current_ = 0;
    ChannelSlots<T> slots_;
    DryWet<T> dryWet_;
    std::vector<const T*> dry_;
    std::vector<T> old_;  // what is being left, kSubBlock frames per channel
    std::vector<T*> oldChannels_;
};

class PhaserAlgorithm final : public PrecisionAlgorithm<PhaserCore> {
public:
    PhaserAlgorithm();
};

class PhaserComponent final : public AudioEffectComponent {
public:
    explicit PhaserComponent(PhaserAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
