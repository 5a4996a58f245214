// SPDX-License-Identifier: ISC
#include "framework/effect_component.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "framework/resources.h"
#include "vnk/file.h"

namespace quillworks {
namespace {

constexpr const char* kTree[] = {"DeviceRootUnit", "UnitParameter", "BypassParameter",
                                 "Program List"};
constexpr Tag kEditorOpen = "Edit"_tag;

template <class V> const V* find(const auto& attributes, const char* key) noexcept
{
    if (!key) return nullptr;
    const auto at = attributes.find(std::string_view(key));
    return at == attributes.end() ? nullptr : std::get_if<V>(&at->second.value);
}

/// The text cut to `size` - 1 bytes; returns the length of the whole of it.
std::int32_t writeText(const AlgorithmParameter& row, float value, char* text,
                       std::int32_t size) noexcept
{
    try {
        const std::string s = AlgorithmParameterFormatter::text(row, value);
        if (text && size > 0) {
            const auto n = std::min(s.size(), static_cast<std::size_t>(size) - 1);
            std::memcpy(text, s.data(), n);
            text[n] = 0;
        }
        return static_cast<std::int32_t>(s.size());
    } catch (...) {
        return 0;
    }
}

const char* textOfStep(const AlgorithmParameter& row, std::int32_t step) noexcept
{
    const auto& texts = row.notes.texts;
    const auto i = static_cast<std::size_t>(step);
    return step >= 0 && i < texts.size() ? texts[i] : nullptr;
}

}  // namespace

AudioEffectComponent::AudioEffectComponent(AudioEffectAlgorithm& algorithm, EffectTraits traits)
    : algorithm_(VNK::Ref<AudioEffectAlgorithm>::share(&algorithm)),
      list_(algorithm.parameterList()),
      traits_(std::move(traits)),
      values_(std::make_unique<Value[]>(list_.parameters().size()))
{
    for (std::int32_t i = 0; i < countParameters(); ++i) {
        valueAt(i).value = at(i).defaultValue;
        if (at(i).has(VNK::isBypass)) bypassIndex_ = i;
        if (at(i).isTempo) tempoIndex_ = i;
    }
    for (const char* view : traits_.views)
        viewNames_.push_back(std::string(traits_.viewPrefix) + "/" + view);
    publishAttribute("remotepages", std::string(traits_.viewPrefix));
    publishAttribute("layouts", std::string(traits_.layouts));
    if (traits_.copiesAtDefaults) publishAttribute("copiesAtDefaults", std::int64_t{1});
    if (*traits_.kind) publishAttribute("kind", std::string(traits_.kind));
    algorithm_->setOwner(this);
    setupChanged(nullptr);
}

AudioEffectComponent::~AudioEffectComponent()
{
    algorithm_->setOwner(nullptr);
}

void AudioEffectComponent::identify(const VNK::UID& classId, const char* name)
{
    classId_ = classId;
    name_ = name;
    reference_ = fingerprint();
    announceDelays();  // the effect is complete now and can say what its delays are
}

std::int32_t AudioEffectComponent::countParameters() const noexcept
{
    return static_cast<std::int32_t>(list_.parameters().size());
}

bool AudioEffectComponent::getParameter(std::int32_t index, VNK::ParameterInfo& info) const noexcept
{
    if (!has(index)) return false;
    const auto& p = at(index);
    info = {.key = p.key.c_str(),
            .tag = p.tag,
            .title = p.title,
            .shortTitle = *p.notes.shortTitle ? p.notes.shortTitle : p.title,
            .group = p.notes.group,
            .help = p.notes.help,
            .unitKey = p.unit,
            .unit = AlgorithmParameterFormatter::unitText(p),
            .drivenBy = p.notes.drivenBy,
            .minText = p.notes.minText,
            .maxText = p.notes.maxText,
            .kind = p.kind,
            .minimum = p.minimum,
            .maximum = p.maximum,
            .defaultValue = p.defaultValue,
            .flags = p.flags,
            .index = p.index,
            .choices = static_cast<std::int32_t>(p.notes.texts.size()),
            .generation = p.notes.generation,
            .origin = p.origin(),
            .wraps = p.notes.wraps,
            .logarithmic = p.curve->law == Curve::Law::Logarithmic,
            .perChannel = p.perChannel,
            .isTempo = p.isTempo};
    return true;
}

std::int32_t AudioEffectComponent::findParameter(const char* key) const noexcept
{
    return key ? list_.find(key) : -1;
}

float AudioEffectComponent::getValue(std::int32_t index) const noexcept
{
    if (!has(index)) return 0;
    const auto& p = at(index);
    if (index == tempoIndex_ && algorithm_->isTempoKnown())
        return static_cast<float>(algorithm_->tempo());
    return p.meter >= 0 ? algorithm_->meters().read(static_cast<std::size_t>(p.meter))
                        : valueAt(index).value.load(std::memory_order_relaxed);
}

float AudioEffectComponent::value(const char* key) const noexcept
{
    return getValue(list_.find(key));
}

void AudioEffectComponent::store(std::int32_t index, float value) noexcept
{
    const auto& p = at(index);
    auto& v = valueAt(index);
    const bool isTrigger = p.has(VNK::isTrigger);
    if (!isTrigger) v.value.store(value);
    v.changes.fetch_add(1, std::memory_order_relaxed);
    if (index == tempoIndex_) algorithm_->setTempo(double(value));
    // Host and automation may set one parameter at once: whoever writes last has seen what is to be
    // in force.
    for (float written = value;; value = written) {
        algorithm_->crossing().write(static_cast<std::size_t>(p.slot), forwarded(p, value));
        if (isTrigger || (written = v.value.load()) == value) return;
    }
}

void AudioEffectComponent::assign(std::int32_t index, float value, Setter by) noexcept
{
    const float before = getValue(index);
    store(index, at(index).limited(value));
    changed(at(index), before, by);
}

bool AudioEffectComponent::isSettable(std::int32_t index, float value) const noexcept
{
    return has(index) && std::isfinite(value) && !at(index).has(VNK::isReadOnly);
}

bool AudioEffectComponent::setValue(std::int32_t index, float value) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!isSettable(index, value)) return false;
    if (groupEdits_ > 0) joinGroup(index);
    assign(index, value, Setter::Host);
    announceDelays();
    return true;
}

