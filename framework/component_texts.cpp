// SPDX-License-Identifier: ISC
// The texts of a component.
#include <algorithm>
#include <cassert>
#include <cstring>

#include "framework/effect_component.h"

namespace quillworks {
namespace {

constexpr const char* kNoMemory = "no memory";

}  // namespace

void AudioEffectComponent::declareText(const VNK::TextInfo& info)
{
    assert(findText(info.key) < 0 &&
           attributes_.find(std::string_view(info.key)) == attributes_.end() &&
           "a key stands once");
    auto& text = texts_.emplace_back();
    text.info = info;
    text.value = info.defaultText;
}

std::int32_t AudioEffectComponent::countTexts() const noexcept
{
    return static_cast<std::int32_t>(texts_.size());
}

bool AudioEffectComponent::getTextInfo(std::int32_t index, VNK::TextInfo& info) const noexcept
{
    if (index < 0 || index >= countTexts()) return false;
    info = texts_[static_cast<std::size_t>(index)].info;
    return true;
}

std::int32_t AudioEffectComponent::findText(const char* key) const noexcept
{
    if (!key) return -1;
    const auto at = std::find_if(texts_.begin(), texts_.end(),
                                 [&](const Text& t) { return !std::strcmp(t.info.key, key); });
    return at == texts_.end() ? -1 : static_cast<std::int32_t>(at - texts_.begin());
}

const char* AudioEffectComponent::getText(std::int32_t index) const noexcept
{
    if (index < 0 || index >= countTexts()) return nullptr;
    return texts_[static_cast<std::size_t>(index)].value.c_str();
}

std::uint32_t AudioEffectComponent::textChangeCount(std::int32_t index) const noexcept
{
    if (index < 0 || index >= countTexts()) return 0;
    return texts_[static_cast<std::size_t>(index)].changes.load(std::memory_order_relaxed);
}

const std::string& AudioEffectComponent::text(std::string_view key) const noexcept
{
    const auto at = std::find_if(texts_.begin(), texts_.end(),
                                 [&](const Text& t) { return t.info.key == key; });
    assert(at != texts_.end() && "a key that exists");
    return at->value;
}

bool AudioEffectComponent::assignText(Text& text, std::string value) noexcept
{
    if (text.value == value) return false;
    text.value = std::move(value);
    text.changes.fetch_add(1, std::memory_order_relaxed);
    edited();
    return true;
}

bool AudioEffectComponent::setText(std::int32_t index, const char* text) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    try {
        if (!text || index < 0 || index >= countTexts())
            return textRefusal_ = "there is no such text", false;
        auto& target = texts_[static_cast<std::size_t>(index)];
        const std::string value = text, key = target.info.key;
        if (value.size() > VNK::kLongestText)
            return textRefusal_ =
                       "it is longer than " + std::to_string(VNK::kLongestText) + " bytes",
                   false;
        if (!acceptsText(key, value, textRefusal_)) return false;
        assignText(target, value);
        textChanged(key);
        return true;
    } catch (...) {
        textRefusal_ = kNoMemory;
        return false;
    }
}

void AudioEffectComponent::moveText(std::string_view key, std::string value)
{
    for (auto& text : texts_)
        if (text.info.key == key && assignText(text, std::move(value))) return tell("textChanged");
}

const char* AudioEffectComponent::textProblem(std::int32_t index) const noexcept
{
    if (index < 0 || index >= countTexts()) return "there is no such text";
    try {
        textProblem_ = problemOf(texts_[static_cast<std::size_t>(index)].info.key);
    } catch (...) {
        textProblem_ = kNoMemory;
    }
    return textProblem_.c_str();
}

void AudioEffectComponent::setBaseFolder(const char* folder) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    try {
        baseFolder_ = folder ? folder : "";
    } catch (...) {
        baseFolder_.clear();
    }
}

}  // namespace quillworks
