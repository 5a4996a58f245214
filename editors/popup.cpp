// SPDX-License-Identifier: ISC
#include "editors/popup.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kRow = 24, kPad = 4, kSearch = 32, kSide = 28;
constexpr int kMostRows = 18;
constexpr double kTipWidth = 280, kTipPad = 10, kTipLine = 16;

std::string lowered(std::string text)
{
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

int Popup::width() const
{
    return static_cast<int>(std::ceil(w_ * look_.scale));
}

int Popup::height() const
{
    return static_cast<int>(std::ceil(h_ * look_.scale));
}

void Popup::fitSize(int& w, int& h) const
{
    w = width();
    h = height();
}

void Popup::setScale(double scale)
{
    look_.scale = scale;
    damage();
}

double Popup::textWidth(Type type, const std::string& text) const
{
    const auto& face = look_.theme->face(type);
    return look_.fonts->width(face.weight, face.size, withMinus(text));
}

std::vector<PixelRect> Popup::draw(const Pixels& picture, bool all)
{
    if (!isDamaged_ && !all) return {};
    isDamaged_ = false;
    Canvas canvas(picture, look_.scale, *look_.fonts, *look_.theme);
    // A window of its own has square corners; what lies outside of it would be black.
    canvas.fill({0, 0, w_ + 1, h_ + 1}, Color::Panel);
    paint(canvas);
    canvas.strokeRounded({0, 0, width() / look_.scale, height() / look_.scale}, 0, 0, Color::Edge);
    return {{0, 0, picture.width, picture.height}};
}

ListPopup::ListPopup(Look look, ListContent content, Done done)
    : Popup(std::move(look)), content_(std::move(content)), done_(std::move(done))
{
    double widest = content_.leastWidth - 2 * kSide;
    for (const auto& e : content_.entries)
        widest = std::max(widest, textWidth(Type::Button, e.text));
    if (content_.hasSearch)
        search_.emplace("", false,
                        TextEntry::Clipboard{
                            [this](const std::string& text) {
                                if (surfaceHost()) surfaceHost()->copyText(text);
                            },
                            [this] { return surfaceHost() ? surfaceHost()->pasteText() : ""; }});
    narrow();
    visible_ = std::min(rowCount(), kMostRows);
    setContentSize(std::ceil(std::min(widest, 420.0)) + 2 * kSide,
                   visible_ * kRow + 2 * kPad + (search_ ? kSearch : 0));
    for (int i = 0; i < rowCount(); ++i)
        if (entry(i).isChecked && canChoose(i)) {
            moveTo(i);
            break;
        }
}

void ListPopup::narrow()
{
    rows_.clear();
    const auto wanted = search_ ? lowered(search_->text()) : std::string();
    for (std::size_t i = 0; i < content_.entries.size(); ++i) {
        const auto& e = content_.entries[i];
        // Headings only where all is shown.
        if (wanted.empty() || (e.choose && lowered(e.text).find(wanted) != std::string::npos))
            rows_.push_back(i);
    }
    first_ = 0;
    current_ = -1;
    if (!wanted.empty() && !rows_.empty()) current_ = 0;
    damage();
}

double ListPopup::rowTop(int row) const
{
    return kPad + (search_ ? kSearch : 0) + (row - first_) * kRow;
}

int ListPopup::rowAt(double x, double y) const
{
    if (x < 0 || x >= contentWidth()) return -1;
    const double top = rowTop(first_);
    if (y < top || y >= top + visible_ * kRow) return -1;
    const int row = first_ + static_cast<int>((y - top) / kRow);
    return row < rowCount() ? row : -1;
}

bool ListPopup::canChoose(int row) const
{
    return row >= 0 && row < rowCount() && entry(row).choose && entry(row).isEnabled;
}

void ListPopup::paint(Canvas& canvas)
{
    if (search_)
        search_->draw(canvas, {kPad, kPad, contentWidth() - 2 * kPad, kSearch - kPad}, Type::Button,
                      Align::Left, false, "Search");
    for (int row = first_; row < std::min(rowCount(), first_ + visible_); ++row) {
        const auto& e = entry(row);
        const Rect r{1, rowTop(row), contentWidth() - 2, kRow};
        if (row == current_ && canChoose(row)) canvas.fill(r, Color::Raised);
        if (e.startsGroup && row > first_)
            canvas.horizontal(r.x + 8, r.right() - 8, r.y, Color::Edge);
        const double base = r.centre().y + 4;
        const bool isHeading = !e.choose;
        const auto color = isHeading      ? Color::Text3
                           : !e.isEnabled ? Color::Text3
                           : e.isChecked  ? Color::Accent
                                          : Color::Text;
        if (e.isChecked) {
            const Point tick[] = {{11, base - 4}, {14, base - 1}, {19, base - 8}};
            canvas.polyline(tick, 1.5, Color::Accent);
        }
        canvas.text(isHeading ? Type::PanelTitle : Type::Button,
                    canvas.fitted(Type::Button, e.text, contentWidth() - 2 * kSide + 12), kSide,
                    base, Align::Left, color);
        if (e.opensList) {
            const double x = r.right() - 14;
            const Point arrow[] = {{x, base - 8}, {x + 4, base - 4}, {x, base}};
            canvas.polyline(arrow, 1.25, Color::Text2);
        }
    }
    if (rowCount() > visible_) {
        const double track = visible_ * kRow, part = track * visible_ / rowCount();
        const double at = rowTop(first_) + (track - part) * first_ / (rowCount() - visible_);
        canvas.fillRounded({contentWidth() - 6, at, 3, part}, 1.5, Color::Track);
    }
}

void ListPopup::moveTo(int row)
{
    if (row == current_) return;
    current_ = row;
    if (row >= 0) {
        first_ = std::min(first_, row);
        first_ = std::max(first_, row - visible_ + 1);
    }
    damage();
}

void ListPopup::step(int by)
{
    const int direction = by < 0 ? -1 : 1;
    int row = std::clamp(current_ + by, 0, rowCount() - 1);
    while (row >= 0 && row < rowCount() && !canChoose(row)) row += direction;
    if (canChoose(row)) moveTo(row);
}

void ListPopup::pointer(const PointerEvent& event)
{
    const int row = rowAt(event.x / scale(), event.y / scale());
    if (event.action == PointerAction::Move) moveTo(canChoose(row) ? row : -1);
    if (event.action == PointerAction::Leave) moveTo(-1);
    if (event.action == PointerAction::Press) wasPressed_ = true;
    // The release of the press that has opened the list chooses only what it was dragged to.
    if (event.action == PointerAction::Release && (wasPressed_ || row == current_) &&
        canChoose(row))
        choose(row);
}

void ListPopup::wheel(const WheelEvent& event)
{
    const int by = static_cast<int>(std::lround(event.notches * 3));
    first_ = std::clamp(first_ - by, 0, std::max(0, rowCount() - visible_));
    damage();
}

bool ListPopup::key(const KeyEvent& event)
{
    switch (event.key) {
    case Key::Escape:
        choose(-1);
        return true;
    case Key::Up:
        step(-1);
        return true;
    case Key::Down:
        step(1);
        return true;
    case Key::PageUp:
        step(-visible_);
        return true;
    case Key::PageDown:
        step(visible_);
        return true;
    case Key::Enter:
        choose(current_);
        return true;
    case Key::Tab:
        return true;
    default:
        break;
    }
    if (search_) {
        const auto before = search_->text();
        const bool isUsed = search_->key(event) != TextEntry::Result::Unused;
        if (search_->text() != before) narrow();
        if (isUsed) damage();
        return isUsed;
    }
    if (event.text.empty() || event.modifiers & (kControl | kAlt)) return false;
    const auto wanted = lowered(event.text);
    for (int i = 1; i <= rowCount(); ++i) {
        const int row = (current_ + i + rowCount()) % rowCount();
        if (!canChoose(row) || lowered(entry(row).text).rfind(wanted, 0) != 0) continue;
        moveTo(row);
        break;
    }
    return true;
}

void ListPopup::choose(int row)
{
    auto chosen = canChoose(row) ? entry(row).choose : nullptr;
    // The list may go with this call.
    if (auto done = std::exchange(done_, nullptr)) done(std::move(chosen));
}

void ListPopup::closed()
{
    choose(-1);
}

TipPopup::TipPopup(Look look, const Tip& tip) : Popup(std::move(look)), title_(tip.title)
{
    const double room = kTipWidth - 2 * kTipPad;
    const auto wrap = [&](const std::string& text, std::vector<std::string>& lines) {
        std::string line;
        for (std::size_t from = 0; from < text.size();) {
            const auto end = std::min(text.find(' ', from), text.size());
            const auto word = text.substr(from, end - from);
            const auto longer = line.empty() ? word : line + " " + word;
            if (!line.empty() && textWidth(Type::Label, longer) > room) {
                lines.push_back(line);
                line = word;
            } else {
                line = longer;
            }
            from = end + 1;
        }
        if (!line.empty()) lines.push_back(line);
    };
    wrap(tip.help, help_);
    for (const auto& line : tip.lines) wrap(line, lines_);
    double widest = textWidth(Type::PanelTitle, title_);
    for (const auto* lines : {&help_, &lines_})
        for (const auto& line : *lines) widest = std::max(widest, textWidth(Type::Label, line));
    const auto count = static_cast<double>(help_.size() + lines_.size());
    setContentSize(std::ceil(widest) + 2 * kTipPad,
                   2 * kTipPad + 14 + kTipLine * count + (lines_.empty() ? 0 : 4));
}

void TipPopup::paint(Canvas& canvas)
{
    double y = kTipPad + 10;
    canvas.text(Type::PanelTitle, title_, kTipPad, y, Align::Left, Color::Text);
    for (const auto& line : help_)
        canvas.text(Type::Label, line, kTipPad, y += kTipLine, Align::Left, Color::Text2);
    if (!lines_.empty()) y += 4;
    for (const auto& line : lines_)
        canvas.text(Type::Label, line, kTipPad, y += kTipLine, Align::Left, Color::Text3);
}

}  // namespace quillworks::editors
