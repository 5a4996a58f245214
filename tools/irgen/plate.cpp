// SPDX-License-Identifier: ISC
// A thin steel plate, simply supported: its modes, struck at two points and heard at three.
#include <algorithm>
#include <array>
#include <cmath>

#include "tools/irgen/arithmetic.h"
#include "tools/irgen/recipes.h"

namespace quillworks::irgen {
namespace {

constexpr double kLength = 2, kWidth = 1, kThickness = 0.0005;    // metres
constexpr double kYoung = 2e11, kPoisson = 0.3, kDensity = 7850;  // Pa, kg/m^3: steel
constexpr double kLowest = 20, kHighest = 12000;                  // Hz
constexpr double kSeconds = 4.5;
constexpr double kHeard = 66;  // dB that a mode falls before it is left out
constexpr std::size_t kLanes = 8, kBlock = 64;

using Point = std::array<double, 2>;  // of length and width
constexpr Point kDrivers[] = {{0.31, 0.42}, {0.69, 0.57}};
constexpr Point kPickUps[] = {{0.13, 0.71}, {0.88, 0.23}, {0.52, 0.86}};
constexpr double kMiddle = 0.5;  // of the third pick-up, in both outputs

struct Mode {
    double frequency, t60;
    std::array<double, kPaths> gain;
};

double shape(int m, int n, const Point& at)
{
    return sineOfTurns(m * at[0] / 2) * sineOfTurns(n * at[1] / 2);
}

std::vector<Mode> modes()
{
    // sqrt(D / (rho h)), of the bending stiffness D = E h^3 / (12 (1 - nu^2)).
    const double stiffness =
        kThickness * std::sqrt(kYoung / (12 * kDensity * (1 - kPoisson * kPoisson)));
    std::vector<Mode> all;
    for (int m = 1;; ++m) {
        const auto before = all.size();
        for (int n = 1;; ++n) {
            const double waves = m * m / (kLength * kLength) + n * n / (kWidth * kWidth);
            const double f = stiffness * std::numbers::pi * waves / 2;
            if (f > kHighest) break;
            if (f < kLowest) continue;
            Mode mode{f, 1 / (0.2 + (f / 6000) * (f / 6000)), {}};
            const double middle = kMiddle * shape(m, n, kPickUps[2]);
            for (std::size_t p = 0; p < kPaths; ++p)
                mode.gain[p] =
                    shape(m, n, kDrivers[p / 2]) * (shape(m, n, kPickUps[p % 2]) + middle);
            all.push_back(mode);
        }
        if (all.size() == before) break;
    }
    // Those that last as long stand together.
    std::sort(all.begin(), all.end(),
              [](const Mode& a, const Mode& b) { return a.frequency < b.frequency; });
    return all;
}

/// Several modes side by side: y[i] = a y[i - 1] - b y[i - 2], each with its gain in every path.
void add(const Mode* modes, std::size_t count, Paths& paths)
{
    double a[kLanes]{}, b[kLanes]{}, y1[kLanes]{}, y2[kLanes]{}, gain[kPaths][kLanes]{};
    double longest = 0;
    for (std::size_t l = 0; l < count; ++l) {
        const double turns = modes[l].frequency / kRate;
        const double fall = powerOfTen(-3 / (modes[l].t60 * kRate));
        a[l] = 2 * fall * cosineOfTurns(turns);
        b[l] = fall * fall;
        y1[l] = 0;
        y2[l] = -sineOfTurns(turns) / fall;
        for (std::size_t p = 0; p < kPaths; ++p) gain[p][l] = modes[l].gain[p];
        longest = std::max(longest, modes[l].t60);
    }
    const auto frames = paths[0].size();
    const auto end = std::min(frames, static_cast<std::size_t>(longest * kHeard / 60 * kRate));
    for (std::size_t at = 0; at < end; at += kBlock) {
        const auto n = std::min(kBlock, end - at);
        double sum[kPaths][kLanes];
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t l = 0; l < kLanes; ++l) {
                const double y = a[l] * y1[l] - b[l] * y2[l];
                y2[l] = y1[l];
                y1[l] = y;
            }
            for (std::size_t p = 0; p < kPaths; ++p)
                for (std::size_t l = 0; l < kLanes; ++l) sum[p][l] = gain[p][l] * y1[l];
            for (std::size_t p = 0; p < kPaths; ++p)
                paths[p][at + i] += ((sum[p][0] + sum[p][4]) + (sum[p][1] + sum[p][5])) +
                                    ((sum[p][2] + sum[p][6]) + (sum[p][3] + sum[p][7]));
        }
    }
}

}  // namespace

Paths plate()
{
    Paths paths(kPaths, std::vector<double>(static_cast<std::size_t>(kSeconds * kRate)));
    const auto all = modes();
    for (std::size_t i = 0; i < all.size(); i += kLanes)
        add(all.data() + i, std::min(kLanes, all.size() - i), paths);
    return paths;
}

}  // namespace quillworks::irgen
