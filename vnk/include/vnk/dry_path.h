// SPDX-License-Identifier: ISC
// What is heard while a host has switched an effect off: what its bypass plays, as late as the
// effect says it is, so that the host's delay compensation stays right. For hosts and adapters
// alike, which know of each other only this framework; header only, no part of the boundary to a
// module.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "vnk/effect.h"

namespace VNK {

/// For each block either keep(), process, mix(), or, while the effect alone is heard, process and
/// skip(), which costs nothing.
template <typename T> class DryPath {
public:
    /// For an effect that stands in its layouts, at most `maxFrames` at once and delays up to
    /// `maxDelay` frames. Memory is not touched before it is needed.
    void prepare(const IEffectAlgorithm& effect, int inputs, int outputs, double sampleRate,
                 int maxFrames, int maxDelay)
    {
        maxDelay_ = maxDelay;
        length_ = maxDelay + maxFrames;
        inputs_ = inputs;
        step_ = static_cast<T>(1 / std::max(1.0, 0.01 * sampleRate));  // 10 ms to fade
        rings_ = std::make_unique_for_overwrite<T[]>(static_cast<std::size_t>(inputs) *
                                                     static_cast<std::size_t>(length_));
        shares_.assign(static_cast<std::size_t>(outputs), {});
        for (int to = 0; to < outputs; ++to)
            for (int from = 0; from < inputs; ++from)
                if (const float gain = effect.getBypassGain(from, to); gain != 0)
                    shares_[static_cast<std::size_t>(to)].push_back({ringOf(from), gain});
        reset();
    }
    void reset() noexcept
    {
        at_ = kept_ = 0;
        isPastKnown_ = true;  // silence
        isFresh_ = true;
    }

    /// Whether a block may be skipped: the effect alone is heard.
    bool canSkip(bool isOn) const noexcept { return isOn && (weight_ == 1 || isFresh_); }
    /// In place of mix(), for a block that was not kept. [audio thread]
    void skip() noexcept
    {
        at_ = kept_ = 0;
        isPastKnown_ = isFresh_ = false;
        weight_ = 1;
    }

    /// Keeps the input of the coming block, before the effect may overwrite it; null is silence.
    /// [audio thread]
    void keep(const T* const* input, int frames) noexcept
    {
        const int first = std::min(frames, length_ - at_);
        for (int c = 0; c < inputs_; ++c) {
            T* const ring = ringOf(c);
            if (const T* const x = input[c]) {
                std::copy_n(x, first, ring + at_);
                std::copy_n(x + first, frames - first, ring);
            } else {
                std::fill_n(ring + at_, first, T{});
                std::fill_n(ring, frames - first, T{});
            }
        }
    }

    /// Fades the output of the block just kept towards the effect, or towards its input `delay`
    /// frames ago. The first block after a reset fades nothing; behind skipped ones the way to the
    /// input begins as soon as it is known so far back. Outputs may be null. [audio thread]
    void mix(T* const* output, int frames, int delay, bool isOn) noexcept
    {
        const T target = isOn ? 1 : 0;
        if (isFresh_) weight_ = target;
        isFresh_ = false;
        if (weight_ != 1 || target != 1) {
            delay = std::clamp(delay, 0, maxDelay_);
            const int unknown = std::clamp(delay - kept_, 0, frames);
            const int waits = weight_ == 1 && !isPastKnown_ ? unknown : 0;
            T w = weight_;
            for (std::size_t c = 0; c < shares_.size(); ++c)
                w = fade(shares_[c], output[c], waits, frames, delay, target);
            weight_ = w;
        }
        at_ = (at_ + frames) % length_;
        kept_ = std::min(kept_ + frames, length_);
    }

private:
    /// An input channel's part in what an output plays.
    struct Share {
        const T* ring;
        float gain;
    };

    T* ringOf(int input) const noexcept
    {
        return rings_.get() + static_cast<std::ptrdiff_t>(input) * length_;
    }

    /// Returns the weight that it ends with.
    T fade(const std::vector<Share>& shares, T* y, int first, int frames, int delay,
           T target) const noexcept
    {
        T w = weight_;
        int from = at_ + first - delay;
        if (from < 0) from += length_;
        if (from >= length_) from -= length_;
        for (int i = first; i < frames; ++i) {
            w = target > w ? std::min(target, w + step_) : std::max(target, w - step_);
            if (y) {
                T dry = 0;
                if (!shares.empty() && kept_ + i >= delay) {
                    dry = shares[0].ring[from] * shares[0].gain;
                    for (std::size_t k = 1; k < shares.size(); ++k)
                        dry += shares[k].ring[from] * shares[k].gain;
                }
                // At either end the sum is left out: what is heard there is that signal bit by bit.
                if (w == 0)
                    y[i] = dry;
                else if (w != 1)
                    y[i] = dry + (y[i] - dry) * w;
            }
            if (++from == length_) from = 0;
        }
        return w;
    }

    T step_ = 0, weight_ = 1;  // of the effect's output
    bool isFresh_ = true;
    bool isPastKnown_ = true;  // what lies before the frames kept is silence
    int at_ = 0;               // where the present block begins
    int kept_ = 0;             // frames before it
    int maxDelay_ = 0, length_ = 1, inputs_ = 0;
    std::unique_ptr<T[]> rings_;              // of the inputs
    std::vector<std::vector<Share>> shares_;  // of the outputs
};

}  // namespace VNK
