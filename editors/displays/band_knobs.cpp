// SPDX-License-Identifier: ISC
#include "editors/displays/band_knobs.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace quillworks::editors {
namespace {

constexpr double kTitles = 76, kHead = 32, kPad = 8;  // px
constexpr double kFullRange = 200, kDoubleClick = 0.4;

}  // namespace

BandKnobs::BandKnobs(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model), bands_(value("bands"))
{
    struct Name {
        const char *attribute, *title;
    };
    for (const auto& [name, title] :
         {Name{"thresholds", "Threshold"}, Name{"ratios", "Ratio"},
          Name{"lowThresholds", "Low thresh"}, Name{"lowRatios", "Low ratio"},
          Name{"ranges", "Range"}, Name{"attacks", "Attack"}, Name{"releases", "Release"},
          Name{"gains", "Gain"}})
        if (!attribute(name).empty()) rows_.push_back({title, values(name)});
    for (const auto& [name, title] : {Name{"on", "On"}, Name{"solo", "S"}, Name{"mute", "M"}})
        if (!attribute(name).empty()) switches_.push_back({title, values(name)});
}

int BandKnobs::bands() const
{
    const int most = rows_.empty() ? 1 : std::max(1, rows_[0].values.count());
    const int p = bands_.parameter();
    return p < 0 ? most : std::clamp(std::atoi(model().text(p).c_str()), 1, most);
}

double BandKnobs::columnWidth() const
{
    return (width() - kTitles - kPad) / bands();
}

double BandKnobs::rowHeight() const
{
    return (height() - kHead - kPad) / std::max(1.0, static_cast<double>(rows_.size()));
}

Rect BandKnobs::rectOf(const Cell& cell) const
{
    const double x = kTitles + cell.band * columnWidth(), w = columnWidth() - 8;
    if (cell.row >= 0) return {x, kHead + cell.row * rowHeight() + 2, w, rowHeight() - 4};
    const auto count = static_cast<double>(switches_.size());
    const double part = (w - 22) / std::max(1.0, count);
    return {x + 22 + (-1 - cell.row) * part, 5, part - 3, 24};
}

int BandKnobs::parameterOf(const Cell& cell) const
{
    const bool isSwitch = cell.row < 0;
    const auto row = static_cast<std::size_t>(isSwitch ? -1 - cell.row : cell.row);
    const auto& list = isSwitch ? switches_ : rows_;
    return row < list.size() ? list[row].values.parameter(cell.band) : -1;
}

bool BandKnobs::find(double x, double y, Cell& cell) const
{
    for (int band = 0; band < bands(); ++band)
        for (int row = -static_cast<int>(switches_.size()); row < static_cast<int>(rows_.size());
             ++row)
            if (rectOf({row, band}).contains(x, y)) {
                cell = {row, band};
                return parameterOf(cell) >= 0;
            }
    return false;
}

void BandKnobs::look(std::vector<double>& numbers) const
{
    numbers.push_back(bands());
    for (const auto* list : {&rows_, &switches_})
        for (const auto& row : *list)
            for (int b = 0; b < bands(); ++b) numbers.push_back(row.values[b]);
}

void BandKnobs::draw(Canvas& canvas)
{
    for (std::size_t r = 0; r < rows_.size(); ++r)
        canvas.text(Type::Label, rows_[r].title, kPad + 4,
                    rectOf({static_cast<int>(r), 0}).centre().y + 4, Align::Left, Color::Text2);
    for (int b = 0; b < bands(); ++b) {
        canvas.text(Type::PanelTitle, std::to_string(b + 1), rectOf({0, b}).x + 4, 21, Align::Left,
                    Color::Text2);
        for (std::size_t s = 0; s < switches_.size(); ++s) {
            const auto rect = rectOf({-1 - static_cast<int>(s), b});
            const bool isOn = switches_[s].values[b] > 0.5;
            canvas.fillRounded(rect, 4, isOn ? Ink(Color::Accent, 0.16) : Ink(Color::Raised));
            canvas.strokeRounded(rect, 4, 0, isOn ? Color::Accent : Color::Edge);
            canvas.text(Type::Button, switches_[s].title, rect.centre().x, rect.centre().y + 3,
                        Align::Centre, isOn ? Color::Accent : Color::Text2);
            if (isOn)
                canvas.fillRounded({rect.centre().x - 8, rect.bottom() - 4, 16, 2}, 1,
                                   Color::Accent);
        }
        const bool isIn = switches_.empty() || switches_[0].values[b] > 0.5;
        for (std::size_t r = 0; r < rows_.size(); ++r) {
            const Cell cell{static_cast<int>(r), b};
            const auto rect = rectOf(cell);
            const int p = parameterOf(cell);
            if (p < 0) continue;
            const auto saved = canvas.save();
            if (!isIn) canvas.dim(0.6);
            canvas.fillRounded(rect, 4, Ink(Color::Raised, 0.5));
            // From where the value's own origin lies to where it is.
            const auto& info = model().info(p);
            const double origin = double(model().effect().toNormalized(p, info.origin));
            const double at = double(model().position(p));
            const double from = std::min(origin, at), to = std::max(origin, at);
            canvas.fill({rect.x + from * rect.w, rect.bottom() - 3, (to - from) * rect.w, 3},
                        Color::Accent);
            canvas.fill({rect.x + at * (rect.w - 2), rect.bottom() - 7, 2, 7}, Color::Text);
            canvas.text(Type::Value, model().text(p), rect.centre().x, rect.centre().y + 2,
                        Align::Centre, Color::Text);
        }
    }
    if (hasFocus_) canvas.strokeRounded(rectOf(chosen_).inset(-2), 5, 2, Color::Focus);
}

