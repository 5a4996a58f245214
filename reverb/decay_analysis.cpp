// SPDX-License-Identifier: ISC
#include "reverb/decay_analysis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <numbers>

#include "dsp/section.h"

namespace quillworks {
namespace {

constexpr double kEarlySeconds = 0.08;

double powerToDb(double power) noexcept
{
    return 10 * std::log10(std::max(power, std::numeric_limits<double>::min()));
}

double energy(std::span<const double> x) noexcept
{
    double sum = 0;
    for (const double v : x) sum += v * v;
    return sum;
}

/// Least squares of y over 0, 1, ..; offset and slope.
struct LeastSquares {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;

    void add(double at, double value) noexcept
    {
        n += 1, x += at, y += value, xx += at * at, xy += at * value;
    }
    double slope() const noexcept { return (n * xy - x * y) / (n * xx - x * x); }
    double offset() const noexcept { return (y - slope() * x) / n; }
};

double octaveWidth(double centre) noexcept
{
    return centre * (std::numbers::sqrt2 - 1 / std::numbers::sqrt2);
}

}  // namespace

std::size_t firstSound(std::span<const double> response, double range) noexcept
{
    double peak = 0;
    for (const double x : response) peak = std::max(peak, std::abs(x));
    if (!(peak > 0)) return response.size();
    const double least = peak * std::pow(10, -range / 20);
    return static_cast<std::size_t>(
        std::find_if(response.begin(), response.end(),
                     [least](double x) { return std::abs(x) >= least; }) -
        response.begin());
}

std::vector<double> octaveBand(std::span<const double> response, double centre, double sampleRate)
{
    using Coefficients = SectionCoefficients<double>;
    std::array<Coefficients, 2 * std::size(kButterworth4Q)> sections;
    for (std::size_t i = 0; i < std::size(kButterworth4Q); ++i) {
        const double q = kButterworth4Q[i];
        sections[2 * i] = Coefficients::highPass(centre / std::numbers::sqrt2, q, sampleRate);
        sections[2 * i + 1] = Coefficients::lowPass(centre * std::numbers::sqrt2, q, sampleRate);
    }
    std::vector<double> band(response.rbegin(), response.rend());
    // All sections in one pass: each waits for its own last sample only, so that they overlap.
    std::array<SectionState<double>, sections.size()> states;
    for (double& x : band)
        for (std::size_t i = 0; i < sections.size(); ++i) x = states[i].next(sections[i], x);
    std::reverse(band.begin(), band.end());
    return band;
}

BandDecay::BandDecay(std::span<const double> band, double bandwidth, double sampleRate)
{
    // A silent end is no noise floor: somebody has put it there.
    while (!band.empty() && band.back() == 0) band = band.first(band.size() - 1);

    binLength_ = static_cast<std::size_t>(std::max(1.0, std::round(sampleRate * 0.001)));
    binSeconds_ = static_cast<double>(binLength_) / sampleRate;
    upTo_.push_back(0);
    double loudest = 0;
    for (std::size_t at = 0; at < band.size(); at += binLength_) {
        const double sum = energy(band.subspan(at, std::min(binLength_, band.size() - at)));
        if (sum > loudest) loudest = sum, peak_ = upTo_.size() - 1;
        upTo_.push_back(upTo_.back() + sum);
    }
    findFloor(bandwidth);
    integrate();
}

BandDecay BandDecay::ofOctave(std::span<const double> response, double centre, double sampleRate)
{
    // The filter would make silence ring.
    while (!response.empty() && response.back() == 0)
        response = response.first(response.size() - 1);
    return {octaveBand(response, centre, sampleRate), octaveWidth(centre), sampleRate};
}

double BandDecay::crossing() const noexcept
{
    return crossing_ * binSeconds_;
}

/// Mean square of bins.
double BandDecay::mean(std::size_t from, std::size_t to) const noexcept
{
    return to > from ? (upTo_[to] - upTo_[from]) / static_cast<double>((to - from) * binLength_)
                     : 0;
}

/// Through the levels of intervals of that many bins.
std::optional<BandDecay::Line> BandDecay::regression(std::size_t from, std::size_t to,
                                                     std::size_t interval) const
{
    LeastSquares line;
    for (std::size_t i = from; i + interval <= to; i += interval)
        line.add(static_cast<double>(i) + 0.5 * static_cast<double>(interval),
                 powerToDb(mean(i, i + interval)));
    if (line.n < 3) return {};
    return Line{line.offset(), line.slope()};
}

/// Noise, crossing and the line that the decay goes into the noise with.
void BandDecay::findFloor(double bandwidth)
{
    constexpr double kAboveNoise = 7, kLateRange = 15;   // dB; Lundeby's 5 to 10 and 10 to 20
    constexpr double kIntervalsPer10Db = 5;              // of 3 to 10
    constexpr double kInaudible = 1e-13, kTooFast = 15;  // share of the power; dB
    const std::size_t bins = upTo_.size() - 1;
    const std::size_t least =
        static_cast<std::size_t>(std::ceil(std::max(0.002, 1 / bandwidth) / binSeconds_));
    crossing_ = static_cast<double>(bins);
    if (bins < 10 || !(upTo_.back() > 0)) return;

    std::size_t interval = std::max<std::size_t>(
        least, std::min<std::size_t>(static_cast<std::size_t>(std::ceil(0.03 / binSeconds_)),
                                     (bins - peak_) / 10));
    const std::size_t tail = std::max<std::size_t>(1, bins / 10);
    // First bin from `from` on, in steps of the interval, whose level is below `db`.
    const auto below = [&](std::size_t from, double db) {
        while (from + interval <= bins && powerToDb(mean(from, from + interval)) >= db)
            from += interval;
        return std::min(from, bins);
    };
    // Mean of a line's power from a bin to the end.
    const auto powerOf = [&](const Line& line, std::size_t from) {
        double sum = 0;
        for (std::size_t i = from; i < bins; ++i)
            sum += std::pow(10, line.at(static_cast<double>(i) + 0.5) / 10);
        return sum / static_cast<double>(bins - from);
    };

    double noise = mean(bins - tail, bins);
    const double loudest = mean(peak_, std::min(peak_ + interval, bins));
    // The floor's level; lower than any that is heard it need not be.
    const auto level = [&] { return powerToDb(std::max(noise, loudest * kInaudible)); };
    std::size_t bottom = below(peak_, level() + kAboveNoise);
    auto line = regression(peak_, bottom, interval);
    while (!line && interval > least) {
        interval = std::max(least, interval / 2);
        line = regression(peak_, bottom = below(peak_, level() + kAboveNoise), interval);
    }
    falls_ = powerToDb(loudest) - level();
    if (!line && falls_ > kTooFast) {  // it is gone before it can be followed
        noise_ = noise;
        crossing_ = static_cast<double>(bottom);
        return;
    }
    if (!line) line = regression(peak_, bins, interval);
    if (!line || !(line->slope < 0)) return void(falls_ = 0);
    late_ = line;
    falls_ = -line->slope * static_cast<double>(bins - peak_);

    for (int pass = 0; pass < 8; ++pass) {
        // What is no more than the decay itself is no floor.
        if (!(level() > powerToDb(2 * powerOf(*line, bins - tail)))) return;
        const double decadeBins = -10 / line->slope;
        interval = std::clamp(static_cast<std::size_t>(decadeBins / kIntervalsPer10Db), least,
                              std::max(least, bins / 10));
        const double crossing = (level() - line->offset) / line->slope;
        // The floor from 7 dB of decay behind the crossing on, at least over the last tenth.
        const double from = crossing + kAboveNoise / 10 * decadeBins;
        noise = mean(std::min(static_cast<std::size_t>(std::max(0.0, from)), bins - tail), bins);
        bottom = below(peak_, level() + kAboveNoise);
        const double top = static_cast<double>(bottom) - kLateRange / 10 * decadeBins;
        const auto next = regression(std::max(peak_, static_cast<std::size_t>(std::max(0.0, top))),
                                     bottom, interval);
        if (next && next->slope < 0) line = next;
        const double moved = (level() - line->offset) / line->slope;
        late_ = line;
        noise_ = noise;
        falls_ = powerToDb(loudest) - level();
        crossing_ = std::clamp(moved, static_cast<double>(peak_ + 1), static_cast<double>(bins));
        if (std::abs(moved - crossing) < 0.5) break;
    }
}

void BandDecay::integrate()
{
    const std::size_t end = static_cast<std::size_t>(crossing_);
    double sum = 0;
    if (late_) {
        // The rest of the exponential.
        const double density = std::pow(10, late_->at(static_cast<double>(end)) / 10);
        sum = density * static_cast<double>(binLength_) * 10 / (-late_->slope * std::numbers::ln10);
    }
    remaining_.assign(end + 1, sum);
    const double floor = noise_ * static_cast<double>(binLength_);
    for (std::size_t i = end; i-- > 0;) {
        sum += upTo_[i + 1] - upTo_[i] - floor;
        remaining_[i] = sum;
    }
}

double BandDecay::energyFrom(double time) const noexcept
{
    const double bin =
        std::clamp(time / binSeconds_, 0.0, static_cast<double>(remaining_.size() - 1));
    const auto i = static_cast<std::size_t>(bin);
    const double next = remaining_[std::min(i + 1, remaining_.size() - 1)];
    return std::max(0.0, remaining_[i] + (next - remaining_[i]) * (bin - static_cast<double>(i)));
}

std::optional<DecayLine> BandDecay::fit(double time, double above, double below) const
{
    const double start = energyFrom(time);
    if (!late_ || !(start > 0)) return {};
    const double top = powerToDb(start) - above, bottom = powerToDb(start) - below;
    LeastSquares line;
    double reached = powerToDb(start);
    for (auto i = static_cast<std::size_t>(std::max(0.0, std::ceil(time / binSeconds_)));
         i < remaining_.size() && remaining_[i] > 0; ++i) {
        const double level = powerToDb(remaining_[i]);
        if (level > top) continue;
        if (level < bottom) break;
        line.add(static_cast<double>(i), reached = level);
    }
    if (line.n < 3 || !(line.slope() < 0)) return {};
    const double t60 = -60 / line.slope() * binSeconds_;
    // E(t) falls as exp(-6 ln 10 t / T) has it, so its density is 6 ln 10 / T of it.
    const double energy = std::pow(10, (line.offset() + line.slope() * time / binSeconds_) / 10);
    const double perSample = binSeconds_ / static_cast<double>(binLength_);
    return DecayLine{t60, energy * 6 * std::numbers::ln10 / t60 * perSample, time, top - reached};
}

std::optional<double> BandDecay::reverberationTime(bool isStrict) const
{
    for (const double range : {30.0, 20.0, 10.0}) {
        const auto line = fit(static_cast<double>(peak_) * binSeconds_, 5, 5 + range);
        // A bin's step may lie between the last level within the range and its end.
        if (line && line->range > range - std::max(1.0, 60 * binSeconds_ / line->t60))
            return line->t60;
        if (isStrict) break;
    }
    return {};
}

std::optional<double> clarity(std::span<const double> response, std::size_t start, double centre,
                              double sampleRate)
{
    if (start >= response.size()) return {};
    response = response.subspan(start);
    const auto split = static_cast<std::size_t>(kEarlySeconds * sampleRate);
    if (response.size() <= split) return {};
    // Both parts with room for what the filter, which runs backwards, rings on with before them.
    const auto ringing = static_cast<std::size_t>(20 / octaveWidth(centre) * sampleRate);
    const auto energyOf = [&](std::span<const double> part) {
        std::vector<double> padded(ringing, 0.0);
        padded.insert(padded.end(), part.begin(), part.end());
        return energy(octaveBand(padded, centre, sampleRate));
    };
    const auto decay = BandDecay::ofOctave(response, centre, sampleRate);
    const auto end = std::min(
        response.size(), std::max(split, static_cast<std::size_t>(decay.crossing() * sampleRate)));
    const double late = energyOf(response.subspan(split, end - split)) -
                        decay.noise() * static_cast<double>(end - split);
    const double early =
        energyOf(response.first(split)) - decay.noise() * static_cast<double>(split);
    if (!(late > 0) || !(early > 0)) return {};
    return powerToDb(early) - powerToDb(late);
}

RoomFigures roomFigures(std::span<const std::vector<double>> paths, double sampleRate)
{
    double t30 = 0, c80 = 0;
    int times = 0, clarities = 0;
    for (const auto& path : paths)
        for (const double centre : {500.0, 1000.0}) {
            if (!hasOctave(centre, sampleRate)) continue;
            const auto decay = BandDecay::ofOctave(path, centre, sampleRate);
            if (const auto t = decay.reverberationTime(true)) t30 += *t, ++times;
            if (const auto c = clarity(path, firstSound(path), centre, sampleRate))
                c80 += *c, ++clarities;
        }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    return {times ? t30 / times : nan, clarities ? c80 / clarities : nan};
}

}  // namespace quillworks
