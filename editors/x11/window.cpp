// SPDX-License-Identifier: ISC
// Life of the window, its popups, and the keyboard's coming and going.
#include "editors/x11/window.h"

#include <poll.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace quillworks::editors {
namespace {

constexpr std::uint32_t kPopupEvents = XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS |
                                       XCB_EVENT_MASK_BUTTON_RELEASE |
                                       XCB_EVENT_MASK_POINTER_MOTION | XCB_EVENT_MASK_LEAVE_WINDOW;
constexpr std::uint32_t kViewEvents = kPopupEvents | XCB_EVENT_MASK_STRUCTURE_NOTIFY |
                                      XCB_EVENT_MASK_VISIBILITY_CHANGE |
                                      XCB_EVENT_MASK_FOCUS_CHANGE;
/// Only while the keyboard is wanted: else the server hands keys to the window around this one,
/// which is the host's, even above the view.
constexpr std::uint32_t kKeyEvents = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;

constexpr double kLeastScale = 0.5, kMostScale = 4, kScaleStep = 0.125;
constexpr double kTickSeconds = 1.0 / 30;
constexpr double kSlowTick = 0.008;  // seconds of work
constexpr int kSlowTicks = 3, kQuickTicks = 90;

}  // namespace

/// Keys only while they are wanted: else the server hands them to the window around this one, which
/// is the host's, even with the pointer above the view.
std::uint32_t X11Window::viewEvents() const noexcept
{
    const bool isAlone = setup_.parent == 0;
    return isAlone || wantsKeyboard_ ? kViewEvents | kKeyEvents : kViewEvents;
}

std::unique_ptr<X11Window> X11Window::open(std::unique_ptr<Surface> surface, Setup setup)
{
    if (!surface) return nullptr;
    auto connection = Connection::open();
    if (!connection) return nullptr;
    std::unique_ptr<X11Window> window(
        new X11Window(std::move(connection), std::move(surface), std::move(setup)));
    // The host may do with the window what it likes only once the server has it.
    auto* const xcb = window->connection();
    const Reply<xcb_get_window_attributes_reply_t> reply(xcb_get_window_attributes_reply(
        xcb, xcb_get_window_attributes(xcb, window->id()), nullptr));
    if (!reply) return nullptr;
    return window;
}

X11Window::X11Window(std::unique_ptr<Connection> connection, std::unique_ptr<Surface> surface,
                     Setup setup)
    : connection_(std::move(connection)),
      setup_(std::move(setup)),
      keyboard_(connection_->get()),
      ancestors_(connection_->get())
{
    std::shared_ptr<Surface> shared(std::move(surface));
    const auto& screen = connection_->screen();
    const auto known = setup_.userScale > 0   ? setup_.userScale
                       : setup_.hostScale > 0 ? setup_.hostScale
                                              : connection_->screenScale();
    double scale = std::round((known > 0 ? known : 1) / kScaleStep) * kScaleStep;
    scale = std::clamp(scale, kLeastScale, kMostScale);
    if (shared->scale() != scale) shared->setScale(scale);
    const auto isTooLarge = [&] {
        return shared->width() > screen.width_in_pixels ||
               shared->height() > screen.height_in_pixels;
    };
    while (isTooLarge() && scale > kLeastScale) shared->setScale(scale -= kScaleStep);

    const bool isAlone = setup_.parent == 0;
    panes_.push_back(std::make_unique<Pane>(
        *this, *connection_, std::move(shared),
        Pane::Place{isAlone ? screen.root : setup_.parent, 0, 0, false, viewEvents()}));
    transfer_ = std::make_unique<Transfer>(*connection_, id());
    tellWindowManager();
    setTitle(setup_.title);
    if (isAlone) return;
    show();
    ancestors_.find(id());
}

X11Window::~X11Window()
{
    if (!connection_->isBroken()) {
        wantKeyboard(false);
        closePopups(0, true);
    }
    closing_.clear();
    panes_.clear();
    xcb_flush(connection_->get());
}

/// For a window by itself, and for those who embed it.
void X11Window::tellWindowManager()
{
    auto* const xcb = connection();
    const std::uint32_t embedding[] = {0, 1};  // version, and that it is to be mapped
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, id(), connection_->atom(Atom::Embedded),
                        connection_->atom(Atom::Embedded), 32, 2, embedding);
    const auto deleting = connection_->atom(Atom::DeleteWindow);
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, id(), connection_->atom(Atom::Protocols),
                        XCB_ATOM_ATOM, 32, 1, &deleting);
    const auto type = connection_->atom(Atom::DialogType);
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, id(), connection_->atom(Atom::WindowType),
                        XCB_ATOM_ATOM, 32, 1, &type);
    const auto u32 = [](int n) { return static_cast<std::uint32_t>(n); };
    int leastWidth = 1, leastHeight = 1;
    surface().fitSize(leastWidth, leastHeight);
    const std::uint32_t hasMinimum = 1 << 4, hasAspect = 1 << 7, hasBase = 1 << 8;
    std::uint32_t hints[18] = {};  // XSizeHints
    hints[0] = hasMinimum | hasBase | (surface().isResizable() ? 0 : hasAspect);
    hints[5] = u32(leastWidth);
    hints[6] = u32(leastHeight);
    hints[11] = hints[13] = hints[15] = u32(width());
    hints[12] = hints[14] = hints[16] = u32(height());
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, id(), XCB_ATOM_WM_NORMAL_HINTS,
                        XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
}

