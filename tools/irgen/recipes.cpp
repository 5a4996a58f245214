// SPDX-License-Identifier: ISC
#include "tools/irgen/recipes.h"

#include <algorithm>
#include <cmath>

#include "tools/irgen/arithmetic.h"
#include "tools/irgen/room.h"

namespace quillworks::irgen {
namespace {

constexpr double kPeak = -1;  // dB
constexpr double kSilence = 0x1p-24;
constexpr double kFade = 0.02;  // seconds

// clang-format off
constexpr Room kBooth        {{2.7, 2.2, 2.3},  1.0, {0.25, 0.25, 0.22, 0.20, 0.18, 0.16, 0.15, 0.14, 0.12, 0.10}, 101};
constexpr Room kWoodRoom     {{8.1, 5.9, 3.4},  2.2, {0.70, 0.70, 0.65, 0.62, 0.60, 0.58, 0.55, 0.50, 0.42, 0.30}, 202};
constexpr Room kLiveChamber  {{6.3, 4.9, 3.9},  2.6, {1.50, 1.50, 1.60, 1.70, 1.80, 1.80, 1.70, 1.40, 1.00, 0.60}, 303};
constexpr Room kConcertHall  {{42, 22, 17},      14, {2.60, 2.60, 2.40, 2.25, 2.10, 2.00, 1.80, 1.50, 1.00, 0.60}, 404};
constexpr Room kOpera        {{31, 24, 18},      12, {1.75, 1.75, 1.65, 1.55, 1.45, 1.35, 1.20, 1.00, 0.75, 0.50}, 505};
constexpr Room kStoneChurch  {{32, 14, 14},      11, {3.80, 3.80, 3.70, 3.60, 3.50, 3.30, 2.80, 2.10, 1.30, 0.70}, 606};
constexpr Room kCathedral    {{92, 31, 28},      20, {8.20, 8.20, 7.90, 7.60, 7.20, 6.60, 5.20, 3.40, 1.80, 0.80}, 707};
constexpr Room kCarPark      {{61, 35, 2.6},     12, {3.10, 3.10, 3.30, 3.50, 3.30, 2.80, 2.20, 1.60, 1.00, 0.60}, 808};
constexpr Room kStairwell    {{5.2, 3.1, 21},   2.8, {2.50, 2.50, 2.70, 2.80, 2.80, 2.60, 2.30, 1.80, 1.20, 0.70}, 909};

constexpr Recipe kRecipes[] = {
    {"Booth",         [] { return room(kBooth); }},
    {"Wood Room",     [] { return room(kWoodRoom); }},
    {"Live Chamber",  [] { return room(kLiveChamber); }},
    {"Concert Hall",  [] { return room(kConcertHall); }},
    {"Opera",         [] { return room(kOpera); }},
    {"Stone Church",  [] { return room(kStoneChurch); }},
    {"Cathedral",     [] { return room(kCathedral); }},
    {"Car Park",      [] { return room(kCarPark); }},
    {"Stairwell",     [] { return room(kStairwell); }},
    {"Steel Plate",   plate},
    {"Twin Spring",   springs},
    {"Small Speaker", speaker},
};
// clang-format on

}  // namespace

std::span<const Recipe> recipes()
{
    return kRecipes;
}

VNK::Sound<double> made(const Recipe& recipe)
{
    auto paths = recipe.make();
    double peak = 0;
    for (const auto& x : paths)
        for (const double v : x) peak = std::max(peak, std::abs(v));
    const double gain = powerOfTen(kPeak / 20) / peak;
    std::size_t end = 0;
    for (auto& x : paths)
        for (std::size_t i = 0; i < x.size(); ++i) {
            x[i] *= gain;
            if (std::abs(x[i]) >= kSilence) end = std::max(end, i + 1);
        }
    const auto fade = std::min(end, static_cast<std::size_t>(kFade * kRate));
    for (auto& x : paths) {
        x.resize(end);
        for (std::size_t i = 0; i < fade; ++i) {
            const double c = cosineOfTurns((static_cast<double>(i) + 0.5) / double(fade) / 4);
            x[end - fade + i] *= c * c;
        }
    }
    return {kRate, std::move(paths), static_cast<std::int64_t>(end)};
}

}  // namespace quillworks::irgen
