// SPDX-License-Identifier: ISC
// Block mathematics against the standard library in long double, on every instruction set.
#include "dsp/vector_math.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "vectorlib/vector_library.h"

namespace quillworks::vec {
namespace {

using Extended = long double;

template <class T> struct Function {
    const char* name;
    void (*block)(const detail::MathKernels<T>&, T* d, const T* s, int n);
    Extended (*reference)(Extended);
    Extended low, high;  // arguments swept: geometrically if both are positive
};

template <class T> std::vector<Function<T>> functions()
{
    using M = const detail::MathKernels<T>&;
    using L = std::numeric_limits<T>;
    const Extended octaves = L::max_exponent;
    // clang-format off
    return {
        {"log2",  [](M m, T* d, const T* s, int n) { m.log2(d, s, n); },  [](Extended x) { return std::log2(x); }, L::min(), L::max()},
        {"log10", [](M m, T* d, const T* s, int n) { m.log10(d, s, n); }, [](Extended x) { return std::log10(x); }, L::min(), L::max()},
        {"log2 near 1",  [](M m, T* d, const T* s, int n) { m.log2(d, s, n); },  [](Extended x) { return std::log2(x); }, 0.999L, 1.001L},
        {"exp",   [](M m, T* d, const T* s, int n) { m.exp(d, s, n); },   [](Extended x) { return std::exp(x); }, -octaves * 0.68L, octaves * 0.69L},
        {"exp2",  [](M m, T* d, const T* s, int n) { m.exp2(d, s, n); },  [](Extended x) { return std::exp2(x); }, -octaves + 2, octaves - 0.001L},
        {"gainFromDecibels", [](M m, T* d, const T* s, int n) { m.gainFromDecibels(d, s, n); }, [](Extended x) { return std::pow(10.0L, x / 20); }, -700, 700},
        {"tanh",  [](M m, T* d, const T* s, int n) { m.tanh(d, s, n); },  [](Extended x) { return std::tanh(x); }, -30, 30},
        {"tanh near 0", [](M m, T* d, const T* s, int n) { m.tanh(d, s, n); }, [](Extended x) { return std::tanh(x); }, 1e-30L, 1},
        {"sqrt",  [](M m, T* d, const T* s, int n) { m.sqrt(d, s, n); },  [](Extended x) { return std::sqrt(x); }, L::min(), L::max()},
        {"decibelsFromPower", [](M m, T* d, const T* s, int n) { m.decibelsFromPower(d, s, T(1e-20), n); },
            [](Extended x) { return 10 * std::log10(x + Extended(T(1e-20))); }, 1e-25L, 1e3L},
    };
    // clang-format on
}

template <class T> class VectorMath : public ::testing::Test {
protected:
    static constexpr T kTolerance = std::is_same_v<T, float> ? T(1e-6) : T(1e-14);

    /// Calls f(kernels, name) for every build this processor can run.
    template <class F> void forEachSet(F f)
    {
        using namespace DSP::VectorLib;
        for (int set : {kPermitScalar, kPermitSse2, kPermitAvx2, kPermitAvx512})
            if (const auto* kernels = detail::mathFor<T>(set)) f(*kernels, set);
    }
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(VectorMath, Precisions);

TYPED_TEST(VectorMath, IsAccurateOverTheWholeRange)
{
    using T = TypeParam;
    constexpr int n = 100003;
    std::vector<T> x(n), y(n);
    for (const auto& f : functions<T>()) {
        for (int i = 0; i < n; ++i) {
            const Extended at = Extended(i) / (n - 1);
            const auto k = static_cast<std::size_t>(i);
            x[k] =
                T(f.low > 0 ? f.low * std::pow(f.high / f.low, at) : f.low + (f.high - f.low) * at);
            if (f.low > 0) x[k] = std::clamp(x[k], T(f.low), T(f.high));
        }
        this->forEachSet([&](const auto& kernels, int set) {
            f.block(kernels, y.data(), x.data(), n);
            Extended worst = 0;
            T worstAt = 0;
            for (std::size_t i = 0; i < x.size(); ++i) {
                const Extended wanted = f.reference(x[i]);
                const Extended error =
                    wanted == 0 ? std::abs(Extended(y[i])) : std::abs(y[i] / wanted - 1);
                if (!(error <= worst)) {
                    worst = error;
                    worstAt = x[i];
                }
            }
            EXPECT_LE(worst, this->kTolerance) << f.name << " at " << worstAt << ", set " << set;
        });
    }
}

TYPED_TEST(VectorMath, AnyCountInPlaceOrApartGivesTheSameAndTouchesNothingElse)
{
    using T = TypeParam;
    for (const auto& f : functions<T>())
        this->forEachSet([&](const auto& kernels, int set) {
            for (int n = 0; n <= 40; ++n)
                for (int offset : {0, 1, 5}) {
                    std::vector<T> x(50, T(0.5)), apart(50, T(77));
                    for (std::size_t i = 0; i < x.size(); ++i) x[i] = T(0.3) + T(i) / 17;
                    auto inPlace = x;
                    f.block(kernels, apart.data() + offset, x.data() + offset, n);
                    f.block(kernels, inPlace.data() + offset, inPlace.data() + offset, n);
                    for (int i = 0; i < 50; ++i) {
                        const auto k = static_cast<std::size_t>(i);
                        const bool inside = i >= offset && i < offset + n;
                        T alone;
                        f.block(kernels, &alone, &x[k], 1);
                        ASSERT_EQ(apart[k], inside ? alone : T(77))
                            << f.name << set << ' ' << n << ' ' << i;
                        ASSERT_EQ(inPlace[k], inside ? alone : x[k])
                            << f.name << set << ' ' << n << ' ' << i;
                    }
                }
        });
}

TYPED_TEST(VectorMath, EdgesOfTheDomain)
{
    using T = TypeParam;
    using L = std::numeric_limits<T>;
    const T inf = L::infinity(), nan = L::quiet_NaN(), top = T(L::max_exponent);
    struct Edge {
        const char* function;
        T x, y;
    };
    const Edge edges[] = {
        {"log2", 0, -inf},
        {"log2", -T(0), -inf},
        {"log2", L::denorm_min(), -inf},
        {"log2", -1, nan},
        {"log2", inf, inf},
        {"log2", -inf, nan},
        {"log2", nan, nan},
        {"log2", 1, 0},
        {"log2", 8, 3},
        {"log10", 1, 0},
        {"log2", L::min(), T(L::min_exponent - 1)},
        {"decibelsFromPower", nan, nan},
        {"decibelsFromPower", inf, inf},
        {"decibelsFromPower", -1, nan},
        {"exp", inf, inf},
        {"exp", -inf, 0},
        {"exp", nan, nan},
        {"exp", 0, 1},
        {"exp", 1000, inf},
        {"exp", -1000, 0},
        {"exp2", top, inf},
        {"exp2", 2 - top, L::min()},
        {"exp2", 1 - top, 0},
        {"exp2", L::max(), inf},
        {"exp2", L::lowest(), 0},
        {"exp2", 10, 1024},
        {"exp2", -10, T(1) / 1024},
        {"gainFromDecibels", 0, 1},
        {"gainFromDecibels", -inf, 0},
        {"tanh", inf, 1},
        {"tanh", -inf, -1},
        {"tanh", nan, nan},
        {"tanh", 0, 0},
        {"tanh", L::max(), 1},
        {"sqrt", 0, 0},
        {"sqrt", -1, nan},
        {"sqrt", inf, inf},
        {"sqrt", nan, nan},
        {"sqrt", L::denorm_min(), std::sqrt(L::denorm_min())},
    };
    for (const auto& f : functions<T>())
        this->forEachSet([&](const auto& kernels, int set) {
            for (const Edge& e : edges) {
                if (std::string(e.function) != f.name) continue;
                // Alone, and among ordinary elements, which must not suffer.
                for (int n : {1, 19}) {
                    std::vector<T> x(19, T(0.5)), y(19);
                    T half;
                    f.block(kernels, &half, x.data(), 1);
                    x[0] = e.x;
                    f.block(kernels, y.data(), x.data(), n);
                    EXPECT_TRUE(std::isnan(e.y) ? std::isnan(y[0]) : y[0] == e.y)
                        << f.name << '(' << e.x << ") is " << y[0] << ", set " << set;
                    for (std::size_t i = 1; i < std::size_t(n); ++i)
                        EXPECT_EQ(y[i], half) << f.name << e.x;
                }
            }
        });
    T minusZero = -T(0);
    tanh(&minusZero, &minusZero, 1);
    EXPECT_TRUE(std::signbit(minusZero));
}

TYPED_TEST(VectorMath, FrontCallsTheFunctionItNames)
{
    using T = TypeParam;
    const T x = T(0.7);
    const auto of = [&](auto function) {
        T y;
        function(&y, &x, 1);
        return y;
    };
    const T t = this->kTolerance * 10;
    EXPECT_NEAR(of(log2<T>), std::log2(x), t);
    EXPECT_NEAR(of(log10<T>), std::log10(x), t);
    EXPECT_NEAR(of(exp<T>), std::exp(x), t);
    EXPECT_NEAR(of(exp2<T>), std::exp2(x), t);
    EXPECT_NEAR(of(tanh<T>), std::tanh(x), t);
    EXPECT_EQ(of(sqrt<T>), std::sqrt(x));
    EXPECT_NEAR(of(gainFromDecibels<T>), std::pow(T(10), x / 20), t);
    T y;
    decibelsFromPower(&y, &x, 0.25, 1);
    EXPECT_NEAR(y, 10 * std::log10(x + T(0.25)), t);
}

}  // namespace
}  // namespace quillworks::vec
