// SPDX-License-Identifier: ISC
// Time per stereo frame of the dynamics effects at work, by settings and block length.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "module/class_registry.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace {

using Values = std::vector<std::pair<const char*, float>>;

struct Case {
    const char* name;
    const char* effect;
    Values values;
};

const Case kCases[] = {
    {"Compressor", "Compressor", {{"threshold", -30}, {"ratio", 4}}},
    {"Compressor idle", "Compressor", {}},
    {"Compressor no look-ahead",
     "Compressor",
     {{"threshold", -30}, {"ratio", 4}, {"lookAhead", 0}}},
    {"Compressor unlinked", "Compressor", {{"threshold", -30}, {"ratio", 4}, {"linked", 0}}},
    {"Compressor filter",
     "Compressor",
     {{"threshold", -30},
      {"ratio", 4},
      {"internalsidechain", 1},
      {"sidechainfreqlow", 100},
      {"sidechainfreqhigh", 8000}}},
    {"Compressor mix", "Compressor", {{"threshold", -30}, {"ratio", 4}, {"mix", 0.5f}}},
    {"Limiter", "Limiter", {{"ingain", 18}, {"ceiling", -1}, {"release", 50}}},
    {"Limiter true peak",
     "Limiter",
     {{"ingain", 18}, {"ceiling", -1}, {"release", 50}, {"highqual", 1}}},
    {"Expander", "Expander", {{"highthresh", -20}, {"ratio", 0.5f}}},
    {"Gate", "Gate", {{"threshold", -20}}},
    {"Gate hold 0", "Gate", {{"threshold", -20}, {"hold", 0}, {"hysteresis", 0}}},
    {"Gate key filter",
     "Gate",
     {{"threshold", -20}, {"sidechainfreqlow", 100}, {"sidechainfreqhigh", 8000}}},
    {"Bandpress", "Bandpress", {{"press", 12}}},
    {"Multiband", "Multiband Dynamics", {{"bands", 3}}},
    {"Multiband linear", "Multiband Dynamics", {{"bands", 3}, {"phase", 1}}},
    {"Bandpress unlinked", "Bandpress", {{"press", 12}, {"linked", 0}}},
};

/// Noise with a level that moves over 30 dB, like speech.
template <typename T> std::vector<T> programme(int frames, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-1, 1);
    std::vector<T> x(static_cast<std::size_t>(frames));
    double low = 0;
    for (int i = 0; i < frames; ++i) {
        low += 0.2 * (uniform(random) - low);
        const double level = std::pow(10, -1.2 + 0.75 * std::sin(i * 6.283 / 24000));
        x[static_cast<std::size_t>(i)] = static_cast<T>(2 * low * level);
    }
    return x;
}

template <typename T> void run(benchmark::State& state, const Case& test)
{
    const int block = static_cast<int>(state.range(0));
    const auto component = VNK::HostedEffect::adopt(quillworks::createEffect(test.effect));
    for (const auto& [key, value] : test.values)
        if (!component->setValue(component->findParameter(key), value))
            return state.SkipWithError(key);
    VNK::EffectRunner runner(*component->algorithm());
    const auto stereo = VNK::SpeakerArrangement::withChannels(2);
    const auto precision = sizeof(T) == 4 ? VNK::Precision::Float : VNK::Precision::Double;
    if (!runner.prepare({stereo, stereo, precision, 48000, block}))
        return state.SkipWithError("cannot be prepared");
    constexpr int kFrames = 48 * 1024;
    const std::vector<T> in[] = {programme<T>(kFrames, 1), programme<T>(kFrames, 2)};
    std::vector<T> out[] = {std::vector<T>(kFrames), std::vector<T>(kFrames)};
    for (auto _ : state) {
        for (int at = 0; at + block <= kFrames; at += block)
            runner.process<T>({in, 2, at}, {out, 2, at}, block);
    }
    state.counters["ns/frame"] =
        benchmark::Counter(kFrames * 1e-9, benchmark::Counter::kIsIterationInvariantRate |
                                               benchmark::Counter::kInvert);
}

}  // namespace

int main(int argc, char** argv)
{
    for (const auto& test : kCases) {
        const std::string name = test.name;
        for (const int block : {64, 256, 1024})
            benchmark::RegisterBenchmark((name + "/float").c_str(), run<float>, test)->Arg(block);
        benchmark::RegisterBenchmark((name + "/double").c_str(), run<double>, test)->Arg(256);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
