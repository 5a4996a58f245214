// SPDX-License-Identifier: ISC
#include "editors/x11/pane.h"

#include <algorithm>
#include <utility>

#include "editors/x11/window.h"

namespace quillworks::editors {
namespace {

constexpr std::uint32_t kBackground = 0x14161A;  // where a surface leaves room, until it draws

}  // namespace

Pane::Pane(X11Window& window, Connection& connection, std::shared_ptr<Surface> surface,
           const Place& place)
    : window_(window),
      connection_(connection),
      surface_(std::move(surface)),
      width_(std::max(1, surface_->width())),
      height_(std::max(1, surface_->height())),
      picture_(connection)
{
    auto* const xcb = connection.get();
    id_ = xcb_generate_id(xcb);
    // Depth, visual and colormap are given, and so the border must be: a parent may have others.
    const std::uint32_t values[] = {
        kBackground, 0, XCB_GRAVITY_NORTH_WEST, place.isPopup, place.events, connection.colormap()};
    xcb_create_window(xcb, connection.depth(), id_, place.parent,
                      static_cast<std::int16_t>(place.x), static_cast<std::int16_t>(place.y),
                      static_cast<std::uint16_t>(width_), static_cast<std::uint16_t>(height_), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, connection.visual(),
                      XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_BIT_GRAVITY |
                          XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK | XCB_CW_COLORMAP,
                      values);
    gc_ = xcb_generate_id(xcb);
    const std::uint32_t noExposures = 0;
    xcb_create_gc(xcb, gc_, id_, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    surface_->setHost(this);
    surface_->tick(window.now());  // before the server asks for a picture
}

Pane::~Pane()
{
    detach();
    xcb_free_gc(connection_.get(), gc_);
    if (id_) xcb_destroy_window(connection_.get(), id_);
}

void Pane::detach() noexcept
{
    if (std::exchange(isAttached_, false)) surface_->setHost(nullptr);
}

bool Pane::fitPicture()
{
    const int width = surface_->width(), height = surface_->height();
    if (picture_.pixels().data && picture_.pixels().width == width &&
        picture_.pixels().height == height)
        return true;
    isStale_ = true;
    return picture_.resize(width, height);
}

void Pane::draw()
{
    if (!id_ || picture_.isBusy() || !fitPicture()) return;
    const auto& pixels = picture_.pixels();
    const PixelRect whole{0, 0, pixels.width, pixels.height};
    parts_ = surface_->draw(pixels, isStale_);
    if (std::exchange(isStale_, false)) parts_ = {whole};
    std::erase_if(parts_, [&](PixelRect& part) {
        part = part.common(whole);
        return part.isEmpty();
    });
    picture_.put(id_, gc_, parts_);
}

void Pane::expose(const PixelRect& part)
{
    if (isStale_) return draw();
    const auto& pixels = picture_.pixels();
    const auto seen = part.common({0, 0, pixels.width, pixels.height});
    if (id_ && pixels.data && !seen.isEmpty()) picture_.put(id_, gc_, {&seen, 1});
}

void Pane::stopSharing()
{
    picture_.stopSharing();
    expose({0, 0, width_, height_});
}

void Pane::followSurface()
{
    const int width = std::max(1, surface_->width()), height = std::max(1, surface_->height());
    if (id_ && (width != width_ || height != height_)) {
        const std::uint32_t size[] = {static_cast<std::uint32_t>(width),
                                      static_cast<std::uint32_t>(height)};
        xcb_configure_window(connection_.get(), id_,
                             XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    }
    width_ = width;
    height_ = height;
}

void Pane::followWindow(int width, int height)
{
    if (width == width_ && height == height_) return;
    width_ = width;
    height_ = height;
    surface_->fitSize(width, height);
    if (width == surface_->width() && height == surface_->height()) return;
    surface_->setSize(width, height);
    if (id_) xcb_clear_area(connection_.get(), 0, id_, 0, 0, 0, 0);
}

void Pane::setEvents(std::uint32_t events) noexcept
{
    if (id_) xcb_change_window_attributes(connection_.get(), id_, XCB_CW_EVENT_MASK, &events);
}

void Pane::resize(int width, int height)
{
    window_.resizePane(*this, width, height);
}

void Pane::showPopup(std::shared_ptr<Surface> popup, int x, int y)
{
    window_.openPopup(*this, std::move(popup), x, y);
}

void Pane::wantKeyboard(bool wanted)
{
    window_.wantKeyboard(wanted);
}

void Pane::copyText(const std::string& text)
{
    window_.transfer().copy(text, window_.lastTime());
}

std::string Pane::pasteText()
{
    return window_.paste();
}

}  // namespace quillworks::editors
