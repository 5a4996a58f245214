// SPDX-License-Identifier: ISC
#include "channel_places.h"

#include <algorithm>
#include <vector>

namespace quillhost {

std::uint32_t maskOf(SNDFILE* file, int channels)
{
    struct Place {
        int map;
        int bit;
    };
    constexpr Place kPlaces[] = {
        {SF_CHANNEL_MAP_LEFT, 0},
        {SF_CHANNEL_MAP_FRONT_LEFT, 0},
        {SF_CHANNEL_MAP_RIGHT, 1},
        {SF_CHANNEL_MAP_FRONT_RIGHT, 1},
        {SF_CHANNEL_MAP_CENTER, 2},
        {SF_CHANNEL_MAP_FRONT_CENTER, 2},
        {SF_CHANNEL_MAP_LFE, 3},
        {SF_CHANNEL_MAP_REAR_LEFT, 4},
        {SF_CHANNEL_MAP_REAR_RIGHT, 5},
        {SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, 6},
        {SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, 7},
        {SF_CHANNEL_MAP_REAR_CENTER, 8},
        {SF_CHANNEL_MAP_SIDE_LEFT, 9},
        {SF_CHANNEL_MAP_SIDE_RIGHT, 10},
        {SF_CHANNEL_MAP_TOP_CENTER, 11},
        {SF_CHANNEL_MAP_TOP_FRONT_LEFT, 12},
        {SF_CHANNEL_MAP_TOP_FRONT_CENTER, 13},
        {SF_CHANNEL_MAP_TOP_FRONT_RIGHT, 14},
        {SF_CHANNEL_MAP_TOP_REAR_LEFT, 15},
        {SF_CHANNEL_MAP_TOP_REAR_CENTER, 16},
        {SF_CHANNEL_MAP_TOP_REAR_RIGHT, 17},
    };
    std::vector<int> map(static_cast<std::size_t>(channels));
    if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                   static_cast<int>(map.size() * sizeof(int))) != SF_TRUE)
        return 0;
    std::uint32_t mask = 0;
    for (const int value : map) {
        const auto place = std::find_if(std::begin(kPlaces), std::end(kPlaces),
                                        [&](const Place& p) { return p.map == value; });
        // Out of order it is no mask: the channels then have no places that we could name.
        if (place == std::end(kPlaces) || mask >> place->bit) return 0;
        mask |= 1u << place->bit;
    }
    return mask;
}

std::uint32_t waveMask(const VNK::SpeakerArrangement& layout)
{
    using VNK::Speaker;
    struct Place {
        Speaker speaker;
        int bit;
    };
    constexpr Place kPlaces[] = {
        {Speaker::L, 0},    {Speaker::R, 1},    {Speaker::C, 2},    {Speaker::LFE, 3},
        {Speaker::Lrs, 4},  {Speaker::Rrs, 5},  {Speaker::Lc, 6},   {Speaker::Rc, 7},
        {Speaker::Cs, 8},   {Speaker::Ls, 9},   {Speaker::Rs, 10},  {Speaker::Ltf, 12},
        {Speaker::Rtf, 14}, {Speaker::Ltr, 15}, {Speaker::Rtr, 17},
    };
    if (layout == VNK::SpeakerArrangement::withChannels(layout.channels)) return 0;
    std::uint32_t mask = 0;
    for (const auto& place : kPlaces)
        if (layout.find(place.speaker) >= 0) mask |= 1u << place.bit;
    // One pair of surrounds goes by the name of back speakers in most files.
    constexpr std::uint32_t backs = 3u << 4, sides = 3u << 9;
    if (!(mask & backs) && (mask & sides) == sides) mask ^= backs | sides;
    return VNK::SpeakerArrangement::fromWaveMask(mask, layout.channels) == layout ? mask : 0;
}

const VorbisOrder* vorbisOrder(int channels)
{
    static constexpr VorbisOrder kOrders[] = {
        {0x4, {0}},
        {0x3, {0, 1}},
        {0x7, {0, 2, 1}},
        {0x33, {0, 1, 2, 3}},
        {0x37, {0, 2, 1, 3, 4}},
        {0x3F, {0, 2, 1, 4, 5, 3}},
        {0x70F, {0, 2, 1, 5, 6, 4, 3}},     // the rear centre stands before the sides in a mask
        {0x63F, {0, 2, 1, 6, 7, 4, 5, 3}},  // as the rear pair does
    };
    return channels >= 1 && channels <= 8 ? &kOrders[channels - 1] : nullptr;
}

}  // namespace quillhost
