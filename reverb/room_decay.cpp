// SPDX-License-Identifier: ISC
#include "reverb/room_decay.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "reverb/decay_design.h"

namespace quillworks {
namespace {

/// Decay times of air alone, by the absorption of ISO 9613-1 at 20 degrees and 50 %.
constexpr double kAir[RoomDecay::kBands] = {5656, 1449, 397,  133,  64.1,
                                            37.5, 17.7, 5.89, 1.66, 0.479};
static_assert(RoomDecay::kBands == OctaveDecayDesign::kBands);
constexpr double kShortest = 0.05, kLongest = 60;  // s

}  // namespace

std::array<double, RoomDecay::kBands> RoomDecay::times() const noexcept
{
    const auto ratio = [](double x) { return 1 / (1 + x * x); };
    const double lowOfMiddle = ratio(1000 / lowFrequency);
    const double highOfMiddle = ratio(highFrequency / 1000);
    std::array<double, kBands> result;
    for (int band = 0; band < kBands; ++band) {
        const double f = OctaveDecayDesign::frequency(band);
        double t = seconds * std::pow(low, ratio(f / lowFrequency) - lowOfMiddle) *
                   std::pow(high, ratio(highFrequency / f) - highOfMiddle);
        if (hasAir) t = 1 / (1 / t + 1 / kAir[band]);
        result[static_cast<std::size_t>(band)] = std::clamp(t, kShortest, kLongest);
    }
    return result;
}

}  // namespace quillworks
