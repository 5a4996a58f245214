// SPDX-License-Identifier: ISC
// Where the controls of a panel go.
#pragma once

#include <span>
#include <vector>

#include "editors/geometry.h"

namespace quillworks::editors {

inline constexpr double kUnit = 8;         // px of the skin's grid
inline constexpr double kRowHeight = 24;   // of buttons, fields, sliders: the least hand's target
inline constexpr double kKnobWidth = 72;   // of a knob's cell
inline constexpr double kKnobHeight = 92;  // with label and value
inline constexpr double kLowestKnob = 58;  // below that a knob cannot be read
inline constexpr double kPanelTitle = 29;  // px from a panel's top to what stands in it

/// What a control asks for.
struct LayoutItem {
    bool isKnob = false;
    double least = kRowHeight;  // px wide, without its label where that may be left out
    double good = kRowHeight;   // with everything
    double most = 160;
    int under = -1;  // item beneath which it stands, if it can
};

/// Places of the items in a panel of this size from its left upper corner: knobs left to right in
/// cells, the rest in rows below or beside them, as wide as they need. Never overlapping; what
/// cannot have its least width gets less.
std::vector<Rect> layOutPanel(double width, double height, bool hasTitle,
                              std::span<const LayoutItem> items);

}  // namespace quillworks::editors
