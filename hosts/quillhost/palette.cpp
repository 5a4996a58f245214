// SPDX-License-Identifier: ISC
#include "palette.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace quillhost {
namespace {

constexpr std::uint32_t kColour = 0xFFFFFF;

int part(std::uint32_t colour, int shift)
{
    return static_cast<int>(colour >> shift & 0xFF);
}

int brightness(std::uint32_t colour)
{
    return part(colour, 16) + part(colour, 8) + part(colour, 0);
}

int distance(std::uint32_t a, std::uint32_t b)
{
    int most = 0;
    for (const int shift : {16, 8, 0})
        most = std::max(most, std::abs(part(a, shift) - part(b, shift)));
    return most;
}

std::uint32_t between(std::uint32_t a, std::uint32_t b)
{
    std::uint32_t result = 0;
    for (const int shift : {16, 8, 0})
        result |= static_cast<std::uint32_t>((part(a, shift) + part(b, shift)) / 2) << shift;
    return result;
}

/// Colours that stand for all, the first `kept` among them. Edges of letters and curves are ramps
/// between a few colours: from the darkest on, the next is the one that covers it and most others.
std::vector<std::uint32_t> cover(const std::vector<std::uint32_t>& commonest, std::size_t kept,
                                 int tolerance)
{
    kept = std::min(kept, commonest.size());
    std::vector<std::uint32_t> chosen(commonest.begin(),
                                      commonest.begin() + static_cast<std::ptrdiff_t>(kept));
    std::vector<std::uint32_t> left;
    for (const auto colour : commonest)
        if (std::none_of(chosen.begin(), chosen.end(),
                         [&](auto c) { return distance(c, colour) <= tolerance; }))
            left.push_back(colour);
    std::sort(left.begin(), left.end(), [](auto a, auto b) {
        return std::pair(brightness(a), a) < std::pair(brightness(b), b);
    });
    std::vector<bool> isCovered(left.size());
    for (std::size_t first = 0; first < left.size() && chosen.size() <= Palette::kMost; ++first) {
        if (isCovered[first]) continue;
        const auto darkest = left[first];
        std::vector<std::size_t> around;  // what one colour can cover together with it
        for (std::size_t i = first; i < left.size(); ++i) {
            if (brightness(left[i]) > brightness(darkest) + 6 * tolerance) break;
            if (!isCovered[i] && distance(left[i], darkest) <= 2 * tolerance) around.push_back(i);
        }
        std::uint32_t best = darkest;
        std::ptrdiff_t most = 0;
        const auto consider = [&](std::uint32_t colour) {
            const auto count = std::count_if(around.begin(), around.end(), [&](auto i) {
                return distance(left[i], colour) <= tolerance;
            });
            if (count > most) {
                most = count;
                best = colour;
            }
        };
        for (const auto i : around) consider(between(darkest, left[i]));
        for (const auto i : around)
            if (distance(left[i], best) <= tolerance) isCovered[i] = true;
        chosen.push_back(best);
    }
    return chosen;
}

}  // namespace

std::optional<Palette> paletteOf(std::span<const std::uint32_t> pixels, int tolerance)
{
    std::unordered_map<std::uint32_t, std::size_t> counts;
    for (const auto pixel : pixels) ++counts[pixel & kColour];
    if (tolerance == 0 && counts.size() > Palette::kMost) return {};
    std::vector<std::uint32_t> commonest;
    for (const auto& [colour, count] : counts) commonest.push_back(colour);
    std::sort(commonest.begin(), commonest.end(),
              [&](auto a, auto b) { return std::pair(counts[b], a) < std::pair(counts[a], b); });
    Palette palette;
    if (commonest.size() <= Palette::kMost) {
        palette.colours = commonest;
    } else {
        // The more colours stay as they are, the fewer can be shared.
        for (const std::size_t kept : {24u, 16u, 8u, 4u}) {
            palette.colours = cover(commonest, kept, tolerance);
            if (palette.colours.size() <= Palette::kMost) break;
        }
        if (palette.colours.size() > Palette::kMost) return {};
    }
    for (const auto colour : commonest) {
        const auto nearest =
            std::min_element(palette.colours.begin(), palette.colours.end(), [&](auto a, auto b) {
                return distance(a, colour) < distance(b, colour);
            });
        palette.places[colour] = static_cast<std::uint8_t>(nearest - palette.colours.begin());
    }
    return palette;
}

}  // namespace quillhost
