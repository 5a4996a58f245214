// SPDX-License-Identifier: ISC
// The audio half of an effect: everything that all effects do around their core.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "framework/audio_block.h"
#include "framework/bypass.h"
#include "framework/meter_slots.h"
#include "framework/parameter.h"
#include "framework/parameter_crossing.h"
#include "vnk/effect.h"

namespace quillworks {

/// One entry per parameter, command or meter of a table, families expanded, in declaration order.
struct SlotLayout {
    std::vector<Tag> parameterTags;  // of the crossing's slots
    std::vector<bool> isTrigger;
    std::vector<std::pair<Tag, float>> meters;

    template <class S> static SlotLayout of(std::span<const Parameter<S>> rows)
    {
        SlotLayout layout;
        for (const auto& row : rows)
            for (int i = 0; i < row.count(); ++i) {
                const Tag tag = row.tag + static_cast<Tag>(i);
                if (row.isMeter()) {
                    layout.meters.emplace_back(tag, row.defaultAt(i));
                } else {
                    layout.parameterTags.push_back(tag);
                    layout.isTrigger.push_back(row.kind == Kind::Trigger);
                }
            }
        return layout;
    }
};

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

    // The component's side. [main thread]
    void setOwner(AlgorithmOwner* owner) noexcept { owner_ = owner; }
    ParameterCrossing& crossing() noexcept { return crossing_; }
    const MeterSlots& meters() const noexcept { return meters_; }
    const ProcessSpec& spec() const noexcept { return spec_; }
    const VNK::SpeakerArrangement& inputLayout() const noexcept { return input_; }
    const VNK::SpeakerArrangement& outputLayout() const noexcept { return output_; }
    /// [any thread]
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
    /// Delay and tail in samples at the prepared rate, worked out from the parameters; `bypassed`
    /// as the user sees it. True if any of them is new. [any thread]
    bool setDelays(std::uint32_t latency, std::uint32_t tail, bool bypassed) noexcept;

    /// Stores a value and marks its group of derived coefficients. Called for each changed
    /// parameter at the start of a block, in declaration order; a trigger gives 1. An effect
    /// overrides it for commands and coupled parameters. [audio thread]
    virtual void setParameter(Tag tag, float value) noexcept = 0;

protected:
    explicit AudioEffectAlgorithm(const SlotLayout& layout);

    // What PrecisionAlgorithm implements. prepareCore may throw std::bad_alloc.
    virtual void prepareCore(const ProcessSpec& spec, VNK::Precision precision) = 0;
    virtual void resetCore() noexcept = 0;
    virtual void applyChanges() noexcept = 0;  // groups marked dirty
    virtual void setCoreTempo(double beatsPerMinute) noexcept = 0;
    virtual void setCoreWetOnly(bool wetOnly) noexcept = 0;
    virtual void processCore(const AudioBlock<float>& block) noexcept = 0;
    virtual void processCore(const AudioBlock<double>& block) noexcept = 0;
    virtual void publish(MeterSlots& meters) noexcept = 0;
    /// What the output holds before the core runs: the input, or silence for a generator.
    virtual bool takesInput() const noexcept { return true; }

    VNK::Precision precision() const noexcept { return precision_; }

private:
    static constexpr double kUntoldTempo = 120;

    template <typename T> struct Scratch;

    void takeParameters() noexcept;
    template <typename T>
    void processAs(const VNK::ProcessData& data, Scratch<T>& scratch) noexcept;
    template <typename T> void processPiece(AudioBlock<T>& piece, Scratch<T>& scratch) noexcept;
    template <typename T> void runCore(AudioBlock<T>& block) noexcept;
    void restartCore() noexcept;
    void tellOwner(const char* message) noexcept;

    ParameterCrossing crossing_;
    std::vector<Tag> tags_;  // of the crossing's slots
    MeterSlots meters_;
    ProcessSpec spec_;
    VNK::SpeakerArrangement input_ = VNK::SpeakerArrangement::withChannels(2);
    VNK::SpeakerArrangement output_ = VNK::SpeakerArrangement::withChannels(2);
    VNK::Precision precision_ = VNK::Precision::Float;
    bool isPrepared_ = false;
    bool isFresh_ = true;  // nothing processed since reset
    std::atomic<bool> sideChainActive_{false};
    std::atomic<bool> wetOnly_{false};
    bool wetOnlySeen_ = false;
    std::atomic<double> tempo_{0};  // 0: nobody has told
    double tempoSeen_ = 0;
    VNK::Transport transport_;
    int gridPhase_ = 0;
    BypassFade bypass_;
    std::atomic<std::uint32_t> ownLatency_{0}, ownTail_{0};
    std::atomic<bool> reportsBypassed_{false};

    std::unique_ptr<Scratch<float>> floatScratch_;
    std::unique_ptr<Scratch<double>> doubleScratch_;
    AlgorithmOwner* owner_ = nullptr;
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

/// A generator: its input is ignored, its output may have any layout.
class AudioSynthAlgorithm : public AudioEffectAlgorithm {
public:
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;

protected:
    using AudioEffectAlgorithm::AudioEffectAlgorithm;
    bool takesInput() const noexcept final { return false; }
};

}  // namespace quillworks
