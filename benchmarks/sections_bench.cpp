// SPDX-License-Identifier: ISC
// Time per stereo frame of sections in series, by how they run: one after the other, or in lanes.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "dsp/cut_filters.h"
#include "dsp/flush_denormals.h"

namespace {

using namespace quillworks;

constexpr int kFrames = 64 * kSubBlock;

template <typename T> struct Stereo {
    std::vector<T> left = std::vector<T>(kFrames), right = left;
    Stereo()
    {
        std::mt19937 random(1);
        std::uniform_real_distribution<T> uniform(-1, 1);
        for (auto* x : {&left, &right})
            for (auto& v : *x) v = uniform(random);
    }
};

void perFrame(benchmark::State& state)
{
    state.counters["ns/frame"] =
        benchmark::Counter(kFrames * 1e-9, benchmark::Counter::kIsIterationInvariantRate |
                                               benchmark::Counter::kInvert);
}

template <typename T> SectionCoefficients<T> section(int i, double shift = 0)
{
    return SectionCoefficients<T>::allPass(100 * (i + 1) + shift, 1, 48000);
}

/// Arguments: sections, frames per slice, whether all of them move.
template <typename T> void inLanes(benchmark::State& state)
{
    const int sections = static_cast<int>(state.range(0)), block = static_cast<int>(state.range(1));
    const bool moves = state.range(2) != 0;
    const FlushDenormals flush;
    SectionChain<T> chain;
    chain.prepare(sections, 2);
    for (int s = 0; s < sections; ++s) chain.set(s, section<T>(s));
    Stereo<T> x;
    int turn = 0;
    for (auto _ : state) {
        for (int at = 0; at < kFrames; at += block) {
            const GridSlice slice{block, at % kSubBlock};
            if (moves && slice.begins())
                for (int s = 0; s < sections; ++s) chain.glide(s, section<T>(s, 1 + turn++ % 7));
            T* const part[] = {x.left.data() + at, x.right.data() + at};
            chain.process(part, slice);
        }
        benchmark::ClobberMemory();
    }
    perFrame(state);
}
BENCHMARK(inLanes<float>)
    ->ArgsProduct({{1, 2, 4, 6, 8, 12}, {32}, {0}})
    ->Args({6, 32, 1})
    ->Args({6, 8, 0})
    ->Args({6, 1, 0});
BENCHMARK(inLanes<double>)->ArgsProduct({{2, 4, 6}, {32}, {0}});

template <typename T> void oneByOne(benchmark::State& state)
{
    const int sections = static_cast<int>(state.range(0));
    const FlushDenormals flush;
    std::vector<SectionCoefficients<T>> c;
    for (int s = 0; s < sections; ++s) c.push_back(section<T>(s));
    std::vector<SectionState<T>> left(c.size()), right(c.size());
    Stereo<T> x;
    for (auto _ : state) {
        for (int at = 0; at < kFrames; at += kSubBlock)
            for (std::size_t s = 0; s < c.size(); ++s) {
                left[s].run(c[s], x.left.data() + at, kSubBlock);
                right[s].run(c[s], x.right.data() + at, kSubBlock);
            }
        benchmark::ClobberMemory();
    }
    perFrame(state);
}
BENCHMARK(oneByOne<float>)->Arg(2)->Arg(6);

}  // namespace

BENCHMARK_MAIN();
