// SPDX-License-Identifier: ISC
// Where the speakers of a layout stand, which of them trade places when left and right are swapped,
// and the rings they form around the listener.
#pragma once

#include <array>
#include <utility>
#include <vector>

#include "vnk/speaker_arrangement.h"

namespace quillworks {

struct ChannelPairs {
    static constexpr int kMost = VNK::kMaxChannels / 2;
    std::array<std::pair<int, int>, kMost> pairs{};
    int count = 0;

    /// Each left speaker with the right one of its kind, in channel order; speakers in the middle
    /// are in no pair. Layouts without places pair neighbours: (0, 1), (2, 3), ...
    static ChannelPairs of(const VNK::SpeakerArrangement& layout) noexcept;
};

/// A direction as an engineer gives it.
struct SpeakerPlace {
    double azimuth = 0;    // degrees clockwise from the front, within -180 .. 180
    double elevation = 0;  // degrees above the ear
    bool isLfe = false;    // has no direction

    /// Unit vector: x to the front, y to the left, z up.
    std::array<double, 3> direction() const noexcept;
};

/// The places of a layout's channels. Allocates. [main thread]
class SpeakerField {
public:
    /// Directions of ITU-R BS.775 and BS.2051, quad at 45 and 135 degrees. A layout with channels
    /// that have no place is a ring of equal angles, clockwise from the front in channel order.
    explicit SpeakerField(const VNK::SpeakerArrangement& layout);

    int channels() const noexcept { return static_cast<int>(places_.size()); }
    const SpeakerPlace& operator[](int channel) const noexcept
    {
        return places_[static_cast<std::size_t>(channel)];
    }
    /// The channel that mirrors `channel` at the middle; itself in the middle, and for LFE and for
    /// one whose counterpart is missing.
    int mirror(int channel) const noexcept { return mirrors_[static_cast<std::size_t>(channel)]; }
    bool isMiddle(int channel) const noexcept;

    /// Channels sorted clockwise from the front, LFE left out: those at the height of the ear, and
    /// those above. Equal angles keep the order of the channels.
    const std::vector<int>& earRing() const noexcept { return ear_; }
    const std::vector<int>& heightRing() const noexcept { return height_; }

private:
    std::vector<SpeakerPlace> places_;
    std::vector<int> mirrors_, ear_, height_;
};

}  // namespace quillworks
