// SPDX-License-Identifier: ISC
// A running plug-in: ports on one side, component and algorithm on the other.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>

#include "adapters/common/switched_effect.h"
#include "adapters/lv2/catalogue.h"
#include "adapters/lv2/song_position.h"
#include "adapters/lv2/text_exchange.h"

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
    LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle,
                          const LV2_Feature* const* features);
    LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                             const LV2_Feature* const* features);

    TextExchange& texts() noexcept { return texts_; }
    const VNK::HostedEffect& effect() noexcept { return *effect_; }  // what runs in it

private:
    /// Control ports that follow one another in the host's memory as they do here: looked at
    /// together.
    struct Run {
        const float* first;
        int control, count;
    };

    /// Takes the map, and returns the block length to prepare for.
    int readOptions(const LV2_Feature* const* features);
    void findRuns() noexcept;
    void readControls() noexcept;
    void take(int control, float value) noexcept;
    void process(int from, int frames) noexcept
    {
        const float* const* const in = in_.data();
        running_.process({in, out_.data(), in + inputs_}, from, frames, isOn(enabled_, true),
                         position_);
    }
    void writeOutputs() noexcept;
    bool isOn(const float* port, bool otherwise) const noexcept
    {
        return port ? *port > 0.5f : otherwise;
    }
    /// What was read from a control last. Only the audio thread writes it while the plug-in runs.
    std::atomic_ref<float> seenOf(int control) noexcept
    {
        return std::atomic_ref(seen_[static_cast<std::size_t>(control)]);
    }

    // What every block looks at comes first: a session has hundreds of instances, whose memory is
    // cold when their turn comes.
    adapters::SwitchedEffect<float> running_;
    int inputs_;
    bool areRunsKnown_ = false;
    LV2_URID sequence_ = 0;
    const LV2_Atom_Sequence* events_ = nullptr;
    const float *enabled_ = nullptr, *sideChainOn_ = nullptr, *freeWheel_ = nullptr;
    float* latency_ = nullptr;
    std::vector<const float*> in_;  // of the main input, then of the side-chain
    std::vector<float*> out_;
    std::vector<Run> runs_;
    std::vector<float> seen_;
    std::vector<float*> meterPorts_;
    std::vector<float> readings_;  // of the component's meters
    const Plugin& plugin_;
    VNK::HostedEffect effect_;
    SongPosition position_;
    TextExchange texts_;

    std::vector<const float*> controlPorts_;
    LV2_URID_Map* map_ = nullptr;
};

}  // namespace quillworks::lv2
