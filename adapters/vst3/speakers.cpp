// SPDX-License-Identifier: ISC
#include "adapters/vst3/speakers.h"

#include <bit>

namespace quillworks::vst3 {
namespace {

using VNK::Speaker;

struct Place {
    v3_speaker_arrangement bit;
    Speaker speaker;
};

/// In the order of the bits. The first of several for a speaker is the one that is written.
constexpr Place kPlaces[] = {
    {V3_SPEAKER_L, Speaker::L},     {V3_SPEAKER_R, Speaker::R},     {V3_SPEAKER_C, Speaker::C},
    {V3_SPEAKER_LFE, Speaker::LFE}, {V3_SPEAKER_LS, Speaker::Ls},   {V3_SPEAKER_RS, Speaker::Rs},
    {V3_SPEAKER_LC, Speaker::Lc},   {V3_SPEAKER_RC, Speaker::Rc},   {V3_SPEAKER_S, Speaker::Cs},
    {V3_SPEAKER_SL, Speaker::Ls},   {V3_SPEAKER_SR, Speaker::Rs},   {V3_SPEAKER_TFL, Speaker::Ltf},
    {V3_SPEAKER_TFR, Speaker::Rtf}, {V3_SPEAKER_TRL, Speaker::Ltr}, {V3_SPEAKER_TRR, Speaker::Rtr},
    {V3_SPEAKER_M, Speaker::M},     {kTopSideLeft, Speaker::Ltm},   {kTopSideRight, Speaker::Rtm},
    {kWideLeft, Speaker::Lw},       {kWideRight, Speaker::Rw},
};
constexpr v3_speaker_arrangement kSides = V3_SPEAKER_SL | V3_SPEAKER_SR;

Speaker speakerAt(v3_speaker_arrangement bit, bool hasSides) noexcept
{
    if (hasSides && bit == V3_SPEAKER_LS) return Speaker::Lrs;
    if (hasSides && bit == V3_SPEAKER_RS) return Speaker::Rrs;
    for (const auto& place : kPlaces)
        if (place.bit == bit) return place.speaker;
    return Speaker::Discrete;
}

}  // namespace

std::optional<VNK::SpeakerArrangement> layoutOf(v3_speaker_arrangement places) noexcept
{
    const int channels = std::popcount(places);
    if (channels < 1 || channels > VNK::kMaxChannels) return {};
    auto layout = VNK::SpeakerArrangement::withChannels(channels);
    const bool hasSides = (places & kSides) == kSides;
    for (int c = 0; c < channels; ++c) {
        const auto bit = places & (~places + 1);  // the lowest
        layout.speakers[c] = speakerAt(bit, hasSides);
        places ^= bit;
    }
    return layout;
}

std::optional<v3_speaker_arrangement> placesOf(const VNK::SpeakerArrangement& layout) noexcept
{
    const bool hasSides = layout.find(Speaker::Lrs) >= 0 && layout.find(Speaker::Rrs) >= 0;
    v3_speaker_arrangement places = 0;
    for (int c = 0; c < layout.channels; ++c) {
        v3_speaker_arrangement bit = 0;
        for (auto b = v3_speaker_arrangement{1}; b != 0 && bit == 0; b <<= 1) {
            const bool isSide = (b & kSides) != 0;
            if (isSide == (hasSides && (layout.speakers[c] == Speaker::Ls ||
                                        layout.speakers[c] == Speaker::Rs)) &&
                speakerAt(b, hasSides) == layout.speakers[c])
                bit = b;
        }
        if (layout.speakers[c] >= Speaker::Count || bit == 0 || (places & bit) != 0) return {};
        places |= bit;
    }
    return places;
}

}  // namespace quillworks::vst3
