// SPDX-License-Identifier: ISC
// Gate: silences what lies below a threshold; hysteresis, hold, look-ahead, filtered or external
// key, and ducking.
#pragma once

#include <vector>

#include "dsp/crossfade.h"
#include "dsp/delay_line.h"
#include "dsp/smoothed.h"
#include "dynamics/gain_history.h"
#include "dynamics/gate_gain.h"
#include "dynamics/sidechain_filter.h"
#include "framework/editor_levels.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

struct GateXSettings {
    float threshold, hysteresis, range;  // dB
    float attack, hold, release;         // seconds
    float lookAhead;                     // seconds
    float lowCut, highCut;               // Hz
    float listen;                        // choice of GateXCore::Listen
    float duck;                          // switch
    float editorOpen;                    // switch
};

template <typename T> class GateXCore {
public:
    using Settings = GateXSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned {
        Levels = 1,
        Times = 2,
        Filters = 4,
        Ducking = 8,
        Listening = 16,
        LookAhead = 32,
        Editor = 64,
    };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setCapture(CaptureRing& ring) noexcept { history_.setRing(ring); }

private:
    enum class Listen { Off, Key, Removed };
    /// What all channels share over a slice.
    struct Gains {
        T kept[kSubBlock];     // gain; only the first while isConstant
        T removed[kSubBlock];  // 1 - gain, while that is heard
        bool isConstant;
    };

    void processSlice(const AudioBlock<T>& part) noexcept;
    void glideFilter(GridSlice slice) noexcept;
    void takeKey(double* key, const AudioBlock<T>& part, T (*heard)[kSubBlock]) noexcept;
    const T* delayed(DelayLine<T>& line, const T* x, T* room, int n) noexcept;
    bool hears(Listen what) const noexcept
    {
        return listen_.present() == what || (listen_.isFading() && listen_.leaving() == what);
    }

    double sampleRate_ = 44100;
    GateGain<T> gain_;  // one for all channels: they are always linked
    SidechainFilter filter_;
    EditorLevels levels_;
    double lowCut_ = SidechainFilter::kLowest, highCut_ = SidechainFilter::kHighest;  // Hz
    Smoothed<double> lowOctave_, highOctave_;                                         // of the two
    Switch<Listen> listen_;
    Switch<int> lookAhead_;  // frames
    struct Channel {
        DelayLine<T> input;
        DelayLine<T> key;  // while it is listened to
    };
    std::vector<Channel> channels_;
    int keyChannels_ = 0;  // of the external bus, in the last call
    T lowest_ = 1;         // gain of the last call
    double keyPeak_ = 0;   // of the last call, linear
    GainCapture<1> history_;
};

class GateXAlgorithm final
    : public DisplayAlgorithm<GateXCore, GainHistory, AudioSideChainInsertAlgorithm> {
public:
    GateXAlgorithm();
};

class GateXComponent final : public DisplayComponent<GateXAlgorithm> {
public:
    explicit GateXComponent(GateXAlgorithm& algorithm);

private:
    Delays delays(double sampleRate) const noexcept override;

    int lookAhead_;  // index
};

}  // namespace quillworks
