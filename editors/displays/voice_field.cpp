// SPDX-License-Identifier: ISC
#include "editors/displays/voice_field.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {

void VoiceField::sized()
{
    plot_.area = {34, 12, width() - 46, height() - 36};
    plot_.x = {-100, 100, false};
}

int VoiceField::voices() const
{
    return std::clamp(static_cast<int>(voices_.get(delays_.count())), 0, delays_.count());
}

void VoiceField::ticked(double)
{
    double most = 0;
    for (int i = 0; i < voices(); ++i) most = std::max(most, delays_[i]);
    while (longest_ < 100 && most > longest_) longest_ = longest_ < 50 ? 50 : 100;
    plot_.y = {longest_, 0, false};  // later is deeper
}

void VoiceField::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {double(voices()), spread_.get(0)});
    for (int i = 0; i < voices(); ++i)
        numbers.push_back(std::round(delays_[i] / longest_ * plot_.area.h * scale() * 2));
}

void VoiceField::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(longest_);
}

void VoiceField::drawStatic(Canvas& canvas)
{
    plot_.y = {longest_, 0, false};
    const Tick sides[] = {
        {-100, "L", false}, {-50, "", false}, {0, "C", true}, {50, "", false}, {100, "R", false}};
    drawAcross(canvas, plot_, sides, !isSmall());
    drawUp(canvas, plot_, linearTicks(plot_.y, 4, false),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
    if (!isSmall())
        canvas.text(Type::Axis, "ms", plot_.area.x + 6, plot_.area.y + 13, Align::Left,
                    Color::Text3);
}

void VoiceField::draw(Canvas& canvas)
{
    const int count = voices();
    canvas.circle({plot_.across(0), plot_.up(0)}, 4, Color::Output);  // the sound itself
    for (int i = 0; i < count; ++i) {
        const double delay = delays_[i];
        if (!(delay > 0)) continue;
        const double pan = count > 1 ? spread_.get(0) * (2.0 * i / (count - 1) - 1) : 0;
        const Point at{plot_.across(std::clamp(pan, -100.0, 100.0)), plot_.upWithin(delay)};
        canvas.line({at.x, plot_.up(0)}, at, 1, Ink(Color::Accent, 0.25));
        drawDot(canvas, at, Color::Accent);
    }
}

std::string VoiceField::describe() const
{
    std::string text =
        std::to_string(voices()) + " voices, " + spread_.title() + " " + spread_.text();
    for (int i = 0; i < voices(); ++i) text += ", " + delays_.text(i);
    return text;
}

}  // namespace quillworks::editors
