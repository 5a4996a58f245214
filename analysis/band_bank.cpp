// SPDX-License-Identifier: ISC
#include "analysis/band_bank.h"

#include <algorithm>
#include <cmath>

#include "analysis/band_kernels.h"
#include "dsp/flush_denormals.h"

namespace quillworks {
namespace {

constexpr int kPiece = 256;  // frames at the input's rate
enum Row { kZ1 = 0, kZ2 = 3, kPower = 6, kHighest = 7, kStateRows };
enum { kGain = 0, kA1 = 1, kA2 = 4, kFilterRows = 7 };

/// The rate at which a band keeps within the limits: above it the bilinear transform bends little,
/// and what the halving before lets through folded back lies outside the band.
double leastRate(const Band& band)
{
    return std::max(4.3 * band.centre, 4.1 * band.upper);
}

/// Half of a 19-tap half-band filter with equal ripples of 0.0008 dB up to 0.136 of its input's
/// rate and -80 dB from 0.364 on (Remez exchange).
constexpr std::array<float, 5> kHalving = {0.61724883f, -0.15993274f, 0.05636924f, -0.01654794f,
                                           0.00295841f};

}  // namespace

void BandBank::prepare(int channels, double sampleRate, int fraction)
{
    bands_ = bandsOf(fraction, sampleRate);
    levels_.clear();
    places_.clear();
    doubling_.resize(static_cast<std::size_t>(channels));
    const auto doubling = midpointTaps<float, 24>(6);
    for (auto& filter : doubling_) filter.prepare(doubling);
    const double lowest = bands_.empty() ? sampleRate : leastRate(bands_.front());
    double rate = 2 * sampleRate;
    do {
        levels_.push_back({.rate = rate, .rows = {}, .channels = {}});
        rate /= 2;
    } while (rate >= lowest);

    for (const Band& band : bands_) {
        std::size_t l = levels_.size() - 1;
        while (l > 0 && levels_[l].rate < leastRate(band)) --l;
        places_.push_back({static_cast<int>(l), levels_[l].count++});
    }
    for (Level& level : levels_) {
        level.lanes = (level.count + kBandLanes - 1) / kBandLanes * kBandLanes;
        const auto lanes = static_cast<std::size_t>(level.lanes);
        level.rows.assign(kFilterRows * lanes, 0);
        level.channels.resize(static_cast<std::size_t>(channels));
        for (State& state : level.channels) {
            state.halving.prepare(kHalving);
            state.rows.assign(kStateRows * lanes, 0);
            state.x.reserve(2 * kPiece + 2);
        }
    }
    for (std::size_t b = 0; b < bands_.size(); ++b) {
        Level& level = levels_[static_cast<std::size_t>(places_[b].level)];
        const auto filter = bandFilter(bands_[b], level.rate);
        const auto at = [&](int row) -> double& {
            return level.rows[static_cast<std::size_t>(row * level.lanes + places_[b].lane)];
        };
        at(kGain) = filter.gain;
        for (int s = 0; s < 3; ++s) {
            at(kA1 + s) = filter.a1[s];
            at(kA2 + s) = filter.a2[s];
        }
    }
    begin();
    setAverage(average_);
}

void BandBank::release() noexcept
{
    bands_ = std::vector<Band>();
    places_ = std::vector<Place>();
    levels_ = std::vector<Level>();
    doubling_ = std::vector<MidpointFilter<float>>();
}

void BandBank::begin() noexcept
{
    for (auto& filter : doubling_) filter.reset();
    for (Level& level : levels_)
        for (State& state : level.channels) {
            state.halving.reset();
            state.hasLeft = false;
            std::fill_n(state.rows.begin(), kPower * level.lanes, 0.0);
        }
}

void BandBank::clearAverages() noexcept
{
    for (Level& level : levels_)
        for (State& state : level.channels) {
            std::fill(state.rows.begin() + kPower * level.lanes, state.rows.end(), 0.0);
            state.averaged = 0;
        }
}

void BandBank::setAverage(double seconds) noexcept
{
    const bool isMean = !std::isfinite(seconds);
    if (isMean && !isMean_) clearAverages();
    for (Level& level : levels_) {
        for (State& state : level.channels)
            if (isMean_ && !isMean)
                for (int i = kPower * level.lanes; i < kStateRows * level.lanes; ++i)
                    state.rows[static_cast<std::size_t>(i)] /=
                        static_cast<double>(std::max<std::int64_t>(state.averaged, 1));
        level.keep = isMean ? 1 : std::exp(-1 / (level.rate * seconds));
        level.take = isMean ? 1 : 1 - level.keep;
    }
    average_ = seconds;
    isMean_ = isMean;
}

void BandBank::process(const float* const* x, int n) noexcept
{
    const FlushDenormals flush;
    for (std::size_t c = 0; c < doubling_.size(); ++c)
        for (int i = 0; i < n; i += kPiece) run(c, x[c] + i, std::min(kPiece, n - i));
}

void BandBank::run(std::size_t channel, const float* x, int n) noexcept
{
    float even[kPiece], odd[kPiece];
    doubling_[channel].up(x, n, even, odd);
    auto& doubled = levels_[0].channels[channel].x;
    doubled.resize(static_cast<std::size_t>(2 * n));
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
        doubled[2 * i] = even[i];
        doubled[2 * i + 1] = odd[i];
    }
    for (std::size_t l = 0; l < levels_.size(); ++l) {
        State& state = levels_[l].channels[channel];
        if (l > 0) halve(levels_[l - 1].channels[channel], state);
        if (state.x.empty()) return;
        filter(levels_[l], state);
    }
}

