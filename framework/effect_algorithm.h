// SPDX-License-Identifier: ISC
// The audio half of an effect: everything that all effects do around their core.
#pragma once

#include <atomic>
#include <memory>

#include "framework/audio_block.h"
#include "framework/bypass.h"
#include "framework/bypass_gains.h"
#include "framework/call_rules.h"
#include "framework/latest_word.h"
#include "framework/meter_slots.h"
#include "framework/parameter_crossing.h"
#include "framework/parameter_list.h"
#include "vnk/effect.h"

namespace quillworks {

/// The component, as its algorithm sees it. [main thread, where nothing else is said]
class AlgorithmOwner {
public:
    /// Rate or layout has changed; `message` is what hosts are to be told, or null.
    /// [not processing]
    virtual void setupChanged(const char* message) noexcept = 0;
    /// May come while the audio thread processes.
    virtual void wetOnlyChanged() noexcept = 0;
    /// [the thread of setTempo]
    virtual void tempoChanged() noexcept = 0;
    /// The host has connected or disconnected the side-chain bus; may come between two blocks on
    /// the audio thread.
    virtual void sideChainChanged() noexcept = 0;

protected:
    ~AlgorithmOwner() = default;
};

/// What a block's course through the frame is: flush denormals, apply parameter changes, bypass,
/// core, publish meters. Blocks longer than prepared are cut. Effects derive from one of the three
/// bases below, usually through PrecisionAlgorithm.
class AudioEffectAlgorithm : public VNK::Object<VNK::IEffectAlgorithm> {
public:
    ~AudioEffectAlgorithm() override;

    // The host's side; see vnk/effect.h.
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;
    bool setSpeakerArrangement(const VNK::SpeakerArrangement& input,
                               const VNK::SpeakerArrangement& output) noexcept final;
    void setPrecision(VNK::Precision precision) noexcept final;
    bool setSampleRate(std::int32_t maxFrames, double sampleRate) noexcept final;
    void reset() noexcept final;
    bool hasSideChain() const noexcept override { return false; }
    void setSideChainActive(bool active) noexcept final;
    void setWetOnly(bool wetOnly) noexcept final;
    void setTempo(double beatsPerMinute) noexcept final;
    void setTransport(const VNK::Transport& transport) noexcept final;
    void process(const VNK::ProcessData& data) noexcept final;
    std::uint32_t getLatency() const noexcept final;
    std::uint32_t getTailLength() const noexcept final;
    float getBypassGain(std::int32_t input, std::int32_t output) const noexcept final;

    // The component's side. [main thread]
    void setOwner(AlgorithmOwner* owner) noexcept { cold_->owner = owner; }
    const AlgorithmParameterList& parameterList() const noexcept { return *cold_->list; }
    ParameterCrossing& crossing() noexcept { return crossing_; }
    /// Each slot has one writer: the core by its publish(), or what the component measures with.
    MeterSlots& meters() noexcept { return meters_; }
    CallRules& rules() noexcept { return rules_; }
    const ProcessSpec& spec() const noexcept { return cold_->spec; }
    bool isPrepared() const noexcept { return isPrepared_; }
    const VNK::SpeakerArrangement& inputLayout() const noexcept { return cold_->input; }
    const VNK::SpeakerArrangement& outputLayout() const noexcept { return cold_->output; }
    bool isSideChainActive() const noexcept
    {
        return sideChainActive_.load(std::memory_order_relaxed);
    }
    /// Tempo in force: the last one that host or user gave, 120 before. [any thread]
    double tempo() const noexcept
    {
        const double told = tempo_.load(std::memory_order_relaxed);
        return told > 0 ? told : kUntoldTempo;
    }
    bool isTempoKnown() const noexcept { return tempo_.load(std::memory_order_relaxed) > 0; }
    bool isWetOnly() const noexcept { return wetOnly_.load(std::memory_order_relaxed); }
    /// Delay and tail in samples at the prepared rate, worked out from the parameters after `stamp`
    /// was drawn; `bypassed` as the user sees it. [any thread]
    void setDelays(std::uint32_t stamp, std::uint32_t latency, std::uint32_t tail,
                   bool bypassed) noexcept;
    std::uint32_t drawDelayStamp() noexcept { return cold_->delayStamps.draw(); }

    /// Stores a value and marks its group of derived coefficients. Called for each changed
    /// parameter at the start of a block, in declaration order; a trigger gives 1. An effect
    /// overrides it for commands and coupled parameters. [audio thread]
    virtual void setParameter(Tag tag, float value) noexcept = 0;

protected:
    /// All instances of a class have one list.
    explicit AudioEffectAlgorithm(std::shared_ptr<const AlgorithmParameterList> list);

