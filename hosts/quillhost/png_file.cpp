// SPDX-License-Identifier: ISC
#include "png_file.h"

#include <csetjmp>
#include <png.h>
#include <vector>

#include "error.h"
#include "palette.h"

namespace quillhost {
namespace {

constexpr int kStrongest = 9;  // of zlib's levels

struct Rows {
    int width = 0, height = 0, bytesPerPixel = 3;
    std::vector<png_byte> bytes;
    std::vector<png_color> colours;  // of a palette, where there is one
};

extern "C" void appendPng(png_structp png, png_bytep data, std::size_t bytes)
{
    bool isKept = true;
    try {
        static_cast<std::string*>(png_get_io_ptr(png))
            ->append(reinterpret_cast<const char*>(data), bytes);
    } catch (...) {
        isKept = false;
    }
    if (!isKept) png_error(png, "no memory");
}
extern "C" void flushPng(png_structp) {}

/// The library's errors come back here, past nothing that would have to be destroyed.
bool write(png_structp png, png_infop info, const Rows& rows, int filters, std::string& file)
{
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_write_fn(png, &file, appendPng, flushPng);
    png_set_compression_level(png, kStrongest);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, filters);
    const bool hasPalette = !rows.colours.empty();
    png_set_IHDR(png, info, static_cast<png_uint_32>(rows.width),
                 static_cast<png_uint_32>(rows.height), 8,
                 hasPalette ? PNG_COLOR_TYPE_PALETTE : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (hasPalette)
        png_set_PLTE(png, info, rows.colours.data(), static_cast<int>(rows.colours.size()));
    png_write_info(png, info);
    const auto stride = static_cast<std::size_t>(rows.width * rows.bytesPerPixel);
    for (int y = 0; y < rows.height; ++y)
        png_write_row(png, rows.bytes.data() + static_cast<std::size_t>(y) * stride);
    png_write_end(png, nullptr);
    return true;
}

std::string written(const Rows& rows, int filters)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    std::string file;
    const bool isWritten = info && write(png, info, rows, filters, file);
    png_destroy_write_struct(&png, &info);
    if (!isWritten) throw WorkError("the picture cannot be written: there is not enough memory");
    return file;
}

}  // namespace

std::string pngOf(std::span<const std::uint32_t> pixels, int width, int height, int tolerance)
{
    Rows rows{width, height, 3, {}, {}};
    const auto byte = [](std::uint32_t pixel, int shift) {
        return static_cast<png_byte>(pixel >> shift & 0xFF);
    };
    if (const auto palette = paletteOf(pixels, tolerance)) {
        rows.bytesPerPixel = 1;
        for (const auto c : palette->colours)
            rows.colours.push_back({byte(c, 16), byte(c, 8), byte(c, 0)});
        for (const auto pixel : pixels) rows.bytes.push_back(palette->places.at(pixel & 0xFFFFFF));
        return written(rows, PNG_FILTER_NONE);
    }
    for (const auto pixel : pixels)
        for (const int shift : {16, 8, 0}) rows.bytes.push_back(byte(pixel, shift));
    // Which filter fits flat areas and soft edges best differs from picture to picture.
    std::string smallest;
    for (const int filters : {PNG_FILTER_NONE, PNG_FILTER_SUB, PNG_FILTER_UP, PNG_ALL_FILTERS}) {
        auto file = written(rows, filters);
        if (smallest.empty() || file.size() < smallest.size()) smallest = std::move(file);
    }
    return smallest;
}

}  // namespace quillhost
