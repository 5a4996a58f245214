// SPDX-License-Identifier: ISC
// A line of text being typed: caret, selection, clipboard.
#pragma once

#include <functional>
#include <string>

#include "editors/canvas.h"

namespace quillworks::editors {

class TextEntry {
public:
    enum class Result { Unused, Used, Take, Leave, TakeAndNext, TakeAndPrevious };
    struct Clipboard {
        std::function<void(const std::string&)> copy;
        std::function<std::string()> paste;
    };

    TextEntry(std::string text, bool isSelected, Clipboard clipboard);

    const std::string& text() const noexcept { return text_; }
    Result key(const KeyEvent& event);
    /// A press or drag at `x` in a field; the caret goes there.
    void point(Canvas& canvas, const Rect& field, Type type, Align align, double x, bool extend);
    void draw(Canvas& canvas, const Rect& field, Type type, Align align, bool isWrong,
              const std::string& hint = {}) const;

private:
    std::size_t before(std::size_t at) const noexcept;
    std::size_t after(std::size_t at) const noexcept;
    void replaceSelection(const std::string& text);
    void moveTo(std::size_t at, bool extend) noexcept;
    double start(Canvas& canvas, const Rect& field, Type type, Align align) const;

    std::string text_;
    std::size_t caret_ = 0, anchor_ = 0;  // bytes
    Clipboard clipboard_;
};

}  // namespace quillworks::editors
