// SPDX-License-Identifier: ISC
// The spectrum behind curves: levels of known signals, whatever pieces they come in.
#include "framework/spectrum_ground.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "dsp/random.h"
#include "tests/support/display_under_test.h"

namespace quillworks {
namespace {

class Levels final : public VNK::IDisplaySink {
public:
    void beginObject(const char*) override {}
    void beginList(const char*) override {}
    void end() override {}
    void number(const char*, double) override {}
    void numbers(const char* key, const float* values, std::int64_t count) override
    {
        (std::string_view(key) == "level" ? level : hertz).assign(values, values + count);
    }
    void numbers(const char*, const double*, std::int64_t) override {}
    void text(const char*, const char*) override {}
    void flag(const char*, bool) override {}

    std::vector<float> hertz, level;
};

/// `seconds` of a signal on one channel, in pieces of n frames.
template <class F> Levels heard(double rate, double seconds, int n, F&& signal)
{
    SpectrumGround ground;
    ProcessSpec spec;
    spec.sampleRate = rate;
    spec.channels = 1;
    ground.prepare(spec);
    std::vector<float> x(static_cast<std::size_t>(n));
    float* const channels[] = {x.data()};
    const auto all = static_cast<std::int64_t>(seconds * rate);
    for (std::int64_t first = 0; first < all; first += n) {
        for (int i = 0; i < n; ++i) x[static_cast<std::size_t>(i)] = signal(first + i);
        ground.feed(channels, static_cast<int>(std::min<std::int64_t>(n, all - first)), first);
    }
    Levels levels;
    ground.show(0, levels);
    return levels;
}

TEST(SpectrumGround, ShowsASinesLevelInItsBandAndNothingFarFromIt)
{
    for (const double rate : {8000.0, 48000.0, 192000.0})
        for (const int piece : {1, 77, 4096}) {
            const auto levels = heard(rate, 2, piece, [&](std::int64_t i) {
                return static_cast<float>(0.5 *
                                          std::sin(2 * std::numbers::pi * 1280 * double(i) / rate));
            });
            ASSERT_GT(levels.level.size(), 80u);
            EXPECT_NEAR(levels.hertz[72], 1280, 0.1);
            EXPECT_NEAR(levels.level[72], -6.02, 0.3) << rate;
            EXPECT_FALSE(levels.level[60] > -80) << rate;
            EXPECT_LT(levels.hertz.back(), rate / 2);
        }
    const auto silence = heard(48000, 1, 480, [](std::int64_t) { return 0.0f; });
    EXPECT_TRUE(std::isnan(silence.level[50]));
}

TEST(SpectrumGround, OfWhiteNoiseRisesByThreeDecibelsAnOctaveDownToTheNarrowestBands)
{
    Xoshiro256pp random(1);
    const auto levels = heard(48000, 20, 480, [&](std::int64_t) {
        return static_cast<float>(2 * random.uniform() - 1) * 0.5f;
    });
    const auto mean = [&](std::size_t band) {
        double sum = 0;
        for (std::size_t b = band - 6; b < band + 6; ++b) sum += double(levels.level[b]);
        return sum / 12;
    };
    for (const std::size_t band : {42u, 66u, 90u})
        EXPECT_NEAR(mean(band + 12) - mean(band), 3.01, 1.5) << band;
}

TEST(SpectrumGround, IsThatOfTheOutputBesideWhatAnEffectShowsOfItsOwn)
{
    for (const char* name : {"Bandpress", "Multiband Dynamics"}) {
        test::EffectUnderTest<float> fx(name);
        fx.set("outgain", 6);
        const auto displays = fx.component().queryInterface<VNK::IEffectDisplays>();
        displays->setDisplaysOpen(true);
        auto tone = test::sine<float>(48000, 1280, 48000);
        for (auto& x : tone) x *= 0.01f;  // below all thresholds
        double heard = 0;
        for (std::size_t at = 0; at < tone.size(); at += 4800) {
            const auto from = tone.begin() + static_cast<std::ptrdiff_t>(at);
            const auto out = fx.play({test::Signal<float>(from, from + 4800)});
            heard = 20 * std::log10(double(test::peak(out[0])));
            displays->updateDisplays();
        }
        test::Shown ground, history;
        ASSERT_TRUE(displays->snapshot(kSpectrumGround, &ground)) << name;
        ASSERT_TRUE(displays->snapshot("history", &history)) << name;
        ASSERT_GT(ground.list["level"].size(), 72u) << name;
        EXPECT_NEAR(ground.list["level"][72], heard, 0.3) << name;
        EXPECT_NEAR(history.value["count"], 1500, 2) << name;
        displays->setDisplaysOpen(false);
        test::Shown closed;
        displays->snapshot(kSpectrumGround, &closed);
        EXPECT_TRUE(closed.list["level"].empty()) << name << " keeps its memory";
    }
}

}  // namespace
}  // namespace quillworks
