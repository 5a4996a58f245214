// SPDX-License-Identifier: ISC
// Binding of the vector table, and the typed front over it.
#include "dsp/vector_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/vec.h"

namespace quillworks {
namespace {

namespace lib = DSP::VectorLib;

// A library to order.
std::int32_t version;
const char* convention;
std::string_view lacking;
int binds;

void info(lib::LibraryInfo* i, int permitted)
{
    EXPECT_EQ(permitted, -1);
    *i = {version, convention};
}

bool bind(lib::VectorOpTableEntryRaw* entry, int permitted)
{
    EXPECT_EQ(permitted, -1);
    if (entry->name == lacking) return false;
    ++binds;
    return lib::vectorLibraryBindFunction(entry, permitted);
}

struct BindingCase {
    const char* what;
    std::int32_t version;
    const char* convention;
    const char* lacking;
    int boundEntries;
};

TEST(VectorTable, BindsAsFarAsTheLibraryFits)
{
    const BindingCase cases[] = {
        {"complete", 1, "vectorcall", "", 82},
        {"newer", 2, "vectorcall", "", 0},
        {"other convention", 1, "vectorcalL", "", 0},
        {"longer convention", 1, "vectorcall2", "", 0},
        {"no convention", 1, nullptr, "", 0},
        {"lacks the first", 1, "vectorcall", "opSet_float_d1_c1_num", 0},
        {"lacks one", 1, "vectorcall", "opFloatToDouble_d1_s1_num", 16},
        {"lacks the last", 1, "vectorcall", "opGainVu_double_d1_s0_c1_o1", 81},
    };
    for (const auto& c : cases) {
        version = c.version;
        convention = c.convention;
        lacking = c.lacking;
        binds = 0;
        VectorTable table = makeVectorTable();
        bindVectorTable(table, info, bind);
        EXPECT_EQ(binds, c.boundEntries) << c.what;
        EXPECT_EQ(table.bound, c.boundEntries == kVectorOps) << c.what;
        for (int i = 0; i < kVectorOps; ++i)
            EXPECT_EQ(table.entries[i].slots[5] != nullptr, i < c.boundEntries) << c.what << i;
        bindVectorTable(table, info, bind);
        EXPECT_EQ(binds, c.boundEntries * (table.bound ? 1 : 2)) << c.what << ", a second time";
    }
}

TEST(VectorTable, CountsOf16And32TakeSlot0)
{
    float x[33];
    for (int n : {1, 16, 32, 33}) {
        std::fill(std::begin(x), std::end(x), 7.0f);
        vec::clear(x, n);
        EXPECT_EQ(std::count(std::begin(x), std::end(x), 0.0f), n);
    }
}

// Computed while this file's static objects are initialised.
float early[5];
const float kEarlyPeak = (vec::set(early, -3, 5), vec::peak(early, 5));

TEST(VectorTable, IsBoundBeforeStaticObjectsUseIt)
{
    EXPECT_TRUE(vectorTable.bound);
    EXPECT_EQ(kEarlyPeak, 3);
}

template <class T> class Vec : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Vec, Precisions);

TYPED_TEST(Vec, FrontCallsTheOperationItNames)
{
    using T = TypeParam;
    struct Case {
        const char* name;
        void (*call)(T* d, const T* a, const T* b, int n);
        T (*law)(T d, T a, T b, T g);  // g: the ramp from 0.25 to 2
    };
    // clang-format off
    const Case cases[] = {
        {"set",           [](T* d, const T*, const T*, int n) { vec::set(d, 0.5, n); },                  [](T, T, T, T) { return T(0.5); }},
        {"clear",         [](T* d, const T*, const T*, int n) { vec::clear(d, n); },                     [](T, T, T, T) { return T(0); }},
        {"copy",          [](T* d, const T* a, const T*, int n) { vec::copy(d, a, n); },                 [](T, T a, T, T) { return a; }},
        {"negateCopy",    [](T* d, const T* a, const T*, int n) { vec::negateCopy(d, a, n); },           [](T, T a, T, T) { return -a; }},
        {"addInplace",    [](T* d, const T* a, const T*, int n) { vec::addInplace(d, a, n); },           [](T d, T a, T, T) { return d + a; }},
        {"subInplace",    [](T* d, const T* a, const T*, int n) { vec::subInplace(d, a, n); },           [](T d, T a, T, T) { return d - a; }},
        {"mulInplace",    [](T* d, const T* a, const T*, int n) { vec::mulInplace(d, a, n); },           [](T d, T a, T, T) { return d * a; }},
        {"addCopy",       [](T* d, const T* a, const T* b, int n) { vec::addCopy(d, a, b, n); },         [](T, T a, T b, T) { return a + b; }},
        {"subCopy",       [](T* d, const T* a, const T* b, int n) { vec::subCopy(d, a, b, n); },         [](T, T a, T b, T) { return a - b; }},
        {"mulCopy",       [](T* d, const T* a, const T* b, int n) { vec::mulCopy(d, a, b, n); },         [](T, T a, T b, T) { return a * b; }},
        {"scale",         [](T* d, const T*, const T*, int n) { vec::scale(d, 3, n); },                  [](T d, T, T, T) { return d * 3; }},
        {"scaleCopy",     [](T* d, const T* a, const T*, int n) { vec::scaleCopy(d, a, 3, n); },         [](T, T a, T, T) { return a * 3; }},
        {"addConst",      [](T* d, const T*, const T*, int n) { vec::addConst(d, 3, n); },               [](T d, T, T, T) { return d + 3; }},
        {"addScaled",     [](T* d, const T* a, const T*, int n) { vec::addScaled(d, a, 3, n); },         [](T d, T a, T, T) { return d + a * 3; }},
        {"addScaledCopy", [](T* d, const T* a, const T* b, int n) { vec::addScaledCopy(d, a, b, 3, n); }, [](T, T a, T b, T) { return a + b * 3; }},
        {"mixScaled",     [](T* d, const T* a, const T* b, int n) { vec::mixScaled(d, a, b, 3, 5, n); }, [](T, T a, T b, T) { return a * 3 + b * 5; }},
        {"addScale",      [](T* d, const T* a, const T* b, int n) { vec::addScale(d, a, b, 3, n); },     [](T, T a, T b, T) { return (a + b) * 3; }},
        {"subScale",      [](T* d, const T* a, const T* b, int n) { vec::subScale(d, a, b, 3, n); },     [](T, T a, T b, T) { return (a - b) * 3; }},
        {"complement",    [](T* d, const T*, const T*, int n) { vec::complement(d, 1, n); },             [](T d, T, T, T) { return 1 - d; }},
        {"ramp",          [](T* d, const T*, const T*, int n) { vec::ramp(d, 0.25, 2, n); },             [](T, T, T, T g) { return g; }},
        {"rampGain",      [](T* d, const T*, const T*, int n) { vec::rampGain(d, 0.25, 2, n); },         [](T d, T, T, T g) { return d * g; }},
        {"rampGainCopy",  [](T* d, const T* a, const T*, int n) { vec::rampGainCopy(d, a, 0.25, 2, n); }, [](T, T a, T, T g) { return a * g; }},
        {"addRampGain",   [](T* d, const T* a, const T*, int n) { vec::addRampGain(d, a, 0.25, 2, n); }, [](T d, T a, T, T g) { return d + a * g; }},
        {"offsetRange",   [](T* d, const T*, const T*, int n) { vec::offsetRange(d, 0.125, 0, 0.5, n); },  [](T d, T, T, T) { return std::clamp(d + T(0.125), T(0), T(0.5)); }},
        {"offsetRangeCopy", [](T* d, const T* a, const T*, int n) { vec::offsetRangeCopy(d, a, 0.125, 0, 0.5, n); }, [](T, T a, T, T) { return std::clamp(a + T(0.125), T(0), T(0.5)); }},
        {"clampMax",      [](T* d, const T*, const T*, int n) { vec::clampMax(d, 0.25, n); },             [](T d, T, T, T) { return std::min(d, T(0.25)); }},
        {"clampMin",      [](T* d, const T*, const T*, int n) { vec::clampMin(d, 0.25, n); },             [](T d, T, T, T) { return std::max(d, T(0.25)); }},
        {"max",           [](T* d, const T* a, const T*, int n) { vec::max(d, a, n); },                  [](T d, T a, T, T) { return std::max(d, a); }},
        {"min",           [](T* d, const T* a, const T*, int n) { vec::min(d, a, n); },                  [](T d, T a, T, T) { return std::min(d, a); }},
        {"maxAbs",        [](T* d, const T* a, const T*, int n) { vec::maxAbs(d, a, n); },               [](T d, T a, T, T) { return std::max(d, std::abs(a)); }},
        {"maxAbsCopy",    [](T* d, const T* a, const T* b, int n) { vec::maxAbsCopy(d, a, b, n); },      [](T, T a, T b, T) { return std::max(std::abs(a), std::abs(b)); }},
        {"absMax",        [](T* d, const T* a, const T*, int n) { vec::absMax(d, a, n); },               [](T d, T a, T, T) { return std::abs(d) >= std::abs(a) ? d : a; }},
        {"absMaxCopy",    [](T* d, const T* a, const T* b, int n) { vec::absMaxCopy(d, a, b, n); },      [](T, T a, T b, T) { return std::abs(a) >= std::abs(b) ? a : b; }},
        {"absCopy",       [](T* d, const T* a, const T*, int n) { vec::absCopy(d, a, n); },              [](T, T a, T, T) { return std::abs(a); }},
        {"abs",           [](T* d, const T*, const T*, int n) { vec::abs(d, n); },                       [](T d, T, T, T) { return std::abs(d); }},
        {"peak",          [](T* d, const T* a, const T*, int n) { d[0] = vec::peak(a, n); d[1] = vec::peak(d + 1, n - 1); }, nullptr},
        {"gainPeak",      [](T* d, const T*, const T*, int n) { const T p = vec::gainPeak(d, 3, n); EXPECT_EQ(p, vec::peak(d, n)); }, [](T d, T, T, T) { return d * 3; }},
        {"rampGainPeak",  [](T* d, const T*, const T*, int n) { const T p = vec::rampGainPeak(d, 0.25, 2, n); EXPECT_EQ(p, vec::peak(d, n)); }, [](T d, T, T, T g) { return d * g; }},
    };
    // clang-format on
    constexpr int n = 23;
    T a[n], b[n], start[n];
    for (int i = 0; i < n; ++i) {
        a[i] = std::sin(T(i));
        b[i] = std::cos(T(3 * i));
        start[i] = T(0.8) * std::sin(T(5 * i));
    }
    for (const auto& c : cases) {
        std::vector<T> d(start, start + n);
        c.call(d.data(), a, b, n);
        for (int i = 0; i < n && c.law; ++i) {
            const T g = 2 - T(1.75) / n * T(n - 1 - i);
            EXPECT_EQ(d[static_cast<std::size_t>(i)], c.law(start[i], a[i], b[i], g))
                << c.name << i;
        }
        if (!c.law) {
            const auto largest = [](T x, T y) { return std::abs(x) < std::abs(y); };
            EXPECT_EQ(d[0], std::abs(*std::max_element(a, a + n, largest)));
            EXPECT_EQ(d[1], std::abs(*std::max_element(start + 1, start + n, largest)));
        }
        const std::vector<T> before = d;
        if (c.law) c.call(d.data(), a, b, 0);
        EXPECT_EQ(d, before) << c.name << " of 0 elements";
    }
}

TEST(VecRamp, HoldsItsFormulaWhereCountsExceedTheFractionOfAFloat)
{
    constexpr int n = (1 << 24) + 21;
    std::vector<float> x(n);
    vec::ramp(x.data(), 1, 3, n);
    const float step = 2.0f / float(n);
    for (int i = 0; i < n; i += i < 100 ? 1 : 9973) {
        ASSERT_EQ(x[static_cast<std::size_t>(i)], 3 - step * float(n - 1 - i)) << i;
    }
    EXPECT_EQ(x.back(), 3);
}

TEST(VecMixed, ConvertsAndMixesAcrossPrecisions)
{
    const float f[3] = {0.1f, -2, 3};
    const double w[3] = {0.1, -2, 1e300};
    double d[3];
    float s[3];
    vec::convert(d, f, 3);
    EXPECT_EQ(d[0], 0.1f);
    vec::convertScaled(d, f, 0.1, 3);
    EXPECT_EQ(d[0], 0.1f * 0.1);
    vec::convert(s, w, 3);
    EXPECT_EQ(s[0], 0.1f);
    EXPECT_EQ(s[2], HUGE_VALF);
    vec::convertScaled(s, w, 1e-300, 3);
    EXPECT_EQ(s[2], 1);
    vec::addScaled(s, w, 0.5f, 2);
    EXPECT_EQ(s[1], -1);
    vec::addScaled(d, f, 0.5f, 2);
    EXPECT_EQ(d[1], -2 * 0.1 - 1);
}

}  // namespace
}  // namespace quillworks
