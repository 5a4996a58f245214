// SPDX-License-Identifier: ISC
// An effect as its editor sees it in formats that have a switch of their own: the effect's bypass
// is that switch. The effect's would take its delay away, for which the host has made room.
#pragma once

#include "vnk/hosted_effect.h"

namespace quillworks::adapters {

/// The format's switch. [main thread]
class IHostSwitch {
public:
    virtual bool isOn() const noexcept = 0;
    /// By a person, in the editor: the host is told.
    virtual void switchByHand(bool isOn) noexcept = 0;

protected:
    ~IHostSwitch() = default;
};

class SwitchedComponent final : public VNK::Object<VNK::IEffectComponent, VNK::IEffectParameters> {
public:
    /// The effect, with its bypass replaced by the switch, which outlives it.
    static VNK::HostedEffect of(const VNK::HostedEffect& effect, IHostSwitch& hostSwitch)
    {
        const auto self =
            VNK::Ref<SwitchedComponent>::adopt(new SwitchedComponent(effect, hostSwitch));
        return VNK::HostedEffect(static_cast<VNK::IEffectComponent*>(self.get()));
    }

    void* queryInterface(const VNK::UID& id) noexcept override
    {
        void* const own = Object::queryInterface(id);
        return own ? own : component_->queryInterface(id);
    }
    VNK::IEffectAlgorithm* algorithm() noexcept override { return component_->algorithm(); }
    void setListener(VNK::IEffectListener* listener) noexcept override
    {
        component_->setListener(listener);
    }

    std::int32_t countParameters() const noexcept override { return effect_.countParameters(); }
    bool getParameter(std::int32_t i, VNK::ParameterInfo& info) const noexcept override
    {
        return effect_.getParameter(i, info);
    }
    std::int32_t findParameter(const char* key) const noexcept override
    {
        return effect_.findParameter(key);
    }
    float getValue(std::int32_t i) const noexcept override
    {
        return i == bypass_ ? (switch_.isOn() ? 0.0f : 1.0f) : effect_.getValue(i);
    }
    bool setValue(std::int32_t i, float value) noexcept override
    {
        if (i != bypass_) return effect_.setValue(i, value);
        switch_.switchByHand(value < 0.5f);
        return true;
    }
    bool automate(std::int32_t i, float value) noexcept override
    {
        return i != bypass_ && effect_.automate(i, value);
    }
    bool setBetweenBlocks(std::int32_t i, float value) noexcept override
    {
        return i != bypass_ && effect_.setBetweenBlocks(i, value);
    }
    float toNormalized(std::int32_t i, float value) const noexcept override
    {
        return effect_.toNormalized(i, value);
    }
    float fromNormalized(std::int32_t i, float position) const noexcept override
    {
        return effect_.fromNormalized(i, position);
    }
    std::int32_t valueToText(std::int32_t i, float value, char* text,
                             std::int32_t size) const noexcept override
    {
        return effect_.valueToText(i, value, text, size);
    }
    bool textToValue(std::int32_t i, const char* text, float& value) const noexcept override
    {
        return effect_.textToValue(i, text, value);
    }
    const char* choiceText(std::int32_t i, std::int32_t step) const noexcept override
    {
        return effect_.choiceText(i, step);
    }
    std::uint32_t changeCount(std::int32_t i) const noexcept override
    {
        if (i != bypass_) return effect_.changeCount(i);
        const bool isOn = switch_.isOn();
        if (isOn != wasOn_) ++changes_;
        wasOn_ = isOn;
        return changes_;
    }
    const char* treeNode(std::int32_t i) const noexcept override { return effect_.treeNode(i); }

private:
    SwitchedComponent(const VNK::HostedEffect& effect, IHostSwitch& hostSwitch)
        : effect_(effect),
          component_(effect.queryInterface<VNK::IEffectComponent>()),
          switch_(hostSwitch)
    {
        VNK::ParameterInfo info{};
        for (int i = 0; effect_.getParameter(i, info); ++i)
            if (info.has(VNK::isBypass)) bypass_ = i;
    }

    VNK::HostedEffect effect_;
    VNK::Ref<VNK::IEffectComponent> component_;
    IHostSwitch& switch_;
    int bypass_ = -1;
    mutable bool wasOn_ = true;
    mutable std::uint32_t changes_ = 0;
};

}  // namespace quillworks::adapters