bool AudioEffectComponent::automate(std::int32_t index, float value) noexcept
{
    return has(index) && !at(index).has(VNK::isNotAutomatable) && setBetweenBlocks(index, value);
}

bool AudioEffectComponent::setBetweenBlocks(std::int32_t index, float value) noexcept
{
    if (!isSettable(index, value)) return false;
    assign(index, value, Setter::Automation);
    calculateDelays();
    return true;
}

void AudioEffectComponent::setAt(int index, float value, Setter by) noexcept
{
    if (by == Setter::Automation)
        setBetweenBlocks(index, value);
    else if (setValue(index, value) && listener_.get())
        listener_.get()->parameterChanged(index);
}

void AudioEffectComponent::command(Tag tag, float value) noexcept
{
    if (const int slot = list_.findSlot(tag); slot >= 0)
        algorithm_->crossing().write(static_cast<std::size_t>(slot), value);
}

float AudioEffectComponent::toNormalized(std::int32_t index, float value) const noexcept
{
    if (!has(index)) return 0;
    const auto& p = at(index);
    return p.curve->toPosition(p.limited(value), p.minimum, p.maximum);
}

float AudioEffectComponent::fromNormalized(std::int32_t index, float position) const noexcept
{
    if (!has(index)) return 0;
    const auto& p = at(index);
    if (p.kind == VNK::ValueKind::Toggle) return position >= 0.5f ? 1.0f : 0.0f;
    return p.limited(p.curve->toValue(position, p.minimum, p.maximum));
}

std::int32_t AudioEffectComponent::valueToText(std::int32_t index, float value, char* text,
                                               std::int32_t size) const noexcept
{
    return has(index) ? writeText(at(index), value, text, size) : 0;
}

bool AudioEffectComponent::textToValue(std::int32_t index, const char* text,
                                       float& value) const noexcept
{
    return has(index) && text && AlgorithmParameterFormatter::value(at(index), text, value);
}

const char* AudioEffectComponent::choiceText(std::int32_t index, std::int32_t step) const noexcept
{
    return has(index) ? textOfStep(at(index), step) : nullptr;
}

std::uint32_t AudioEffectComponent::changeCount(std::int32_t index) const noexcept
{
    return has(index) ? valueAt(index).changes.load(std::memory_order_relaxed) : 0;
}

