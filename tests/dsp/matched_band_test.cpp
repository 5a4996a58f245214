// SPDX-License-Identifier: ISC
// Matched bells and shelves beside the analogue curves.
#include "dsp/matched_band.h"

#include <gtest/gtest.h>

#include <complex>

#include "tests/support/signals.h"

namespace quillworks {
namespace {

using Complex = std::complex<double>;
using Design = MatchedBand (*)(double, double, double, double);

MatchedBand lowShelfOf(double f, double gain, double, double fs)
{
    return MatchedBand::lowShelf(f, gain, fs);
}
MatchedBand highShelfOf(double f, double gain, double, double fs)
{
    return MatchedBand::highShelf(f, gain, fs);
}

/// Gain in dB of a section at a frequency: d + c (z - A)^-1 b of its states.
double gainDb(const SectionCoefficients<double>& c, double frequency, double sampleRate)
{
    const Complex z = std::polar(1.0, 2 * std::numbers::pi * frequency / sampleRate);
    const Complex a = z - (1 - c.r), d = z - (1 - c.b2), det = a * d + c.b1 * c.b1;
    const Complex z1 = (d * c.b1 - c.b1 * c.b2) / det, z2 = (a * c.b2 + c.b1 * c.b1) / det;
    return test::db(std::abs(c.c1 * z1 + c.c2 * z2 + c.d));
}

double bell(Complex s, double a, double q)
{
    return std::abs((s * s + s * a / q + 1.0) / (s * s + s / (a * q) + 1.0));
}
double highShelf(Complex s, double a, double q)
{
    const Complex middle = s * std::sqrt(a) / q;
    return std::abs(a * (a * s * s + middle + 1.0) / (s * s + middle + a));
}
double lowShelf(Complex s, double a, double q)
{
    return highShelf(1.0 / s, a, q);
}

TEST(MatchedBands, FollowTheAnalogueCurvesTo20kHz)
{
    const struct {
        Design design;
        double (*analogue)(Complex, double, double);
        double highest, bar;  // Hz, dB
    } rows[] = {{MatchedBand::bell, bell, 6000, 0.8},   {MatchedBand::bell, bell, 10000, 0.84},
                {MatchedBand::bell, bell, 15000, 1.36}, {lowShelfOf, lowShelf, 10000, 0.3},
                {highShelfOf, highShelf, 6000, 0.11},   {highShelfOf, highShelf, 10000, 1.01},
                {highShelfOf, highShelf, 15000, 2.12}};
    constexpr double fs = 44100;
    for (const auto& row : rows) {
        double worst = 0;
        for (double f0 = row.highest; f0 > 20; f0 *= 0.8)
            for (const double gain : {-15.0, -6.0, 6.0, 15.0})
                for (const double q : {0.4, kButterworthQ, 2.0, 6.0}) {
                    if (row.analogue != bell && q != kButterworthQ) continue;
                    const auto c = row.design(f0, gain, q, fs).section<double>();
                    for (double f = 10; f < 20000; f *= 1.05) {
                        const double a = std::pow(10, std::abs(gain) / 40);
                        const double boost = test::db(row.analogue(Complex(0, f / f0), a, q));
                        const double error = gainDb(c, f, fs) - std::copysign(boost, gain);
                        worst = std::max(worst, std::abs(error));
                    }
                }
        EXPECT_LT(worst, row.bar) << "up to " << row.highest << " Hz";
    }
}

TEST(MatchedBands, PassBitByBitAt0DbAndStayFiniteAtTheEndsOfEverything)
{
    for (const Design design : {Design(MatchedBand::bell), lowShelfOf, highShelfOf})
        for (const double fs : {8000.0, 44100.0, 384000.0})
            for (const double f : {20.0, 1000.0, 16000.0})
                for (const double q : {0.3, 0.5, 8.0}) {
                    const auto flat = design(f, 0, q, fs).section<float>();
                    EXPECT_TRUE(flat.c1 == 0 && flat.c2 == 0 && flat.d == 1) << f << " of " << fs;
                    const auto most = design(f, 18, q, fs), least = design(f, -18, q, fs);
                    const double at = std::min(f, kHighestCutOff * fs) / 2;
                    const double there = gainDb(most.section<double>(), at, fs);
                    EXPECT_NEAR(there, -gainDb(least.section<double>(), at, fs), 1e-4);
                    EXPECT_GT(there, -2.1);  // a shelf at 0.45 of the rate dips ahead of it
                    EXPECT_LT(there, 18.01);
                    for (const auto& band : {most, least}) {
                        EXPECT_GT(band.g, 0);
                        EXPECT_GT(band.k, 0.04);  // no pole near the circle
                    }
                }
}

/// A bell of +12 dB sweeps over a tone: coefficients that run linearly over sub-blocks beside ones
/// designed for every sample.
TEST(MatchedBands, SweepAsSmoothlyAsIfDesignedForEverySample)
{
    constexpr double fs = 48000;
    const auto at = [](int frame) {
        const double f = 200 * std::pow(25, std::min(1.0, frame / 4800.0));
        return MatchedBand::bell(f, 12, 2, fs).section<double>();
    };
    const auto x = test::sine<double>(4800, 1000, fs, std::pow(10, -12 / 20.0));
    auto ramped = x, exact = x;
    SectionState<double> a, b;
    SectionRamp<double> ramp;
    ramp.snap(at(0));
    for (int i = 0; i < 4800; i += kSubBlock) {
        ramp.follow(at(i + kSubBlock));
        ramp.run(a, &ramped[std::size_t(i)], kWholeSubBlock);
        for (int k = 0; k < kSubBlock; ++k) b.run(at(i + k + 1), &exact[std::size_t(i + k)], 1);
    }
    EXPECT_LT(test::peakDifferenceDb(ramped, exact), -42);
}

}  // namespace
}  // namespace quillworks
