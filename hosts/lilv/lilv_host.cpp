// SPDX-License-Identifier: ISC
#include "hosts/lilv/lilv_host.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>

namespace quillworks::lilv {
namespace {

struct NodeDeleter {
    void operator()(LilvNode* node) const noexcept { lilv_node_free(node); }
};
using Node = std::unique_ptr<LilvNode, NodeDeleter>;

Node uriNode(LilvWorld* world, const char* uri)
{
    return Node(lilv_new_uri(world, uri));
}

float number(const LilvNode* node, float otherwise)
{
    return node && (lilv_node_is_float(node) || lilv_node_is_int(node)) ? lilv_node_as_float(node)
                                                                        : otherwise;
}

}  // namespace

UridMap::UridMap()
{
    map_ = {this, [](LV2_URID_Map_Handle handle, const char* text) {
                return static_cast<UridMap*>(handle)->map(text);
            }};
    unmap_ = {this, [](LV2_URID_Unmap_Handle handle, LV2_URID urid) {
                  return static_cast<const UridMap*>(handle)->uri(urid);
              }};
}

LV2_URID UridMap::map(const std::string& uri)
{
    const std::lock_guard lock(mutex_);
    const auto [at, isNew] = ids_.try_emplace(uri, static_cast<LV2_URID>(uris_.size() + 1));
    if (isNew) uris_.push_back(&at->first);
    return at->second;
}

const char* UridMap::uri(LV2_URID urid) const
{
    const std::lock_guard lock(mutex_);
    return urid >= 1 && urid <= uris_.size() ? uris_[urid - 1]->c_str() : nullptr;
}

World::World() : world_(lilv_world_new())
{
    lilv_world_load_all(world_);
}

World::~World()
{
    lilv_world_free(world_);
}

const LilvPlugin* World::plugin(const std::string& uri) const
{
    const Node node = uriNode(world_, uri.c_str());
    return node ? lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world_), node.get()) : nullptr;
}

std::vector<std::string> World::plugins(const std::string& prefix) const
{
    std::vector<std::string> uris;
    const auto* all = lilv_world_get_all_plugins(world_);
    LILV_FOREACH(plugins, i, all)
    {
        const std::string uri = lilv_node_as_uri(lilv_plugin_get_uri(lilv_plugins_get(all, i)));
        if (uri.starts_with(prefix)) uris.push_back(uri);
    }
    std::sort(uris.begin(), uris.end());
    return uris;
}

std::vector<std::string> World::presets(const LilvPlugin* plugin) const
{
    std::vector<std::string> uris;
    const Node type = uriNode(world_, "http://lv2plug.in/ns/ext/presets#Preset");
    LilvNodes* found = lilv_plugin_get_related(plugin, type.get());
    LILV_FOREACH(nodes, i, found)
    uris.emplace_back(lilv_node_as_uri(lilv_nodes_get(found, i)));
    lilv_nodes_free(found);
    std::sort(uris.begin(), uris.end());
    return uris;
}

std::unique_ptr<Instance> Instance::create(World& world, const std::string& uri, double sampleRate,
                                           int maxFrames, std::string& reason, Features features)
{
    const LilvPlugin* plugin = world.plugin(uri);
    if (!plugin) {
        reason = uri + " is not installed";
        return nullptr;
    }
    std::unique_ptr<Instance> self(new Instance(world, plugin));
    self->maxFrames_ = maxFrames;
    self->sampleRate_ = static_cast<float>(sampleRate);
    self->worker_ = {self.get(), &Instance::schedule};
    constexpr std::size_t kRequests = 16, kBytesOfRequests = 65536;
    self->requests_.bytes.reserve(kBytesOfRequests);
    self->requests_.sizes.reserve(kRequests);
    auto& urids = world.urids();
    if (features == Features::All) {
        const auto option = [&](const char* key, const char* type, const void* value) {
            self->options_.push_back(
                {LV2_OPTIONS_INSTANCE, 0, urids.map(key), 4, urids.map(type), value});
        };
        option(LV2_BUF_SIZE__minBlockLength, LV2_ATOM__Int, &self->minFrames_);
        option(LV2_BUF_SIZE__maxBlockLength, LV2_ATOM__Int, &self->maxFrames_);
        option(LV2_BUF_SIZE__nominalBlockLength, LV2_ATOM__Int, &self->maxFrames_);
        option(LV2_BUF_SIZE__sequenceSize, LV2_ATOM__Int, &self->sequenceSize_);
        option(LV2_PARAMETERS__sampleRate, LV2_ATOM__Float, &self->sampleRate_);
        self->options_.push_back({LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr});
        self->features_ = {{LV2_URID__map, urids.feature()},
                           {LV2_URID__unmap, urids.unmapFeature()},
                           {LV2_OPTIONS__options, self->options_.data()},
                           {LV2_BUF_SIZE__boundedBlockLength, nullptr},
                           {LV2_WORKER__schedule, &self->worker_}};
    }
    for (const auto& feature : self->features_) self->list_.push_back(&feature);
    self->list_.push_back(nullptr);
    self->instance_ = lilv_plugin_instantiate(plugin, sampleRate, self->list_.data());
    if (!self->instance_) {
        reason = uri + " cannot be instantiated";
        return nullptr;
    }
    self->readPorts();
    self->connectOwn();
    return self;
}

