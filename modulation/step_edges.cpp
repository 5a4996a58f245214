// SPDX-License-Identifier: ISC
#include "modulation/step_edges.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "dsp/crossfade.h"
#include "dsp/sine.h"

namespace quillworks {
namespace {

/// Places beyond have no fraction to speak of, and need not be finite.
constexpr double kFarthest = 1e12;
/// What an edge may take of a stretch, so that the two at its ends do not meet.
constexpr double kShare = 0.45;

/// 0 .. 1 as z goes 0 .. 1, first and second derivative 0 at both ends.
double quintic(double z) noexcept
{
    return z * z * z * (10 - z * (15 - 6 * z));
}

/// Where step k begins, in steps.
double startOf(int k, double swing) noexcept
{
    return k % 2 == 0 ? double(k) : k + swing / 2;
}

/// One step's shape over its fraction u.
template <StepShape shape, typename T> T shaped(T u) noexcept
{
    if constexpr (shape == StepShape::Sine) {
        const T s = sinPi(std::min(u, 1 - u));
        return 1 - s * s;
    } else if constexpr (shape == StepShape::Triangle) {
        return std::abs(2 * u - 1);
    } else if constexpr (shape == StepShape::RampUp) {
        return u;
    } else {
        return 1 - u;
    }
}

}  // namespace

void StepEdges::prepare(double sampleRate) noexcept
{
    glideFrames_ = fadeFrames(sampleRate, 0.005);
    glideLeft_ = 0;
    from_[kFull] = to_[kFull] = 1;
}

bool StepEdges::isShaped() const noexcept
{
    return pattern_.shape != StepShape::Steps && pattern_.shape != StepShape::Square;
}

StepEdges::Stretches StepEdges::stretchesOf(const StepPattern& p) const noexcept
{
    const bool hasLevels = p.shape == StepShape::Steps;
    const bool isFlat = hasLevels || p.shape == StepShape::Square;
    const auto levelOf = [this](int i) { return to_[static_cast<std::size_t>(i)]; };
    const int turn = !hasLevels ? 2 : p.steps % 2 == 0 ? p.steps : 2 * p.steps;

    Stretches s;
    s.period = turn;
    const auto add = [&](double start, int level) {
        if (isFlat && s.count > 0 &&
            levelOf(s.at[static_cast<std::size_t>(s.count - 1)].level) == levelOf(level))
            return;  // one stretch
        auto& stretch = s.at[static_cast<std::size_t>(s.count++)];
        stretch.start = start;
        stretch.level = level;
    };
    for (int k = 0; k < turn; ++k) {
        const double start = startOf(k, p.swing), end = startOf(k + 1, p.swing);
        add(start, hasLevels ? k % p.steps : kFull);
        if (isFlat && p.gate < 1) add(start + p.gate * (end - start), kSilent);
    }
    // A stretch over the end of a turn has its edges beyond it: the turn begins behind that one.
    if (isFlat && s.count > 1 &&
        levelOf(s.at[0].level) == levelOf(s.at[static_cast<std::size_t>(s.count - 1)].level)) {
        std::copy_n(s.at.begin() + 1, --s.count, s.at.begin());
        s.origin = s.at[0].start;
        for (int i = 0; i < s.count; ++i) s.at[static_cast<std::size_t>(i)].start -= s.origin;
    }
    for (int i = 0; i < s.count; ++i) {
        auto& stretch = s.at[static_cast<std::size_t>(i)];
        const auto& before = s.at[static_cast<std::size_t>(i > 0 ? i - 1 : s.count - 1)];
        const double jump = levelOf(stretch.level) - levelOf(before.level);
        stretch.rises = jump > 0 || p.shape == StepShape::RampDown;
        stretch.falls = jump < 0 || p.shape == StepShape::RampUp;
    }
    auto& last = s.at[static_cast<std::size_t>(s.count)];
    last = s.at[0];
    last.start = s.period;
    return s;
}

bool StepEdges::set(const StepPattern& pattern) noexcept
{
    const auto before = stretches_;
    const auto old = pattern_;
    const double way = glideAt(0);
    bool differs = false;
    std::array<double, kLevels> now{};
    for (int i = 0; i < kMostSteps; ++i) {
        const auto at = static_cast<std::size_t>(i);
        now[at] = height(i, way);
        differs |= to_[at] != pattern.levels[at];
        to_[at] = pattern.levels[at];
    }
    stretches_ = stretchesOf(pattern);
    pattern_ = pattern;
    limitEdges();
    bool jumps = pattern.shape != old.shape || pattern.edge != old.edge ||
                 stretches_.count != before.count || stretches_.period != before.period ||
                 stretches_.origin != before.origin || pattern.swing != old.swing;
    for (int i = 0; i < stretches_.count && !jumps; ++i)
        jumps = !stretches_.at[static_cast<std::size_t>(i)].isLikeThat(
            before.at[static_cast<std::size_t>(i)]);
    if (jumps) {
        snap();
    } else if (differs) {
        std::copy_n(now.begin(), kMostSteps, from_.begin());
        glideLeft_ = glideFrames_;
    }
    return jumps;
}

void StepEdges::setSpeed(double stepsPerSecond) noexcept
{
    if (stepsPerSecond == speed_) return;
    speed_ = stepsPerSecond;
    limitEdges();
}

void StepEdges::limitEdges() noexcept
{
    auto& s = stretches_;
    const auto lengthOf = [&](int i) {
        const auto at = static_cast<std::size_t>(i);
        return s.at[at + 1].start - s.at[at].start;
    };
    for (int i = 0; i < s.count; ++i) {
        const double shorter = std::min(lengthOf(i), lengthOf(i > 0 ? i - 1 : s.count - 1));
        s.at[static_cast<std::size_t>(i)].edge = std::min(kShare * shorter, pattern_.edge * speed_);
    }
    s.at[static_cast<std::size_t>(s.count)].edge = s.at[0].edge;
}

StepEdges::Piece StepEdges::pieceAt(double place) const noexcept
{
    const double period = stretches_.period;
    Piece piece;
    // Rounding near the end of a turn is put right, so that whatever lies in a turn lies in it for
    // everybody who asks.
    piece.base = period * std::floor(place / period);
    if (place - piece.base < 0) piece.base -= period;
    if (place - piece.base >= period) piece.base += period;
    const double where = place - piece.base;
    const auto* const begin = stretches_.at.data();
    const auto* const after =
        std::upper_bound(begin + 1, begin + stretches_.count, where,
                         [](double w, const Stretch& s) { return w < s.start; });
    const auto& here = after[-1];
    piece.stretch = static_cast<int>(after - begin) - 1;
    const double fallEnd = here.falls ? here.start + here.edge : here.start;
    const double riseStart = after->rises ? after->start - after->edge : after->start;
    if (where < fallEnd) {
        piece.kind = Piece::Fall;
        piece.end = fallEnd;
    } else if (where < riseStart) {
        piece.end = riseStart;
    } else {
        piece.kind = Piece::Rise;
        piece.end = after->start;
    }
    return piece;
}

template <typename T>
StepEdges::Run StepEdges::next(const FrameLine& line, double ahead, int first, int most,
                               T* v) const noexcept
{
    const auto placeOf = [&](int i) { return line.at(first + i) + ahead - stretches_.origin; };
    if (!(std::abs(placeOf(0)) < kFarthest)) {
        v[0] = T(height(stretches_.at[0].level, 0));
        return {most, true};
    }
    const Piece piece = pieceAt(placeOf(0));
    const auto whereOf = [&](int i) { return placeOf(i) - piece.base; };

    // A frame belongs to the piece by its own place, whoever asks: the division only comes near.
    const double guess = std::ceil((piece.end - whereOf(0)) / line.perFrame());
    int n = guess < most ? std::max(1, static_cast<int>(guess)) : most;
    while (n > 1 && !(whereOf(n - 1) < piece.end)) --n;
    while (n < most && whereOf(n) < piece.end) ++n;

    const auto& here = stretches_.at[static_cast<std::size_t>(piece.stretch)];
    const auto& after = stretches_.at[static_cast<std::size_t>(piece.stretch) + 1];
    const auto& before = stretches_.at[static_cast<std::size_t>(
        piece.stretch > 0 ? piece.stretch - 1 : stretches_.count - 1)];
    const bool glides = first < glideLeft_;
    if (piece.kind == Piece::Flat && !isShaped() && !glides) {
        v[0] = T(height(here.level, 0));
        return {n, true};
    }

    // The raw value.
    const double perStep = 1 / (after.start - here.start);
    const auto fill = [&](auto&& value) {
        // Copies, which the compiler knows `v` not to reach: a vector of frames at once.
        const FrameLine places = line;
        const double back = ahead - stretches_.origin - piece.base - here.start, scale = perStep;
        for (int i = 0; i < n; ++i) v[i] = value(T((places.at(first + i) + back) * scale));
    };
    switch (pattern_.shape) {
    case StepShape::Sine:
        fill(shaped<StepShape::Sine, T>);
        break;
    case StepShape::Triangle:
        fill(shaped<StepShape::Triangle, T>);
        break;
    case StepShape::RampUp:
        fill(shaped<StepShape::RampUp, T>);
        break;
    case StepShape::RampDown:
        fill(shaped<StepShape::RampDown, T>);
        break;
    case StepShape::Steps:
    case StepShape::Square:
        for (int i = 0; i < n; ++i) v[i] = T(height(here.level, glideAt(first + i)));
        break;
    }
    if (piece.kind == Piece::Flat) return {n, false};

    const bool isFall = piece.kind == Piece::Fall;
    const auto& edge = isFall ? here : after;
    const int other = isFall ? before.level : after.level;
    const double perEdge = 1 / edge.edge;
    for (int i = 0; i < n; ++i) {
        const double z = (whereOf(i) - edge.start) * perEdge;
        const double glide = glides ? glideAt(first + i) : 0;
        // A ramp's edges are of its whole height.
        const double jump = isShaped() ? 1 : height(other, glide) - height(here.level, glide);
        const double part =
            isFall ? 1 - quintic(std::clamp(z, 0.0, 1.0)) : quintic(std::clamp(z + 1, 0.0, 1.0));
        v[i] = T(std::clamp(double(v[i]) + jump * part, 0.0, 1.0));
    }
    return {n, false};
}

template StepEdges::Run StepEdges::next(const FrameLine&, double, int, int, float*) const noexcept;
template StepEdges::Run StepEdges::next(const FrameLine&, double, int, int, double*) const noexcept;

double StepEdges::at(double place, int first) const noexcept
{
    double value = 0;
    next(FrameLine{.origin = place}, 0, first, 1, &value);
    return value;
}

double StepEdges::head(double place) const noexcept
{
    if (!(std::abs(place) < kFarthest)) return 0;
    const double pair = 2 * std::floor(place / 2), where = place - pair;
    const double middle = startOf(1, pattern_.swing);
    const bool isFirst = where < middle;
    const double u = isFirst ? where / middle : (where - middle) / (2 - middle);
    const double step = pair + (isFirst ? 0 : 1), steps = pattern_.steps;
    return step - steps * std::floor(step / steps) + std::clamp(u, 0.0, 1.0);
}

}  // namespace quillworks
