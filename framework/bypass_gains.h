// SPDX-License-Identifier: ISC
// What bypass plays where input and output have different layouts: a gain from each input channel
// to each output channel.
#pragma once

#include <vector>

#include "dsp/vec.h"
#include "vnk/speaker_arrangement.h"

namespace quillworks {

/// The rule of effects that give a sound room: equal layouts pass as they are, a single channel is
/// heard in L and R as it is, and anything else stays at its speaker, or at its number where the
/// output has no such place.
float placedBypassGain(const VNK::SpeakerArrangement& input, const VNK::SpeakerArrangement& output,
                       int from, int to) noexcept;
/// The rule of panners, which place a point: two channels go to L and R, or their mean to M; a
/// single one to C, else to L and R with its power, else to M.
float pannedBypassGain(const VNK::SpeakerArrangement& input, const VNK::SpeakerArrangement& output,
                       int from, int to) noexcept;

/// The gains of one pair of layouts, ready for blocks.
class BypassGains {
public:
    /// gain(input, output) for every pair of channels. Allocates. [main thread]
    template <class F> void prepare(int inputs, int outputs, F&& gain)
    {
        outputs_.assign(static_cast<std::size_t>(outputs), {});
        isIdentity_ = true;
        for (int to = 0; to < outputs; ++to)
            for (int from = 0; from < inputs; ++from) {
                const float g = gain(from, to);
                if (g != 0) outputs_[static_cast<std::size_t>(to)].push_back({from, g});
                isIdentity_ &= g == (from == to ? 1.0f : 0.0f);
            }
    }
    /// Each output is the input of the same number, or silence beyond the inputs.
    bool isIdentity() const noexcept { return isIdentity_; }

    /// Writes what output `to` plays of `n` frames of the inputs, of which there are `inputs`.
    template <typename T> void play(const T* const* input, int inputs, int to, T* out, int n) const
    {
        bool isFirst = true;
        for (const auto& [from, gain] : outputs_[static_cast<std::size_t>(to)]) {
            if (from >= inputs) continue;
            if (isFirst)
                vec::scaleCopy(out, input[from], T(gain), n);
            else
                vec::addScaled(out, input[from], T(gain), n);
            isFirst = false;
        }
        if (isFirst) vec::clear(out, n);
    }

private:
    struct Share {
        int from;
        float gain;
    };

    std::vector<std::vector<Share>> outputs_;
    bool isIdentity_ = true;
};

}  // namespace quillworks
