// SPDX-License-Identifier: ISC
// Expander: lowers what lies below a threshold; keyed from outside it ducks instead.
#pragma once

#include <vector>

#include "dsp/delay_line.h"
#include "dsp/smoothed.h"
#include "dynamics/expander_gain.h"
#include "dynamics/gain_smoother.h"
#include "dynamics/lookahead.h"
#include "dynamics/sidechain_component.h"
#include "dynamics/sidechain_filter.h"
#include "framework/editor_levels.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct ExpanderSettings {
    float slope;            // 1 - 1/ratio, 0 or less
    float threshold;        // dB
    float range;            // dB, 0 or less
    float attack, release;  // seconds
    float filter, listen;   // switches
    float lowCut, highCut;  // Hz
    float duck;             // switch
    float lookAhead;        // switch
    float editorOpen;       // switch
};

template <typename T> class ExpanderCore {
public:
    using Settings = ExpanderSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Curve = 1,
        Times = 2,
        Filters = 4,
        Switches = 8,
        LookAheadSwitch = 16,
        Editor = 32,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;

private:
    struct Coefficients {
        bool filter = false, listen = false, duck = true, lookAhead = false;
    };
    void processSlice(const AudioBlock<T>& part) noexcept;
    void glideFilter(GridSlice slice) noexcept;
    void takeLevel(double* level, const AudioBlock<T>& part, T (*heard)[kSubBlock]) noexcept;

    double sampleRate_ = 44100;
    Coefficients k_;
    ExpanderGain<T> gain_;  // one for all channels: they are always linked
    GainSmoother<T> smoother_;
    SidechainFilter filter_;
    EditorLevels levels_;
    Smoothed<double> lowCut_, highCut_;
    std::vector<DelayLine<T>> delays_;  // of the channels
    int keyChannels_ = 0;               // of the external bus, in the last call
    double lowest_ = 0;                 // gain of the last call, dB
};

class ExpanderAlgorithm final
    : public PrecisionAlgorithm<ExpanderCore, AudioSideChainInsertAlgorithm> {
public:
    ExpanderAlgorithm();
};

class ExpanderComponent final : public SidechainComponent {
public:
    explicit ExpanderComponent(ExpanderAlgorithm& algorithm);
};

}  // namespace quillworks
