// SPDX-License-Identifier: ISC
// Channel layouts: which speaker each channel of a bus feeds.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "vnk/export.h"

namespace VNK {

/// Speakers by their bit in a 64-bit set.
enum class Speaker : std::uint8_t {
    L,
    R,
    C,
    LFE,
    Ls,
    Rs,
    Lrs,
    Rrs,
    Lw,
    Rw,
    Ltf,
    Rtf,
    Ltm,
    Rtm,
    Ltr,
    Rtr,
    Cs,
    Lc,
    Rc,
    M,
    Count,
    Discrete = 255,  // a channel without a place
};

inline constexpr int kMaxChannels = 32;

struct SpeakerArrangement {
    std::int32_t channels = 0;  // 0 .. kMaxChannels
    Speaker speakers[kMaxChannels] = {};

    /// Whether the channel count is one that can be. A host may hand over anything; the functions
    /// below read no more speakers than there are.
    bool isValid() const noexcept { return channels >= 0 && channels <= kMaxChannels; }

    friend bool operator==(const SpeakerArrangement& a, const SpeakerArrangement& b) noexcept
    {
        if (a.channels != b.channels) return false;
        for (int c = 0; c < a.placed(); ++c)
            if (a.speakers[c] != b.speakers[c]) return false;
        return true;
    }

    /// The channel that feeds `speaker`, or -1.
    int find(Speaker speaker) const noexcept
    {
        for (int c = 0; c < placed(); ++c)
            if (speakers[c] == speaker) return c;
        return -1;
    }
    /// The set of speaker bits; channels without a place are not in it.
    std::uint64_t bits() const noexcept
    {
        std::uint64_t set = 0;
        for (int c = 0; c < placed(); ++c)
            if (speakers[c] < Speaker::Count)
                set |= std::uint64_t{1} << static_cast<int>(speakers[c]);
        return set;
    }
    /// Short names in channel order joined by one blank ("L R C LFE Ls Rs"); "-" without a place.
    VNK_API std::string names() const;

    /// `channels` without places; 1 is mono and 2 stereo. Limited to kMaxChannels.
    VNK_API static SpeakerArrangement withChannels(int channels) noexcept;
    /// "mono", "stereo", "lcr", "quad", "5.0", "5.1", "7.0", "7.1", "5.1.4", "7.1.2", "7.1.4",
    /// "9.1.6", or a channel count such as "12" for discrete channels. False for other names.
    VNK_API static bool named(std::string_view name, SpeakerArrangement& arrangement) noexcept;
    /// The layout of the channel mask of a WAVE file, channels in mask order. Back speakers are Ls
    /// Rs where no side speakers are named, else Lrs Rrs; a mask that does not fit the channel
    /// count, or is 0, gives withChannels().
    VNK_API static SpeakerArrangement fromWaveMask(std::uint32_t mask, int channels) noexcept;

private:
    int placed() const noexcept { return channels < kMaxChannels ? channels : kMaxChannels; }
};

}  // namespace VNK
