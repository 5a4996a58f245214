// SPDX-License-Identifier: ISC
// Room Reverb: where its reflections lie, how it decays, and the way round every reverb's engine.
#include "dsp/section.h"
#include "reverb/decay_analysis.h"
#include "reverb/room_decay.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/reverberation.h"

namespace quillworks::test {
namespace {

VNK::SpeakerArrangement layoutOf(const char* name)
{
    VNK::SpeakerArrangement layout;
    EXPECT_TRUE(VNK::SpeakerArrangement::named(name, layout)) << name;
    return layout;
}

/// Wet alone and still, so that responses do not depend on when they are taken.
template <typename T> struct Room : EffectUnderTest<T> {
    explicit Room(const char* layout = "stereo", double rate = 48000)
        : EffectUnderTest<T>("Room Reverb", rate)
    {
        count_ = layoutOf(layout).channels;
        this->layout(layoutOf(layout)).set("mix", 100).set("motion", 0);
    }
    /// Of an impulse in one channel, from `at` on.
    Channels<T> response(std::size_t frames, std::size_t channel = 0, std::size_t at = 0)
    {
        this->prepare(0, 4800);
        const auto channels = static_cast<std::size_t>(count_);
        Channels<T> in(channels, Signal<T>(frames));
        in[channel][at] = 1;
        return this->play(in);
    }

private:
    int count_ = 2;
};

struct Echo {
    double delay, gain, azimuth;
};

/// Image sources by the book, for a room 12 m wide as a cube: 1.6 to 1.26 to 1.
std::vector<Echo> echoes(double side, double distance, double decay)
{
    const double scale = 12 / std::cbrt(1.6 * 1.26);
    const double box[] = {1.6 * scale, 1.26 * scale, scale};
    const double path = 2 / (1 / box[0] + 1 / box[1] + 1 / box[2]);  // 4V/S
    const double wall = std::pow(10, -3 * path / (343 * decay));
    const double ear[] = {0.62 * box[0], 0.47 * box[1], std::min(1.6, 0.4 * box[2])};
    const double far = (0.08 + 0.0042 * distance) * box[0], angle = side * std::numbers::pi / 6;
    const double source[] = {ear[0] - far * std::cos(angle), ear[1] + far * std::sin(angle),
                             ear[2]};
    std::vector<Echo> all;
    for (int x = -4; x <= 4; ++x)
        for (int y = -4; y <= 4; ++y)
            for (int z = -4; z <= 4; ++z) {
                const int walls = std::abs(x) + std::abs(y) + std::abs(z);
                if (walls == 0 || walls > 4) continue;
                double way[3];
                for (int axis = 0, n[] = {x, y, z}; axis < 3; ++axis)
                    way[axis] = n[axis] * box[axis] - ear[axis] +
                                (n[axis] % 2 ? box[axis] - source[axis] : source[axis]);
                const double r = std::hypot(way[0], way[1], way[2]);
                all.push_back({(r - far) / 343, std::pow(wall, walls) * far / r,
                               std::atan2(way[1], -way[0])});
            }
    std::sort(all.begin(), all.end(), [](auto& a, auto& b) { return a.gain > b.gain; });
    all.resize(40);
    return all;
}

double energy(const Channels<float>& x, std::size_t from = 0)
{
    double sum = 0;
    for (const auto& channel : x)
        for (std::size_t i = from; i < channel.size(); ++i)
            sum += double(channel[i]) * double(channel[i]);
    return sum;
}

/// A third of an octave, two resonances side by side.
Signal<double> third(const Signal<float>& x, double centre)
{
    auto y = as<double>(x);
    for (const double beside : {0.92, 1.08})
        SectionState<double>().run(SectionCoefficients<double>::bandPass(beside * centre, 6, 48000),
                                   y.data(), int(y.size()));
    return y;
}

template <typename T> class RoomReverb : public ::testing::Test {};
TYPED_TEST_SUITE(RoomReverb, Precisions);

TYPED_TEST(RoomReverb, ReflectionsComeFromTheImagesOfTheSource)
{
    for (const double side : {0., 1., -1.}) {
        Room<TypeParam> fx(side == 0 ? "mono" : "stereo");
        fx.set("late", -60)
            .set("lowdecay", 1)
            .set("highdecay", 1)
            .set("air", 0)
            .set("distance", 70)
            .set("decay", 2);
        const auto heard = fx.response(12000, side < 0);
        Channels<double> expected(heard.size(), Signal<double>(12000));
        for (const auto& echo : echoes(side, 70, 2))
            for (std::size_t ear = 0; ear < heard.size(); ++ear) {
                const double left = ear == 0 ? 1 : -1, axis = left * 55 * std::numbers::pi / 180;
                const double later = 0.00025 - left * 0.085 * std::sin(echo.azimuth) / 343;
                const double gain = 0.5 + 0.5 * std::cos(echo.azimuth - axis);
                const double delay = (echo.delay + (side == 0 ? 0 : later)) * 48000;
                expected[ear][std::size_t(delay + 0.5)] += echo.gain * (side == 0 ? 1 : gain);
            }
        for (std::size_t ear = 0; ear < heard.size(); ++ear)
            for (std::size_t i = 0; i < 12000; ++i)
                ASSERT_NEAR(heard[ear][i], expected[ear][i], 2e-6) << side << ", frame " << i;
    }
}

TYPED_TEST(RoomReverb, BitsDoNotDependOnTheDivisionWhileAllMoves)
{
    Channels<TypeParam> first;
    for (const int block : {512, 1, 17, 32}) {
        EffectUnderTest<TypeParam> fx("Room Reverb");
        fx.set("duck", 6).set("predelay", 13).set("lowcut", 100).set("width", 130);
        Channels<TypeParam> all(2);
        for (unsigned piece = 0; piece < 3; ++piece) {
            if (piece == 1) fx.set("size", 30).set("highdecay", 0.2).set("predelay", 100);
            if (piece == 2) fx.set("shape", 3).set("freeze", 1).set("lowcut", 20).set("early", -60);
            const auto y = fx.play({noise<TypeParam>(4801, piece), noise<TypeParam>(4801)}, block);
            for (std::size_t c = 0; c < 2; ++c)
                all[c].insert(all[c].end(), y[c].begin(), y[c].end());
        }
        if (first.empty()) first = all;
        ASSERT_TRUE(all == first) << block;
    }
}

TEST(RoomReverbSound, DecaysAsDrawnInSmallDeadRoomsTooAndInLivelyOnes)
{
    const struct {
        double size;
        RoomDecay decay;
    } rooms[] = {{12, {1.4, 1.1, 250, 0.6, 4500, true}},
                 {3.5, {0.28, 1.2, 250, 0.7, 4500, true}},
                 {38, {5.5, 1.1, 250, 0.45, 3500, true}}};
    for (const auto& room : rooms) {
        const auto& decay = room.decay;
        Room<float> fx;
        fx.set("early", -60).set("size", room.size).set("decay", decay.seconds);
        fx.set("lowdecay", decay.low).set("highdecay", decay.high);
        fx.set("highfreq", decay.highFrequency);
        const auto times = decay.times();
        const auto frames = static_cast<std::size_t>(24000 + 48000 * decay.seconds);
        const auto left = fx.response(frames, 0), right = fx.response(frames, 1);
        for (const int band : {4, 5, 6, 7, 8}) {
            const double centre = octaveCentre(band);
            double sum = 0;
            for (const auto* paths : {&left, &right})
                for (const auto& path : *paths)
                    sum += BandDecay(third(path, centre), 0.23 * centre, 48000).fit(0, 5, 25)->t60;
            EXPECT_NEAR(sum / 4 / times[std::size_t(band)], 1, 0.08)
                << room.size << " m, " << centre << " Hz";
        }
    }
}

TEST(RoomReverbSound, IsDenseAtOnceAndStaysSoWhereLongLinesComeLate)
{
    for (const double size : {6., 45., 60.}) {
        Room<float> fx;
        fx.set("early", -60).set("size", size);
        const auto x = as<double>(fx.response(60000)[0]);
        const auto measured = densening(x, firstSound(x, 40), 48000);
        EXPECT_LT(measured.onset, 15) << size;
        EXPECT_GT(measured.least, 0.7) << size;
    }
}

TEST(RoomReverbSound, NoTwoOfSixteenSpeakersSoundAlike)
{
    Room<float> fx("9.1.6");
    fx.set("early", -60).set("size", 20);
    Channels<double> all;
    for (const auto& row : fx.response(72000)) all.push_back(as<double>(row));
    all.erase(all.begin() + 3);  // LFE
    EXPECT_LT(largestLikeness(all, 3840), 0.4);
}

TEST(RoomReverbSound, FourTimesTheDecayIsThreeDecibelsLouder)
{
    for (const double size : {2., 60.}) {
        const auto level = [&](double decay) {
            Room<float> fx;
            fx.set("early", -60).set("lowdecay", 1).set("highdecay", 1).set("air", 0);
            fx.set("size", size).set("decay", decay);
            return 10 * std::log10(energy(fx.response(192000)));
        };
        EXPECT_NEAR(level(3.2) - level(0.8), 3, 0.7) << size << " m";
    }
}

TEST(RoomReverbSound, JumpsOfKnobsAreNotHeardAsTicks)
{
    const struct {
        const char* key;
        double from, to;
    } jumps[] = {{"highdecay", 2, 0.1}, {"highfreq", 1000, 16000}, {"air", 0, 1},
                 {"lowcut", 20, 1000},  {"highcut", 1000, 20000},  {"size", 2, 60},
                 {"shape", 0, 4},       {"distance", 0, 100},      {"early", -60, 6}};
    const auto tone = sine<float>(120000, 437, 48000);
    for (const auto& jump : jumps) {
        Room<float> fx;
        fx.set(jump.key, jump.from);
        const auto part = [&](std::size_t from, std::size_t to) {
            const Signal<float> x(tone.begin() + long(from), tone.begin() + long(to));
            return fx.play({x, x})[0];
        };
        auto y = part(0, 60000);
        fx.set(jump.key, jump.to);
        const auto rest = part(60000, 120000);
        y.insert(y.end(), rest.begin(), rest.end());
        auto high = as<double>(y);
        for (int pass = 0; pass < 4; ++pass)
            SectionState<double>().run(SectionCoefficients<double>::highPass(3000, 0.7, 48000),
                                       high.data(), int(high.size()));
        double worst = 0;
        for (std::size_t at = 55000; at + 960 < high.size(); at += 120)
            worst = std::max(
                worst, rms(Signal<double>(high.begin() + long(at), high.begin() + long(at) + 960)));
        const double wet = std::max(rms(Signal<float>(y.begin() + 40000, y.begin() + 60000)),
                                    rms(Signal<float>(y.end() - 20000, y.end())));
        EXPECT_LT(db(worst / wet), -43) << jump.key;
    }
}

TEST(RoomReverbSound, FrozenItStandsAndReportsNoEnd)
{
    EffectUnderTest<float> fx("Room Reverb");
    fx.set("mix", 100).set("motion", 100).set("early", -60);
    const auto x = noise<float>(48000);
    const Channels<float> silence(2, Signal<float>(48000));
    fx.play({x, x});
    fx.set("freeze", 1);
    EXPECT_EQ(fx.algorithm().getTailLength(), VNK::kEndlessTail);
    fx.play(silence);
    const double before = energy(fx.play(silence));
    for (int second = 0; second < 5; ++second) fx.play(silence);
    EXPECT_NEAR(10 * std::log10(energy(fx.play(silence)) / before), 0, 0.1);
}

TEST(ReverbPath, PreDelayShiftsTheWetAloneByTimeOrByNote)
{
    Room<float> fx;
    const auto plain = fx.response(20000)[0];
    const auto expectShift = [&](std::size_t samples) {
        const auto late = fx.response(20000)[0];
        for (std::size_t i = samples; i < late.size(); ++i)
            ASSERT_NEAR(late[i], plain[i - samples], 1e-6) << samples;
    };
    fx.set("predelay", 28);
    expectShift(1344);
    fx.tempo(60).set("predelaysync", 1).set("predelaybeats", 0.0625);
    expectShift(6000);
    EXPECT_GE(fx.algorithm().getTailLength(), 6000 + 48000u);
}

TEST(ReverbPath, MixIsOfEqualPowerAndLeavesTheEndsAlone)
{
    const auto x = noise<float>(9600), other = noise<float>(9600, 7);
    const auto mixed = [&](double mix, const char* in, const char* out) {
        EffectUnderTest<float> fx("Room Reverb");
        fx.layouts(layoutOf(in), layoutOf(out)).set("motion", 0).set("mix", mix);
        Channels<float> all(std::size_t(layoutOf(in).channels), x);
        if (all.size() > 1) all[1] = other;
        return fx.play(all);
    };
    EXPECT_EQ(mixed(0, "stereo", "stereo"), (Channels<float>{x, other}));
    EXPECT_EQ(mixed(0, "mono", "stereo"), (Channels<float>{x, x}));
    const auto wet = mixed(100, "5.1", "5.1"), half = mixed(50, "5.1", "5.1");
    EXPECT_EQ(wet[3], Signal<float>(9600)) << "the LFE has no reverberation";
    for (std::size_t i = 0; i < 9600; ++i) {
        ASSERT_NEAR(half[0][i], std::sqrt(0.5f) * (x[i] + wet[0][i]), 1e-5);
        ASSERT_NEAR(half[3][i], std::sqrt(0.5f) * x[i], 1e-6);
    }
    const auto alone = mixed(100, "mono", "stereo");
    EXPECT_NE(alone[0], alone[1]) << "one channel gets a stereo room";
}

TEST(ReverbPath, WidthDuckAndMetersDoWhatTheySay)
{
    Room<float> fx;
    fx.set("width", 0);
    const auto narrow = fx.response(20000);
    EXPECT_EQ(narrow[0], narrow[1]);
    EffectUnderTest<float> ducked("Room Reverb");
    ducked.set("duck", 12).set("mix", 50);
    const auto x = noise<float>(48000);
    ducked.play({x, x}, 480);
    EXPECT_NEAR(ducked.meter("duckreduction"), 10, 1);
    EXPECT_NEAR(ducked.meter("inpeak"), -6, 0.5);
    EXPECT_GT(ducked.meter("outpeak"), -20);
    const Channels<float> silence(2, Signal<float>(48000));
    ducked.play(silence, 480);
    EXPECT_LT(ducked.meter("duckreduction"), 1);
}

}  // namespace
}  // namespace quillworks::test
