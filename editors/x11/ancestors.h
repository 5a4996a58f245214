// SPDX-License-Identifier: ISC
// The windows of others that a view lies in: it is seen only while all of them are mapped, and the
// server tells of that those alone who ask.
#pragma once

#include <xcb/xcb.h>

#include <algorithm>
#include <vector>

namespace quillworks::editors {

class Ancestors {
public:
    explicit Ancestors(xcb_connection_t* xcb) noexcept : xcb_(xcb) {}

    /// Looks for those of a window anew.
    void find(xcb_window_t window);
    bool areMapped() const noexcept
    {
        return std::all_of(all_.begin(), all_.end(), [](const auto& one) { return one.isMapped; });
    }
    bool contain(xcb_window_t window) const noexcept
    {
        return std::any_of(all_.begin(), all_.end(),
                           [&](const auto& one) { return one.window == window; });
    }
    void setMapped(xcb_window_t window, bool isMapped) noexcept
    {
        for (auto& one : all_)
            if (one.window == window) one.isMapped = isMapped;
    }
    /// The nearest, 0 for a window by itself.
    xcb_window_t parent() const noexcept { return all_.empty() ? 0 : all_.front().window; }

private:
    struct Ancestor {
        xcb_window_t window;
        bool isMapped;
    };
    xcb_connection_t* xcb_;
    std::vector<Ancestor> all_;
};

}  // namespace quillworks::editors
