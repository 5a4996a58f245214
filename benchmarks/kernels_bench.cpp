// SPDX-License-Identifier: ISC
// Times the block kernels against plain loops compiled for this processor and, where it has the
// operation, against VOLK; interleaved in one process, the least time of many repeats. An address
// 4096 bytes from a recent store delays a load, which moves a time by a tenth or two as arrays and
// stack happen to lie; so each candidate is timed at many placements, and its best counts.
//
//     kernels_bench [substring of an operation's name [COUNT...]]
#include <alloca.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
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
namespace lib = DSP::VectorLib;

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
    // Ones neither vanish nor overflow, however often an operation is applied.
#define TYPED(front, operation, operands, sources, constants, result, law)                         \
    add(                                                                                           \
        #front,                                                                                    \
        [=] {                                                                                      \
            lib::reference::callWithOperands<sources, constants>(                                  \
                [](auto... x) { return vec::front(x...); }, d, a, b, one, one, one, n);            \
        },                                                                                         \
        [=] {                                                                                      \
            plain::loop<lib::reference::front##Law, lib::Result::result>(d, a, b, one, one, one,   \
                                                                         n);                       \
        });
#define MIXED(...)
    VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
    // clang-format off
    add("log2", [=] { vec::log2(d, a, n); }, [=] { plain::log2(d, a, n); });
    add("log10", [=] { vec::log10(d, a, n); }, [=] { plain::log10(d, a, n); });
    add("exp", [=] { vec::exp(d, a, n); }, [=] { plain::exp(d, a, n); });
    add("exp2", [=] { vec::exp2(d, a, n); }, [=] { plain::exp2(d, a, n); });
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
    const auto arrays = [&]<class T>(T) -> auto&
    {
        if constexpr (std::is_same_v<T, float>)
            return single;
        else
            return wide;
    };
    std::vector<Row> r;
#define TYPED(...)
#define MIXED(id, front, name, D, S, C, constants, law)                                            \
    {                                                                                              \
        D* const d = arrays(D()).d;                                                                \
        const S* const s = arrays(S()).d;                                                          \
        r.push_back({#id,                                                                          \
                     batch([=] {                                                                   \
                         lib::reference::callWithOperands<1, constants>(                           \
                             [](auto... x) { return vec::front(x...); }, d, s, s, C(1), C(1),      \
                             C(1), n);                                                             \
                     }),                                                                           \
                     batch([=] {                                                                   \
                         plain::loop<lib::reference::id##Law, lib::Result::Stores>(d, s, s, C(1),  \
                                                                                   C(1), C(1), n); \
                     }),                                                                           \
                     {}});                                                                         \
    }
    VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
#ifdef WITH_VOLK
    float* const f = single.d;
    double* const d = wide.d;
    const auto u = static_cast<unsigned>(n);
    for (auto& row : r) {
        if (row.name == "convertToDouble") row.volk = batch([=] { volk_32f_convert_64f(d, f, u); });
        if (row.name == "convertToFloat") row.volk = batch([=] { volk_64f_convert_32f(f, d, u); });
    }
#endif
    return r;
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<int> counts;
    for (int i = 2; i < argc; ++i) counts.push_back(std::atoi(argv[i]));
    if (counts.empty()) counts = {32, 512, 4096};
    std::printf("Nanoseconds per call (ours), and ours divided by plain loop and VOLK: below 1 we "
                "are faster.\n\n");
    std::printf("| operation |");
    for (const int n : counts) std::printf(" n = %d | plain | VOLK |", n);
    std::printf("\n|---|");
    for (std::size_t i = 0; i < counts.size(); ++i) std::printf("---|---|---|");
    std::printf("\n");
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
        for (std::size_t i = 0; i < counts.size(); ++i) {
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