void BandBank::filter(Level& level, State& state) const noexcept
{
    if (isMean_) state.averaged += static_cast<std::int64_t>(state.x.size());
    if (level.lanes == 0) return;
    const auto set = [&](int row) { return level.rows.data() + row * level.lanes; };
    const auto own = [&](int row) { return state.rows.data() + row * level.lanes; };
    runBands({set(kGain),
              {set(kA1), set(kA1 + 1), set(kA1 + 2)},
              {set(kA2), set(kA2 + 1), set(kA2 + 2)},
              {own(kZ1), own(kZ1 + 1), own(kZ1 + 2)},
              {own(kZ2), own(kZ2 + 1), own(kZ2 + 2)},
              own(kPower),
              own(kHighest),
              level.keep,
              level.take,
              level.lanes},
             state.x.data(), static_cast<int>(state.x.size()));
}

void BandBank::halve(State& from, State& to) noexcept
{
    float even[kPiece + 1], odd[kPiece + 1];
    std::size_t i = 0, pairs = 0;
    const auto& x = from.x;
    if (from.hasLeft && !x.empty()) {
        even[pairs] = from.left;
        odd[pairs++] = x[i++];
    }
    for (; i + 1 < x.size(); i += 2, ++pairs) {
        even[pairs] = x[i];
        odd[pairs] = x[i + 1];
    }
    from.hasLeft = i < x.size();
    if (from.hasLeft) from.left = x[i];
    to.x.resize(pairs);
    if (pairs > 0) from.halving.down(even, odd, static_cast<int>(pairs), to.x.data());
}

double BandBank::averaged(const State& state, double power) const noexcept
{
    return isMean_ ? power / static_cast<double>(std::max<std::int64_t>(state.averaged, 1)) : power;
}

double BandBank::power(int channel, int band) const noexcept
{
    const Place place = places_[static_cast<std::size_t>(band)];
    const Level& level = levels_[static_cast<std::size_t>(place.level)];
    const State& state = level.channels[static_cast<std::size_t>(channel)];
    return averaged(state, state.rows[static_cast<std::size_t>(kPower * level.lanes + place.lane)]);
}

double BandBank::takeHighest(int channel, int band) noexcept
{
    if (isMean_) return power(channel, band);
    const Place place = places_[static_cast<std::size_t>(band)];
    Level& level = levels_[static_cast<std::size_t>(place.level)];
    State& state = level.channels[static_cast<std::size_t>(channel)];
    double& highest = state.rows[static_cast<std::size_t>(kHighest * level.lanes + place.lane)];
    const double taken = highest;
    highest = state.rows[static_cast<std::size_t>(kPower * level.lanes + place.lane)];
    return taken;
}

}  // namespace quillworks
