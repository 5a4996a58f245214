// SPDX-License-Identifier: ISC
// Interface of an effect that measures responses: the same work on recordings that are there.
#pragma once

#include <cstdint>

#include "vnk/object.h"

namespace VNK {

/// A sweep that is wanted. Afterwards `seconds` is its length and `to` where it ends.
struct SweepPlan {
    double sampleRate = 48000;  // Hz
    double seconds = 8;
    double from = 20, to = 0;  // Hz
    double level = -18;        // dB of the peak
};

/// A file of sweeps as it was played, and what came back, channel by channel, at one rate.
struct SweepRecording {
    double sampleRate = 0;
    const float* const* played = nullptr;
    std::int32_t playedChannels = 0;
    std::int64_t playedFrames = 0;
    const float* const* recorded = nullptr;  // from the file's first frame on
    std::int32_t recordedChannels = 0;
    std::int64_t recordedFrames = 0;
    /// Channel of the recording that is a loopback, solved against in place of the sweep; -1: none.
    std::int32_t reference = -1;
};

struct SolvePlan {
    std::int32_t align = 2;  // of the parameter "align"
    double latency = 0;      // seconds that its choice "Minus Latency" takes away
    bool trim = false, normalise = false, harmonics = false;
};

/// Not-a-number where there is nothing to tell.
struct ResponseFigures {
    double latency;          // samples from the sweep to the earliest path's first sound
    double noiseFloor;       // dB RMS before the sweep
    double responseToNoise;  // dB
    double thd;              // %
    double t30, c80;         // s, dB
    std::int64_t clipped;    // samples
    bool disturbed;
};

/// Octaves of 31.25 Hz times 2^k.
inline constexpr int kResponseOctaves = 10;

/// Not-a-number where there is nothing to tell.
struct ResponseFacts {
    double seconds;
    double latency;     // samples to the first sound
    double noiseFloor;  // dB RMS re the peak
    double t60[kResponseOctaves];
};

class IResponseSink {
public:
    /// Channels by source, then by microphone. `order`: 1 is the response, from 2 on those of the
    /// harmonics; a sweep is order 0. The samples live until the call returns. May throw.
    virtual void take(std::int32_t order, const double* const* channels, std::int32_t count,
                      std::int64_t frames) = 0;

protected:
    ~IResponseSink() = default;
};

/// Where an operation gives false, refusal() says why in one line; what a sink throws counts as
/// refused. [any thread but audio, one at a time]
class IImpulseResponses : public IObject {
public:
    static constexpr UID iid = UID::constant("{9C3F2A54-1D7E-4B60-8E55-6A0C7B42D913}");

    virtual bool makeSweep(SweepPlan& plan, IResponseSink* sink) noexcept = 0;
    virtual bool solve(const SweepRecording& recording, const SolvePlan& plan, IResponseSink* sink,
                       ResponseFigures& figures) noexcept = 0;
    virtual bool readResponse(const double* const* channels, std::int32_t count,
                              std::int64_t frames, double sampleRate,
                              ResponseFacts& facts) noexcept = 0;
    /// Lives until the next call.
    virtual const char* refusal() const noexcept = 0;

protected:
    ~IImpulseResponses() = default;
};

}  // namespace VNK
