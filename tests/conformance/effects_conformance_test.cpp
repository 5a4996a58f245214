// SPDX-License-Identifier: ISC
// What every effect of the pack owes, found by enumeration: a new class is tested here without a
// line being written.
#include <functional>
#include <set>
#include <string>

#include "tests/support/counting_sink.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/every_effect.h"
#include "tests/support/random_transport.h"

namespace quillworks::test {
namespace {

class EveryEffect : public ::testing::TestWithParam<std::string> {
protected:
    template <typename T> EffectUnderTest<T> effect(double rate = 48000, int channels = 2)
    {
        return EffectUnderTest<T>(GetParam(), rate, channels);
    }
    /// At its defaults for seed 0, else with settings drawn from the seed.
    EffectUnderTest<float> effectSet(std::uint32_t seed)
    {
        auto fx = effect<float>();
        if (seed != 0) fx.randomise(seed);
        return fx;
    }
    /// The mix tool's steps of 16 samples start afresh with each call, so that a change of routing
    /// acts at its very frame.
    bool stepsAreCutPerCall() const { return GetParam() == "Mixtool"; }
};

Channels<float> stereoNoise(std::size_t frames = 9600)
{
    return {noise<float>(frames, 1), noise<float>(frames, 2)};
}

Channels<double> asDouble(const Channels<float>& x)
{
    return {as<double>(x[0]), as<double>(x[1])};
}

/// The same signal, key and changes of settings in calls of different lengths: the same bits.
template <typename T> void checkDivisions(const std::string& name, bool stepsAreCutPerCall)
{
    const auto play = [&](std::uint32_t seed, int block) {
        const Channels<T> x{noise<T>(9600, 1), noise<T>(9600, 2)};
        const Channels<T> before{noise<T>(4016, 3),
                                 noise<T>(4016, 4, 0.05)};  // ends in a sub-block
        EffectUnderTest<T> fx(name);
        fx.randomise(seed);
        if (seed % 2 == 0) fx.sideChain({noise<T>(13616, 5, 0.2)});
        fx.prepare(2, 9600).play(before, block);
        fx.randomise(seed + 100);                      // what is set anew glides and fades
        if (stepsAreCutPerCall) fx.set("dcblock", 1);  // switched off it goes on to the call's end
        return fx.play(x, block);
    };
    const auto blocks =
        kIsSanitised ? std::vector{1, 7, 33, 1024} : std::vector{1, 7, 17, 32, 33, 48, 1024};
    for (std::uint32_t seed = 1; seed <= countSeeds(name); ++seed) {
        const auto whole = play(seed, 9600);
        for (int block : blocks) {
            if (stepsAreCutPerCall && block % 16 != 0) continue;
            EXPECT_EQ(peakDifferenceDb(play(seed, block), whole), -400)
                << "block " << block << ", seed " << seed << ", " << sizeof(T) * 8 << " bits";
        }
    }
}

TEST_P(EveryEffect, OutputDoesNotDependOnTheBlockLength)
{
    checkDivisions<float>(GetParam(), stepsAreCutPerCall());
    if (kIsSanitised && isSlowToSet(GetParam())) return;
    checkDivisions<double>(GetParam(), stepsAreCutPerCall());
}

TEST_P(EveryEffect, BlocksLongerThanPreparedForAreCut)
{
    const auto x = stereoNoise();
    const auto cut = effect<float>().randomise(kSeed).prepare(2, 96).play(x, 9600);
    EXPECT_EQ(cut, effect<float>().randomise(kSeed).prepare(2, 96).play(x, 96));
}

TEST_P(EveryEffect, FloatAndDoubleAgree)
{
    const auto x = stereoNoise();
    for (std::uint32_t seed : {1u, 2u, 3u}) {
        const auto f = effect<float>().randomise(seed).play(x);
        const auto d = effect<double>().randomise(seed).play(asDouble(x));
        const double scale = std::max(1.0, std::max(peak(d[0]), peak(d[1])));
        EXPECT_LT(peakDifferenceDb(f, d) - db(scale), -84) << "seed " << seed;
    }
}

TEST_P(EveryEffect, ParametersSetAfterPreparationActAsIfSetBefore)
{
    const auto x = stereoNoise();
    const auto before = effect<float>().randomise(kSeed).prepare().play(x);
    auto fx = effect<float>();
    EXPECT_EQ(fx.prepare().randomise(kSeed).play(x), before);
    fx.algorithm().reset();
    EXPECT_EQ(fx.play(x), before) << "after reset";
}

TEST_P(EveryEffect, InPlaceEqualsOutOfPlace)
{
    auto x = stereoNoise();
    const auto apart = effect<float>().randomise(kSeed).play(x);
    auto fx = effect<float>();
    fx.randomise(kSeed).prepare();
    for (int at = 0; at < 9600; at += 480) fx.processBlock(x, x, at, 480);
    EXPECT_EQ(x, apart);
}

TEST_P(EveryEffect, BypassIsTheInputAndSwitchesWithoutAClick)
{
    const auto x = Channels<float>(2, sine<float>(24000, 1000, 48000));
    auto fx = effect<float>();
    EXPECT_EQ(fx.set("bypass", 1).play(x), x) << "from the first sample";
    EXPECT_EQ(fx.algorithm().getLatency(), 0u);
    const auto leaving = fx.set("bypass", 0).play(x);
    const auto steady = fx.play(x);  // some effects make steps of their own
    auto y = fx.set("bypass", 1).play(x);
    for (std::size_t c = 0; c < y.size(); ++c) {
        const double allowed = std::max(0.15 * std::max({1.0, peak(leaving[c]), peak(y[c])}),
                                        1.1 * largestStep(steady[c]));
        EXPECT_LE(largestStep(leaving[c]), allowed) << "on leaving bypass";
        EXPECT_LE(largestStep(y[c]), allowed) << "on entering it";
    }
    for (std::size_t i = 480; i < 24000; ++i) ASSERT_EQ(y[0][i], x[0][i]) << i;
}

TEST_P(EveryEffect, SoundsTheSameWhoeverLooksOn)
{
    const auto x = stereoNoise();
    const auto alone = effect<float>().randomise(kSeed).prepare(2, 480).play(x, 480);
    auto fx = effect<float>();
    fx.randomise(kSeed).prepare(2, 480);
    const auto& component = fx.component();
    const auto displays = component.queryInterface<VNK::IEffectDisplays>();
    component.setEditorOpen(true);
    if (displays) displays->setDisplaysOpen(true);
    auto y = x;
    for (int at = 0; at < 9600; at += 480) {
        fx.processBlock(x, y, at, 480);
        for (int i = 0; i < component.countMeters(); ++i) component.readMeter(i);
        if (!displays) continue;
        displays->updateDisplays();
        EXPECT_GT(valuesOf(*displays), 0);
    }
    EXPECT_EQ(y, alone);
}

TEST_P(EveryEffect, RecoversFromBadSamplesWithinASecond)
{
    const std::size_t second = 48000;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    const auto clean = Channels<float>(2, noise<float>(5 * second, 7, 0.17));
    const auto recovers = [&](std::uint32_t seed, std::initializer_list<float> badSamples) {
        const auto expected = effectSet(seed).play(clean);
        for (float bad : badSamples) {
            auto x = clean;
            x[0][second / 4] = bad;
            const auto y = effectSet(seed).play(x);
            for (std::size_t c = 0; c < 2; ++c) {
                ASSERT_TRUE(isFinite(y[c], second / 4 + second)) << bad << ", seed " << seed;
                EXPECT_NEAR(db(rms(y[c], 4 * second)), db(rms(expected[c], 4 * second)), 1)
                    << bad << ", seed " << seed;
            }
        }
    };
    recovers(2, {infinity});
    if (kIsSanitised) return;
    recovers(0, {nan, infinity, 1e30f});
    recovers(1, {nan});
    recovers(3, {1e30f});
}

TEST_P(EveryEffect, FallsSilentWithinItsTailWithoutDenormals)
{
    for (std::uint32_t seed : {0u, 1u, 2u, 3u}) {
        auto fx = effectSet(seed);
        const auto heard = fx.play(stereoNoise(48000));
        const double loudest = db(std::max({1.0, peak(heard[0]), peak(heard[1])}));
        const auto tail = fx.algorithm().getTailLength();
        const Channels<float> silence(2, constant<float>(4800, 0));
        if (tail != VNK::kEndlessTail)
            for (std::size_t done = 0; done < std::min(tail, 48000u * 60) + 4800u; done += 4800)
                fx.play(silence);
        // Denormal operands would slow the effect down a hundred times: the processor counts them.
        const unsigned before = denormalsSeen();
        EXPECT_EQ(before, 0u) << "seed " << seed;
        const auto y = fx.play(silence);
        EXPECT_EQ(denormalsSeen(), 0u) << "seed " << seed;
        if (tail == VNK::kEndlessTail) continue;
        for (const auto& s : y)
            EXPECT_LT(db(peak(s)), loudest - 55) << "tail of " << tail << ", seed " << seed;
    }
}

/// Lag at which y resembles x most, up to `most` frames, and the correlation coefficient there.
std::pair<std::size_t, double> lagOf(const Signal<float>& y, const Signal<float>& x,
                                     std::size_t most)
{
    std::pair<std::size_t, double> best{0, 0};
    for (std::size_t lag = 0; lag <= most; ++lag) {
        double xy = 0, xx = 0, yy = 1e-30;
        for (std::size_t i = lag; i < x.size(); ++i) {
            xy += double(x[i - lag]) * y[i];
            xx += double(x[i - lag]) * x[i - lag];
            yy += double(y[i]) * y[i];
        }
        if (const double r = std::abs(xy) / std::sqrt(xx * yy); r > best.second) best = {lag, r};
    }
    return best;
}

TEST_P(EveryEffect, DelaysByTheLatencyItReportsWhateverIsSwitched)
{
    const auto x = Channels<float>(2, noise<float>(4800, 5, 0.05));
    const auto check = [&](EffectUnderTest<float>& fx, double clear, const char* what) {
        const auto y = fx.play(x);
        const auto latency = std::size_t{fx.algorithm().getLatency()};
        const auto [lag, coefficient] = lagOf(y[0], x[0], 2 * latency + 160);
        if (coefficient > clear) {
            EXPECT_NEAR(int(lag), int(latency), phaseLag(GetParam())) << what;
        }
    };
    // Filters and quantisers resemble their input at other lags as well: each effect proves its
    // latency in its own test, here it must not contradict what is plain.
    auto asItComes = effect<float>();
    check(asItComes, 0.5, "as it comes");
    VNK::ParameterInfo p;
    for (int i = 0; asItComes.component().getParameter(i, p); ++i) {
        if (p.kind == VNK::ValueKind::Continuous || !p.isAutomatable() || p.index > 0) continue;
        for (float v = p.minimum; v <= std::min(p.maximum, p.minimum + 7); ++v) {
            if (v == p.defaultValue) continue;
            auto fx = effect<float>();
            check(fx.set(p.key, v), 0.8, p.key);  // what is mainly the input, only later
        }
    }
}

TEST_P(EveryEffect, KeepsTheCallersFloatingPointMode)
{
    auto fx = effect<float>().randomise(kSeed).prepare();
    const unsigned before = floatingPointMode();
    fx.play(stereoNoise(480));
    EXPECT_EQ(floatingPointMode(), before);
}

TEST_P(EveryEffect, DescribesItsParametersWithoutContradiction)
{
    auto fx = effect<float>();
    auto& component = fx.component();
    for (int i = 0; i < component.countParameters(); ++i) {  // first, for one may move another
        VNK::ParameterInfo p;
        component.getParameter(i, p);
        if (!p.has(VNK::isReadOnly)) {
            EXPECT_EQ(component.getValue(i), p.defaultValue) << p.key;
        }
    }
    std::set<std::string> keys;
    std::set<VNK::Tag> tags;
    for (int i = 0; i < component.countParameters(); ++i) {
        VNK::ParameterInfo p;
        ASSERT_TRUE(component.getParameter(i, p));
        EXPECT_TRUE(keys.insert(p.key).second) << p.key;
        EXPECT_TRUE(tags.insert(p.tag).second) << p.key;
        EXPECT_LT(p.minimum, p.maximum) << p.key;
        EXPECT_TRUE(p.defaultValue >= p.minimum && p.defaultValue <= p.maximum) << p.key;
        if (p.has(VNK::isReadOnly)) continue;
        if (p.kind == VNK::ValueKind::List && p.choices > 0) {
            EXPECT_EQ(p.choices, int(p.maximum - p.minimum) + 1) << p.key;
        }
        for (float position : {0.0f, 0.1f, 0.3f, 0.5f, 0.77f, 1.0f}) {
            const float value = component.fromNormalized(i, position);
            if (p.kind == VNK::ValueKind::Continuous) {
                EXPECT_NEAR(component.toNormalized(i, value), position, 1e-4) << p.key;
            }
            char text[64], again[64];
            component.valueToText(i, value, text, sizeof text);
            float read = 0;
            ASSERT_TRUE(component.textToValue(i, text, read)) << p.key << ": " << text;
            component.valueToText(i, read, again, sizeof again);
            EXPECT_STREQ(again, text) << p.key;
        }
        EXPECT_FALSE(component.setValue(i, std::numeric_limits<float>::quiet_NaN())) << p.key;
        component.setValue(i, p.maximum * 2 + 1e6f);
        EXPECT_LE(component.getValue(i), p.maximum) << p.key;
    }
    EXPECT_TRUE(keys.contains("bypass"));
    EXPECT_NE(component.viewName(0), nullptr);
}

TEST_P(EveryEffect, StaysFiniteAtTheEndsOfEveryRange)
{
    const auto loud = Channels<float>(2, noise<float>(4800, 3, 1000));  // +60 dBFS
    for (bool maximum : {false, true}) {
        auto fx = effect<float>();
        fx.prepare();
        for (int i = 0; i < fx.component().countParameters(); ++i) {
            VNK::ParameterInfo p;
            fx.component().getParameter(i, p);
            if (p.has(VNK::isBypass) || p.has(VNK::isReadOnly)) continue;
            fx.component().setValue(i, maximum ? p.maximum : p.minimum);
            ASSERT_TRUE(isFinite(fx.play(loud)[0])) << p.key << (maximum ? " max" : " min");
        }
        for (int i = 0; i < fx.component().countMeters(); ++i) {
            VNK::MeterInfo m;
            fx.component().getMeter(i, m);
            const float value = fx.component().readMeter(i);
            EXPECT_FALSE(std::isinf(value)) << m.key;
        }
    }
}

/// Rates, layouts, precisions, irregular blocks, automation, transport and bad input at once.
template <typename T> void sweep(const std::string& name, double rate, int channels)
{
    EffectUnderTest<T> fx(name, rate, channels);
    const auto arrangement = VNK::SpeakerArrangement::withChannels(channels);
    if (!fx.algorithm().acceptsArrangement(arrangement, arrangement)) return;
    std::mt19937 random(kSeed);
    const std::size_t frames = 4 * 4096;
    Channels<T> x(static_cast<std::size_t>(channels));
    for (int c = 0; c < channels; ++c) {
        x[static_cast<std::size_t>(c)] = noise<T>(frames, static_cast<std::uint32_t>(c), 1);
        auto& s = x[static_cast<std::size_t>(c)];
        for (std::size_t i = 5000; i < 6000; ++i) s[i] = std::numeric_limits<T>::denorm_min();
        s[7000] = std::numeric_limits<T>::quiet_NaN();
        s[7100] = std::numeric_limits<T>::infinity();
    }
    Channels<T> y = x;
    fx.prepare(channels, 1024);
    for (std::size_t at = 0; at < frames;) {
        const int lengths[] = {1, 2, 3, 7, 16, 31, 33, 64, 441, 1024, 1536, 4096};
        const int n =
            std::min(lengths[random() % std::size(lengths)], static_cast<int>(frames - at));
        fx.tempo(double(40 + random() % 440)).algorithm().setTransport(randomTransport(random));
        fx.processBlock(x, y, static_cast<int>(at), n);
        at += static_cast<std::size_t>(n);
        const auto i =
            static_cast<int>(random() % static_cast<unsigned>(fx.component().countParameters()));
        VNK::ParameterInfo p;
        fx.component().getParameter(i, p);
        const float position = std::uniform_real_distribution<float>(0, 1)(random);
        const AudioThreadGuard guard;
        if (p.isAutomatable())
            fx.component().automate(i, fx.component().fromNormalized(i, position));
    }
    const auto second = static_cast<std::size_t>(rate);
    const Channels<T> clean(static_cast<std::size_t>(channels), noise<T>(second / 4, 9, 0.25));
    if (kIsSanitised) {  // the plain build waits until it has recovered
        fx.play(clean, 1024);
        return;
    }
    for (int quarter = 0; quarter < 4; ++quarter) y = fx.play(clean, 1024);
    for (const auto& s : fx.play(clean, 480))
        ASSERT_TRUE(isFinite(s)) << rate << " Hz, " << channels << " channels";
}

TEST_P(EveryEffect, StandsEveryRateLayoutAndAutomation)
{
    using Corners = std::vector<double>;
    const auto rates =
        kIsSanitised ? Corners{8000, 384000} : Corners{8000, 44100, 48000, 96000, 192000, 384000};
    const auto layouts = kIsSanitised ? std::vector{1, 16} : std::vector{1, 2, 6, 8, 16};
    for (double rate : rates)
        for (int channels : layouts) {
            sweep<float>(GetParam(), rate, channels);
            sweep<double>(GetParam(), rate, channels);
            if (HasFatalFailure()) return;
        }
    for (double rate : {1234.5678, 768000.}) sweep<float>(GetParam(), rate, 2);
    if (kIsSanitised) return;
    for (double rate : {11025., 69313., 123456.78}) sweep<float>(GetParam(), rate, 2);
}

TEST_P(EveryEffect, HasTheSameLevelAtEveryRateAsItComesAndWithEachSwitch)
{
    // Low tones, so that every rate knows them; at +6 dBFS, and as loud as a fault upstream.
    std::vector<double> frequencies{112, 188, 332, 776};
    if (isDiffuse(GetParam())) {
        frequencies.clear();
        for (double f = 97; f < 800; f *= 1.0309) frequencies.push_back(f);
    }
    const auto tones = [&](double rate, double gain) {
        Signal<float> x(std::size_t(rate / 4));
        for (const double frequency : frequencies) {
            const double share = 1 / std::sqrt(double(frequencies.size()));
            const auto tone = sine<float>(x.size(), frequency, rate, share * gain);
            for (std::size_t i = 0; i < x.size(); ++i) x[i] += tone[i];
        }
        return Channels<float>(2, x);
    };
    const auto level = [&](double rate, int switched, const Channels<float>& x) {
        auto fx = effect<float>(rate);
        if (switched >= 0) fx.component().setValue(switched, 1);
        return db(rms(fx.play(x, 4096)[0], x[0].size() / 2));
    };
    auto fx = effect<float>();
    for (double gain : {1., 500.}) {
        const auto x = tones(48000, gain), low = tones(8000, gain), high = tones(768000, gain);
        if (kIsSanitised && gain > 1) break;
        const int switches = kIsSanitised ? 0 : fx.component().countParameters();
        for (int i = -1; i < switches; ++i) {
            VNK::ParameterInfo p;
            if (i >= 0 && (!fx.component().getParameter(i, p) || p.kind != VNK::ValueKind::Toggle ||
                           !p.isAutomatable()))
                continue;
            const double expected = level(48000, i, x);
            // Far down a filter's stop band (a high band alone) the bilinear transform rules.
            if (expected < db(rms(x[0])) - 40) continue;
            const char* const what = i < 0 ? "as it comes" : p.key;
            EXPECT_NEAR(level(8000, i, low), expected, 1) << what << ", " << gain;
            EXPECT_NEAR(level(768000, i, high), expected, 1) << what << ", " << gain;
        }
    }
}

TEST_P(EveryEffect, RefusesWhatItCannotBePreparedFor)
{
    auto fx = effect<float>();
    auto& algorithm = fx.algorithm();
    for (double rate : {0., -48000., std::numeric_limits<double>::quiet_NaN(), 768000.5, 1e12})
        EXPECT_FALSE(algorithm.setSampleRate(512, rate)) << rate;
    EXPECT_FALSE(algorithm.setSampleRate(0, 48000));
    const auto none = VNK::SpeakerArrangement::withChannels(0);
    EXPECT_FALSE(algorithm.setSpeakerArrangement(none, none));
    fx.prepare().play(stereoNoise(480));
}

INSTANTIATE_TEST_SUITE_P(Pack, EveryEffect, ::testing::ValuesIn(registeredClasses()), className);

}  // namespace
}  // namespace quillworks::test
