// SPDX-License-Identifier: ISC
#include <algorithm>
#include <cmath>

#include "dsp/random.h"
#include "reverb/decay_analysis.h"
#include "reverb/vaulter_loader.h"

namespace quillworks {

/// Noise of its own in each channel and octave, whose level and decay are those of the fingerprint:
/// a response as any other, so that every setting acts on it as on the one that is gone.
VNK::Sound<float> substituteResponse(const ResponseFingerprint& fit, const IsCancelled& isCancelled)
{
    constexpr double kRange = 80;                     // dB, from where the decay was measured
    constexpr double kLongest = 60, kNeutral = 0.25;  // s
    double seconds = kNeutral;
    for (const double t : fit.t60) seconds = std::max(seconds, fit.time + t * kRange / 60);
    const auto frames = static_cast<std::size_t>(std::min(seconds, kLongest) * fit.sampleRate) + 1;
    VNK::Sound<float> sound;
    sound.sampleRate = fit.sampleRate;
    std::uint64_t voice = 0;
    for (const auto& channel : fit.channels) {
        std::vector<double> sum(frames);
        const auto first = std::min(
            frames - 1, static_cast<std::size_t>(channel.firstTime * fit.sampleRate + 0.5));
        for (std::size_t k = 0; k < kOctaves; ++k, ++voice) {
            const double centre = octaveCentre(static_cast<int>(k));
            if (!(channel.density[k] > 0) || !(fit.t60[k] > 0) ||
                !hasOctave(centre, fit.sampleRate))
                continue;
            if (isCancelled && isCancelled()) throw Cancelled();
            Xoshiro256pp random(voice + 1);
            std::vector<double> noise(frames);
            for (double& x : noise) x = 2 * random.uniform() - 1;
            noise = octaveBand(noise, centre, fit.sampleRate);
            double power = 0;
            for (const double x : noise) power += x * x;
            if (!(power > 0)) continue;
            const double gain = std::sqrt(channel.density[k] * static_cast<double>(frames) / power);
            const double fall = std::pow(10, -3 / (fit.t60[k] * fit.sampleRate));
            double level = gain * std::pow(10, 3 * (fit.time - channel.firstTime) / fit.t60[k]);
            for (std::size_t i = first; i < frames; ++i, level *= fall) sum[i] += level * noise[i];
        }
        sum[first] = channel.firstGain;
        sound.channels.emplace_back(sum.begin(), sum.end());
    }
    sound.framesInFile = static_cast<std::int64_t>(frames);
    return sound;
}

}  // namespace quillworks
