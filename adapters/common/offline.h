// SPDX-License-Identifier: ISC
// What adapters do while their host renders.
#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

#include "vnk/hosted_effect.h"

namespace quillworks::adapters {

/// Until the effect sounds as it will (a file, a table), half a minute at most: a host that renders
/// has the time, and its result must not depend on the speed of the machine. Never while it plays.
inline void waitWhileBusy(const VNK::HostedEffect& effect) noexcept
{
    using namespace std::chrono_literals;
    std::int64_t busy = 0;
    for (int i = 0; i < 30000 && effect.getInteger("busy", busy) && busy != 0; ++i)
        std::this_thread::sleep_for(1ms);
}

}  // namespace quillworks::adapters
