// SPDX-License-Identifier: ISC
// Edges exact to the sample, the same song from any place, and changes without a click.
#include <numeric>

#include "tests/support/song.h"

namespace quillworks::test {
namespace {

constexpr const char* kName = "Wobbla";

template <typename T> void levels(EffectUnderTest<T>& fx, const std::vector<double>& percent)
{
    fx.set("steps", double(percent.size()));
    for (std::size_t i = 0; i < percent.size(); ++i)
        fx.set("steplevel" + std::to_string(i), percent[i]);
}

/// The law as it is written down: every stretch listed, one after the other, in seconds.
class Model {
public:
    Model(const std::vector<double>& levels, double step, double swing, double gate, double edge,
          int steps)
        : edge_(edge)
    {
        for (int k = -70; k < steps; ++k) {
            const auto start = [&](int i) { return step * (i + (i % 2 ? swing / 2 : 0)); };
            const int count = int(levels.size());
            add(start(k), levels[std::size_t(((k % count) + count) % count)]);
            add(start(k) + gate * (start(k + 1) - start(k)),
                gate < 1 ? 0 : stretches_.back().level);
        }
    }
    double at(double t) const
    {
        if (stretches_.size() < 2) return stretches_[0].level;
        const auto later = std::upper_bound(stretches_.begin(), stretches_.end(), t,
                                            [](double a, const Stretch& s) { return a < s.start; });
        const auto i = std::size_t(later - stretches_.begin()) - 1;
        double v = stretches_[i].level;
        for (const auto e : {i, i + 1}) {
            const double jump = stretches_[e].level - stretches_[e - 1].level;
            const double z = (t - stretches_[e].start) / width(e);
            const auto q = [](double x) { return x * x * x * (10 - 15 * x + 6 * x * x); };
            if (e == i && jump < 0 && z < 1) v -= jump * (1 - q(z));
            if (e == i + 1 && jump > 0 && z > -1) v += jump * q(z + 1);
        }
        return v;
    }
    /// Largest slope around t, per second.
    double steepest() const
    {
        double steepest = 0;
        for (std::size_t e = 1; e + 1 < stretches_.size(); ++e)
            steepest = std::max(steepest,
                                std::abs(stretches_[e].level - stretches_[e - 1].level) / width(e));
        return 1.875 * steepest;
    }

private:
    struct Stretch {
        double start, level;
    };
    void add(double start, double level)
    {
        if (stretches_.empty() || stretches_.back().level != level)
            stretches_.push_back({start, level});
    }
    double width(std::size_t e) const
    {
        const auto length = [&](std::size_t i) {
            return i > 0 && i + 1 < stretches_.size()
                       ? stretches_[i + 1].start - stretches_[i].start
                       : 1e9;
        };
        return std::min(edge_, 0.45 * std::min(length(e), length(e - 1)));
    }

