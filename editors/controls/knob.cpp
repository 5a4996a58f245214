// SPDX-License-Identifier: ISC
#include "editors/controls/knob.h"

#include <cmath>
#include <numbers>

#include "editors/layout.h"

namespace quillworks::editors {
namespace {

// Of the cell of 72 x 92 px; a lower one has a smaller knob between the same texts.
constexpr double kLabel = 11, kValueFoot = 9;  // base lines from the top, from the bottom
constexpr double kRadius = 21, kArcWidth = 3.5, kCap = 15.5;
constexpr double kPointerFrom = 6.5, kPointerTo = 13, kPointerWidth = 2.25;
constexpr double kFirst = -135, kSweep = 270;  // degrees from 12 o'clock

}  // namespace

Rect Knob::valueField() const
{
    return {bounds().x + 2, bounds().bottom() - kValueFoot - 14, bounds().w - 4, 20};
}

void Knob::draw(Canvas& canvas)
{
    const auto saved = canvas.save();
    const auto& cell = bounds();
    const double middle = cell.centre().x;
    canvas.dim(opacity());
    canvas.text(Type::Label, canvas.fitted(Type::Label, title(), cell.w + 4), middle,
                cell.y + kLabel, Align::Centre,
                isHovered() || isHeld() ? Color::Text : Color::Text2);

    const double radius = std::min(kRadius, (cell.h - 34) / 2 - 3);
    const double k = radius / kRadius;
    const Point centre{middle, cell.y + 42 * cell.h / kKnobHeight};
    const double at = position(), from = origin();
    const auto angle = [](double p) { return kFirst + kSweep * p; };
    canvas.arc(centre, radius, angle(0), angle(1), kArcWidth * k, Color::Track);
    if (std::abs(at - from) > 1e-4)
        canvas.arc(centre, radius, angle(from), angle(at), kArcWidth * k, Color::Accent);
    const double cap = kCap * k;
    canvas.circle(centre, cap,
                  Paint(Ink(Color::CapTop), centre.y - cap, Ink(Color::CapBottom), centre.y + cap));
    const double turn = (angle(at) - 90) * std::numbers::pi / 180;
    const auto reach = [&](double r) {
        return Point{centre.x + std::cos(turn) * r * k, centre.y + std::sin(turn) * r * k};
    };
    canvas.line(reach(kPointerFrom), reach(kPointerTo), kPointerWidth * std::max(k, 0.75),
                Color::Text);
    const auto shown = canvas.fitted(Type::Value, describe(), cell.w + 4);
    canvas.text(Type::Value, shown, middle, cell.bottom() - kValueFoot, Align::Centre, Color::Text);
}

void Knob::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    checkText(fonts, theme.face(Type::Label), title(), bounds().w + 4, problems);
    for (const auto& text : sampleTexts())
        checkText(fonts, theme.face(Type::Value), text, bounds().w, problems);
}

}  // namespace quillworks::editors
