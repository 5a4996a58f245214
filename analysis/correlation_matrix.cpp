// SPDX-License-Identifier: ISC
#include "analysis/correlation_matrix.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks {

void CorrelationMatrix::prepare(int channels, double sampleRate)
{
    channels_ = channels;
    rate_ = sampleRate;
    const auto n = static_cast<std::size_t>(channels);
    pieces_.assign(n * kPiece, 0);
    sums_.assign(n * n, 0);
}

void CorrelationMatrix::release() noexcept
{
    channels_ = 0;
    pieces_ = sums_ = std::vector<double>();
}

void CorrelationMatrix::clear() noexcept
{
    std::fill(sums_.begin(), sums_.end(), 0.0);
    begin();
}

void CorrelationMatrix::begin() noexcept
{
    std::fill(pieces_.begin(), pieces_.end(), 0.0);
}

void CorrelationMatrix::setTime(double seconds) noexcept
{
    const double keep = std::exp(-1 / (rate_ * seconds));
    keep_ = std::pow(keep, kPiece);
    for (int i = 0; i < kPiece; ++i) weights_[i] = (1 - keep) * std::pow(keep, kPiece - 1 - i);
}

void CorrelationMatrix::take(const float* const* x, int n, std::int64_t first) noexcept
{
    for (int done = 0; done < n;) {
        const auto phase = static_cast<int>((first + done) % kPiece);
        const int run = std::min(n - done, kPiece - phase);
        for (int c = 0; c < channels_; ++c)
            std::copy_n(x[c] + done, run, pieces_.data() + c * kPiece + phase);
        done += run;
        if (phase + run == kPiece) add();
    }
}

void CorrelationMatrix::add() noexcept
{
    for (int a = 0; a < channels_; ++a) {
        const double* const x = pieces_.data() + a * kPiece;
        double weighted[kPiece];
        for (int i = 0; i < kPiece; ++i) weighted[i] = weights_[i] * x[i];
        for (int b = a; b < channels_; ++b) {
            const double* const y = pieces_.data() + b * kPiece;
            double parts[4] = {};  // side by side
            for (int i = 0; i < kPiece; i += 4)
                for (int k = 0; k < 4; ++k) parts[k] += weighted[i + k] * y[i + k];
            sum(a, b) = keep_ * sum(a, b) + (parts[0] + parts[1] + parts[2] + parts[3]);
        }
    }
}

double CorrelationMatrix::value(int a, int b) const noexcept
{
    constexpr double kSilence = 1e-12;
    const auto at = [&](int i, int k) {
        return sums_[static_cast<std::size_t>(std::min(i, k) * channels_ + std::max(i, k))];
    };
    const double aa = at(a, a), bb = at(b, b);
    if (!(aa >= kSilence && bb >= kSilence)) return std::numeric_limits<double>::quiet_NaN();
    return std::clamp(at(a, b) / std::sqrt(aa * bb), -1.0, 1.0);
}

}  // namespace quillworks
