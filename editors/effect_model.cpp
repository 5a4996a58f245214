// SPDX-License-Identifier: ISC
#include "editors/effect_model.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();

class ComponentWriter final : public ParameterWriter {
public:
    explicit ComponentWriter(VNK::HostedEffect effect) : effect_(std::move(effect)) {}

    void begin(int parameter) override { effect_.beginEdit(tag(parameter)); }
    void set(int parameter, float value) override { effect_.setValue(parameter, value); }
    void end(int parameter) override { effect_.endEdit(tag(parameter)); }
    void beginGroup() override { effect_.beginGroupEdit(); }
    void endGroup() override { effect_.endGroupEdit(); }

private:
    VNK::Tag tag(int parameter) const
    {
        VNK::ParameterInfo info{};
        effect_.getParameter(parameter, info);
        return info.tag;
    }

    VNK::HostedEffect effect_;
};

bool isNumber(std::string_view text, VNK::Tag& number)
{
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

/// Whether a name is a value's key, the four letters of its tag, or the tag's number.
bool names(std::string_view name, const char* key, VNK::Tag tag)
{
    if (name == key) return true;
    if (VNK::Tag number = 0; isNumber(name, number)) return number == tag;
    if (name.size() != 4) return false;
    VNK::Tag letters = 0;
    for (const char c : name) letters = letters << 8 | static_cast<unsigned char>(c);
    return letters == tag;
}

/// All values of which the name is the family's, sorted by index; else the one that it names.
template <class Infos> std::vector<int> family(const Infos& infos, std::string_view name)
{
    std::vector<int> found;
    const auto collect = [&](auto&& belongs) {
        for (std::size_t i = 0; i < infos.size(); ++i)
            if (infos[i].index >= 0 && belongs(infos[i])) found.push_back(static_cast<int>(i));
    };
    VNK::Tag base = 0;
    const bool hasBase = isNumber(name, base);
    // By the tag or the key of the first, or by what all keys begin with; others name themselves.
    for (const auto& info : infos)
        if (!hasBase && info.index == 0 && names(name, info.key, info.tag))
            base = info.tag - static_cast<VNK::Tag>(info.index);
    collect([&](const auto& info) {
        return (base && info.tag - static_cast<VNK::Tag>(info.index) == base) ||
               info.key == std::string(name) + std::to_string(info.index);
    });
    std::sort(found.begin(), found.end(), [&](int a, int b) {
        return infos[static_cast<std::size_t>(a)].index < infos[static_cast<std::size_t>(b)].index;
    });
    if (!found.empty()) return found;
    for (std::size_t i = 0; i < infos.size(); ++i)
        if (names(name, infos[i].key, infos[i].tag)) return {static_cast<int>(i)};
    return {};
}

template <class Infos> int find(const Infos& infos, std::string_view name)
{
    for (std::size_t i = 0; i < infos.size(); ++i)
        if (names(name, infos[i].key, infos[i].tag)) return static_cast<int>(i);
    return -1;
}

/// Of a call that cuts its text to a size and tells the whole length.
template <class F> std::string wholeText(F&& call)
{
    std::string text(64, '\0');
    auto length = static_cast<std::size_t>(std::max(0, call(text.data(), 64)));
    if (length >= text.size()) {
        text.resize(length + 1);
        length = static_cast<std::size_t>(call(text.data(), static_cast<int>(text.size())));
    }
    text.resize(std::min(length, text.size()));
    return text;
}

}  // namespace

EffectModel::EffectModel(VNK::HostedEffect effect, std::unique_ptr<ParameterWriter> writer)
    : effect_(std::move(effect)),
      editing_(effect_.queryInterface<VNK::IEffectEditing>()),
      userPresets_(effect_.queryInterface<VNK::IEffectUserPresets>()),
      displays_(effect_.queryInterface<VNK::IEffectDisplays>()),
      writer_(writer ? std::move(writer) : std::make_unique<ComponentWriter>(effect_))
{
    infos_.resize(at(effect_.countParameters()));
    for (int i = 0; i < countParameters(); ++i) {
        effect_.getParameter(i, infos_[at(i)]);
        values_.push_back(effect_.getValue(i));
        seen_.push_back(effect_.changeCount(i));
    }
    counts_.resize(infos_.size());
    held_.resize(infos_.size());
    texts_.resize(at(effect_.countTexts()));
    effect_.setEditorOpen(true);
    readMeterList();
    tick(0);
}

EffectModel::~EffectModel()
{
    // A hand that held something when the window went has let go.
    for (int i = 0; i < countParameters(); ++i)
        while (isHeld(i)) end(i);
    while (groups_ > 0) endGroup();
    if (isOpen_) displays_->setDisplaysOpen(false);
    effect_.setEditorOpen(false);
}

