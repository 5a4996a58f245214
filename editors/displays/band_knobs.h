// SPDX-License-Identifier: ISC
// Display of the settings of every band, a column each: values to drag, switches to press.
#pragma once

#include <string>
#include <vector>

#include "editors/displays/bound_display.h"

namespace quillworks::editors {

class BandKnobs final : public BoundDisplay {
public:
    BandKnobs(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas&) override {}
    void draw(Canvas& canvas) override;
    bool pointer(const PointerEvent& event) override;
    bool wheel(const WheelEvent& event) override;
    /// Arrows go from cell to cell, Page Up and Down change the value, Space presses.
    bool key(const KeyEvent& event) override;
    bool takesFocus() const override { return true; }
    void setFocus(bool has) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void look(std::vector<double>& numbers) const override;

private:
    /// Rows of values; above them one of switches.
    struct Row {
        std::string title;
        Values values;
    };
    struct Cell {
        int row = 0, band = 0;  // row -1 - n: the n-th switch
        bool operator==(const Cell&) const = default;
    };
    int bands() const;
    double columnWidth() const;
    double rowHeight() const;
    Rect rectOf(const Cell& cell) const;
    int parameterOf(const Cell& cell) const;
    bool find(double x, double y, Cell& cell) const;
    void press(const Cell& cell);

    Value bands_;
    std::vector<Row> rows_, switches_;
    int held_ = -1;  // parameter
    double last_ = 0, pressed_ = -1;
    float position_ = 0;
    Cell chosen_{};
    bool hasFocus_ = false;
};

}  // namespace quillworks::editors