Instance::~Instance()
{
    if (instance_) lilv_instance_free(instance_);
}

void Instance::readPorts()
{
    LilvWorld* w = world_.get();
    const Node audio = uriNode(w, LV2_CORE__AudioPort), control = uriNode(w, LV2_CORE__ControlPort),
               atom = uriNode(w, LV2_ATOM__AtomPort), input = uriNode(w, LV2_CORE__InputPort),
               optional = uriNode(w, LV2_CORE__connectionOptional),
               designation = uriNode(w, LV2_CORE__designation);
    ports_.resize(lilv_plugin_get_num_ports(plugin_));
    values_.resize(ports_.size());
    for (std::uint32_t i = 0; i < ports_.size(); ++i) {
        const LilvPort* from = lilv_plugin_get_port_by_index(plugin_, i);
        auto& p = ports_[i];
        const auto is = [&](const Node& type) { return lilv_port_is_a(plugin_, from, type.get()); };
        p.isInput = is(input);
        p.isOptional = lilv_port_has_property(plugin_, from, optional.get());
        p.symbol = lilv_node_as_string(lilv_port_get_symbol(plugin_, from));
        if (const Node node{lilv_port_get(plugin_, from, designation.get())})
            p.designation = lilv_node_as_string(node.get());
        if (is(audio)) {
            p.type = Port::Type::Audio;
            (p.isInput ? audioIn_ : audioOut_).push_back(i);
        } else if (is(control)) {
            LilvNode *def = nullptr, *minimum = nullptr, *maximum = nullptr;
            lilv_port_get_range(plugin_, from, &def, &minimum, &maximum);
            const Node owned[] = {Node(def), Node(minimum), Node(maximum)};
            p.type = Port::Type::Control;
            p.minimum = number(minimum, 0);
            p.maximum = number(maximum, 1);
            values_[i] = p.def = number(def, p.minimum);
        } else if (is(atom)) {
            p.type = Port::Type::Atom;
            p.buffer = std::make_unique_for_overwrite<std::uint64_t[]>(
                static_cast<std::size_t>(sequenceSize_) / 8 + 2);
        }
    }
}

void Instance::connectOwn() noexcept
{
    for (std::uint32_t i = 0; i < ports_.size(); ++i)
        if (auto& p = ports_[i]; p.type == Port::Type::Control)
            connect(i, &values_[i]);
        else if (p.type == Port::Type::Atom)
            connect(i, p.buffer.get());
        else
            connect(i, nullptr);
    beginBlock();
}

int Instance::find(const std::string& symbol) const noexcept
{
    for (std::size_t i = 0; i < ports_.size(); ++i)
        if (ports_[i].symbol == symbol) return static_cast<int>(i);
    return -1;
}

int Instance::designated(const std::string& uri) const noexcept
{
    for (std::size_t i = 0; i < ports_.size(); ++i)
        if (ports_[i].designation == uri) return static_cast<int>(i);
    return -1;
}

bool Instance::set(const std::string& symbol, float value) noexcept
{
    const int i = find(symbol);
    if (i < 0 || ports_[static_cast<std::size_t>(i)].type != Port::Type::Control) return false;
    values_[static_cast<std::size_t>(i)] = value;
    return true;
}

float Instance::get(const std::string& symbol) const
{
    return values_.at(static_cast<std::size_t>(find(symbol)));
}

void Instance::connect(std::uint32_t port, void* data) noexcept
{
    lilv_instance_connect_port(instance_, port, data);
}

void Instance::beginBlock() noexcept
{
    for (auto& p : ports_) {
        if (p.type != Port::Type::Atom) continue;
        auto* sequence = reinterpret_cast<LV2_Atom_Sequence*>(p.buffer.get());
        sequence->atom.type = world_.urids().map(LV2_ATOM__Sequence);
        sequence->atom.size =
            p.isInput ? sizeof(LV2_Atom_Sequence_Body) : static_cast<std::uint32_t>(sequenceSize_);
        sequence->body = {0, 0};
    }
}

