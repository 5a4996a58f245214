// SPDX-License-Identifier: ISC
// What an effect measures, for formats that show it as parameters which only the effect moves.
#pragma once

#include <string>
#include <vector>

#include "adapters/common/catalogue.h"

namespace quillworks::adapters {

struct OfferedMeter {
    VNK::Tag id;
    std::string title;
    float minimum, maximum;
    bool isStepped;  // a list of texts
};

/// The meters of all layouts of an effect, each once: a format's list is the same whatever the
/// layout. The effect is left in the last one.
std::vector<OfferedMeter> metersOf(const VNK::HostedEffect& effect,
                                   const std::vector<Layout>& layouts);

/// Where each of them stands in the effect's list in its present layout, or -1.
std::vector<int> meterIndices(const VNK::HostedEffect& effect,
                              const std::vector<OfferedMeter>& meters);

/// A reading as hosts can draw it: what is not a number stands for nothing to show.
inline float shownReading(const OfferedMeter& meter, float reading) noexcept
{
    return reading >= meter.minimum ? (reading < meter.maximum ? reading : meter.maximum)
                                    : meter.minimum;
}

}  // namespace quillworks::adapters
