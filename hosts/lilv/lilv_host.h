// SPDX-License-Identifier: ISC
// A small LV2 host: finds plug-ins with lilv, offers what most of them ask for, runs them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

namespace quillworks::lilv {

/// Numbers for URIs, one set for the whole process as hosts keep it. [any thread but audio]
class UridMap {
public:
    UridMap();
    LV2_URID map(const std::string& uri);
    const char* uri(LV2_URID urid) const;
    LV2_URID_Map* feature() noexcept { return &map_; }
    LV2_URID_Unmap* unmapFeature() noexcept { return &unmap_; }

private:
    mutable std::mutex mutex_;
    std::map<std::string, LV2_URID> ids_;
    std::vector<const std::string*> uris_;
    LV2_URID_Map map_;
    LV2_URID_Unmap unmap_;
};

/// All plug-ins of LV2_PATH.
class World {
public:
    World();
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    LilvWorld* get() const noexcept { return world_; }
    /// Null for a plug-in that is not installed.
    const LilvPlugin* plugin(const std::string& uri) const;
    /// URIs, sorted, of those that begin with `prefix`.
    std::vector<std::string> plugins(const std::string& prefix) const;
    /// URIs of a plug-in's presets, sorted.
    std::vector<std::string> presets(const LilvPlugin* plugin) const;
    UridMap& urids() noexcept { return urids_; }

private:
    LilvWorld* world_;
    UridMap urids_;
};

struct Port {
    enum class Type { Audio, Control, Atom, Other };
    Type type = Type::Other;
    bool isInput = true;
    bool isOptional = false;
    std::string symbol, designation;
    float minimum = 0, maximum = 1, def = 0;
    std::unique_ptr<std::uint64_t[]> buffer;  // of an atom port
};

/// What a host hands over at instantiation: nothing, as the plainest ones do, or urid, options,
/// bounded block length and worker.
enum class Features { None, All };

class Instance {
public:
    /// Null, with a reason, where the plug-in is missing or refuses.
    static std::unique_ptr<Instance> create(World& world, const std::string& uri, double sampleRate,
                                            int maxFrames, std::string& reason,
                                            Features features = Features::All);
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    const std::vector<Port>& ports() const noexcept { return ports_; }
    const std::vector<std::uint32_t>& audioInputs() const noexcept { return audioIn_; }
    const std::vector<std::uint32_t>& audioOutputs() const noexcept { return audioOut_; }
    /// Index of a symbol or designation URI, or -1.
    int find(const std::string& symbol) const noexcept;
    int designated(const std::string& uri) const noexcept;
    /// Value of a control port. The symbol must exist.
    bool set(const std::string& symbol, float value) noexcept;
    float get(const std::string& symbol) const;

    void connect(std::uint32_t port, void* data) noexcept;
    void activate() noexcept { lilv_instance_activate(instance_); }
    void deactivate() noexcept { lilv_instance_deactivate(instance_); }
    /// An event for the next run, at a frame of it; into the first atom input.
    void send(std::uint32_t frame, const LV2_Atom* atom);
    /// Empties event buffers; before each run.
    void beginBlock() noexcept;
    /// The plug-in's own work and nothing else. [audio thread]
    void run(int frames) noexcept
    {
        lilv_instance_run(instance_, static_cast<std::uint32_t>(frames));
    }
    /// What the plug-in has asked its worker for.
    void endBlock();

    LilvInstance* get() noexcept { return instance_; }
    World& world() noexcept { return world_; }
    const LilvPlugin* plugin() const noexcept { return plugin_; }
    /// Present values of the control inputs and what the plug-in stores; the caller frees it.
    LilvState* save();
    /// Control inputs and stored properties of a state or preset.
    void restore(const LilvState* state);
    bool loadPreset(const std::string& uri);

private:
    Instance(World& world, const LilvPlugin* plugin) : world_(world), plugin_(plugin) {}
    void readPorts();
    void connectOwn() noexcept;
    static LV2_Worker_Status schedule(LV2_Worker_Schedule_Handle handle, std::uint32_t size,
                                      const void* data);
    static LV2_Worker_Status respond(LV2_Worker_Respond_Handle handle, std::uint32_t size,
                                     const void* data);

    World& world_;
    const LilvPlugin* plugin_;
    LilvInstance* instance_ = nullptr;
    std::vector<Port> ports_;
    std::vector<float> values_;  // of the controls by port: side by side, as hosts keep them
    std::vector<std::uint32_t> audioIn_, audioOut_;
    struct {
        std::vector<char> bytes;  // one after the other
        std::vector<std::uint32_t> sizes;
    } requests_;
    std::vector<std::vector<char>> responses_;
    LV2_Worker_Schedule worker_{};
    std::int32_t maxFrames_ = 0, minFrames_ = 1, sequenceSize_ = 65536;
    float sampleRate_ = 0;
    std::vector<LV2_Options_Option> options_;
    std::vector<LV2_Feature> features_;
    std::vector<const LV2_Feature*> list_;
};

}  // namespace quillworks::lilv
