// SPDX-License-Identifier: ISC
// Song positions as hosts tell them, good and bad.
#pragma once

#include <cstdint>
#include <limits>
#include <random>

#include "vnk/effect.h"

namespace quillworks::test {

/// Some fields unknown, some nonsense, now and then a jump.
inline VNK::Transport randomTransport(std::mt19937& random)
{
    constexpr double nonsense[] = {std::numeric_limits<double>::quiet_NaN(), -1e300, 1e300};
    const bool isOdd = random() % 8 == 0;
    const double beat = isOdd ? nonsense[random() % 3] : double(random() % 4000) / 16;
    return {.playing = random() % 2 == 0,
            .positionKnown = random() % 4 != 0,
            .quarterNotes = beat,
            .frameKnown = random() % 4 != 0,
            .frame = static_cast<std::int64_t>(random()) - (isOdd ? (std::int64_t{1} << 40) : 0),
            .tempo = isOdd ? nonsense[random() % 3] : double(40 + random() % 440)};
}

}  // namespace quillworks::test
