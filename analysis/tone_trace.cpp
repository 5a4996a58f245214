// SPDX-License-Identifier: ISC
#include "analysis/tone_trace.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace quillworks {
namespace {

constexpr int kPoints = 512;

double sineOf(double cycles)
{
    return std::sin(2 * std::numbers::pi * cycles);
}

}  // namespace

ToneTrace traceOf(const ToneSettings& s, double sampleRate, const PeriodicSignals* signals)
{
    ToneTrace trace;
    const auto usable = [&](double f) { return usableFrequency(s.wave, f, sampleRate, s.snaps); };
    const double f = usable(s.frequency), f2 = usable(s.frequency2);
    const auto parts = twoToneParts(f, f2);
    const auto gain =
        toneGain(waveLevels(s.wave, s.width, parts, signals), s.level, s.levelIsRms ? 1 : 0).gain;
    const std::vector<double>* table = nullptr;
    if (signals && isPeriodic(s.wave))
        table = &(s.wave == Wave::Multitone ? signals->multitone : signals->pink).samples;
    trace.period = 1 / f;
    if (s.wave == Wave::TwoTone) trace.period = 1 / std::min(f, f2);
    if (isPeriodic(s.wave)) trace.period = periodicLength(sampleRate) / sampleRate;
    if (isNoise(s.wave) || (isPeriodic(s.wave) && !table)) {
        trace.period = std::numeric_limits<double>::quiet_NaN();
        return trace;
    }
    // `x`: cycles of the first tone.
    const auto wave = [&](double x, double time) {
        const double phase = x - std::floor(x);
        const double shifted = phase + 0.25 - std::floor(phase + 0.25);
        switch (s.wave) {
        case Wave::Triangle:
            return shifted < 0.5 ? 4 * shifted - 1 : 3 - 4 * shifted;
        case Wave::Sawtooth:
            return phase < 0.5 ? 2 * phase : 2 * phase - 2;
        case Wave::Square:
            return phase < 0.5 ? 1.0 : -1.0;
        case Wave::Pulse:
            return (phase < s.width ? 2 : 0) - 2 * s.width;
        case Wave::TwoTone:
            return parts.first * sineOf(x) + parts.second * sineOf(f2 * time);
        default:
            return sineOf(x);
        }
    };
    for (int i = 0; i < kPoints; ++i) {
        const double time = 2 * trace.period * i / kPoints;
        double x = 0;
        if (table)
            x = (*table)[std::size_t(time * sampleRate) % table->size()];
        else if (s.wave == Wave::Impulses)
            x = i % (kPoints / 2) == 0 ? 1 : 0;
        else
            x = wave(f * time, time);
        trace.samples.push_back(gain * x);
    }
    return trace;
}

}  // namespace quillworks
