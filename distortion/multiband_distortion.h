// SPDX-License-Identifier: ISC
// Multiband Distortion: three bands, each with a drive and a curve of its own.
#pragma once

#include <array>
#include <vector>

#include "distortion/saturator.h"
#include "dsp/band_splitter.h"
#include "dsp/dry_wet.h"
#include "dsp/gliding_course.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

inline constexpr int kDistortedBands = 3;

struct MultibandDistortionSettings {
    float lowSplit, highSplit;         // Hz
    float drive[kDistortedBands];      // dB
    float character[kDistortedBands];  // a Saturation
    float level[kDistortedBands];      // dB
    float solo[kDistortedBands];       // switches
    float mix;                         // 0 .. 1
    float output;                      // dB
};

/// The dry signal is mixed in band by band, before the join: so it goes through the same all-passes
/// and cancels nothing.
template <typename T> class MultibandDistortionCore {
public:
    using Settings = MultibandDistortionSettings;
    static constexpr CoreHooks kHooks{.wetOnly = true};
    enum Group : unsigned { Splits = 1, Bands = 2, Mix = 4, Output = 8 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setWetOnly(bool wetOnly) noexcept { dryWet_.setWetOnly(wetOnly); }
    void process(const AudioBlock<T>& block) noexcept;

private:
    struct Band {
        Saturator<T> saturator;
        GlidingCourse<T> level;
        Smoothed<T> presence;  // 0 where another band is heard alone
        Course<T> presences;
        std::vector<T*> rows;  // by channel
        std::vector<const T*> dry;
    };
    void processSlice(const AudioBlock<T>& part) noexcept;
    void distort(int number, GridSlice slice) noexcept;

    int channels_ = 0;
    BandSplitter<T> splitter_;
    std::vector<BandRows<T>> pairs_;
    std::array<Band, kDistortedBands> bands_;
    DryWet<T> dryWet_;  // a line for every band of every channel
    GlidingCourse<T> output_;
};

class MultiDistAlgorithm final : public PrecisionAlgorithm<MultibandDistortionCore> {
public:
    MultiDistAlgorithm();
};

class MultiDistComponent final : public AudioEffectComponent {
public:
    explicit MultiDistComponent(MultiDistAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
