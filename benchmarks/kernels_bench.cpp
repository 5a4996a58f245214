// SPDX-License-Identifier: ISC
// Times the block kernels against plain loops compiled for this processor and, where it has the
// operation, against VOLK; interleaved in one process, the least time of many repeats. An address
// 4096 bytes from a recent store delays a load, which moves a time by a tenth or two as arrays and
// stack happen to lie; so each candidate is timed at many placements, and its best counts.
//
//     kernels_bench [substring of an operation's name]
#include <alloca.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "benchmarks/plain_kernels.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

#ifdef WITH_VOLK
#include <volk/volk.h>
#endif

namespace {

namespace vec = quillworks::vec;

constexpr int kRepeats = 128;
constexpr std::size_t kStackShifts = 32;       // spread over a page
constexpr int kGaps[] = {0, 192, 1088, 2112};  // between the arrays, in bytes
constexpr double kBatchSeconds = 10e-6;

using Batch = std::function<void(int calls)>;

template <class F> Batch batch(F f)
{
    return [f](int calls) {
        for (int i = 0; i < calls; ++i) {
            f();
            asm volatile("" ::: "memory");
        }
    };
}

/// With the stack of the batch moved by `shift` bytes.
[[gnu::noinline]] double seconds(const Batch& b, int calls, std::size_t shift = 0)
{
    void* volatile moved = alloca(shift + 16);
    static_cast<void>(moved);
    const auto start = std::chrono::steady_clock::now();
    b(calls);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Row {
    std::string name;
    Batch ours, plain, volk;
};

/// Lowers `best`, the time per call of ours, plain and VOLK in nanoseconds.
void measure(const Row& row, double (&best)[3])
{
    const Batch* const candidates[] = {&row.ours, &row.plain, &row.volk};
    int calls[] = {16, 16, 16};
    for (std::size_t i = 0; i < 3; ++i)
        while (*candidates[i] && seconds(*candidates[i], calls[i]) < kBatchSeconds) calls[i] *= 2;
    for (std::size_t r = 0; r < kRepeats; ++r)
        for (std::size_t i = 0; i < 3; ++i)
            if (*candidates[i])
                best[i] = std::min(best[i], seconds(*candidates[i], calls[i],
                                                    r % kStackShifts * (4096 / kStackShifts)) /
                                                calls[i] * 1e9);
}

template <class T> struct Arrays {
    Arrays(int n, int gap)
    {
        const auto stride = static_cast<std::size_t>(n) + static_cast<std::size_t>(gap) / sizeof(T);
        memory.assign(3 * stride + 64, T(1));
        const auto misaligned = reinterpret_cast<std::uintptr_t>(memory.data()) % 64 / sizeof(T);
        d = memory.data() + (64 / sizeof(T) - misaligned) % (64 / sizeof(T));
        a = d + stride;
        b = a + stride;
        std::fill(a, a + n, T(0.5));
    }
    std::vector<T> memory;
    T *d, *a, *b;
};

template <class T> std::vector<Row> rows(Arrays<T>& arrays, int n)
{
    T *const d = arrays.d, *const a = arrays.a, *const b = arrays.b;
    const T one = 1, half = T(0.5);
    std::vector<Row> r;
    const auto add = [&](const char* name, auto ours, auto plain) {
        r.push_back({std::string(name) + (sizeof(T) == 4 ? " float" : " double"),
                     batch(ours),
                     batch(plain),
                     {}});
    };
    // clang-format off
    add("set", [=] { vec::set(d, one, n); }, [=] { plain::set(d, one, n); });
    add("clear", [=] { vec::clear(d, n); }, [=] { plain::clear(d, n); });
    add("copy", [=] { vec::copy(d, a, n); }, [=] { plain::copy(d, a, n); });
    add("negateCopy", [=] { vec::negateCopy(d, a, n); }, [=] { plain::negateCopy(d, a, n); });
    add("addInplace", [=] { vec::addInplace(d, a, n); }, [=] { plain::addInplace(d, a, n); });
    add("subInplace", [=] { vec::subInplace(d, a, n); }, [=] { plain::subInplace(d, a, n); });
    add("mulInplace", [=] { vec::mulInplace(d, b, n); }, [=] { plain::mulInplace(d, b, n); });
    add("addCopy", [=] { vec::addCopy(d, a, b, n); }, [=] { plain::addCopy(d, a, b, n); });
    add("subCopy", [=] { vec::subCopy(d, a, b, n); }, [=] { plain::subCopy(d, a, b, n); });
    add("mulCopy", [=] { vec::mulCopy(d, a, b, n); }, [=] { plain::mulCopy(d, a, b, n); });
    add("scale", [=] { vec::scale(d, one, n); }, [=] { plain::scale(d, one, n); });
    add("scaleCopy", [=] { vec::scaleCopy(d, a, half, n); }, [=] { plain::scaleCopy(d, a, half, n); });
    add("addConst", [=] { vec::addConst(d, half, n); }, [=] { plain::addConst(d, half, n); });
    add("addScaled", [=] { vec::addScaled(d, a, half, n); }, [=] { plain::addScaled(d, a, half, n); });
    add("addScaledCopy", [=] { vec::addScaledCopy(d, a, b, half, n); }, [=] { plain::addScaledCopy(d, a, b, half, n); });
    add("mixScaled", [=] { vec::mixScaled(d, a, b, half, one, n); }, [=] { plain::mixScaled(d, a, b, half, one, n); });
    add("addScale", [=] { vec::addScale(d, a, b, half, n); }, [=] { plain::addScale(d, a, b, half, n); });
    add("subScale", [=] { vec::subScale(d, a, b, half, n); }, [=] { plain::subScale(d, a, b, half, n); });
    add("complement", [=] { vec::complement(d, one, n); }, [=] { plain::complement(d, one, n); });
    add("ramp", [=] { vec::ramp(d, half, one, n); }, [=] { plain::ramp(d, half, one, n); });
    add("rampGain", [=] { vec::rampGain(d, one, one, n); }, [=] { plain::rampGain(d, one, one, n); });
    add("rampGainCopy", [=] { vec::rampGainCopy(d, a, half, one, n); }, [=] { plain::rampGainCopy(d, a, half, one, n); });
    add("addRampGain", [=] { vec::addRampGain(d, a, half, one, n); }, [=] { plain::addRampGain(d, a, half, one, n); });
    add("offsetRange", [=] { vec::offsetRange(d, half, half, one, n); }, [=] { plain::offsetRange(d, half, half, one, n); });
    add("offsetRangeCopy", [=] { vec::offsetRangeCopy(d, a, half, half, one, n); }, [=] { plain::offsetRangeCopy(d, a, half, half, one, n); });
    add("clampMax", [=] { vec::clampMax(d, half, n); }, [=] { plain::clampMax(d, half, n); });
    add("clampMin", [=] { vec::clampMin(d, one, n); }, [=] { plain::clampMin(d, one, n); });
    add("max", [=] { vec::max(d, a, n); }, [=] { plain::max(d, a, n); });
    add("min", [=] { vec::min(d, a, n); }, [=] { plain::min(d, a, n); });
    add("maxAbsCopy", [=] { vec::maxAbsCopy(d, a, b, n); }, [=] { plain::maxAbsCopy(d, a, b, n); });
    add("maxAbs", [=] { vec::maxAbs(d, a, n); }, [=] { plain::maxAbs(d, a, n); });
    add("absMaxCopy", [=] { vec::absMaxCopy(d, a, b, n); }, [=] { plain::absMaxCopy(d, a, b, n); });
    add("absMax", [=] { vec::absMax(d, a, n); }, [=] { plain::absMax(d, a, n); });
    add("absCopy", [=] { vec::absCopy(d, a, n); }, [=] { plain::absCopy(d, a, n); });
    add("abs", [=] { vec::abs(d, n); }, [=] { plain::abs(d, n); });
    add("peak", [=] { *b = vec::peak(d, n); }, [=] { *b = plain::peak(d, n); });
    add("rampGainPeak", [=] { *b = vec::rampGainPeak(d, one, one, n); }, [=] { *b = plain::rampGainPeak(d, one, one, n); });
    add("gainPeak", [=] { *b = vec::gainPeak(d, one, n); }, [=] { *b = plain::gainPeak(d, one, n); });
    add("log2", [=] { vec::log2(d, a, n); }, [=] { plain::log2(d, a, n); });
    add("log10", [=] { vec::log10(d, a, n); }, [=] { plain::log10(d, a, n); });
    add("exp", [=] { vec::exp(d, a, n); }, [=] { plain::exp(d, a, n); });
    add("exp2", [=] { vec::exp2(d, a, n); }, [=] { plain::exp2(d, a, n); });
    add("exp10", [=] { vec::exp10(d, a, n); }, [=] { plain::exp10(d, a, n); });
    add("tanh", [=] { vec::tanh(d, a, n); }, [=] { plain::tanh(d, a, n); });
    add("sqrt", [=] { vec::sqrt(d, a, n); }, [=] { plain::sqrt(d, a, n); });
    add("gainFromDecibels", [=] { vec::gainFromDecibels(d, a, n); }, [=] { plain::gainFromDecibels(d, a, n); });
    add("decibelsFromPower", [=] { vec::decibelsFromPower(d, a, half, n); }, [=] { plain::decibelsFromPower(d, a, half, n); });
#ifdef WITH_VOLK
    // Not its log2 and tanh, whose relative errors of 2e-4 and 5e-3 make them other functions.
    const auto u = static_cast<unsigned>(n);
    const auto volk = [&](const char* name, auto f) {
        const std::string full = std::string(name) + (sizeof(T) == 4 ? " float" : " double");
        for (auto& row : r) if (row.name == full) row.volk = batch(f);
    };
    if constexpr (std::is_same_v<T, float>) {
        volk("addInplace", [=] { volk_32f_x2_add_32f(d, d, a, u); });
        volk("subInplace", [=] { volk_32f_x2_subtract_32f(d, d, a, u); });
        volk("mulInplace", [=] { volk_32f_x2_multiply_32f(d, d, b, u); });
        volk("addCopy", [=] { volk_32f_x2_add_32f(d, a, b, u); });
        volk("subCopy", [=] { volk_32f_x2_subtract_32f(d, a, b, u); });
        volk("mulCopy", [=] { volk_32f_x2_multiply_32f(d, a, b, u); });
        volk("scale", [=] { volk_32f_s32f_multiply_32f(d, d, one, u); });
        volk("scaleCopy", [=] { volk_32f_s32f_multiply_32f(d, a, half, u); });
        volk("addConst", [=] { volk_32f_s32f_add_32f(d, d, half, u); });
        volk("max", [=] { volk_32f_x2_max_32f(d, d, a, u); });
        volk("min", [=] { volk_32f_x2_min_32f(d, d, a, u); });
        volk("exp", [=] { volk_32f_exp_32f(d, a, u); });
        volk("sqrt", [=] { volk_32f_sqrt_32f(d, a, u); });
    } else {
        volk("addInplace", [=] { volk_64f_x2_add_64f(d, d, a, u); });
        volk("mulInplace", [=] { volk_64f_x2_multiply_64f(d, d, b, u); });
        volk("addCopy", [=] { volk_64f_x2_add_64f(d, a, b, u); });
        volk("mulCopy", [=] { volk_64f_x2_multiply_64f(d, a, b, u); });
        volk("max", [=] { volk_64f_x2_max_64f(d, d, a, u); });
        volk("min", [=] { volk_64f_x2_min_64f(d, d, a, u); });
    }
#endif
    // clang-format on
    return r;
}

std::vector<Row> mixedRows(Arrays<float>& single, Arrays<double>& wide, int n)
{
    float* const f = single.d;
    double* const d = wide.d;
    // clang-format off
    std::vector<Row> r = {
        {"convert to double", batch([=] { vec::convert(d, f, n); }), batch([=] { plain::convert(d, f, n); }), {}},
        {"convert to float", batch([=] { vec::convert(f, d, n); }), batch([=] { plain::convert(f, d, n); }), {}},
        {"convertScaled to double", batch([=] { vec::convertScaled(d, f, 1, n); }), batch([=] { plain::convertScaled(d, f, 1, n); }), {}},
        {"convertScaled to float", batch([=] { vec::convertScaled(f, d, 1, n); }), batch([=] { plain::convertScaled(f, d, 1, n); }), {}},
        {"addScaled double to float", batch([=] { vec::addScaled(f, d, 0.0f, n); }), batch([=] { plain::addScaledMixed(f, d, 0.0f, n); }), {}},
        {"addScaled float to double", batch([=] { vec::addScaled(d, f, 0.0f, n); }), batch([=] { plain::addScaledMixed(d, f, 0.0f, n); }), {}},
    };
#ifdef WITH_VOLK
    const auto u = static_cast<unsigned>(n);
    r[0].volk = batch([=] { volk_32f_convert_64f(d, f, u); });
    r[1].volk = batch([=] { volk_64f_convert_32f(f, d, u); });
#endif
    // clang-format on
    return r;
}

}  // namespace

int main(int argc, char** argv)
{
    const int counts[] = {32, 512, 4096};
    std::printf("Nanoseconds per call (ours), and ours divided by plain loop and VOLK: below 1 we "
                "are faster.\n\n");
    std::printf("| operation | n = 32 | plain | VOLK | n = 512 | plain | VOLK | n = 4096 | plain | "
                "VOLK |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
    // By count and placement.
    std::vector<std::vector<Row>> tables;
    std::deque<Arrays<float>> single;
    std::deque<Arrays<double>> wide;
    for (const int n : counts) {
        for (const int gap : kGaps) {
            auto& f = single.emplace_back(n, gap);
            auto& d = wide.emplace_back(n, gap);
            auto& table = tables.emplace_back(rows(f, n));
            for (auto& more : {rows(d, n), mixedRows(f, d, n)})
                table.insert(table.end(), more.begin(), more.end());
        }
    }
    int slower = 0;
    for (std::size_t k = 0; k < tables[0].size(); ++k) {
        const auto& name = tables[0][k].name;
        if (argc > 1 && name.find(argv[1]) == std::string::npos) continue;
        std::printf("| %s |", name.c_str());
        for (std::size_t i = 0; i < std::size(counts); ++i) {
            double t[] = {1e9, 1e9, 1e9};
            for (std::size_t g = 0; g < std::size(kGaps); ++g)
                measure(tables[i * std::size(kGaps) + g][k], t);
            std::printf(" %.1f |", t[0]);
            for (std::size_t peer : {1u, 2u}) {
                if (t[peer] == 1e9) {
                    std::printf(" |");
                    continue;
                }
                const double ratio = t[0] / t[peer];
                slower += ratio > 1.05;
                std::printf(ratio > 1.05 ? " **%.2f** |" : " %.2f |", ratio);
            }
        }
        std::printf("\n");
        std::fflush(stdout);
    }
    std::printf("\n%d slower by more than 5 %%\n", slower);
}
