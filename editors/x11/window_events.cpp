// SPDX-License-Identifier: ISC
// What the server tells a window.
#include <cstring>
#include <utility>

#include "editors/x11/window.h"

namespace quillworks::editors {
namespace {

constexpr std::uint8_t kSentByProgram = 0x80;
constexpr std::uint16_t kAnyButton = XCB_BUTTON_MASK_1 | XCB_BUTTON_MASK_2 | XCB_BUTTON_MASK_3;
constexpr int kWheelUp = 4, kWheelDown = 5, kLastButton = 3;

template <class T> const T& as(const xcb_generic_event_t& event) noexcept
{
    return reinterpret_cast<const T&>(event);
}

}  // namespace

void X11Window::processEvents()
{
    auto* const xcb = connection();
    for (;;) {
        // An answer may be awaited in the midst of an event: what came then is next.
        std::vector<Event> events = std::exchange(waiting_, {});
        if (events.empty()) {
            while (Event event{xcb_poll_for_event(xcb)}) events.push_back(std::move(event));
            if (events.empty()) break;
        }
        for (auto& event : events) {
            const bool isMotion = (event->response_type & 0x7F) == XCB_MOTION_NOTIFY;
            if (!isMotion) handleMotion();
            if (!isMotion)
                handle(*event);
            else
                motion_ = std::move(event);
        }
        handleMotion();
    }
    if (connection_->isBroken()) isOpen_ = false;
    drawAll();
}

void X11Window::handle(const xcb_generic_event_t& event)
{
    const auto type = event.response_type & 0x7F;
    switch (type) {
    case 0:
        return handleError(as<xcb_generic_error_t>(event));
    case XCB_EXPOSE: {
        const auto& e = as<xcb_expose_event_t>(event);
        if (auto* pane = find(e.window)) pane->expose({e.x, e.y, e.width, e.height});
        return;
    }
    case XCB_BUTTON_PRESS:
        return handlePress(as<xcb_button_press_event_t>(event));
    case XCB_BUTTON_RELEASE:
        return handleRelease(as<xcb_button_release_event_t>(event));
    case XCB_LEAVE_NOTIFY: {
        const auto& e = as<xcb_leave_notify_event_t>(event);
        auto* const pane = find(e.event);
        if (pane && e.mode != XCB_NOTIFY_MODE_GRAB && !(e.state & kAnyButton))
            pane->surface().pointer({PointerAction::Leave, double(e.event_x), double(e.event_y), 0,
                                     modifiersOf(e.state), clock_.at(e.time)});
        return;
    }
    case XCB_KEY_PRESS:
    case XCB_KEY_RELEASE:
        return handleKey(as<xcb_key_press_event_t>(event), type == XCB_KEY_PRESS);
    case XCB_FOCUS_OUT:
        return handleFocusOut(as<xcb_focus_out_event_t>(event));
    case XCB_MAPPING_NOTIFY:
        return keyboard_.forget();
    case XCB_VISIBILITY_NOTIFY:
        isCovered_ =
            as<xcb_visibility_notify_event_t>(event).state == XCB_VISIBILITY_FULLY_OBSCURED;
        return;
    case XCB_SELECTION_REQUEST:
        return transfer_->answer(as<xcb_selection_request_event_t>(event));
    case XCB_SELECTION_CLEAR:
        return transfer_->cleared();
    case XCB_SELECTION_NOTIFY: {
        const auto& e = as<xcb_selection_notify_event_t>(event);
        if (e.selection == connection_->atom(Atom::DropSelection))
            transfer_->readDropped(e, [this](int x, int y, const std::string& path) {
                return surface().drop(x, y, path);
            });
        return;
    }
    case XCB_CLIENT_MESSAGE:
        return handleMessage(as<xcb_client_message_event_t>(event));
    case XCB_MAP_NOTIFY:
    case XCB_UNMAP_NOTIFY:
    case XCB_REPARENT_NOTIFY:
    case XCB_DESTROY_NOTIFY:
    case XCB_CONFIGURE_NOTIFY:
        return handleStructure(event);
    default:
        if (type == connection_->shmEvent())
            for (auto& pane : panes_)
                if (pane->take(event)) return;
    }
}

/// Errors are expected: windows of others vanish at any time.
void X11Window::handleError(const xcb_generic_error_t& error)
{
    ++errors_;
    if (!connection_->sharesMemory() || error.major_code != connection_->shmCode()) return;
    for (auto& pane : panes_) pane->stopSharing();
}

void X11Window::handlePress(const xcb_button_press_event_t& event)
{
    auto* const pane = find(event.event);
    if (!pane) return;
    const double seconds = clock_.at(event.time);
    const bool isWheel = event.detail == kWheelUp || event.detail == kWheelDown;
    if (!isWheel && event.detail > kLastButton) return;
    const bool isOutside = !pane->isWithin(event.event_x, event.event_y);
    std::size_t number = 0;
    while (panes_[number].get() != pane) ++number;
    // Beside a menu a press closes it and is lost; beside a tip it goes on.
    const bool isView = number == 0 || isOutside;
    if (isWheel && isView && hasGrab_) return;
    if (closePopups(isOutside ? 0 : number, true) && isView && !isWheel) {
        swallowed_ |= 1u << event.detail;
        return;
    }
    if (isOutside) return;
    const double x = event.event_x, y = event.event_y;
    const auto modifiers = modifiersOf(event.state);
    if (isWheel)
        pane->surface().wheel({x, y, event.detail == kWheelUp ? 1.0 : -1.0, modifiers, seconds});
    else
        pane->surface().pointer({PointerAction::Press, x, y, event.detail, modifiers, seconds});
}

void X11Window::handleRelease(const xcb_button_release_event_t& event)
{
    if (event.detail > kLastButton) return;
    const auto bit = 1u << event.detail;
    const double seconds = clock_.at(event.time);
    if (swallowed_ & bit) {
        swallowed_ &= ~bit;
        return;
    }
    if (auto* pane = find(event.event))
        pane->surface().pointer({PointerAction::Release, double(event.event_x),
                                 double(event.event_y), event.detail, modifiersOf(event.state),
                                 seconds});
}

/// Of moves that follow one another only the last is worth the drawing.
void X11Window::handleMotion()
{
    if (!motion_) return;
    const auto event = std::move(motion_);
    const auto& e = as<xcb_motion_notify_event_t>(*event);
    auto* const pane = find(e.event);
    if (!pane) return;
    const double seconds = clock_.at(e.time);
    // Under a menu nothing lights up, but what is held stays held.
    if (hasGrab_ && pane == &main() && !(e.state & kAnyButton)) return;
    pane->surface().pointer({PointerAction::Move, double(e.event_x), double(e.event_y), 0,
                             modifiersOf(e.state), seconds});
}

void X11Window::handleKey(const xcb_key_press_event_t& event, bool isPress)
{
    const double seconds = clock_.at(event.time);
    if (!isPress) return handBack(event, false);
    auto key = keyboard_.read(event);
    if (!key) return;
    key->seconds = seconds;
    for (auto i = panes_.size(); i-- > 0;) {
        auto& pane = *panes_[i];
        if ((i == 0 || pane.takesPointer()) && pane.surface().key(*key)) return;
    }
    handBack(event, true);
}

/// Keys that are not used belong to the host, and so does their release.
void X11Window::handBack(const xcb_key_press_event_t& event, bool isPress)
{
    // What the host itself has sent here it has had already; sent back it would go in circles.
    const auto parent = ancestors_.parent();
    if ((event.response_type & kSentByProgram) || !parent || !setup_.parent) return;
    if (!isPress && !handedBack_.test(event.detail)) return;
    handedBack_.set(event.detail, isPress);
    auto copy = event;
    copy.event = parent;
    copy.child = XCB_NONE;
    char bytes[32];
    static_assert(sizeof bytes == sizeof copy);
    std::memcpy(bytes, &copy, sizeof copy);
    xcb_send_event(connection(), 1, parent,
                   isPress ? XCB_EVENT_MASK_KEY_PRESS : XCB_EVENT_MASK_KEY_RELEASE, bytes);
}

void X11Window::handleFocusOut(const xcb_focus_out_event_t& event)
{
    // Of a time before the keyboard was asked for.
    const bool isOld = static_cast<std::int16_t>(event.sequence - focusSequence_) < 0;
    const bool isLost = event.mode == XCB_NOTIFY_MODE_NORMAL &&
                        event.detail != XCB_NOTIFY_DETAIL_INFERIOR &&
                        event.detail != XCB_NOTIFY_DETAIL_POINTER && wantsKeyboard_ && !isOld;
    if (!isLost) return;
    wantsKeyboard_ = false;
    main().setEvents(viewEvents());
    closePopups(0, true);
    surface().keyboardLost();
}

void X11Window::handleMessage(const xcb_client_message_event_t& event)
{
    if (transfer_->readMessage(event)) return;
    if (event.type == connection_->atom(Atom::Protocols) &&
        event.data.data32[0] == connection_->atom(Atom::DeleteWindow)) {
        hide();
        close();
    }
}

void X11Window::handleStructure(const xcb_generic_event_t& event)
{
    const auto type = event.response_type & 0x7F;
    // In all of these the window that it is about comes second.
    const auto window = as<xcb_map_notify_event_t>(event).window;
    const bool isView = window == id();
    if (!isView && !ancestors_.contain(window)) return;
    switch (type) {
    case XCB_MAP_NOTIFY:
    case XCB_UNMAP_NOTIFY: {
        const bool isMapped = type == XCB_MAP_NOTIFY;
        if (isView)
            isMapped_ = isMapped;
        else
            ancestors_.setMapped(window, isMapped);
        if (!isMapped) closePopups(0, true);
        // The server does not say again that it can be seen as it did before.
        isCovered_ = false;
        return;
    }
    case XCB_REPARENT_NOTIFY:
        return ancestors_.find(id());
    case XCB_DESTROY_NOTIFY:
        if (!isView) return;
        main().forgetWindow();
        return close();
    case XCB_CONFIGURE_NOTIFY: {
        const auto& e = as<xcb_configure_notify_event_t>(event);
        // A popup stays where it is when the window below it moves away.
        if (isView)
            main().followWindow(e.width, e.height);
        else
            closePopups(0, true);
        return;
    }
    default:
        return;
    }
}

}  // namespace quillworks::editors
