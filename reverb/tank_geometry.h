// SPDX-License-Identifier: ISC
// Lengths of the lines of a feedback delay network, drawn once and alike in every build.
#pragma once

#include <array>
#include <cstdint>

namespace quillworks {

/// Delays in samples.
struct TankDelays {
    static constexpr int kMostLines = 16, kMostSteps = 2;
    using PerLine = std::array<int, kMostLines>;

    PerLine line{};                          // at least 65
    PerLine allPass{};                       // at least 33, or 0
    std::array<PerLine, kMostSteps> step{};  // of diffusion, from 0 on
};

/// Lines whose lengths spread evenly over a ratio of 3.4 in the logarithm, all different primes;
/// all-passes about a fifth of their lines; and steps of diffusion, each with delays spread over
/// its span, twice the span of the step before.
class TankGeometry {
public:
    static constexpr double kRatio = 3.4;  // longest line re the shortest

    TankGeometry() = default;
    /// 8 or 16 lines, 1 or 2 steps of diffusion. Without all-passes their lengths are 0.
    TankGeometry(double sampleRate, int lines, int steps, bool hasAllPasses, std::uint32_t seed);

    int lines() const noexcept { return lines_; }
    int steps() const noexcept { return steps_; }
    double sampleRate() const noexcept { return sampleRate_; }

    /// With the shortest line near `shortest` seconds and the first step of diffusion over `span`
    /// seconds. Some ten microseconds: primes are searched. [any thread]
    TankDelays delays(double shortest, double span) const noexcept;

    /// +1 or -1 behind a step of diffusion.
    double sign(int step, int line) const noexcept { return sign_[at(step)][at(line)]; }
    /// Of the motion of a pair of lines, in turns, 0 .. 1.
    double phase(int pair) const noexcept { return phase_[at(pair)]; }

private:
    static std::size_t at(int i) noexcept { return static_cast<std::size_t>(i); }
    using Draws = std::array<double, TankDelays::kMostLines>;

    double sampleRate_ = 44100;
    int lines_ = 16, steps_ = 0;
    bool hasAllPasses_ = false;
    Draws ratio_{}, allPass_{}, phase_{};  // of a line re the shortest, of an all-pass re its line
    std::array<Draws, TankDelays::kMostSteps> step_{}, sign_{};  // delay re the span
};

}  // namespace quillworks
