// SPDX-License-Identifier: ISC
// One state for all formats: the effect's own chunk. Where a format leaves its switches to the
// plug-in to store, they stand in the chunk as well, so that no format refuses another's.
#pragma once

#include <cstddef>

#include "vnk/hosted_effect.h"

namespace quillworks::adapters {

/// The format's switches. Off is stored as the effect's own bypass.
struct Switches {
    bool isOn = true;
    bool isSideChainOn = false;
};

/// The effect's state with the switches in it. False without memory, or where the sink refuses.
/// [main thread]
bool saveState(const VNK::HostedEffect& effect, const Switches& switches,
               VNK::IByteSink& sink) noexcept;
/// Loads a state of any format. A bypass in it moves to the switches, and the effect's own is off:
/// in a format that shows one switch nobody could undo the other. What is refused changes neither
/// (VNK::IEffectState::refusalReason says why). [main thread]
bool loadState(const VNK::HostedEffect& effect, const void* data, std::size_t bytes,
               Switches& switches) noexcept;

}  // namespace quillworks::adapters
