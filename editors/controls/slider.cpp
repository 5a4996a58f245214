// SPDX-License-Identifier: ISC
#include "editors/controls/slider.h"

#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kTextLine = 11, kTrackLine = 19;  // px from the top
constexpr double kTrack = 3, kThumb = 4.5, kHeldThumb = 5.5;
constexpr double kBetween = 6;  // label and value

}  // namespace

Rect Slider::valueField() const
{
    const double w = std::min(bounds().w, std::max(56.0, bounds().w / 2));
    return {bounds().right() - w, bounds().y - 2, w, 16};
}

void Slider::draw(Canvas& canvas)
{
    const auto saved = canvas.save();
    const auto& r = bounds();
    canvas.dim(opacity());
    const auto shown = describe();
    const bool isNarrow = r.w < kNarrow;
    const auto label = isNarrow ? Type::Axis : Type::Label;
    const auto value = isNarrow ? Type::Label : Type::Value;
    const double room = r.w - canvas.textWidth(value, shown) - (isNarrow ? kNarrowGap : kBetween);
    canvas.text(label, canvas.fitted(label, title(), room), r.x, r.y + kTextLine, Align::Left,
                isHovered() || isHeld() ? Color::Text : Color::Text2);
    canvas.text(value, shown, r.right(), r.y + kTextLine, Align::Right, Color::Text);
    const double left = r.x + kThumb, length = r.w - 2 * kThumb, y = r.y + kTrackLine;
    const double at = left + position() * length, from = left + origin() * length;
    canvas.fillRounded({r.x, y - kTrack / 2, r.w, kTrack}, kTrack / 2, Color::Track);
    canvas.fillRounded({std::min(at, from), y - kTrack / 2, std::abs(at - from), kTrack},
                       kTrack / 2, Color::Accent);
    canvas.circle({at, y}, isHeld() ? kHeldThumb : kThumb, Color::Text);
}

void Slider::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    const bool isNarrow = bounds().w < kNarrow;
    const auto& face = theme.face(isNarrow ? Type::Axis : Type::Label);
    const double label = fonts.width(face.weight, face.size, title());
    for (const auto& text : sampleTexts())
        checkText(fonts, theme.face(isNarrow ? Type::Label : Type::Value), text,
                  bounds().w - label - (isNarrow ? kNarrowGap : kBetween), problems);
}

}  // namespace quillworks::editors
