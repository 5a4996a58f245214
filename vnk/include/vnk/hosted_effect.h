// SPDX-License-Identifier: ISC
// An effect as our own hosts hold it: all of its interfaces, asked for once. Nothing of this
// crosses the module boundary.
#pragma once

#include <algorithm>

#include "vnk/class_factory.h"
#include "vnk/effect.h"
#include "vnk/effect_editing.h"

namespace VNK {

/// A reference to a component with the operations of its interfaces, which vnk/effect.h and its
/// parts describe. Copies refer to the same effect; an empty one must not be called.
class HostedEffect {
public:
    HostedEffect() = default;
    /// Empty where the object is null or lacks an interface.
    explicit HostedEffect(IObject* object) noexcept
        : component_(VNK::queryInterface<IEffectComponent>(object)),
          parameters_(of<IEffectParameters>(object)),
          gestures_(of<IEffectGestures>(object)),
          meters_(of<IEffectMeters>(object)),
          readings_(of<IEffectReadings>(object)),
          state_(of<IEffectState>(object)),
          programs_(of<IEffectPrograms>(object)),
          attributes_(of<IEffectAttributes>(object)),
          views_(of<IEffectViews>(object)),
          texts_(of<IEffectTexts>(object)),
          editing_(of<IEffectEditing>(object)),
          userPresets_(of<IEffectUserPresets>(object))
    {
        const bool isWhole =
            parameters_ && gestures_ && meters_ && state_ && programs_ && attributes_ && views_;
        if (!isWhole) component_ = {};
    }
    /// A new effect of a factory; empty for an unknown class or without memory.
    static HostedEffect create(IClassFactory& factory, const UID& classId) noexcept
    {
        return adopt(factory.createInstance(classId));
    }
    /// Takes over a reference that the caller owns.
    static HostedEffect adopt(IObject* object) noexcept
    {
        return HostedEffect(Ref<IObject>::adopt(object).get());
    }

    explicit operator bool() const noexcept { return bool(component_); }
    /// For an interface that is not among these.
    template <class I> Ref<I> queryInterface() const noexcept
    {
        return VNK::queryInterface<I>(component_.get());
    }
    /// As of a pointer.
    const HostedEffect* operator->() const noexcept { return this; }
    const HostedEffect& operator*() const noexcept { return *this; }

    // IEffectComponent
    IEffectAlgorithm* algorithm() const noexcept { return component_->algorithm(); }
    void setListener(IEffectListener* listener) const noexcept
    {
        component_->setListener(listener);
    }

    // IEffectParameters
    std::int32_t countParameters() const noexcept { return parameters_->countParameters(); }
    bool getParameter(std::int32_t index, ParameterInfo& info) const noexcept
    {
        return parameters_->getParameter(index, info);
    }
    std::int32_t findParameter(const char* key) const noexcept
    {
        return parameters_->findParameter(key);
    }
    float getValue(std::int32_t index) const noexcept { return parameters_->getValue(index); }
    bool setValue(std::int32_t index, float value) const noexcept
    {
        return parameters_->setValue(index, value);
    }
    bool automate(std::int32_t index, float value) const noexcept
    {
        return parameters_->automate(index, value);
    }
    bool setBetweenBlocks(std::int32_t index, float value) const noexcept
    {
        return parameters_->setBetweenBlocks(index, value);
    }
    float toNormalized(std::int32_t index, float value) const noexcept
    {
        return parameters_->toNormalized(index, value);
    }
    float fromNormalized(std::int32_t index, float position) const noexcept
    {
        return parameters_->fromNormalized(index, position);
    }
    std::int32_t valueToText(std::int32_t index, float value, char* text,
                             std::int32_t size) const noexcept
    {
        return parameters_->valueToText(index, value, text, size);
    }
    bool textToValue(std::int32_t index, const char* text, float& value) const noexcept
    {
        return parameters_->textToValue(index, text, value);
    }
    const char* choiceText(std::int32_t index, std::int32_t step) const noexcept
    {
        return parameters_->choiceText(index, step);
    }
    std::uint32_t changeCount(std::int32_t index) const noexcept
    {
        return parameters_->changeCount(index);
    }
    const char* treeNode(std::int32_t index) const noexcept { return parameters_->treeNode(index); }