void Instance::send(std::uint32_t frame, const LV2_Atom* atom)
{
    for (auto& p : ports_) {
        if (p.type != Port::Type::Atom || !p.isInput) continue;
        auto* sequence = reinterpret_cast<LV2_Atom_Sequence*>(p.buffer.get());
        auto* event = reinterpret_cast<LV2_Atom_Event*>(reinterpret_cast<char*>(&sequence->body) +
                                                        sequence->atom.size);
        event->time.frames = frame;
        std::memcpy(&event->body, atom, sizeof(LV2_Atom) + atom->size);
        const std::size_t padded = (sizeof(LV2_Atom_Event) + atom->size + 7) / 8 * 8;
        sequence->atom.size += static_cast<std::uint32_t>(padded);
        return;
    }
}

LV2_Worker_Status Instance::schedule(LV2_Worker_Schedule_Handle handle, std::uint32_t size,
                                     const void* data)
{
    // On the audio thread: within the room that there is.
    auto& self = *static_cast<Instance*>(handle);
    auto& [bytes, sizes] = self.requests_;
    if (bytes.size() + size > bytes.capacity() || sizes.size() == sizes.capacity())
        return LV2_WORKER_ERR_NO_SPACE;
    const auto* const from = static_cast<const char*>(data);
    bytes.insert(bytes.end(), from, from + size);
    sizes.push_back(size);
    return LV2_WORKER_SUCCESS;
}

LV2_Worker_Status Instance::respond(LV2_Worker_Respond_Handle handle, std::uint32_t size,
                                    const void* data)
{
    const auto* bytes = static_cast<const char*>(data);
    static_cast<Instance*>(handle)->responses_.emplace_back(bytes, bytes + size);
    return LV2_WORKER_SUCCESS;
}

void Instance::endBlock()
{
    if (requests_.sizes.empty()) return;
    const auto* worker = static_cast<const LV2_Worker_Interface*>(
        lilv_instance_get_extension_data(instance_, LV2_WORKER__interface));
    const auto handle = lilv_instance_get_handle(instance_);
    const char* request = requests_.bytes.data();
    for (const auto size : requests_.sizes) {
        if (worker) worker->work(handle, &Instance::respond, this, size, request);
        request += size;
    }
    requests_.bytes.clear();
    requests_.sizes.clear();
    if (!worker) return;
    for (const auto& response : std::exchange(responses_, {}))
        if (worker->work_response)
            worker->work_response(handle, static_cast<std::uint32_t>(response.size()),
                                  response.data());
    if (worker->end_run) worker->end_run(handle);
}

LilvState* Instance::save()
{
    const auto get = [](const char* symbol, void* self, std::uint32_t* size,
                        std::uint32_t* type) -> const void* {
        auto& instance = *static_cast<Instance*>(self);
        const int i = instance.find(symbol);
        if (i < 0) return nullptr;
        *size = sizeof(float);
        *type = instance.world_.urids().map(LV2_ATOM__Float);
        return &instance.values_[static_cast<std::size_t>(i)];
    };
    return lilv_state_new_from_instance(plugin_, instance_, world_.urids().feature(), nullptr,
                                        nullptr, nullptr, nullptr, get, this,
                                        LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, list_.data());
}

void Instance::restore(const LilvState* state)
{
    const auto set = [](const char* symbol, void* self, const void* value, std::uint32_t size,
                        std::uint32_t type) {
        auto& instance = *static_cast<Instance*>(self);
        auto& urids = instance.world_.urids();
        if (type == urids.map(LV2_ATOM__Float) && size == sizeof(float))
            instance.set(symbol, *static_cast<const float*>(value));
        else if (type == urids.map(LV2_ATOM__Int) && size == sizeof(std::int32_t))
            instance.set(symbol, static_cast<float>(*static_cast<const std::int32_t*>(value)));
    };
    lilv_state_restore(state, instance_, set, this, 0, list_.data());
}

bool Instance::loadPreset(const std::string& uri)
{
    const Node node = uriNode(world_.get(), uri.c_str());
    lilv_world_load_resource(world_.get(), node.get());
    LilvState* state =
        lilv_state_new_from_world(world_.get(), world_.urids().feature(), node.get());
    if (!state) return false;
    restore(state);
    lilv_state_free(state);
    return true;
}

}  // namespace quillworks::lilv
