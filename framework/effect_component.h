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
#include "framework/user_presets.h"
#include "vnk/effect.h"
#include "vnk/effect_editing.h"

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
    /// At its defaults the output is the input, bit by bit. Attribute "copiesAtDefaults".
    bool copiesAtDefaults = false;
};

/// Delay and tail in samples, latency included in the tail; VNK::kEndlessTail for ever.
struct Delays {
    std::uint32_t latency = 0;
    std::uint32_t tail = 0;

    bool operator==(const Delays&) const = default;
};

/// Offers every interface of vnk/effect.h and vnk/effect_editing.h. What only some effects have is
/// a further interface: class ScopeComponent : public VNK::Extended<AudioEffectComponent,
/// VNK::IEffectDisplays>.
class AudioEffectComponent
    : public VNK::Object<VNK::IEffectComponent, VNK::IEffectParameters, VNK::IEffectGestures,
                         VNK::IEffectMeters, VNK::IEffectState, VNK::IEffectPrograms,
                         VNK::IEffectAttributes, VNK::IEffectViews, VNK::IEffectReadings,
                         VNK::IEffectTexts, VNK::IEffectEditing, VNK::IEffectUserPresets>,
      private AlgorithmOwner {
public:
    /// Owns the algorithm from now on and publishes the parameters of its table in their order.
    AudioEffectComponent(AudioEffectAlgorithm& algorithm, EffectTraits traits);
    ~AudioEffectComponent() override;

    /// Class ID and display name, which presets carry. Called once by the create function.
    void identify(const VNK::UID& classId, const char* name);

    // The host's side; see vnk/effect.h and vnk/effect_editing.h.
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
    std::int32_t comparedSet() const noexcept final { return comparedSet_; }
    bool selectSet(std::int32_t set) noexcept final;
    void copyToOtherSet() noexcept final;
    bool setsDiffer() const noexcept final;
    std::uint32_t editCount() const noexcept final
    {
        return edits_.load(std::memory_order_relaxed);
    }
    bool isModified() const noexcept final;
    bool isWetLocked() const noexcept final { return isWetLocked_; }
    void setWetLocked(bool locked) noexcept final;
    void findPresets() noexcept final;
    std::int32_t countUserPresets() const noexcept final;
    const char* userPresetName(std::int32_t index) const noexcept final;
    bool loadUserPreset(std::int32_t index) noexcept final;
    bool saveUserPreset(const char* name, bool replace) noexcept final;
    bool renameUserPreset(std::int32_t index, const char* name) noexcept final;
    bool removeUserPreset(std::int32_t index) noexcept final;

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
    /// Of the two to compare, the one that is not heard.
    struct Set {
        StoredState state;  // whole, as fit() leaves it; named as the program
        std::uint64_t print = 0;
        std::optional<std::uint64_t> reference;
    };
    /// Where values come from that take the place of all others.
    enum class Source {
        Song,    // the host restores: everything, both sets
        Preset,  // the host hands over a document
        Person,  // one gesture of the host's; bypass stays as it is
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
    /// Brings a state up to date and makes it whole: every stored value within its range, missing
    /// ones at their defaults. Else false with the reason; what has been put right is the remark.
    bool fit(StoredState& state, std::string& remark) const;
    /// Takes a state that is fit.
    void apply(const StoredState& state, Source source);
    bool restore(StoredState state, Source source);
    bool loadPresetFile(const std::string& file, const std::string& name);
    /// What a song holds beside the set that is heard: the other set, what is chosen and locked.
    void addToSong(StoredState& song) const;
    /// True where the song's values are others than those of its program.
    bool takeFromSong(const StoredState& song);
    Set presentSet() const;
    /// The other set of a song; null where there is none that is fit.
    std::unique_ptr<Set> storedSet(const StoredState& song) const;
    /// The same number for the same settings, whatever else a state holds. Bypass is none of them.
    template <class Setting, class Number, class Word>
    std::uint64_t fingerprint(Setting&& setting, Number&& number, Word&& word) const noexcept;
    std::uint64_t fingerprint() const noexcept;
    std::uint64_t fingerprint(const StoredState& state) const noexcept;
    void joinGroup(std::int32_t index) noexcept;
    void nameProgram(std::string name) noexcept;
    /// Something has changed that editCount() counts.
    void edited() noexcept { edits_.fetch_add(1, std::memory_order_relaxed); }
    void scanPrograms() const;
    UserPresets& userPresets() const;
    template <class F> bool managePresets(F&& f) noexcept;

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
    mutable std::unique_ptr<UserPresets> userPresets_;      // the same
    std::unique_ptr<Set> other_;                            // null until used: as the one heard
    std::optional<std::uint64_t> reference_;  // print of the preset; none: known to be another
    std::atomic<std::uint32_t> edits_{0};
    int comparedSet_ = 0;
    bool isWetLocked_ = false;
    /// All but the side-chain's message is told on the thread that sets it.
    Removable<VNK::IEffectListener> listener_;
    Delays announced_;  // as the host was told last
    int groupEdits_ = 0;
    int editorOpenings_ = 0;
    int bypassIndex_ = -1;
    int tempoIndex_ = -1;
};

}  // namespace quillworks
