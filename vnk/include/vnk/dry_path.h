// SPDX-License-Identifier: ISC
// What is heard while a host has switched an effect off: what its bypass plays, as late as the
// effect says it is, so that the host's delay compensation stays right. For hosts and adapters
// alike, which know of each other only this framework; header only, no part of the boundary to a
// module.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "vnk/effect.h"

namespace VNK {

template <typename T> class DryPath {
public:
    /// For an effect that stands in its layouts, at most `maxFrames` at once and delays up to
    /// `maxDelay` frames.
    void prepare(const IEffectAlgorithm& effect, int inputs, int outputs, double sampleRate,
                 int maxFrames, int maxDelay)
    {
        maxDelay_ = maxDelay;
        length_ = maxDelay + maxFrames;
        step_ = static_cast<T>(1 / std::max(1.0, 0.01 * sampleRate));  // 10 ms to fade
        rings_.assign(static_cast<std::size_t>(inputs),
                      std::vector<T>(static_cast<std::size_t>(length_)));
        shares_.assign(static_cast<std::size_t>(outputs), {});
        for (int to = 0; to < outputs; ++to)
            for (int from = 0; from < inputs; ++from)
                if (const float gain = effect.getBypassGain(from, to); gain != 0)
                    shares_[static_cast<std::size_t>(to)].push_back(
                        {rings_[static_cast<std::size_t>(from)].data(), gain});
        reset();
    }
    void reset() noexcept
    {
        for (auto& ring : rings_) std::fill(ring.begin(), ring.end(), T{});
        at_ = 0;
        isFresh_ = true;
    }

    /// Keeps the input of the coming block, before the effect may overwrite it. [audio thread]
    void keep(const T* const* input, int frames) noexcept
    {
        const int first = std::min(frames, length_ - at_);
        for (std::size_t c = 0; c < rings_.size(); ++c) {
            std::copy_n(input[c], first, rings_[c].data() + at_);
            std::copy_n(input[c] + first, frames - first, rings_[c].data());
        }
    }

    /// Fades the output of the block just kept towards the effect, or towards its input `delay`
    /// frames ago. The first block after a reset fades nothing. [audio thread]
    void mix(T* const* output, int frames, int delay, bool isOn) noexcept
    {
        const T target = isOn ? 1 : 0;
        if (isFresh_) weight_ = target;
        isFresh_ = false;
        if (weight_ != 1 || target != 1) {
            T w = weight_;
            for (std::size_t c = 0; c < shares_.size(); ++c)
                w = fade(shares_[c], output[c], frames, std::clamp(delay, 0, maxDelay_), target);
            weight_ = w;
        }
        at_ = (at_ + frames) % length_;
    }

private:
    /// An input channel's part in what an output plays.
    struct Share {
        const T* ring;
        float gain;
    };

    /// Returns the weight that it ends with.
    T fade(const std::vector<Share>& shares, T* y, int frames, int delay, T target) const noexcept
    {
        T w = weight_;
        int from = at_ >= delay ? at_ - delay : at_ - delay + length_;
        for (int i = 0; i < frames; ++i) {
            w = target > w ? std::min(target, w + step_) : std::max(target, w - step_);
            T dry = shares.empty() ? 0 : shares[0].ring[from] * shares[0].gain;
            for (std::size_t k = 1; k < shares.size(); ++k)
                dry += shares[k].ring[from] * shares[k].gain;
            // At either end the sum is left out: what is heard there is that signal bit by bit.
            if (w == 0)
                y[i] = dry;
            else if (w != 1)
                y[i] = dry + (y[i] - dry) * w;
            if (++from == length_) from = 0;
        }
        return w;
    }

    std::vector<std::vector<T>> rings_;       // of the inputs
    std::vector<std::vector<Share>> shares_;  // of the outputs
    int maxDelay_ = 0, length_ = 1;
    int at_ = 0;               // where the present block begins
    T step_ = 0, weight_ = 1;  // of the effect's output
    bool isFresh_ = true;
};

}  // namespace VNK
