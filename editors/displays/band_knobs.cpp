// SPDX-License-Identifier: ISC
#include "editors/displays/band_knobs.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace quillworks::editors {
namespace {

constexpr double kTitles = 76, kHead = 32, kPad = 8;  // px
constexpr double kValueWidth = 68;                    // of the text that is typed into

}  // namespace

BandKnobs::BandKnobs(const VNK::SkinBox& box, EffectModel& model)
    : HandleDisplay(box, model), bands_(value("bands")), choice_(attribute("choice"))
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
    const int most = rows_.empty() ? 0 : rows_[0].values.count();
    handles().all().resize(static_cast<std::size_t>(most * perBand()));
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

int BandKnobs::indexOf(const Cell& cell) const
{
    return cell.band * perBand() + cell.row + static_cast<int>(switches_.size());
}

BandKnobs::Cell BandKnobs::cellOf(int handle) const
{
    return {handle % perBand() - static_cast<int>(switches_.size()), handle / perBand()};
}

void BandKnobs::place()
{
    auto& all = handles().all();
    for (std::size_t i = 0; i < all.size(); ++i) {
        auto& handle = all[i];
        const auto cell = cellOf(static_cast<int>(i));
        const int p = parameterOf(cell);
        handle.isVisible = cell.band < bands() && p >= 0;
        handle.cell = rectOf(cell);
        handle.at = handle.cell.centre();
        handle.x.parameter = handle.y.parameter = p;
        handle.isSwitch = cell.row < 0;
        const double w = std::min(kValueWidth, 0.6 * handle.cell.w);
        if (!handle.isSwitch)
            handle.value = {handle.at.x - w / 2, handle.cell.y, w, handle.cell.h - 8};
    }
}

void BandKnobs::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {double(bands()), double(model().chosen(choice_))});
    for (const auto* list : {&rows_, &switches_})
        for (const auto& row : *list)
            for (int b = 0; b < bands(); ++b) numbers.push_back(row.values[b]);
}

void BandKnobs::draw(Canvas& canvas)
{
    place();
    for (std::size_t r = 0; r < rows_.size(); ++r)
        canvas.text(Type::Label, rows_[r].title, kPad + 4,
                    rectOf({static_cast<int>(r), 0}).centre().y + 4, Align::Left, Color::Text2);
    for (int b = 0; b < bands(); ++b) {
        canvas.text(Type::PanelTitle, std::to_string(b + 1), rectOf({0, b}).x + 4, 21, Align::Left,
                    !choice_.empty() && model().chosen(choice_) == b ? Color::Accent
                                                                     : Color::Text2);
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
    if (handles().isFocused(handles().focus()))
        canvas.strokeRounded(rectOf(cellOf(handles().focus())).inset(-2), 5, 2, Color::Focus);
}

void BandKnobs::choose()
{
    if (!choice_.empty()) model().choose(choice_, cellOf(handles().focus()).band);
}

bool BandKnobs::pointer(const PointerEvent& event)
{
    const bool used = HandleDisplay::pointer(event);
    if (used && event.action == PointerAction::Press) choose();
    return used;
}

bool BandKnobs::key(const KeyEvent& event)
{
    const int first = -static_cast<int>(switches_.size()),
              last = static_cast<int>(rows_.size()) - 1;
    auto cell = cellOf(handles().focus());
    const double by = event.modifiers & kShift ? 0.001 : 0.01;
    const auto goTo = [&](int row, int band) {
        cell = {std::clamp(row, first, last), std::clamp(band, 0, bands() - 1)};
        handles().setFocusOn(indexOf(cell));
        choose();
        damage();
        return true;
    };
    switch (event.key) {
    case Key::Left:
        return goTo(cell.row, cell.band - 1);
    case Key::Right:
        return goTo(cell.row, cell.band + 1);
    case Key::Up:
        return goTo(cell.row - 1, cell.band);
    case Key::Down:
        return goTo(cell.row + 1, cell.band);
    case Key::PageUp:
        return cell.row >= 0 && step(parameterOf(cell), by);
    case Key::PageDown:
        return cell.row >= 0 && step(parameterOf(cell), -by);
    default:
        return HandleDisplay::key(event);
    }
}

std::string BandKnobs::describe() const
{
    std::string text = "Bands";
    for (int b = 0; b < bands(); ++b) {
        text += "; " + std::to_string(b + 1);
        for (const auto& row : switches_)
            text += ", " + row.values.title(b) + " " + row.values.text(b);
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
