// SPDX-License-Identifier: ISC
// A filter that no modulation makes unstable, a drive without aliases, and steps on the beat.
#include <complex>

#include "modulation/swept_filter_kernels.h"
#include "tests/support/power_spectrum.h"
#include "tests/support/song.h"

namespace quillworks::test {
namespace {

constexpr const char* kName = "Autofilter";

/// Nothing moves.
template <typename T> EffectUnderTest<T> standing(int type, double cutoff, double resonance)
{
    EffectUnderTest<T> fx(kName);
    fx.set("type", type).set("cutoff", cutoff).set("resonance", resonance).set("drive", 0);
    fx.set("lfoamount", 0).set("envamount", 0);
    return fx;
}

std::complex<double> responseOf(const Signal<double>& y, double hertz, double rate)
{
    const auto step = std::polar(1.0, -2 * std::numbers::pi * hertz / rate);
    std::complex<double> sum = 0, turn = 1;
    for (const double h : y) sum += h * turn, turn *= step;
    return sum;
}

template <typename T> class SweptSections : public ::testing::Test {};
TYPED_TEST_SUITE(SweptSections, Precisions);

TYPED_TEST(SweptSections, NeverGainEnergyHoweverTheyAreThrown)
{
    using T = TypeParam;
    using Run = SweptFilterRun<T>;
    std::mt19937 random(kSeed);
    const auto draw = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    constexpr int kSlots = 4;
    double largest = 0;
    for (int turn = 0; turn < 120; ++turn) {
        std::vector<T> g(2 * kSubBlock + 8), states(Run::kStates * kSlots);
        // The first section gives nothing to the second once its own input has stopped.
        T values[kSweptFilterValues] = {T(draw(0, 1)), T(draw(0, 1)), 2, 1, 0, 0, 0, 0, 1};
        const T still[kSweptFilterValues] = {};
        const auto energy = [&](int row) {
            const auto at = [&](int r) { return double(states[std::size_t(r * kSlots)]); };
            return at(row) * at(row) + at(row + 1) * at(row + 1);
        };
        double last[2] = {1e30, 1e30};
        for (int frame = 0; frame < 3000; ++frame) {
            const double octave = turn % 4 == 0   ? draw(-4.5, 4.5)
                                  : turn % 4 == 1 ? 4.5 * std::sin(frame * 0.7)
                                                  : 4.5 * (frame / (turn % 4) % 2 * 2 - 1);
            const double corner = std::min(0.45, 0.02 * std::exp2(octave));
            std::fill(g.begin(), g.end(), T(std::tan(std::numbers::pi * corner)));
            T x = frame < 1000 ? T(draw(-4, 4)) : T(0);
            T* channel[kSlots] = {&x};
            sweptFilterKernels<T>().run({.rows = {g.data(), g.data()},
                                         .to = values,
                                         .step = still,
                                         .moves = false,
                                         .states = states.data(),
                                         .x = {channel, channel},
                                         .slots = kSlots,
                                         .factor = 1,
                                         .frames = 1,
                                         .phase = 0});
            for (const int section : {0, 1}) {
                const double now = energy(3 * section);
                largest = std::max(largest, std::sqrt(now));
                if (frame >= 1000 && now > 1e-12) {
                    ASSERT_LE(now, last[section] * (1 + 1e-6)) << turn << " at " << frame;
                }
                last[section] = now;
            }
        }
    }
    std::printf("[ state    ] at most %.1f\n", largest);
    EXPECT_LT(largest, 25);
}

template <typename T> class Autofilter : public ::testing::Test {};
TYPED_TEST_SUITE(Autofilter, Precisions);

TYPED_TEST(Autofilter, StaysBoundedWithEverythingAtItsEnds)
{
    using T = TypeParam;
    double loudest = 0;
    for (int type = 0; type < 8; ++type) {
        EffectUnderTest<T> fx(kName);
        fx.set("type", type).set("resonance", 100).set("drive", 24).set("lfoamount", 5);
        fx.set("lfosync", 0).set("lfotime", 20).set("wave", 3).set("envamount", 6);
        fx.set("attack", 0.5).set("release", 5).set("seqamount", 4).set("seqbeatsnu", 0.03);
        fx.prepare(2);
        std::mt19937 random(kSeed);
        Channels<T> y(2, noise<T>(96000, 5, 4));
        for (auto& channel : y) channel.resize(4 * 48000);
        for (int at = 0; at < 4 * 48000; at += 16) {
            fx.set("cutoff", 30 * std::pow(533.0, double(random() % 1000) / 999));
            fx.processBlock(y, y, at, 16);
        }
        for (const auto& channel : y) {
            loudest = std::max(loudest, peak(channel));
            const Signal<T> after(channel.begin() + 144000, channel.end());
            EXPECT_LT(peak(after), 0.01) << type;
        }
    }
    std::printf("[ loudest  ] %.1f\n", loudest);
    EXPECT_LT(loudest, 60);
}

TYPED_TEST(Autofilter, SweepsAlikeFromAnyPlaceAndInAnyBlocks)
{
    using T = TypeParam;
    const Song song;
    constexpr int kStart = 64 * 24000, kFrames = 48000 * 3;
    const auto x = noise<T>(kStart + kFrames, 3, 0.3);
    struct Case {
        int type, wave;
        double drive, sequence, rate;
    };
    for (const auto [type, wave, drive, sequence, rate] :
         {Case{1, 1, 0, 4, 48000}, {5, 4, 12, -2, 48000}, {7, 2, 3, 0, 96000}}) {
        const auto run = [&, t = type, w = wave, d = drive, s = sequence, r = rate](int from, int n,
                                                                                    int block) {
            EffectUnderTest<T> fx(kName);
            fx.set("type", t).set("wave", w).set("drive", d).set("seqamount", s).set("stereo", 70);
            fx.set("lfoamount", 5).set("envamount", 3).set("lfobeatsnu", 0.25);
            auto at = song;
            at.rate = r;
            const Signal<T> part(x.begin() + from, x.begin() + from + n);
            return at.template play<T>(fx, from, n, block, {}, {part, part});
        };
        const auto whole = run(0, 20000, 1000);
        for (const int block : {1, 64}) EXPECT_EQ(run(0, 20000, block), whole) << type << block;
        const auto all = run(0, kStart + kFrames, 1000), part = run(kStart, kFrames, 512);
        for (std::size_t c = 0; c < 2; ++c) {
            const Signal<T> later(all[c].begin() + kStart + 96000, all[c].end());
            const Signal<T> own(part[c].begin() + 96000, part[c].end());
            EXPECT_LT(peakDifferenceDb(own, later), -60) << type;
        }
    }
}

TEST(AutofilterDrive, BringsNoAliases)
{
    constexpr int kFrames = 65536;
    struct Case {
        double drive, hertz, bar;
    };
    for (const auto [drive, hertz, bar] :
         {Case{12, 1001, -110}, {12, 5100, -100}, {24, 1001, -110}, {24, 5100, -65}}) {
        auto fx = standing<float>(1, 6000, 37.35);  // Q 4
        const auto y = fx.set("drive", drive).run(sine<float>(20000 + kFrames, hertz, 48000, 0.5));
        const auto power = powerSpectrum(y, 20000, kFrames);
        double harmonics = 0, others = 0;
        for (int bin = 20; bin < kFrames * 20 / 48; ++bin) {
            const double order = bin * 48000.0 / kFrames / hertz;
            const double away = std::abs(order - std::round(order)) * hertz * kFrames / 48000;
            (away < 12 && order > 0.5 ? harmonics : others) += power[std::size_t(bin)];
        }
        const double level = 10 * std::log10(others / harmonics);
        std::printf("[ aliases  ] drive %.0f at %.0f Hz: %.0f dB\n", drive, hertz, level);
        EXPECT_LT(level, bar) << drive << " " << hertz;
    }
}

TEST(AutofilterFilter, HasItsCornerWhereItIsSetAtEveryRate)
{
    double worst = 0, late = 0;
    for (const double rate : {44100., 48000., 96000., 192000.})
        for (const double drive : {0., 12.}) {
            for (const double cutoff : {100., 1000., 8000.}) {
                auto fx = standing<double>(1, cutoff, 0);
                fx.set("drive", drive).sampleRate(rate);
                const auto y = fx.run(impulse<double>(std::size_t(rate / 4), 0, 0.001));
                const double fall = db(std::abs(responseOf(y, cutoff, rate)) /
                                       std::abs(responseOf(y, cutoff > 100 ? 100 : 10, rate)));
                worst = std::max(worst, std::abs(fall + 3.0));
                EXPECT_NEAR(fall, -3.0, 0.2) << rate << " Hz, drive " << drive << ", " << cutoff;
            }
            // Far above its corner a peak filter only delays, and as much as is said.
            auto fx = standing<double>(7, 100, 100);
            fx.set("drive", drive).sampleRate(rate);
            const auto y = fx.run(impulse<double>(std::size_t(rate), 0, 0.001));
            const double latency = fx.algorithm().getLatency();
            EXPECT_EQ(latency, rate < 64000 ? 32 : 0);
            const double turn = 2 * std::numbers::pi * 5000 / rate;
            const auto rest = responseOf(y, 5000, rate) * std::polar(1.0, turn * latency);
            late = std::max(late, std::abs(std::arg(rest)) / turn);
            EXPECT_LT(std::abs(std::arg(rest)) / turn, 0.1) << rate << ", drive " << drive;
        }
    std::printf("[ corner   ] within %.2f dB, delay within %.3f samples\n", worst, late);
}

TEST(AutofilterFilter, MovesItsCornerAndChangesItsTypeWithoutAStep)
{
    const double steady = 2 * std::numbers::pi * 100 / 48000;
    const auto x = sine<double>(96000, 100, 48000);
    const auto play = [&](const char* key, double a, double b, int every) {
        auto fx = standing<double>(1, 500, 0);
        fx.prepare(1);
        Channels<double> y{x};
        for (int at = 0; at < 96000; at += 160) {
            if (at % every == 0) fx.set(key, at / every % 2 ? a : b);
            fx.processBlock(y, y, at, 160);
        }
        return largestStep(y[0]) / steady;
    };
    const double corner = play("cutoff", 30, 16000, 480);
    std::printf("[ corner   ] steps %.2f of the steady ones\n", corner);
    EXPECT_LT(corner, 2.2);
    for (int type = 0; type < 8; ++type) EXPECT_LT(play("type", type, 1, 4800), 2.2) << type;
    EXPECT_LT(play("drive", 0, 24, 4800), 2.2);
    EXPECT_LT(play("resonance", 0, 40, 4800), 2.2);
}

TEST(AutofilterSweep, FollowsTheStepsTheLevelAndTheSideChain)
{
    EffectUnderTest<float> fx(kName);
    fx.set("lfoamount", 0).set("envamount", 0).set("seqamount", 2).set("cutoff", 1000);
    fx.set("seqsteps", 3).set("glide", 50).set("step0", 100).set("step1", -50).set("step2", 0);
    const auto at = [&](int frame) {  // sixteenth steps of 6000 frames
        fx.set("seqbeatsnu", 0.125).algorithm().reset();
        Song{}.play(fx, 30 * 6000, frame);
        return std::log2(double(fx.meter("cutoffleft")) / 1000);
    };
    EXPECT_NEAR(at(5984), 2, 1e-3) << "the first step, at its end";
    EXPECT_NEAR(at(6000 + 1504), 0.5, 0.02) << "half the way to the second";
    EXPECT_NEAR(at(6000 + 3040), -1, 1e-3);
    EXPECT_NEAR(fx.meter("sequenceposition"), 1.5, 0.01);
    EXPECT_NEAR(at(17984), 0, 1e-3) << "the third, then the first again";
    EXPECT_NEAR(at(23984), 2, 1e-3);

    const auto level = [](bool external, double input, double key) {
        EffectUnderTest<float> fx2(kName);
        fx2.set("external", external).set("sensitivity", 6).set("attack", 0.5);
        fx2.sideChain({constant<float>(9600, key), constant<float>(9600, 0)});
        fx2.play(Channels<float>(2, constant<float>(9600, input)));
        return fx2.meter("envelopelevel");
    };
    EXPECT_NEAR(level(false, 0.1, 0.5), 1 - 14.0 / 48, 1e-3);
    EXPECT_NEAR(level(true, 0.1, 0.5), 1 - 0.02 / 48, 1e-3);
    EXPECT_NEAR(level(true, 0.5, 0.01), 1 - 34.0 / 48, 1e-3);
}

}  // namespace
}  // namespace quillworks::test
