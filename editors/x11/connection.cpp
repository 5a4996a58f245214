// SPDX-License-Identifier: ISC
#include "editors/x11/connection.h"

#include <xcb/shm.h>

#include <bit>
#include <cstring>
#include <string>
#include <string_view>

namespace quillworks::editors {
namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Atom::Count)> kAtomNames = {
    "CLIPBOARD",
    "XdndEnter",
    "XdndPosition",
    "XdndStatus",
    "XdndLeave",
    "XdndDrop",
    "XdndFinished",
    "XdndSelection",
    "XdndAware",
    "XdndTypeList",
    "XdndActionCopy",
    "text/uri-list",
    "UTF8_STRING",
    "text/plain;charset=utf-8",
    "TARGETS",
    "QUILLWORKS_PASTED",
    "QUILLWORKS_DROPPED",
    "_XEMBED_INFO",
    "WM_PROTOCOLS",
    "WM_DELETE_WINDOW",
    "_NET_WM_NAME",
    "_NET_WM_WINDOW_TYPE",
    "_NET_WM_WINDOW_TYPE_POPUP_MENU",
    "_NET_WM_WINDOW_TYPE_TOOLTIP",
    "_NET_WM_WINDOW_TYPE_DIALOG",
};

/// "Xft.dpi:  144" among the user's resources.
double dpiOf(std::string_view resources)
{
    constexpr std::string_view kName = "Xft.dpi:";
    for (std::size_t at = 0; at < resources.size();) {
        const auto end = std::min(resources.find('\n', at), resources.size());
        const auto line = resources.substr(at, end - at);
        if (line.starts_with(kName))
            return std::strtod(std::string(line.substr(kName.size())).c_str(), nullptr);
        at = end + 1;
    }
    return 0;
}

bool holdsPixels(const xcb_visualtype_t& visual)
{
    return visual._class == XCB_VISUAL_CLASS_TRUE_COLOR && visual.red_mask == 0xFF0000 &&
           visual.green_mask == 0xFF00 && visual.blue_mask == 0xFF;
}

bool has32Bits(const xcb_setup_t* setup, std::uint8_t depth)
{
    for (auto it = xcb_setup_pixmap_formats_iterator(setup); it.rem; xcb_format_next(&it))
        if (it.data->depth == depth) return it.data->bits_per_pixel == 32;
    return false;
}

}  // namespace

std::unique_ptr<Connection> Connection::open()
{
    int screen = 0;
    auto* const xcb = xcb_connect(nullptr, &screen);
    std::unique_ptr<Connection> connection;
    if (xcb_connection_has_error(xcb)) {
        xcb_disconnect(xcb);
        return connection;
    }
    connection.reset(new Connection(xcb, screen));
    if (!connection->visual_) connection.reset();
    return connection;
}

Connection::Connection(xcb_connection_t* xcb, int screen) : xcb_(xcb)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(xcb));
    for (; screen > 0 && screens.rem > 1; --screen) xcb_screen_next(&screens);
    screen_ = screens.data;
    if (!screen_ || !findVisual()) return;

    // Everything is asked for before the first answer is awaited.
    xcb_prefetch_extension_data(xcb, &xcb_shm_id);
    xcb_prefetch_maximum_request_length(xcb);
    std::array<xcb_intern_atom_cookie_t, kAtomNames.size()> atoms;
    for (std::size_t i = 0; i < atoms.size(); ++i)
        atoms[i] = xcb_intern_atom(xcb, 0, static_cast<std::uint16_t>(kAtomNames[i].size()),
                                   kAtomNames[i].data());
    const auto resources = xcb_get_property(xcb, 0, screen_->root, XCB_ATOM_RESOURCE_MANAGER,
                                            XCB_ATOM_STRING, 0, 16384);
    const auto* const shm = xcb_get_extension_data(xcb, &xcb_shm_id);
    const bool hasShm = shm && shm->present;
    xcb_shm_query_version_cookie_t version{};
    if (hasShm) version = xcb_shm_query_version(xcb);

    for (std::size_t i = 0; i < atoms.size(); ++i) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(xcb, atoms[i], nullptr));
        if (reply) atoms_[i] = reply->atom;
    }
    const Reply<xcb_get_property_reply_t> text(xcb_get_property_reply(xcb, resources, nullptr));
    if (text) {
        const auto* const value = static_cast<const char*>(xcb_get_property_value(text.get()));
        const auto length = static_cast<std::size_t>(xcb_get_property_value_length(text.get()));
        screenScale_ = dpiOf({value, length}) / 96;
    }
    if (hasShm) {
        const Reply<xcb_shm_query_version_reply_t> reply(
            xcb_shm_query_version_reply(xcb, version, nullptr));
        // From 1.2 on memory is handed over by descriptor, which knows no limits of size or count.
        if (reply && (reply->major_version > 1 || reply->minor_version >= 2)) {
            shmEvent_ = static_cast<std::uint8_t>(shm->first_event + XCB_SHM_COMPLETION);
            shmCode_ = shm->major_opcode;
        }
    }
    longestRequest_ = std::size_t{4} * xcb_get_maximum_request_length(xcb);
}

/// The screen's own, else another that holds pixels as the pictures do.
bool Connection::findVisual()
{
    const auto* const setup = xcb_get_setup(xcb_);
    const bool isSameOrder = (setup->image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST) ==
                             (std::endian::native == std::endian::little);
    if (!isSameOrder) return false;
    for (auto depths = xcb_screen_allowed_depths_iterator(screen_); depths.rem;
         xcb_depth_next(&depths)) {
        if (!has32Bits(setup, depths.data->depth)) continue;
        for (auto it = xcb_depth_visuals_iterator(depths.data); it.rem; xcb_visualtype_next(&it)) {
            const bool isRoots = it.data->visual_id == screen_->root_visual;
            if (!holdsPixels(*it.data) || (visual_ && !isRoots)) continue;
            visual_ = it.data->visual_id;
            depth_ = depths.data->depth;
        }
    }
    if (!visual_) return false;
    if (visual_ == screen_->root_visual) {
        colormap_ = screen_->default_colormap;
    } else {
        colormap_ = xcb_generate_id(xcb_);
        xcb_create_colormap(xcb_, XCB_COLORMAP_ALLOC_NONE, colormap_, screen_->root, visual_);
    }
    return true;
}

Connection::~Connection()
{
    xcb_disconnect(xcb_);
}

}  // namespace quillworks::editors
