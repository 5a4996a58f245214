// SPDX-License-Identifier: ISC
#include "adapters/common/meters.h"

#include <set>

#include "adapters/common/parameters.h"

namespace quillworks::adapters {

std::vector<OfferedMeter> metersOf(const VNK::HostedEffect& effect,
                                   const std::vector<Layout>& layouts)
{
    std::vector<OfferedMeter> meters;
    std::set<VNK::Tag> seen;
    for (const auto& layout : layouts) {
        effect.algorithm()->setSpeakerArrangement(layout.input, layout.output);
        VNK::MeterInfo m{};
        for (int i = 0; effect.getMeter(i, m); ++i)
            if (seen.insert(m.tag).second)
                meters.push_back({m.tag, titleOf(m.title, m.index), m.minimum, m.maximum,
                                  m.kind == VNK::ValueKind::List});
    }
    return meters;
}

std::vector<int> meterIndices(const VNK::HostedEffect& effect,
                              const std::vector<OfferedMeter>& meters)
{
    std::vector<int> indices;
    for (const auto& meter : meters) {
        VNK::MeterInfo m{};
        int i = 0;
        while (effect.getMeter(i, m) && m.tag != meter.id) ++i;
        indices.push_back(effect.getMeter(i, m) ? i : -1);
    }
    return indices;
}

}  // namespace quillworks::adapters
