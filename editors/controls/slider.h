// SPDX-License-Identifier: ISC
// A parameter as a track with label and value above it, for where a knob is too high.
#pragma once

#include "editors/controls/parameter_control.h"

namespace quillworks::editors {

class Slider final : public DragControl {
public:
    using DragControl::DragControl;

    void draw(Canvas& canvas) override;
    Rect valueField() const override;
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;

    /// Where there is less room than this its texts are smaller.
    static constexpr double kNarrow = 100, kNarrowGap = 2;
};

}  // namespace quillworks::editors
