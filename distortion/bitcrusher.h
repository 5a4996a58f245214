// SPDX-License-Identifier: ISC
// Bitcrusher: a converter of any rate and word length, with nothing in the sound but what those do.
#pragma once

#include <vector>

#include "distortion/digitiser.h"
#include "dsp/cut_filters.h"
#include "dsp/dry_wet.h"
#include "framework/effect_component.h"
#include "framework/peak_levels.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct BitcrusherSettings {
    float inputGain, outputGain;  // dB
    float rate;                   // Hz
    float bits;
    float quantiser;              // index of QuantiserLaw
    float dither, jitter, mix;    // 0 .. 1
    float preFilter, postFilter;  // switches
};

template <typename T> class BitcrusherCore {
public:
    using Settings = BitcrusherSettings;
    static constexpr CoreHooks kHooks{.wetOnly = true, .publish = true};
    enum Group : unsigned { Gains = 1, Clock = 2, Quantiser = 4, Mix = 8 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { peaks_.publish(meters); }

private:
    void processSlice(const AudioBlock<T>& part) noexcept;

    double sampleRate_ = 44100;
    GlidingCourse<double> inputGain_;
    GlidingCourse<T> outputGain_;
    DryWet<T> dryWet_;
    // The wet way is double in both cores, so that both quantise alike.
    CutFilters<double> preFilter_, postFilter_;
    Digitiser digitiser_;
    std::vector<double> wet_;  // kSubBlock frames per channel
    std::vector<double*> wetChannels_;
    std::vector<const T*> dry_;
    PeakLevels<T> peaks_;
};

class BitcrusherAlgorithm final : public PrecisionAlgorithm<BitcrusherCore> {
public:
    BitcrusherAlgorithm();
};

class BitcrusherComponent final : public AudioEffectComponent {
public:
    explicit BitcrusherComponent(BitcrusherAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
