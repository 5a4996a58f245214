// SPDX-License-Identifier: ISC
// Two springs, each a dispersive chain of stretched all-passes in a loop (Abel, Berners, Costello,
// Smith, "Spring reverb emulation using dispersive allpass filters in a waveguide structure", AES
// 2006).
#include <algorithm>

#include "tools/irgen/arithmetic.h"
#include "tools/irgen/recipes.h"

namespace quillworks::irgen {
namespace {

constexpr double kSeconds = 3.2;

struct Spring {
    double delay;       // seconds to the far end and back
    int stages;         // all-passes
    int stretch;        // frames; half the rate over it is where the sound turns back
    double dispersion;  // coefficient of the all-passes
    double reflection;  // at the ends, per round trip
};
constexpr Spring kSprings[] = {{0.0331, 92, 6, 0.61, -0.79}, {0.0412, 104, 6, 0.57, -0.76}};
constexpr double kOtherSpring = 0.35;  // of what is meant for one, in the other

std::vector<double> response(const Spring& spring)
{
    const auto frames = static_cast<std::size_t>(kSeconds * kRate);
    const auto delay = static_cast<std::size_t>(spring.delay * kRate);
    const double turn = kRate / (2 * spring.stretch);
    std::vector<double> loop(frames), heard(frames);
    struct AllPass {
        std::vector<double> in, out;
    };
    const auto stretch = static_cast<std::size_t>(spring.stretch);
    std::vector<AllPass> chain(static_cast<std::size_t>(spring.stages),
                               {std::vector<double>(stretch), std::vector<double>(stretch)});
    Filter low(Filter::LowPass, 0.95 * turn, 0.9, kRate), steep(Filter::LowPass, turn, 0.6, kRate);
    Filter rumble(Filter::HighPass, 70, 0.7, kRate);
    Filter wire(Filter::HighPass, 900, 0.7, kRate);
    for (std::size_t i = 0; i < frames; ++i) {
        const double back = i >= delay ? spring.reflection * loop[i - delay] : 0;
        double x = (i == 0 ? 1 : 0) + back;
        for (auto& stage : chain) {
            const auto place = i % stretch;
            const double y =
                spring.dispersion * x + stage.in[place] - spring.dispersion * stage.out[place];
            stage.in[place] = x;
            stage.out[place] = y;
            x = y;
        }
        x = rumble.next(low.next(x));
        loop[i] = x;
        // The finer winding above the turning point is heard faintly and but for a few rounds.
        heard[i] = steep.next(x) + 0.05 * wire.next(i >= delay / 2 ? loop[i - delay / 2] : 0);
    }
    return heard;
}

}  // namespace

Paths springs()
{
    const auto left = response(kSprings[0]), right = response(kSprings[1]);
    Paths paths(kPaths, std::vector<double>(left.size()));
    for (std::size_t i = 0; i < left.size(); ++i) {
        paths[0][i] = left[i] + kOtherSpring * kOtherSpring * right[i];
        paths[1][i] = kOtherSpring * (left[i] + right[i]);
        paths[2][i] = paths[1][i];
        paths[3][i] = right[i] + kOtherSpring * kOtherSpring * left[i];
    }
    return paths;
}

}  // namespace quillworks::irgen
