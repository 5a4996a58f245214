// SPDX-License-Identifier: ISC
#include "lv2_effect.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <map>
#include <sstream>
#include <vector>

#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/port-props/port-props.h>
#include <lv2/time/time.h>
#include <lv2/units/units.h>

#include "hosts/lilv/lilv_host.h"
#include "lv2_ports.h"
#include "text.h"
#include "vnk/effect.h"

namespace quillhost {
namespace {

namespace lilv = quillworks::lilv;

struct Lv2Class {
    const LilvPlugin* plugin = nullptr;
    VNK::ClassDescription description;
};

lilv::World& world()
{
    static lilv::World all;
    return all;
}

std::map<std::string, Lv2Class>& classes()
{
    static std::map<std::string, Lv2Class> known;
    return known;
}

/// A plug-in behind the interfaces of an effect. Audio is handed over in buffers of its own, since
/// plug-ins take single precision only, and some nothing in place.
class Lv2Effect final
    : public VNK::Object<VNK::IEffectComponent, VNK::IEffectAlgorithm, VNK::IEffectParameters,
                         VNK::IEffectGestures, VNK::IEffectMeters, VNK::IEffectState,
                         VNK::IEffectPrograms, VNK::IEffectAttributes, VNK::IEffectViews> {
public:
    explicit Lv2Effect(const LilvPlugin* plugin)
        : uri_(lilv_node_as_uri(lilv_plugin_get_uri(plugin))),
          ports_(world(), plugin),
          values_(ports_.controls.size()),
          changes_(ports_.controls.size()),
          readings_(ports_.meters.size())
    {
        for (std::size_t i = 0; i < values_.size(); ++i) values_[i] = ports_.controls[i].def;
        takes_ = std::to_string(ports_.inputs.size()) + " audio inputs and " +
                 std::to_string(ports_.outputs.size()) + " outputs";
    }

    // IEffectComponent
    VNK::IEffectAlgorithm* algorithm() noexcept override { return this; }
    void setListener(VNK::IEffectListener*) noexcept override {}

    // IEffectAlgorithm
    bool acceptsArrangement(const VNK::SpeakerArrangement& in,
                            const VNK::SpeakerArrangement& out) const noexcept override
    {
        const int ins = inputs(), outs = outputs();
        if (isPerChannel() || outs == 0) return in.channels == out.channels && in.channels > 0;
        return (ins == 0 || in.channels == ins) && out.channels == outs;
    }
    bool setSpeakerArrangement(const VNK::SpeakerArrangement& in,
                               const VNK::SpeakerArrangement& out) noexcept override
    {
        if (!acceptsArrangement(in, out)) return false;
        channels_ = out.channels;
        return true;
    }
    void setPrecision(VNK::Precision precision) noexcept override { precision_ = precision; }
    bool setSampleRate(std::int32_t maxFrames, double sampleRate) noexcept override;
    void reset() noexcept override;
    bool hasSideChain() const noexcept override { return !ports_.sideChain.empty(); }
    void setSideChainActive(bool) noexcept override {}
    void setWetOnly(bool) noexcept override {}
    void setTempo(double tempo) noexcept override { transport_.tempo = tempo; }
    void setTransport(const VNK::Transport& transport) noexcept override
    {
        const double tempo = transport.tempo > 0 ? transport.tempo : transport_.tempo;
        transport_ = transport;
        transport_.tempo = tempo;
    }
    void process(const VNK::ProcessData& data) noexcept override
    {
        for (int at = 0; at < data.frames; at += maxFrames_) {
            const int n = std::min(maxFrames_, data.frames - at);
            precision_ == VNK::Precision::Float ? run<float>(data, at, n)
                                                : run<double>(data, at, n);
        }
    }
    std::uint32_t getLatency() const noexcept override { return latency_; }
    std::uint32_t getTailLength() const noexcept override { return latency_; }
    float getBypassGain(std::int32_t input, std::int32_t output) const noexcept override
    {
        return input == output ? 1.0f : 0.0f;
    }

    // IEffectParameters
    std::int32_t countParameters() const noexcept override
    {
        return static_cast<std::int32_t>(values_.size());
    }
    bool getParameter(std::int32_t index, VNK::ParameterInfo& info) const noexcept override
    {
        if (!has(index)) return false;
        ports_.controls[at(index)].describe(index, info);
        return true;
    }
    std::int32_t findParameter(const char* key) const noexcept override
    {
        for (std::size_t i = 0; key && i < values_.size(); ++i)
            if (ports_.controls[i].symbol == key) return static_cast<std::int32_t>(i);
        return -1;
    }
    float getValue(std::int32_t index) const noexcept override
    {
        return has(index) ? values_[at(index)] : 0;
    }
    bool setValue(std::int32_t index, float value) noexcept override
    {
        if (!has(index) || !std::isfinite(value)) return false;
        values_[at(index)] = ports_.controls[at(index)].limited(value);
        ++changes_[at(index)];
        return true;
    }
    bool automate(std::int32_t index, float value) noexcept override
    {
        return setValue(index, value);
    }
    bool setBetweenBlocks(std::int32_t index, float value) noexcept override
    {
        return setValue(index, value);
    }
    float toNormalized(std::int32_t index, float value) const noexcept override
    {
        return has(index) ? ports_.controls[at(index)].place(value) : 0;
    }
    float fromNormalized(std::int32_t index, float position) const noexcept override
    {
        return has(index) ? ports_.controls[at(index)].atPlace(position) : 0;
    }
    std::int32_t valueToText(std::int32_t index, float value, char* text,
                             std::int32_t size) const noexcept override
    {
        return copied(has(index) ? ports_.controls[at(index)].textOf(value) : "", text, size);
    }
    bool textToValue(std::int32_t index, const char* text, float& value) const noexcept override
    {
        return has(index) && text && ports_.controls[at(index)].read(text, value);
    }
    const char* choiceText(std::int32_t index, std::int32_t step) const noexcept override
    {
        if (!has(index)) return nullptr;
        const auto& c = ports_.controls[at(index)];
        const bool isThere = c.kind == VNK::ValueKind::List && step >= 0 &&
                             static_cast<std::size_t>(step) < c.points.size();
        return isThere ? c.points[static_cast<std::size_t>(step)].second.c_str() : nullptr;
    }
    std::uint32_t changeCount(std::int32_t index) const noexcept override
    {
        return has(index) ? changes_[at(index)] : 0;
    }
    const char* treeNode(std::int32_t) const noexcept override { return nullptr; }

    // IEffectGestures
    void beginEdit(VNK::Tag) noexcept override {}
    void endEdit(VNK::Tag) noexcept override {}
    void beginGroupEdit() noexcept override {}
    void endGroupEdit() noexcept override {}

    // IEffectMeters
    std::int32_t countMeters() const noexcept override
    {
        return static_cast<std::int32_t>(readings_.size());
    }
    bool getMeter(std::int32_t index, VNK::MeterInfo& info) const noexcept override
    {
        if (index < 0 || index >= countMeters()) return false;
        ports_.meters[at(index)].describe(index, info);
        return true;
    }
    float readMeter(std::int32_t index) const noexcept override
    {
        return index >= 0 && index < countMeters() ? readings_[at(index)] : NAN;
    }
    std::int32_t meterToText(std::int32_t index, float value, char* text,
                             std::int32_t size) const noexcept override
    {
        const bool isThere = index >= 0 && index < countMeters() && !std::isnan(value);
        return copied(isThere ? ports_.meters[at(index)].textOf(value) : "-", text, size);
    }
    const char* meterChoice(std::int32_t, std::int32_t) const noexcept override { return nullptr; }
    void setEditorOpen(bool) noexcept override {}

    // IEffectState: the controls, "symbol=value" a line.
    bool saveState(VNK::IByteSink* sink) const noexcept override
    {
        std::string text;
        for (std::size_t i = 0; i < values_.size(); ++i)
            text += ports_.controls[i].symbol + "=" + shortText(values_[i]) + "\n";
        return sink && sink->write(text.data(), text.size());
    }
    bool loadState(const void* data, std::size_t bytes) noexcept override
    {
        std::istringstream lines(std::string(static_cast<const char*>(data), bytes));
        for (std::string line; std::getline(lines, line);) {
            const auto equals = line.find('=');
            float value = 0;
            if (equals == std::string::npos || !readNumber(line.substr(equals + 1), value))
                return false;
            setValue(findParameter(line.substr(0, equals).c_str()), value);
        }
        return true;
    }
    bool savePreset(const char*, VNK::IByteSink*) const noexcept override { return false; }
    bool loadPreset(const void*, std::size_t) noexcept override { return false; }
    const char* refusalReason() const noexcept override
    {
        return "LV2 plug-ins take no preset files";
    }

    // IEffectPrograms
    std::int32_t countPrograms() const noexcept override { return 0; }
    const char* programTitle(std::int32_t) const noexcept override { return nullptr; }
    bool loadProgram(std::int32_t) noexcept override { return false; }
    const char* programName() const noexcept override { return "(Unnamed)"; }

    // IEffectAttributes
    bool getInteger(const char* key, std::int64_t& value) const noexcept override
    {
        const std::string_view name = key ? key : "";
        if (name == "audioInputs") return value = inputs(), true;
        if (name == "audioOutputs") return value = outputs(), true;
        return false;
    }
    bool getFloat(const char*, float&) const noexcept override { return false; }
    const char* getString(const char* key) const noexcept override
    {
        const std::string_view name = key ? key : "";
        return name == "audioPorts" ? takes_.c_str() : name == "uri" ? uri_.c_str() : nullptr;
    }
    bool setInteger(const char*, std::int64_t) noexcept override { return false; }

    // IEffectViews
    const char* viewName(std::int32_t) const noexcept override { return nullptr; }
    bool remotePages(VNK::IByteSink*) const noexcept override { return false; }

private:
    /// An instance with what its audio ports are connected to.
    struct Voice {
        std::unique_ptr<lilv::Instance> instance;
        std::vector<std::vector<float>> in, side, out;
    };

    bool has(std::int32_t index) const noexcept { return index >= 0 && index < countParameters(); }
    static std::size_t at(std::int32_t index) noexcept { return static_cast<std::size_t>(index); }
    int inputs() const noexcept { return static_cast<int>(ports_.inputs.size()); }
    int outputs() const noexcept { return static_cast<int>(ports_.outputs.size()); }
    bool isPerChannel() const noexcept { return inputs() == 1 && outputs() == 1; }
    static std::int32_t copied(const std::string& from, char* text, std::int32_t size) noexcept
    {
        if (text && size > 0) {
            const auto n = std::min(from.size(), static_cast<std::size_t>(size - 1));
            std::memcpy(text, from.data(), n);
            text[n] = 0;
        }
        return static_cast<std::int32_t>(from.size());
    }

    Voice voice();
    template <typename T> void run(const VNK::ProcessData& data, int from, int frames) noexcept;
    template <typename T>
    static void take(const void* const* channels, int count, int channel, int from,
                     std::vector<float>& to, int frames) noexcept;
    void sendPosition(Voice& voice) noexcept;
    void readLatency(const Voice& voice) noexcept;

    std::string uri_, takes_;
    Lv2Ports ports_;
    std::vector<float> values_;  // what the control inputs of every instance are connected to
    std::vector<std::uint32_t> changes_;
    std::vector<float> readings_;  // likewise, of the control outputs
    std::vector<Voice> voices_;
    VNK::Precision precision_ = VNK::Precision::Float;
    VNK::Transport transport_, sent_;
    bool isSent_ = false;
    std::int32_t maxFrames_ = 1, channels_ = 0;
    double sampleRate_ = 0;
    std::uint32_t latency_ = 0;
};

Lv2Effect::Voice Lv2Effect::voice()
{
    Voice v;
    std::string reason;
    v.instance = lilv::Instance::create(world(), uri_, sampleRate_, maxFrames_, reason);
    if (!v.instance) return v;
    const auto connect = [&](const std::vector<std::uint32_t>& ports,
                             std::vector<std::vector<float>>& buffers) {
        for (const auto port : ports) {
            buffers.emplace_back(static_cast<std::size_t>(maxFrames_));
            v.instance->connect(port, buffers.back().data());
        }
    };
    connect(ports_.inputs, v.in);
    connect(ports_.sideChain, v.side);
    connect(ports_.outputs, v.out);
    connect(ports_.cv, v.side);  // silent
    for (std::size_t i = 0; i < values_.size(); ++i)
        v.instance->connect(ports_.controls[i].port, &values_[i]);
    for (std::size_t i = 0; i < readings_.size(); ++i)
        v.instance->connect(ports_.meters[i].port, &readings_[i]);
    v.instance->activate();
    return v;
}

bool Lv2Effect::setSampleRate(std::int32_t maxFrames, double sampleRate) noexcept
{
    try {
        voices_.clear();
        maxFrames_ = std::max(1, maxFrames);
        sampleRate_ = sampleRate;
        latency_ = 0;
        if (ports_.latency >= 0) {
            // It is told by a run, which must leave no trace in what is heard.
            auto probe = voice();
            if (!probe.instance) return false;
            probe.instance->beginBlock();
            probe.instance->run(maxFrames_);
            readLatency(probe);
            probe.instance->deactivate();
        }
        const int count = isPerChannel() ? channels_ : 1;
        for (int i = 0; i < count; ++i) {
            voices_.push_back(voice());
            if (!voices_.back().instance) return false;
        }
        isSent_ = false;
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void Lv2Effect::reset() noexcept
{
    for (auto& v : voices_) {
        v.instance->deactivate();
        v.instance->activate();
    }
    isSent_ = false;
}

template <typename T>
void Lv2Effect::take(const void* const* channels, int count, int channel, int from,
                     std::vector<float>& to, int frames) noexcept
{
    const void* const source = channels && channel < count ? channels[channel] : nullptr;
    if (source)
        std::transform(static_cast<const T*>(source) + from,
                       static_cast<const T*>(source) + from + frames, to.begin(),
                       [](T x) { return static_cast<float>(x); });
    else
        std::fill_n(to.begin(), frames, 0.0f);
}

template <typename T>
void Lv2Effect::run(const VNK::ProcessData& data, int from, int frames) noexcept
{
    // All is read before anything is written: outputs may be inputs.
    for (std::size_t k = 0; k < voices_.size(); ++k) {
        auto& v = voices_[k];
        for (std::size_t j = 0; j < v.in.size(); ++j)
            take<T>(data.inputs, data.inputChannels, static_cast<int>(isPerChannel() ? k : j), from,
                    v.in[j], frames);
        for (std::size_t j = 0; j < ports_.sideChain.size(); ++j)
            take<T>(data.sideChain, data.sideChainChannels,
                    std::min(static_cast<int>(j), data.sideChainChannels - 1), from, v.side[j],
                    frames);
    }
    for (std::size_t k = 0; k < voices_.size(); ++k) {
        auto& v = voices_[k];
        v.instance->beginBlock();
        sendPosition(v);
        v.instance->run(frames);
        v.instance->endBlock();
        readLatency(v);
        for (std::size_t j = 0; j < v.out.size(); ++j) {
            const auto channel = isPerChannel() ? k : j;
            void* const target = data.outputs[channel];
            if (static_cast<int>(channel) >= data.outputChannels || !target) continue;
            std::copy_n(v.out[j].begin(), frames, static_cast<T*>(target) + from);
        }
    }
    if (outputs() == 0)  // what only looks lets everything through
        for (int c = 0; c < std::min(data.inputChannels, data.outputChannels); ++c)
            if (data.outputs[c] != data.inputs[c] && data.outputs[c] && data.inputs[c])
                std::copy_n(static_cast<const T*>(data.inputs[c]) + from, frames,
                            static_cast<T*>(data.outputs[c]) + from);
    sent_ = transport_;
    isSent_ = true;
}

void Lv2Effect::readLatency(const Voice&) noexcept
{
    if (ports_.latency < 0) return;
    const float now = readings_[static_cast<std::size_t>(ports_.latency)];
    if (std::isfinite(now))
        latency_ = static_cast<std::uint32_t>(std::clamp(now, 0.0f, 1e7f) + 0.5f);
}

/// Song position and tempo, to plug-ins that listen to them.
void Lv2Effect::sendPosition(Voice& v) noexcept
{
    const bool isSame = isSent_ && sent_.playing == transport_.playing &&
                        sent_.tempo == transport_.tempo && !transport_.playing;
    if (!ports_.takesPosition || isSame) return;
    auto& urids = world().urids();
    LV2_Atom_Forge forge;
    lv2_atom_forge_init(&forge, urids.feature());
    std::array<std::uint8_t, 512> buffer;
    lv2_atom_forge_set_buffer(&forge, buffer.data(), buffer.size());
    LV2_Atom_Forge_Frame frame;
    lv2_atom_forge_object(&forge, &frame, 0, urids.map(LV2_TIME__Position));
    const auto key = [&](const char* uri) { lv2_atom_forge_key(&forge, urids.map(uri)); };
    constexpr double kBeatsPerBar = 4;
    key(LV2_TIME__speed);
    lv2_atom_forge_float(&forge, transport_.playing ? 1 : 0);
    key(LV2_TIME__frame);
    lv2_atom_forge_long(&forge, transport_.frame);
    key(LV2_TIME__beatsPerMinute);
    lv2_atom_forge_float(&forge, static_cast<float>(transport_.tempo > 0 ? transport_.tempo : 120));
    key(LV2_TIME__beatUnit);
    lv2_atom_forge_int(&forge, 4);
    key(LV2_TIME__beatsPerBar);
    lv2_atom_forge_float(&forge, static_cast<float>(kBeatsPerBar));
    key(LV2_TIME__bar);
    const double bar = std::floor(transport_.quarterNotes / kBeatsPerBar);
    lv2_atom_forge_long(&forge, static_cast<std::int64_t>(bar));
    key(LV2_TIME__barBeat);
    lv2_atom_forge_float(&forge, static_cast<float>(transport_.quarterNotes - bar * kBeatsPerBar));
    key(LV2_TIME__beat);
    lv2_atom_forge_double(&forge, transport_.quarterNotes);
    lv2_atom_forge_pop(&forge, &frame);
    v.instance->send(0, reinterpret_cast<const LV2_Atom*>(buffer.data()));
}

}  // namespace

const VNK::ClassDescription& lv2Class(const std::string& name)
{
    const auto uri = name.substr(std::strlen(kLv2Prefix));
    const auto [at, isNew] = classes().try_emplace(uri);
    auto& found = at->second;
    if (isNew) found.plugin = world().plugin(uri);
    if (!found.plugin)
        throw UsageError("there is no LV2 plug-in " + inQuotes(uri) + " " +
                         nearest(uri, world().plugins("")));
    if (!found.description.name) {
        LilvNode* const title = lilv_plugin_get_name(found.plugin);
        found.description.name =
            VNKGetConstantString(title ? lilv_node_as_string(title) : uri.c_str());
        lilv_node_free(title);
        found.description.category = VNKGetConstantString("LV2");
        found.description.subCategory = found.description.description = VNKGetEmptyString();
    }
    return found.description;
}

VNK::IObject* createLv2(const VNK::ClassDescription& description)
{
    for (auto& [uri, known] : classes()) {
        if (&known.description != &description) continue;
        if (const auto lacking = Lv2Ports::lacking(known.plugin); !lacking.empty())
            throw WorkError(std::string(description.name->text()) + " needs the LV2 feature " +
                            lacking + ", which this host does not have");
        auto effect = std::make_unique<Lv2Effect>(known.plugin);
        return static_cast<VNK::IEffectComponent*>(effect.release());
    }
    return nullptr;
}

}  // namespace quillhost