void AudioEffectComponent::beginEdit(Tag tag) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    const int index = list_.findTag(tag);
    if (index >= 0 && valueAt(index).holds++ == 0 && listener_.get())
        listener_.get()->editBegun(index);
}

void AudioEffectComponent::endEdit(Tag tag) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    const int index = list_.findTag(tag);
    if (index < 0 || valueAt(index).holds == 0) return;
    if (--valueAt(index).holds == 0 && listener_.get()) listener_.get()->editEnded(index);
}

void AudioEffectComponent::beginGroupEdit() noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    ++groupEdits_;
}

void AudioEffectComponent::joinGroup(std::int32_t index) noexcept
{
    if (valueAt(index).inGroup) return;
    // A group that nothing joins is none: it would be a step of a host's undo that does nothing.
    const Value* const all = values_.get();
    if (std::none_of(all, all + countParameters(), [](const Value& v) { return v.inGroup; }))
        tell("groupEditBegun");
    valueAt(index).inGroup = true;
    beginEdit(at(index).tag);
}

void AudioEffectComponent::endGroupEdit() noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (groupEdits_ == 0 || --groupEdits_ > 0) return;
    bool isJoined = false;
    for (std::int32_t i = 0; i < countParameters(); ++i)
        if (std::exchange(valueAt(i).inGroup, false)) isJoined = true, endEdit(at(i).tag);
    if (isJoined) tell("groupEditEnded");
}

std::int32_t AudioEffectComponent::countMeters() const noexcept
{
    return static_cast<std::int32_t>(shownMeters_.size());
}

bool AudioEffectComponent::getMeter(std::int32_t index, VNK::MeterInfo& info) const noexcept
{
    const auto* m = shownMeter(index);
    if (!m) return false;
    info = {.key = m->key.c_str(),
            .tag = m->tag,
            .title = m->title,
            .unit = AlgorithmParameterFormatter::unitText(*m),
            .kind = m->kind,
            .minimum = m->minimum,
            .maximum = m->maximum,
            .index = m->index,
            .choices = static_cast<std::int32_t>(m->notes.texts.size()),
            .generation = m->notes.generation};
    return true;
}

float AudioEffectComponent::readMeter(std::int32_t index) const noexcept
{
    const auto* m = shownMeter(index);
    return m ? algorithm_->meters().read(static_cast<std::size_t>(m->meter)) : 0;
}

std::int32_t AudioEffectComponent::readMeters(float* values, std::int32_t count) const noexcept
{
    if (!values) return 0;
    count = std::clamp(count, 0, countMeters());
    const auto& slots = algorithm_->meters();
    for (std::int32_t i = 0; i < count; ++i)
        values[i] = slots.read(shownMeters_[static_cast<std::size_t>(i)]);
    return count;
}

std::int32_t AudioEffectComponent::meterToText(std::int32_t index, float value, char* text,
                                               std::int32_t size) const noexcept
{
    const auto* m = shownMeter(index);
    return m ? writeText(*m, value, text, size) : 0;
}

const char* AudioEffectComponent::meterChoice(std::int32_t index, std::int32_t step) const noexcept
{
    const auto* m = shownMeter(index);
    return m ? textOfStep(*m, step) : nullptr;
}

void AudioEffectComponent::setEditorOpen(bool open) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!open && editorOpenings_ == 0) return;
    editorOpenings_ += open ? 1 : -1;
    const bool isEdge = editorOpenings_ == (open ? 1 : 0);
    if (isEdge) command(kEditorOpen, open ? 1.0f : 0.0f);
}

void AudioEffectComponent::setupChanged(const char* message) noexcept
{
    const auto& output = algorithm_->outputLayout();
    const auto& input = algorithm_->inputLayout();
    try {
        publishAttribute("speakerchannels", static_cast<std::int64_t>(output.bits()));
        publishAttribute("speakernames", output.names());
        publishAttribute("channelcount", std::int64_t{output.channels});
        publishAttribute("inputchannelcount", std::int64_t{input.channels});
        publishAttribute("inputspeakerchannels", static_cast<std::int64_t>(input.bits()));
        publishAttribute("inputspeakernames", input.names());
        shownMeters_.clear();
        for (std::size_t i = 0; i < list_.meters().size(); ++i)
            if (const auto& m = list_.meters()[i]; !m.perChannel || m.index < channels())
                shownMeters_.push_back(static_cast<std::uint16_t>(i));
    } catch (...) {  // out of memory: the old attributes stay
    }
    // What the effect itself makes of a layout is nobody's change.
    const bool wasModified = isModified();
    if (isPrepared()) reconcile();
    if (!wasModified) reference_ = fingerprint();
    edited();
    announceDelays();
    if (message) tell(message);
}

