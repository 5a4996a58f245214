// SPDX-License-Identifier: ISC
// The host-facing interfaces of an effect: a component (main thread) and its algorithm (audio
// thread). A component offers an interface for each thing that it does; a host asks for those that
// it needs with queryInterface (vnk/hosted_effect.h asks for all). None of them changes any more,
// nor do the structures in them: what is new comes as an interface of its own, beside the others.
//
// Calling sequence: create the component; setSpeakerArrangement; setPrecision; setSampleRate;
// reset; then per block, in this order: parameter values, tempo and transport if known, process. A
// change of layout, precision or rate repeats from there, never during process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnk/effect_attributes.h"
#include "vnk/effect_meters.h"
#include "vnk/effect_parameters.h"
#include "vnk/effect_state.h"
#include "vnk/effect_texts.h"
#include "vnk/object.h"
#include "vnk/speaker_arrangement.h"

namespace VNK {

enum class Precision : std::int32_t { Float = 0, Double = 1 };

/// Where the song stands at the first frame of the next block.
struct Transport {
    bool playing = false;
    bool positionKnown = false;
    double quarterNotes = 0;  // since the start of the song, if known
    bool frameKnown = false;
    std::int64_t frame = 0;  // since the start of the song, if known
    double tempo = 0;        // quarter notes per minute, 0 = unknown
};

/// One block. The buffers hold floats or doubles as set by setPrecision; an output may be the input
/// of any channel, but not a channel of the side-chain. A null buffer is a silent input, or an
/// output that nobody hears; a null list has no channels.
struct ProcessData {
    const void* const* inputs = nullptr;
    std::int32_t inputChannels = 0;
    void* const* outputs = nullptr;
    std::int32_t outputChannels = 0;
    const void* const* sideChain = nullptr;  // null: silent, or not connected
    std::int32_t sideChainChannels = 0;
    std::int32_t frames = 0;
};

inline constexpr std::uint32_t kEndlessTail = 0xFFFFFFFF;

inline constexpr double kHighestSampleRate = 768000;  // Hz

class IEffectAlgorithm : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D0B}");

    /// [main thread, not processing]
    virtual bool acceptsArrangement(const SpeakerArrangement& input,
                                    const SpeakerArrangement& output) const noexcept = 0;
    /// False, and nothing changed, where acceptsArrangement says no. [main thread, not processing]
    virtual bool setSpeakerArrangement(const SpeakerArrangement& input,
                                       const SpeakerArrangement& output) noexcept = 0;
    /// [main thread, not processing]
    virtual void setPrecision(Precision precision) noexcept = 0;
    /// Prepares for blocks of at most `maxFrames` (longer ones are cut). Effects keep their figures
    /// from 8 to 384 kHz and work from 1 Hz up to 768 kHz. False when the rate is not within that
    /// or memory cannot be had: the effect then must not be run. [main thread, not processing]
    virtual bool setSampleRate(std::int32_t maxFrames, double sampleRate) noexcept = 0;
    /// Clears delay lines, envelopes and smoothers without changing parameters. [not processing]
    virtual void reset() noexcept = 0;

    /// Whether the effect has a side-chain bus. [main thread]
    virtual bool hasSideChain() const noexcept = 0;
    /// The host has connected or disconnected the side-chain bus. Listeners are told on the calling
    /// thread. [main thread, not processing; or between two blocks on the audio thread]
    virtual void setSideChainActive(bool active) noexcept = 0;
    /// Wet-only mode: an effect with a mix parameter outputs its wet signal alone. [main thread]
    virtual void setWetOnly(bool wetOnly) noexcept = 0;

    /// Host tempo in beats per minute, from the next block on. Limited to 10 .. 400; not finite or
    /// not above 0 is ignored. [any thread]
    virtual void setTempo(double beatsPerMinute) noexcept = 0;
    /// Song position of the next block only; where it is not called the position is unknown. A host
    /// splits its block at a jump. A tempo of 0 leaves the tempo alone. [audio thread]
    virtual void setTransport(const Transport& transport) noexcept = 0;
    /// No allocation, lock, system call or exception. [audio thread, prepared]
    virtual void process(const ProcessData& data) noexcept = 0;

    /// Delay of the processed signal in samples, 0 while bypassed. Asked again after the message
    /// "processSetupChanged", and after a block that automation has changed parameters of.
    /// [any thread]
    virtual std::uint32_t getLatency() const noexcept = 0;
    /// Samples that the output may last beyond the input, latency included; kEndlessTail if for
    /// ever. [any thread]
    virtual std::uint32_t getTailLength() const noexcept = 0;
    /// What bypass plays: the gain of an input channel in an output channel of the present layouts.
    /// [main thread]
    virtual float getBypassGain(std::int32_t input, std::int32_t output) const noexcept = 0;

protected:
    ~IEffectAlgorithm() = default;
};

/// Told by the component, on the main thread save for the message "sideChainActivated", which comes
/// on the thread that called setSideChainActive. An implementation must not block.
class IEffectListener {
public:
    /// "processSetupChanged", "processStateChanged", "speakerTypeChanged", "sideChainActivated",
    /// "hasEditorChanged", "wetLockChanged", "lowLatencyMasterChanged", "lowLatencySlavesChanged",
    /// "textChanged"; "groupEditBegun" and "groupEditEnded" around the gestures that are one.
    virtual void message(const char* name) noexcept = 0;
    /// The effect itself changed a parameter that the host did not set.
    virtual void parameterChanged(std::int32_t index) noexcept = 0;
    /// A person takes hold of a control or lets go of it; within, changes are one gesture.
    virtual void editBegun(std::int32_t index) noexcept = 0;
    virtual void editEnded(std::int32_t index) noexcept = 0;

protected:
    ~IEffectListener() = default;
};

/// The component itself. Every operation of it and of its interfaces is [main thread] unless it
/// says otherwise. Keys, names, texts, data and sinks that are null are refused as ones that do not
/// exist.
class IEffectComponent : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D03}");

    /// Belongs to the component, whose last reference goes only while nothing calls the algorithm;
    /// a host that holds the algorithm longer may go on with it alone.
    virtual IEffectAlgorithm* algorithm() noexcept = 0;
    /// At most one listener; null removes it. Not owned. Once it returns the former one is called
    /// no more, on whatever thread, and may be freed: it waits for a call that the audio thread is
    /// just making. May be called from within a call.
    virtual void setListener(IEffectListener* listener) noexcept = 0;

protected:
    ~IEffectComponent() = default;
};

}  // namespace VNK
