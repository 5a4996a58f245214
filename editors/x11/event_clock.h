// SPDX-License-Identifier: ISC
// One clock for events, which carry the server's time, and for ticks, which have ours: the rests
// and double clicks of a hand are measured by when it moved and not by when the host asked.
#pragma once

#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace quillworks::editors {

class EventClock {
public:
    /// Seconds of a clock that never goes back.
    double now() noexcept { return last_ = std::max(last_, steady()); }

    /// Of an event with the server's time, in milliseconds that begin anew every 49 days.
    double at(xcb_timestamp_t time) noexcept
    {
        if (time == XCB_CURRENT_TIME) return now();
        ms_ += isKnown_ ? static_cast<std::int32_t>(time - serverTime_) : 0;
        serverTime_ = time;
        const double server = static_cast<double>(ms_) * 1e-3, own = steady();
        // An event comes after it has happened: the least delay seen is the nearest to none.
        offset_ = isKnown_ ? std::min(offset_, own - server) : own - server;
        isKnown_ = true;
        return last_ = std::max(last_, server + offset_);
    }
    /// Of the last event; requests that others may outrun carry it.
    xcb_timestamp_t serverTime() const noexcept { return serverTime_; }

private:
    static double steady() noexcept
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

    xcb_timestamp_t serverTime_ = XCB_CURRENT_TIME;
    std::int64_t ms_ = 0;
    bool isKnown_ = false;
    double offset_ = 0, last_ = 0;
};

}  // namespace quillworks::editors
