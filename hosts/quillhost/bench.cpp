// SPDX-License-Identifier: ISC
// quillhost bench: how long the effects take.
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>

#include "chain.h"
#include "command.h"
#include "effect_spec.h"
#include "table.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

constexpr int kRuns = 9;
constexpr double kWarmUp = 0.03, kRunTime = 0.015;  // seconds of computing

struct Options {
    std::vector<std::string> specs;
    double rate = 48000;
    int block = 512;
    int precision = 0;  // 0: 32 bits, 1: 64
    bool json = false;
};

struct Result {
    std::string name;
    int channels;
    double nanoseconds;  // per frame
};

/// Noise at a usual level: what the effects have to work on must not become silence or grow, so
/// each block begins with the same fresh samples.
template <typename T> double measure(Chain& chain, int block)
{
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0, 0.1);
    Planes<T> source(chain.planeChannels(), block), work(chain.planeChannels(), block);
    for (int c = 0; c < source.channels(); ++c)
        for (int i = 0; i < block; ++i) source[c][i] = static_cast<T>(noise(random));
    const auto runFor = [&](double seconds) {
        const auto start = Clock::now();
        std::int64_t frames = 0;
        double passed = 0;
        do {
            for (int k = 0; k < 8; ++k) {
                for (int c = 0; c < source.channels(); ++c) std::copy_n(source[c], block, work[c]);
                chain.run<T>(work, nullptr, block);
                frames += block;
            }
            passed = std::chrono::duration<double>(Clock::now() - start).count();
        } while (passed < seconds);
        return passed / static_cast<double>(frames) * 1e9;
    };
    runFor(kWarmUp);
    std::vector<double> runs;
    for (int i = 0; i < kRuns; ++i) runs.push_back(runFor(kRunTime));
    std::nth_element(runs.begin(), runs.begin() + kRuns / 2, runs.end());
    return runs[kRuns / 2];
}

Result benchmark(const Effect& effect, const std::string& title, const Options& options)
{
    ChainSetup setup;
    setup.sampleRate = options.rate;
    setup.block = options.block;
    setup.precision = options.precision == 0 ? VNK::Precision::Float : VNK::Precision::Double;
    const auto usual = effect.usualLayouts();
    setup.input = usual.input;
    setup.output = usual.output;
    Chain chain({effect}, setup);
    const double time = options.precision == 0 ? measure<float>(chain, options.block)
                                               : measure<double>(chain, options.block);
    return {title, setup.input.channels, time};
}

void print(const std::vector<Result>& results, const Options& options)
{
    const auto speed = [&](const Result& r) { return 1e9 / (r.nanoseconds * options.rate); };
    const int bits = options.precision == 0 ? 32 : 64;
    if (options.json) {
        Json all = Json::array();
        for (const auto& r : results)
            all.push_back({{"name", r.name},
                           {"nsPerFrame", r.nanoseconds},
                           {"timesRealTime", speed(r)},
                           {"sampleRate", options.rate},
                           {"block", options.block},
                           {"precision", bits},
                           {"channels", r.channels}});
        std::cout << all.dump(1) << "\n";
        return;
    }
    std::vector<Row> rows = {{"effect", "channels", "ns/frame", "x real time"}};
    for (const auto& r : results)
        rows.push_back({r.name, std::to_string(r.channels), fixedText(r.nanoseconds, 1),
                        fixedText(speed(r), 0)});
    std::cout << shortText(options.rate) << " Hz, blocks of " << options.block << ", " << bits
              << " bits; median of " << kRuns << " runs\n"
              << columns(rows, {1, 2, 3});
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "SPEC", o->specs, "NAME or NAME:key=value,... (default: every effect)");
    addNumber(app, "--rate", o->rate, double(kLowestRate), double(kHighestRate),
              "sampling rate in Hz (48000)");
    addNumber(app, "--block", o->block, 1, 1 << 20, "block length in frames (512)");
    addChoice(app, "--precision", o->precision, {"32", "64"}, "bits of the processing (32)");
    addFlag(app, "--json", o->json, "as a JSON array");
    return [o](Session& session) {
        std::vector<std::pair<Effect, std::string>> effects;
        for (const auto& spec : o->specs)
            effects.emplace_back(createEffect(session, parseEffectSpec(spec)), spec);
        if (o->specs.empty())
            for (const auto* c : session.classes())
                effects.emplace_back(session.create(*c), c->name->text());
        std::vector<Effect> those;
        for (const auto& [effect, title] : effects) those.push_back(effect);
        session.noteThoseThatPassThrough(those);
        std::vector<Result> results;
        for (const auto& [effect, title] : effects) results.push_back(benchmark(effect, title, *o));
        print(results, *o);
        return kDone;
    };
}

}  // namespace

extern const Command kBench;
const Command kBench = {"bench", "nanoseconds per frame of each effect",
                        "  quillhost bench\n"
                        "  quillhost bench compressor compressor:lookahead=1 --block 64\n"
                        "  quillhost bench limiter --rate 96000 --precision 64 --json",
                        declare};

}  // namespace quillhost
