// SPDX-License-Identifier: ISC
// What a limiter consists of: its curve, its follower, and the level between the samples.
#include <gtest/gtest.h>

#include "dynamics/limiting_curve.h"
#include "dynamics/limiting_follower.h"
#include "dynamics/true_peak_level.h"
#include "tests/support/signals.h"

namespace quillworks::test {
namespace {

/// Output level for an input level, section by section. dB relative to the ceiling.
double curveAt(double level, double threshold, double ratio)
{
    const double ceiling = -0.001, knee = std::min(-0.33 * threshold, 3.0);
    const double corner = ceiling + threshold, wall = corner - threshold * ratio;
    const double wallKnee = knee * ratio;
    if (threshold == 0) return std::min(level, ceiling);
    if (level <= corner - knee) return level;
    if (level <= corner + knee) {
        const double x = level - corner + knee;
        return level - (1 - 1 / ratio) * x * x / (4 * knee);
    }
    if (level <= wall - wallKnee) return corner + (level - corner) / ratio;
    if (level <= wall + wallKnee) {
        const double x = wall + wallKnee - level;
        return ceiling - x * x / (4 * wallKnee * ratio);
    }
    return ceiling;
}

Signal<double> reductions(const LimitingCurve& curve, double level, double* due)
{
    const double linear = std::pow(10, level / 20);
    double levels[16] = {linear}, wanted[16], least[16];
    curve.reductions(levels, wanted, least, 1);
    *due = least[0];
    return {wanted[0]};
}

TEST(LimitingCurve, FollowsItsSectionsAndMeetsTheWorkingCeiling)
{
    for (double threshold : {0.0, -0.1, -1.0, -6.0, -12.0})
        for (double ratio : {1.0, 2.0, 4.5, 20.0}) {
            LimitingCurve curve;
            curve.setTarget(threshold, ratio);
            curve.snap();
            for (double level = -40; level < 100; level += 0.37) {
                double due = 0;
                const double wanted = reductions(curve, level, &due)[0];
                ASSERT_NEAR(level - wanted, curveAt(level, threshold, ratio), 1e-9)
                    << threshold << " dB, " << ratio << ":1, " << level;
                ASSERT_NEAR(due, std::max(0.0, level + 0.001), 1e-9);
                ASSERT_GE(wanted, due);
            }
            double due = 1;
            EXPECT_EQ(reductions(curve, -400, &due)[0], 0);
            EXPECT_EQ(due, 0);
        }
    EXPECT_NEAR(LimitingCurve::kneeOf(-12), 3.0, 1e-12);
    EXPECT_NEAR(LimitingCurve::kneeOf(-3), 0.99, 1e-12);
}

TEST(LimitingCurve, MovesToANewSettingInTwentyEqualSteps)
{
    LimitingCurve curve;
    curve.prepare(5);
    curve.snap();
    curve.setTarget(-8, 2);
    std::vector<double> corners;
    for (int subBlock = 0; subBlock < 120; ++subBlock)
        if (curve.advance()) {
            EXPECT_EQ(subBlock % 5, 0);
            corners.push_back(curve.shape().corner);
        }
    ASSERT_EQ(corners.size(), 20u);
    for (std::size_t i = 0; i < 20; ++i)
        EXPECT_NEAR(corners[i], -0.001 - 0.4 * double(i + 1), 1e-9);
}

/// The follower sample by sample, by definition. Rate in Hz, times in seconds.
struct PlainFollower {
    double rate, attack, release, span;
    bool programme, catches;

