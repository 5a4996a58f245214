// SPDX-License-Identifier: ISC
// Convolution of two seconds at 48 kHz beside zita-convolver: time of all threads per frame, in
// turns, the least of many; and the dearest call of 32 frames for responses of up to ten seconds,
// the least of several runs for each place in the cycle. Exits with 1 if a bar is missed.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <sched.h>
#include <vector>
#include <zita-convolver.h>

#include "dsp/flush_denormals.h"
#include "reverb/partitioned_convolver.h"

namespace quillworks {
namespace {

using Signal = std::vector<float>;

Signal noise(std::size_t frames, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0, 0.1f);
    Signal x(frames);
    for (float& v : x) v = normal(random);
    return x;
}

double seconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Two inputs to two outputs: each to its own, or all four ways.
struct Task {
    Task(int length_, int paths_) : length(length_), paths(paths_)
    {
        for (unsigned r = 0; r < 4; ++r)
            responses.push_back(noise(static_cast<std::size_t>(length), r));
    }
    std::vector<ConvolverPath> ways() const
    {
        if (paths == 2) return {{0, 0, 0}, {1, 1, 1}};
        return {{0, 0, 0}, {0, 1, 1}, {1, 0, 2}, {1, 1, 3}};
    }
    int length, paths;
    std::vector<Signal> responses;
};

class Ours {
public:
    explicit Ours(const Task& task)
    {
        std::vector<const float*> rows;
        for (const auto& response : task.responses) rows.push_back(response.data());
        convolver_ = PartitionedConvolver<float>::make(2, 2, task.ways(), rows, task.length, {});
    }
    void process(const float* const* in, float* const* out, int n)
    {
        convolver_->process(in, out, n);
    }

private:
    std::unique_ptr<PartitionedConvolver<float>> convolver_;
};

class Zita {
public:
    Zita(const Task& task, int block)
    {
        const auto quantum = static_cast<std::uint32_t>(block);
        bool isGood = convolver_.configure(2, 2, static_cast<std::uint32_t>(task.length), quantum,
                                           quantum, 8192, task.paths == 2 ? 0.5f : 1.0f) == 0;
        for (const auto& way : task.ways()) {
            Signal response = task.responses[static_cast<std::size_t>(way.response)];
            isGood = isGood && convolver_.impdata_create(static_cast<std::uint32_t>(way.input),
                                                         static_cast<std::uint32_t>(way.output), 1,
                                                         response.data(), 0, task.length) == 0;
        }
        if (!isGood || convolver_.start_process(0, SCHED_OTHER) != 0) std::exit(2);
    }
    ~Zita()
    {
        convolver_.stop_process();
        while (!convolver_.check_stop()) sched_yield();
        convolver_.cleanup();
    }
    void process(const float* const* in, float* const* out, int n)
    {
        for (std::uint32_t c = 0; c < 2; ++c) std::copy_n(in[c], n, convolver_.inpdata(c));
        convolver_.process(true);
        for (std::uint32_t c = 0; c < 2; ++c) std::copy_n(convolver_.outdata(c), n, out[c]);
    }

private:
    Convproc convolver_;
};

/// A second of noise in blocks; nanoseconds per frame, of all threads.
template <class Contestant> double secondOf(Contestant& contestant, int block)
{
    static const Signal left = noise(48000, 8), right = noise(48000, 9);
    static Signal out[2] = {Signal(48000), Signal(48000)};
    const double begin = seconds(CLOCK_PROCESS_CPUTIME_ID);
    int done = 0;
    for (; done + block <= 48000; done += block) {
        const float* const from[] = {left.data() + done, right.data() + done};
        float* const to[] = {out[0].data() + done, out[1].data() + done};
        contestant.process(from, to, block);
    }
    return 1e9 * (seconds(CLOCK_PROCESS_CPUTIME_ID) - begin) / done;
}

bool beside(int paths, int block, double bar)
{
    const Task task(96000, paths);
    Ours ours(task);
    Zita zita(task, block);
    double least[2] = {1e9, 1e9};
    for (int turn = 0; turn < 25; ++turn) {
        least[0] = std::min(least[0], secondOf(ours, block));
        least[1] = std::min(least[1], secondOf(zita, block));
    }
    const double ratio = least[0] / least[1];
    std::printf("%d paths, block %4d: %6.1f ns per frame, zita %6.1f, ratio %.2f (bar %.2f)\n",
                paths, block, least[0], least[1], ratio, bar);
    return ratio <= bar;
}

bool dearestCall(double lengthSeconds, int paths)
{
    constexpr int kBlock = 32, kCycle = 16384 / kBlock;
    constexpr double kBar = 40;  // us
    const Task task(static_cast<int>(lengthSeconds * 48000), paths);
    Ours ours(task);
    const Signal x = noise(16384, 3);
    Signal y[2] = {Signal(16384), Signal(16384)};
    std::vector<double> least(kCycle, 1e9);
    const int warm = task.length / 16384 + 2;
    for (int cycle = 0; cycle < warm + 40; ++cycle)
        for (int call = 0; call < kCycle; ++call) {
            const float* const from[] = {x.data() + call * kBlock, x.data() + call * kBlock};
            float* const to[] = {y[0].data() + call * kBlock, y[1].data() + call * kBlock};
            const double begin = seconds(CLOCK_MONOTONIC);
            ours.process(from, to, kBlock);
            const double took = seconds(CLOCK_MONOTONIC) - begin;
            double& known = least[static_cast<std::size_t>(call)];
            if (cycle >= warm) known = std::min(known, took);
        }
    const double dearest = 1e6 * *std::max_element(least.begin(), least.end());
    double sum = 0;
    for (const double l : least) sum += l;
    std::printf("%4.1f s, %d paths: dearest call of 32 frames %5.1f us (bar %.0f), mean %.1f\n",
                lengthSeconds, paths, dearest, kBar, 1e6 * sum / kCycle);
    return dearest <= kBar;
}

}  // namespace
}  // namespace quillworks

int main()
{
    using namespace quillworks;
    const FlushDenormals flush;
    bool isGood = true;
    for (const auto& [paths, block, bar] :
         {std::tuple{2, 64, 0.55}, {2, 256, 0.8}, {4, 64, 0.55}, {4, 256, 0.95}})
        isGood = beside(paths, block, bar) && isGood;
    for (const double length : {0.5, 2.0, 10.0})
        for (const int paths : {2, 4}) isGood = dearestCall(length, paths) && isGood;
    return isGood ? 0 : 1;
}
