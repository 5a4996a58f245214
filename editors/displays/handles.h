// SPDX-License-Identifier: ISC
// Grips in a display: each moves one or two parameters, by pointer, wheel or keys, as gestures.
#pragma once

#include <optional>
#include <vector>

#include "editors/canvas.h"
#include "editors/effect_model.h"

namespace quillworks::editors {

/// What a grip sets along one direction.
struct Grip {
    int parameter = -1;
    /// Value of a place and the place of a value, in pixels.
    double from = 0, to = 0;    // the values at `start` and `end`
    double start = 0, end = 0;  // px; equal: no place of its own, moved by steps
    bool isLogarithmic = false;
    bool exists() const noexcept { return parameter >= 0; }
    bool hasPlace() const noexcept { return start != end; }
    double valueAt(double pixel) const noexcept;
};

struct Handle {
    Point at;
    Grip x, y;
    int wheel = -1;  // parameter that the wheel moves, else that of y, else that of x
    bool isVisible = true;
};

/// The display lays its handles anew whenever it likes; their number and order stay.
class Handles {
public:
    static constexpr double kReach = 14;  // px

    explicit Handles(EffectModel& model) : model_(model) {}

    std::vector<Handle>& all() noexcept { return handles_; }
    const std::vector<Handle>& all() const noexcept { return handles_; }
    bool isHeld(int handle) const noexcept { return held_ == handle; }
    bool isFocused(int handle) const noexcept { return hasFocus_ && focus_ == handle; }
    /// Under the pointer, else held; -1 for none.
    int hovered() const noexcept { return held_ >= 0 ? held_ : hovered_; }
    int focus() const noexcept { return focus_; }

    /// Whether the display has to be drawn anew is told by `changed`.
    bool pointer(const PointerEvent& event, bool& changed);
    bool wheel(const WheelEvent& event);
    /// Arrows move, Page Up and Down by more, Home and End go on to the next and the last handle,
    /// Delete is the default.
    bool key(const KeyEvent& event, bool& changed);
    void setFocus(bool has) noexcept { hasFocus_ = has; }
    void draw(Canvas& canvas) const;

private:
    int nearest(double x, double y) const;
    void grasp(int handle, const PointerEvent& event);
    void drag(const PointerEvent& event);
    void release();
    void reset(const Handle& handle);
    template <class F> void both(const Handle& handle, F&& f)
    {
        if (handle.x.exists()) f(handle.x, true);
        if (handle.y.exists() && handle.y.parameter != handle.x.parameter) f(handle.y, false);
    }

    EffectModel& model_;
    std::vector<Handle> handles_;
    int held_ = -1, hovered_ = -1, focus_ = 0;
    bool hasFocus_ = false;
    Point last_;                   // of the pointer
    Point wanted_;                 // where the handle would be without its limits
    float stepX_ = 0, stepY_ = 0;  // positions wanted of grips without a place
    double pressed_ = -1;          // second of the last press, for the second click
    int clicked_ = -1;
};

}  // namespace quillworks::editors
