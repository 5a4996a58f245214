// SPDX-License-Identifier: ISC
// The main-thread half of an effect: parameters, presets, views, and the conversation with the
// host.
#pragma once

#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/effect_algorithm.h"
#include "framework/removable.h"
#include "framework/stored_state.h"
#include "vnk/effect.h"

namespace quillworks {

/// What a component says of itself beside its table.
struct EffectTraits {
    const char* viewPrefix;  // "Compressor"; names views and controller page
    std::vector<const char*> views = {"Editor", "Compact", "Micro"};
    std::int64_t algorithmVersion = 1;  // stored; older states pass migrate()
    /// What it is within its sub-category, in a word ("compressor", "limiter", "filter"), where
    /// hosts sort finer. Attribute "kind".
    const char* kind = "";
    /// Layouts in which formats of fixed layout offer it, by the names of
    /// VNK::SpeakerArrangement, the usual one first. Attribute "layouts".
    const char* layouts = "stereo;mono";
};

/// Delay and tail in samples, latency included in the tail; VNK::kEndlessTail for ever.
struct Delays {
    std::uint32_t latency = 0;
    std::uint32_t tail = 0;

    bool operator==(const Delays&) const = default;
};

/// Offers every interface of vnk/effect.h. What only some effects have is a further interface:
/// class ScopeComponent : public VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays>.
class AudioEffectComponent
    : public VNK::Object<VNK::IEffectComponent, VNK::IEffectParameters, VNK::IEffectGestures,
                         VNK::IEffectMeters, VNK::IEffectState, VNK::IEffectPrograms,
                         VNK::IEffectAttributes, VNK::IEffectViews, VNK::IEffectReadings,
                         VNK::IEffectTexts>,
      private AlgorithmOwner {
public:
    /// Owns the algorithm from now on and publishes the parameters of its table in their order.
    AudioEffectComponent(AudioEffectAlgorithm& algorithm, EffectTraits traits);
    ~AudioEffectComponent() override;

    /// Class ID and display name, which presets carry. Called once by the create function.
    void identify(const VNK::UID& classId, const char* name);

    // The host's side; see vnk/effect.h.
    VNK::IEffectAlgorithm* algorithm() noexcept final { return algorithm_.get(); }
    std::int32_t countParameters() const noexcept final;
    bool getParameter(std::int32_t index, VNK::ParameterInfo& info) const noexcept final;
    std::int32_t findParameter(const char* key) const noexcept final;
    float getValue(std::int32_t index) const noexcept final;
    bool setValue(std::int32_t index, float value) noexcept final;
    bool automate(std::int32_t index, float value) noexcept final;
    bool setBetweenBlocks(std::int32_t index, float value) noexcept final;
    float toNormalized(std::int32_t index, float value) const noexcept final;
    float fromNormalized(std::int32_t index, float position) const noexcept final;
    std::int32_t valueToText(std::int32_t index, float value, char* text,
                             std::int32_t size) const noexcept final;
    bool textToValue(std::int32_t index, const char* text, float& value) const noexcept final;
    const char* choiceText(std::int32_t index, std::int32_t step) const noexcept final;
    std::uint32_t changeCount(std::int32_t index) const noexcept final;
    void beginEdit(Tag tag) noexcept final;
    void endEdit(Tag tag) noexcept final;
    void beginGroupEdit() noexcept final;
    void endGroupEdit() noexcept final;
    std::int32_t countMeters() const noexcept final;
    bool getMeter(std::int32_t index, VNK::MeterInfo& info) const noexcept final;
    float readMeter(std::int32_t index) const noexcept final;
    std::int32_t readMeters(float* values, std::int32_t count) const noexcept final;
    std::int32_t meterToText(std::int32_t index, float value, char* text,
                             std::int32_t size) const noexcept final;
    const char* meterChoice(std::int32_t index, std::int32_t step) const noexcept final;
    void setEditorOpen(bool open) noexcept final;
    bool saveState(VNK::IByteSink* sink) const noexcept final;
    bool loadState(const void* data, std::size_t bytes) noexcept final;
    bool savePreset(const char* name, VNK::IByteSink* sink) const noexcept final;
    bool loadPreset(const void* data, std::size_t bytes) noexcept final;
    const char* refusalReason() const noexcept final { return refusal_.c_str(); }
    std::int32_t countPrograms() const noexcept final;
    const char* programTitle(std::int32_t index) const noexcept final;
    bool loadProgram(std::int32_t index) noexcept final;
    const char* programName() const noexcept final;
    const char* treeNode(std::int32_t index) const noexcept final;
    bool getInteger(const char* key, std::int64_t& value) const noexcept final;
    bool getFloat(const char* key, float& value) const noexcept final;
    const char* getString(const char* key) const noexcept final;
    bool setInteger(const char* key, std::int64_t value) noexcept final;
    const char* viewName(std::int32_t index) const noexcept final;
    bool remotePages(VNK::IByteSink* sink) const noexcept final;
    std::int32_t countTexts() const noexcept final;
    bool getTextInfo(std::int32_t index, VNK::TextInfo& info) const noexcept final;
    std::int32_t findText(const char* key) const noexcept final;
    const char* getText(std::int32_t index) const noexcept final;
    bool setText(std::int32_t index, const char* text) noexcept final;
    const char* textRefusal() const noexcept final { return textRefusal_.c_str(); }
    std::uint32_t textChangeCount(std::int32_t index) const noexcept final;
    const char* textProblem(std::int32_t index) const noexcept final;
    void setBaseFolder(const char* folder) noexcept final;
    void setListener(VNK::IEffectListener* listener) noexcept final { listener_.set(listener); }

protected:
    /// Who sets a value: the host on the main thread, which is told what else moves, or automation
    /// on the audio thread, where nobody is told.
    enum class Setter { Host, Automation };

    /// A value has been set and forwarded; `before` is what it was. For parameters that move
    /// others, with set(..., by). Not called while a state is restored. No allocation, and no state
    /// of the component's own: host and automation may come at once. [any thread]
    virtual void changed(const AlgorithmParameter&, float /*before*/, Setter /*by*/) noexcept {}
    /// A state has been restored as it was stored, or the algorithm prepared for a layout. For
    /// parameters that follow others or what is there. [main thread]
    virtual void reconcile() noexcept {}
    /// Brings a stored state up to date before it is applied. `state.algorithmVersion` is what the
    /// state was stored with, if anything.
    virtual void migrate(StoredState&) const {}
    /// Delay and tail with the present values at a rate; asked after every change. [any thread]
    virtual Delays delays(double /*sampleRate*/) const noexcept { return {}; }
    /// What the algorithm receives for a value; the row's conversion unless an effect has its own.
    /// [any thread]
    virtual float forwarded(const AlgorithmParameter& p, float value) const noexcept
    {
        return p.forward(value);
    }
    /// Whether something is under way on another thread (a file, a table) without which the effect
    /// does not sound as it will: attribute "busy", which offline hosts wait for. [any thread]
    virtual bool isBusy() const noexcept { return false; }
    /// An attribute declared by the effect has been set to a new value.
    virtual void attributeChanged(const std::string& /*key*/, std::int64_t /*value*/) noexcept {}
    /// Whether a person may set a text to this; else `reason` says in a line why not. What a state
    /// brings is not asked about: a folder may be missing on this machine and be there on the next.
    virtual bool acceptsText(const std::string& /*key*/, const std::string& /*text*/,
                             std::string& /*reason*/) const
    {
        return true;
    }
    /// A text has been set, perhaps to what it was; or a state, whose restored() has been called,
    /// has brought another.
    virtual void textChanged(const std::string& /*key*/) noexcept {}
    /// See VNK::IEffectTexts::textProblem.
    virtual std::string problemOf(const std::string& /*key*/) const { return {}; }
    /// Adds to a state or preset what the effect keeps beside parameters, texts and declared
    /// attributes. Of that, blobs too long for a preset are left out of it.
    virtual void complete(StoredState&) const {}
    /// The values of a state are in place; for what complete() has added. Before reconcile().
    virtual void restored(const StoredState&) {}

    /// Present value of a parameter by key. The key must exist.
    float value(const char* key) const noexcept;
    bool isOn(const char* key) const noexcept { return value(key) != 0; }
    /// Sets another parameter, and tells the host unless it is automation that does.
    void set(const char* key, float value, Setter by) noexcept
    {
        setAt(list_.find(key), value, by);
    }
    void setAt(int index, float value, Setter by) noexcept;
    /// Sends a command row's value to the algorithm.
    void command(Tag tag, float value) noexcept;
    /// Declares an attribute of ComponentData with its default; `isStored` in state and presets.
    void declareAttribute(const char* key, std::int64_t value, bool isStored = true);
    /// Declares a text of ComponentData; see VNK::TextInfo. The constants of `info` must live as
    /// long as the component.
    void declareText(const VNK::TextInfo& info);
    /// Present text by key. The key must exist.
    const std::string& text(std::string_view key) const noexcept;
    /// Sets a text from within and tells the host; textChanged() is not called. [main thread]
    void moveText(std::string_view key, std::string text);
    /// Where the present preset or state lies, absolute; empty where nobody has said.
    const std::string& baseFolder() const noexcept { return baseFolder_; }
    /// An attribute that hosts may read but not set.
    void publishAttribute(const char* key, AttributeValue value);
    /// Tempo in force, in beats per minute.
    float tempo() const noexcept { return static_cast<float>(algorithm_->tempo()); }
    bool isPrepared() const noexcept { return algorithm_->isPrepared(); }
    double sampleRate() const noexcept { return algorithm_->spec().sampleRate; }
    int channels() const noexcept { return algorithm_->outputLayout().channels; }
    const AlgorithmParameterList& list() const noexcept { return list_; }
    /// For what is measured outside the audio thread, into slots that the core leaves alone.
    MeterSlots& meterSlots() noexcept { return algorithm_->meters(); }
    void tell(const char* message) noexcept;

private:
    struct Value {
        std::atomic<float> value{0};
        std::atomic<std::uint32_t> changes{0};
        int holds = 0;         // nested beginEdit
        bool inGroup = false;  // touched by the open group edit
    };
    struct Program {
        std::string title, file;
    };
    struct Text {
        VNK::TextInfo info;
        std::string value;
        std::atomic<std::uint32_t> changes{0};
    };
    struct Attribute {
        AttributeValue value;
        bool isSettable = false;
        bool isStored = false;
        std::int64_t defaultValue = 0;
    };

    bool has(std::int32_t index) const noexcept { return index >= 0 && index < countParameters(); }
    const AlgorithmParameter& at(std::int32_t index) const noexcept
    {
        return list_.parameters()[static_cast<std::size_t>(index)];
    }
    Value& valueAt(std::int32_t index) const noexcept
    {
        return values_[static_cast<std::size_t>(index)];
    }
    /// The meters that this channel count shows; null beyond the end.
    const AlgorithmParameter* shownMeter(std::int32_t index) const noexcept
    {
        if (index < 0 || index >= countMeters()) return nullptr;
        return &list_.meters()[shownMeters_[static_cast<std::size_t>(index)]];
    }
    bool isSettable(std::int32_t index, float value) const noexcept;
    void store(std::int32_t index, float value) noexcept;
    void assign(std::int32_t index, float value, Setter by) noexcept;
    void setupChanged(const char* message) noexcept override;
    void wetOnlyChanged() noexcept override;
    void tempoChanged() noexcept override;
    void sideChainChanged() noexcept override;
    void calculateDelays() noexcept;
    void announceDelays() noexcept;
    /// Puts a text in place; true if it is another than before.
    bool assignText(Text& text, std::string value) noexcept;
    StoredState storedState() const;
    bool restore(StoredState state);
    void scanPrograms() const;

    // The first two are read after every block.
    VNK::Ref<AudioEffectAlgorithm> algorithm_;
    std::vector<std::uint16_t> shownMeters_;  // of list_.meters(), those this channel count has
    const AlgorithmParameterList& list_;      // the algorithm's
    EffectTraits traits_;
    std::vector<std::string> viewNames_;
    std::unique_ptr<Value[]> values_;
    std::map<std::string, Attribute, std::less<>> attributes_;
    std::deque<Text> texts_;
    std::string baseFolder_, textRefusal_;
    mutable std::string textProblem_;
    VNK::UID classId_;
    std::string name_, programName_;
    mutable std::string refusal_;
    mutable std::optional<std::vector<Program>> programs_;  // once they have been looked for
    /// All but the side-chain's message is told on the thread that sets it.
    Removable<VNK::IEffectListener> listener_;
    Delays announced_;  // as the host was told last
    int groupEdits_ = 0;
    int editorOpenings_ = 0;
    int bypassIndex_ = -1;
    int tempoIndex_ = -1;
};

}  // namespace quillworks
