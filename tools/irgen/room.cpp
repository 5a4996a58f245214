// SPDX-License-Identifier: ISC
// The first 80 ms are reflections by image sources (Allen and Berkley 1979), what follows is noise
// that decays by octaves (Moorer 1979).
#include "tools/irgen/room.h"

#include <algorithm>
#include <cmath>

#include "tools/irgen/arithmetic.h"
#include "tools/irgen/recipes.h"

namespace quillworks::irgen {
namespace {

constexpr double kSoundSpeed = 343;               // m/s
constexpr double kJoin = 0.08, kJoinHalf = 0.02;  // seconds
constexpr double kCosine55 = 0.573576436351046, kSine55 = 0.819152044288992;
constexpr double kCosine30 = 0.866025403784439, kSine30 = 0.5;
constexpr double kBetweenEars = 0.17;  // metres
constexpr double kShelfCorner = 3000;  // Hz
constexpr double kButterworth4[] = {0.541196100146197, 1.306562964876377};
constexpr double kButterworth8[] = {0.509795579104159, 0.601344886935045, 0.899976223136416,
                                    2.562915447741506};

using Point = std::array<double, 3>;

/// Where an image lies along one axis.
double imageAt(int i, double extent, double source)
{
    return i * extent + (i % 2 == 0 ? source : extent - source);
}

std::size_t frame(double seconds)
{
    return static_cast<std::size_t>(std::floor(seconds * kRate + 0.5));
}

/// A wall: `low` times the sound below the corner, `high` times above.
class Wall {
public:
    Wall(double low, double high) : low_(low), high_(high)
    {
        const double half = kShelfCorner / (2 * kRate);
        const double g = sineOfTurns(half) / cosineOfTurns(half);
        share_ = g / (1 + g);
    }
    double next(double x)
    {
        const double v = (x - state_) * share_, low = v + state_;
        state_ = low + v;
        return low_ * low + high_ * (x - low);
    }

private:
    double low_, high_, share_, state_ = 0;
};

/// One microphone's reflections of one source.
std::vector<double> reflections(const Room& room, bool isRightSource, bool isRightMicrophone,
                                double longest)
{
    const auto& [length, width, height] = room.size;
    // x from the wall in front to the one behind, y from right to left.
    const Point ear = {0.62 * length, 0.47 * width, std::min(1.6, 0.4 * height)};
    const double side = isRightSource ? -1 : 1, hearing = isRightMicrophone ? -1 : 1;
    const Point source = {
        ear[0] - room.distance * kCosine30,
        std::clamp(ear[1] + side * room.distance * kSine30, 0.05 * width, 0.95 * width), ear[2]};
    const double reach = longest * kSoundSpeed + room.distance;
    int most[3];
    for (std::size_t a = 0; a < 3; ++a)
        most[a] = static_cast<int>(std::ceil(reach / room.size[a])) + 1;

    const auto frames = frame(longest);
    std::vector<std::vector<double>> byOrder;
    Lcg random{room.seed + 17 * (2 * isRightSource + isRightMicrophone)};
    for (int i = -most[0]; i <= most[0]; ++i)
        for (int j = -most[1]; j <= most[1]; ++j)
            for (int k = -most[2]; k <= most[2]; ++k) {
                const Point way = {imageAt(i, length, source[0]) - ear[0],
                                   imageAt(j, width, source[1]) - ear[1],
                                   imageAt(k, height, source[2]) - ear[2]};
                const double far = std::sqrt(way[0] * way[0] + way[1] * way[1] + way[2] * way[2]);
                // A wall is not quite flat: without that the box would ring as one.
                const auto order =
                    static_cast<std::size_t>(std::abs(i) + std::abs(j) + std::abs(k));
                const double rough = (random.next() - 0.5) * std::min(0.3, 0.04 * double(order));
                const double ahead = -way[0] / far, left = way[1] / far;
                const double later = -hearing * left * kBetweenEars / 2 + kBetweenEars / 2 + rough;
                const auto at = (far - room.distance + later) / kSoundSpeed;
                if (at < 0 || frame(at) >= frames) continue;
                const double gain = 0.5 + 0.5 * (ahead * kCosine55 + hearing * left * kSine55);
                if (byOrder.size() <= order) byOrder.resize(order + 1);
                if (byOrder[order].empty()) byOrder[order].resize(frames);
                byOrder[order][frame(at)] += gain * room.distance / far;
            }

    // Each sound meets as many walls as its order says: the highest first, all through the last.
    const double volume = length * width * height;
    const double surface = 2 * (length * width + width * height + height * length);
    const double path = 4 * volume / surface;
    const auto reflected = [&](double t60) {
        return std::min(0.98, powerOfTen(-3 * path / (kSoundSpeed * t60)));
    };
    std::vector<double> sum(frames);
    for (auto order = byOrder.size(); order-- > 0;) {
        if (!byOrder[order].empty())
            for (std::size_t i = 0; i < frames; ++i) sum[i] += byOrder[order][i];
        if (order == 0) break;
        Wall wall(reflected(room.t60[5]), reflected(room.t60[8]));
        for (auto& x : sum) x = wall.next(x);
    }
    return sum;
}

/// Noise of equal power per Hz at its beginning, each octave with its own decay.
std::vector<double> decayingNoise(const Room& room, std::uint32_t seed, std::size_t frames)
{
    std::vector<double> sum(frames);
    for (int octave = 0; octave < kOctaves; ++octave) {
        const double centre = 31.25 * (1 << octave);
        const double lower = octave == 0 ? 22 : centre / std::numbers::sqrt2;
        std::vector<Filter> filters;
        for (const double q : kButterworth4)
            filters.emplace_back(Filter::HighPass, lower, q, kRate);
        // Steeper above, where what lasts longer would outlive the octave itself.
        for (const double q : kButterworth8)
            if (octave < kOctaves - 1)
                filters.emplace_back(Filter::LowPass, centre * std::numbers::sqrt2, q, kRate);
        const double t60 = room.t60[static_cast<std::size_t>(octave)];
        const double fall = powerOfTen(-3 / (t60 * kRate));
        Noise noise(seed + 1000 * static_cast<std::uint32_t>(octave));
        double level = 1;
        // Below -100 dB nothing is heard of it.
        const auto end = std::min(frames, frame(t60 * 5 / 3));
        for (std::size_t i = 0; i < end; ++i) {
            double x = noise.next();
            for (auto& filter : filters) x = filter.next(x);
            sum[i] += level * x;
            level *= fall;
        }
    }
    return sum;
}

double energy(const Paths& paths, std::size_t from, std::size_t to)
{
    double sum = 0;
    for (const auto& x : paths)
        for (std::size_t i = from; i < to; ++i) sum += x[i] * x[i];
    return sum;
}

}  // namespace

Paths room(const Room& room)
{
    const auto from = frame(kJoin - kJoinHalf), to = frame(kJoin + kJoinHalf);
    const double longest = *std::max_element(room.t60.begin(), room.t60.end());
    // Large rooms have few reflections by then: how loud they are together shows over some time.
    const double side = cubeRoot(room.size[0] * room.size[1] * room.size[2]);
    const auto compared = frame(std::max(kJoin + kJoinHalf, kJoin + 3 * side / kSoundSpeed));
    const auto frames = std::max(frame(1.15 * longest), compared);
    Paths early, late;
    for (std::uint32_t p = 0; p < kPaths; ++p) {
        early.push_back(
            reflections(room, p / 2 == 1, p % 2 == 1, static_cast<double>(compared) / kRate));
        early.back().resize(frames);
        late.push_back(decayingNoise(room, room.seed + 7 * p, frames));
    }
    const double gain = std::sqrt(energy(early, from, compared) / energy(late, from, compared));
    for (std::size_t p = 0; p < kPaths; ++p)
        for (std::size_t i = from; i < frames; ++i) {
            // Equal power over the time in which the two are joined.
            const double part =
                i < to ? (static_cast<double>(i - from) + 0.5) / static_cast<double>(to - from) : 1;
            const double out = i < to ? cosineOfTurns(part / 4) : 0;
            early[p][i] = out * early[p][i] + sineOfTurns(part / 4) * gain * late[p][i];
        }
    return early;
}

}  // namespace quillworks::irgen
