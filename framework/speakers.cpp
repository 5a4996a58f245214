// SPDX-License-Identifier: ISC
#include "framework/speakers.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

using VNK::Speaker;
using VNK::SpeakerArrangement;

struct Pair {
    Speaker left, right;
    double azimuth, elevation;  // of the right one, degrees
};

constexpr Pair kPairs[] = {
    {Speaker::L, Speaker::R, 30, 0},       {Speaker::Ls, Speaker::Rs, 110, 0},
    {Speaker::Lrs, Speaker::Rrs, 135, 0},  {Speaker::Lw, Speaker::Rw, 60, 0},
    {Speaker::Ltf, Speaker::Rtf, 45, 45},  {Speaker::Ltm, Speaker::Rtm, 90, 45},
    {Speaker::Ltr, Speaker::Rtr, 135, 45}, {Speaker::Lc, Speaker::Rc, 15, 0},
};

bool isQuad(const SpeakerArrangement& layout)
{
    return layout.channels == 4 && layout.find(Speaker::L) >= 0 && layout.find(Speaker::R) >= 0 &&
           layout.find(Speaker::Ls) >= 0 && layout.find(Speaker::Rs) >= 0;
}

/// Degrees clockwise of the right speaker of a pair in this layout.
double azimuthOf(const Pair& pair, const SpeakerArrangement& layout)
{
    if (isQuad(layout)) return pair.right == Speaker::R ? 45 : 135;
    const bool hasRear = layout.find(Speaker::Rrs) >= 0 || layout.find(Speaker::Lrs) >= 0;
    return pair.right == Speaker::Rs && hasRear ? 90 : pair.azimuth;
}

SpeakerPlace placeOf(Speaker speaker, const SpeakerArrangement& layout)
{
    if (speaker == Speaker::LFE) return {0, 0, true};
    if (speaker == Speaker::Cs) return {180, 0, false};
    for (const auto& pair : kPairs) {
        if (speaker == pair.left) return {-azimuthOf(pair, layout), pair.elevation, false};
        if (speaker == pair.right) return {azimuthOf(pair, layout), pair.elevation, false};
    }
    return {};  // C and M
}

/// Degrees 0 .. 360 clockwise from the front.
double fromFront(const SpeakerPlace& place)
{
    return place.azimuth < 0 ? place.azimuth + 360 : place.azimuth;
}

}  // namespace

ChannelPairs ChannelPairs::of(const SpeakerArrangement& layout) noexcept
{
    ChannelPairs result;
    const auto add = [&](int left, int right) {
        if (result.count < kMost && left >= 0 && right >= 0)
            result.pairs[static_cast<std::size_t>(result.count++)] = {left, right};
    };
    if (layout.bits() == 0) {
        for (int c = 0; c + 1 < layout.channels; c += 2) add(c, c + 1);
        return result;
    }
    for (int c = 0; c < layout.channels; ++c)
        for (const auto& pair : kPairs)
            if (layout.speakers[c] == pair.left) add(c, layout.find(pair.right));
    return result;
}

std::array<double, 3> SpeakerPlace::direction() const noexcept
{
    const double a = azimuth * std::numbers::pi / 180, e = elevation * std::numbers::pi / 180;
    return {std::cos(e) * std::cos(a), -std::cos(e) * std::sin(a), std::sin(e)};
}

SpeakerField::SpeakerField(const SpeakerArrangement& layout)
{
    const auto* const end = layout.speakers + layout.channels;
    const bool isRing =
        std::any_of(layout.speakers, end, [](Speaker s) { return s >= Speaker::Count; });
    for (int c = 0; c < layout.channels; ++c) {
        const double azimuth = std::remainder(360.0 * c / layout.channels, 360.0);
        places_.push_back(isRing ? SpeakerPlace{azimuth, 0, false}
                                 : placeOf(layout.speakers[c], layout));
        mirrors_.push_back(isRing ? (layout.channels - c) % layout.channels : c);
    }
    const auto pairs = ChannelPairs::of(layout);
    for (int i = 0; i < pairs.count && !isRing; ++i) {
        const auto [left, right] = pairs.pairs[static_cast<std::size_t>(i)];
        mirrors_[static_cast<std::size_t>(left)] = right;
        mirrors_[static_cast<std::size_t>(right)] = left;
    }
    for (int c = 0; c < channels(); ++c)
        if (!(*this)[c].isLfe) ((*this)[c].elevation > 0 ? height_ : ear_).push_back(c);
    for (auto* ring : {&ear_, &height_})
        std::stable_sort(ring->begin(), ring->end(), [this](int a, int b) {
            return fromFront((*this)[a]) < fromFront((*this)[b]);
        });
}

bool SpeakerField::isMiddle(int channel) const noexcept
{
    const auto& place = (*this)[channel];
    return !place.isLfe && (place.azimuth == 0 || std::abs(place.azimuth) == 180);
}

}  // namespace quillworks
