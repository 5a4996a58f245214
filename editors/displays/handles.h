// SPDX-License-Identifier: ISC
// Handles in a display: rings, cells and switches that each move one or two parameters, by pointer,
// wheel or keys, as gestures.
#pragma once

#include <functional>
#include <vector>

#include "editors/displays/bound_display.h"

namespace quillworks::editors {

/// What a handle sets along one direction.
struct Grip {
    int parameter = -1;
    /// Value of a place and the place of a value, in pixels.
    double from = 0, to = 0;    // the values at `start` and `end`
    double start = 0, end = 0;  // px; equal: no place of its own, moved by steps
    bool isLogarithmic = false;
    double snap = 0;  // multiples that a drag keeps to without Shift; 0: none
    /// Where places do not follow the two ends alone: the value at a pixel.
    std::function<double(double)> warped = nullptr;

    bool exists() const noexcept { return parameter >= 0; }
    bool hasPlace() const noexcept { return start != end; }
    double valueAt(double pixel) const;
};

struct Handle {
    Point at;
    Grip x, y;
    int wheel = -1;  // parameter that the wheel moves, else that of y, else that of x
    bool isVisible = true;
    Rect cell;              // grasped anywhere within instead of at a ring
    Rect value;             // where its value is written: a click there types
    bool isSwitch = false;  // of x, pressed and released within its cell
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
    void setFocusOn(int handle) noexcept { focus_ = handle; }

    /// Whether the display has to be drawn anew is told by `changed`.
    bool pointer(const PointerEvent& event, bool& changed);
    /// Parameter that a wheel at a place turns; -1: none.
    int wheelAt(double x, double y) const;
    /// Arrows move, Page Up and Down by more, Home and End go on to the next and the last handle,
    /// Delete is the default, Space and Enter press a switch.
    bool key(const KeyEvent& event, bool& changed);
    void setFocus(bool has) noexcept { hasFocus_ = has; }
    /// Those that are seen.
    std::vector<Grasp> grasps() const;
    int focusedGrasp() const;
    void focusGrasp(int grasp);
    /// The rings; cells are drawn by their display.
    void draw(Canvas& canvas) const;
    /// What the ring under the pointer sets, over it and within `area`.
    void drawLabel(Canvas& canvas, const Rect& area) const;

private:
    int nearest(double x, double y) const;
    void press(int handle, const PointerEvent& event);
    void grasp();
    void drag(const PointerEvent& event);
    void release(const PointerEvent& event);
    void reset(const Handle& handle);
    void toggle(const Handle& handle);
    void goOn(int by);
    const Handle& handle(int i) const { return handles_[static_cast<std::size_t>(i)]; }
    template <class F> void both(const Handle& handle, F&& f)
    {
        if (handle.x.exists()) f(handle.x, true);
        if (handle.y.exists() && handle.y.parameter != handle.x.parameter) f(handle.y, false);
    }

    EffectModel& model_;
    std::vector<Handle> handles_;
    int held_ = -1, hovered_ = -1, focus_ = 0;
    bool hasFocus_ = false;
    bool isGrasped_ = false;       // the gesture has begun
    Point last_;                   // of the pointer
    Point wanted_;                 // where the handle would be without its limits
    float stepX_ = 0, stepY_ = 0;  // positions wanted of grips without a place
    double pressed_ = -1;          // second of the last press, for the second click
    int clicked_ = -1;
};

/// A display with handles.
class HandleDisplay : public BoundDisplay {
public:
    bool pointer(const PointerEvent& event) override;
    bool wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    bool takesFocus() const override { return !handles_.all().empty(); }
    void setFocus(bool has) override;
    std::vector<Grasp> grasps() override;
    int focusedGrasp() const override { return handles_.focusedGrasp(); }
    void focusGrasp(int grasp) override;

protected:
    HandleDisplay(const VNK::SkinBox& box, EffectModel& model)
        : BoundDisplay(box, model), handles_(model)
    {}
    /// Lays the handles where their values are now.
    virtual void place() {}
    Handles& handles() noexcept { return handles_; }
    const Handles& handles() const noexcept { return handles_; }

private:
    Handles handles_;
};

}  // namespace quillworks::editors
