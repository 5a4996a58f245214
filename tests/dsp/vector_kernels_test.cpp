// SPDX-License-Identifier: ISC
// Every kernel against its scalar law, on every instruction set of this processor.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "dsp/vector_table.h"

namespace quillworks {
namespace {

namespace lib = DSP::VectorLib;

/// What a law sees of element i: destination, sources, constants, ramp.
template <class D, class S, class C> struct In {
    D d;
    S s1, s2;
    C c1, c2, c3;
    D g;
};

enum Effect { Stores, StoresAndMeters, Meters };

template <class D, class S = D, class C = D> struct Law {
    std::string name;
    int sources, constants;
    Effect effect;
    D (*value)(const In<D, S, C>&);
};

template <class T> T min(T a, T b)
{
    return a < b ? a : b;
}
template <class T> T max(T a, T b)
{
    return a > b ? a : b;
}

template <class T> std::vector<Law<T>> lawsOfOneType()
{
    using I = const In<T, T, T>&;
    const std::string t = sizeof(T) == 4 ? "_float" : "_double";
    // clang-format off
    return {
        {"opSet" + t + "_d1_c1_num",        0, 1, Stores, [](I x) { return x.c1; }},
        {"opCopy" + t + "_d1_s1_num",       1, 0, Stores, [](I x) { return x.s1; }},
        {"opAddInplace" + t + "_d1_s1_num", 1, 0, Stores, [](I x) { return x.d + x.s1; }},
        {"opSubInplace" + t + "_d1_s1_num", 1, 0, Stores, [](I x) { return x.d - x.s1; }},
        {"opMulInplace" + t + "_d1_s1_num", 1, 0, Stores, [](I x) { return x.d * x.s1; }},
        {"opAddCopy" + t + "_d1_s1_s2_num", 2, 0, Stores, [](I x) { return x.s1 + x.s2; }},
        {"opSubCopy" + t + "_d1_s1_s2_num", 2, 0, Stores, [](I x) { return x.s1 - x.s2; }},
        {"opMulCopy" + t + "_d1_s1_s2_num", 2, 0, Stores, [](I x) { return x.s1 * x.s2; }},
        {"opMulConstConst" + t + "_d1_s1_c1", 1, 1, Stores, [](I x) { return x.s1 * x.c1; }},
        {"opMulConst" + t + "_d1_s0_c1",    0, 1, Stores, [](I x) { return x.d * x.c1; }},
        {"opAddConst" + t + "_d1_s0_c1",    0, 1, Stores, [](I x) { return x.d + x.c1; }},
        {"opBlend" + t + "_d1_s0_c2",       0, 2, Stores, [](I x) { return x.d * x.g; }},
        {"opBlendCopy" + t + "_d1_s1_c2",   1, 2, Stores, [](I x) { return x.s1 * x.g; }},
        {"opRamp" + t + "_d1_s0_c2",        0, 2, Stores, [](I x) { return x.g; }},
        {"opAddBlended" + t + "_d1_s1_c2",  1, 2, Stores, [](I x) { return x.d + x.s1 * x.g; }},
        {"opAddScaled" + t + "_d1_s1_c1",   1, 1, Stores, [](I x) { return x.d + x.s1 * x.c1; }},
        {"opAddScaled" + t + "_d1_s2_c1",   2, 1, Stores, [](I x) { return x.s1 + x.s2 * x.c1; }},
        {"opAddScaled" + t + "_d1_s2_c2",   2, 2, Stores, [](I x) { return x.s1 * x.c1 + x.s2 * x.c2; }},
        {"opAddScale" + t + "_d1_s2_c1",    2, 1, Stores, [](I x) { return (x.s1 + x.s2) * x.c1; }},
        {"opSubScale" + t + "_d1_s2_c1",    2, 1, Stores, [](I x) { return (x.s1 - x.s2) * x.c1; }},
        {"opComplement" + t + "_d1_s0_c1",  0, 1, Stores, [](I x) { return x.c1 - x.d; }},
        {"opOffRanged" + t + "_d1_s0_c3",   0, 3, Stores, [](I x) { return min(max(x.d + x.c1, x.c2), x.c3); }},
        {"opOffRanged" + t + "_d1_s1_c3",   1, 3, Stores, [](I x) { return min(max(x.s1 + x.c1, x.c2), x.c3); }},
        {"opClampMax" + t + "_d1_s0_c1",    0, 1, Stores, [](I x) { return min(x.d, x.c1); }},
        {"opClampMin" + t + "_d1_s0_c1",    0, 1, Stores, [](I x) { return max(x.d, x.c1); }},
        {"opMax" + t + "_d1_s1_c0",         1, 0, Stores, [](I x) { return max(x.d, x.s1); }},
        {"opMin" + t + "_d1_s1_c0",         1, 0, Stores, [](I x) { return min(x.d, x.s1); }},
        {"opMaxAbs" + t + "_d1_s2_c0",      2, 0, Stores, [](I x) { return max(std::fabs(x.s1), std::fabs(x.s2)); }},
        {"opMaxAbs" + t + "_d1_s1_c0",      1, 0, Stores, [](I x) { return max(x.d, std::fabs(x.s1)); }},
        {"opAbsMax" + t + "_d1_s2_c0",      2, 0, Stores, [](I x) { return std::fabs(x.s1) >= std::fabs(x.s2) ? x.s1 : x.s2; }},
        {"opAbsMax" + t + "_d1_s1_c0",      1, 0, Stores, [](I x) { return std::fabs(x.d) >= std::fabs(x.s1) ? x.d : x.s1; }},
        {"opAbsCopy" + t + "_d1_s1_c0",     1, 0, Stores, [](I x) { return std::fabs(x.s1); }},
        {"opAbsInplace" + t + "_d1_s0_c0",  0, 0, Stores, [](I x) { return std::fabs(x.d); }},
        {"opSign" + t + "_d1_s1_c0",        1, 0, Stores, [](I x) { return -x.s1; }},
        {"opClear" + t + "_d1_s0_c0",       0, 0, Stores, [](I) { return T(0); }},
        {"opVu" + t + "_d1_s0_c0_o1",       0, 0, Meters, [](I x) { return x.d; }},
        {"opGainVu" + t + "_d1_s0_c2_o1",   0, 2, StoresAndMeters, [](I x) { return x.d * x.g; }},
        {"opGainVu" + t + "_d1_s0_c1_o1",   0, 1, StoresAndMeters, [](I x) { return x.d * x.c1; }},
    };
    // clang-format on
}

/// n elements that end where an unreadable page begins, or `offset` elements from an aligned
/// address; around them a value that must survive in destinations and poison results in sources.
template <class T> class Guarded {
public:
    Guarded()
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        size_ = page / sizeof(T);
        base_ = static_cast<T*>(
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base_ + size_, page, PROT_NONE);
    }
    ~Guarded() { munmap(base_, 2 * size_ * sizeof(T)); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    T* place(const std::vector<T>& values, int n, int offset, T around)
    {
        std::fill(base_, base_ + size_, around);
        at_ = offset < 0 ? base_ + size_ - n : base_ + 64 + offset;
        return std::copy(values.begin(), values.begin() + n, at_) - n;
    }
    bool untouchedAround(int n, T around) const
    {
        return std::all_of(base_, at_, [=](T x) { return x == around; }) &&
               std::all_of(at_ + n, base_ + size_, [=](T x) { return x == around; });
    }

private:
    std::size_t size_;
    T *base_, *at_ = nullptr;
};

constexpr int kMaxCount = 70;
constexpr unsigned kSeed = 20240611;

/// Noise with the special values strewn in.
template <class T> std::vector<T> samples(std::mt19937& random)
{
    using L = std::numeric_limits<T>;
    const T specials[] = {0,
                          -T(0),
                          1,
                          -1,
                          L::infinity(),
                          -L::infinity(),
                          L::quiet_NaN(),
                          L::denorm_min(),
                          L::max(),
                          L::lowest(),
                          L::min()};
    std::uniform_real_distribution<T> noise(-2, 2);
    std::vector<T> x(kMaxCount);
    for (auto& v : x) v = random() % 4 ? noise(random) : specials[random() % std::size(specials)];
    return x;
}

template <class T> bool sameBits(T a, T b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

void callKernel(lib::RawKernel kernel, const std::vector<void*>& p, int n)
{
    using P = void*;
    // clang-format off
    switch (p.size()) {
    case 1: return reinterpret_cast<void (*)(P, int)>(kernel)(p[0], n);
    case 2: return reinterpret_cast<void (*)(P, P, int)>(kernel)(p[0], p[1], n);
    case 3: return reinterpret_cast<void (*)(P, P, P, int)>(kernel)(p[0], p[1], p[2], n);
    case 4: return reinterpret_cast<void (*)(P, P, P, P, int)>(kernel)(p[0], p[1], p[2], p[3], n);
    case 5: return reinterpret_cast<void (*)(P, P, P, P, P, int)>(kernel)(p[0], p[1], p[2], p[3], p[4], n);
    }
    // clang-format on
    FAIL() << "no such calling form";
}

template <class D, class S, class C>
void expectLaw(const Law<D, S, C>& law, const lib::VectorOpTableEntryRaw& entry)
{
    std::mt19937 random(kSeed);
    Guarded<D> d;
    Guarded<S> s1, s2;
    C c[3] = {C(0.7), C(-0.9), C(0.3)};
    if (law.constants == 3) c[0] = C(0.1);
    for (int n = 1; n <= kMaxCount; ++n) {
        const auto dest = samples<D>(random);
        const auto a = samples<S>(random), b = samples<S>(random);
        const D step = D(c[1] - c[0]) / D(n);
        // In place, each source in turn is the destination.
        for (int inPlace = 0; inPlace <= (std::is_same_v<D, S> ? law.sources : 0); ++inPlace) {
            std::vector<D> expected = dest;
            D expectedPeak = 0;
            const auto& start = [&]() -> const std::vector<D>& {
                if constexpr (std::is_same_v<D, S>)
                    return inPlace == 1 ? a : inPlace == 2 ? b : dest;
                else
                    return dest;
            }();
            for (int i = 0; i < n; ++i) {
                const auto k = static_cast<std::size_t>(i);
                const D g = D(c[1]) - step * D(n - 1 - i);
                expected[k] = law.value({start[k], a[k], b[k], c[0], c[1], c[2], g});
                expectedPeak = max(std::fabs(expected[k]), expectedPeak);
                if (law.effect == Meters) expected[k] = start[k];
            }
            for (int offset = -1; offset < 16; ++offset) {  // -1: against the unreadable page
                constexpr S poison = std::numeric_limits<S>::quiet_NaN();
                const auto other = [&](int turn) { return offset < 0 ? -1 : (offset + turn) % 16; };
                D* const out = d.place(start, n, offset, D(12345));
                std::vector<void*> p = {out};
                if (law.sources > 0)
                    p.push_back(inPlace == 1 ? static_cast<void*>(out)
                                             : s1.place(a, n, other(5), poison));
                if (law.sources > 1)
                    p.push_back(inPlace == 2 ? static_cast<void*>(out)
                                             : s2.place(b, n, other(11), poison));
                for (int i = 0; i < law.constants; ++i) p.push_back(&c[i]);
                D peak = -1;
                if (law.effect != Stores) p.push_back(&peak);
                callKernel(entry.slots[n % 16], p, n);
                for (int i = 0; i < n; ++i)
                    ASSERT_TRUE(sameBits(out[i], expected[static_cast<std::size_t>(i)]))
                        << law.name << " n " << n << " offset " << offset << " in place " << inPlace
                        << " element " << i << ": " << out[i] << ", not "
                        << expected[static_cast<std::size_t>(i)];
                ASSERT_TRUE(d.untouchedAround(n, D(12345)))
                    << law.name << " n " << n << " offset " << offset;
                if (law.effect != Stores) {
                    ASSERT_EQ(peak, expectedPeak) << law.name << " n " << n;
                }
            }
        }
    }
}

class VectorKernels : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        lib::VectorOpTableEntryRaw entry = makeVectorTable().entries[0];
        if (!lib::vectorLibraryBindFunction(&entry, GetParam()))
            GTEST_SKIP() << "not on this processor";
    }

