// SPDX-License-Identifier: ISC
#include "editors/x11/keyboard.h"

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdlib>

namespace quillworks::editors {
namespace {

Key keyOf(xkb_keysym_t symbol)
{
    switch (symbol) {
    case XKB_KEY_Tab:
    case XKB_KEY_KP_Tab:
    case XKB_KEY_ISO_Left_Tab:
        return Key::Tab;
    case XKB_KEY_Return:
    case XKB_KEY_KP_Enter:
        return Key::Enter;
    case XKB_KEY_Escape:
        return Key::Escape;
    case XKB_KEY_space:
    case XKB_KEY_KP_Space:
        return Key::Space;
    case XKB_KEY_Delete:
    case XKB_KEY_KP_Delete:
        return Key::Delete;
    case XKB_KEY_BackSpace:
        return Key::Backspace;
    case XKB_KEY_Left:
    case XKB_KEY_KP_Left:
        return Key::Left;
    case XKB_KEY_Right:
    case XKB_KEY_KP_Right:
        return Key::Right;
    case XKB_KEY_Up:
    case XKB_KEY_KP_Up:
        return Key::Up;
    case XKB_KEY_Down:
    case XKB_KEY_KP_Down:
        return Key::Down;
    case XKB_KEY_Page_Up:
    case XKB_KEY_KP_Page_Up:
        return Key::PageUp;
    case XKB_KEY_Page_Down:
    case XKB_KEY_KP_Page_Down:
        return Key::PageDown;
    case XKB_KEY_Home:
    case XKB_KEY_KP_Home:
        return Key::Home;
    case XKB_KEY_End:
    case XKB_KEY_KP_End:
        return Key::End;
    case XKB_KEY_F1:
        return Key::F1;
    case XKB_KEY_F10:
        return Key::F10;
    case XKB_KEY_Menu:
        return Key::Menu;
    default:
        return Key::None;
    }
}

const char* locale()
{
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const char* value = std::getenv(name); value && *value) return value;
    return "C";
}

/// Text of at most a few letters.
template <class Write> std::string textOf(Write&& write)
{
    char text[64] = "";
    write(text, sizeof text);
    return text;
}

bool isControl(const std::string& text)
{
    const auto first = static_cast<unsigned char>(text.empty() ? 'a' : text.front());
    return first < 0x20 || first == 0x7F;
}

}  // namespace

unsigned modifiersOf(std::uint16_t state) noexcept
{
    return (state & XCB_MOD_MASK_SHIFT ? kShift : 0u) |
           (state & XCB_MOD_MASK_CONTROL ? kControl : 0u) | (state & XCB_MOD_MASK_1 ? kAlt : 0u);
}

Keyboard::~Keyboard()
{
    forget();
    xkb_compose_state_unref(compose_);
    xkb_context_unref(context_);
}

void Keyboard::forget() noexcept
{
    xkb_state_unref(state_);
    xkb_keymap_unref(map_);
    state_ = nullptr;
    map_ = nullptr;
}

bool Keyboard::load()
{
    if (state_) return true;
    if (!context_) {
        context_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        if (!context_) return false;
        auto* const table =
            xkb_compose_table_new_from_locale(context_, locale(), XKB_COMPOSE_COMPILE_NO_FLAGS);
        if (table) compose_ = xkb_compose_state_new(table, XKB_COMPOSE_STATE_NO_FLAGS);
        xkb_compose_table_unref(table);
    }
    const bool hasExtension = xkb_x11_setup_xkb_extension(
        xcb_, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
        XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr);
    const auto device = hasExtension ? xkb_x11_get_core_keyboard_device_id(xcb_) : -1;
    if (device >= 0)
        map_ = xkb_x11_keymap_new_from_device(context_, xcb_, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    // A server that cannot tell: the keyboard of the environment.
    if (!map_) map_ = xkb_keymap_new_from_names(context_, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (map_) state_ = xkb_state_new(map_);
    return state_ != nullptr;
}

std::optional<KeyEvent> Keyboard::read(const xcb_key_press_event_t& event)
{
    KeyEvent key;
    key.modifiers = modifiersOf(event.state);
    if (!load()) return key;
    // The event says which modifiers and which of the keyboard's groups were on.
    xkb_state_update_mask(state_, event.state & 0xFFu, 0, 0, 0, 0, (event.state >> 13) & 3u);
    const auto symbol = xkb_state_key_get_one_sym(state_, event.detail);
    key.key = keyOf(symbol);
    const bool isCommand = (key.modifiers & (kControl | kAlt)) != 0;
    if (compose_ && !isCommand && symbol != XKB_KEY_NoSymbol) {
        xkb_compose_state_feed(compose_, symbol);
        switch (xkb_compose_state_get_status(compose_)) {
        case XKB_COMPOSE_COMPOSING:
            return {};
        case XKB_COMPOSE_COMPOSED:
            key.key = Key::None;
            key.text = textOf([&](char* text, std::size_t size) {
                xkb_compose_state_get_utf8(compose_, text, size);
            });
            xkb_compose_state_reset(compose_);
            return key;
        case XKB_COMPOSE_CANCELLED:
            xkb_compose_state_reset(compose_);
            return {};
        case XKB_COMPOSE_NOTHING:
            break;
        }
    }
    key.text = textOf([&](char* text, std::size_t size) {
        if (isCommand)
            xkb_keysym_to_utf8(symbol, text, size);
        else
            xkb_state_key_get_utf8(state_, event.detail, text, size);
    });
    if (isControl(key.text)) key.text.clear();
    return key;
}

}  // namespace quillworks::editors
