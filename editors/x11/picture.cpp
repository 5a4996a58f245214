// SPDX-License-Identifier: ISC
#include "editors/x11/picture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace quillworks::editors {

Picture::~Picture()
{
    release();
}

void Picture::release() noexcept
{
    if (segment_) xcb_shm_detach(connection_.get(), segment_);
    if (memory_) munmap(memory_, bytes_);
    segment_ = 0;
    memory_ = nullptr;
    bytes_ = 0;
    unread_ = 0;
    pixels_ = {};
}

bool Picture::resize(int width, int height)
{
    if (width < 1 || height < 1) return false;
    const auto needed = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4;
    if (needed > bytes_ || isBusy()) {
        release();
        // A window that is being drawn larger asks again at every step.
        const auto bytes = needed + needed / 4;
        if (!share(bytes)) {
            memory_ =
                mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (memory_ == MAP_FAILED) memory_ = nullptr;
        }
        if (!memory_) return false;
        bytes_ = bytes;
    }
    pixels_ = {static_cast<std::uint32_t*>(memory_), width, height,
               static_cast<std::ptrdiff_t>(width) * 4};
    return true;
}

bool Picture::share(std::size_t bytes)
{
    if (!mayShare_ || !connection_.sharesMemory()) return false;
    const int file = memfd_create("quillworks-view", MFD_CLOEXEC);
    if (file < 0) return false;
    void* memory = MAP_FAILED;
    if (ftruncate(file, static_cast<off_t>(bytes)) == 0)
        memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) {
        close(file);
        return false;
    }
    auto* const xcb = connection_.get();
    segment_ = xcb_generate_id(xcb);
    // The library closes the file. A server on another machine, or in another container, refuses.
    const Reply<xcb_generic_error_t> error(
        xcb_request_check(xcb, xcb_shm_attach_fd_checked(xcb, segment_, file, 1)));
    if (error || connection_.isBroken()) {
        munmap(memory, bytes);
        segment_ = 0;
        mayShare_ = false;
        return false;
    }
    memory_ = memory;
    return true;
}

void Picture::stopSharing() noexcept
{
    mayShare_ = false;
    unread_ = 0;
    // The memory itself stays what it is.
    if (segment_) xcb_shm_detach(connection_.get(), segment_);
    segment_ = 0;
}

void Picture::put(xcb_window_t window, xcb_gcontext_t gc, std::span<const PixelRect> parts)
{
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto& part = parts[i];
        if (!segment_) {
            send(window, gc, part);
            continue;
        }
        const bool isLast = i + 1 == parts.size();
        const auto u16 = [](int n) { return static_cast<std::uint16_t>(n); };
        const auto i16 = [](int n) { return static_cast<std::int16_t>(n); };
        xcb_shm_put_image(connection_.get(), window, gc, u16(pixels_.width), u16(pixels_.height),
                          u16(part.x), u16(part.y), u16(part.w), u16(part.h), i16(part.x),
                          i16(part.y), connection_.depth(), XCB_IMAGE_FORMAT_Z_PIXMAP, isLast,
                          segment_, 0);
        unread_ += isLast;
    }
}

/// Through the connection, in pieces that fit a request.
void Picture::send(xcb_window_t window, xcb_gcontext_t gc, const PixelRect& part)
{
    const auto width = static_cast<std::size_t>(part.w);
    const std::size_t room = (connection_.longestRequest() - 64) / (width * 4);
    const int rows = static_cast<int>(std::clamp<std::size_t>(room, 1, 1024));
    for (int y = 0; y < part.h; y += rows) {
        const int n = std::min(rows, part.h - y);
        rows_.resize(width * static_cast<std::size_t>(n));
        for (int row = 0; row < n; ++row)
            std::memcpy(rows_.data() + width * static_cast<std::size_t>(row),
                        pixels_.data +
                            static_cast<std::ptrdiff_t>(part.y + y + row) * (pixels_.stride / 4) +
                            part.x,
                        width * 4);
        xcb_put_image(connection_.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, window, gc,
                      static_cast<std::uint16_t>(part.w), static_cast<std::uint16_t>(n),
                      static_cast<std::int16_t>(part.x), static_cast<std::int16_t>(part.y + y), 0,
                      connection_.depth(), static_cast<std::uint32_t>(rows_.size() * 4),
                      reinterpret_cast<const std::uint8_t*>(rows_.data()));
    }
}

bool Picture::take(const xcb_generic_event_t& event) noexcept
{
    const auto& done = reinterpret_cast<const xcb_shm_completion_event_t&>(event);
    if (!segment_ || done.shmseg != segment_) return false;
    unread_ = std::max(0, unread_ - 1);
    return true;
}

}  // namespace quillworks::editors