    double edge_;
    std::vector<Stretch> stretches_;
};

TEST(WobblaEdges, FollowTheLawInRandomPatternsAtAnyRate)
{
    std::mt19937 random(kSeed);
    const auto draw = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    for (int pattern = 0; pattern < 200; ++pattern) {
        std::vector<double> percent(std::size_t(1 + pattern % 32));
        for (auto& p : percent) p = std::max(0.0, std::floor(draw(-2, 5)) * 25);
        const double swing = std::floor(draw(-50, 100)), gate = std::floor(draw(20, 140));
        const double edge = std::floor(draw(1, 40)), rate = pattern % 3 ? 48000 : 8000;
        EffectUnderTest<double> fx(kName);
        levels(fx, percent);
        fx.set("swing", std::max(0.0, swing)).set("gate", std::min(100.0, gate)).set("edge", edge);
        const int frames = int(rate);
        const auto y = Song{.rate = rate}.play(fx, 0, frames)[0];
        for (auto& p : percent) p = double(float(p) * 0.01f);
        const Model model(percent, 0.125, double(float(fx.get("swing")) * 0.01f),
                          double(float(fx.get("gate")) * 0.01f), double(float(edge) * 0.001f), 80);
        double worst = 0;
        for (int i = 0; i < frames; ++i)
            worst = std::max(worst, std::abs(y[std::size_t(i)] - model.at(i / rate)));
        ASSERT_LT(worst, 1e-9) << pattern;
        ASSERT_LE(*std::max_element(y.begin(), y.end()), 1);
        ASSERT_GE(*std::min_element(y.begin(), y.end()), 0);
        ASSERT_LE(largestStep(y), 1.01 * model.steepest() / rate) << pattern;
    }
}

TEST(WobblaEdges, EndOnTheBeatAndBeginThere)
{
    // Sixteenths, and triplets twenty minutes into the song.
    for (const double beats : {0.125, 1 / 12.0}) {
        EffectUnderTest<float> fx(kName);
        levels(fx, {100, 20});
        fx.set("beatsnu", beats);
        const int step = int(48000 * beats);
        const std::int64_t start = step == 6000 ? 0 : 57600000;
        const auto y = Song{}.play(fx, start, 8 * step)[0];
        for (int k = 1; k < 8; ++k) {
            const float now = y[std::size_t(k * step)], next = y[std::size_t(k * step + 200)];
            EXPECT_NEAR(now, 1, 1e-6) << "rises are over, falls begin";
            EXPECT_NEAR(next, k % 2 ? 0.2 : 1, 1e-6);
            EXPECT_LT(y[std::size_t(k * step + (k % 2 ? 1 : -1) * 72)], 0.7) << "in 3 ms";
        }
        EXPECT_NEAR(fx.meter("position"), 2, 1e-3) << "the end of the second step";
        EXPECT_EQ(fx.meter("gainleft"), y.back());
    }
}

TEST(WobblaEdges, LeaveNoClickAboveFourKilohertz)
{
    constexpr int kFrames = 8192;
    EffectUnderTest<double> fx(kName);
    levels(fx, {100, 0});
    const auto x = sine<double>(14096, 1000, 48000);
    const auto y = Song{}.play<double>(fx, 0, 14096, 512, {}, {x})[0];
    // One step, in the middle of a Hann window.
    const auto energy = [](const Signal<double>& s, int from, int to) {
        double sum = 0;
        for (int bin = from; bin < to; ++bin) {
            const double w = 2 * std::numbers::pi * bin / kFrames, c = 2 * std::cos(w);
            double a = 0, b = 0;
            for (int i = 0; i < kFrames; ++i) {
                const double hann = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * i / kFrames);
                const double next = s[std::size_t(6000 - kFrames / 2 + i)] * hann + c * a - b;
                b = a, a = next;
            }
            sum += a * a + b * b - c * a * b;
        }
        return sum;
    };
    const double click = energy(y, kFrames * 4000 / 48000, kFrames / 2);
    const double db = 10 * std::log10(click / energy(x, 160, 182));
    RecordProperty("clickDb", std::to_string(db));
    std::printf("[ click    ] %.1f dB\n", db);
    EXPECT_LT(db, -105);
}

template <typename T> class Wobbla : public ::testing::Test {};
TYPED_TEST_SUITE(Wobbla, Precisions);

TYPED_TEST(Wobbla, SoundsAlikeFromAnyPlaceAndInAnyBlocks)
{
    const Song song{.tempo = 133.7};
    constexpr int kAll = 60000;
    for (const int shape : {0, 1, 2, 3, 4, 5})
        for (const int mode : {0, 1, 2}) {
            const auto run = [&](std::int64_t from, int block, bool automated) {
                EffectUnderTest<TypeParam> fx(kName);
                levels(fx, {100, 0, 60, 60, 0});
                fx.set("shape", shape).set("mode", mode).set("swing", 40).set("gate", 70);
                fx.set("stereo", 1.3).set("edge", 8);
                return song.play<TypeParam>(fx, from, int(kAll - from), block, [&](int at) {
                    if (!automated || at % 1000 != 0) return;
                    fx.set("depth", at % 3000 ? 100 : 30).set("steplevel2", at % 4000 / 40);
                    if (at % 7000 == 0) fx.set("gate", at % 2000 ? 30 : 80).set("mode", at % 3);
                });
            };
            const auto whole = run(0, 1000, false), moved = run(0, 1000, true);
            for (const int block : {1, 8, 40}) EXPECT_EQ(run(0, block, true), moved) << block;
            for (const int cut : {1, 12345, 40000}) {
                const auto part = run(cut, 512, false);
                // The filter between lows and highs has to hear what it missed.
                const std::size_t skip = mode == 2 ? 2000 : 0;
                for (std::size_t i = skip; i < part[1].size(); ++i)
                    ASSERT_NEAR(part[1][i], whole[1][i + std::size_t(cut)], 1e-6)
                        << shape << " " << mode << " cut " << cut << " at " << i;
            }
        }
}

TEST(WobblaChanges, GoOverWithoutAStep)
{
    // A pattern that goes on over the loop's end hears nothing of it; another goes over in 20 ms.
    const auto loops = [](std::int64_t loop) {
        EffectUnderTest<double> fx(kName);
        levels(fx, {100, 0, 60, 0});
        return Song{.loopAt = 48000, .loop = loop}.play(fx, 30000, 30000)[0];
    };
    const auto on = loops(0);
    EXPECT_LT(peakDifferenceDb(loops(24000), on), -150);
    const double edge = 1.01 * 1.875 / 144;
    for (const std::int64_t loop : {3000, 6000, 9000, 15000})
        EXPECT_LE(largestStep(loops(loop)), edge) << loop;

    struct Case {
        const char* key;
        double a, b;
    };
    for (const auto [key, a, b] : {Case{"shape", 0, 5},
                                   {"beatsnu", 0.125, 0.5},
                                   {"sync", 1, 0},
                                   {"steps", 16, 7},
                                   {"swing", 0, 60},
                                   {"gate", 100, 30},
                                   {"stereo", 0, 3},
                                   {"steplevel0", 100, 0},
                                   {"steplevel1", 0, 100},
                                   {"depth", 100, 0},
                                   {"mode", 0, 1},
                                   {"edge", 3, 50}}) {
        EffectUnderTest<double> fx(kName);
        const auto y = Song{}.play<double>(fx, 0, 96000, 100, [&, key = key, a = a, b = b](int at) {
            if (at % 3700 == 0) fx.set(key, at / 3700 % 2 ? a : b);
        });
        // The way over a jump, and an edge on it.
        for (const auto& channel : y)
            EXPECT_LE(largestStep(channel), std::numbers::pi * edge + 1 / 240.0) << key;
    }
}

TEST(WobblaModes, AreACopyAtDepthZeroAndHoldTheirLaws)
{
    const auto x = noise<float>(9000);
    for (const int mode : {0, 1, 2}) {
        EffectUnderTest<float> fx(kName);
        fx.set("mode", mode).set("depth", 0);
        const auto y = Song{}.play<float>(fx, 0, 9000, 512, {}, {x, x});
        if (mode < 2)
            EXPECT_EQ(y, (Channels<float>{x, x}));
        else
            EXPECT_LT(peakDifferenceDb(y[0], x), -120);
    }
    // The first step of the pattern is 100 %, the second 0.
    const auto ends = [](int mode, double frequency) {
        EffectUnderTest<float> fx(kName);
        fx.set("mode", mode).set("beatsnu", 1);
        const auto s = sine<float>(96000, frequency, 48000);
        const auto y = Song{}.play<float>(fx, 0, 96000, 512, {}, {s, s});
        std::vector<double> gains;
        for (const auto& c : y)
            for (const std::size_t from : {12000u, 60000u})
                gains.push_back(amplitudeAt(c, frequency, 48000, from, from + 24000));
        return gains;
    };
    const auto pan = ends(1, 1000);
    EXPECT_NEAR(pan[0], 0, 1e-6);  // left, right side
    EXPECT_NEAR(pan[1], 1, 1e-6);
    EXPECT_NEAR(pan[2], 1, 1e-6);
    EXPECT_NEAR(pan[3], 0, 1e-6);
    const auto harmonic = ends(2, 700);
    EXPECT_NEAR(db(harmonic[0]), -3.01, 0.02) << "the lows at their corner";
    EXPECT_NEAR(db(harmonic[1]), -3.01, 0.02) << "the highs";
}

}  // namespace
}  // namespace quillworks::test
