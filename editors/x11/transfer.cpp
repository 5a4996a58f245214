// SPDX-License-Identifier: ISC
// By the selections of ICCCM and the drag and drop protocol XDND 5.
#include "editors/x11/transfer.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

namespace quillworks::editors {
namespace {

constexpr std::uint32_t kDropVersion = 5;
constexpr std::uint32_t kLongestPaste = 65536, kLongestList = 1 << 20;  // bytes

std::string decoded(std::string_view text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned char byte = 0;
        if (text[i] == '%' && i + 2 < text.size()) {
            const char* const end = text.data() + i + 3;
            if (std::from_chars(text.data() + i + 1, end, byte, 16).ptr == end) {
                out += static_cast<char>(byte);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

}  // namespace

std::vector<std::string> filesOf(const std::string& uriList)
{
    constexpr std::string_view kScheme = "file://";
    std::vector<std::string> files;
    for (std::size_t at = 0; at < uriList.size();) {
        const auto end = std::min(uriList.find_first_of("\r\n", at), uriList.size());
        const auto line = std::string_view(uriList).substr(at, end - at);
        at = end + 1;
        if (!line.starts_with(kScheme)) continue;
        const auto path = line.find('/', kScheme.size());  // behind the name of the machine
        if (path != line.npos) files.push_back(decoded(line.substr(path)));
    }
    std::erase_if(files, [](const auto& file) { return file.find('\0') != file.npos; });
    return files;
}

Transfer::Transfer(Connection& connection, xcb_window_t window)
    : connection_(connection), window_(window)
{
    xcb_change_property(connection_.get(), XCB_PROP_MODE_REPLACE, window, atom(Atom::DropAware),
                        XCB_ATOM_ATOM, 32, 1, &kDropVersion);
}

void Transfer::copy(const std::string& text, xcb_timestamp_t time)
{
    text_ = text;
    isOwner_ = true;
    xcb_set_selection_owner(connection_.get(), window_, atom(Atom::Clipboard), time);
}

void Transfer::ask(xcb_timestamp_t time)
{
    xcb_convert_selection(connection_.get(), window_, atom(Atom::Clipboard), atom(Atom::Utf8),
                          atom(Atom::Pasted), time);
}

/// The property's bytes; it is gone afterwards.
std::string Transfer::takeProperty(xcb_atom_t property, std::uint32_t longest)
{
    const Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection_.get(),
                               xcb_get_property(connection_.get(), 1, window_, property,
                                                XCB_GET_PROPERTY_TYPE_ANY, 0, longest / 4),
                               nullptr));
    if (!reply || reply->format != 8) return {};
    return {static_cast<const char*>(xcb_get_property_value(reply.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(reply.get()))};
}

std::string Transfer::pasted(const xcb_selection_notify_event_t& event)
{
    if (event.property == XCB_NONE) return {};
    return takeProperty(event.property, kLongestPaste);
}

void Transfer::answer(const xcb_selection_request_event_t& request)
{
    auto* const xcb = connection_.get();
    // Old programs name no property and expect the target's.
    const auto property = request.property ? request.property : request.target;
    bool isGiven = isOwner_ && request.selection == atom(Atom::Clipboard);
    if (isGiven && request.target == atom(Atom::Targets)) {
        const xcb_atom_t targets[] = {atom(Atom::Targets), atom(Atom::Utf8), atom(Atom::Utf8Plain)};
        xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, request.requestor, property, XCB_ATOM_ATOM,
                            32, std::size(targets), targets);
    } else if (isGiven &&
               (request.target == atom(Atom::Utf8) || request.target == atom(Atom::Utf8Plain))) {
        xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, request.requestor, property, request.target,
                            8, static_cast<std::uint32_t>(text_.size()), text_.data());
    } else {
        isGiven = false;
    }
    xcb_selection_notify_event_t reply{};
    reply.response_type = XCB_SELECTION_NOTIFY;
    reply.time = request.time;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.property = isGiven ? property : xcb_atom_t{0};
    char bytes[32] = {};  // as long as every event
    std::memcpy(bytes, &reply, sizeof reply);
    xcb_send_event(xcb, 0, request.requestor, XCB_EVENT_MASK_NO_EVENT, bytes);
}

bool Transfer::offersFiles(const xcb_client_message_event_t& enter)
{
    const auto* const data = enter.data.data32;
    const auto files = atom(Atom::UriList);
    const bool hasList = data[1] & 1;
    if (!hasList) return data[2] == files || data[3] == files || data[4] == files;
    const Reply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection_.get(),
                               xcb_get_property(connection_.get(), 0, source_,
                                                atom(Atom::DropTypes), XCB_ATOM_ATOM, 0, 256),
                               nullptr));
    if (!reply || reply->format != 32) return false;
    const auto* const types = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get()));
    const auto* const end = types + xcb_get_property_value_length(reply.get()) / 4;
    return std::find(types, end, files) != end;
}

void Transfer::sendToSource(Atom type, std::uint32_t accepts, xcb_atom_t action)
{
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = source_;
    message.type = atom(type);
    message.data.data32[0] = window_;
    message.data.data32[1] = accepts;
    // The action is the third word of "finished" and, behind a rectangle, the fifth of "status".
    message.data.data32[type == Atom::DropStatus ? 4 : 2] = action;
    xcb_send_event(connection_.get(), 0, source_, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char*>(&message));
}

bool Transfer::readMessage(const xcb_client_message_event_t& message)
{
    const auto* const data = message.data.data32;
    const auto is = [&](Atom type) { return message.type == atom(type); };
    if (message.format != 32) return false;
    if (is(Atom::DropEnter)) {
        source_ = data[0];
        hasFiles_ = offersFiles(message);
        return true;
    }
    const bool isKnown = source_ != 0 && data[0] == source_;
    if (is(Atom::DropPosition)) {
        if (!isKnown) return true;
        rootX_ = static_cast<int>(data[2] >> 16);
        rootY_ = static_cast<int>(data[2] & 0xFFFF);
        // Which place takes a file shows when it is dropped. The second bit: tell every move.
        sendToSource(Atom::DropStatus, hasFiles_ ? 3 : 2, hasFiles_ ? atom(Atom::CopyAction) : 0);
    } else if (is(Atom::Drop)) {
        if (!isKnown) return true;
        if (hasFiles_) {
            xcb_convert_selection(connection_.get(), window_, atom(Atom::DropSelection),
                                  atom(Atom::UriList), atom(Atom::Dropped), data[2]);
        } else {
            sendToSource(Atom::DropFinished, 0, 0);
            source_ = 0;
        }
    } else if (is(Atom::DropLeave)) {
        source_ = 0;
    } else {
        return false;
    }
    return true;
}

void Transfer::readDropped(const xcb_selection_notify_event_t& event,
                           const std::function<bool(int, int, const std::string&)>& drop)
{
    if (!source_) return;
    bool isTaken = false;
    if (event.property != XCB_NONE) {
        const auto files = filesOf(takeProperty(event.property, kLongestList));
        const Reply<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
            connection_.get(),
            xcb_translate_coordinates(connection_.get(), connection_.screen().root, window_,
                                      static_cast<std::int16_t>(rootX_),
                                      static_cast<std::int16_t>(rootY_)),
            nullptr));
        if (place)
            isTaken = std::any_of(files.begin(), files.end(), [&](const auto& file) {
                return drop(place->dst_x, place->dst_y, file);
            });
    }
    sendToSource(Atom::DropFinished, isTaken, isTaken ? atom(Atom::CopyAction) : 0);
    source_ = 0;
}

}  // namespace quillworks::editors
