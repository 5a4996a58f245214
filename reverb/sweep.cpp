// SPDX-License-Identifier: ISC
#include "reverb/sweep.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

/// L f1 of a sweep from `from` to half the rate in about `seconds`: whole, at least 1.
double wholePeriods(const SweepSettings& s) noexcept
{
    return std::max(1.0, std::round(s.from * s.seconds / std::log(s.sampleRate / 2 / s.from)));
}

double sineOfCycles(double cycles) noexcept
{
    return std::sin(2 * std::numbers::pi * (cycles - std::floor(cycles)));
}

}  // namespace

Sweep::Sweep(const SweepSettings& s) noexcept
    : Sweep(s.sampleRate, s.from, wholePeriods(s), s.level)
{}

Sweep::Sweep(double sampleRate, double from, double periods, double level) noexcept
    : sampleRate_(sampleRate),
      from_(from),
      level_(level),
      periods_(periods),
      growth_(periods / from)
{
    // The last whole half period; the margin is for one that ends on the end itself.
    const double halves = std::floor(2 * to() * growth_ * (1 + 1e-12));
    frames_ = static_cast<std::size_t>(growth_ * std::log(halves / (2 * periods)) * sampleRate) + 1;
}

double Sweep::seconds() const noexcept
{
    return growth_ * std::log(to() / from_);
}

double Sweep::harmonicLead(int n) const noexcept
{
    return growth_ * std::log(static_cast<double>(n));
}

double Sweep::at(double seconds) const noexcept
{
    const double fade =
        seconds * from_ < 1 ? 0.5 - 0.5 * std::cos(std::numbers::pi * seconds * from_) : 1;
    return level_ * fade * sineOfCycles(periods_ * std::exp(seconds / growth_));
}

std::vector<float> Sweep::samples() const
{
    std::vector<float> x(frames_);
    for (std::size_t i = 0; i < frames_; ++i)
        x[i] = static_cast<float>(at(static_cast<double>(i) / sampleRate_));
    return x;
}

std::optional<Sweep> Sweep::recognise(std::span<const float> samples, double sampleRate)
{
    if (samples.size() < 1000) return {};
    float peak = 0;
    for (const float x : samples) peak = std::max(peak, std::abs(x));
    if (!(peak > 0) || !std::isfinite(peak)) return {};

    // Half periods of the first half, where the samples show all of them: f1 L (sqrt r - 1) periods
    // in the time L ln r / 2, r = f2 / f1.
    int crossings = 0;
    float last = 0;
    for (const float x : samples.first(samples.size() / 2)) {
        if (x == 0) continue;
        if (last != 0 && (x < 0) != (last < 0)) ++crossings;
        last = x;
    }
    const double cycles = (crossings + 0.5) / 2;
    const double seconds = (static_cast<double>(samples.size()) - 0.5) / sampleRate;
    const double to = sampleRate / 2;
    const auto cyclesOf = [&](double r) {
        return seconds * to * (std::sqrt(r) - 1) / (r * std::log(r));
    };
    double low = 1.01, high = 1e6;  // falls with r
    if (!(cycles < cyclesOf(low)) || !(cycles > cyclesOf(high))) return {};
    for (int i = 0; i < 100; ++i) {
        const double middle = std::sqrt(low * high);
        (cyclesOf(middle) > cycles ? low : high) = middle;
    }
    const double roughPeriods = seconds * to / (low * std::log(low));

    // The sweep of a whole number near that which is most like this one: of the length that there
    // is, or, since people choose round frequencies and coarse samples hide an end that comes to
    // rest at half the rate, of one near it.
    constexpr std::size_t kHidden = 256, kStride = 7;
    std::optional<Sweep> best;
    double leastError = 0.01;  // of the energy
    for (double periods = std::max(1.0, std::floor(roughPeriods) - 2);
         periods <= std::ceil(roughPeriods) + 2; ++periods) {
        // periods/f1 ln(f2/f1) = seconds; falls with f1.
        double bottom = to / 1e6, top = to / 1.01;
        for (int i = 0; i < 200; ++i) {
            const double middle = std::sqrt(bottom * top);
            (periods / middle * std::log(to / middle) > seconds ? bottom : top) = middle;
        }
        for (const double digit : {1.0, 0.1, 0.01, 0.0}) {
            const double from = digit > 0 ? std::round(bottom / digit) * digit : bottom;
            if (!(from > 0) || !(from < to / 1.01)) continue;
            const Sweep sweep(sampleRate, from, periods, peak);
            if (sweep.frames() + 2 < samples.size() || sweep.frames() > samples.size() + kHidden)
                continue;
            double error = 0, energy = 0;
            for (std::size_t i = 0; i < samples.size() * 3 / 4; i += kStride) {
                const double x = sweep.at(static_cast<double>(i) / sampleRate);
                const double d = x - double(samples[i]);
                error += d * d, energy += x * x;
            }
            if (error < leastError * energy) leastError = error / energy, best = sweep;
        }
    }
    return best;
}

std::optional<SweepFile> SweepFile::recognise(std::span<const float* const> channels,
                                              std::size_t frames, double sampleRate)
{
    // A gap parts two sweeps; within one nothing is silent for that long.
    const auto gap = static_cast<std::size_t>(0.05 * sampleRate);
    struct Sound {
        std::size_t from, to;
        const float* channel;
    };
    std::vector<Sound> sounds;
    for (std::size_t i = 0; i < frames; ++i) {
        const auto heard = std::find_if(channels.begin(), channels.end(),
                                        [i](const float* x) { return x[i] != 0; });
        if (heard == channels.end()) continue;
        if (sounds.empty() || i > sounds.back().to + gap) sounds.push_back({i, i, *heard});
        sounds.back().to = i + 1;
    }
    if (sounds.empty()) return {};

    // Its first sample is 0; coarse samples hide more of the beginning, which ours have at 0.1 s.
    const auto& first = sounds.front();
    const auto usual =
        static_cast<std::size_t>(std::lround(SweepSchedule::kLeadSeconds * sampleRate));
    for (const std::size_t lead : {usual, first.from - std::min<std::size_t>(first.from, 1)}) {
        if (lead > first.from) continue;
        const std::span<const float> heard(first.channel + lead, first.to - lead);
        const auto sweep = Sweep::recognise(heard, sampleRate);
        if (!sweep || lead + sweep->frames() > frames) continue;
        const auto count = sounds.size();
        // By the distance of the ends: they are hidden alike.
        const std::size_t next =
            count > 1 ? lead + (sounds.back().to - first.to) / (count - 1) : frames;
        if (next < lead + sweep->frames()) continue;
        return SweepFile{
            *sweep,
            {lead, sweep->frames(), next - lead - sweep->frames(), static_cast<int>(count)},
            {first.channel + lead, first.channel + lead + sweep->frames()}};
    }
    return {};
}

}  // namespace quillworks
