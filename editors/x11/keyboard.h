// SPDX-License-Identifier: ISC
// What keys mean and type, by the server's keyboard map and the locale's rules for dead keys.
#pragma once

#include <xcb/xcb.h>

#include <memory>
#include <optional>

#include "editors/surface.h"

struct xkb_context;
struct xkb_keymap;
struct xkb_state;
struct xkb_compose_state;

namespace quillworks::editors {

unsigned modifiersOf(std::uint16_t state) noexcept;

class Keyboard {
public:
    explicit Keyboard(xcb_connection_t* xcb) noexcept : xcb_(xcb) {}
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    /// Nothing while an accent waits for its letter. The maps are read with the first key: most
    /// views never see one.
    std::optional<KeyEvent> read(const xcb_key_press_event_t& event);
    /// The map has been changed.
    void forget() noexcept;

private:
    bool load();

    xcb_connection_t* xcb_;
    xkb_context* context_ = nullptr;
    xkb_keymap* map_ = nullptr;
    xkb_state* state_ = nullptr;
    xkb_compose_state* compose_ = nullptr;
};

}  // namespace quillworks::editors
