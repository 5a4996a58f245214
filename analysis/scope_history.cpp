// SPDX-License-Identifier: ISC
#include "analysis/scope_history.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "framework/speakers.h"

namespace quillworks {
namespace {

constexpr double kSeconds = 10;
constexpr std::size_t kMostBytes = std::size_t{64} << 20;
constexpr int kChunk = 4096;  // frames that are appended at once

double dot(const float* row, const float* x)
{
    float sum[4] = {};
    for (int k = 0; k < ScopeInterpolator::kTaps; k += 4)
        for (int j = 0; j < 4; ++j) sum[j] += row[k + j] * x[k + j];
    return double(sum[0]) + double(sum[1]) + double(sum[2]) + double(sum[3]);
}

}  // namespace

double ScopeInterpolator::at(const float* x, double fraction) const noexcept
{
    float row[kTaps];
    table_->rowAt(fraction, row);
    return dot(row, x);
}

double ScopeInterpolator::crossing(const float* x, double level, double from,
                                   double to) const noexcept
{
    constexpr int kMostSteps = 20;
    constexpr double kClose = 1e-7;  // of a sample
    double a = at(x, from) - level, b = at(x, to) - level;
    if ((a < 0) == (b < 0)) return to;
    // By the secant, whose end is given half its weight where it stays twice (the Illinois method):
    // five values or so.
    double found = from;
    for (int i = 0, stays = 0; i < kMostSteps; ++i) {
        const double last = found;
        found = (from * b - to * a) / (b - a);
        const double value = at(x, found) - level;
        if (value == 0 || (i > 0 && std::abs(found - last) < kClose)) break;
        const bool isBefore = (value < 0) == (a < 0);
        (isBefore ? from : to) = found;
        (isBefore ? a : b) = value;
        const int side = isBefore ? 1 : -1;
        if (side == stays) (isBefore ? b : a) /= 2;
        stays = side;
    }
    return found;
}

void ScopeHistory::prepare(const ProcessSpec& spec)
{
    channels_ = spec.channels;
    const auto perFrame = static_cast<std::size_t>(channels_) * sizeof(float);
    const auto wanted = static_cast<std::size_t>(kSeconds * spec.sampleRate) + 3 * kChunk;
    const auto frames = std::min(std::bit_ceil(wanted), std::bit_floor(kMostBytes / perFrame));
    lines_.require(frames * static_cast<std::size_t>(channels_));
    mask_ = frames - 1;
    const auto pairs = ChannelPairs::of(spec.layout);
    left_ = pairs.count > 0 ? pairs.pairs[0].first : -1;
    right_ = pairs.count > 0 ? pairs.pairs[0].second : -1;
    begin(0);
}

void ScopeHistory::release() noexcept
{
    lines_ = {};
    channels_ = 0;
    mask_ = 0;
    begin(0);
}

int ScopeHistory::longestSpan() const noexcept
{
    return static_cast<int>(mask_ + 1) - 2 * kChunk;
}

void ScopeHistory::append(const float* const* x, int n) noexcept
{
    const std::size_t size = mask_ + 1;
    for (int i = 0, run = 0; i < n; i += run) {
        const std::size_t at = static_cast<std::size_t>(end_ + i) & mask_;
        run = static_cast<int>(std::min(size - at, static_cast<std::size_t>(n - i)));
        for (int c = 0; c < channels_; ++c)
            std::copy_n(x[c] + i, run, lines_.data() + static_cast<std::size_t>(c) * size + at);
    }
    end_ += n;
}

void ScopeHistory::setSource(int source) noexcept
{
    const bool isPair = source == kMidSource || source == kSideSource;
    if (!isPair) {
        const int channel = source < channels_ ? source : 0;
        source_ = {{channel, channel}, {1, 0}};
    } else if (left_ < 0) {
        source_ = {{0, 0}, {source == kMidSource ? 1.0f : 0.0f, 0}};
    } else {
        source_ = {{left_, right_}, {0.5f, source == kMidSource ? 0.5f : -0.5f}};
    }
}

void ScopeHistory::copy(int channel, std::int64_t from, int n, float* out) const noexcept
{
    const float* const line = lines_.data() + static_cast<std::size_t>(channel) * (mask_ + 1);
    for (int i = 0; i < n; ++i)
        out[i] = from + i < first_ ? 0.0f : line[static_cast<std::size_t>(from + i) & mask_];
}

void ScopeHistory::copySource(std::int64_t from, int n, float* out) const noexcept
{
    for (int i = 0; i < n; ++i) out[i] = source(from + i);
}

float ScopeHistory::source(std::int64_t frame) const noexcept
{
    if (frame < first_) return 0;
    const std::size_t at = static_cast<std::size_t>(frame) & mask_, size = mask_ + 1;
    const float a = lines_[static_cast<std::size_t>(source_.channel[0]) * size + at];
    if (source_.weight[1] == 0) return source_.weight[0] * a;
    const float b = lines_[static_cast<std::size_t>(source_.channel[1]) * size + at];
    return source_.weight[0] * a + source_.weight[1] * b;
}

double ScopeHistory::crossing(std::int64_t before, double level) const noexcept
{
    float around[ScopeInterpolator::kTaps];
    copySource(before - kScopeReach + 1, ScopeInterpolator::kTaps, around);
    return static_cast<double>(before) + interpolator_.crossing(around, level);
}

void ScopeHistory::waveform(double instant, std::span<float> out) const noexcept
{
    const auto whole = static_cast<std::int64_t>(std::floor(instant));
    const double fraction = instant - static_cast<double>(whole);
    float around[ScopeInterpolator::kTaps];
    for (std::size_t i = 0; i < out.size(); ++i) {
        copySource(whole + static_cast<std::int64_t>(i) - kScopeReach + 1, ScopeInterpolator::kTaps,
                   around);
        out[i] = static_cast<float>(interpolator_.at(around, fraction));
    }
}

}  // namespace quillworks
