// SPDX-License-Identifier: ISC
// From the recording of a measurement to responses ready to be written, with a judgement on them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

#include "reverb/sweep.h"

namespace quillworks {

/// What was played and what came back. Samples as captured, in single precision.
struct SweepMeasurement {
    explicit SweepMeasurement(const Sweep& played) : sweep(played) {}

    Sweep sweep;
    std::vector<float> excitation;  // the sweep as it was played
    std::size_t tail = 0;           // frames recorded behind it
    int sources = 1, microphones = 1;
    /// sweep and tail of each path, by source, then by microphone.
    std::vector<std::vector<float>> recorded;
    /// Of a loopback for each source, in place of the sweep; or nothing.
    std::vector<std::vector<float>> reference;
    /// Of each microphone, while nothing was played; or nothing.
    std::vector<std::vector<float>> noise;
    std::int64_t clipped = 0;  // samples at or above full scale

    std::size_t frames() const noexcept { return excitation.size() + tail; }
};

/// What counts as full scale: the largest sample of 16 bits.
inline constexpr float kFullScale = 32767.0f / 32768;

enum class Align { AsRecorded, MinusLatency, ToOnset };

struct SolveOptions {
    Align align = Align::ToOnset;
    double latency = 0;  // seconds that MinusLatency takes away
    bool trim = true, normalise = true, harmonics = false;
};

/// NaN where there is nothing to tell. Paths that are 60 dB weaker than the strongest are not
/// judged: they are crosstalk or silence.
struct ResponseFigures {
    static constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

    double latency = kNone;           // samples from the sweep to the earliest path's first sound
    double noiseFloor = kNone;        // dB RMS of what was recorded before the sweep
    double responseToNoise = kNone;   // dB, peak over the RMS of the noise in it, worst path
    double thd = kNone;               // %, orders 2 to 5 at 1 kHz over the first, worst path
    double t30 = kNone, c80 = kNone;  // s, dB
    std::int64_t clipped = 0;
    bool isDisturbed = false;  // something drowned the sweep for a moment
    /// Seconds of sweep that would part the distortion from the response, where this did not.
    double betterSweep = kNone;
};

struct MeasuredResponse {
    static constexpr int kFirstHarmonic = 2, kLastHarmonic = 5;
    static constexpr int kHarmonics = kLastHarmonic - kFirstHarmonic + 1;
    using Paths = std::vector<std::vector<double>>;

    double sampleRate = 0;
    Paths paths;                                // all equally long
    std::array<Paths, kHarmonics> harmonics{};  // of orders 2 to 5, where asked for
    ResponseFigures figures;
};

/// Nothing when `isCancelled` says so meanwhile. Throws std::bad_alloc.
std::optional<MeasuredResponse> solveMeasurement(const SweepMeasurement& measurement,
                                                 const SolveOptions& options,
                                                 const std::function<bool()>& isCancelled);

/// What a finished response file tells of itself.
struct ResponseFacts {
    double seconds = 0;
    double latency = ResponseFigures::kNone;     // samples to the first sound
    double noiseFloor = ResponseFigures::kNone;  // dB RMS re the peak; none in exact silence
    std::array<double, 10> t60{};                // seconds, by octave from 31.25 Hz on; or NaN
};
ResponseFacts readResponse(const std::vector<std::vector<double>>& paths, double sampleRate);

}  // namespace quillworks
