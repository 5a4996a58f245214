// SPDX-License-Identifier: ISC
// Surround panner: one or two channels to any place of any layout, at constant power.
#pragma once

#include <array>
#include <vector>

#include "dsp/section.h"
#include "dsp/smoothed.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "mixing/pan_mix.h"
#include "mixing/pan_powers.h"

namespace quillworks {

struct SurroundPanSettings {
    float x, y;                // -1 .. 1
    float elevation, width;    // degrees
    float mode;                // 0: by direction, 1: by distance
    float spread, divergence;  // 0 .. 1
    float centre;              // 0 .. 1
    float lfe, level;          // linear
};

template <typename T> class SurroundPanCore {
public:
    using Settings = SurroundPanSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned { Place = 1 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    static constexpr int kMostInputs = 2;
    static constexpr int kRun = 256;  // frames at a time while nothing moves

    struct Gain : PanGain<T> {
        using PanGain<T>::to, PanGain<T>::step;

        void follow(T target) noexcept
        {
            step = (target - to) / T(kSubBlock);
            to = target;
        }
        bool isMoving() const noexcept { return step != 0; }
        bool isSilent() const noexcept { return to == 0 && step == 0; }
        T at(int frame) const noexcept { return to - step * T(kSubBlock - 1 - frame); }
    };
    struct Output {
        bool isLfe = false;
        std::array<double, kMostInputs> placed{};  // gain of each input, without the level
        std::array<Gain, kMostInputs> gain;        // with it
        std::array<SectionState<T>, 2> low;        // of an LFE
        T peak = 0;                                // since publish()

        bool isSilent() const noexcept { return gain[0].isSilent() && gain[1].isSilent(); }
    };

    bool isPlaceGliding() const noexcept;
    /// Nothing moves, and nothing is to.
    bool isStill() const noexcept
    {
        return !isMoving_ && !isPlaceGliding() && !lfe_.isGliding() && !level_.isGliding();
    }
    void beginSubBlock() noexcept;
    void findPowers() noexcept;
    void layGains() noexcept;
    void play(const AudioBlock<T>& block) noexcept;
    static T mix(const Output& output, const T* left, const T* right, T* out,
                 GridSlice slice) noexcept;
    void playLfe(Output& output, const T* left, const T* right, T* out,
                 GridSlice slice) const noexcept;

    int inputs_ = 2;
    PanPowers powers_;
    std::array<PanPowers::Search, kMostInputs> search_;
    Smoothed<double> x_, y_, elevation_, width_, spread_, divergence_, centre_, lfe_, level_;
    double distanceShare_ = 0, wantedShare_ = 0, shareStep_ = 1;  // of the law by distance
    bool isMoving_ = false;                                       // a gain, in this sub-block
    std::vector<Output> outputs_;
    SectionCoefficients<T> low_[2];  // of an LFE
};

class SurroundPanAlgorithm final : public PrecisionAlgorithm<SurroundPanCore> {
public:
    SurroundPanAlgorithm();
    /// One or two channels to any layout.
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;

protected:
    float bypassGain(const VNK::SpeakerArrangement& input, const VNK::SpeakerArrangement& output,
                     int from, int to) const noexcept override
    {
        return pannedBypassGain(input, output, from, to);
    }
};

class SurroundPanComponent final : public AudioEffectComponent {
public:
    explicit SurroundPanComponent(SurroundPanAlgorithm& algorithm);
};

}  // namespace quillworks
