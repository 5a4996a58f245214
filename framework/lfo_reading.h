// SPDX-License-Identifier: ISC
// The reading of where in its cycle an effect's oscillator is, for editors that draw its wave.
#pragma once

#include <cmath>

#include "framework/meter_slots.h"
#include "framework/parameter.h"

namespace quillworks {

/// Its row of the table.
template <class S> constexpr Parameter<S> lfoPhaseRow()
{
    return {.key = "lfophase",
            .tag = "LfPh"_tag,
            .title = "LFO Phase",
            .kind = Kind::Reading,
            .notes = {.generation = 1}};
}
/// `place`: periods.
inline void publishLfoPhase(MeterSlots& meters, double place) noexcept
{
    meters.publish("LfPh"_tag, static_cast<float>(place - std::floor(place)));
}

}  // namespace quillworks
