// SPDX-License-Identifier: ISC
// What a window shows and hands its input to: a picture in memory that knows no window system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quillworks::editors {

/// In device pixels, as everything here.
struct PixelRect {
    int x = 0, y = 0, w = 0, h = 0;

    constexpr int right() const noexcept { return x + w; }
    constexpr int bottom() const noexcept { return y + h; }
    constexpr bool isEmpty() const noexcept { return w < 1 || h < 1; }
    constexpr bool overlaps(const PixelRect& r) const noexcept
    {
        return x < r.right() && r.x < right() && y < r.bottom() && r.y < bottom();
    }
    /// What two have in common; empty where nothing.
    constexpr PixelRect common(const PixelRect& r) const noexcept
    {
        const int left = x > r.x ? x : r.x, top = y > r.y ? y : r.y;
        return {left, top, (right() < r.right() ? right() : r.right()) - left,
                (bottom() < r.bottom() ? bottom() : r.bottom()) - top};
    }
    /// The least that holds both, of which neither is empty.
    constexpr PixelRect united(const PixelRect& r) const noexcept
    {
        const int left = x < r.x ? x : r.x, top = y < r.y ? y : r.y;
        return {left, top, (right() > r.right() ? right() : r.right()) - left,
                (bottom() > r.bottom() ? bottom() : r.bottom()) - top};
    }
};

/// A picture: premultiplied 0xAARRGGBB in the machine's byte order, `stride` bytes a row.
struct Pixels {
    std::uint32_t* data = nullptr;
    int width = 0, height = 0;
    std::ptrdiff_t stride = 0;
};

enum Modifier : unsigned { kShift = 1, kControl = 2, kAlt = 4 };

enum class PointerAction { Press, Release, Move, Leave };

struct PointerEvent {
    PointerAction action{};
    double x = 0, y = 0;
    int button = 0;  // 1 left, 2 middle, 3 right; 0 for moves
    unsigned modifiers = 0;
    double seconds = 0;  // of a clock that never goes back; clicks are counted by it
};

struct WheelEvent {
    double x = 0, y = 0;
    double notches = 0;  // away from the hand is positive
    unsigned modifiers = 0;
    double seconds = 0;
};

enum class Key {
    None,
    Tab,
    Enter,
    Escape,
    Space,
    Delete,
    Backspace,
    Left,
    Right,
    Up,
    Down,
    PageUp,
    PageDown,
    Home,
    End,
    F1,
    F10,
    Menu,
};

struct KeyEvent {
    Key key = Key::None;
    /// What the key types, UTF-8; empty for keys that type nothing. With Control or Alt held the
    /// letter itself, "c" and no control character.
    std::string text;
    unsigned modifiers = 0;
    double seconds = 0;
};

class Surface;

/// What a surface asks of the window around it. Every call may do nothing.
class SurfaceHost {
public:
    /// Another size in pixels is wanted, as after a change of scale.
    virtual void resize(int width, int height) = 0;
    /// A surface above this one with its left upper corner at (x, y) of this one, which may lie
    /// outside: a menu, a list, a tip. Null closes it. A press beside it closes it first, by
    /// Surface::closed() of the popup.
    virtual void showPopup(std::shared_ptr<Surface> popup, int x, int y) = 0;
    /// The keyboard is wanted, or given back to the window that had it.
    virtual void wantKeyboard(bool wanted) = 0;
    virtual void copyText(const std::string& text) = 0;
    virtual std::string pasteText() = 0;

protected:
    ~SurfaceHost() = default;
};

/// One picture with its input. Everything is called on one thread.
class Surface {
public:
    virtual ~Surface() = default;

    virtual void setHost(SurfaceHost* host) = 0;  // null when the window goes
    virtual int width() const = 0;
    virtual int height() const = 0;
    /// Sizes from which a window may choose; equal where the form keeps its proportions and only
    /// its scale changes.
    virtual bool isResizable() const = 0;
    /// The nearest size that is possible to the one given, and then that size.
    virtual void fitSize(int& width, int& height) const = 0;
    virtual void setSize(int width, int height) = 0;
    virtual double scale() const = 0;
    virtual void setScale(double scale) = 0;
    /// Time goes on: meters are read, and what has changed becomes damage. Once before anything is
    /// drawn, then some 30 times a second while the window is seen.
    virtual void tick(double seconds) = 0;
    /// Draws what has changed since the last call into the picture, which still holds what it was
    /// given then (`all` where it does not), and tells where.
    virtual std::vector<PixelRect> draw(const Pixels& picture, bool all) = 0;
    virtual void pointer(const PointerEvent& event) = 0;
    virtual void wheel(const WheelEvent& event) = 0;
    /// False where the key is not used and belongs to the host.
    virtual bool key(const KeyEvent& event) = 0;
    /// The keyboard went elsewhere.
    virtual void keyboardLost() = 0;
    /// A file has been dropped at a place; false where nothing there takes it.
    virtual bool drop(double x, double y, const std::string& path) = 0;
    /// The window closed this popup.
    virtual void closed() = 0;
    /// Of a popup: whether it has the pointer to itself, as menus do. A press beside a menu does
    /// nothing but close it; one beside a tip closes the tip and does what it would without.
    virtual bool takesPointer() const { return true; }
};

}  // namespace quillworks::editors
