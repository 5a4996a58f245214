// SPDX-License-Identifier: ISC
// A display in its well, as a part of a view.
#pragma once

#include "editors/control.h"
#include "editors/display.h"

namespace quillworks::editors {

class DisplayControl final : public Control {
public:
    /// A kind that does not exist is an empty well with its name.
    DisplayControl(ControlHost& host, const VNK::SkinBox& box, const Rect& bounds);

    /// Device pixels per logical one.
    void setScale(double scale);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    void drawMoved(Canvas& canvas) override;
    void tick(double seconds) override;
    void pointer(const PointerEvent& event) override;
    bool wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    void setFocus(bool hasFocus) override;
    bool takesFocus() const override { return display_ && display_->takesFocus(); }
    Rect covered() const override
    {
        return display_ ? display_->covered().moved(bounds().x, bounds().y) : Rect{};
    }
    Tip tip() const override;
    std::string describe() const override { return display_ ? display_->describe() : ""; }
    void hoverAt(double x, double y) override { pointed_ = {x, y}; }
    /// Null for a kind that does not exist.
    Display* display() const noexcept { return display_.get(); }

private:
    void passDamage();
    /// Of what can be moved the one at a place of the display; -1: none.
    int graspAt(double x, double y) const;
    /// Opens a field for the n-th of its parameters.
    void enterValue(int grasp, std::size_t n, const std::string& text = {});
    void openMenu(int grasp, Point at);
    /// A click on a written value, and the right button.
    bool pressValue(const PointerEvent& own);

    std::unique_ptr<Display> display_;
    Point pointed_;
    Point pressed_;
    bool isOnValue_ = false;  // the button went down there and has not moved since
};

}  // namespace quillworks::editors
