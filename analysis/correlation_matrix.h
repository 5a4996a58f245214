// SPDX-License-Identifier: ISC
// The correlation of every channel with every other.
#pragma once

#include <cstdint>
#include <vector>

namespace quillworks {

/// Means of products with one time constant, as PhaseCorrelation has them sample by sample; here 32
/// frames at once, since there may be 120 pairs.
class CorrelationMatrix {
public:
    /// Nothing is known. May throw std::bad_alloc.
    void prepare(int channels, double sampleRate);
    void release() noexcept;
    void clear() noexcept;
    /// The signal has a seam: what waits is dropped.
    void begin() noexcept;
    /// Time constant in seconds.
    void setTime(double seconds) noexcept;
    /// n frames of which the first has the number `first`; what falls short of 32 waits.
    void take(const float* const* x, int n, std::int64_t first) noexcept;

    int channels() const noexcept { return channels_; }
    /// -1 .. 1; not-a-number while either is silent.
    double value(int a, int b) const noexcept;

private:
    static constexpr int kPiece = 32;
    void add() noexcept;
    double& sum(int a, int b) noexcept
    {
        return sums_[static_cast<std::size_t>(a * channels_ + b)];
    }

    int channels_ = 0;
    double rate_ = 1, keep_ = 0;   // over a piece
    double weights_[kPiece] = {};  // of its frames
    std::vector<double> pieces_;   // channel by channel
    std::vector<double> sums_;     // a <= b
};

}  // namespace quillworks
