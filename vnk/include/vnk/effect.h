// SPDX-License-Identifier: ISC
// The host-facing interface of an effect: a component (main thread) and its algorithm (audio
// thread).
//
// Calling sequence: create the component; setSpeakerArrangement; setPrecision; setSampleRate;
// reset; then per block, in this order: parameter values, tempo and transport if known, process. A
// change of layout, precision or rate repeats from there, never during process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnk/buffer.h"
#include "vnk/object.h"
#include "vnk/parameter.h"
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
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D01}");

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
    /// "hasEditorChanged", "wetLockChanged", "lowLatencyMasterChanged", "lowLatencySlavesChanged".
    virtual void message(const char* name) noexcept = 0;
    /// The effect itself changed a parameter that the host did not set.
    virtual void parameterChanged(std::int32_t index) noexcept = 0;
    /// A person takes hold of a control or lets go of it; within, changes are one gesture.
    virtual void editBegun(std::int32_t index) noexcept = 0;
    virtual void editEnded(std::int32_t index) noexcept = 0;

protected:
    ~IEffectListener() = default;
};

/// The component. Every operation is [main thread] unless it says otherwise. Keys, names, texts,
/// data and sinks that are null are refused as ones that do not exist.
class IEffectComponent : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D02}");

    /// Belongs to the component, whose last reference goes only while nothing calls the algorithm;
    /// a host that holds the algorithm longer may go on with it alone.
    virtual IEffectAlgorithm* algorithm() noexcept = 0;

    // Parameters, in declaration order.
    virtual std::int32_t countParameters() const noexcept = 0;
    virtual bool getParameter(std::int32_t index, ParameterInfo& info) const noexcept = 0;
    /// Index of a key, or -1.
    virtual std::int32_t findParameter(const char* key) const noexcept = 0;
    /// Value in the parameter's own unit; a meter's latest reading. [any thread]
    virtual float getValue(std::int32_t index) const noexcept = 0;
    /// Limits the value to the range and, for lists and toggles, to whole steps. Values that are
    /// not finite, and read-only parameters, are refused. A trigger acts for each value other
    /// than 0. While a group edit is open the value belongs to that gesture.
    virtual bool setValue(std::int32_t index, float value) noexcept = 0;
    /// The same for automation, between two blocks: no gesture, and the listener is not called.
    /// What else it has moved is told by changeCount, and by the algorithm's latency and tail.
    /// Refuses parameters marked isNotAutomatable. [audio thread]
    virtual bool automate(std::int32_t index, float value) noexcept = 0;
    /// As automate(), for parameters marked isNotAutomatable too: for formats that hand a person's
    /// settings over between two blocks, by the same way as automation, and tell the host by a mark
    /// of their own what is not to be automated. [audio thread]
    virtual bool setBetweenBlocks(std::int32_t index, float value) noexcept = 0;
    /// Position of the control, 0 .. 1, for a value, and back.
    virtual float toNormalized(std::int32_t index, float value) const noexcept = 0;
    virtual float fromNormalized(std::int32_t index, float position) const noexcept = 0;
    /// Text with unit, cut to `size` - 1 bytes; returns the length of the whole text.
    virtual std::int32_t valueToText(std::int32_t index, float value, char* text,
                                     std::int32_t size) const noexcept = 0;
    /// Reads a number with or without the unit, or one of the list's texts. False if it is neither,
    /// or out of range.
    virtual bool textToValue(std::int32_t index, const char* text, float& value) const noexcept = 0;
    /// Text of a list's step, counted from the minimum; null beyond the end.
    virtual const char* choiceText(std::int32_t index, std::int32_t step) const noexcept = 0;
    /// Counts every change of the value, by whomever. [any thread]
    virtual std::uint32_t changeCount(std::int32_t index) const noexcept = 0;

    // Gestures: a person holds a control. Nested calls count.
    virtual void beginEdit(Tag tag) noexcept = 0;
    virtual void endEdit(Tag tag) noexcept = 0;
    virtual void beginGroupEdit() noexcept = 0;
    virtual void endGroupEdit() noexcept = 0;

    // Meters: every measured value, the read-only parameters among them. The list depends on the
    // channel count.
    virtual std::int32_t countMeters() const noexcept = 0;
    virtual bool getMeter(std::int32_t index, MeterInfo& info) const noexcept = 0;
    /// [any thread]
    virtual float readMeter(std::int32_t index) const noexcept = 0;
    /// Text of a reading with its unit, "-" for not-a-number; cut and counted as by valueToText.
    virtual std::int32_t meterToText(std::int32_t index, float value, char* text,
                                     std::int32_t size) const noexcept = 0;
    /// Text of a list's step, counted from the minimum; null beyond the end.
    virtual const char* meterChoice(std::int32_t index, std::int32_t step) const noexcept = 0;
    /// Somebody begins or ceases to look at the meters; some run only meanwhile. Calls count: the
    /// effect sees the first beginning and the last end.
    virtual void setEditorOpen(bool open) noexcept = 0;

    // State. A refused state or preset leaves everything as it was; refusalReason() says why. After
    // one that was accepted it says what had to be put right in it (values out of range, values
    // that are not finite), or nothing. The text lives until the next call.
    virtual bool saveState(IByteSink* sink) const noexcept = 0;
    bool saveState(IByteSink& sink) const noexcept { return saveState(&sink); }
    virtual bool loadState(const void* data, std::size_t bytes) noexcept = 0;
    virtual bool savePreset(const char* name, IByteSink* sink) const noexcept = 0;
    bool savePreset(const char* name, IByteSink& sink) const noexcept
    {
        return savePreset(name, &sink);
    }
    virtual bool loadPreset(const void* data, std::size_t bytes) noexcept = 0;
    virtual const char* refusalReason() const noexcept = 0;
    /// The program list: the effect's factory presets.
    virtual std::int32_t countPrograms() const noexcept = 0;
    virtual const char* programTitle(std::int32_t index) const noexcept = 0;  // null beyond the end
    virtual bool loadProgram(std::int32_t index) noexcept = 0;
    /// Name of the current program, "(Unnamed)" without one.
    virtual const char* programName() const noexcept = 0;

    // Attributes: values by key beside the parameters ("channelcount", "remotepages", ...). The
    // getters return false where the key is missing or of another type.
    virtual bool getInteger(const char* key, std::int64_t& value) const noexcept = 0;
    virtual bool getFloat(const char* key, float& value) const noexcept = 0;
    virtual const char* getString(const char* key) const noexcept = 0;  // null where missing
    /// False for keys that the host may only read.
    virtual bool setInteger(const char* key, std::int64_t value) noexcept = 0;

    /// Names of the nodes of the parameter tree, root first; null beyond the end.
    virtual const char* treeNode(std::int32_t index) const noexcept = 0;
    /// Names of the editor views ("Compressor/Editor", ...), null beyond the end.
    virtual const char* viewName(std::int32_t index) const noexcept = 0;
    /// The document that lays the parameters onto hardware controllers; false without one.
    virtual bool remotePages(IByteSink* sink) const noexcept = 0;
    bool remotePages(IByteSink& sink) const noexcept { return remotePages(&sink); }

    /// At most one listener; null removes it. Not owned. Once it returns the former one is called
    /// no more, on whatever thread, and may be freed: it waits for a call that the audio thread is
    /// just making. May be called from within a call.
    virtual void setListener(IEffectListener* listener) noexcept = 0;

protected:
    ~IEffectComponent() = default;
};

}  // namespace VNK
