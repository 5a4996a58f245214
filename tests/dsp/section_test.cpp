// SPDX-License-Identifier: ISC
// Sections and one-poles: responses of the analogue filters, digits, stability under modulation.
#include "dsp/section.h"

#include <gtest/gtest.h>

#include <complex>
#include <random>

#include "dsp/flush_denormals.h"
#include "tests/support/signals.h"

namespace quillworks {
namespace {

using namespace test;
using Complex = std::complex<double>;

/// Response at a frequency, from the impulse response.
template <class State, class Coefficients>
Complex response(const Coefficients& c, double frequency, double sampleRate)
{
    State state;
    Complex sum = 0;
    for (int i = 0; i < 40000; ++i)
        sum += state.next(c, i == 0 ? 1.0 : 0.0) *
               std::polar(1.0, -2 * std::numbers::pi * frequency * i / sampleRate);
    return sum;
}

TEST(Sections, AreTheAnalogueFiltersOnTheWarpedAxis)
{
    using C = SectionCoefficients<double>;
    using P = OnePoleCoefficients<double>;
    constexpr double fs = 48000, f0 = 700, q = 1.7, k = 1 / q, gain = 3.1;
    const double a = std::sqrt(gain);
    for (const double f : {50.0, 690.0, 700.0, 4000.0, 23000.0}) {
        const double w = warpedFrequency(f0, fs);
        const Complex s(0, std::tan(std::numbers::pi * f / fs) / w), s2 = s * s;
        const Complex d = s2 + k * s + 1.0;
        const struct {
            const char* name;
            Complex is, should;
        } table[] = {
            {"low", response<SectionState<double>>(C::lowPass(f0, q, fs), f, fs), 1.0 / d},
            {"high", response<SectionState<double>>(C::highPass(f0, q, fs), f, fs), s2 / d},
            {"band", response<SectionState<double>>(C::bandPass(f0, q, fs), f, fs), k * s / d},
            {"notch", response<SectionState<double>>(C::notch(f0, q, fs), f, fs), (s2 + 1.0) / d},
            {"all", response<SectionState<double>>(C::allPass(f0, q, fs), f, fs),
             (s2 - k * s + 1.0) / d},
            {"low 1", response<OnePoleState<double>>(P::lowPass(f0, fs), f, fs), 1.0 / (s + 1.0)},
            {"high 1", response<OnePoleState<double>>(P::highPass(f0, fs), f, fs), s / (s + 1.0)},
            {"all 1", response<OnePoleState<double>>(P::allPass(f0, fs), f, fs),
             (1.0 - s) / (s + 1.0)},
            {"low shelf", response<OnePoleState<double>>(P::lowShelf(f0, gain, fs), f, fs),
             (s + a) / (s + 1 / a)},
            {"high shelf", response<OnePoleState<double>>(P::highShelf(f0, gain, fs), f, fs),
             (a * s + 1.0) / (s / a + 1.0)},
            {"tilt", response<OnePoleState<double>>(P::tilt(f0, gain, fs), f, fs),
             (gain + s / gain) / (s + 1.0)},
        };
        for (const auto& row : table)
            EXPECT_LT(std::abs(row.is - row.should), 1e-9) << row.name << " at " << f;
    }
}

TEST(Sections, SinglePrecisionKeepsItsDigitsAtLowFrequencies)
{
    const struct {
        double sampleRate, frequency, bar;  // dB re full scale, RMS
    } cases[] = {{48000, 40, -124}, {384000, 100, -119}};
    for (const auto& c : cases) {
        const auto errorDb = [&](auto make) {
            const auto single = make(0.0f);
            const auto twice = make(0.0);
            SectionState<float> s;
            SectionState<double> d;
            double sum = 0;
            const int n = static_cast<int>(2 * c.sampleRate);
            for (int i = 0; i < n; ++i) {
                const auto x = static_cast<float>(
                    std::sin(2 * std::numbers::pi * 0.9 * c.frequency * i / c.sampleRate));
                const double e = double(s.next(single, x)) - d.next(twice, double(x));
                sum += e * e;
            }
            return 10 * std::log10(sum / n);
        };
        const double low = errorDb([&](auto type) {
            return SectionCoefficients<decltype(type)>::lowPass(c.frequency, kButterworthQ,
                                                                c.sampleRate);
        });
        const double high = errorDb([&](auto type) {
            return SectionCoefficients<decltype(type)>::highPass(c.frequency, kButterworthQ,
                                                                 c.sampleRate);
        });
        EXPECT_LT(low, c.bar) << c.sampleRate;
        EXPECT_LT(high, c.bar) << c.sampleRate;
    }
}

template <typename T> class MovingSections : public ::testing::Test {};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MovingSections, Precisions);

TYPED_TEST(MovingSections, NeverAddEnergyHoweverTheyAreThrown)
{
    using T = TypeParam;
    const FlushDenormals flush;
    std::mt19937 random(kSeed);
    std::uniform_real_distribution<double> uniform(0, 1);
    const auto thrown = [&] {
        const double f = 20 * std::pow(1000, uniform(random)),
                     q = 0.3 * std::pow(300, uniform(random));
        return SectionCoefficients<T>::lowPass(f, q, 48000);
    };
    SectionRamp<T> ramp;
    ramp.snap(thrown());
    SectionState<T> state;
    double energy = 0;
    for (int block = 0; block < 5000; ++block) {
        ramp.follow(thrown());
        // Further down the products themselves are flushed.
        if (energy < 1e-30) state = {T(uniform(random)), T(1)};
        energy = double(state.z1) * double(state.z1) + double(state.z2) * double(state.z2);
        for (int i = 0; i < kSubBlock; ++i) {
            state.next(ramp.at(i), T(0));
            const double now =
                double(state.z1) * double(state.z1) + double(state.z2) * double(state.z2);
            ASSERT_LE(now, energy * (sizeof(T) == 4 ? 1 + 5e-7 : 1 + 1e-15));
            energy = now;
        }
    }
}

TYPED_TEST(MovingSections, RampsRunFromEndToEndAndDoNotDependOnTheDivision)
{
    using T = TypeParam;
    using C = SectionCoefficients<T>;
    SectionRamp<T> ramp;
    const auto from = C::bandPass(200, 1, 48000), to = C::highPass(5000, 3, 48000);
    ramp.snap(from);
    EXPECT_EQ(ramp.at(3), from);
    ramp.follow(to);
    EXPECT_EQ(ramp.at(31), to);
    EXPECT_NEAR(ramp.at(15).d, (double(from.d) + double(to.d)) / 2, 1e-6);
    auto whole = noise<T>(kSubBlock), cut = whole;
    SectionState<T> a, b;
    ramp.run(a, whole.data(), kWholeSubBlock);
    for (const auto& [phase, n] : {std::pair{0, 1}, {1, 12}, {13, 19}})
        ramp.run(b, cut.data() + phase, {n, phase});
    EXPECT_EQ(cut, whole);
    ramp.follow(to);
    EXPECT_FALSE(ramp.isMoving());
}

}  // namespace
}  // namespace quillworks
