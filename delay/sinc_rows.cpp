// SPDX-License-Identifier: ISC
#include "delay/sinc_rows.h"

#include <algorithm>
#include <cmath>

#include "dsp/sinc_table.h"

namespace quillworks {

const SincRows& SincRows::shared()
{
    static const SincRows rows;
    return rows;
}

SincRows::SincRows()
    // One row more than there are: the row above the last one is read, times 0.
    : taps_(static_cast<std::size_t>((kCuts * kRows + 1) * kTaps))
{
    constexpr double kBeta = 8;
    for (int phase = 0; phase < kRows; ++phase) {
        const double place = double(phase) / kPhases;
        double window[kTaps], row[kTaps];
        sincWindow({kTaps, kPhases, kBeta}, place, window);
        for (int j = 0; j < kCuts; ++j) {
            sincTaps({kTaps, kPhases, kBeta, std::exp2(-j / 4.0)}, place, window, row);
            float* const to = &taps_[static_cast<std::size_t>((j * kRows + phase) * kTaps)];
            for (int t = 0; t < kTaps; ++t) to[t] = static_cast<float>(row[t]);
        }
    }
}

const float* SincRows::below(float limit) const noexcept
{
    const int j =
        limit >= 1 ? 0
                   : std::min(kCuts - 1,
                              static_cast<int>(std::ceil(-4 * std::log2(std::max(limit, 1e-3f)))));
    return &taps_[static_cast<std::size_t>(j * kRows * kTaps)];
}

}  // namespace quillworks
