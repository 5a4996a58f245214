// SPDX-License-Identifier: ISC
// Where the channels of a file belong: the masks of WAVE files, the order of others.
#pragma once

#include <array>
#include <cstdint>
#include <sndfile.h>

#include "vnk/speaker_arrangement.h"

namespace quillhost {

/// Channel mask of a layout, 0 where it has none (places that a mask cannot say, or in its order).
std::uint32_t waveMask(const VNK::SpeakerArrangement& layout);

/// Mask of an open file that names its channels' places without a WAVE mask, 0 where it names none
/// or in another order than a mask has.
std::uint32_t maskOf(SNDFILE* file, int channels);

/// How Vorbis and Opus lay out 1 to 8 channels (Vorbis I specification, 4.3.9): their places as a
/// mask, and the channel of the mask's order that stands at each position of the file.
struct VorbisOrder {
    std::uint32_t mask;
    std::array<signed char, 8> channel;
};
/// Null for more channels, which have no places.
const VorbisOrder* vorbisOrder(int channels);

}  // namespace quillhost