    // IEffectGestures
    void beginEdit(Tag tag) const noexcept { return gestures_->beginEdit(tag); }
    void endEdit(Tag tag) const noexcept { return gestures_->endEdit(tag); }
    void beginGroupEdit() const noexcept { return gestures_->beginGroupEdit(); }
    void endGroupEdit() const noexcept { return gestures_->endGroupEdit(); }

    // IEffectMeters
    std::int32_t countMeters() const noexcept { return meters_->countMeters(); }
    bool getMeter(std::int32_t index, MeterInfo& info) const noexcept
    {
        return meters_->getMeter(index, info);
    }
    float readMeter(std::int32_t index) const noexcept { return meters_->readMeter(index); }
    /// The first `count` meters; what is beyond the last is left as it is.
    void readMeters(float* values, std::int32_t count) const noexcept
    {
        if (readings_) return void(readings_->readMeters(values, count));
        for (std::int32_t i = 0; i < std::min(count, countMeters()); ++i) values[i] = readMeter(i);
    }
    std::int32_t meterToText(std::int32_t index, float value, char* text,
                             std::int32_t size) const noexcept
    {
        return meters_->meterToText(index, value, text, size);
    }
    const char* meterChoice(std::int32_t index, std::int32_t step) const noexcept
    {
        return meters_->meterChoice(index, step);
    }
    void setEditorOpen(bool open) const noexcept { return meters_->setEditorOpen(open); }

    // IEffectState
    bool saveState(IByteSink* sink) const noexcept { return state_->saveState(sink); }
    bool saveState(IByteSink& sink) const noexcept { return saveState(&sink); }
    bool loadState(const void* data, std::size_t bytes) const noexcept
    {
        return state_->loadState(data, bytes);
    }
    bool savePreset(const char* name, IByteSink* sink) const noexcept
    {
        return state_->savePreset(name, sink);
    }
    bool savePreset(const char* name, IByteSink& sink) const noexcept
    {
        return savePreset(name, &sink);
    }
    bool loadPreset(const void* data, std::size_t bytes) const noexcept
    {
        return state_->loadPreset(data, bytes);
    }
    const char* refusalReason() const noexcept { return state_->refusalReason(); }

    // IEffectPrograms
    std::int32_t countPrograms() const noexcept { return programs_->countPrograms(); }
    const char* programTitle(std::int32_t index) const noexcept
    {
        return programs_->programTitle(index);
    }
    bool loadProgram(std::int32_t index) const noexcept { return programs_->loadProgram(index); }
    const char* programName() const noexcept { return programs_->programName(); }

    // IEffectAttributes
    bool getInteger(const char* key, std::int64_t& value) const noexcept
    {
        return attributes_->getInteger(key, value);
    }
    bool getFloat(const char* key, float& value) const noexcept
    {
        return attributes_->getFloat(key, value);
    }
    const char* getString(const char* key) const noexcept { return attributes_->getString(key); }
    bool setInteger(const char* key, std::int64_t value) const noexcept
    {
        return attributes_->setInteger(key, value);
    }

    // IEffectViews
    const char* viewName(std::int32_t index) const noexcept { return views_->viewName(index); }
    bool remotePages(IByteSink* sink) const noexcept { return views_->remotePages(sink); }
    bool remotePages(IByteSink& sink) const noexcept { return remotePages(&sink); }