void AudioEffectComponent::sideChainChanged() noexcept
{
    // Perhaps on the audio thread, while the main thread takes the listener away.
    listener_.call([](VNK::IEffectListener& listener) { listener.message("sideChainActivated"); });
}

void AudioEffectComponent::wetOnlyChanged() noexcept
{
    announceDelays();
    tell("wetLockChanged");
}

/// Tempo comes from the audio thread: nobody is told, a host that asks again gets the new tail.
void AudioEffectComponent::tempoChanged() noexcept
{
    calculateDelays();
}

void AudioEffectComponent::calculateDelays() noexcept
{
    const auto stamp = algorithm_->drawDelayStamp();
    const Delays d = delays(sampleRate());
    const bool bypassed = bypassIndex_ >= 0 && getValue(bypassIndex_) != 0;
    algorithm_->setDelays(stamp, d.latency, d.tail, bypassed);
}

/// What automation or the tempo has changed since the last time is announced too, and that it is
/// undone, for the host may have seen it.
void AudioEffectComponent::announceDelays() noexcept
{
    const auto present = [this] {
        return Delays{algorithm_->getLatency(), algorithm_->getTailLength()};
    };
    const Delays before = present();
    calculateDelays();
    const Delays now = present();
    const bool isNew = !(std::exchange(announced_, now) == now) || !(before == now);
    if (isNew) tell("processSetupChanged");
}

void AudioEffectComponent::tell(const char* message) noexcept
{
    if (auto* const listener = listener_.get()) listener->message(message);
}

void AudioEffectComponent::declareAttribute(const char* key, std::int64_t value, bool isStored)
{
    attributes_[key] = {value, true, isStored, value};
}

void AudioEffectComponent::publishAttribute(const char* key, AttributeValue value)
{
    attributes_[key].value = std::move(value);
}

bool AudioEffectComponent::getInteger(const char* key, std::int64_t& value) const noexcept
{
    // These two change on other threads, which do not touch the attributes.
    if (key && std::string_view(key) == "sideChainActive")
        return value = algorithm_->isSideChainActive(), true;
    if (key && std::string_view(key) == "busy") return value = isBusy(), true;
    const auto* found = find<std::int64_t>(attributes_, key);
    if (found) value = *found;
    return found != nullptr;
}

bool AudioEffectComponent::getFloat(const char* key, float& value) const noexcept
{
    const auto* found = find<float>(attributes_, key);
    if (found) value = *found;
    return found != nullptr;
}

const char* AudioEffectComponent::getString(const char* key) const noexcept
{
    if (const int text = findText(key); text >= 0) return getText(text);
    const auto* found = find<std::string>(attributes_, key);
    return found ? found->c_str() : nullptr;
}

bool AudioEffectComponent::setInteger(const char* key, std::int64_t value) noexcept
{
    const CallRules::MainThread rule(algorithm_->rules());
    if (!key) return false;
    const auto at = attributes_.find(std::string_view(key));
    if (at == attributes_.end() || !at->second.isSettable) return false;
    auto* stored = std::get_if<std::int64_t>(&at->second.value);
    if (!stored) return false;
    if (std::exchange(*stored, value) == value) return true;
    edited();
    attributeChanged(at->first, value);
    return true;
}

const char* AudioEffectComponent::viewName(std::int32_t index) const noexcept
{
    const auto i = static_cast<std::size_t>(index);
    return index >= 0 && i < viewNames_.size() ? viewNames_[i].c_str() : nullptr;
}

const char* AudioEffectComponent::treeNode(std::int32_t index) const noexcept
{
    return index >= 0 && index < 4 ? kTree[index] : nullptr;
}

bool AudioEffectComponent::remotePages(VNK::IByteSink* sink) const noexcept
{
    if (!sink) return false;
    try {
        std::string text, reason;
        const auto file = resourcesFolder() + "/controllers/" + traits_.viewPrefix + ".xml";
        return VNK::readFile(file.c_str(), kLargestPreset, text, reason) &&
               sink->write(text.data(), text.size());
    } catch (...) {
        return false;
    }
}

}  // namespace quillworks
