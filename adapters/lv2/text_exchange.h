// SPDX-License-Identifier: ISC
// Texts of an effect in LV2: set and asked for by patch messages, which a worker of the host
// carries out, and kept in states with their paths mapped.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include "adapters/lv2/catalogue.h"

namespace quillworks::lv2 {

/// The property that stands for a text of a plug-in.
std::string textUri(const Plugin& plugin, const VNK::TextInfo& text);

class TextExchange {
public:
    /// Room that the host's buffer for messages to it must have, in bytes.
    static constexpr std::uint32_t kLeastRoom = 16384;

    /// Without texts there is nothing to do for the rest. Without a map or a worker messages are
    /// not understood; states work all the same. [main thread]
    void prepare(const VNK::HostedEffect& effect, const Plugin& plugin, LV2_URID_Map* map,
                 const LV2_Feature* const* features);
    bool areThere() const noexcept { return !texts_.empty(); }
    void connect(LV2_Atom_Sequence* notify) noexcept { notify_ = notify; }

    // [audio thread]
    /// Tells the host what has changed since the last run.
    void begin() noexcept;
    /// Takes a patch:Set or patch:Get; other atoms are left alone.
    void read(const LV2_Atom& atom) noexcept;
    /// What work() has answered.
    void take(const void* data, std::uint32_t size) noexcept;

    /// Carries out what read() has asked for. [the host's worker]
    void work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle,
              const void* data, std::uint32_t size);

    // [main thread]
    /// Held while something else calls the component: the worker may be setting a text.
    std::mutex& mutex() noexcept { return mutex_; }
    /// Files and folders by what the host maps their paths to.
    LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle,
                          const LV2_Feature* const* features) const;
    /// Where the host has put a file elsewhere, the effect takes it from there; after its state.
    void restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                 const LV2_Feature* const* features);

private:
    struct Text {
        LV2_URID property = 0;
        bool isPath = false;
        bool isNews = false;  // to be told to the host
        std::array<char, VNK::kLongestText + 1> told{};
    };
    struct Request {
        std::int32_t index;  // kAll: of every text
        std::int32_t isSet;
        std::array<char, VNK::kLongestText + 1> text;
    };
    static constexpr std::int32_t kAll = -1;
    static constexpr std::uint32_t kHead = 2 * sizeof(std::int32_t);

    int find(LV2_URID property) const noexcept;
    void ask(std::int32_t index, const char* text, std::uint32_t length) noexcept;
    bool tell(const Text& text) noexcept;

    const VNK::HostedEffect* effect_ = nullptr;
    std::vector<Text> texts_;
    LV2_URID_Map* map_ = nullptr;
    LV2_Worker_Schedule* worker_ = nullptr;
    LV2_Atom_Sequence* notify_ = nullptr;
    LV2_Atom_Forge forge_{};
    struct {
        LV2_URID object, blank, path, string, urid, set, get, property, value;
    } ids_{};
    Request request_{};
    std::atomic<bool> isRestored_{false};  // the host knows none of the texts
    std::mutex mutex_;
};

}  // namespace quillworks::lv2
