// SPDX-License-Identifier: ISC
// The K-weighting that is in use, as the compiler has left it.
#include "dsp/k_weighting.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>

#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

TEST(KWeighting, CoefficientsAreSinglePrecisionAfterOptimisationToo)
{
    for (const double rate : {8000., 44100., 48000., 96000., 192000., 384000.}) {
        const auto k = KWeighting::at(rate);
        for (const auto& s : {k.shelf, k.highPass})
            for (const double c : {s.b0, s.b1, s.b2, s.c1, s.c2})
                EXPECT_EQ(std::bit_cast<std::uint64_t>(c) & ((1u << 29) - 1), 0u)
                    << c << " at " << rate << " Hz";  // the 29 bits that a float has not
    }
}

TEST(KWeightingTail, IsWhatTheSectionsRingWithInSilence)
{
    for (const double rate : {8000., 44100., 48000., 384000.}) {
        const auto k = KWeighting::at(rate);
        KWeightingTail tail;
        tail.prepare(k);
        KWeightingPair filters;
        const auto length = std::size_t(rate / 10);
        const auto a = noise<double>(length, 1), b = sine<double>(length, 50, rate);
        const Signal<double> silence(length);
        Signal<double> ya(length), yb(length);
        filters.process(k, a.data(), b.data(), ya.data(), yb.data(), int(length));
        for (int channel = 0; channel < 2; ++channel) {
            auto state = filters.state(channel);
            auto sections = filters;
            for (const int n : {1, 37, int(rate / 100), 0, int(rate / 25)}) {
                sections.process(k, silence.data(), silence.data(), ya.data(), yb.data(), n);
                double power = 0;
                for (std::size_t i = 0; i < std::size_t(n); ++i)
                    power += std::pow((channel ? yb : ya)[i], 2);
                EXPECT_NEAR(tail.pass(state, n), power, 1e-5 * power) << rate << " Hz, " << n;
            }
        }
    }
}

}  // namespace
}  // namespace quillworks::test
