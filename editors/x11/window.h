// SPDX-License-Identifier: ISC
// A surface as a window of X11: within a window of the host, or by itself. It has a connection of
// its own and no thread: the host polls it, by its timer or idle call, on the thread that opened
// it. No error of the server ends more than the window.
#pragma once

#include <bitset>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "editors/surface.h"
#include "editors/x11/ancestors.h"
#include "editors/x11/connection.h"
#include "editors/x11/event_clock.h"
#include "editors/x11/keyboard.h"
#include "editors/x11/pane.h"
#include "editors/x11/transfer.h"

namespace quillworks::editors {

class X11Window {
public:
    struct Setup {
        std::uint32_t parent = 0;  // 0: a window by itself
        std::string title;         // of such a one
        /// Of the user, who knows best; else of the host; 0 where unknown, then of the screen.
        double userScale = 0, hostScale = 0;
        /// Asked when the surface wants another size: whether the window may have it. None: yes.
        std::function<bool(int width, int height)> mayResize;
    };

    /// Null where there is no server, or none that can show it. The window can be embedded, and is
    /// drawn when it is seen; one by itself waits for show().
    static std::unique_ptr<X11Window> open(std::unique_ptr<Surface> surface, Setup setup);
    ~X11Window();
    X11Window(const X11Window&) = delete;
    X11Window& operator=(const X11Window&) = delete;

    std::uint32_t id() const noexcept { return main().id(); }
    /// Readable when there is something for processEvents().
    int fd() const noexcept { return connection_->fd(); }
    /// False for ever once the window or the server is gone, or a person has closed the window.
    bool isOpen() const noexcept { return isOpen_; }
    /// Whether anything of it can be seen; while not, no time passes for the surface.
    bool isSeen() const noexcept
    {
        return isOpen_ && isMapped_ && !isCovered_ && ancestors_.areMapped();
    }

    /// Takes what the server has sent, and shows what that has changed.
    void processEvents();
    /// Lets time pass; calls that come faster than the eye sees are left out.
    void tick();

    Surface& surface() noexcept { return main().surface(); }
    int width() const noexcept { return main().width(); }
    int height() const noexcept { return main().height(); }
    /// As the host wants it; the surface takes the nearest size that it can.
    void setSize(int width, int height);
    void setScale(double scale);
    void show();
    void hide();
    void setTitle(const std::string& title);
    void stayAbove(std::uint32_t window);
    /// Puts a window that was opened without a parent into one.
    bool embedIn(std::uint32_t parent);

    /// For tests: requests can be counted on it.
    xcb_connection_t* connection() const noexcept { return connection_->get(); }
    int errors() const noexcept { return errors_; }
    int popups() const noexcept { return static_cast<int>(panes_.size()) - 1; }

private:
    friend class Pane;

    X11Window(std::unique_ptr<Connection> connection, std::unique_ptr<Surface> surface,
              Setup setup);
    Pane& main() const noexcept { return *panes_.front(); }
    Pane* find(xcb_window_t id) const noexcept;
    void tellWindowManager();
    std::uint32_t viewEvents() const noexcept;

    void handle(const xcb_generic_event_t& event);
    void handleError(const xcb_generic_error_t& error);
    void handlePress(const xcb_button_press_event_t& event);
    void handleRelease(const xcb_button_release_event_t& event);
    void handleMotion();
    void handleKey(const xcb_key_press_event_t& event, bool isPress);
    void handleFocusOut(const xcb_focus_out_event_t& event);
    void handleMessage(const xcb_client_message_event_t& event);
    void handleStructure(const xcb_generic_event_t& event);
    void handBack(const xcb_key_press_event_t& event, bool isPress);
    void drawAll();
    void close() noexcept;

    // For the panes.
    void resizePane(Pane& pane, int width, int height);
    void openPopup(Pane& parent, std::shared_ptr<Surface> popup, int x, int y);
    /// Closes all popups above the pane of this number; whether one had the pointer.
    bool closePopups(std::size_t above, bool byWindow);
    void wantKeyboard(bool wanted);
    std::string paste();
    Transfer& transfer() noexcept { return *transfer_; }
    xcb_timestamp_t lastTime() const noexcept { return clock_.serverTime(); }
    double now() noexcept { return clock_.now(); }

    std::unique_ptr<Connection> connection_;
    Setup setup_;
    std::vector<std::unique_ptr<Pane>> panes_;    // the view, then popups, each above the former
    std::vector<std::unique_ptr<Pane>> closing_;  // their surfaces may be in a call
    std::unique_ptr<Transfer> transfer_;
    Keyboard keyboard_;
    Ancestors ancestors_;
    EventClock clock_;
    std::vector<Event> waiting_;       // came while an answer was awaited
    Event motion_;                     // the latest of those that follow one another
    std::bitset<256> handedBack_;      // keys that the host has been told are down
    std::uint32_t swallowed_ = 0;      // buttons whose press has only closed popups
    xcb_window_t keyboardBefore_ = 0;  // the window that had it
    std::uint16_t focusSequence_ = 0;  // of the request that brought it here
    bool hasGrab_ = false;
    bool wantsKeyboard_ = false;
    bool isOpen_ = true, isMapped_ = false, isCovered_ = false;
    int errors_ = 0;
    double nextTick_ = 0;
    int slowTicks_ = 0, quickTicks_ = 0;
    bool isSlow_ = false;
};

}  // namespace quillworks::editors