    Signal<double> run(const Signal<double>& wanted, const Signal<double>& due) const
    {
        const int ahead = int(0.0015 * rate + 0.5), held = int(span * rate) + ahead + 1;
        const auto most = [](const Signal<double>& x, std::size_t i, int n) {
            double m = 0;
            for (int k = 0; k < n && std::size_t(k) <= i; ++k)
                m = std::max(m, x[i - std::size_t(k)]);
            return m;
        };
        const auto coefficient = [&](double t) {
            return std::exp(-2 * std::numbers::pi / (rate * t));
        };
        double a = 0, b = 0;
        Signal<double> c(wanted.size()), out(wanted.size());
        const auto move = [&](double& body, double e, double h, double up, double down) {
            if (e > body)
                body = e + coefficient(up) * (body - e);
            else if (h < body && (body = h + coefficient(down) * (body - h)) < 1e-5)
                body = 0;
        };
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            const double e = most(wanted, i, ahead + 1), h = most(wanted, i, held);
            move(a, e, h, attack, programme ? release / 4 : release);
            if (programme) move(b, e, h, 0.4, release * 2);
            c[i] = std::max(a, b);
            if (catches) c[i] = std::max(c[i], most(due, i, ahead + 1));
        }
        const int n1 = ahead / 2 + 1, n2 = ahead + 2 - n1;
        for (std::size_t i = 0; i < wanted.size(); ++i)
            for (int j = 0; j < n1; ++j)
                for (int k = 0; k < n2; ++k)
                    if (std::size_t(j + k) <= i) out[i] += c[i - std::size_t(j + k)] / (n1 * n2);
        return out;
    }
};

TEST(LimitingFollower, IsItsDefinitionAndNeverLeavesAPeakUncovered)
{
    std::mt19937 random(kSeed);
    const double rate = 8000;
    for (int setting = 0; setting < 8; ++setting) {
        const bool holds = setting & 1, programme = setting & 2, catches = !(setting & 4);
        const PlainFollower plain{rate, 0.01, 0.05, holds ? 0.025 : 0, programme, catches};
        LimitingFollower follower;
        follower.prepare(rate);
        follower.setTimes(plain.attack, plain.release);
        follower.setHold(holds);
        follower.setProgrammeRelease(programme);
        follower.setCatches(catches);
        Signal<double> due(6000), wanted(6000), smooth(6008);
        for (std::size_t i = 0; i < 3000; ++i) {
            due[i] = random() % 40 == 0 ? double(random() % 20) : 0;
            wanted[i] = due[i] + (random() % 30 == 0 ? 2 : 0);
        }
        for (std::size_t at = 0; at < wanted.size();) {
            const auto n = std::min(wanted.size() - at, std::size_t(random() % 41));
            const double most =
                follower.process(wanted.data() + at, due.data() + at, smooth.data() + at, int(n));
            double expected = 0;
            for (const std::size_t end = at + n; at < end; ++at) {
                smooth[at] = -20 * std::log10(smooth[at]);
                expected = std::max(expected, smooth[at]);
            }
            ASSERT_NEAR(most, expected, 1e-12);
        }
        const auto expected = plain.run(wanted, due);
        const auto ahead = std::size_t(follower.lookAhead());
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            ASSERT_NEAR(smooth[i], expected[i], 1e-6) << setting << ": " << i;
            if (catches && i >= ahead) {
                ASSERT_GE(smooth[i], due[i - ahead] - 1e-12) << setting << ": " << i;
            }
        }
        EXPECT_TRUE(follower.isIdle()) << "everything has been released";
        EXPECT_EQ(smooth[wanted.size() - 1], 0);
    }
}

/// Levels of a signal, phase after phase, in pieces of random length, some of them left out.
Signal<double> levelsOf(Signal<double> x, std::mt19937& random, bool leavesOut)
{
    TruePeakLevel level;
    level.prepare(1);
    const std::size_t frames = x.size();
    x.insert(x.begin(), TruePeakLevel::kBehind, 0);
    x.resize(x.size() + TruePeakLevel::kAhead + TruePeakLevel::kPadding);
    Signal<double> out(4 * frames, -1);
    for (std::size_t at = 0; at < frames;) {
        const auto n = std::min(frames - at, std::size_t(1 + random() % 32));
        if (leavesOut && random() % 3 == 0) {
            level.pass();
        } else {
            alignas(64) double phases[4][32] = {};
            double* const pointers[] = {phases[0], phases[1], phases[2], phases[3]};
            level.raise(0, x.data() + TruePeakLevel::kBehind + at, int(n), pointers);
            for (std::size_t i = 0; i < n; ++i)
                for (std::size_t p = 0; p < 4; ++p) out[4 * (at + i) + p] = phases[p][i];
        }
        at += n;
    }
    return out;
}

