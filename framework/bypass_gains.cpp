// SPDX-License-Identifier: ISC
#include "framework/bypass_gains.h"

namespace quillworks {

using VNK::Speaker;

float placedBypassGain(const VNK::SpeakerArrangement& input, const VNK::SpeakerArrangement& output,
                       int from, int to) noexcept
{
    const bool isSingle = input.channels == 1 && output.channels > 1;
    const int left = output.find(Speaker::L), right = output.find(Speaker::R);
    if (isSingle && left >= 0 && right >= 0) return to == left || to == right ? 1.0f : 0.0f;
    const Speaker place = input.speakers[from];
    const int at = place == Speaker::Discrete ? -1 : output.find(place);
    return to == (at >= 0 ? at : from) ? 1.0f : 0.0f;
}

float pannedBypassGain(const VNK::SpeakerArrangement& input, const VNK::SpeakerArrangement& output,
                       int from, int to) noexcept
{
    constexpr float kHalfPower = 0.70710678f;
    if (input == output) return from == to ? 1.0f : 0.0f;
    const int left = output.find(Speaker::L), right = output.find(Speaker::R);
    const int centre = output.find(Speaker::C), mono = output.find(Speaker::M);
    const bool hasSides = left >= 0 && right >= 0;
    if (input.channels == 1) {
        if (centre >= 0) return to == centre ? 1.0f : 0.0f;
        if (hasSides) return to == left || to == right ? kHalfPower : 0.0f;
    } else if (input.channels == 2 && hasSides) {
        return to == (from == 0 ? left : right) ? 1.0f : 0.0f;
    }
    if (mono >= 0) return to == mono ? 1.0f / static_cast<float>(input.channels) : 0.0f;
    return placedBypassGain(input, output, from, to);
}

}  // namespace quillworks