void X11Window::setTitle(const std::string& title)
{
    xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, id(), connection_->atom(Atom::Name),
                        connection_->atom(Atom::Utf8), 8, static_cast<std::uint32_t>(title.size()),
                        title.data());
    xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, id(), XCB_ATOM_WM_NAME,
                        connection_->atom(Atom::Utf8), 8, static_cast<std::uint32_t>(title.size()),
                        title.data());
}

void X11Window::stayAbove(std::uint32_t window)
{
    xcb_change_property(connection(), XCB_PROP_MODE_REPLACE, id(), XCB_ATOM_WM_TRANSIENT_FOR,
                        XCB_ATOM_WINDOW, 32, 1, &window);
    xcb_flush(connection());
}

bool X11Window::embedIn(std::uint32_t parent)
{
    if (!isOpen_) return false;
    setup_.parent = parent;
    main().setEvents(viewEvents());
    const Reply<xcb_generic_error_t> error(xcb_request_check(
        connection(), xcb_reparent_window_checked(connection(), id(), parent, 0, 0)));
    if (error) return false;
    show();
    ancestors_.find(id());
    return true;
}

void X11Window::show()
{
    main().show();
    xcb_flush(connection());
}

void X11Window::hide()
{
    closePopups(0, true);
    main().hide();
    xcb_flush(connection());
}

void X11Window::close() noexcept
{
    isOpen_ = false;
    closePopups(0, true);
}

void X11Window::setSize(int width, int height)
{
    surface().fitSize(width, height);
    if (width != surface().width() || height != surface().height())
        surface().setSize(width, height);
    main().followSurface();
    xcb_flush(connection());
}

void X11Window::setScale(double scale)
{
    if (setup_.userScale > 0 || !(scale > 0)) return;
    scale = std::clamp(std::round(scale / kScaleStep) * kScaleStep, kLeastScale, kMostScale);
    surface().setScale(scale);
    main().followSurface();
    xcb_flush(connection());
}

void X11Window::resizePane(Pane& pane, int width, int height)
{
    auto& surface = pane.surface();
    const auto give = [&](int w, int h) {
        if (w != surface.width() || h != surface.height()) surface.setSize(w, h);
    };
    if (&pane != &main() || !setup_.mayResize || setup_.mayResize(width, height)) {
        give(width, height);
        pane.followSurface();
    } else {  // as near to it as the window's size allows
        width = pane.width();
        height = pane.height();
        surface.fitSize(width, height);
        give(width, height);
    }
    if (&pane == &main()) tellWindowManager();
}

void X11Window::tick()
{
    if (!isSeen()) return;
    const double now = clock_.now();
    if (now < nextTick_) return;
    // Somewhat early, or the least delay of the host's timer would cost a whole turn.
    nextTick_ = now + (isSlow_ ? 2 : 1) * kTickSeconds - 0.25 * kTickSeconds;
    for (std::size_t i = 0; i < panes_.size(); ++i) panes_[i]->surface().tick(now);
    drawAll();
    // A view that cannot keep up must not take the machine with it.
    const bool wasSlow = clock_.now() - now > kSlowTick;
    slowTicks_ = wasSlow ? slowTicks_ + 1 : 0;
    quickTicks_ = wasSlow ? 0 : quickTicks_ + 1;
    if (slowTicks_ >= kSlowTicks) isSlow_ = true;
    if (quickTicks_ >= kQuickTicks) isSlow_ = false;
}

void X11Window::drawAll()
{
    if (isSeen())
        for (std::size_t i = 0; i < panes_.size(); ++i) panes_[i]->draw();
    closing_.clear();
    xcb_flush(connection());
}

Pane* X11Window::find(xcb_window_t id) const noexcept
{
    for (const auto& pane : panes_)
        if (id && pane->id() == id) return pane.get();
    return nullptr;
}

