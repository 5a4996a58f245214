// SPDX-License-Identifier: ISC
// The skin's own type faces, rasterised in this process: every machine draws the same text.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "editors/theme.h"

namespace quillworks::editors {

/// Coverage of a glyph, 0 .. 255, in device pixels.
struct Glyph {
    const unsigned char* coverage = nullptr;  // null where there is nothing to see
    int width = 0, height = 0, stride = 0;    // bytes
    int left = 0, top = 0;                    // from the pen: right, and up from the base line
};

/// Not shared between views: nothing here may be called on two threads at once.
class Fonts {
public:
    /// Reads the three weights from a folder. Null with one line of reason where one is missing.
    static std::unique_ptr<Fonts> load(const std::string& folder, std::string& reason);
    ~Fonts();
    Fonts(const Fonts&) = delete;
    Fonts& operator=(const Fonts&) = delete;

    /// Width of a text in the unit of `size`. Digits are all as wide as "0", so that a value that
    /// changes stands still; there is no kerning.
    double width(Weight weight, double size, std::string_view text);
    /// Calls `draw(glyph, x)` with the pen's place of every glyph, whole pixels from the start,
    /// which lies at the fraction `offset` (0 .. 1) of a pixel; `size` in device pixels.
    template <class F>
    void layOut(Weight weight, double size, double offset, std::string_view text, F&& draw)
    {
        double pen = offset;
        while (!text.empty()) {
            const auto place = next(weight, size, text);
            const double x = pen + place.shift;
            const int whole = static_cast<int>(x >= 0 ? x : x - 1);
            draw(glyph(weight, size, place.index, x - whole), whole);
            pen += place.advance;
        }
    }
    /// Whether the faces have a glyph for every character of a text.
    bool covers(std::string_view text);

private:
    struct Place {
        unsigned index = 0;  // of the glyph
        double advance = 0, shift = 0;
    };
    Fonts();
    /// Takes one character off the text.
    Place next(Weight weight, double size, std::string_view& text);
    Glyph glyph(Weight weight, double size, unsigned index, double fraction);

    struct Faces;
    std::unique_ptr<Faces> faces_;
};

}  // namespace quillworks::editors
