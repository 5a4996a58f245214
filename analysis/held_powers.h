// SPDX-License-Identifier: ISC
// The highest powers of late, as a meter holds them.
#pragma once

#include <cstdint>
#include <vector>

namespace quillworks {

/// Keeps each value's maximum for a time from when it was last reached, then lets it fall by 20 dB
/// a second.
class HeldPowers {
public:
    /// In frames of the clock that advance() counts; 0 holds nothing. What is held stays.
    void setTime(double frames, double framesPerSecond) noexcept
    {
        time_ = frames;
        rate_ = framesPerSecond;
        if (!isOn()) forget();
    }
    bool isOn() const noexcept { return time_ > 0; }
    /// Nothing is held.
    void forget() noexcept { values_.clear(); }
    /// What is held counts no more, though it is shown until there is something new.
    void restart() noexcept { isOld_ = true; }
    /// The present powers, `frames` after the last ones. Without memory nothing is held.
    void advance(const std::vector<double>& powers, std::int64_t frames);

    /// Empty where there is nothing.
    const std::vector<double>& values() const noexcept { return values_; }

private:
    double time_ = 0, rate_ = 1;
    bool isOld_ = false;
    std::int64_t now_ = 0;
    std::vector<double> values_;
    std::vector<std::int64_t> reached_;
};

}  // namespace quillworks
