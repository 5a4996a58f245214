// SPDX-License-Identifier: ISC
#include "delay/ring_line.h"

#include "delay/sinc_rows.h"
#include "dsp/tap_reader.h"

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

void RingLine::write(const float* const* in, int n) noexcept
{
    for (int c = 0; c < line_.channels(); ++c) line_.put(c, in[c], n, limitedCopy);
    line_.advance(n);
}

void RingLine::copy(float* const* out, int distance, int n) const noexcept
{
    for (int c = 0; c < line_.channels(); ++c) line_.copy(c, out[c], distance, n);
}

void RingLine::read(float* const* out, const double* distances, int n,
                    const float* rows) const noexcept
{
    readBetween<float, SincRows::kTaps>(line_, 0, line_.channels(), {rows, SincRows::kPhases},
                                        distances, n, out);
}

}  // namespace quillworks
