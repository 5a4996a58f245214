// SPDX-License-Identifier: ISC
// True peak as measurements of whole programmes need it: within hundredths of a decibel.
#pragma once
#include <vector>

namespace quillworks {

/// One channel's search for the largest magnitude between the samples, at any rate.
///
/// The rate is doubled three times by midpoint filters, the first of which knows the signal up to
/// 0.47 of the rate, and a parabola goes through the crests. Each stage runs only where the one
/// before it comes near enough to the largest known: beside a maximum M, a signal that is band-
/// limited to a quarter of the rate of its points has a point of at least M cos(pi/4), and of an
/// eighth one of M cos(pi/8) (Ehlich and Zeller 1964). So nothing is missed, and programmes cost
/// little more than the nearest taps of the first stage.
class FineTruePeak {
public:
    static constexpr int kAhead = 43;   // samples needed after the one that is looked at
    static constexpr int kBehind = 43;  // and before it

    /// For up to `maxFrames` samples at a time. May throw std::bad_alloc.
    void prepare(int maxFrames);
    void reset() noexcept;

    /// Where the next samples go. They must be finite.
    float* input() noexcept { return buffer_.data() + kHistory; }
    /// Takes the next n samples from input() and looks at those up to kAhead samples before their
    /// end. Returns the largest magnitude there, or `known` if none is above it.
    float advance(int n, float known) noexcept;
    /// Looks at the samples that are still waiting; as if silence followed.
    float finish(float known) noexcept;

private:
    static constexpr int kHistory = 96;  // kBehind + kAhead, in whole vectors
    static constexpr int kSlack = 64;    // the last vectors read beyond the end; finish() writes

    std::vector<float> buffer_;
};

}  // namespace quillworks
