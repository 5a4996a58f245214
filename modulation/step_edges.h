// SPDX-License-Identifier: ISC
// A pattern of steps as a control value that is exact to the sample: rises end where a step begins,
// falls begin there, and both are as steep as set without a click.
#pragma once

#include <array>

#include "framework/song_clock.h"

namespace quillworks {

enum class StepShape { Steps, Sine, Triangle, RampUp, RampDown, Square };

inline constexpr int kMostSteps = 32;

struct StepPattern {
    StepShape shape = StepShape::Steps;
    int steps = 16;       // 1 .. 32
    double swing = 0;     // 0 .. 1: by how much of half a step odd ones come late
    double gate = 1;      // share of a step that sounds, above 0
    double edge = 0.003;  // s, longest rise and fall
    std::array<double, kMostSteps> levels{};  // 0 .. 1, of the shape Steps
};

/// The value of a pattern within 0 .. 1 at any place, counted in steps. Nothing is filtered and
/// nothing remembered but levels on their way, so the value depends on the place alone.
///
/// Where the raw value jumps, it goes over with q(z) = z^3 (10 - 15 z + 6 z^2), whose first two
/// derivatives are 0 at both ends: a rise within the time before the step, so that what is played
/// on the step keeps its attack, and a fall within the time behind it. Neighbours of one level are
/// one stretch, and an edge takes at most 0.45 of the shorter of the two stretches beside it.
class StepEdges {
public:
    void prepare(double sampleRate) noexcept;
    /// Levels that are on their way arrive.
    void snap() noexcept { glideLeft_ = 0; }

    /// True if the places of the edges have changed, or which of them rise: the value then jumps.
    /// Otherwise levels that differ glide to their new ones in 5 ms.
    bool set(const StepPattern& pattern) noexcept;
    /// Steps a second, for edges are in seconds. [as `set`]
    void setSpeed(double stepsPerSecond) noexcept;

    struct Run {
        int frames;
        bool isConstant;  // then v[0] alone is written
    };
    /// Values at the frames `first` and on, at most `most` of them: those that lie in one piece of
    /// the pattern. `at` are the places of the frames, `ahead` is added to each.
    template <typename T>
    Run next(const FrameLine& at, double ahead, int first, int most, T* v) const noexcept;
    /// The value at one place, levels where they are at frame `first`.
    double at(double place, int first = 0) const noexcept;
    /// Goes on by so many frames: those `first` counts from.
    void advance(int frames) noexcept { glideLeft_ -= frames < glideLeft_ ? frames : glideLeft_; }

    /// Steps since the start of the pattern, swing taken out: 3.5 is the middle of its fourth step.
    double head(double place) const noexcept;

private:
    // Levels beside those of the steps.
    static constexpr int kSilent = kMostSteps, kFull = kMostSteps + 1, kLevels = kMostSteps + 2;

    struct Stretch {
        double start = 0;                   // in steps since the start of the pattern
        int level = 0;                      // index of the level, of its first step
        bool rises = false, falls = false;  // from the stretch before
        double edge = 0;                    // of its beginning, in steps

        bool isLikeThat(const Stretch& other) const noexcept
        {
            return start == other.start && level == other.level && rises == other.rises &&
                   falls == other.falls;
        }
    };
    /// With swing two steps are one period, and a pattern of an odd number takes two turns.
    struct Stretches {
        std::array<Stretch, 4 * kMostSteps + 1> at{};  // the last one begins the next turn
        int count = 0;
        double period = 1;
        double origin = 0;  // where the turn starts, in steps since the start of the pattern
    };
    /// A piece of a stretch: a rise, a fall, or what lies between them.
    struct Piece {
        double base = 0;  // place of the turn's start
        double end = 0;   // since base
        int stretch = 0;
        enum { Fall, Flat, Rise } kind = Flat;
    };

    Stretches stretchesOf(const StepPattern& pattern) const noexcept;
    void limitEdges() noexcept;
    bool isShaped() const noexcept;
    Piece pieceAt(double place) const noexcept;
    double height(int level, double glide) const noexcept
    {
        const auto i = static_cast<std::size_t>(level);
        return to_[i] + (from_[i] - to_[i]) * glide;
    }
    double glideAt(int frame) const noexcept
    {
        return frame < glideLeft_ ? double(glideLeft_ - frame) / glideFrames_ : 0;
    }

    StepPattern pattern_;
    Stretches stretches_;
    double speed_ = 0;
    std::array<double, kLevels> from_{}, to_{};
    int glideFrames_ = 1, glideLeft_ = 0;
};

}  // namespace quillworks
