// SPDX-License-Identifier: ISC
#include "reverb/continued_tail.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "reverb/response_fingerprint.h"

namespace quillworks {
namespace {

static_assert(kOctaves == OctaveDecayDesign::kBands);

constexpr double kSegment = 0.06;      // s of the response that feed the tank
constexpr double kTrial = 0.5;         // s that the tank is tried out for, behind the segment
constexpr double kSettled = 0.06;      // s behind the segment until the tank is level
constexpr double kSmoothing = 0.02;    // s of the ratio that is measured
constexpr double kFade = 0.04;         // s of the mean over it
constexpr double kBuiltUp = 0.97;      // of the power; what is missing is not heard
constexpr double kMostEqualiser = 40;  // dB

using Signal = std::vector<double>;

/// Mean square, as the fit of each response says, of output `o` at its octave `k`, `seconds` from
/// where it was fitted, with all inputs sounding.
class FittedDecay {
public:
    FittedDecay(const ResponseMatrix& matrix, int channels, const ResponseFingerprint& print)
        : print_(print), density_(static_cast<std::size_t>(channels))
    {
        for (const auto& path : matrix.paths)
            for (std::size_t k = 0; k < kOctaves; ++k)
                density_[static_cast<std::size_t>(path.output)][k] +=
                    print.channels[static_cast<std::size_t>(path.response)].density[k];
    }
    double at(std::size_t output, std::size_t octave, double seconds) const
    {
        return density_[output][octave] * std::pow(10, -6 * seconds / print_.t60[octave]);
    }
    double ofAll(double seconds) const
    {
        double sum = 0;
        for (std::size_t o = 0; o < density_.size(); ++o)
            for (std::size_t k = 0; k < kOctaves; ++k) sum += at(o, k, seconds);
        return sum;
    }

private:
    const ResponseFingerprint& print_;
    std::vector<std::array<double, kOctaves>> density_;
};

/// What the tank does with an impulse at one of the inputs.
class Trial {
public:
    Trial(const ResponseMatrix& matrix, const ContinuedTail& tail, int channels, double sampleRate)
        : matrix_(matrix), tail_(tail), channels_(channels)
    {
        prepareContinuedTank(tank_, sampleRate, channels, tail.t60);
        equaliser_.prepare(*OctaveDecayDesign::at(sampleRate), channels);
        const double first = std::max(0.0, tail.start - kSegment);
        first_ = static_cast<std::size_t>(first * sampleRate);
        frames_ = static_cast<std::size_t>((tail.start - first + kTrial) * sampleRate) / kSubBlock *
                  kSubBlock;
    }
    /// Of the response, where the trial begins.
    std::size_t first() const { return first_; }
    std::size_t frames() const { return frames_; }
    void equalise(const DecayDesign& design, const std::vector<DecayGains>& gains)
    {
        for (int o = 0; o < channels_; ++o)
            equaliser_.set(o, design.sections(gains[static_cast<std::size_t>(o)]));
    }

    /// The outputs.
    std::vector<Signal> run(int input, const IsCancelled& isCancelled)
    {
        const auto count = static_cast<std::size_t>(channels_);
        std::vector<Signal> in(count, Signal(frames_ + kRow)), out(count, Signal(frames_));
        for (const auto& path : matrix_.paths) {
            if (path.input != input) continue;
            const auto& feed = tail_.feeds[static_cast<std::size_t>(path.response)];
            auto& row = in[static_cast<std::size_t>(path.output)];
            for (std::size_t i = 0; i < frames_ && first_ + i < feed.size(); ++i)
                row[i] += feed[first_ + i];
        }
        tank_.reset();
        equaliser_.reset();
        double room[Tank<double>::kMostChannels][kRow];
        for (std::size_t at = 0; at < frames_; at += kSubBlock) {
            if (isCancelled && isCancelled()) throw Cancelled();
            const double* from[Tank<double>::kMostChannels];
            double* to[Tank<double>::kMostChannels];
            for (std::size_t c = 0; c < count; ++c) from[c] = in[c].data() + at, to[c] = room[c];
            tank_.process(from, kWholeSubBlock);
            equaliser_.begin();
            equaliser_.process(tank_.outputs(), to, kWholeSubBlock);
            for (std::size_t c = 0; c < count; ++c)
                std::copy_n(room[c], kSubBlock, out[c].data() + at);
        }
        return out;
    }

private:
    static constexpr int kRow = DecayFilter<double>::kRow;

