// SPDX-License-Identifier: ISC
#include "editors/fonts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <unordered_map>
#include <vector>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include "vnk/file.h"

namespace quillworks::editors {
namespace {

constexpr const char* kFiles[] = {"Inter-Regular.otf", "Inter-Medium.otf", "Inter-SemiBold.otf"};
constexpr int kFractions = 4;  // places of a glyph within a pixel

/// One character off the front of UTF-8; a byte that is none stands for itself.
char32_t takeCharacter(std::string_view& text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    char32_t c = length == 1 ? first : first & (0x7Fu >> length);
    if (first >= 0x80 && (first < 0xC0 || length > text.size())) {
        text.remove_prefix(1);
        return 0xFFFD;
    }
    for (std::size_t i = 1; i < length; ++i) c = c << 6 | (byte(i) & 0x3F);
    text.remove_prefix(length);
    return c;
}

constexpr std::size_t kLargest = 16u << 20;  // bytes of a font

struct Bitmap {
    std::vector<unsigned char> coverage;
    Glyph glyph;
};

}  // namespace

struct Fonts::Faces {
    struct Face {
        std::string file;  // its content
        FT_Face face = nullptr;
        std::array<unsigned, 128> ascii{};              // glyph of each character
        double digit = 0;                               // advance of "0", of an em
        FT_F26Dot6 size = 0;                            // set at present
        std::unordered_map<unsigned, double> advances;  // of an em
        std::unordered_map<std::uint64_t, Bitmap> bitmaps;
    };
    FT_Library library = nullptr;
    std::array<Face, 3> faces;

    Face& operator[](Weight weight) { return faces[static_cast<std::size_t>(weight)]; }

    static double advance(Face& f, unsigned index)
    {
        const auto [at, isNew] = f.advances.try_emplace(index, 0.0);
        if (isNew && !FT_Load_Glyph(f.face, index, FT_LOAD_NO_SCALE))
            at->second =
                static_cast<double>(f.face->glyph->metrics.horiAdvance) / f.face->units_per_EM;
        return at->second;
    }
};

Fonts::Fonts() : faces_(std::make_unique<Faces>()) {}

Fonts::~Fonts()
{
    if (faces_->library) FT_Done_FreeType(faces_->library);  // and the faces with it
}

std::unique_ptr<Fonts> Fonts::load(const std::string& folder, std::string& reason)
{
    std::unique_ptr<Fonts> fonts(new Fonts);
    auto& all = *fonts->faces_;
    if (FT_Init_FreeType(&all.library)) {
        reason = "FreeType cannot be started";
        return nullptr;
    }
    for (std::size_t i = 0; i < all.faces.size(); ++i) {
        auto& f = all.faces[i];
        const std::string file = folder + "/" + kFiles[i];
        // Read, where FreeType would map it: an installation that is written over in place must not
        // take the host with it.
        if (!VNK::readFile(file.c_str(), kLargest, f.file, reason)) return nullptr;
        const auto* const bytes = reinterpret_cast<const FT_Byte*>(f.file.data());
        if (FT_New_Memory_Face(all.library, bytes, static_cast<FT_Long>(f.file.size()), 0,
                               &f.face) ||
            !FT_IS_SCALABLE(f.face)) {
            reason = file + " is no font";
            return nullptr;
        }
        for (unsigned c = 0; c < f.ascii.size(); ++c) f.ascii[c] = FT_Get_Char_Index(f.face, c);
        f.digit = Faces::advance(f, f.ascii['0']);
    }
    return fonts;
}

Fonts::Place Fonts::next(Weight weight, double size, std::string_view& text)
{
    auto& f = (*faces_)[weight];
    const char32_t c = takeCharacter(text);
    const unsigned index = c < f.ascii.size() ? f.ascii[c] : FT_Get_Char_Index(f.face, c);
    const double own = Faces::advance(f, index);
    if (c < '0' || c > '9') return {index, own * size, 0};
    return {index, f.digit * size, (f.digit - own) / 2 * size};
}

double Fonts::width(Weight weight, double size, std::string_view text)
{
    double sum = 0;
    while (!text.empty()) sum += next(weight, size, text).advance;
    return sum;
}

bool Fonts::covers(std::string_view text)
{
    while (!text.empty())
        if (!next(Weight::Regular, 1, text).index) return false;
    return true;
}

Glyph Fonts::glyph(Weight weight, double size, unsigned index, double fraction)
{
    auto& f = (*faces_)[weight];
    const auto height = static_cast<FT_F26Dot6>(std::lround(size * 64));
    const int step = static_cast<int>(fraction * kFractions);
    const auto key = std::uint64_t(height) << 32 | std::uint64_t(index) << 8 | std::uint64_t(step);
    const auto [at, isNew] = f.bitmaps.try_emplace(key);
    Bitmap& bitmap = at->second;
    if (!isNew) return bitmap.glyph;
    if (f.size != height) {
        FT_Set_Char_Size(f.face, 0, height, 72, 72);
        f.size = height;
    }
    // Hints would make the text of each scale another one.
    if (FT_Load_Glyph(f.face, index, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP)) return {};
    auto* const slot = f.face->glyph;
    FT_Outline_Translate(&slot->outline, step * 64 / kFractions, 0);
    if (FT_Render_Glyph(slot, FT_RENDER_MODE_NORMAL)) return {};
    const auto& picture = slot->bitmap;
    const int width = static_cast<int>(picture.width), rows = static_cast<int>(picture.rows);
    if (width < 1 || rows < 1) return {};
    const int stride = (width + 3) & ~3;  // as Cairo wants it
    bitmap.coverage.assign(static_cast<std::size_t>(stride) * static_cast<std::size_t>(rows), 0);
    for (int y = 0; y < rows; ++y)
        std::copy_n(picture.buffer + y * picture.pitch, width,
                    bitmap.coverage.data() + static_cast<std::ptrdiff_t>(y) * stride);
    return bitmap.glyph = {bitmap.coverage.data(), width,           rows, stride,
                           slot->bitmap_left,      slot->bitmap_top};
}

}  // namespace quillworks::editors