    // What PrecisionAlgorithm implements. prepareCore may throw std::bad_alloc.
    virtual void prepareCore(const ProcessSpec& spec, VNK::Precision precision) = 0;
    virtual void resetCore() noexcept = 0;
    virtual void applyChanges() noexcept = 0;  // groups marked dirty
    virtual void setCoreTempo(double beatsPerMinute) noexcept = 0;
    virtual void setCoreWetOnly(bool wetOnly) noexcept = 0;
    virtual void processCore(const AudioBlock<float>& block) noexcept = 0;
    virtual void processCore(const AudioBlock<double>& block) noexcept = 0;
    virtual void publish(MeterSlots& meters) noexcept = 0;
    /// What bypass plays where the layouts differ; asked for each pair of channels when prepared.
    virtual float bypassGain(const VNK::SpeakerArrangement& input,
                             const VNK::SpeakerArrangement& output, int from, int to) const noexcept
    {
        return placedBypassGain(input, output, from, to);
    }

    VNK::Precision precision() const noexcept { return precision_; }

private:
    static constexpr double kUntoldTempo = 120;

    void takeParameters() noexcept;
    template <typename T> struct Course;
    template <typename T> void processAs(const VNK::ProcessData& data) noexcept;
    template <typename T> void processWithRows(Course<T>& course) noexcept;
    template <typename T>
    void processPiece(Course<T>& course, int frames, T* rows, int length) noexcept;
    template <typename T>
    void fade(const AudioBlock<T>& piece, const T* bypass, int length) noexcept;
    template <typename T> void runCore(AudioBlock<T>& block) noexcept;
    void restartCore() noexcept;
    void advanceTransport(int frames) noexcept;
    void tellOwner(const char* message) noexcept;
    /// What bypass plays is not the input channel by channel.
    bool isLaid() const noexcept { return !cold_->bypassGains.isIdentity(); }
    /// What bypass plays has to be kept beside what the core works on.
    bool needsDry() const noexcept { return !bypass_.isOn() && (isLaid() || !bypass_.isOff()); }

    /// What a block does not look at.
    struct Cold {
        explicit Cold(std::shared_ptr<const AlgorithmParameterList> l) : list(std::move(l)) {}

        const std::shared_ptr<const AlgorithmParameterList> list;
        ProcessSpec spec;
        VNK::SpeakerArrangement input = VNK::SpeakerArrangement::withChannels(2);
        VNK::SpeakerArrangement output = VNK::SpeakerArrangement::withChannels(2);
        BypassGains bypassGains;
        LatestWord::Stamps delayStamps;
        AlgorithmOwner* owner = nullptr;
    };

    // Hundreds of instances are processed in turn: what each block reads lies side by side, in the
    // first cache lines of the object.
    VNK::Precision precision_ = VNK::Precision::Float;
    bool isPrepared_ = false;
    bool isFresh_ = true;  // nothing processed since reset
    std::atomic<bool> sideChainActive_{false};
    std::atomic<bool> wetOnly_{false};
    bool wetOnlySeen_ = false;
    bool hasTransport_ = false;         // told for the coming block
    int channels_ = 0, maxFrames_ = 0;  // of the spec
    int gridPhase_ = 0;
    BypassFade bypass_;
    std::atomic<double> tempo_{0};  // 0: nobody has told
    double tempoSeen_ = 0;
    LatestWord ownLatency_, ownTail_, reportsBypassed_;
    ParameterCrossing crossing_;  // of the list's slots
    MeterSlots meters_;           // of the list's meters
    VNK::Transport transport_;
    CallRules rules_;
    const std::unique_ptr<Cold> cold_;
};

/// An insert effect: input and output of the same layout.
class AudioInsertAlgorithm : public AudioEffectAlgorithm {
protected:
    using AudioEffectAlgorithm::AudioEffectAlgorithm;
};

/// An insert effect with a second input bus of 1 to 32 channels.
class AudioSideChainInsertAlgorithm : public AudioEffectAlgorithm {
public:
    bool hasSideChain() const noexcept final { return true; }

protected:
    using AudioEffectAlgorithm::AudioEffectAlgorithm;
};

/// A generator: its output may have any layout. It is given the input as any insert is, for bypass
/// and for cores that add to it; any other core overwrites it.
class AudioSynthAlgorithm : public AudioEffectAlgorithm {
public:
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;

protected:
    using AudioEffectAlgorithm::AudioEffectAlgorithm;
};

}  // namespace quillworks