TEST(TruePeakLevel, FindsTheCrestOfASineWhereverTheSamplesLie)
{
    std::mt19937 random(kSeed);
    for (double frequency : {0.001, 0.1, 0.25, 1.0 / 3, 0.4})
        for (double phase = 0; phase < 3.2; phase += 0.4) {
            const auto levels = levelsOf(sine<double>(2000, frequency, 1, 1, phase), random, false);
            double crest = 0;
            for (std::size_t i = 400; i < 7600; ++i) crest = std::max(crest, levels[i]);
            EXPECT_GE(crest, 0.985) << frequency << ", " << phase;
            EXPECT_LE(crest, 1.04) << frequency << ", " << phase;
        }
}

/// Twice the rate, by the definition of a midpoint filter; zeros around the signal.
Signal<double> doubled(const Signal<double>& x, int size, double beta)
{
    const auto bessel = [](double z) {
        double sum = 1, term = 1;
        for (int k = 1; k < 50; ++k) sum += term *= z * z / (4.0 * k * k);
        return sum;
    };
    std::vector<double> h;
    double sum = 0;
    for (int k = 0; k < size; ++k) {
        const double t = k + 0.5, u = t / size;
        h.push_back(std::sin(std::numbers::pi * t) / t * bessel(beta * std::sqrt(1 - u * u)));
        sum += 2 * h.back();
    }
    const auto at = [&](std::ptrdiff_t i) {
        return i >= 0 && i < std::ssize(x) ? x[std::size_t(i)] : 0.0;
    };
    Signal<double> y;
    for (std::ptrdiff_t i = 0; i < std::ssize(x); ++i) {
        double mid = 0;
        for (int k = 0; k < size; ++k) mid += h[std::size_t(k)] / sum * (at(i - k) + at(i + 1 + k));
        y.insert(y.end(), {x[std::size_t(i)], mid});
    }
    return y;
}

TEST(TruePeakLevel, IsWhatTwoChainsOfDoublingsMakeOfTheSignal)
{
    std::mt19937 random(kSeed);
    auto x = noise<double>(600, kSeed, 1);
    std::fill(x.begin(), x.begin() + 60, 0);
    std::fill(x.end() - 60, x.end(), 0);
    const auto eightfold = [&](int size, double beta) {
        return doubled(doubled(doubled(x, size, beta), 6, 8), 3, 6);
    };
    const auto a = eightfold(40, 8), b = eightfold(8, 4);
    const auto safe = [&](std::size_t i) {
        return std::max(std::abs(a[i]), std::abs(b[i])) + 0.6 * std::abs(a[i] - b[i]);
    };
    const auto levels = levelsOf(x, random, false);
    for (std::size_t i = 0; i < levels.size(); ++i)
        ASSERT_NEAR(levels[i], std::max(safe(2 * i), safe(2 * i + 1)), 1e-6) << i;
}

TEST(TruePeakLevel, DoesNotDependOnHowTheSignalIsDividedOrWhatIsLeftOut)
{
    std::mt19937 random(kSeed);
    const auto x = noise<double>(3000, kSeed, 1);
    const auto first = levelsOf(x, random, false);
    double gain = 0;
    for (int repeat = 0; repeat < 5; ++repeat) {
        const auto again = levelsOf(x, random, true);
        for (std::size_t i = 0; i < first.size(); ++i) {
            if (again[i] >= 0) {
                ASSERT_EQ(again[i], first[i]) << i;
            }
            gain = std::max(gain, first[i]);
        }
    }
    EXPECT_LT(gain, TruePeakLevel::kMaxGain);
    EXPECT_GT(gain, 1.0);
}

}  // namespace
}  // namespace quillworks::test
