// SPDX-License-Identifier: ISC
// Chorus: up to eight voices whose detune is set in cents, above a bass that stays dry.
#pragma once

#include <array>
#include <vector>

#include "dsp/course.h"
#include "dsp/cut_filters.h"
#include "dsp/dry_wet.h"
#include "dsp/farrow_line.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "modulation/channel_sides.h"
#include "modulation/moving_delay.h"
#include "modulation/song_lfo.h"

namespace quillworks {

struct ChorusSettings {
    float voices;
    float delay;            // s
    float detune;           // cents
    float lfoSync;          // follows the song while not 0
    float lfoBeats;         // note value of a period
    float lfoRate;          // Hz
    float wave;             // an LfoWave
    float stereo;           // degrees
    float drift, spread;    // 0 .. 1
    float lowCut, highCut;  // Hz
    float mix;              // 0 .. 1
};

/// One line per channel, fed above the low cut and below the high cut, and read by every voice at a
/// delay of its own. The wet signal is the voices and what lies below the low cut, a low-pass of
/// second order that adds up to the input with what is left: the bass is in no voice.
template <typename T> class ChorusCore {
public:
    using Settings = ChorusSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned { Voices = 1, Time = 2, Lfo = 4, Place = 8, Filters = 16, Mix = 32 };
    static constexpr int kMostVoices = 8;

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept { lfo_.setTempo(beatsPerMinute); }
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    static constexpr std::size_t kPlaces = 3;           // of ChannelSide
    enum Phase : std::size_t { Left, Right, kPhases };  // middle channels go with the left ones

    struct Voice {
        std::array<LfoVoice, kPhases> lfo;
        LfoVoice drift;
        double ahead = 0;      // periods
        double presence = 0;   // 0 .. 1, at the end of the sub-block
        bool sounds = false;   // in the open sub-block
        Smoothed<double> pan;  // -1 .. 1
        std::array<MovingDelay, kPhases> delay;
        std::array<Course<T>, kPlaces> gain;
    };

    void begin(int offset) noexcept;
    void moveGains() noexcept;
    void moveDelays(int offset) noexcept;
    void moveBass() noexcept;
    void processSlice(const AudioBlock<T>& part, int offset) noexcept;
    void addVoices(const AudioBlock<T>& part) noexcept;
    double slope() const noexcept;

    double sampleRate_ = 48000;
    int wantedVoices_ = 1, voiceCount_ = 1;
    double fadeStep_ = 1;  // of a presence, per sub-block
    bool isFresh_ = true;

    std::vector<ChannelSide> sides_;
    std::vector<T*> feeds_, wets_;
    std::vector<const T*> dry_;
    CutFilters<T> cuts_;
    SectionChain<T> bass_;
    Smoothed<double> bassOctave_, bassShare_;
    bool hasBass_ = false;
    FarrowLine<T> line_;

    SongLfo lfo_;
    LfoCycle driftCycle_;
    LfoWaves driftWave_;
    std::array<Voice, kMostVoices> voices_;
    Smoothed<double> delay_, depth_, stereo_, drift_;  // s, s, periods, s
    double detune_ = 0;                                // share of the frequency
    double spread_ = 0;
    int partLength_ = 1, partLeft_ = 0;  // sub-blocks in which the sides of a voice differ
    bool gainsMove_ = true;
    double kept_ = 1;  // of the depth, in the voice that has least room

    DryWet<T> dryWet_;
};

class ChorusAlgorithm final : public PrecisionAlgorithm<ChorusCore> {
public:
    ChorusAlgorithm();
};

class ChorusComponent final : public AudioEffectComponent {
public:
    explicit ChorusComponent(ChorusAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
