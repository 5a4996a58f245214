// SPDX-License-Identifier: ISC
// Analog delay: an echo from a tape or bucket brigade, bent by its motor, in time with the song.
#pragma once

#include "delay/echo_loop.h"
#include "framework/effect_component.h"
#include "framework/lfo_reading.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

/// Channels 0 and 1 are processed, further ones pass. The loop is single precision in both cores;
/// the dry signal keeps the host's.
template <typename T> class AnalogDelayCore {
public:
    using Settings = AnalogDelaySettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned { Mix = 128 };  // and those of EchoLoop

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept { loop_.setTempo(beatsPerMinute); }
    /// The wet signal alone, at its own level.
    void setWetOnly(bool wetOnly) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { publishLfoPhase(meters, loop_.lfoPlace()); }

private:
    void updateMix() noexcept;
    void mix(T* x, const float* wet, GridSlice slice) const noexcept;

    EchoLoop loop_;
    int channels_ = 0;
    float mix_ = 0;  // fraction wet
    bool wetOnly_ = false;
    Smoothed<T> dryGain_, wetGain_;
    Course<T> dryGains_, wetGains_;
};

class AnalogDelayAlgorithm final : public PrecisionAlgorithm<AnalogDelayCore> {
public:
    AnalogDelayAlgorithm();
};

/// Keeps times and note values together when sync is switched, and reads what earlier versions
/// stored as indices of notes.
class AnalogDelayComponent final : public AudioEffectComponent {
public:
    explicit AnalogDelayComponent(AnalogDelayAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void migrate(StoredState& state) const override;
    Delays delays(double sampleRate) const noexcept override;
};

}  // namespace quillworks
