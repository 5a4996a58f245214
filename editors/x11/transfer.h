// SPDX-License-Identifier: ISC
// Text copied and pasted, and files dropped, between a view and other programs.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "editors/x11/connection.h"

namespace quillworks::editors {

/// Paths of the files that a list of URIs names, in its order; others are left out.
std::vector<std::string> filesOf(const std::string& uriList);

class Transfer {
public:
    /// The window that owns what is copied and takes what is dropped.
    Transfer(Connection& connection, xcb_window_t window);

    void copy(const std::string& text, xcb_timestamp_t time);
    bool hasText() const noexcept { return isOwner_; }
    const std::string& text() const noexcept { return text_; }
    /// Asks the program that has the clipboard; the answer comes as an event.
    void ask(xcb_timestamp_t time);
    /// What that event brings; empty where there is no text, or more than a name or value has.
    std::string pasted(const xcb_selection_notify_event_t& event);

    // Events of other programs.
    void answer(const xcb_selection_request_event_t& request);
    void cleared() noexcept { isOwner_ = false; }
    /// A step of a drag; false where the message is another.
    bool readMessage(const xcb_client_message_event_t& message);
    /// The list of files asked for at a drop: hands each to `drop` with the place in the window
    /// until one is taken.
    void readDropped(const xcb_selection_notify_event_t& event,
                     const std::function<bool(int x, int y, const std::string& path)>& drop);

private:
    xcb_atom_t atom(Atom which) const noexcept { return connection_.atom(which); }
    std::string takeProperty(xcb_atom_t property, std::uint32_t longest);
    void sendToSource(Atom type, std::uint32_t accepts, xcb_atom_t action);
    bool offersFiles(const xcb_client_message_event_t& enter);

    Connection& connection_;
    xcb_window_t window_;
    std::string text_;
    bool isOwner_ = false;

    // Of the drag above the window.
    xcb_window_t source_ = 0;
    bool hasFiles_ = false;
    int rootX_ = 0, rootY_ = 0;
};

}  // namespace quillworks::editors
