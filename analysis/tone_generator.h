// SPDX-License-Identifier: ISC
// Tone Generator: test signals with exact levels, between the samples too.
#pragma once

#include <atomic>
#include <mutex>

#include "analysis/tone_routing.h"
#include "analysis/tone_source.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "framework/worker.h"
#include "vnk/effect_displays.h"

namespace quillworks {

struct ToneGeneratorSettings {
    float wave;                   // index of Wave
    float frequency, frequency2;  // Hz
    float level;                  // dB
    float reference;              // 0: true peak, 1: RMS
    float width;                  // of a cycle
    float length, pause;          // s
    float repeat;
    float snap;
    float channels;  // as ToneRouting has them
    float invert;
    float independent;
    float through;
    float run;
};

template <typename T> class ToneGeneratorCore {
public:
    using Settings = ToneGeneratorSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned { Signal = 1, Start = 2, Routing = 4 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    void setTables(ToneSource::Tables& tables) noexcept { source_.setTables(&tables); }

private:
    void nextSubBlock() noexcept;
    void write(const AudioBlock<T>& slice, int channel) noexcept;

    ToneSource source_;
    ToneRouting routing_;
    TimedRamp through_;
    Ramp<double> input_{0, 0};  // gain over the present sub-block
    bool isFresh_ = true;
};

class SignalGeneratorAlgorithm final
    : public PrecisionAlgorithm<ToneGeneratorCore, AudioSynthAlgorithm> {
public:
    SignalGeneratorAlgorithm();

    ToneSource::Tables& tables() noexcept { return tables_; }
    /// As prepared last, 0 before that. [any thread]
    double preparedRate() const noexcept { return rate_.load(std::memory_order_acquire); }
    /// As prepared last, without channels before that. [any thread but audio]
    VNK::SpeakerArrangement preparedOutput() const noexcept;

private:
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override;

    ToneSource::Tables tables_;
    std::atomic<double> rate_{0};
    mutable std::mutex outputMutex_;
    VNK::SpeakerArrangement output_;
};

class SignalGeneratorComponent final
    : public VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays> {
public:
    explicit SignalGeneratorComponent(SignalGeneratorAlgorithm& algorithm);

    // The display is drawn from the formulas: nobody needs to be fed.
    const char* displayName(std::int32_t index) const noexcept override;
    void setDisplaysOpen(bool) noexcept override {}
    void updateDisplays() noexcept override {}
    bool snapshot(const char* name, VNK::IDisplaySink* sink) noexcept override;

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void reconcile() noexcept override { followTables(); }
    Delays delays(double sampleRate) const noexcept override;
    bool isBusy() const noexcept override { return maker_.isBusy(); }

    void followTables() noexcept;
    void makeTables(const WorkerJob::Progress& progress);
    std::shared_ptr<const PeriodicSignals> signals() const;

    SignalGeneratorAlgorithm& algorithm_;
    mutable std::mutex mutex_;                        // of the signals
    std::shared_ptr<const PeriodicSignals> signals_;  // given last
    std::atomic<double> givenRate_{0};
    WorkerJob maker_;  // last: its end is waited for before anything else goes
};

}  // namespace quillworks
