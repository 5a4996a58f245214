// SPDX-License-Identifier: ISC
// Parameters of a plug-in: what the controller shows, and what the processor is told.
#include <algorithm>
#include <cmath>
#include <new>
#include <string>
#include <string_view>

#include "adapters/vst3/editor_view.h"
#include "adapters/vst3/instance.h"
#include "adapters/vst3/text.h"

namespace quillworks::vst3 {

std::int32_t Instance::getParameterCount() noexcept
{
    return plugin_.parameters.count() + hasPrograms();
}

v3_result Instance::getParameterInfo(std::int32_t place, v3_param_info* info) noexcept
{
    if (!info || place < 0 || place >= getParameterCount()) return V3_INVALID_ARG;
    *info = {};
    if (place == plugin_.parameters.count()) {
        info->param_id = kProgramParameter;
        writeText(info->title, "Program");
        info->step_count = lastProgram();
        info->flags = V3_PARAM_PROGRAM_CHANGE | V3_PARAM_IS_LIST;
        return V3_OK;
    }
    const auto& row = plugin_.parameters[place];
    VNK::ParameterInfo p{};
    effect_->getParameter(row.index, p);
    info->param_id = row.id;
    try {
        writeText(info->title, adapters::titleOf(p.title, p.index));
        writeText(info->short_title, adapters::titleOf(p.shortTitle, p.index));
    } catch (...) {
        return V3_NOMEM;
    }
    if (row.role == Role::Bypass) {
        info->step_count = 1;
        info->flags = V3_PARAM_CAN_AUTOMATE | V3_PARAM_IS_BYPASS;
        return V3_OK;
    }
    writeText(info->units, p.unit);
    info->unit_id = plugin_.unitOf(p.group);
    info->default_normalised_value = double(effect_->toNormalized(row.index, p.defaultValue));
    if (p.kind == VNK::ValueKind::Toggle) info->step_count = 1;
    if (p.kind == VNK::ValueKind::List) {
        info->step_count = static_cast<std::int32_t>(p.maximum - p.minimum);
        info->flags |= V3_PARAM_IS_LIST;
    }
    if (p.isAutomatable()) info->flags |= V3_PARAM_CAN_AUTOMATE;
    if (p.wraps) info->flags |= V3_PARAM_WRAP_AROUND;
    if (p.has(VNK::isHidden)) info->flags |= V3_PARAM_IS_HIDDEN;
    return V3_OK;
}

float Instance::plain(int place, double position) const noexcept
{
    return effect_->fromNormalized(plugin_.parameters[place].index,
                                   static_cast<float>(std::clamp(position, 0.0, 1.0)));
}

/// As the effect has it now.
double Instance::present(int place) const noexcept
{
    const auto& row = plugin_.parameters[place];
    if (row.role == Role::Bypass) return isOn_ ? 0 : 1;
    return double(effect_->toNormalized(row.index, effect_->getValue(row.index)));
}

/// Texts come without the unit, which hosts show behind them.
v3_result Instance::getStringForValue(v3_param_id id, double position, std::int16_t* text) noexcept
{
    constexpr std::size_t kSize = std::size(v3_str_128{});
    if (!text || !std::isfinite(position)) return V3_INVALID_ARG;
    if (isProgramParameter(id)) {
        const auto program =
            static_cast<std::size_t>(std::lround(std::clamp(position, 0.0, 1.0) * lastProgram()));
        writeText(text, kSize, plugin_.programs[program]);
        return V3_OK;
    }
    const int place = plugin_.parameters.find(id);
    if (place < 0) return V3_INVALID_ARG;
    const auto& row = plugin_.parameters[place];
    char buffer[kSize] = "";
    effect_->valueToText(row.index, plain(place, position), buffer, kSize);
    VNK::ParameterInfo p{};
    effect_->getParameter(row.index, p);
    std::string_view shown = buffer;
    const std::string_view unit = p.unit;
    if (!unit.empty() && shown.size() > unit.size() + 1 && shown.ends_with(unit) &&
        shown[shown.size() - unit.size() - 1] == ' ')
        shown.remove_suffix(unit.size() + 1);
    writeText(text, kSize, shown);
    return V3_OK;
}

v3_result Instance::getValueForString(v3_param_id id, std::int16_t* text, double* position) noexcept
{
    if (!text || !position) return V3_INVALID_ARG;
    try {
        const auto given = readText(text);
        if (isProgramParameter(id)) {
            const auto& names = plugin_.programs;
            const auto at = std::find(names.begin(), names.end(), given);
            if (at == names.end()) return V3_FALSE;
            *position = lastProgram() > 0 ? double(at - names.begin()) / lastProgram() : 0;
            return V3_OK;
        }
        const int place = plugin_.parameters.find(id);
        if (place < 0) return V3_INVALID_ARG;
        const int index = plugin_.parameters[place].index;
        float value = 0;
        if (!effect_->textToValue(index, given.c_str(), value)) return V3_FALSE;
        *position = double(effect_->toNormalized(index, value));
        return V3_OK;
    } catch (...) {
        return V3_NOMEM;
    }
}

double Instance::toPlain(v3_param_id id, double position) noexcept
{
    if (isProgramParameter(id)) return std::round(position * lastProgram());
    const int place = plugin_.parameters.find(id);
    return place < 0 ? position : double(plain(place, position));
}

double Instance::toNormalised(v3_param_id id, double plain) noexcept
{
    if (isProgramParameter(id)) return lastProgram() > 0 ? plain / lastProgram() : 0;
    const int place = plugin_.parameters.find(id);
    if (place < 0) return plain;
    return double(
        effect_->toNormalized(plugin_.parameters[place].index, static_cast<float>(plain)));
}

double Instance::getParameter(v3_param_id id) noexcept
{
    if (isProgramParameter(id)) return program_;
    const int place = plugin_.parameters.find(id);
    return place < 0 ? 0 : shown_[static_cast<std::size_t>(place)];
}

/// What is heard comes by the queue of a block; here it is shown, save that a program is loaded
/// where files may be read.
v3_result Instance::setParameter(v3_param_id id, double position) noexcept
{
    if (!std::isfinite(position)) return V3_INVALID_ARG;
    tellLatency();
    if (isProgramParameter(id)) {
        chooseProgram(std::clamp(position, 0.0, 1.0));
        return V3_OK;
    }
    const int place = plugin_.parameters.find(id);
    if (place < 0) return V3_INVALID_ARG;
    shown_[static_cast<std::size_t>(place)] = std::clamp(position, 0.0, 1.0);
    return V3_OK;
}

void Instance::chooseProgram(double position) noexcept
{
    if (position == program_) return;
    program_ = position;
    isRestoring_ = true;
    const bool isLoaded =
        effect_->loadProgram(static_cast<std::int32_t>(std::lround(position * lastProgram())));
    isRestoring_ = false;
    if (!isLoaded) return;
    showPresent();
    restart(V3_RESTART_PARAM_VALUES_CHANGED);
    tellLatency();
}

/// The controller shows what the effect has, and the host will read it.
void Instance::showPresent() noexcept
{
    for (int place = 0; place < plugin_.parameters.count(); ++place) {
        const auto& row = plugin_.parameters[place];
        told(place) = effect_->changeCount(row.index);
        shown_[static_cast<std::size_t>(place)] = present(place);
    }
}

v3_result Instance::setComponentHandler(v3_component_handler** handler) noexcept
{
    if (handler) v3_cpp_obj_ref(handler);
    if (groupHandler_) v3_cpp_obj_unref(groupHandler_);
    if (handler_) v3_cpp_obj_unref(handler_);
    handler_ = handler;
    groupHandler_ = nullptr;
    v3_funknown** found = nullptr;
    if (handler && v3_cpp_obj_query_interface(handler, v3_component_handler2_iid, &found) == V3_OK)
        groupHandler_ = reinterpret_cast<v3_component_handler2**>(found);
    return V3_OK;
}

v3_plugin_view** Instance::createView(const char* name) noexcept
{
    if (!name || std::string_view(name) != "editor") return nullptr;
    auto* const view = new (std::nothrow) EditorView(*this, effect_);
    return view ? view->handle() : nullptr;
}

/// On the audio thread, between two blocks. Programs come by the controller.
void Instance::take(v3_param_id id, double position) noexcept
{
    const int place = plugin_.parameters.find(id);
    if (place < 0 || !std::isfinite(position)) return;
    const auto& row = plugin_.parameters[place];
    if (row.role == Role::Bypass) {
        isOn_ = position < 0.5;
    } else if (position != present(place)) {  // what is so already would lose digits on its way
        const auto before = effect_->changeCount(row.index);
        effect_->setBetweenBlocks(row.index, plain(place, position));
        // A second change is the effect's answer to the first; others may have moved as well.
        if (const auto now = effect_->changeCount(row.index); now == before + 1) told(place) = now;
        hasNews_ = true;
    }
}

/// Tells the host of values that changed but not by its own queues.
void Instance::report(v3_param_changes** changes) noexcept
{
    if (!changes || !hasNews_.exchange(false)) return;
    for (int place = 0; place < plugin_.parameters.count(); ++place) {
        const auto& row = plugin_.parameters[place];
        if (row.role != Role::Effect) continue;
        const auto now = effect_->changeCount(row.index);
        if (told(place).exchange(now) == now) continue;
        v3_param_id id = row.id;
        std::int32_t at = 0;
        auto** const queue = v3_cpp_obj(changes)->add_param_data(changes, &id, &at);
        if (queue) v3_cpp_obj(queue)->add_point(queue, 0, present(place), &at);
    }
}

void Instance::restart(std::int32_t flags) noexcept
{
    if (handler_) v3_cpp_obj(handler_)->restart_component(handler_, flags);
}

/// What automation made of the latency is told with the host's next call of the controller.
void Instance::tellLatency() noexcept
{
    const auto now = effect_->algorithm()->getLatency();
    if (isPreparing_ || std::exchange(latency_, now) == now) return;
    restart(V3_RESTART_LATENCY_CHANGED);
}

void Instance::message(const char* name) noexcept
{
    // The side-chain's message comes on the audio thread, whose block looks for itself.
    const std::string_view word = name;
    if (word == "processSetupChanged") tellLatency();
    if (!groupHandler_ || isRestoring_) return;
    if (word == "groupEditBegun") v3_cpp_obj(groupHandler_)->start_group_edit(groupHandler_);
    if (word == "groupEditEnded") v3_cpp_obj(groupHandler_)->finish_group_edit(groupHandler_);
    // What belongs to no parameter: texts, the set that is not heard.
    if (word == "processStateChanged") v3_cpp_obj(groupHandler_)->set_dirty(groupHandler_, true);
}

void Instance::parameterChanged(std::int32_t index) noexcept
{
    const int place = plugin_.parameters.placeOf(index);
    if (isRestoring_ || place < 0 || plugin_.parameters[place].role != Role::Effect) return;
    const double position = present(place);
    shown_[static_cast<std::size_t>(place)] = position;
    told(place) = effect_->changeCount(index);
    const auto id = plugin_.parameters[place].id;
    if (handler_) v3_cpp_obj(handler_)->perform_edit(handler_, id, position);
}

void Instance::switchByHand(bool isOn) noexcept
{
    isOn_ = isOn;
    for (int place = 0; place < plugin_.parameters.count(); ++place) {
        if (plugin_.parameters[place].role != Role::Bypass) continue;
        const auto id = plugin_.parameters[place].id;
        shown_[static_cast<std::size_t>(place)] = isOn ? 0 : 1;
        if (isHeard()) v3_cpp_obj(handler_)->perform_edit(handler_, id, isOn ? 0 : 1);
    }
}

void Instance::editBegun(std::int32_t index) noexcept
{
    const int place = plugin_.parameters.placeOf(index);
    if (place >= 0 && isHeard())
        v3_cpp_obj(handler_)->begin_edit(handler_, plugin_.parameters[place].id);
}

void Instance::editEnded(std::int32_t index) noexcept
{
    const int place = plugin_.parameters.placeOf(index);
    if (place >= 0 && isHeard())
        v3_cpp_obj(handler_)->end_edit(handler_, plugin_.parameters[place].id);
}

}  // namespace quillworks::vst3
