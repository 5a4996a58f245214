// SPDX-License-Identifier: ISC
#include "vnk/speaker_arrangement.h"

#include <algorithm>
#include <charconv>

namespace VNK {
namespace {

constexpr const char* kNames[] = {"L",   "R",   "C",  "LFE", "Ls",  "Rs",  "Lrs",
                                  "Rrs", "Lw",  "Rw", "Ltf", "Rtf", "Ltm", "Rtm",
                                  "Ltr", "Rtr", "Cs", "Lc",  "Rc",  "M"};
static_assert(std::size(kNames) == static_cast<std::size_t>(Speaker::Count));

struct NamedLayout {
    std::string_view name;
    std::string_view speakers;
};
constexpr NamedLayout kLayouts[] = {
    {"mono", "M"},
    {"stereo", "L R"},
    {"lcr", "L R C"},
    {"quad", "L R Ls Rs"},
    {"5.0", "L R C Ls Rs"},
    {"5.1", "L R C LFE Ls Rs"},
    {"7.0", "L R C Ls Rs Lrs Rrs"},
    {"7.1", "L R C LFE Ls Rs Lrs Rrs"},
    {"5.1.4", "L R C LFE Ls Rs Ltf Rtf Ltr Rtr"},
    {"7.1.2", "L R C LFE Ls Rs Lrs Rrs Ltm Rtm"},
    {"7.1.4", "L R C LFE Ls Rs Lrs Rrs Ltf Rtf Ltr Rtr"},
    {"9.1.6", "L R C LFE Ls Rs Lrs Rrs Lw Rw Ltf Rtf Ltm Rtm Ltr Rtr"},
};

Speaker speakerNamed(std::string_view name)
{
    const auto at = std::find(std::begin(kNames), std::end(kNames), name);
    return at == std::end(kNames) ? Speaker::Discrete
                                  : static_cast<Speaker>(at - std::begin(kNames));
}

}  // namespace

std::string SpeakerArrangement::names() const
{
    std::string text;
    for (int c = 0; c < placed(); ++c) {
        if (c > 0) text += ' ';
        text += speakers[c] < Speaker::Count ? kNames[static_cast<int>(speakers[c])] : "-";
    }
    return text;
}

SpeakerArrangement SpeakerArrangement::withChannels(int channels) noexcept
{
    SpeakerArrangement a;
    a.channels = std::clamp(channels, 0, kMaxChannels);
    std::fill(std::begin(a.speakers), std::end(a.speakers), Speaker::Discrete);
    if (channels == 1) a.speakers[0] = Speaker::M;
    if (channels == 2) {
        a.speakers[0] = Speaker::L;
        a.speakers[1] = Speaker::R;
    }
    return a;
}

bool SpeakerArrangement::named(std::string_view name, SpeakerArrangement& arrangement) noexcept
{
    for (const auto& layout : kLayouts) {
        if (layout.name != name) continue;
        arrangement = withChannels(0);
        for (auto rest = layout.speakers; !rest.empty();) {
            const auto word = rest.substr(0, rest.find(' '));
            arrangement.speakers[arrangement.channels++] = speakerNamed(word);
            rest.remove_prefix(std::min(rest.size(), word.size() + 1));
        }
        return true;
    }
    int channels = 0;
    const auto end = name.data() + name.size();
    const auto result = std::from_chars(name.data(), end, channels);
    if (result.ec != std::errc() || result.ptr != end || channels < 1 || channels > kMaxChannels)
        return false;
    arrangement = withChannels(channels);
    return true;
}

SpeakerArrangement SpeakerArrangement::fromWaveMask(std::uint32_t mask, int channels) noexcept
{
    // Bits 0 .. 17 of dwChannelMask (Microsoft, "Multiple channel audio data and WAVE files").
    constexpr auto none = Speaker::Discrete;
    Speaker places[18] = {Speaker::L,   Speaker::R,  Speaker::C,   Speaker::LFE, Speaker::Lrs,
                          Speaker::Rrs, Speaker::Lc, Speaker::Rc,  Speaker::Cs,  Speaker::Ls,
                          Speaker::Rs,  none,        Speaker::Ltf, none,         Speaker::Rtf,
                          Speaker::Ltr, none,        Speaker::Rtr};
    constexpr std::uint32_t sides = 3u << 9;
    if (!(mask & sides)) {
        places[4] = Speaker::Ls;
        places[5] = Speaker::Rs;
    }
    SpeakerArrangement a = withChannels(0);
    for (int bit = 0; bit < 18 && a.channels < kMaxChannels; ++bit)
        if (mask & 1u << bit) a.speakers[a.channels++] = places[bit];
    const bool fits = a.channels == channels && (mask >> 18) == 0;
    if (!fits) return withChannels(channels);
    if (channels == 1 && mask == 4) a.speakers[0] = Speaker::M;  // a lone front centre is mono
    return a;
}

}  // namespace VNK
