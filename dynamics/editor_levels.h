// SPDX-License-Identifier: ISC
// Levels before and behind an effect, measured and published while its editor is open.
#pragma once

#include <cstddef>

#include "dsp/follower.h"
#include "framework/meter_slots.h"
#include "framework/parameter.h"

namespace quillworks {

/// Tags of channel 0: linear levels that fall in 1 s and in 3 s.
inline constexpr Tag kInputFast = 1000, kInputSlow = 1100, kOutputFast = 1200, kOutputSlow = 1300;

/// The table's row of one of these families.
template <class Settings>
constexpr Parameter<Settings> levelRow(const char* key, Tag tag, const char* title)
{
    return {.key = key,
            .tag = tag,
            .title = title,
            .kind = Kind::Reading,
            .family = {.count = VNK::kMaxChannels, .perChannel = true}};
}

inline void publishLevel(MeterSlots& meters, Tag fast, Tag slow, std::size_t channel,
                         const LevelMeterPair& level) noexcept
{
    meters.publish(fast + static_cast<Tag>(channel), static_cast<float>(level.fast.envelope));
    meters.publish(slow + static_cast<Tag>(channel), static_cast<float>(level.slow.envelope));
}

}  // namespace quillworks
