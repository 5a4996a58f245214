// SPDX-License-Identifier: ISC
#include "reverb/response_fingerprint.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <span>

namespace quillworks {
namespace {

constexpr int kLowest = 1, kHighest = 8;  // octaves that are measured: 62.5 Hz to 8 kHz
constexpr double kRange = 25;             // dB
constexpr double kTopTime = 0.7;          // of 16 kHz, to that of 8 kHz
constexpr double kFirstSeconds = 0.005;
constexpr float kVersion = 1;
constexpr std::size_t kHead = 4 + kOctaves, kPerChannel = kOctaves + 3;
constexpr std::size_t kMostChannels = 16;

/// Mean of the fitted times of an octave, and the density in each channel.
void measure(ResponseFingerprint& print, const ResponseChannels& response, int octave)
{
    const double centre = octaveCentre(octave);
    const auto k = static_cast<std::size_t>(octave);
    double sum = 0;
    int fitted = 0;
    for (std::size_t c = 0; c < response.size(); ++c) {
        const auto decay = BandDecay::ofOctave(response[c], centre, print.sampleRate);
        const auto line = decay.fit(print.time, 0, kRange);
        if (!line || !(line->t60 > 0)) continue;
        print.channels[c].density[k] = line->density;
        sum += line->t60;
        ++fitted;
    }
    if (fitted > 0) print.t60[k] = sum / fitted;
}

ResponseFingerprint::Channel firstSoundOf(const std::vector<double>& x, double sampleRate)
{
    ResponseFingerprint::Channel channel;
    channel.energy = std::inner_product(x.begin(), x.end(), x.begin(), 0.0);
    const auto first = firstSound(x);
    if (first >= x.size()) return channel;
    const auto length = static_cast<std::size_t>(std::lround(kFirstSeconds * sampleRate));
    const auto sound = std::span(x).subspan(first, std::min(length, x.size() - first));
    double power = 0, largest = 0;
    for (const double v : sound) {
        power += v * v;
        if (std::abs(v) > std::abs(largest)) largest = v;
    }
    channel.firstTime = static_cast<double>(first) / sampleRate;
    channel.firstGain = std::copysign(std::sqrt(power), largest);
    return channel;
}

}  // namespace

bool ResponseFingerprint::hasTail() const noexcept
{
    return std::any_of(t60.begin(), t60.end(), [](double t) { return t > 0; });
}

ResponseFingerprint fingerprintOf(const ResponseChannels& response, double time, double sampleRate,
                                  const IsCancelled& isCancelled)
{
    ResponseFingerprint print;
    print.sampleRate = sampleRate;
    print.time = time;
    for (const auto& x : response) print.channels.push_back(firstSoundOf(x, sampleRate));
    for (int k = kLowest; k <= kHighest && hasOctave(octaveCentre(k), sampleRate); ++k) {
        if (isCancelled && isCancelled()) throw Cancelled();
        measure(print, response, k);
    }
    auto& t = print.t60;
    for (std::size_t k = kLowest + 1; k <= kHighest; ++k)
        if (t[k] == 0) t[k] = t[k - 1];
    for (std::size_t k = kHighest - 1; k >= kLowest; --k)
        if (t[k] == 0) t[k] = t[k + 1];
    t[kLowest - 1] = t[kLowest];
    t[kHighest + 1] = kTopTime * t[kHighest];
    for (auto& channel : print.channels) {
        channel.density[kLowest - 1] = channel.density[kLowest];
        channel.density[kHighest + 1] = channel.density[kHighest];
    }
    return print;
}

Blob ResponseFingerprint::blob() const
{
    std::vector<double> values = {kVersion, static_cast<double>(channels.size()), sampleRate, time};
    values.insert(values.end(), t60.begin(), t60.end());
    for (const auto& c : channels) {
        values.insert(values.end(), c.density.begin(), c.density.end());
        values.insert(values.end(), {c.firstTime, c.firstGain, c.energy});
    }
    Blob blob;
    for (const double value : values) {
        const auto bits = std::bit_cast<std::uint32_t>(static_cast<float>(value));
        for (int shift = 0; shift < 32; shift += 8)
            blob.bytes += static_cast<char>(bits >> shift & 0xFF);
    }
    return blob;
}

std::optional<ResponseFingerprint> ResponseFingerprint::of(const Blob& blob)
{
    std::vector<double> values;
    for (std::size_t i = 0; i + 4 <= blob.bytes.size(); i += 4) {
        std::uint32_t bits = 0;
        for (std::size_t b = 0; b < 4; ++b)
            bits |= std::uint32_t{static_cast<unsigned char>(blob.bytes[i + b])} << (8 * b);
        values.push_back(std::bit_cast<float>(bits));
    }
    const auto channels = values.size() < kHead ? 0 : (values.size() - kHead) / kPerChannel;
    const bool isOurs = channels >= 1 && channels <= kMostChannels && values[0] == kVersion &&
                        values[1] == static_cast<double>(channels) &&
                        blob.bytes.size() == 4 * (kHead + channels * kPerChannel);
    if (!isOurs) return {};
    constexpr double kLongest = 1000, kMostEnergy = 1e20, kHighestRate = 768000;
    ResponseFingerprint print;
    auto at = values.begin() + 2;
    bool isGood = true;
    const auto read = [&](double& target, double least, double most) {
        target = *at++;
        isGood = isGood && target >= least && target <= most;  // not for NaN
    };
    read(print.sampleRate, 1, kHighestRate);
    read(print.time, 0, kLongest);
    for (auto& t : print.t60) read(t, 0, kLongest);
    for (std::size_t c = 0; c < channels; ++c) {
        auto& channel = print.channels.emplace_back();
        for (auto& density : channel.density) read(density, 0, kMostEnergy);
        read(channel.firstTime, 0, kLongest);
        read(channel.firstGain, -kMostEnergy, kMostEnergy);
        read(channel.energy, 0, kMostEnergy);
    }
    if (!isGood) return {};
    return print;
}

}  // namespace quillworks
