// SPDX-License-Identifier: ISC
// A display of a form: a curve, meters, a history. It knows a skin's box and what the effect's
// values are, not which effect it is.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "editors/canvas.h"
#include "editors/effect_model.h"

namespace quillworks::editors {

/// What a hand moves in a display: by pointer, wheel and keys, or by typing it.
struct Grasp {
    Rect at;  // a press within takes it
    /// Parameters that it moves sideways and up, and that the wheel turns; -1: none. The same one
    /// twice: right or up is more.
    int across = -1, up = -1, wheel = -1;
    bool isSwitch = false;  // pressed, not moved
    Rect value;             // where its value is written: a click there types another
    /// Each once, in the order in which they are typed.
    std::vector<int> parameters() const;
};

/// Places are in logical pixels from its own left upper corner. The well behind it, and its rim,
/// are the view's.
class Display {
public:
    virtual ~Display() = default;

    /// Its size, and device pixels per logical one: before anything else, and when it changes.
    void setSize(double width, double height, double scale);
    double width() const noexcept { return width_; }
    double height() const noexcept { return height_; }
    double scale() const noexcept { return scale_; }

    /// What depends on size, colours and texts alone: grids, axes. Drawn once beneath the rest.
    virtual void drawStatic(Canvas&) {}
    /// The rest. The canvas is clipped to what is damaged; where a picture of its own is scrolled
    /// it has only to be copied here.
    virtual void draw(Canvas& canvas) = 0;
    /// Draws what has been told by moved(), each pixel from the canvas' ground on: the picture
    /// holds what was drawn before. What lies over it is damaged where that has been painted over.
    virtual void drawMoved(Canvas&) {}
    /// A part of which draw() sets every pixel, from its left upper corner on the nearest border
    /// of pixels: what is beneath need not be there.
    virtual Rect covered() const { return {}; }
    /// Reads its values after the model has; what looks different then is told by damage(), and
    /// nothing where nothing does.
    virtual void tick(double seconds) = 0;

    /// Presses are given to the display that they lie in; while a button is held, moves and the
    /// release too, wherever they are. False where it has no use for it.
    virtual bool pointer(const PointerEvent&) { return false; }
    virtual bool wheel(const WheelEvent&) { return false; }
    /// While it has the focus.
    virtual bool key(const KeyEvent&) { return false; }
    /// Whether Tab stops here: where it has handles.
    virtual bool takesFocus() const { return false; }
    virtual void setFocus(bool) {}
    /// All that can be moved now, and which of them the keys move; -1: none.
    virtual std::vector<Grasp> grasps() { return {}; }
    virtual int focusedGrasp() const { return -1; }
    virtual void focusGrasp(int) {}

    /// For the list of texts of a form: what it shows now, in a line.
    virtual std::string describe() const = 0;
    /// For the tip at a place; empty: none.
    virtual std::string tip(double, double) const { return {}; }

    /// What has changed since the last call; parts may overlap.
    std::vector<Rect> takeDamage() noexcept;
    /// The same, where what drawStatic() draws has changed.
    bool takeStaticDamage() noexcept;
    /// The same, where drawMoved() draws it.
    std::vector<Rect> takeMoved() noexcept;

protected:
    /// After setSize().
    virtual void sized() {}
    void damage(const Rect& rect)
    {
        if (!rect.isEmpty()) damage_.push_back(rect);
    }
    void damage() { damage_ = {{0, 0, width_, height_}}; }
    /// What draw() draws has changed, but of its pixels only some that drawMoved() will find.
    void moved(const Rect& rect)
    {
        if (!rect.isEmpty()) moved_.push_back(rect);
    }
    void damageStatic()
    {
        isStaticDamaged_ = true;
        damage();
    }

private:
    double width_ = 0, height_ = 0, scale_ = 1;
    std::vector<Rect> damage_, moved_;
    bool isStaticDamaged_ = false;
};

/// Null for a kind that does not exist. The box and the model must outlive the display.
std::unique_ptr<Display> makeDisplay(const VNK::SkinBox& box, EffectModel& model);

}  // namespace quillworks::editors
