// SPDX-License-Identifier: ISC
// The strict law beside libebur128 on programmes like speech, music and noise.
#include <ebur128.h>

#include <complex>

#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

constexpr int kRate = 48000, kHop = kRate / 10, kSeconds = 40;

/// Syllables of a buzz through two formants, in sentences of uneven level, with pauses.
Channels<float> speech()
{
    std::mt19937 random(kSeed);
    std::uniform_real_distribution<double> uniform(0, 1);
    Signal<float> x(std::size_t(kRate) * kSeconds);
    double phase = 0, level = 0.2;
    std::complex<double> formant[2] = {};
    for (std::size_t at = 0; at < x.size();) {
        if (uniform(random) < 0.12) {  // a pause, then another sentence
            at += std::size_t(kRate * (0.3 + uniform(random)));
            level = 0.05 + 0.3 * uniform(random);
        }
        const auto length = std::size_t(kRate * (0.08 + 0.2 * uniform(random)));
        const double pitch = 90 + 60 * uniform(random);
        const double centre[2] = {300 + 600 * uniform(random), 1200 + 1500 * uniform(random)};
        for (std::size_t i = 0; i < length && at < x.size(); ++i, ++at) {
            phase += pitch / kRate;
            const double buzz = 2 * (phase - std::floor(phase)) - 1 + 0.2 * (uniform(random) - 0.5);
            double sum = 0;
            for (std::size_t f = 0; f < 2; ++f) {
                formant[f] =
                    formant[f] * std::polar(0.985, 2 * std::numbers::pi * centre[f] / kRate) +
                    0.03 * buzz;
                sum += formant[f].real();
            }
            x[at] = float(level * sum * std::sin(std::numbers::pi * double(i) / double(length)));
        }
    }
    auto right = x;
    for (auto& v : right) v *= 0.8f;
    return {x, right};
}

/// Chords of decaying partials over a drum of filtered noise; unlike channels.
Channels<float> music()
{
    std::mt19937 random(kSeed + 1);
    std::uniform_real_distribution<double> uniform(0, 1);
    Channels<float> x(2, Signal<float>(std::size_t(kRate) * kSeconds));
    for (int beat = 0; beat < kSeconds * 2; ++beat) {
        const auto start = std::size_t(beat) * kRate / 2;
        const double section = beat / 20 % 2 ? 0.12 : 0.03;
        for (int note = 0; note < 4; ++note) {
            const double w =
                2 * std::numbers::pi * 110 * std::exp2(int(uniform(random) * 36) / 12.0) / kRate;
            const double pan = uniform(random);
            for (std::size_t i = 0; i < std::size_t(kRate) / 2; ++i) {
                const double v =
                    section * std::exp(-6.0 * double(i) / kRate) * std::sin(w * double(i));
                x[0][start + i] += float(v * pan);
                x[1][start + i] += float(v * (1 - pan));
            }
        }
        for (std::size_t i = 0; i < 2000; ++i) {
            const auto v = float(section * (uniform(random) - 0.5) * std::exp(-double(i) / 400));
            for (auto& channel : x) channel[start + i] += v;
        }
    }
    return x;
}

/// White noise, or noise that falls by 6 dB per octave from 300 Hz on, as programmes do.
Channels<float> noisePair(bool isWhite)
{
    Channels<float> x;
    for (std::uint32_t c = 0; c < 2; ++c) {
        x.push_back(noise<float>(std::size_t(kRate) * 20, c, c ? 0.3 : 0.1));
        float low = 0;
        if (!isWhite)
            for (auto& v : x.back()) v = 4 * (low += 0.04f * (v - low));
    }
    return x;
}

class Agreement : public ::testing::TestWithParam<const char*> {
protected:
    const std::string name = GetParam();
    Channels<float> programme() const
    {
        return name == "speech" ? speech() : name == "music" ? music() : noisePair(name == "white");
    }
};

TEST_P(Agreement, WithLibebur128)
{
    const auto x = programme();
    EffectUnderTest<float> fx("Level Meter", kRate);
    fx.component().setInteger("loudnessStrict", 1);
    fx.prepare(2, kHop);
    auto* peer = ebur128_init(2, kRate,
                              EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_I | EBUR128_MODE_LRA |
                                  EBUR128_MODE_TRUE_PEAK);
    ASSERT_NE(peer, nullptr);
    std::vector<float> interleaved(2 * kHop);
    Channels<float> out(2, Signal<float>(x[0].size()));
    double value = 0;
    for (std::size_t at = 0; at + kHop <= x[0].size(); at += kHop) {
        for (std::size_t i = 0; i < kHop; ++i)
            for (std::size_t c = 0; c < 2; ++c) interleaved[2 * i + c] = x[c][at + i];
        ebur128_add_frames_float(peer, interleaved.data(), kHop);
        fx.processBlock(x, out, int(at), kHop);
        const auto near = [&](const char* key) {
            if (value < -70) return;
            ASSERT_NEAR(fx.meter(key), value, 0.05) << key << " at " << double(at) / kRate;
        };
        ebur128_loudness_momentary(peer, &value);
        if (at >= 4 * kHop) near("loundessMomentary");
        ebur128_loudness_shortterm(peer, &value);
        if (at >= 30 * kHop) near("loundessShortTerm");
    }
    fx.component().setInteger("loudnessStrict", 2);
    fx.processBlock(x, out, 0, 1);
    ebur128_loudness_global(peer, &value);
    EXPECT_NEAR(fx.meter("integrated"), value, 0.05);
    ebur128_loudness_range(peer, &value);
    EXPECT_NEAR(fx.meter("range"), value, 0.5);  // it takes a value a second, we ten
    double truePeak = 0;
    for (unsigned c = 0; c < 2; ++c) {
        ebur128_true_peak(peer, c, &value);
        truePeak = std::max(truePeak, value);
    }
    // It looks at four points a sample through a shorter filter, and so never reads higher; lower
    // by what a crest rises between those points, and by what noise has near half the rate.
    const double less = name == "white" ? 1.6 : name == "noise" ? 0.08 : 0.05;
    EXPECT_GT(fx.meter("truePeak"), db(truePeak) - 0.02);
    EXPECT_LT(fx.meter("truePeak"), db(truePeak) + less);
    ebur128_destroy(&peer);
}

INSTANTIATE_TEST_SUITE_P(Programmes, Agreement,
                         ::testing::Values("speech", "music", "noise", "white"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace quillworks::test
