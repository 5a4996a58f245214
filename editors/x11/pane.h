// SPDX-License-Identifier: ISC
// One X window that shows a surface: the view itself, or a popup above it.
#pragma once

#include <memory>
#include <vector>

#include "editors/surface.h"
#include "editors/x11/connection.h"
#include "editors/x11/picture.h"

namespace quillworks::editors {

class X11Window;

class Pane final : public SurfaceHost {
public:
    struct Place {
        xcb_window_t parent;
        int x = 0, y = 0;
        bool isPopup = false;
        std::uint32_t events;
    };
    /// The window is there, but not shown yet.
    Pane(X11Window& window, Connection& connection, std::shared_ptr<Surface> surface,
         const Place& place);
    ~Pane();
    Pane(const Pane&) = delete;
    Pane& operator=(const Pane&) = delete;

    xcb_window_t id() const noexcept { return id_; }
    Surface& surface() noexcept { return *surface_; }
    int width() const noexcept { return width_; }    // of the window, which may differ from
    int height() const noexcept { return height_; }  // what the surface fills
    bool isWithin(int x, int y) const noexcept
    {
        return x >= 0 && y >= 0 && x < width_ && y < height_;
    }

    /// Shows what has changed on the surface, unless the server still reads what was shown last.
    void draw();
    /// The server wants a part of the window anew.
    void expose(const PixelRect& part);
    bool take(const xcb_generic_event_t& event) noexcept { return picture_.take(event); }
    void stopSharing();
    /// Gives the window the size of its surface.
    void followSurface();
    /// The window has got another size from outside: the surface follows as far as it can.
    void followWindow(int width, int height);
    void setEvents(std::uint32_t events) noexcept;
    void show() noexcept { xcb_map_window(connection_.get(), id_); }
    void hide() noexcept { xcb_unmap_window(connection_.get(), id_); }
    /// The server has destroyed the window by itself.
    void forgetWindow() noexcept { id_ = 0; }
    /// The surface is shown here no more, and may be elsewhere.
    void detach() noexcept;
    bool takesPointer() const { return surface_->takesPointer(); }

    // What the surface asks for.
    void resize(int width, int height) override;
    void showPopup(std::shared_ptr<Surface> popup, int x, int y) override;
    void wantKeyboard(bool wanted) override;
    void copyText(const std::string& text) override;
    std::string pasteText() override;

private:
    bool fitPicture();

    X11Window& window_;
    Connection& connection_;
    std::shared_ptr<Surface> surface_;
    xcb_window_t id_ = 0;
    xcb_gcontext_t gc_ = 0;
    int width_ = 0, height_ = 0;
    Picture picture_;
    bool isStale_ = true;  // the picture holds nothing
    bool isAttached_ = true;
    std::vector<PixelRect> parts_;
};

}  // namespace quillworks::editors