    /// Checks the laws and counts them.
    template <class... Types> int expectLaws(const std::vector<Law<Types...>>& laws)
    {
        for (const auto& law : laws) {
            lib::VectorOpTableEntryRaw entry{law.name.c_str(), {}};
            EXPECT_TRUE(lib::vectorLibraryBindFunction(&entry, GetParam())) << law.name;
            for (int k = 0; k < 16; ++k) EXPECT_EQ(entry.slots[k], entry.slots[k + 16]);
            expectLaw(law, entry);
        }
        return static_cast<int>(laws.size());
    }
};

TEST_P(VectorKernels, EqualTheScalarFormulaBitForBit)
{
    using FD = In<double, float, double>;
    using DF = In<float, double, double>;
    int laws = expectLaws(lawsOfOneType<float>()) + expectLaws(lawsOfOneType<double>());
    laws += expectLaws<double, float, double>({
        {"opFloatToDouble_d1_s1_num", 1, 0, Stores, [](const FD& x) { return double{x.s1}; }},
        {"opFloatToDoubleGain_d1_s1_c1_num", 1, 1, Stores, [](const FD& x) { return x.s1 * x.c1; }},
    });
    laws += expectLaws<float, double, double>({
        {"opDoubleToFloat_d1_s1_num", 1, 0, Stores,
         [](const DF& x) { return static_cast<float>(x.s1); }},
        {"opDoubleToFloatGain_d1_s1_c1_num", 1, 1, Stores,
         [](const DF& x) { return static_cast<float>(x.s1 * x.c1); }},
    });
    laws += expectLaws<float, double, float>(
        {{"opAddScaled_df1_sd1_cf1", 1, 1, Stores, [](const In<float, double, float>& x) {
              return static_cast<float>(x.d + x.s1 * x.c1);
          }}});
    laws += expectLaws<double, float, float>(
        {{"opAddScaled_dd1_sf1_cf1", 1, 1, Stores,
          [](const In<double, float, float>& x) { return x.d + double{x.s1} * x.c1; }}});
    EXPECT_EQ(laws, kVectorOps);
}

INSTANTIATE_TEST_SUITE_P(Sets, VectorKernels,
                         ::testing::Values(lib::kPermitScalar, lib::kPermitSse2, lib::kPermitAvx2,
                                           lib::kPermitAvx512, lib::kPermitAll),
                         [](const auto& info) {
                             return info.param == 8   ? "Scalar"
                                    : info.param == 1 ? "Sse2"
                                    : info.param == 2 ? "Avx2"
                                    : info.param == 4 ? "Avx512"
                                                      : "All";
                         });

TEST(VectorLibrary, KeepsToThePermittedSets)
{
    lib::VectorOpTableEntryRaw narrow{"opAddCopy_float_d1_s1_s2_num", {}}, best = narrow,
                                                                           none = narrow;
    ASSERT_TRUE(lib::vectorLibraryBindFunction(&narrow, lib::kPermitSse2));
    ASSERT_TRUE(lib::vectorLibraryBindFunction(&best, lib::kPermitAll));
    lib::VectorOpTableEntryRaw wider{narrow.name, {}};
    if (lib::vectorLibraryBindFunction(&wider, lib::kPermitAvx2)) {
        EXPECT_NE(narrow.slots[3], wider.slots[3]);
        EXPECT_NE(narrow.slots[3], best.slots[3]);
    }
    EXPECT_FALSE(lib::vectorLibraryBindFunction(&none, 0));
    EXPECT_EQ(none.slots[3], nullptr);
    for (const char* unknown :
         {"opAddCopy_float_d1_s1_s2", "opAddCopy", "opAddCopy_int_d1_s1_s2_num", "",
          "opFloatToDouble_d1_s1_num_float"}) {
        none.name = unknown;
        EXPECT_FALSE(lib::vectorLibraryBindFunction(&none, lib::kPermitAll)) << unknown;
    }
}

}  // namespace
}  // namespace quillworks
