// SPDX-License-Identifier: ISC
// Low-frequency oscillator: a wave table of 256 steps and a 32-bit phase, read at a control rate.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quillworks {

enum class LfoShape { Triangle, Sine, Sawtooth, Square, Steps, SmoothSteps };

/// Position within one period and its advance per control update, both in units of 2^-32 period:
/// the upper 8 bits index the wave table, the lower 24 are the fraction between two entries. Fixed
/// point wraps by itself and never drifts. Each owner (channel, voice) keeps its own.
struct LfoPhase {
    std::uint32_t value = 0;
    std::uint32_t increment = 0;

    void reset() noexcept { value = 0; }

    /// The phase before the advance: after `reset` the first value read is that of phase 0.
    std::uint32_t next() noexcept
    {
        const auto before = value;
        value += increment;
        return before;
    }

    /// Keeps the rate in hertz when the control rate changes from `from` to `to` (both in Hz).
    void rescale(double from, double to) noexcept;
};

/// The wave of one LFO, its 16 steps and its control rate. All operations may be called on either
/// thread, one at a time; none allocates.
class LfoTable {
public:
    static constexpr int kSteps = 16;
    static constexpr int kSize = 257;  // the last entry is the right neighbour of entry 255

    LfoTable() noexcept { rebuild(); }

    /// Updates per second: how often the owner advances its phase.
    void setControlRate(double hertz) noexcept { controlRate_ = hertz; }

    /// Builds the tables if `shape` (an `LfoShape`) is not the current one. Anything outside 0..5
    /// changes nothing.
    void select(int shape) noexcept;
    void select(LfoShape shape) noexcept { select(static_cast<int>(shape)); }
    LfoShape shape() const noexcept { return shape_; }

    /// The values of the step shapes. What sounds stays as it is until another shape is selected
    /// or, for an owner that edits the steps while they sound, until `rebuild`.
    void setSteps(std::span<const float, kSteps> steps) noexcept;
    const std::array<float, kSteps>& steps() const noexcept { return steps_; }
    void rebuild() noexcept;

    /// Phase increment for a rate in Hz, limited to 0 .. half the control rate.
    std::uint32_t increment(double hertz) const noexcept;

    /// The wave at `phase`, linear between entries.
    float read(std::uint32_t phase) const noexcept
    {
        const std::size_t i = phase >> 24;
        const float fraction = static_cast<float>(phase & 0xFFFFFFu) * 5.9604645e-08f;  // 2^-24
        return (1 - fraction) * wave_[i] + fraction * wave_[i + 1];
    }

    /// Half-life, in control updates, of the one-pole through which the owner of `SmoothSteps`
    /// passes what it reads: 1/32 of a period at `hertz`, so a step has settled before the next.
    double smoothStepsHalfLife(double hertz) const noexcept;

    const std::array<float, kSize>& wave() const noexcept { return wave_; }
    /// The same wave in units of 1/32767, truncated toward zero.
    const std::array<std::int16_t, kSize>& wave16() const noexcept { return wave16_; }

private:
    double controlRate_ = 1500;  // Hz; 48 kHz in sub-blocks of 32
    LfoShape shape_ = LfoShape::Triangle;
    std::array<float, kSteps> steps_{};
    std::array<float, kSize> wave_{};
    std::array<std::int16_t, kSize> wave16_{};
};

}  // namespace quillworks