void BandKnobs::press(const Cell& cell)
{
    const int p = parameterOf(cell);
    if (p >= 0) model().set(p, model().value(p) > 0.5f ? 0 : 1);
}

bool BandKnobs::pointer(const PointerEvent& event)
{
    switch (event.action) {
    case PointerAction::Press: {
        Cell cell;
        if (event.button != 1 || held_ >= 0 || !find(event.x, event.y, cell)) return false;
        chosen_ = cell;
        damage();
        if (cell.row < 0) {
            press(cell);
            return true;
        }
        const int p = parameterOf(cell);
        if (event.seconds - pressed_ < kDoubleClick) {
            pressed_ = -1;
            model().set(p, model().info(p).defaultValue);
            return true;
        }
        pressed_ = event.seconds;
        held_ = p;
        last_ = event.x - event.y;
        position_ = model().position(p);
        model().begin(p);
        return true;
    }
    case PointerAction::Move: {
        if (held_ < 0) return false;
        const double now = event.x - event.y;  // right or up is more
        if (now != last_) pressed_ = -1;
        const double pace = event.modifiers & kShift ? 0.1 : 1;
        position_ = std::clamp(position_ + static_cast<float>((now - last_) * pace / kFullRange),
                               0.0f, 1.0f);
        last_ = now;
        model().setPosition(held_, position_);
        return true;
    }
    case PointerAction::Release:
        if (held_ < 0 || event.button != 1) return false;
        model().end(held_);
        held_ = -1;
        return true;
    default:
        return false;
    }
}

bool BandKnobs::wheel(const WheelEvent& event)
{
    Cell cell;
    if (!find(event.x, event.y, cell) || cell.row < 0) return false;
    const int p = parameterOf(cell);
    const double step = event.modifiers & kShift ? 0.002 : 0.02;
    model().setPosition(p, model().position(p) + static_cast<float>(step * event.notches));
    return true;
}

bool BandKnobs::key(const KeyEvent& event)
{
    const int first = -static_cast<int>(switches_.size()),
              last = static_cast<int>(rows_.size()) - 1;
    const int p = parameterOf(chosen_);
    const auto change = [&](float by) {
        if (p < 0 || chosen_.row < 0) return false;
        model().setPosition(p, model().position(p) + by);
        return true;
    };
    const float step = event.modifiers & kShift ? 0.001f : 0.01f;
    damage();
    switch (event.key) {
    case Key::Left:
        chosen_.band = std::max(0, chosen_.band - 1);
        return true;
    case Key::Right:
        chosen_.band = std::min(bands() - 1, chosen_.band + 1);
        return true;
    case Key::Up:
        chosen_.row = std::max(first, chosen_.row - 1);
        return true;
    case Key::Down:
        chosen_.row = std::min(last, chosen_.row + 1);
        return true;
    case Key::PageUp:
        return change(step);
    case Key::PageDown:
        return change(-step);
    case Key::Space:
    case Key::Enter:
        if (chosen_.row >= 0) return false;
        press(chosen_);
        return true;
    case Key::Delete:
        if (p >= 0) model().set(p, model().info(p).defaultValue);
        return p >= 0;
    default:
        return false;
    }
}

void BandKnobs::setFocus(bool has)
{
    hasFocus_ = has;
    damage();
}

std::string BandKnobs::describe() const
{
    std::string text = "Bands";
    for (int b = 0; b < bands(); ++b) {
        text += "; " + std::to_string(b + 1);
        for (const auto& row : rows_) text += ", " + row.title + " " + row.values.text(b);
    }
    return text;
}

std::string BandKnobs::tip(double x, double y) const
{
    Cell cell;
    if (!find(x, y, cell)) return {};
    const auto& info = model().info(parameterOf(cell));
    return std::string(info.title) + ". " + info.help;
}

}  // namespace quillworks::editors
