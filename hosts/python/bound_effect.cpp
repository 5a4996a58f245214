// SPDX-License-Identifier: ISC
#include "bound_effect.h"

#include <cmath>

#include "host.h"
#include "output_file.h"
#include "text.h"
#include "vnk/buffer.h"

namespace quillworks::python {

using quillhost::Effect;
using quillhost::UsageError;
using quillhost::WorkError;

namespace {

constexpr const char* kPresetEnding = ".fxpreset";

std::string savedState(const Effect& effect)
{
    VNK::StringSink sink;
    if (!effect.component().saveState(sink))
        throw WorkError(effect.name() + " does not give its state");
    return sink.text();
}

void loadInto(const Effect& effect, const std::string& state)
{
    const auto& component = effect.component();
    const bool isLoaded = component.loadState(state.data(), state.size());
    const std::string remark = component.refusalReason();
    if (!isLoaded) throw UsageError(effect.name() + " does not take this state: " + remark);
    if (!remark.empty()) session().note(effect.name() + ": " + remark);
}

}  // namespace

BoundEffect::BoundEffect(const Effect& effect, std::string name)
    : effect_(effect), name_(std::move(name))
{
    effect_.component().setEditorOpen(true);  // some meters run only for who looks at them
}

std::shared_ptr<BoundEffect> BoundEffect::fromSpec(const std::string& text)
{
    return warning([&] {
        if (text.ends_with(kPresetEnding) && text.find(':') == std::string::npos) {
            const auto effect = quillhost::createFromPreset(session(), text);
            return std::make_shared<BoundEffect>(effect, effect.classId());
        }
        const auto spec = quillhost::parseEffectSpec(text);
        const auto effect = quillhost::createEffect(session(), spec);
        session().noteThoseThatPassThrough({effect});
        return std::make_shared<BoundEffect>(effect, spec.name);
    });
}

std::vector<std::shared_ptr<BoundEffect>> BoundEffect::fromChainSpec(const std::string& text)
{
    return warning([&] {
        std::vector<std::shared_ptr<BoundEffect>> effects;
        for (const auto& spec : quillhost::parseChainSpec(session(), text))
            effects.push_back(
                std::make_shared<BoundEffect>(quillhost::createEffect(session(), spec), spec.name));
        return effects;
    });
}

std::shared_ptr<BoundEffect> BoundEffect::fromState(const std::string& name,
                                                    const std::string& state)
{
    return warning([&] {
        const auto effect = session().create(name);
        loadInto(effect, state);
        return std::make_shared<BoundEffect>(effect, name);
    });
}

const Effect& BoundEffect::effect()
{
    if (process_ == getpid()) return effect_;
    const Effect renewed = session().create(name_);
    loadInto(renewed, savedState(effect_));
    // Never let go: its end would wait for what goes on in the other process.
    new Effect(std::exchange(effect_, renewed));
    effect_.component().setEditorOpen(true);
    process_ = getpid();
    player_ = nullptr;
    isPlaying_ = false;
    return effect_;
}

std::vector<std::string> BoundEffect::keys()
{
    std::vector<std::string> all;
    const auto& component = effect().component();
    for (int i = 0; i < component.countParameters(); ++i)
        all.emplace_back(effect_.parameter(i).key);
    for (int i = 0; i < component.countTexts(); ++i) all.emplace_back(effect_.text(i).key);
    return all;
}

BoundEffect::Place BoundEffect::find(const std::string& key)
{
    if (const int text = effect().findText(key); text >= 0) return {-1, text};
    try {
        return {effect_.find(key), -1};
    } catch (const UsageError& e) {
        throw py::key_error(e.what());
    }
}

py::object BoundEffect::get(const std::string& key)
{
    const auto place = find(key);
    const auto& component = effect_.component();
    if (place.text >= 0) return py::str(component.getText(place.text));
    const auto p = effect_.parameter(place.parameter);
    const float value = component.getValue(place.parameter);
    if (p.kind == VNK::ValueKind::Toggle) return py::bool_(value != 0);
    if (p.kind == VNK::ValueKind::Continuous) return py::float_(quillhost::asShown(value));
    const auto step = std::lround(value);
    if (p.choices == 0) return py::int_(step);
    const char* text =
        component.choiceText(place.parameter, static_cast<int>(step - std::lround(p.minimum)));
    return py::str(text ? text : "");
}

std::string BoundEffect::getText(const std::string& key)
{
    const auto place = find(key);
    if (place.text >= 0) return effect_.component().getText(place.text);
    return effect_.text(place.parameter, effect_.component().getValue(place.parameter));
}

void BoundEffect::set(const std::string& key, const py::object& value)
{
    const auto place = find(key);
    const bool isText = py::isinstance<py::str>(value);
    if (place.text >= 0) {
        if (!isText) throw py::type_error(effect_.name() + ": " + key + " takes a text");
        requireQuiet();
        effect_.setText(place.text, value.cast<std::string>());
    } else {
        const int index = place.parameter;
        if (isText) {
            effect_.component().setValue(index, effect_.value(index, value.cast<std::string>()));
        } else {
            const double number = PyFloat_AsDouble(value.ptr());
            if (number == -1.0 && PyErr_Occurred()) {
                PyErr_Clear();
                throw py::type_error(effect_.name() + ": " + key +
                                     " takes a number or a text, not " +
                                     Py_TYPE(value.ptr())->tp_name);
            }
            effect_.component().setValue(index, effect_.value(index, number));
        }
    }
    ++changes_;
}

bool BoundEffect::isMeasured(const std::string& key)
{
    const auto place = find(key);
    return place.parameter >= 0 && effect_.parameter(place.parameter).has(VNK::isReadOnly);
}

py::dict BoundEffect::meters()
{
    py::dict all;
    const auto& component = effect().component();
    for (int i = 0; i < component.countMeters(); ++i) {
        VNK::MeterInfo info{};
        component.getMeter(i, info);
        all[info.key] = quillhost::asShown(component.readMeter(i));
    }
    return all;
}

std::vector<std::string> BoundEffect::presets()
{
    std::vector<std::string> titles;
    for (int i = 0; const char* title = effect().component().programTitle(i); ++i)
        titles.emplace_back(title);
    return titles;
}

std::string BoundEffect::presetName()
{
    return effect().component().programName();
}

void BoundEffect::loadFactoryPreset(int index)
{
    requireQuiet();
    if (!effect_.component().loadProgram(index))
        throw WorkError(effect_.name() +
                        ": the preset does not load: " + effect_.component().refusalReason());
    ++changes_;
}

void BoundEffect::loadPreset(const std::string& path)
{
    requireQuiet();
    warning([&] {
        if (const auto remark = effect_.loadPreset(path); !remark.empty()) session().note(remark);
    });
    ++changes_;
}

void BoundEffect::savePreset(const std::string& path, const std::string& title)
{
    requireQuiet();
    const auto& component = effect_.component();
    component.setBaseFolder(quillhost::folderOf(path).c_str());
    VNK::StringSink document;
    if (!component.savePreset(title.c_str(), document))
        throw WorkError(effect_.name() + " does not give its preset");
    if (const std::string remark = component.refusalReason(); !remark.empty())
        warnOf({path + ": " + remark});
    quillhost::OutputFile file(path);
    file.write(document.text());
    file.finish();
}

py::bytes BoundEffect::state()
{
    return savedState(effect());
}

void BoundEffect::loadState(const std::string& state)
{
    requireQuiet();
    warning([&] { loadInto(effect_, state); });
    ++changes_;
}

void BoundEffect::claim(const void* player)
{
    effect();
    if (player_)
        throw std::runtime_error(effect_.name() + " is in use: it plays in another call or in a " +
                                 "stream that is open (make one for each, or close the stream)");
    player_ = player;
}

void BoundEffect::release(const void* player) noexcept
{
    if (player_ != player) return;
    player_ = nullptr;
    isPlaying_ = false;
}

void BoundEffect::requireQuiet()
{
    effect();
    if (isPlaying_)
        throw std::runtime_error(effect_.name() + " is in use: another thread plays it, and only " +
                                 "its parameters may be set meanwhile");
}

}  // namespace quillworks::python