void X11Window::openPopup(Pane& parent, std::shared_ptr<Surface> popup, int x, int y)
{
    const auto at = std::find_if(panes_.begin(), panes_.end(),
                                 [&](const auto& pane) { return pane.get() == &parent; });
    if (at == panes_.end()) return;
    closePopups(static_cast<std::size_t>(at - panes_.begin()), false);
    if (!popup || !isOpen_) return;
    auto* const xcb = connection();
    const auto& screen = connection_->screen();
    const Reply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(
        xcb, xcb_translate_coordinates(xcb, parent.id(), screen.root, 0, 0), nullptr));
    if (!origin) return;
    const auto within = [](int place, int size, int limit) {
        return std::clamp(place, 0, std::max(0, limit - size));
    };
    const bool takesPointer = popup->takesPointer();
    const int left = within(origin->dst_x + x, popup->width(), screen.width_in_pixels);
    const int top = within(origin->dst_y + y, popup->height(), screen.height_in_pixels);
    panes_.push_back(
        std::make_unique<Pane>(*this, *connection_, std::move(popup),
                               Pane::Place{screen.root, left, top, true, kPopupEvents}));
    const auto window = panes_.back()->id();
    const auto type = connection_->atom(takesPointer ? Atom::MenuType : Atom::TipType);
    const auto owner = id();
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, connection_->atom(Atom::WindowType),
                        XCB_ATOM_ATOM, 32, 1, &type);
    xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_TRANSIENT_FOR,
                        XCB_ATOM_WINDOW, 32, 1, &owner);
    panes_.back()->show();
    if (!takesPointer || hasGrab_) return;
    // Presses in windows of ours come as ever, those elsewhere as of the view: each closes the
    // menu. Where the host has the pointer itself, there is a menu without that.
    const Reply<xcb_grab_pointer_reply_t> grab(xcb_grab_pointer_reply(
        xcb,
        xcb_grab_pointer(xcb, 1, owner,
                         XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                             XCB_EVENT_MASK_POINTER_MOTION | XCB_EVENT_MASK_LEAVE_WINDOW,
                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE,
                         XCB_CURRENT_TIME),
        nullptr));
    hasGrab_ = grab && grab->status == XCB_GRAB_STATUS_SUCCESS;
}

bool X11Window::closePopups(std::size_t above, bool byWindow)
{
    bool hadPointer = false;
    while (panes_.size() > above + 1) {
        auto pane = std::move(panes_.back());
        panes_.pop_back();
        hadPointer |= pane->takesPointer();
        pane->hide();
        pane->detach();
        auto& surface = pane->surface();
        closing_.push_back(std::move(pane));
        if (byWindow) surface.closed();
    }
    const bool isNeeded = std::any_of(panes_.begin() + 1, panes_.end(),
                                      [](const auto& pane) { return pane->takesPointer(); });
    if (!isNeeded && std::exchange(hasGrab_, false))
        xcb_ungrab_pointer(connection(), XCB_CURRENT_TIME);
    return hadPointer;
}

void X11Window::wantKeyboard(bool wanted)
{
    if (wanted == wantsKeyboard_ || !id()) return;
    wantsKeyboard_ = wanted;
    if (setup_.parent == 0) return;  // the window manager's affair
    auto* const xcb = connection();
    main().setEvents(viewEvents());
    const Reply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(xcb, xcb_get_input_focus(xcb), nullptr));
    const xcb_window_t owner = focus ? focus->focus : xcb_window_t{0};
    if (wanted) {
        keyboardBefore_ = owner;
        focusSequence_ = static_cast<std::uint16_t>(
            xcb_set_input_focus(xcb, XCB_INPUT_FOCUS_PARENT, id(), lastTime()).sequence);
    } else if (owner == id() && keyboardBefore_) {
        xcb_set_input_focus(xcb, XCB_INPUT_FOCUS_PARENT, keyboardBefore_, lastTime());
    }
    xcb_flush(xcb);
}

/// What other programs have copied; waits a moment for the one that has it.
std::string X11Window::paste()
{
    if (transfer_->hasText()) return transfer_->text();
    auto* const xcb = connection();
    transfer_->ask(lastTime());
    xcb_flush(xcb);
    constexpr double kPatience = 0.3;  // seconds
    for (const double end = clock_.now() + kPatience; clock_.now() < end;) {
        while (Event event{xcb_poll_for_event(xcb)}) {
            const auto& answer = reinterpret_cast<const xcb_selection_notify_event_t&>(*event);
            if ((event->response_type & 0x7F) == XCB_SELECTION_NOTIFY &&
                answer.selection == connection_->atom(Atom::Clipboard))
                return transfer_->pasted(answer);
            waiting_.push_back(std::move(event));
        }
        if (connection_->isBroken()) break;
        pollfd readable{fd(), POLLIN, 0};
        poll(&readable, 1, 20);
    }
    return {};
}

}  // namespace quillworks::editors
