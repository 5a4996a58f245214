// SPDX-License-Identifier: ISC
// The clipping curves.
#include "dsp/clip_shapes.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

template <typename T> class ClipShapes : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ClipShapes, Precisions);

TYPED_TEST(ClipShapes, AreOddMonotoneBoundedAndHaveTheirSlope)
{
    using T = TypeParam;
    const double slopes[kClipShapes] = {2, 1, 1, 1.5, std::numbers::pi / 2, 1, 1, 1, 1};
    // Values at y = 0.5 and at the input limit y = 3, by hand.
    const double half[] = {0.75,
                           0.5 * 27.25 / 29.25,
                           0.5,
                           0.6875,
                           std::sqrt(0.5),
                           std::tanh(0.5),
                           std::atan(std::numbers::pi / 4) * 2 / std::numbers::pi,
                           0.5 / std::sqrt(1.25),
                           1 - std::exp(-0.5)};
    const double end[] = {1,
                          1,
                          1,
                          1,
                          1,
                          std::tanh(3.0),
                          std::atan(std::numbers::pi * 1.5) * 2 / std::numbers::pi,
                          3 / std::sqrt(10.0),
                          1 - std::exp(-3.0)};
    for (int k = 0; k < kClipShapes; ++k) {
        Signal<T> x(2001);
        for (std::size_t i = 0; i < x.size(); ++i) x[i] = (T(i) - 1000) / 200;  // -5 .. 5
        auto y = x;
        const auto shape = static_cast<ClipShape>(k);
        ClipCurve<T>{}.apply(shape, y.data(), static_cast<int>(y.size()));
        for (std::size_t i = 0; i < x.size(); ++i) {
            EXPECT_EQ(y[i], -y[x.size() - 1 - i]) << k;
            EXPECT_LE(std::abs(y[i]), 1) << k;
            const T rounding = std::numeric_limits<T>::epsilon();
            EXPECT_GE(y[i], y[i > 0 ? i - 1 : 0] - rounding) << k << ": " << x[i];
        }
        EXPECT_NEAR(y[1100], half[k], 1e-6) << k;
        EXPECT_NEAR(y[1600], end[k], 1e-6) << k;
        EXPECT_EQ(y[2000], y[1600]) << k;  // the input is limited to 3
        T tiny = T(1e-4);
        ClipCurve<T>{}.apply(shape, &tiny, 1);
        EXPECT_NEAR(double(tiny) / 1e-4, slopes[k], 3e-4) << k;
        // The input limit acts before the pre-gain, the post-gain after everything.
        T scaled = 4;
        ClipCurve<T>{T(0.1), T(5)}.apply(shape, &scaled, 1);
        T expected = T(0.1) * T(3);
        ClipCurve<T>{}.apply(shape, &expected, 1);
        EXPECT_NEAR(scaled, 5 * expected, 1e-6) << k;
    }
}

}  // namespace
}  // namespace quillworks::test
