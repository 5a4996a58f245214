// SPDX-License-Identifier: ISC
// Parameters of a plug-in, and the events about them in both directions.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "adapters/clap/instance.h"

namespace quillworks::clap {
namespace {

void copyText(char* to, std::size_t size, std::string_view text)
{
    const auto n = std::min(text.size(), size - 1);
    std::copy_n(text.data(), n, to);
    to[n] = 0;
}

constexpr const char* kSwitchTexts[] = {"Off", "On"};

clap_event_header_t headerOf(std::uint16_t type, std::uint32_t size) noexcept
{
    return {
        .size = size, .time = 0, .space_id = CLAP_CORE_EVENT_SPACE_ID, .type = type, .flags = 0};
}

bool pushValue(const clap_output_events_t& out, clap_id id, double value) noexcept
{
    clap_event_param_value_t event{};
    event.header = headerOf(CLAP_EVENT_PARAM_VALUE, sizeof event);
    event.param_id = id;
    event.note_id = event.port_index = event.channel = event.key = -1;
    event.value = value;
    return out.try_push(&out, &event.header);
}

}  // namespace

std::uint32_t Instance::countParameters() const noexcept
{
    return static_cast<std::uint32_t>(plugin_.parameters.list().size() + plugin_.meters.size());
}

bool Instance::getParameter(std::uint32_t place, clap_param_info_t& info) const
{
    if (place >= countParameters()) return false;
    const int at = static_cast<int>(place);
    info = {};
    if (at >= plugin_.parameters.count()) {
        const auto& meter = plugin_.meters[place - plugin_.parameters.list().size()];
        info.id = meter.id;
        info.flags = CLAP_PARAM_IS_READONLY;
        if (meter.isStepped) info.flags |= CLAP_PARAM_IS_STEPPED;
        copyText(info.name, sizeof info.name, meter.title);
        copyText(info.module, sizeof info.module, "Meters");
        info.min_value = info.default_value = meter.minimum;
        info.max_value = meter.maximum;
        return true;
    }
    const auto& row = plugin_.parameters[at];
    info.id = row.id;
    info.max_value = 1;
    if (row.role == Role::SideChain) {
        info.flags = CLAP_PARAM_IS_STEPPED | CLAP_PARAM_IS_AUTOMATABLE;
        copyText(info.name, sizeof info.name, "External Side-chain");
        return true;
    }
    VNK::ParameterInfo p{};
    effect_->getParameter(row.index, p);
    copyText(info.name, sizeof info.name, adapters::titleOf(p.title, p.index));
    if (row.role == Role::Bypass) {
        info.flags = CLAP_PARAM_IS_STEPPED | CLAP_PARAM_IS_BYPASS | CLAP_PARAM_IS_AUTOMATABLE;
        return true;
    }
    copyText(info.module, sizeof info.module, p.group);
    if (scale(at) == Plugin::Scale::Steps) info.flags |= CLAP_PARAM_IS_STEPPED;
    if (p.wraps) info.flags |= CLAP_PARAM_IS_PERIODIC;
    if (p.has(VNK::isHidden)) info.flags |= CLAP_PARAM_IS_HIDDEN;
    if (p.isAutomatable()) info.flags |= CLAP_PARAM_IS_AUTOMATABLE;
    if (scale(at) != Plugin::Scale::Position) {
        info.min_value = p.minimum;
        info.max_value = p.maximum;
    }
    info.default_value = toHost(at, p.defaultValue);
    return true;
}

double Instance::toHost(int place, float value) const noexcept
{
    return scale(place) == Plugin::Scale::Position
               ? effect_->toNormalized(plugin_.parameters[place].index, value)
               : value;
}

float Instance::toEffect(int place, double value) const noexcept
{
    const auto number = static_cast<float>(value);
    switch (scale(place)) {
    case Plugin::Scale::Position:
        return effect_->fromNormalized(plugin_.parameters[place].index, number);
    case Plugin::Scale::Steps:
        return std::round(number);
    case Plugin::Scale::Value:
        break;
    }
    return number;
}

double Instance::present(int place) const noexcept
{
    const auto& row = plugin_.parameters[place];
    if (row.role == Role::Bypass) return isOn_ ? 0 : 1;
    if (row.role == Role::SideChain) return isSideChainOn_ ? 1 : 0;
    return toHost(place, effect_->getValue(row.index));
}

bool Instance::getValue(clap_id id, double& value) const noexcept
{
    if (const int place = plugin_.parameters.find(id); place >= 0)
        value = present(place);
    else if (const int meter = findMeter(id); meter >= 0)
        value = reading(meter);
    else
        return false;
    return true;
}

bool Instance::valueToText(clap_id id, double value, char* text, std::uint32_t size) const noexcept
{
    if (!text || size == 0 || !std::isfinite(value)) return false;
    const auto length = static_cast<std::int32_t>(std::min(size, 1u << 16));
    if (const int meter = findMeter(id); meter >= 0) {
        const int index = meterIndices_[static_cast<std::size_t>(meter)];
        if (index >= 0)
            effect_->meterToText(index, static_cast<float>(value), text, length);
        else
            copyText(text, size, "-");
        return true;
    }
    const int place = plugin_.parameters.find(id);
    if (place < 0) return false;
    const auto& row = plugin_.parameters[place];
    if (row.role == Role::Effect)
        effect_->valueToText(row.index, toEffect(place, value), text, length);
    else
        copyText(text, size, kSwitchTexts[value >= 0.5]);
    return true;
}

bool Instance::textToValue(clap_id id, const char* text, double& value) const noexcept
{
    const int place = plugin_.parameters.find(id);
    if (place < 0 || !text) return false;
    const auto& row = plugin_.parameters[place];
    if (row.role == Role::SideChain) {
        for (int on = 0; on < 2; ++on)
            if (std::string_view(text) == kSwitchTexts[on]) return value = on, true;
        return false;
    }
    float read = 0;
    if (!effect_->textToValue(row.index, text, read)) return false;
    value = toHost(place, read);
    return true;
}

void Instance::flush(const clap_input_events_t* in, const clap_output_events_t* out) noexcept
{
    if (in && in->size && in->get)
        for (std::uint32_t i = 0, n = in->size(in); i < n; ++i)
            if (const auto* const event = in->get(in, i)) read(*event);
    report(out);
    checkDelays();
}

/// Modulation is left alone: the effects have one value per parameter, which songs store.
void Instance::read(const clap_event_header_t& event) noexcept
{
    if (event.space_id != CLAP_CORE_EVENT_SPACE_ID) return;
    if (event.type == CLAP_EVENT_PARAM_VALUE && event.size >= sizeof(clap_event_param_value_t)) {
        const auto& change = reinterpret_cast<const clap_event_param_value_t&>(event);
        // By the id and not by the cookie, which would be a pointer that somebody has stored.
        if (const int place = plugin_.parameters.find(change.param_id); place >= 0)
            set(place, change.value);
    } else if (event.type == CLAP_EVENT_TRANSPORT && event.size >= sizeof(clap_event_transport_t)) {
        readTransport(&reinterpret_cast<const clap_event_transport_t&>(event));
    }
}

void Instance::set(int place, double value) noexcept
{
    if (!std::isfinite(value)) return;
    const auto& row = plugin_.parameters[place];
    if (row.role == Role::Bypass) {
        isOn_ = value < 0.5;
    } else if (row.role == Role::SideChain) {
        isSideChainOn_ = value >= 0.5;
        if (isActive_) running_.setSideChain(isSideChainOn_);
    } else if (value != present(place)) {  // what is so already would lose digits on its way
        const auto before = effect_->changeCount(row.index);
        effect_->setBetweenBlocks(row.index, toEffect(place, value));
        // A second change is the effect's answer to the first; others may have moved as well.
        if (const auto now = effect_->changeCount(row.index); now == before + 1) told(place) = now;
        hasNews_ = true;
    }
}

/// Tells the host of gestures, and of values that changed but not by its own events.
void Instance::report(const clap_output_events_t* out) noexcept
{
    if (!out || !out->try_push) return;
    while (const auto* const gesture = gestures_.front()) {
        if (!gesture->begins && !tellValues(*out)) return;
        clap_event_param_gesture_t event{};
        event.header = headerOf(gesture->begins ? CLAP_EVENT_PARAM_GESTURE_BEGIN
                                                : CLAP_EVENT_PARAM_GESTURE_END,
                                sizeof event);
        event.param_id = plugin_.parameters[gesture->place].id;
        if (!out->try_push(out, &event.header)) return;
        gestures_.drop();
    }
    tellValues(*out);
}

bool Instance::tellValues(const clap_output_events_t& out) noexcept
{
    if (!hasNews_.exchange(false)) return true;
    for (int place = 0; place < plugin_.parameters.count(); ++place) {
        const auto& row = plugin_.parameters[place];
        if (row.role == Role::Bypass && isSwitched_.exchange(false) &&
            !pushValue(out, row.id, present(place))) {
            isSwitched_ = hasNews_ = true;  // once more with the next block
            return false;
        }
        if (row.role != Role::Effect) continue;
        const auto changes = effect_->changeCount(row.index);
        if (told(place).exchange(changes) == changes) continue;
        if (pushValue(out, row.id, present(place))) continue;
        told(place) = changes - 1;  // once more with the next block
        hasNews_ = true;
        return false;
    }
    return true;
}

int Instance::findMeter(clap_id id) const noexcept
{
    const auto at = std::find_if(plugin_.meters.begin(), plugin_.meters.end(),
                                 [&](const auto& meter) { return meter.id == id; });
    return at == plugin_.meters.end() ? -1 : static_cast<int>(at - plugin_.meters.begin());
}

void Instance::findMeters()
{
    effect_->algorithm()->setSpeakerArrangement(layout().input, layout().output);
    meterIndices_ = adapters::meterIndices(effect_, plugin_.meters);
    shown_.clear();
    for (const auto& meter : plugin_.meters) shown_.push_back(meter.minimum);
}

float Instance::reading(int meter) const noexcept
{
    const auto i = static_cast<std::size_t>(meter);
    const auto& row = plugin_.meters[i];
    return meterIndices_[i] < 0 ? row.minimum
                                : adapters::shownReading(row, effect_->readMeter(meterIndices_[i]));
}

/// Some thirty times a second, as often as a picture moves.
void Instance::tellMeters(const clap_output_events_t* out, int frames) noexcept
{
    framesToMeters_ -= frames;
    if (framesToMeters_ > 0 || !out || !out->try_push) return;
    framesToMeters_ = static_cast<int>(sampleRate_ / 30);
    for (std::size_t i = 0; i < shown_.size(); ++i) {
        const float now = reading(static_cast<int>(i));
        if (now == shown_[i]) continue;
        if (!pushValue(*out, plugin_.meters[i].id, now)) return;
        shown_[i] = now;
    }
}

void Instance::message(const char* name) noexcept
{
    // The side-chain's message comes on the audio thread, whose block looks for itself.
    const std::string_view word = name;
    if (word == "processSetupChanged") checkDelays();
    // What belongs to no parameter: texts, the set that is not heard.
    if (word == "processStateChanged" && !isRestoring_) host_.stateChanged();
}

void Instance::switchByHand(bool isOn) noexcept
{
    isOn_ = isOn;
    isSwitched_ = true;
    hasNews_ = true;
    host_.requestFlush();
}

void Instance::parameterChanged(std::int32_t) noexcept
{
    hasNews_ = true;
    host_.requestFlush();
}

void Instance::hold(std::int32_t index, bool begins) noexcept
{
    const int place = plugin_.parameters.placeOf(index);
    if (place < 0 || plugin_.parameters[place].role != Role::Effect) return;
    gestures_.push({place, begins});
    hasNews_ = true;
    host_.requestFlush();
}

}  // namespace quillworks::clap
