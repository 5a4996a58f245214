// SPDX-License-Identifier: ISC
// What is heard while the host has switched the plug-in off: the input, as late as the plug-in says
// it is, so that the host's delay compensation stays right.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace quillworks::lv2 {

class DryPath {
public:
    /// For `channels`, at most `maxFrames` at once and delays up to `maxDelay` frames.
    void prepare(int channels, double sampleRate, int maxFrames, int maxDelay)
    {
        maxDelay_ = maxDelay;
        length_ = maxDelay + maxFrames;
        step_ = static_cast<float>(1 / std::max(1.0, 0.01 * sampleRate));  // 10 ms to fade
        rings_.assign(static_cast<std::size_t>(channels),
                      std::vector<float>(static_cast<std::size_t>(length_)));
        reset();
    }
    void reset() noexcept
    {
        for (auto& ring : rings_) std::fill(ring.begin(), ring.end(), 0.0f);
        at_ = 0;
        isFresh_ = true;
    }

    /// Keeps the input of the coming block, before the effect may overwrite it. [audio thread]
    void keep(const float* const* input, int frames) noexcept
    {
        const int first = std::min(frames, length_ - at_);
        for (std::size_t c = 0; c < rings_.size(); ++c) {
            std::copy_n(input[c], first, rings_[c].data() + at_);
            std::copy_n(input[c] + first, frames - first, rings_[c].data());
        }
    }

    /// Fades the output of the block just kept towards the effect, or towards its input `delay`
    /// frames ago. The first block after a reset fades nothing. [audio thread]
    void mix(float* const* output, int frames, int delay, bool isOn) noexcept
    {
        const float target = isOn ? 1.0f : 0.0f;
        if (isFresh_) weight_ = target;
        isFresh_ = false;
        if (weight_ != 1 || target != 1) {
            float w = weight_;
            for (std::size_t c = 0; c < rings_.size(); ++c)
                w = fade(rings_[c].data(), output[c], frames, std::clamp(delay, 0, maxDelay_),
                         target);
            weight_ = w;
        }
        at_ = (at_ + frames) % length_;
    }

private:
    /// Returns the weight that it ends with.
    float fade(const float* ring, float* y, int frames, int delay, float target) const noexcept
    {
        float w = weight_;
        int from = at_ >= delay ? at_ - delay : at_ - delay + length_;
        for (int i = 0; i < frames; ++i) {
            w = target > w ? std::min(target, w + step_) : std::max(target, w - step_);
            const float dry = ring[from];
            // At either end the sum is left out: what is heard there is that signal bit by bit.
            if (w == 0)
                y[i] = dry;
            else if (w != 1)
                y[i] = dry + (y[i] - dry) * w;
            if (++from == length_) from = 0;
        }
        return w;
    }

    std::vector<std::vector<float>> rings_;
    int maxDelay_ = 0, length_ = 1;
    int at_ = 0;                   // where the present block begins
    float step_ = 0, weight_ = 1;  // of the effect's output
    bool isFresh_ = true;
};

}  // namespace quillworks::lv2
