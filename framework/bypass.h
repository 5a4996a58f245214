// SPDX-License-Identifier: ISC
// Bypass without a click: a linear cross-fade of 10 ms between the input and the processed signal.
#pragma once

#include <algorithm>

namespace quillworks {

/// Weight of the processed signal, out = in + (processed - in) w. While it rests at 0 the core is
/// not run.
class BypassFade {
public:
    void prepare(double sampleRate) noexcept
    {
        length_ = std::max(1, static_cast<int>(0.01 * sampleRate + 0.5));
    }
    void set(bool bypassed) noexcept { bypassed_ = bypassed; }
    bool isBypassed() const noexcept { return bypassed_; }
    /// Takes the state at once.
    void snap() noexcept
    {
        position_ = bypassed_ ? 0 : length_;
        warmUp_ = 0;
        running_ = !bypassed_;
    }

    /// True once when the core has to start afresh because bypass has been left. The core then runs
    /// unheard for `latency` frames, so that what is faded in has caught up.
    bool startsAfresh(int latency) noexcept
    {
        if (bypassed_ || running_) return false;
        running_ = true;
        warmUp_ = latency;
        return true;
    }
    /// The core need not run: only the input is heard.
    bool isOff() const noexcept { return !running_; }
    /// The core alone is heard.
    bool isOn() const noexcept { return running_ && !bypassed_ && position_ == length_; }

    /// Weights before and after the next n frames, n at most the result of run(). Advances.
    struct Weights {
        double from, to;
    };
    /// How many of `frames` have one linear course.
    int run(int frames) const noexcept
    {
        if (!bypassed_ && warmUp_ > 0) return std::min(frames, warmUp_);
        const int left = bypassed_ ? position_ : length_ - position_;
        return left > 0 ? std::min(frames, left) : frames;
    }
    Weights advance(int n) noexcept
    {
        const double from = weight();
        if (bypassed_) {
            position_ = std::max(0, position_ - n);
            if (position_ == 0) running_ = false;
        } else if (warmUp_ > 0) {
            warmUp_ -= n;
        } else {
            position_ = std::min(length_, position_ + n);
        }
        return {from, weight()};
    }

private:
    double weight() const noexcept { return double(position_) / length_; }

    int length_ = 1;    // frames of a whole fade
    int position_ = 1;  // frames faded in
    int warmUp_ = 0;    // frames the core still runs unheard
    bool bypassed_ = false;
    bool running_ = true;
};

}  // namespace quillworks
