// SPDX-License-Identifier: ISC
#include "dsp/sinc_table.h"

#include <gtest/gtest.h>
#include <numeric>
#include <vector>

#include "dsp/fractional_delay.h"
#include "dsp/resampler.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;

constexpr double kTurn = 2 * std::numbers::pi;

TEST(SincTable, IsSharedByDesignWhileItIsUsed)
{
    const SincDesign design{16, 32, 8};
    auto a = SincTable<float>::shared(design), b = SincTable<float>::shared(design);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, SincTable<float>::shared({16, 32, 8, 0.9}));
    const std::weak_ptr<const SincTable<float>> last = a;
    a.reset();
    b.reset();
    EXPECT_TRUE(last.expired());
}

TEST(SincTable, RowsOfEveryKindHaveTheirSum)
{
    for (const SincDesign& d :
         {SincDesign{24, 256, 9}, SincDesign{32, 64, 9, 0.92}, SincDesign{128, 32, 12, 0.94}})
        for (const auto kind :
             {SincKind::Taps, SincKind::Increment, SincKind::Step, SincKind::Corner}) {
            auto design = d;
            design.kind = kind;
            const SincTable<double> table(design);
            std::vector<double> row(std::size_t(table.taps()));
            for (const double phase : {0.0, 0.25, 0.61, 1.0}) {
                table.rowAt(phase, row.data());
                const double sum = std::accumulate(row.begin(), row.end(), 0.0);
                // A step's residual is odd about the event: only the plain step's place is left.
                if (kind == SincKind::Step) {
                    EXPECT_NEAR(sum, phase - 0.5, 1e-4) << phase;
                } else if (kind != SincKind::Corner) {
                    EXPECT_NEAR(sum, 1, 1e-14) << phase;
                }
            }
        }
}

/// A sawtooth of `period` samples, falling by 2 at each jump, made band-limited by `kind`.
std::vector<double> sawtooth(SincKind kind, int frames, double period)
{
    const SincTable<double> table({128, 512, 12, 0.94, kind});
    std::vector<double> y(std::size_t(frames) + 300), row(std::size_t(table.taps()));
    double jumps = 0;  // so far, of the increments
    for (double event = 0.3 * period; event < frames + 130; event += period) {
        const int sample = int(std::ceil(event));
        table.rowAt(sample - event, row.data());
        for (int k = 0; k < table.taps(); ++k) {
            const int at = sample - 64 + k;
            if (at >= 0 && at < int(y.size())) y[std::size_t(at)] -= 2 * row[std::size_t(k)];
        }
    }
    for (int i = 0; i < int(y.size()); ++i) {
        const double plain = 2 * (i / period);
        jumps += y[std::size_t(i)];
        if (kind == SincKind::Increment)
            y[std::size_t(i)] = plain + jumps;
        else
            y[std::size_t(i)] += plain - 2 * std::floor(i / period + 0.7);
    }
    y.resize(std::size_t(frames));
    return y;
}

/// The power of all that is neither constant nor a harmonic of 1/period, in dB below the rest.
double aliases(std::vector<double> y, double period)
{
    const double n = double(y.size());
    const double before = rms(y);
    for (int pass = 0; pass < 2; ++pass)
        for (int k = 0; k < period / 2; ++k) {  // whole periods: the harmonics are orthogonal
            double re = 0, im = 0;
            for (std::size_t i = 0; i < y.size(); ++i) {
                re += y[i] * std::cos(kTurn * k * double(i) / period);
                im += y[i] * std::sin(kTurn * k * double(i) / period);
            }
            const double scale = (k == 0 ? 1 : 2) / n;
            for (std::size_t i = 0; i < y.size(); ++i)
                y[i] -= scale * (re * std::cos(kTurn * k * double(i) / period) +
                                 im * std::sin(kTurn * k * double(i) / period));
        }
    return db(rms(y) / before);
}

TEST(SincTable, StepsAndIncrementsMakeASawtoothWithoutAliases)
{
    const double period = 8192 / 853.0;  // 5 kHz at 48 kHz; 853 whole periods
    for (const auto kind : {SincKind::Step, SincKind::Increment}) {
        const auto y = sawtooth(kind, 8192 + 400, period);
        EXPECT_LT(aliases({y.begin() + 400, y.end()}, period), -120);
        EXPECT_NEAR(amplitudeAt(y, 1, period, 400, 8592), 2 / std::numbers::pi, 1e-5);
    }
}

