// SPDX-License-Identifier: ISC
// The loudspeaker of a table radio: a cone in a box on a table, heard with both ears.
#include <array>

#include "tools/irgen/arithmetic.h"
#include "tools/irgen/recipes.h"

namespace quillworks::irgen {
namespace {

constexpr double kSeconds = 0.12;

struct Resonance {
    double frequency, q, gain;
};
/// Of box, cone and grille.
constexpr Resonance kResonances[] = {{430, 4, 0.5},   {870, 6, -0.35},  {1320, 9, 0.4},
                                     {2150, 7, 0.45}, {2900, 11, -0.5}, {3600, 9, 0.3}};
struct Echo {
    double seconds, gain;
};
/// Off the table and the wall behind, for each ear.
constexpr std::array<Echo, 4> kEchoes[] = {
    {{{0, 1}, {0.00052, 0.45}, {0.0031, 0.22}, {0.0094, 0.11}}},
    {{{0.00008, 0.97}, {0.00061, 0.42}, {0.0037, 0.24}, {0.0103, 0.1}}}};

std::vector<double> heardAt(const std::array<Echo, 4>& echoes)
{
    const auto frames = static_cast<std::size_t>(kSeconds * kRate);
    std::vector<double> y(frames);
    for (const auto& echo : echoes)
        y[static_cast<std::size_t>(echo.seconds * kRate + 0.5)] += echo.gain;
    Filter bottom(Filter::HighPass, 310, 1.4, kRate), box(Filter::HighPass, 180, 0.7, kRate);
    Filter top(Filter::LowPass, 4600, 1.1, kRate), cone(Filter::LowPass, 6200, 0.6, kRate);
    std::vector<Filter> ringing;
    for (const auto& r : kResonances)
        ringing.emplace_back(Filter::BandPass, r.frequency, r.q, kRate);
    for (auto& x : y) {
        const double through = cone.next(top.next(box.next(bottom.next(x))));
        x = through;
        for (std::size_t i = 0; i < ringing.size(); ++i)
            x += kResonances[i].gain * ringing[i].next(through);
    }
    return y;
}

}  // namespace

Paths speaker()
{
    // One loudspeaker: left and right go into it alike.
    const auto left = heardAt(kEchoes[0]), right = heardAt(kEchoes[1]);
    return {left, right, left, right};
}

}  // namespace quillworks::irgen
