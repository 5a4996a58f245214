// SPDX-License-Identifier: ISC
// Layouts as the format writes them: a set of places whose order is that of its bits.
#pragma once

#include <optional>

#include "adapters/vst3/abi.h"
#include "vnk/speaker_arrangement.h"

namespace quillworks::vst3 {

/// The channels of a set of places, in the format's order. Where there are side speakers, what the
/// format calls surround is behind them. None for the empty set and for more than 32 channels.
std::optional<VNK::SpeakerArrangement> layoutOf(v3_speaker_arrangement places) noexcept;
/// The set for a layout, whatever its order; none where a channel has no place in the format.
std::optional<v3_speaker_arrangement> placesOf(const VNK::SpeakerArrangement& layout) noexcept;

}  // namespace quillworks::vst3
