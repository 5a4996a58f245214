// SPDX-License-Identifier: ISC
#include "modulation/rising_notches.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/sine.h"
#include "dsp/warped_octaves.h"

namespace quillworks {

template <typename T> void RisingNotches<T>::prepare(double sampleRate, int slots)
{
    sampleRate_ = sampleRate;
    jumpFrames_ = static_cast<int>(std::max(1.0, std::trunc(0.02 * sampleRate / kSubBlock + 0.5)));
    chain_.prepare(kMost, slots);
    reset();
}

template <typename T> void RisingNotches<T>::reset() noexcept
{
    chain_.reset();
    offset_ = {};
    jumpLeft_ = 0;
    isFresh_ = true;
}

/// Bandwidth in octaves to damping: 2 sinh(ln 2 / 2 bandwidth).
template <typename T>
double RisingNotches<T>::damping(double range, double feedback, int notches) noexcept
{
    const double bandwidth = 0.6 * (1 - 0.8 * std::abs(feedback)) * range / notches;
    return 2 * std::sinh(std::numbers::ln2 / 2 * bandwidth);
}

template <typename T>
void RisingNotches<T>::tune(const Shares& shares, int count, const Course& to,
                            Set& coefficients) const noexcept
{
    double octaves[kSides * kMost]{}, g[kSides * kMost];
    for (int i = 0; i < count; ++i)
        octaves[i] = to.frequency + to.range * (shares[std::size_t(i)] - 0.5);
    warpOctaves(octaves, octaves, g, count, sampleRate_);
    const double k = damping_;
    for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const double fromMiddle = sinPi(shares[at] - 0.5);
        const double depth = 1 - fromMiddle * fromMiddle;  // 0 at both ends of the range
        coefficients[at] = SectionCoefficients<T>::of(g[i], k, {1, -k * depth, 0});
    }
}

template <typename T>
void RisingNotches<T>::next(const double (&cycle)[kSides], bool hasJumped,
                            const Course& to) noexcept
{
    if (isFresh_ || to.range != range_ || to.feedback != feedback_) {
        range_ = to.range;
        feedback_ = to.feedback;
        damping_ = damping(range_, feedback_, count_);
    }
    const double way = falls_ ? -1 : 1;
    const double round = count_;  // cycles after which all stands as before
    const bool jumps = hasJumped && !isFresh_;
    if (jumps) jumpLeft_ = jumpFrames_ + 1;
    if (jumpLeft_ > 0) --jumpLeft_;
    double before[kSides], move[kSides];
    for (std::size_t s = 0; s < kSides; ++s) {
        const double wanted = way * cycle[s];
        if (jumps) offset_[s] = std::remainder(place_[s] - wanted, round);
        const double now = wanted + offset_[s] * jumpLeft_ / jumpFrames_;
        before[s] = isFresh_ ? now : place_[s];
        move[s] = now - before[s];
        if (std::abs(move[s]) > round / 2) move[s] = std::remainder(move[s], round);
        place_[s] = now;
    }

    const int count = kSides * count_;
    Shares ends{}, entering{};
    int entered[kSides * kMost], enteredCount = 0;
    for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i), side = at % kSides;
        const double passed = (i / kSides + before[side]) / round;
        const double start = passed - std::floor(passed);
        // What left the range at one end comes in at the other.
        if (isFresh_ || std::abs(start - ends_[at]) > 0.5) {
            entering[static_cast<std::size_t>(enteredCount)] = start;
            entered[enteredCount++] = i;
        }
        ends[at] = std::clamp(start + move[side] / round, 0.0, 1.0);
    }
    ends_ = ends;
    isFresh_ = false;

    Set coefficients;
    tune(entering, enteredCount, to, coefficients);
    for (int i = 0; i < enteredCount; ++i)
        chain_.set(entered[i] / kSides, entered[i] % kSides,
                   coefficients[static_cast<std::size_t>(i)]);
    tune(ends, count, to, coefficients);
    for (int i = 0; i < count; ++i)
        chain_.glide(i / kSides, i % kSides, coefficients[static_cast<std::size_t>(i)]);
}

template class RisingNotches<float>;
template class RisingNotches<double>;

}  // namespace quillworks
