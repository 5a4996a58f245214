// SPDX-License-Identifier: ISC
#include "editors/text_entry.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kPadding = 6;
constexpr std::size_t kLongest = 4095;  // bytes

bool isRest(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

TextEntry::TextEntry(std::string text, bool isSelected, Clipboard clipboard)
    : text_(std::move(text)),
      caret_(text_.size()),
      anchor_(isSelected ? 0 : text_.size()),
      clipboard_(std::move(clipboard))
{}

std::size_t TextEntry::before(std::size_t at) const noexcept
{
    if (at > 0) --at;
    while (at > 0 && isRest(text_[at])) --at;
    return at;
}

std::size_t TextEntry::after(std::size_t at) const noexcept
{
    if (at < text_.size()) ++at;
    while (at < text_.size() && isRest(text_[at])) ++at;
    return at;
}

void TextEntry::moveTo(std::size_t at, bool extend) noexcept
{
    caret_ = at;
    if (!extend) anchor_ = at;
}

void TextEntry::replaceSelection(const std::string& text)
{
    const auto [from, to] = std::minmax(caret_, anchor_);
    std::string line;
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) line += c;
    if (text_.size() - (to - from) + line.size() > kLongest) return;
    text_.replace(from, to - from, line);
    moveTo(from + line.size(), false);
}

TextEntry::Result TextEntry::key(const KeyEvent& event)
{
    const bool extend = event.modifiers & kShift;
    switch (event.key) {
    case Key::Enter:
        return Result::Take;
    case Key::Escape:
        return Result::Leave;
    case Key::Tab:
        return extend ? Result::TakeAndPrevious : Result::TakeAndNext;
    case Key::Left:
        moveTo(!extend && caret_ != anchor_ ? std::min(caret_, anchor_) : before(caret_), extend);
        return Result::Used;
    case Key::Right:
        moveTo(!extend && caret_ != anchor_ ? std::max(caret_, anchor_) : after(caret_), extend);
        return Result::Used;
    case Key::Home:
        moveTo(0, extend);
        return Result::Used;
    case Key::End:
        moveTo(text_.size(), extend);
        return Result::Used;
    case Key::Backspace:
        if (caret_ == anchor_) anchor_ = before(caret_);
        replaceSelection({});
        return Result::Used;
    case Key::Delete:
        if (caret_ == anchor_) anchor_ = after(caret_);
        replaceSelection({});
        return Result::Used;
    default:
        break;
    }
    if (event.modifiers & kControl) {
        const char letter = event.text.empty() ? '\0' : event.text[0];
        const auto [from, to] = std::minmax(caret_, anchor_);
        switch (letter) {
        case 'a':
            anchor_ = 0;
            caret_ = text_.size();
            return Result::Used;
        case 'x':
        case 'c':
            if (clipboard_.copy && from != to) clipboard_.copy(text_.substr(from, to - from));
            if (letter == 'x') replaceSelection({});
            return Result::Used;
        case 'v':
            if (clipboard_.paste) replaceSelection(clipboard_.paste());
            return Result::Used;
        default:
            return Result::Unused;
        }
    }
    if (event.text.empty() || event.modifiers & kAlt) return Result::Unused;
    replaceSelection(event.text);
    return Result::Used;
}

double TextEntry::start(Canvas& canvas, const Rect& field, Type type, Align align) const
{
    const double width = canvas.textWidth(type, text_);
    const auto inner = field.inset(kPadding, 0);
    if (width > inner.w) {  // the caret stays in sight
        const double at = canvas.textWidth(type, std::string_view(text_).substr(0, caret_));
        return inner.x - std::clamp(at - inner.w, 0.0, width - inner.w);
    }
    if (align == Align::Left) return inner.x;
    return align == Align::Right ? inner.right() - width : inner.centre().x - width / 2;
}

void TextEntry::point(Canvas& canvas, const Rect& field, Type type, Align align, double x,
                      bool extend)
{
    const double left = start(canvas, field, type, align);
    std::size_t best = 0;
    double nearest = 1e9;
    for (std::size_t at = 0;; at = after(at)) {
        const double d =
            std::abs(left + canvas.textWidth(type, std::string_view(text_).substr(0, at)) - x);
        if (d < nearest) {
            nearest = d;
            best = at;
        }
        if (at >= text_.size()) break;
    }
    moveTo(best, extend);
}

void TextEntry::draw(Canvas& canvas, const Rect& field, Type type, Align align, bool isWrong,
                     const std::string& hint) const
{
    const auto saved = canvas.save();
    canvas.fillRounded(field, 4, Color::Well);
    canvas.strokeRounded(field, 4, 1, isWrong ? Color::Warn : Color::Focus);
    canvas.clip(field.inset(2));
    const double left = start(canvas, field, type, align);
    const double base = field.centre().y + 4;
    const auto place = [&](std::size_t at) {
        return left + canvas.textWidth(type, std::string_view(text_).substr(0, at));
    };
    const auto [from, to] = std::minmax(caret_, anchor_);
    if (from != to)
        canvas.fill({place(from), field.y + 4, place(to) - place(from), field.h - 8},
                    Ink(Color::Focus, 0.35));
    if (text_.empty()) canvas.text(type, hint, left, base, Align::Left, Color::Text3);
    canvas.text(type, text_, left, base, Align::Left, isWrong ? Color::Warn : Color::Text);
    canvas.vertical(place(caret_), field.y + 4, field.bottom() - 4, Color::Text);
}

}  // namespace quillworks::editors
