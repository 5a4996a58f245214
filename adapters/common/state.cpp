// SPDX-License-Identifier: ISC
#include "adapters/common/state.h"

#include <string>

#include "framework/stored_state.h"
#include "vnk/buffer.h"

namespace quillworks::adapters {
namespace {

/// Attribute of the chunk. Effects and formats that do not know it leave it alone.
constexpr const char* kSideChain = "externalSideChain";

/// Key of the effect's own bypass, or null.
const char* bypassKey(const VNK::HostedEffect& effect)
{
    VNK::ParameterInfo p{};
    for (int i = 0; effect.getParameter(i, p); ++i)
        if (p.has(VNK::isBypass)) return p.key;
    return nullptr;
}

}  // namespace

bool saveState(const VNK::HostedEffect& effect, const Switches& switches,
               VNK::IByteSink& sink) noexcept
{
    try {
        VNK::StringSink own;
        if (!effect.saveState(own)) return false;
        StoredState state;
        std::string reason;
        if (!readChunk(own.text().data(), own.text().size(), state, reason)) return false;
        if (const char* key = bypassKey(effect)) state.set(key, switches.isOn ? 0.f : 1.f);
        if (switches.isSideChainOn) state.attributes[kSideChain] = std::int64_t{1};
        const auto chunk = writeChunk(state);
        return sink.write(chunk.data(), chunk.size());
    } catch (...) {
        return false;
    }
}

bool loadState(const VNK::HostedEffect& effect, const void* data, std::size_t bytes,
               Switches& switches) noexcept
{
    try {
        StoredState state;
        std::string reason;
        // What cannot be read the effect refuses, and says why.
        if (!readChunk(data, bytes, state, reason)) return effect.loadState(data, bytes);
        Switches stored;
        if (const char* key = bypassKey(effect))
            if (float* const bypass = state.find(key)) {
                stored.isOn = !(*bypass >= 0.5f);
                *bypass = 0;
            }
        if (const auto found = state.attributes.find(kSideChain); found != state.attributes.end()) {
            const auto* n = std::get_if<std::int64_t>(&found->second);
            stored.isSideChainOn = n && *n != 0;
        }
        const auto chunk = writeChunk(state);
        if (!effect.loadState(chunk.data(), chunk.size())) return false;
        switches = stored;
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace quillworks::adapters
