// SPDX-License-Identifier: ISC
#include "reverb/tank_geometry.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/random.h"

namespace quillworks {
namespace {

// Longer than a sub-block, so that it is read before it is written.
constexpr int kShortestLine = 65, kShortestAllPass = 33;

bool isPrime(int n) noexcept
{
    if (n % 2 == 0) return n == 2;
    for (int d = 3; d * d <= n; d += 2)
        if (n % d == 0) return false;
    return true;
}

int nextPrime(int n) noexcept
{
    while (!isPrime(n)) ++n;
    return n;
}

}  // namespace

TankGeometry::TankGeometry(double sampleRate, int lines, int steps, bool hasAllPasses,
                           std::uint32_t seed)
    : sampleRate_(sampleRate), lines_(lines), steps_(steps), hasAllPasses_(hasAllPasses)
{
    Lcg random{seed};
    for (int i = 0; i < lines; ++i) {
        ratio_[at(i)] = std::pow(kRatio, (i + 0.25 + 0.25 * random.next()) / lines);
        allPass_[at(i)] = 0.2 * (0.7 + 0.6 * random.next());
    }
    for (int k = 0; k < steps; ++k) {
        Draws& delay = step_[at(k)];
        for (int i = 0; i < lines; ++i) {
            delay[at(i)] = (i + random.next()) / lines * (1 << k);
            sign_[at(k)][at(i)] = random.next() < 0.5 ? -1 : 1;
        }
        for (int i = lines - 1; i > 0; --i)
            std::swap(delay[at(i)], delay[at(static_cast<int>(random.next() * (i + 1)))]);
    }
    for (int p = 0; p < lines / 2; ++p) phase_[at(p)] = random.next();
}

TankDelays TankGeometry::delays(double shortest, double span) const noexcept
{
    TankDelays delays;
    for (int i = 0; i < lines_; ++i) {
        const auto taken = delays.line.begin() + i;
        int length =
            std::max(kShortestLine, static_cast<int>(sampleRate_ * shortest * ratio_[at(i)]));
        while (std::find(delays.line.begin(), taken, length = nextPrime(length)) != taken) ++length;
        *taken = length;
        if (hasAllPasses_)
            delays.allPass[at(i)] =
                nextPrime(std::max(kShortestAllPass, static_cast<int>(length * allPass_[at(i)])));
        for (int k = 0; k < steps_; ++k)
            delays.step[at(k)][at(i)] = static_cast<int>(sampleRate_ * span * step_[at(k)][at(i)]);
    }
    return delays;
}

}  // namespace quillworks
