// SPDX-License-Identifier: ISC
// Lists: a few choices side by side, or a field that opens them.
#pragma once

#include "editors/controls/buttons.h"

namespace quillworks::editors {

/// Two to four choices, of which one is on.
class Segments final : public ParameterControl {
public:
    Segments(ControlHost& host, const VNK::SkinControl& skin, int parameter, const Rect& bounds);

    void draw(Canvas& canvas) override;
    void pointer(const PointerEvent& event) override;
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;

private:
    Rect segment(std::size_t index) const;
    /// Width of the label at the left, 0 where there is no room for it.
    double labelWidth(Fonts& fonts, const Theme& theme) const;
    double label_ = 0;
    std::vector<std::string> texts_;
    Press press_;
    int pressed_ = -1;
};

/// A longer list: a field with the present choice.
class Choice final : public ParameterControl {
public:
    using ParameterControl::ParameterControl;

    void draw(Canvas& canvas) override;
    void pointer(const PointerEvent& event) override;
    void hover(bool isOver) override;
    bool key(const KeyEvent& event) override;
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;

private:
    void open();

    Press press_;
    bool isHovered_ = false;
};

/// The look of a field that opens a list, with a label in front of its text where there is room.
void drawField(Canvas& canvas, const Rect& r, const std::string& label, const std::string& text,
               bool isHovered);

/// All texts of a list parameter.
std::vector<std::string> choicesOf(const EffectModel& model, int parameter);

// Widths: what stands between texts and borders.
inline constexpr double kSegmentPadding = 12, kChoicePadding = 8, kChoiceArrows = 16, kLabelGap = 8;

}  // namespace quillworks::editors
