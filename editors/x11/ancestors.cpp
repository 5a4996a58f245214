// SPDX-License-Identifier: ISC
#include "editors/x11/ancestors.h"

#include "editors/x11/connection.h"

namespace quillworks::editors {

void Ancestors::find(xcb_window_t window)
{
    const auto parentOf = [&](xcb_window_t w) {
        const Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(xcb_, xcb_query_tree(xcb_, w), nullptr));
        return tree && tree->parent != tree->root ? tree->parent : xcb_window_t{0};
    };
    const auto before = std::move(all_);
    all_.clear();
    constexpr std::size_t kDeepest = 64;  // trees of hosts are some ten deep
    for (auto w = parentOf(window); w && all_.size() < kDeepest; w = parentOf(w)) {
        const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(xcb_, w, XCB_CW_EVENT_MASK, &events);
        // Asked after the events are: between the two nothing is missed.
        const Reply<xcb_get_window_attributes_reply_t> state(
            xcb_get_window_attributes_reply(xcb_, xcb_get_window_attributes(xcb_, w), nullptr));
        all_.push_back({w, state && state->map_state != XCB_MAP_STATE_UNMAPPED});
    }
    for (const auto& one : before) {
        const std::uint32_t none = 0;
        if (!contain(one.window))
            xcb_change_window_attributes(xcb_, one.window, XCB_CW_EVENT_MASK, &none);
    }
}

}  // namespace quillworks::editors
