// SPDX-License-Identifier: ISC
// The picture of a window: memory that we draw into and the server reads.
#pragma once

#include <xcb/shm.h>

#include <cstddef>
#include <span>

#include "editors/surface.h"
#include "editors/x11/connection.h"

namespace quillworks::editors {

class Picture {
public:
    explicit Picture(Connection& connection) noexcept : connection_(connection) {}
    ~Picture();
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    /// What it holds is lost. False, and it holds nothing, without memory.
    bool resize(int width, int height);
    const Pixels& pixels() const noexcept { return pixels_; }

    /// Shows parts of it, which lie within it, at their place in a window.
    void put(xcb_window_t window, xcb_gcontext_t gc, std::span<const PixelRect> parts);
    /// The server is still reading: what is drawn now might be seen half.
    bool isBusy() const noexcept { return unread_ > 0; }
    /// The server's event that it has read; false where it is of another picture.
    bool take(const xcb_generic_event_t& event) noexcept;
    /// The server refuses shared memory: from here on the pixels go through the connection.
    void stopSharing() noexcept;

private:
    void release() noexcept;
    bool share(std::size_t bytes);
    void send(xcb_window_t window, xcb_gcontext_t gc, const PixelRect& part);

    Connection& connection_;
    Pixels pixels_;
    void* memory_ = nullptr;
    std::size_t bytes_ = 0;
    xcb_shm_seg_t segment_ = 0;  // 0: not shared
    int unread_ = 0;
    bool mayShare_ = true;
    std::vector<std::uint32_t> rows_;  // on their way through the connection
};

}  // namespace quillworks::editors
