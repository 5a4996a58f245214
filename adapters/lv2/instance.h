// SPDX-License-Identifier: ISC
// A running plug-in: ports on one side, component and algorithm on the other.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>

#include "adapters/lv2/catalogue.h"
#include "adapters/lv2/song_position.h"
#include "vnk/dry_path.h"
#include "vnk/effect_runner.h"

namespace quillworks::lv2 {

/// URIs of what is stored with a song.
inline constexpr const char* kStateChunk = "urn:quillworks:state#chunk";
inline constexpr const char* kStatePorts = "urn:quillworks:state#ports";

class Instance {
public:
    /// Runs an effect that stands in the plug-in's layouts. Throws where there is none, or not at
    /// this rate. [main thread]
    Instance(VNK::HostedEffect effect, const Plugin& plugin, double sampleRate,
             const LV2_Feature* const* features);

    void connect(std::uint32_t port, void* data) noexcept;
    void activate() noexcept;                 // [main thread]
    void run(std::uint32_t frames) noexcept;  // [audio thread]

    // What a song holds. Hosts may go on running the plug-in while they save, but not while they
    // restore. [main thread]
    LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle);
    LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle);

    const VNK::HostedEffect& effect() noexcept { return *effect_; }  // what runs in it

private:
    /// A control input: where the host writes it.
    struct Control {
        int parameter;
        const float* port = nullptr;
    };

    /// A control output.
    struct Meter {
        int index;  // of the component's list
        float* port;
        float minimum, maximum;
    };

    void readOptions(const LV2_Feature* const* features);
    void readControls() noexcept;
    void process(int from, int frames) noexcept;
    void writeOutputs() noexcept;
    bool isOn(const float* port, bool otherwise) const noexcept
    {
        return port ? *port > 0.5f : otherwise;
    }

    const Plugin& plugin_;
    VNK::HostedEffect effect_;
    VNK::EffectRunner runner_;
    LV2_URID_Map* map_ = nullptr;
    double sampleRate_;
    int maxFrames_ = 1024;

    std::vector<const float*> in_, side_;
    std::vector<float*> out_;
    std::vector<Control> controls_;
    std::vector<std::atomic<float>> seen_;  // what was read from each control last
    std::vector<int> controlOfPort_, meterOfPort_;
    std::vector<Meter> meters_;
    const LV2_Atom_Sequence* events_ = nullptr;
    const float *enabled_ = nullptr, *sideChainOn_ = nullptr;
    float* latency_ = nullptr;

    SongPosition position_;
    VNK::DryPath<float> dry_;
    // For ports that are not connected, and for a side-chain that shares its buffer with an output.
    std::vector<float> silence_, nowhere_;
    std::vector<std::vector<float>> sideCopy_;
};

}  // namespace quillworks::lv2
