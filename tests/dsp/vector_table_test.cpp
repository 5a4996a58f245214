// SPDX-License-Identifier: ISC
// Binding of the vector table, and the typed front over it.
#include "dsp/vector_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>
#include <type_traits>
#include <vector>

#include "dsp/vec.h"
#include "vectorlib/reference.h"

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

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// What a front does with d, s1 and s2 below and the constants 0.5, 1 and 2.
struct Front {
    const char* name;
    double d[4];
    double returned = -1;
};
constexpr double kD[] = {0.75, -0.5, -3, kNaN}, kS1[] = {-0.25, 2, 1, 1},
                 kS2[] = {1.5, -4, -1, kNaN};

// Worked by hand: the list of the operations must not be its own measure.
constexpr Front kFronts[] = {
    {"set", {0.5, 0.5, 0.5, 0.5}},
    {"copy", {-0.25, 2, 1, 1}},
    {"addInplace", {0.5, 1.5, -2, kNaN}},
    {"subInplace", {1, -2.5, -4, kNaN}},
    {"mulInplace", {-0.1875, -1, -3, kNaN}},
    {"addCopy", {1.25, -2, 0, kNaN}},
    {"subCopy", {-1.75, 6, 2, kNaN}},
    {"mulCopy", {-0.375, -8, -1, kNaN}},
    {"convertToDouble", {-0.25, 2, 1, 1}},
    {"convertToFloat", {-0.25, 2, 1, 1}},
    {"scaleToDouble", {-0.125, 1, 0.5, 0.5}},
    {"scaleToFloat", {-0.125, 1, 0.5, 0.5}},
    {"scaleCopy", {-0.125, 1, 0.5, 0.5}},
    {"scale", {0.375, -0.25, -1.5, kNaN}},
    {"addConst", {1.25, 0, -2.5, kNaN}},
    {"rampGain", {0.46875, -0.375, -2.625, kNaN}},
    {"rampGainCopy", {-0.15625, 1.5, 0.875, 1}},
    {"ramp", {0.625, 0.75, 0.875, 1}},
    {"addRampGain", {0.59375, 1, -2.125, kNaN}},
    {"addScaled", {0.625, 0.5, -2.5, kNaN}},
    {"addScaledCopy", {0.5, 0, 0.5, kNaN}},
    {"mixScaled", {1.375, -3, -0.5, kNaN}},
    {"addScale", {0.625, -1, 0, kNaN}},
    {"subScale", {-0.875, 3, 1, kNaN}},
    {"complement", {-0.25, 1, 3.5, kNaN}},
    {"offsetRange", {1.25, 1, 1, 1}},
    {"offsetRangeCopy", {1, 2, 1.5, 1.5}},
    {"clampMax", {0.5, -0.5, -3, 0.5}},
    {"clampMin", {0.75, 0.5, 0.5, 0.5}},
    {"max", {0.75, 2, 1, 1}},
    {"min", {-0.25, -0.5, -3, 1}},
    {"maxAbsCopy", {1.5, 4, 1, kNaN}},
    {"maxAbs", {0.75, 2, 1, 1}},
    {"absMaxCopy", {1.5, -4, 1, kNaN}},
    {"absMax", {0.75, 2, -3, 1}},
    {"absCopy", {0.25, 2, 1, 1}},
    {"abs", {0.75, 0.5, 3, kNaN}},
    {"negateCopy", {0.25, -2, -1, -1}},
    {"clear", {0, 0, 0, 0}},
    {"addScaledDouble", {0.625, 0.5, -2.5, kNaN}},
    {"addScaledFloat", {0.625, 0.5, -2.5, kNaN}},
    {"peak", {0.75, -0.5, -3, kNaN}, 3},
    {"rampGainPeak", {0.46875, -0.375, -2.625, kNaN}, 2.625},
    {"gainPeak", {0.375, -0.25, -1.5, kNaN}, 1.5},
};

template <class D, class S, class C, int sources, int constants, class F>
void expectFront(const Front& expected, const char* name, F front)
{
    ASSERT_STREQ(expected.name, name);
    D d[4];
    S s1[4], s2[4];
    for (int n : {4, 0}) {
        for (int i = 0; i < 4; ++i) d[i] = D(kD[i]), s1[i] = S(kS1[i]), s2[i] = S(kS2[i]);
        const auto call = [&] {
            return lib::reference::callWithOperands<sources, constants>(front, d, s1, s2, C(0.5),
                                                                        C(1), C(2), n);
        };
        double returned = -1;
        if constexpr (std::is_void_v<decltype(call())>)
            call();
        else
            returned = double(call());
        EXPECT_EQ(returned, n == 0 && expected.returned >= 0 ? 0 : expected.returned) << name;
        for (int i = 0; i < 4; ++i) {
            const double is = double(d[i]), wanted = n == 0 ? kD[i] : expected.d[i];
            EXPECT_TRUE(is == wanted || (std::isnan(is) && std::isnan(wanted)))
                << name << " element " << i << " of " << n << ": " << is;
        }
    }
}

TEST(VecFront, ComputesWhatItsNameSays)
{
    const Front* row = kFronts;
#define TYPED(front, operation, operands, sources, constants, result, law)                         \
    expectFront<float, float, float, sources, constants>(                                          \
        *row, #front, [](auto... x) { return vec::front(x...); });                                 \
    expectFront<double, double, double, sources, constants>(                                       \
        *row++, #front, [](auto... x) { return vec::front(x...); });
#define MIXED(id, front, name, D, S, C, constants, law)                                            \
    expectFront<D, S, C, 1, constants>(*row++, #id, [](auto... x) { return vec::front(x...); });
    VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
    EXPECT_EQ(row, std::end(kFronts));
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

TEST(VecMixed, ComputesInDoubleAndRoundsOnce)
{
    const float f[] = {0.1f, -2};
    const double w[] = {1e300, 0.1};
    double d[2];
    float s[2];
    vec::convertScaled(d, f, 0.1, 2);
    EXPECT_EQ(d[0], 0.1f * 0.1);
    vec::convert(s, w, 2);
    EXPECT_EQ(s[0], HUGE_VALF);
    vec::convertScaled(s, w, 1e-300, 2);
    EXPECT_EQ(s[0], 1);
    s[1] = 1;
    vec::addScaled(s + 1, w + 1, 1e-7f, 1);
    EXPECT_EQ(s[1], float(1 + 0.1 * double(1e-7f)));
}

}  // namespace
}  // namespace quillworks