    // IEffectTexts; without the interface there are no texts
    std::int32_t countTexts() const noexcept { return texts_ ? texts_->countTexts() : 0; }
    bool getTextInfo(std::int32_t index, TextInfo& info) const noexcept
    {
        return texts_ && texts_->getTextInfo(index, info);
    }
    std::int32_t findText(const char* key) const noexcept
    {
        return texts_ ? texts_->findText(key) : -1;
    }
    const char* getText(std::int32_t index) const noexcept
    {
        return texts_ ? texts_->getText(index) : nullptr;
    }
    bool setText(std::int32_t index, const char* text) const noexcept
    {
        return texts_ && texts_->setText(index, text);
    }
    const char* textRefusal() const noexcept { return texts_ ? texts_->textRefusal() : ""; }
    std::uint32_t textChangeCount(std::int32_t index) const noexcept
    {
        return texts_ ? texts_->textChangeCount(index) : 0;
    }
    const char* textProblem(std::int32_t index) const noexcept
    {
        return texts_ ? texts_->textProblem(index) : "";
    }
    void setBaseFolder(const char* folder) const noexcept
    {
        if (texts_) texts_->setBaseFolder(folder);
    }

    // IEffectEditing; without the interface there is one set, never changed
    std::int32_t comparedSet() const noexcept { return editing_ ? editing_->comparedSet() : 0; }
    bool selectSet(std::int32_t set) const noexcept
    {
        return editing_ ? editing_->selectSet(set) : set == 0;
    }
    void copyToOtherSet() const noexcept
    {
        if (editing_) editing_->copyToOtherSet();
    }
    bool setsDiffer() const noexcept { return editing_ && editing_->setsDiffer(); }
    std::uint32_t editCount() const noexcept { return editing_ ? editing_->editCount() : 0; }
    bool isModified() const noexcept { return editing_ && editing_->isModified(); }
    bool isWetLocked() const noexcept { return editing_ && editing_->isWetLocked(); }
    void setWetLocked(bool locked) const noexcept
    {
        if (editing_) editing_->setWetLocked(locked);
    }

    // IEffectUserPresets; without the interface there are none
    void findPresets() const noexcept
    {
        if (userPresets_) userPresets_->findPresets();
    }
    std::int32_t countUserPresets() const noexcept
    {
        return userPresets_ ? userPresets_->countUserPresets() : 0;
    }
    const char* userPresetName(std::int32_t index) const noexcept
    {
        return userPresets_ ? userPresets_->userPresetName(index) : nullptr;
    }
    bool loadUserPreset(std::int32_t index) const noexcept
    {
        return userPresets_ && userPresets_->loadUserPreset(index);
    }
    bool saveUserPreset(const char* name, bool replace) const noexcept
    {
        return userPresets_ && userPresets_->saveUserPreset(name, replace);
    }
    bool renameUserPreset(std::int32_t index, const char* name) const noexcept
    {
        return userPresets_ && userPresets_->renameUserPreset(index, name);
    }
    bool removeUserPreset(std::int32_t index) const noexcept
    {
        return userPresets_ && userPresets_->removeUserPreset(index);
    }

private:
    template <class I> static I* of(IObject* object) noexcept
    {
        return object ? static_cast<I*>(object->queryInterface(I::iid)) : nullptr;
    }

    Ref<IEffectComponent> component_;
    // They live as long as the component does.
    IEffectParameters* parameters_ = nullptr;
    IEffectGestures* gestures_ = nullptr;
    IEffectMeters* meters_ = nullptr;
    IEffectReadings* readings_ = nullptr;  // null where an effect has none
    IEffectState* state_ = nullptr;
    IEffectPrograms* programs_ = nullptr;
    IEffectAttributes* attributes_ = nullptr;
    IEffectViews* views_ = nullptr;
    IEffectTexts* texts_ = nullptr;      // null where an effect has none
    IEffectEditing* editing_ = nullptr;  // the same, and the next
    IEffectUserPresets* userPresets_ = nullptr;
};

}  // namespace VNK
