// SPDX-License-Identifier: ISC
// Dual pan: each side of a pair has a place of its own; width, rotation, mono bass, and a guard for
// the fold to mono.
#pragma once

#include <vector>

#include "dsp/course.h"
#include "dsp/crossfade.h"
#include "dsp/follower.h"
#include "dsp/phase_correlation.h"
#include "dsp/section.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "framework/speakers.h"
#include "mixing/stereo_matrix.h"

namespace quillworks {

struct DualPanSettings {
    float panLeft, panRight;      // -1 .. 1
    float position, spread;       // -1 .. 1
    float levelLeft, levelRight;  // linear
    float law;                    // a PanLaw
    float width;                  // 1: as it is
    float rotate;                 // degrees
    float monoBass;               // Hz
    float guard;                  // toggle: on while not 0
};

template <typename T> class DualPanCore {
public:
    using Settings = DualPanSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned { Matrix = 1, Side = 2 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    /// A gain that glides, and its course over the open sub-block.
    struct Gain {
        Smoothed<double> glide;
        Course<T> course;

        void prepare(double halfLife) noexcept { glide.prepareHalfLife(halfLife); }
        void snap() noexcept
        {
            glide.snap();
            course.set(T(glide.target()));
        }
        void begin() noexcept
        {
            if (!glide.isGliding()) return;  // and the course is laid out already
            const auto ramp = glide.next(kWholeSubBlock);
            course.follow(Ramp<T>{T(ramp.from), T(ramp.to)});
        }
    };
    struct Pair {
        int left = 0, right = 0;       // channels
        SectionState<T> bass;          // of the side
        PairPower<T> before, heard;    // ahead of the guard, and behind it
        PowerFollower mid, side;       // what the guard goes by
        Gain guard;                    // of the side
        PhaseCorrelation correlation;  // of the output
    };

    void beginSubBlock() noexcept;
    void processPair(Pair& pair, const AudioBlock<T>& slice) noexcept;
    void place(T* left, T* right, GridSlice slice) const noexcept;
    void shapeSide(Pair& pair, T* left, T* right, GridSlice slice) noexcept;
    void filterSide(Pair& pair, T* side, GridSlice slice) noexcept;
    void followGuard(Pair& pair) noexcept;
    SectionCoefficients<T> coefficients() const noexcept;

    double sampleRate_ = 44100;
    bool isFromMono_ = false;  // one channel comes in and two go out
    Gain ll_, lr_, rl_, rr_;   // of the matrix
    Switch<bool> bass_;
    Smoothed<double> bassOctave_;  // log2 of the corner in Hz
    SectionRamp<T> bassCoefficients_;
    bool wantsGuard_ = false, isGuarding_ = false;
    // In this sub-block:
    bool isIdentity_ = false;  // of the matrix
    bool hasSide_ = false;     // mid and side are apart
    std::vector<Pair> pairs_;
    std::vector<T> peaks_;  // of each channel since publish()
    double lowestGuard_ = 1;
};

class DualPanAlgorithm final : public PrecisionAlgorithm<DualPanCore> {
public:
    DualPanAlgorithm();
    /// Any layout as it is, and a single channel to left and right.
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;
};

class DualPanComponent final : public AudioEffectComponent {
public:
    explicit DualPanComponent(DualPanAlgorithm& algorithm);
};

}  // namespace quillworks