    const ResponseMatrix& matrix_;
    const ContinuedTail& tail_;
    int channels_;
    std::size_t first_ = 0, frames_ = 0;
    Tank<double> tank_;
    DecayFilter<double> equaliser_;
};

double energy(const Signal& x, std::size_t from, std::size_t to)
{
    double sum = 0;
    for (std::size_t i = from; i < std::min(to, x.size()); ++i) sum += x[i] * x[i];
    return sum;
}

/// Gains in dB by which the tank's outputs lie below the fit, octave by octave.
std::vector<DecayGains> equaliserOf(Trial& trial, const FittedDecay& fitted,
                                    const ContinuedTail& tail, const OctaveDecayDesign& design,
                                    int channels, double sampleRate, const IsCancelled& isCancelled)
{
    const auto count = static_cast<std::size_t>(channels);
    const auto frameOf = [&](double seconds) {
        return static_cast<std::size_t>(std::max(0.0, (tail.start + seconds) * sampleRate)) -
               trial.first();
    };
    std::vector<std::array<double, kOctaves>> measured(count), expected(count);
    for (int input = 0; input < channels; ++input) {
        const auto y = trial.run(input, isCancelled);
        for (std::size_t o = 0; o < count; ++o)
            for (std::size_t k = 0; k < kOctaves; ++k) {
                const double centre = octaveCentre(static_cast<int>(k));
                if (!hasOctave(centre, sampleRate)) continue;
                const double end = kSettled + std::min(kTrial - kSettled, tail.t60[k] / 2);
                const auto band = octaveBand(y[o], centre, sampleRate);
                measured[o][k] += energy(band, frameOf(kSettled), frameOf(end));
                if (input > 0) continue;
                // The integral of the straight decay.
                const double rate = 6 * std::numbers::ln10 / tail.t60[k];
                expected[o][k] = fitted.at(o, k, 0) * sampleRate / rate *
                                 (std::exp(-rate * kSettled) - std::exp(-rate * end));
            }
    }
    std::vector<DecayGains> gains;
    for (std::size_t o = 0; o < count; ++o) {
        std::array<double, kOctaves> decibels{};
        for (std::size_t k = 0; k < kOctaves; ++k) {
            const double m = measured[o][k], e = expected[o][k];
            if (m > 0 && e > 0)
                decibels[k] = std::clamp(10 * std::log10(e / m), -kMostEqualiser, kMostEqualiser);
            else if (k > 0)
                decibels[k] = decibels[k - 1];
        }
        gains.push_back(design.match(decibels));
    }
    return gains;
}

/// Mean over `length` values around each.
Signal smoothed(const Signal& x, std::size_t length)
{
    Signal sums(x.size() + 1);
    std::partial_sum(x.begin(), x.end(), sums.begin() + 1);
    Signal y(x.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
        const std::size_t from = i > length / 2 ? i - length / 2 : 0;
        const std::size_t to = std::min(x.size(), i + length - length / 2);
        y[i] = (sums[to] - sums[from]) / static_cast<double>(to - from);
    }
    return y;
}

/// Share of the fitted power that the tank gives, from the trial's first frame on until it has all:
/// never falling, and 1 at its end.
Signal buildUp(Trial& trial, const FittedDecay& fitted, const ContinuedTail& tail, int channels,
               double sampleRate, const IsCancelled& isCancelled)
{
    Signal power(trial.frames()), target(trial.frames());
    for (int input = 0; input < channels; ++input)
        for (const auto& y : trial.run(input, isCancelled))
            for (std::size_t i = 0; i < y.size(); ++i) power[i] += y[i] * y[i];
    for (std::size_t i = 0; i < target.size(); ++i)
        target[i] = fitted.ofAll(static_cast<double>(trial.first() + i) / sampleRate - tail.start);
    const auto length = static_cast<std::size_t>(kSmoothing * sampleRate) + 1;
    power = smoothed(power, length);
    target = smoothed(target, length);
    Signal share(power.size());
    double most = 0;
    for (std::size_t i = 0; i < share.size(); ++i) {
        most = std::max(most, std::min(1.0, target[i] > 0 ? power[i] / target[i] : 0));
        share[i] = most;
    }
    share = smoothed(share, static_cast<std::size_t>(kFade * sampleRate) + 1);
    for (std::size_t i = 0; i < share.size(); ++i)
        if (share[i] > kBuiltUp) {
            share.resize(i);
            break;
        }
    // A tank that has not got there fades in over the end of the trial.
    const std::size_t fade = std::min(share.size(), length);
    if (!share.empty() && share.size() == power.size())
        for (std::size_t i = 0; i < fade; ++i) {
            double& last = share[share.size() - fade + i];
            last += (1 - last) * static_cast<double>(i + 1) / static_cast<double>(fade);
        }
    share.push_back(1);
    return share;
}

}  // namespace

TankSpec continuedTankSpec(double sampleRate, int channels)
{
    TankSpec spec;
    spec.sampleRate = sampleRate;
    spec.inputs = spec.outputs = channels;
    spec.hasAllPasses = true;
    spec.longest = 0.03;
    spec.longestSpan = 0.005;
    spec.design = OctaveDecayDesign::at(sampleRate);
    return spec;
}

std::optional<ContinuedTail> continueWithTank(ResponseMatrix& matrix, int channels, double start,
                                              double sampleRate, const IsCancelled& isCancelled)
{
    if (matrix.responses.empty()) return {};
    const double seconds = static_cast<double>(matrix.responses[0].size()) / sampleRate;
    start = std::min(start, seconds / 2);
    if (start < kSegment) return {};
    const auto print = fingerprintOf(matrix.responses, start, sampleRate, isCancelled);
    if (!print.hasTail()) return {};

    ContinuedTail tail;
    tail.start = start;
    constexpr double kShortestT60 = 0.05, kLongestT60 = 60;
    for (std::size_t k = 0; k < kOctaves; ++k)
        tail.t60[k] = std::clamp(print.t60[k], kShortestT60, kLongestT60);
    const auto first = static_cast<std::size_t>(std::max(0.0, start - kSegment) * sampleRate);
    const auto end = static_cast<std::size_t>(start * sampleRate);
    for (const auto& response : matrix.responses) {
        Signal& feed = tail.feeds.emplace_back(end);
        for (std::size_t i = first; i < end; ++i) {
            const double place =
                (static_cast<double>(i - first) + 0.5) / static_cast<double>(end - first);
            feed[i] = response[i] * std::pow(std::sin(std::numbers::pi * place), 2);
        }
        if (energy(feed, 0, feed.size()) > 0) continue;
        if (energy(response, end, response.size()) > 0) return {};  // nothing to go on from
    }

    const auto& design = OctaveDecayDesign::at(sampleRate);
    Trial trial(matrix, tail, channels, sampleRate);
    const FittedDecay fitted(matrix, channels, print);
    tail.equaliser = equaliserOf(trial, fitted, tail, *design, channels, sampleRate, isCancelled);
    trial.equalise(*design, tail.equaliser);
    const auto share = buildUp(trial, fitted, tail, channels, sampleRate, isCancelled);
    for (auto& response : matrix.responses) {
        response.resize(std::min(response.size(), first + share.size()));
        for (std::size_t i = first; i < response.size(); ++i)
            response[i] *= std::sqrt(1 - share[i - first]);
    }
    tail.convolvedSeconds = static_cast<double>(matrix.responses[0].size()) / sampleRate;
    return tail;
}

}  // namespace quillworks
