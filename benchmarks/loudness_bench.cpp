// SPDX-License-Identifier: ISC
// The level meter beside libebur128 with every reading on: stereo, 48 kHz, in one process, taking
// turns so that whatever else the machine does meets both.
#include <ebur128.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "module/class_registry.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace {

constexpr int kRate = 48000, kSeconds = 20, kBlock = 512, kTurns = 9;
constexpr int kFrames = kRate * kSeconds;

using Clock = std::chrono::steady_clock;

double nanosecondsPerFrame(Clock::time_point from)
{
    return std::chrono::duration<double, std::nano>(Clock::now() - from).count() / kFrames;
}

/// Momentary, short-term, integrated, range and true peak, all read ten times a second, as the
/// level meter does; histograms, libebur128's faster way.
double runPeer(const std::vector<float>& interleaved)
{
    auto* state = ebur128_init(2, kRate,
                               EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_I | EBUR128_MODE_LRA |
                                   EBUR128_MODE_SAMPLE_PEAK | EBUR128_MODE_TRUE_PEAK |
                                   EBUR128_MODE_HISTOGRAM);
    double out = 0;
    const auto start = Clock::now();
    constexpr int hop = kRate / 10;
    for (int at = 0; at < kFrames; at += hop) {
        ebur128_add_frames_float(state, interleaved.data() + 2 * at, hop);
        ebur128_loudness_momentary(state, &out);
        ebur128_loudness_shortterm(state, &out);
        ebur128_loudness_global(state, &out);
        ebur128_loudness_range(state, &out);
        for (unsigned c = 0; c < 2; ++c) {
            ebur128_sample_peak(state, c, &out);
            ebur128_true_peak(state, c, &out);
        }
    }
    const double time = nanosecondsPerFrame(start);
    ebur128_destroy(&state);
    return time;
}

double runMeter(const VNK::HostedEffect& meter, std::vector<std::vector<float>>& planar, int block)
{
    VNK::EffectRunner runner(*meter.algorithm());
    const auto stereo = VNK::SpeakerArrangement::withChannels(2);
    runner.prepare({stereo, stereo, VNK::Precision::Float, kRate, block});
    const auto start = Clock::now();
    VNK::runCut(
        kFrames, [block](int) { return block; },
        [&](int at, int n) {
            runner.process<float>({planar, 2, at}, {planar, 2, at}, n);
        });
    return nanosecondsPerFrame(start);
}

}  // namespace

int main()
{
    std::mt19937 random(1);
    std::normal_distribution<float> normal(0, 0.1f);
    std::vector<float> interleaved(2 * kFrames);
    for (auto& x : interleaved) x = normal(random);
    std::vector<std::vector<float>> planar(2, std::vector<float>(kFrames));
    for (std::size_t i = 0; i < kFrames; ++i)
        for (std::size_t c = 0; c < 2; ++c) planar[c][i] = interleaved[2 * i + c];

    const auto meter = VNK::HostedEffect::adopt(quillworks::createEffect("Level Meter"));
    if (!meter) return 1;
    meter->setValue(meter->findParameter("usecorr"), 1);

    struct Case {
        const char* name;
        int block;
        std::int64_t strict;
        std::vector<double> times;
    } cases[] = {{"own law, blocks of 512", kBlock, 0, {}},
                 {"own law, blocks of 32", 32, 0, {}},
                 {"strict law, blocks of 4096", 4096, 1, {}}};
    std::vector<double> peer;
    for (int turn = 0; turn < kTurns; ++turn) {
        peer.push_back(runPeer(interleaved));
        for (auto& c : cases) {
            meter->setInteger("loudnessStrict", c.strict);
            c.times.push_back(runMeter(*meter, planar, c.block));
        }
    }
    const auto median = [](std::vector<double> v) {
        std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
        return v[v.size() / 2];
    };
    const auto least = [](const std::vector<double>& v) {
        return *std::min_element(v.begin(), v.end());
    };
    std::printf("stereo, 48 kHz; ns per frame: median (least); times as fast as libebur128\n");
    std::printf("%-28s %7.1f (%.1f)\n", "libebur128", median(peer), least(peer));
    for (const auto& c : cases)
        std::printf("%-28s %7.1f (%.1f)   %.2f (%.2f)\n", c.name, median(c.times), least(c.times),
                    median(peer) / median(c.times), least(peer) / least(c.times));
}