void EffectModel::readMeterList()
{
    const int count = effect_.countMeters();
    VNK::MeterInfo info{};
    // Another number of channels is another number of meters.
    if (count == countMeters() && layout_) return;
    ++layout_;
    meters_.clear();
    for (int i = 0; i < count; ++i)
        if (effect_.getMeter(i, info)) meters_.push_back(info);
    readings_.assign(meters_.size(), kNothing);
}

void EffectModel::tick(double seconds)
{
    ++ticks_;
    seconds_ = seconds;
    const unsigned before = changes_;
    bool hasChanged = false;
    for (int i = 0; i < countParameters(); ++i) {
        // What is measured has no counter that could be relied on.
        const bool isReading = infos_[at(i)].has(VNK::isReadOnly);
        const auto count = effect_.changeCount(i);
        if (!isReading && count == seen_[at(i)]) continue;
        seen_[at(i)] = count;
        const float now = effect_.getValue(i);
        const auto& was = values_[at(i)];
        if (now == was || (std::isnan(now) && std::isnan(was))) continue;
        values_[at(i)] = now;
        ++counts_[at(i)];
        hasChanged |= !isReading;
    }
    for (std::size_t i = 0; i < texts_.size(); ++i) {
        const auto count = effect_.textChangeCount(static_cast<int>(i));
        hasChanged |= count != texts_[i];
        texts_[i] = count;
    }
    if (editing_) {
        const auto edits = editing_->editCount();
        hasChanged |= edits != edits_;
        edits_ = edits;
    }
    if (hasChanged) changes_ = before + 1;
    readMeterList();
    if (!readings_.empty()) effect_.readMeters(readings_.data(), countMeters());
    if (isOpen_) displays_->updateDisplays();
}

int EffectModel::parameter(std::string_view name) const
{
    return find(infos_, name);
}

std::vector<int> EffectModel::parameters(std::string_view name) const
{
    return family(infos_, name);
}

int EffectModel::meter(std::string_view name) const
{
    return find(meters_, name);
}

std::vector<int> EffectModel::meterFamily(std::string_view name) const
{
    return family(meters_, name);
}

float EffectModel::position(int parameter) const
{
    return effect_.toNormalized(parameter, value(parameter));
}

std::string EffectModel::text(int parameter, float value) const
{
    return wholeText(
        [&](char* text, int size) { return effect_.valueToText(parameter, value, text, size); });
}

std::string EffectModel::meterText(int meter, float value) const
{
    return wholeText(
        [&](char* text, int size) { return effect_.meterToText(meter, value, text, size); });
}

bool EffectModel::read(int parameter, const std::string& text, float& value) const
{
    return effect_.textToValue(parameter, text.c_str(), value);
}

void EffectModel::begin(int parameter)
{
    ++held_[at(parameter)];
    writer_->begin(parameter);
}

void EffectModel::set(int parameter, float value)
{
    if (!isHeld(parameter)) {
        begin(parameter);
        set(parameter, value);
        return end(parameter);
    }
    const auto& info = infos_[at(parameter)];
    value = std::clamp(value, info.minimum, info.maximum);
    if (info.kind != VNK::ValueKind::Continuous) value = std::round(value);
    writer_->set(parameter, value);
    // What a host passes on comes back later; until then this is what the hand has set.
    if (info.has(VNK::isTrigger) || values_[at(parameter)] == value) return;
    values_[at(parameter)] = value;
    ++counts_[at(parameter)];
    ++changes_;
}

void EffectModel::setPosition(int parameter, float position)
{
    set(parameter, effect_.fromNormalized(parameter, std::clamp(position, 0.0f, 1.0f)));
}

void EffectModel::end(int parameter)
{
    if (!isHeld(parameter)) return;
    --held_[at(parameter)];
    writer_->end(parameter);
}

void EffectModel::beginGroup()
{
    ++groups_;
    writer_->beginGroup();
}

void EffectModel::endGroup()
{
    if (groups_ == 0) return;
    --groups_;
    writer_->endGroup();
}

int EffectModel::chosen(const std::string& what) const
{
    const auto choice = choices_.find(what);
    return choice == choices_.end() ? 0 : choice->second;
}

float EffectModel::reading(int meter) const noexcept
{
    return meter >= 0 && meter < countMeters() ? readings_[at(meter)] : kNothing;
}

void EffectModel::openDisplays()
{
    if (isOpen_ || !displays_) return;
    displays_->setDisplaysOpen(true);
    displays_->updateDisplays();
    isOpen_ = true;
}

bool EffectModel::snapshot(const char* name, VNK::IDisplaySink& sink)
{
    if (!displays_) return false;
    openDisplays();
    return displays_->snapshot(name, &sink);
}

const DisplayNode& EffectModel::display(const std::string& name)
{
    auto& shown = shown_[name];
    if (!displays_ || shown.tick == ticks_) return shown.node;
    shown.tick = ticks_;
    DisplayReader reader(shown.node);
    if (!snapshot(name.c_str(), reader)) DisplayReader(shown.node);  // empties it
    return shown.node;
}

}  // namespace quillworks::editors
