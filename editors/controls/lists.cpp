// SPDX-License-Identifier: ISC
#include "editors/controls/lists.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kRadius = 4;

double widthOf(Fonts& fonts, const Theme::Face& face, const std::string& text)
{
    return fonts.width(face.weight, face.size, text);
}

}  // namespace

std::vector<std::string> choicesOf(const EffectModel& model, int parameter)
{
    std::vector<std::string> texts;
    const auto& info = model.info(parameter);
    const int count = std::min(256, static_cast<int>(info.maximum - info.minimum) + 1);
    for (int i = 0; i < count; ++i) {
        const char* text = model.effect().choiceText(parameter, i);
        texts.push_back(text ? std::string(text)
                             : model.text(parameter, info.minimum + static_cast<float>(i)));
    }
    return texts;
}

Segments::Segments(ControlHost& host, const VNK::SkinControl& skin, int parameter,
                   const Rect& bounds)
    : ParameterControl(host, skin, parameter, bounds), texts_(choicesOf(model(), parameter))
{}

double Segments::labelWidth(Fonts& fonts, const Theme& theme) const
{
    double widest = 0;
    for (const auto& text : texts_)
        widest = std::max(widest, widthOf(fonts, theme.face(Type::Button), text));
    const double label = widthOf(fonts, theme.face(Type::Label), title()) + kLabelGap;
    const double room = bounds().w - label;
    return room >= (widest + kSegmentPadding) * static_cast<double>(texts_.size()) ? label : 0;
}

Rect Segments::segment(std::size_t index) const
{
    const double w = (bounds().w - label_) / static_cast<double>(texts_.size());
    return {bounds().x + label_ + w * static_cast<double>(index), bounds().y, w, bounds().h};
}

void Segments::draw(Canvas& canvas)
{
    const auto saved = canvas.save();
    canvas.dim(opacity());
    label_ = labelWidth(canvas.fonts(), canvas.theme());
    const double base = bounds().centre().y + 4;
    if (label_ > 0) canvas.text(Type::Label, title(), bounds().x, base, Align::Left, Color::Text2);
    const Rect all{bounds().x + label_, bounds().y, bounds().w - label_, bounds().h};
    canvas.fillRounded(all, kRadius, Color::Raised);
    canvas.strokeRounded(all, kRadius, 0, Color::Edge);
    const auto chosen = static_cast<std::size_t>(std::max(0.0f, value() - info().minimum));
    for (std::size_t i = 0; i < texts_.size(); ++i) {
        const auto r = segment(i);
        if (i == chosen) {
            canvas.fillRounded(r, kRadius, Ink(Color::Accent, 0.16));
            canvas.strokeRounded(r, kRadius, 0, Color::Accent);
            canvas.fillRounded({r.centre().x - 8, r.bottom() - 5, 16, 2}, 1, Color::Accent);
        } else if (i && i != chosen + 1) {
            canvas.vertical(r.x, r.y + 5, r.bottom() - 5, Color::Edge);
        }
        canvas.text(Type::Button, canvas.fitted(Type::Button, texts_[i], r.w - 4), r.centre().x,
                    i == chosen ? base - 1 : base, Align::Centre,
                    i == chosen ? Color::Accent : Color::Text2);
    }
}

void Segments::pointer(const PointerEvent& event)
{
    if (menuPress(event)) return;
    if (event.action == PointerAction::Press && event.button == 1) {
        pressed_ = -1;
        for (std::size_t i = 0; i < texts_.size(); ++i)
            if (segment(i).contains(event.x, event.y)) pressed_ = static_cast<int>(i);
    }
    if (pressed_ < 0) return;
    if (press_.pointer(event, segment(static_cast<std::size_t>(pressed_))))
        setOnce(info().minimum + static_cast<float>(pressed_));
}

void Segments::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    const double w = (bounds().w - labelWidth(fonts, theme)) / static_cast<double>(texts_.size());
    for (const auto& text : texts_)
        checkText(fonts, theme.face(Type::Button), text, w - 4, problems);
}

void drawField(Canvas& canvas, const Rect& r, const std::string& label, const std::string& text,
               bool isHovered)
{
    canvas.fillRounded(r, kRadius, Color::Well);
    canvas.strokeRounded(r, kRadius, 0, Color::Edge);
    const double base = r.centre().y + 4;
    const double room = r.w - kChoicePadding - kChoiceArrows;
    const double value = canvas.textWidth(Type::Button, text);
    if (value > room) {  // all of it, smaller, before the arrows
        canvas.text(Type::Axis, canvas.fitted(Type::Axis, text, r.w - 8), r.centre().x, base,
                    Align::Centre, Color::Text);
        return;
    }
    const bool hasLabel =
        !label.empty() && canvas.textWidth(Type::Label, label) + kLabelGap + value <= room;
    if (hasLabel)
        canvas.text(Type::Label, label, r.x + kChoicePadding, base, Align::Left, Color::Text2);
    const double right = r.right() - kChoiceArrows;
    const auto shown = canvas.fitted(Type::Button, text, room);
    if (hasLabel)
        canvas.text(Type::Button, shown, right, base, Align::Right, Color::Text);
    else
        canvas.text(Type::Button, shown, r.x + kChoicePadding, base, Align::Left, Color::Text);
    const double x = r.right() - 9, y = r.centre().y;
    const Ink ink = isHovered ? Color::Text : Color::Text3;
    const Point up[] = {{x - 2.5, y - 2}, {x, y - 4.5}, {x + 2.5, y - 2}};
    const Point down[] = {{x - 2.5, y + 2}, {x, y + 4.5}, {x + 2.5, y + 2}};
    canvas.polyline(up, 1.25, ink);
    canvas.polyline(down, 1.25, ink);
}

void Choice::draw(Canvas& canvas)
{
    const auto saved = canvas.save();
    canvas.dim(opacity());
    drawField(canvas, bounds(), title(), describe(), isHovered_);
}

void Choice::hover(bool isOver)
{
    if (isHovered_ == isOver) return;
    isHovered_ = isOver;
    damage();
}

void Choice::pointer(const PointerEvent& event)
{
    if (menuPress(event)) return;
    if (press_.pointer(event, bounds())) open();
}

bool Choice::key(const KeyEvent& event)
{
    if ((event.key == Key::Space || event.key == Key::Enter) && !event.modifiers) {
        open();
        return true;
    }
    return ParameterControl::key(event);
}

void Choice::open()
{
    ListContent list;
    const auto texts = choicesOf(model(), parameter());
    const int chosen = static_cast<int>(value() - info().minimum);
    for (int i = 0; i < static_cast<int>(texts.size()); ++i) {
        ListEntry entry{texts[static_cast<std::size_t>(i)],
                        [this, i] { setOnce(info().minimum + static_cast<float>(i)); }};
        entry.isChecked = i == chosen;
        list.entries.push_back(std::move(entry));
    }
    list.leastWidth = bounds().w;
    list.hasSearch = texts.size() > 24;
    host().openList(bounds(), std::move(list));
}

void Choice::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    const double room = bounds().w - kChoicePadding - kChoiceArrows;
    for (const auto& text : choicesOf(model(), parameter()))
        if (widthOf(fonts, theme.face(Type::Button), text) > room)
            checkText(fonts, theme.face(Type::Axis), text, bounds().w - 8, problems);
}

}  // namespace quillworks::editors
