// SPDX-License-Identifier: ISC
#include "framework/stereo_field.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

#include "dsp/midpoint_filter.h"
#include "dsp/rate_factor.h"

namespace quillworks {
namespace {

constexpr double kFull = 0.9, kShare = 0.01;  // radius, and the share of points beyond it
constexpr double kRecentSeconds = 0.1;        // as long as an editor may take between two looks
constexpr double kDeadBand = 1, kSpeed = 6;   // dB, dB a second
constexpr double kLowestGain = -24, kHighestGain = 60;  // dB

// The classes are the upper bits of the squared radius as a float: exponent, and 32 steps to its
// doubling.
constexpr int kClassShift = 18;
constexpr std::size_t kClasses = 1 << (31 - kClassShift);

double radiusOf(std::size_t c)
{
    const auto bits = static_cast<std::uint32_t>(c << kClassShift | 1u << (kClassShift - 1));
    return std::sqrt(double(std::bit_cast<float>(bits)));
}

/// Interpolation by four in two steps, as of a true-peak meter.
constexpr int kFirstTaps = 8, kSecondTaps = 6;

}  // namespace

void StereoField::prepare(double sampleRate)
{
    rate_ = sampleRate;
    const auto frames =
        std::bit_ceil(static_cast<std::size_t>(kLongest * sampleRate) + kFirstTaps + kSecondTaps);
    left_.requireUncleared(frames);
    right_.requireUncleared(frames);
    mask_ = frames - 1;
    classes_.require(static_cast<std::size_t>(std::lround(sampleRate)));
    counts_.assign(kClasses, 0);
    followFrames_ = 512 * rateFactor(sampleRate);
}

void StereoField::release() noexcept
{
    left_.clear();
    right_.clear();
    classes_.clear();
    counts_ = std::vector<std::int32_t>();
    end_ = first_ = 0;
}

void StereoField::begin() noexcept
{
    first_ = end_;
}

void StereoField::clear(double gain) noexcept
{
    first_ = end_ = 0;
    std::fill(counts_.begin(), counts_.end(), 0);
    oldest_ = counted_ = 0;
    untilFollow_ = followFrames_;
    isFirst_ = true;
    gain_ = gain;
}

void StereoField::setGain(bool automatic, double gain) noexcept
{
    if (!automatic) gain_ = gain;
    isAutomatic_ = automatic;
}

void StereoField::take(const float* left, const float* right, int n) noexcept
{
    for (int i = 0; i < n; ++i) {
        const std::size_t at = static_cast<std::size_t>(end_++) & mask_;
        left_[at] = left[i];
        right_[at] = right[i];
        count(left[i], right[i]);
        if (--untilFollow_ > 0) continue;
        untilFollow_ = followFrames_;
        if (isAutomatic_) follow();
    }
    first_ = std::max(first_, end_ - static_cast<std::int64_t>(mask_ + 1));
}

void StereoField::count(float left, float right) noexcept
{
    // The squared radius is that of the channels: the axes are only turned.
    const float square = left * left + right * right;
    const auto c = std::min(std::bit_cast<std::uint32_t>(square) >> kClassShift,
                            static_cast<std::uint32_t>(kClasses - 1));
    if (counted_ == classes_.size())
        --counts_[classes_[oldest_]];
    else
        ++counted_;
    classes_[oldest_] = static_cast<std::uint16_t>(c);
    ++counts_[c];
    oldest_ = oldest_ + 1 == classes_.size() ? 0 : oldest_ + 1;
}

void StereoField::follow() noexcept
{
    const auto most = static_cast<std::int64_t>(kShare * static_cast<double>(counted_));
    std::int64_t beyond = 0;
    std::size_t c = kClasses;
    while (c > 0 && beyond <= most) beyond += counts_[--c];
    constexpr double kSilent = 1e-6;  // too faint for the highest gain
    const double radius = radiusOf(c);
    if (radius < kSilent) return;
    const double wanted = std::clamp(20 * std::log10(kFull / radius), kLowestGain, kHighestGain);
    const double step = kSpeed * followFrames_ / rate_;
    if (isFirst_)
        gain_ = wanted;
    else if (std::abs(wanted - gain_) > kDeadBand)
        gain_ += std::clamp(wanted - gain_, -step, step);
    isFirst_ = false;
}

std::vector<FieldPoint> StereoField::points(double seconds) const
{
    std::vector<float> x, y;
    points(seconds, x, y);
    std::vector<FieldPoint> points(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) points[i] = {double(x[i]), double(y[i])};
    return points;
}

void StereoField::points(double seconds, std::vector<float>& x, std::vector<float>& y) const
{
    constexpr int kPiece = 256, kLatency = kFirstTaps + kSecondTaps / 2;  // frames
    static const auto firstTaps = midpointTaps<float, kFirstTaps>(4);
    static const auto secondTaps = midpointTaps<float, kSecondTaps>(8);
    const auto wanted = static_cast<std::int64_t>(std::clamp(seconds, kShortest, kLongest) * rate_);
    // The filters' own reach comes before the first point and behind the last.
    const std::int64_t from = std::max(first_, end_ - wanted - 2 * kLatency);
    const auto frames = static_cast<std::size_t>(end_ - from);
    std::vector<float> at[2];  // four points a frame, one after the other
    for (int c = 0; c < 2; ++c) {
        MidpointFilter<float> first, second;
        first.prepare(firstTaps);
        second.prepare(secondTaps);
        at[c].resize(kOversampling * frames);
        float piece[kPiece], doubled[2 * kPiece], odd[kPiece], even4[2 * kPiece], odd4[2 * kPiece];
        for (std::size_t done = 0; done < frames;) {
            const int n = static_cast<int>(std::min<std::size_t>(kPiece, frames - done));
            const auto& ring = c == 0 ? left_ : right_;
            for (int i = 0; i < n; ++i)
                piece[i] =
                    ring[static_cast<std::size_t>(from + static_cast<std::int64_t>(done) + i) &
                         mask_];
            first.up(piece, n, even4, odd);
            for (int i = 0; i < n; ++i) {
                doubled[2 * i] = even4[i];
                doubled[2 * i + 1] = odd[i];
            }
            second.up(doubled, 2 * n, even4, odd4);
            float* const to = at[c].data() + kOversampling * done;
            for (int i = 0; i < 2 * n; ++i) {
                to[2 * i] = even4[i];
                to[2 * i + 1] = odd4[i];
            }
            done += static_cast<std::size_t>(n);
        }
    }
    const auto scale = static_cast<float>(std::pow(10, gain_ / 20) / std::numbers::sqrt2);
    const std::size_t skipped = kOversampling * std::size_t{2 * kLatency};
    const auto count = at[0].size() - std::min(skipped, at[0].size());
    x.resize(count);
    y.resize(count);
    const float *const l = at[0].data() + (at[0].size() - count), *const r = at[1].data() +
                                                                             (at[1].size() - count);
    for (std::size_t i = 0; i < count; ++i) {
        x[i] = scale * (r[i] - l[i]);
        y[i] = scale * (l[i] + r[i]);
    }
}

void StereoField::showRecent(VNK::IDisplaySink& sink) const
{
    sink.number("frames", static_cast<double>(end_));
    std::vector<float> x, y;
    points(kRecentSeconds, x, y);
    sink.numbers("x", x.data(), static_cast<std::int64_t>(x.size()));
    sink.numbers("y", y.data(), static_cast<std::int64_t>(y.size()));
}

}  // namespace quillworks
