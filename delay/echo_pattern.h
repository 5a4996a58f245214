// SPDX-License-Identifier: ISC
// The ways that echoes take through the speakers around a listener.
#pragma once

#include <vector>

#include "framework/speakers.h"

namespace quillworks {

enum class EchoPattern {
    Stay,
    Clockwise,
    Anticlockwise,
    FrontToBack,
    SideToSide,
    Opposite,
    Zigzag,
    UpAndDown
};
inline constexpr int kEchoPatterns = 8;

/// Where an echo is heard next: for each channel the channel it goes to. Every channel is named
/// once, so nothing is lost or doubled whatever the layout. LFE, and the channel `without` (-1:
/// none), stay where they are and are on nobody's way. Allocates. [main thread]
///
/// Clockwise, Anticlockwise: round the ring of speakers at the height of the ear, and round the one
/// above. Opposite: half way round. FrontToBack: on each side and each height from the front to the
/// back, and to the front again; middle speakers among themselves. SideToSide: the mirror speaker.
/// Zigzag: one ring of both heights by angle. UpAndDown: each height speaker trades places with the
/// nearest one below that is still free.
std::vector<int> echoOrder(const SpeakerField& field, EchoPattern pattern, int without);

}  // namespace quillworks
