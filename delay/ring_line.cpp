// SPDX-License-Identifier: ISC
#include "delay/ring_line.h"

#include <algorithm>

#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr float kLargest = 8;

void limitedCopy(float* d, const float* s, int n)
{
    for (int i = 0; i < n; ++i) {
        const float x = s[i] == s[i] ? s[i] : 0;
        const float low = x > -kLargest ? x : -kLargest;
        d[i] = low < kLargest ? low : kLargest;
    }
}

}  // namespace

void RingLine::prepare(int channels, int capacity)
{
    channels_ = channels;
    capacity_ = capacity;
    for (int c = 0; c < 2; ++c) {
        line_[c].assign(c < channels ? static_cast<std::size_t>(capacity + kGuard) : 0, 0.0f);
        line_[c].shrink_to_fit();
    }
    next_ = valid_ = 0;
}

void RingLine::write(const float* const* in, int n) noexcept
{
    const int first = std::min(n, capacity_ - next_);
    for (int c = 0; c < channels_; ++c) {
        float* const line = line_[c].data();
        limitedCopy(line + next_, in[c], first);
        limitedCopy(line, in[c] + first, n - first);
        if (next_ < kGuard || first < n) vec::copy(line + capacity_, line, kGuard);
    }
    next_ = first < n || next_ + n == capacity_ ? n - first : next_ + n;
    valid_ = std::min(valid_ + n, capacity_);
}

void RingLine::copy(float* const* out, int distance, int n) const noexcept
{
    int start = next_ - 1 - distance;
    if (start < 0) start += capacity_;
    const int first = std::min(n, capacity_ - start);
    const int unwritten = std::clamp(distance - valid_ + 1, 0, n);
    for (int c = 0; c < channels_; ++c) {
        const float* const line = line_[c].data();
        vec::copy(out[c], line + start, first);
        vec::copy(out[c] + first, line, n - first);
        vec::clear(out[c], unwritten);
    }
}

void RingLine::read(float* const* out, const double* distances, int n,
                    const float* rows) const noexcept
{
    SincPoint points[kLongestRun];
    int age[kLongestRun];
    int oldest = 0;
    for (int i = 0; i < n; ++i) {
        // The sample before the point, and how far the point lies beyond it.
        int whole = static_cast<int>(distances[i]);
        whole += whole < distances[i];
        age[i] = whole + SincRows::kBefore;
        oldest = std::max(oldest, age[i]);
        int start = next_ - 1 - age[i];
        if (start < 0) start += capacity_;
        points[i] = {start, static_cast<float>((whole - distances[i]) * SincRows::kPhases)};
    }
    if (oldest < valid_) {
        const float* const lines[2] = {line_[0].data(), line_[1].data()};
        readSinc(lines, channels_, rows, points, n, out);
        return;
    }
    for (int i = 0; i < n; ++i) readOne(out, i, age[i], points[i], rows);
}

/// A point whose taps may lie before the first valid sample.
void RingLine::readOne(float* const* out, int i, int age, SincPoint point,
                       const float* rows) const noexcept
{
    const int unwritten = std::clamp(age - valid_ + 1, 0, SincRows::kTaps);
    float taps[2][SincRows::kTaps];
    float* to[2];
    for (int c = 0; c < channels_; ++c) {
        to[c] = out[c] + i;
        vec::copy(taps[c], line_[c].data() + point.start, SincRows::kTaps);
        vec::clear(taps[c], unwritten);
    }
    const float* const lines[2] = {taps[0], taps[channels_ - 1]};
    point.start = 0;
    readSinc(lines, channels_, rows, &point, 1, to);
}

}  // namespace quillworks
