// SPDX-License-Identifier: ISC
// A connection to the X server of one view's own: nothing is shared with the host or other views.
#pragma once

#include <xcb/xcb.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace quillworks::editors {

struct FreeDeleter {
    void operator()(void* p) const noexcept { std::free(p); }
};
/// What xcb hands out: replies, events, errors.
template <class T> using Reply = std::unique_ptr<T, FreeDeleter>;
using Event = Reply<xcb_generic_event_t>;

enum class Atom {
    Clipboard,
    DropEnter,
    DropPosition,
    DropStatus,
    DropLeave,
    Drop,
    DropFinished,
    DropSelection,
    DropAware,
    DropTypes,
    CopyAction,
    UriList,
    Utf8,
    Utf8Plain,
    Targets,
    Pasted,
    Dropped,
    Embedded,
    Protocols,
    DeleteWindow,
    Name,
    WindowType,
    MenuType,
    TipType,
    DialogType,
    Count
};

class Connection {
public:
    /// Null where there is no server, or none that shows 32-bit pixels as this machine has them.
    static std::unique_ptr<Connection> open();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    xcb_connection_t* get() const noexcept { return xcb_; }
    int fd() const noexcept { return xcb_get_file_descriptor(xcb_); }
    bool isBroken() const noexcept { return xcb_connection_has_error(xcb_) != 0; }

    const xcb_screen_t& screen() const noexcept { return *screen_; }
    xcb_visualid_t visual() const noexcept { return visual_; }
    xcb_colormap_t colormap() const noexcept { return colormap_; }
    std::uint8_t depth() const noexcept { return depth_; }
    xcb_atom_t atom(Atom which) const noexcept { return atoms_[static_cast<std::size_t>(which)]; }
    /// Pixels of the screen in those of a usual one, by the user's Xft.dpi; 0 where none is set.
    double screenScale() const noexcept { return screenScale_; }
    /// Bytes of a request, head included.
    std::size_t longestRequest() const noexcept { return longestRequest_; }

    /// Whether the server can read pictures from memory that it is handed.
    bool sharesMemory() const noexcept { return shmEvent_ != 0; }
    /// Event with which the server says that it has read a picture; 0 without shared memory.
    std::uint8_t shmEvent() const noexcept { return shmEvent_; }
    /// Code of its requests in errors.
    std::uint8_t shmCode() const noexcept { return shmCode_; }

private:
    explicit Connection(xcb_connection_t* xcb, int screen);
    bool findVisual();

    xcb_connection_t* xcb_;
    const xcb_screen_t* screen_ = nullptr;
    xcb_visualid_t visual_ = 0;
    xcb_colormap_t colormap_ = 0;
    std::uint8_t depth_ = 0;
    std::array<xcb_atom_t, static_cast<std::size_t>(Atom::Count)> atoms_{};
    double screenScale_ = 0;
    std::size_t longestRequest_ = 0;
    std::uint8_t shmEvent_ = 0, shmCode_ = 0;
};

}  // namespace quillworks::editors