TEST(SincTable, CornersAreStepsSummedUp)
{
    // d/dt of the corner at tap k is the step there, and its value at the end 0.
    const SincDesign d{32, 512, 9, 0.92, SincKind::Corner};
    auto steps = d;
    steps.kind = SincKind::Step;
    const SincTable<double> corner(d), step(steps);
    for (int i = 1; i < 512; i += 7)
        for (int k = 0; k < 32; ++k)
            ASSERT_NEAR((corner.row(i + 1)[k] - corner.row(i - 1)[k]) * 256, step.row(i)[k], 2e-5);
}

TEST(FractionalDelay, IsExactOnSamplesAndMovesSmoothlyBetweenThem)
{
    FractionalDelay<float> fixed, moving;
    fixed.prepare(40);
    moving.prepare(40);
    fixed.reset();
    moving.reset();
    const auto x = sine<float>(3200, 1000, 48000);
    double worst = 0;
    for (int from = 0; from < 3200; from += 32) {
        float y[32], z[32];
        double delays[32];
        const int whole = from / 32 % 40;
        fixed.process(y, x.data() + from, double(whole), 32);
        for (int i = 0; i < 32; ++i) {
            const int n = from + i;
            delays[i] = 20 + 20 * std::sin(n * 1e-3);
            ASSERT_EQ(y[i], n < whole ? 0 : x[std::size_t(n - whole)]) << n;
        }
        moving.process(z, x.data() + from, delays, 32);
        for (int i = 0; i < 32; ++i) {
            if (from < 64) continue;
            const double at = from + i - delays[i];
            worst = std::max(worst, std::abs(double(z[i]) - std::sin(kTurn * at / 48)));
        }
    }
    EXPECT_LT(worst, 2e-5);
}

struct Ratio {
    double from, to, frequency, gain;  // gain in dB; below -100: at most
};

TEST(Resampler, PassesTheBandAndStopsTheRest)
{
    for (const auto& [from, to, frequency, gain] :
         {Ratio{44100, 48000, 1000, 0}, Ratio{44100, 48000, 20000, 0},
          Ratio{48000, 192000, 20000, 0}, Ratio{48000, 44100, 20000, 0},
          Ratio{48000, 44100, 22100, -117}, Ratio{48000, 8000, 3600, 0},
          Ratio{48000, 8000, 4010, -117}, Ratio{44100 * 1.2345678901, 48000, 15000, 0}}) {
        const double step = from / to;
        const auto x = sine<double>(8000, frequency, from);
        const auto y = resample(x, step);
        ASSERT_EQ(y.size(), std::size_t(std::ceil(8000 / step)));
        const auto edge = std::size_t(1300 / step) + 1;
        double worst = 0;
        for (std::size_t i = edge; i + edge < y.size(); ++i) {
            const double wanted = gain < -100 ? 0 : std::sin(kTurn * frequency * double(i) / to);
            worst = std::max(worst, std::abs(y[i] - wanted));
        }
        // 0.0001 dB are an error of 1.15e-5.
        EXPECT_LT(worst, gain < -100 ? std::pow(10, gain / 20) : 1.2e-5)
            << from << " " << frequency;
    }
}

TEST(Resampler, MayBeReadInPiecesAndFromBeforeTheBeginning)
{
    for (const double step : {147 / 160.0, std::numbers::phi}) {
        const Resampler resampler(step);
        const auto x = noise<float>(1000);
        std::vector<float> whole(1500), piece(1500);
        resampler.read(x.data(), 1000, -200, whole.data(), 1500);
        for (int i = 0; i < 1500; i += 100)
            resampler.read(x.data(), 1000, i - 200, piece.data() + i, 100);
        EXPECT_EQ(whole, piece);
        EXPECT_EQ(whole[std::size_t(200 - resampler.reach() / step) - 1], 0);
        EXPECT_NE(whole[150], 0);
    }
}

}  // namespace
}  // namespace quillworks
