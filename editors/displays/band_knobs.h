// SPDX-License-Identifier: ISC
// Display of the settings of every band, a column each: values to drag, switches to press.
#pragma once

#include <string>
#include <vector>

#include "editors/displays/handles.h"

namespace quillworks::editors {

class BandKnobs final : public HandleDisplay {
public:
    BandKnobs(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas&) override {}
    void draw(Canvas& canvas) override;
    bool pointer(const PointerEvent& event) override;
    /// Arrows go from cell to cell, Page Up and Down change the value, Space presses.
    bool key(const KeyEvent& event) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void place() override;
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
    void choose();
    /// Of its handle in the list: band by band, the switches before the values.
    int indexOf(const Cell& cell) const;
    Cell cellOf(int handle) const;
    int perBand() const { return static_cast<int>(switches_.size() + rows_.size()); }

    Value bands_;
    std::string choice_;  // name under which the band of the focused cell is chosen
    std::vector<Row> rows_, switches_;
};

}  // namespace quillworks::editors
