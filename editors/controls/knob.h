// SPDX-License-Identifier: ISC
// A parameter as a knob with its label and value.
#pragma once

#include "editors/controls/parameter_control.h"

namespace quillworks::editors {

class Knob final : public DragControl {
public:
    using DragControl::DragControl;

    void draw(Canvas& canvas) override;
    Rect valueField() const override;
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;
};

}  // namespace quillworks::editors
