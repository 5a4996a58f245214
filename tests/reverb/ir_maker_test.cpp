// SPDX-License-Identifier: ISC
// What IR Maker promises: measurements in a host and of files, and what ends or hinders them.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>

#include "tests/support/display_under_test.h"
#include "vnk/impulse_responses.h"
#include "vnk/sound_file.h"

namespace quillworks {
namespace {

namespace fs = std::filesystem;
using test::Channels;

/// An effect whose outputs come back to its inputs `delay` frames later, each by its own gain, and
/// a folder of its own to write to.
template <typename T> class Loop {
public:
    Loop(int inputs, int outputs, int block = 512, double rate = 8000)
        : inputs_(inputs), outputs_(outputs), block_(block)
    {
        const auto* const info = ::testing::UnitTest::GetInstance()->current_test_info();
        folder_ = fs::temp_directory_path() /
                  ("ir_maker_" + std::string(info->name()) + std::to_string(::getpid()));
        fs::remove_all(folder_);
        fs::create_directories(folder_);
        using VNK::SpeakerArrangement;
        fx.sampleRate(rate).layouts(SpeakerArrangement::withChannels(inputs),
                                    SpeakerArrangement::withChannels(outputs));
        setText("folder", folder_.string());
        fx.set("sweeplength", 1).set("taillength", 0.5).set("level", -6).set("align", 0);
        fx.set("trim", 0).set("normalise", 0);
    }
    ~Loop() { fs::remove_all(folder_); }

    bool setText(const char* key, const std::string& text)
    {
        const auto& component = fx.component();
        return component.setText(component.findText(key), text.c_str());
    }
    std::string problem()
    {
        const auto& component = fx.component();
        return component.textProblem(component.findText("folder"));
    }
    /// Plays on; gain(output, input) is the way between them.
    template <class Gain> void play(std::size_t frames, Gain&& gain)
    {
        for (std::size_t at = 0; at < frames; at += std::size_t(block_)) {
            const test::Signal<T> silence(static_cast<std::size_t>(block_));
            Channels<T> in(static_cast<std::size_t>(inputs_), silence);
            for (std::size_t i = 0; i < std::size_t(block_) && heard_ + i >= kDelay; ++i)
                for (int m = 0; m < inputs_; ++m)
                    for (int s = 0; s < outputs_ && !played.empty(); ++s)
                        if (heard_ + i - kDelay < played[0].size())
                            in[std::size_t(m)][i] +=
                                T(gain(s, m)) * played[std::size_t(s)][heard_ + i - kDelay];
            heard_ += std::size_t(block_);
            const auto out = fx.play(in, block_);
            states.insert(int(fx.meter("state")));
            played.resize(out.size()), recorded.resize(in.size());
            for (std::size_t c = 0; c < out.size(); ++c)
                played[c].insert(played[c].end(), out[c].begin(), out[c].end());
            for (std::size_t c = 0; c < in.size(); ++c)
                recorded[c].insert(recorded[c].end(), in[c].begin(), in[c].end());
        }
        test::waitUntilReady(fx.component());
    }
    std::set<std::string> files() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_))
            names.insert(entry.path().filename().string());
        return names;
    }
    VNK::Sound<float> read(const std::string& name) const
    {
        VNK::Sound<float> sound;
        std::string reason;
        EXPECT_TRUE(VNK::readSoundFile((folder_ / name).c_str(), {}, sound, reason)) << reason;
        return sound;
    }

    static constexpr std::size_t kDelay = 700;  // frames, at least a block
    test::EffectUnderTest<T> fx{"IR Maker"};
    Channels<T> played, recorded;
    std::set<int> states;

private:
    int inputs_, outputs_, block_;
    std::size_t heard_ = 0;
    fs::path folder_;
};

constexpr auto kStraight = [](int s, int m) { return s == m ? 0.5 : 0.125; };
constexpr std::size_t kWhole = 4000 + 2 * 14000;  // frames of two sources, and more

template <typename T> class IrMaker : public ::testing::Test {};
TYPED_TEST_SUITE(IrMaker, test::Precisions, );

TYPED_TEST(IrMaker, MeasuresAsItSolvesFilesAndPlaysTheSameAtAnyBlockLength)
{
    Loop<TypeParam> loop(2, 2);
    loop.fx.set("harmonics", 1).set("start", 1);
    loop.play(kWhole, kStraight);
    EXPECT_EQ(loop.states, (std::set<int>{1, 2, 3, 4, 5})) << loop.problem();
    EXPECT_EQ(loop.files(),
              (std::set<std::string>{"Response.wav", "Response H2.wav", "Response H3.wav",
                                     "Response H4.wav", "Response H5.wav"}));
    const auto response = loop.read("Response.wav");
    ASSERT_EQ(response.channels.size(), 4u);
    for (std::size_t path = 0; path < 4; ++path)
        EXPECT_NEAR(response.channels[path][700], path == 0 || path == 3 ? 0.5 : 0.125, 0.004);
    EXPECT_EQ(loop.fx.meter("latencyfound"), 700);
    EXPECT_EQ(loop.fx.meter("clipped"), 0);
    EXPECT_EQ(loop.fx.meter("noisefloor"), -200);
    EXPECT_LT(loop.fx.meter("thd"), 0.01f);
    const auto displays = loop.fx.component().template queryInterface<VNK::IEffectDisplays>();
    test::Shown shown;
    ASSERT_TRUE(displays->snapshot("response", &shown));
    for (const auto& [path, level] : {std::pair{0, -6.02}, {1, -18.06}}) {
        const auto& magnitude = shown.list["paths/" + std::to_string(path) + "/magnitude"];
        const auto& hertz = shown.list["frequency"];
        ASSERT_EQ(magnitude.size(), hertz.size());
        for (std::size_t b = 0; b < hertz.size(); ++b)
            if (hertz[b] > 50 && hertz[b] < 3000) {
                EXPECT_NEAR(magnitude[b], level, 0.3) << hertz[b];
            }
    }

    // The same as of files, to the bit.
    struct Sink : VNK::IResponseSink {
        Channels<float> response;
        void take(std::int32_t order, const double* const* x, std::int32_t n,
                  std::int64_t frames) override
        {
            for (int c = 0; order == 1 && c < n; ++c) response.emplace_back(x[c], x[c] + frames);
        }
    } sink;
    const auto played =
        Channels<float>{test::as<float>(loop.played[0]), test::as<float>(loop.played[1])};
    const auto recorded =
        Channels<float>{test::as<float>(loop.recorded[0]), test::as<float>(loop.recorded[1])};
    const float* const p[] = {played[0].data(), played[1].data()};
    const float* const r[] = {recorded[0].data(), recorded[1].data()};
    const auto frames = std::int64_t(played[0].size());
    VNK::ResponseFigures figures;
    const auto tool = loop.fx.component().template queryInterface<VNK::IImpulseResponses>();
    ASSERT_TRUE(tool->solve({8000, p, 2, frames, r, 2, frames, -1}, {.align = 0}, &sink, figures))
        << tool->refusal();
    for (std::size_t c = 0; c < 4; ++c)
        for (std::size_t i = 0; i < 4000; ++i)
            ASSERT_EQ(sink.response[c][i], response.channels[c][i]) << c << ", " << i;

    for (const int block : {1, 37, 700}) {
        Loop<TypeParam> other(2, 2, block);
        other.fx.set("start", 1);
        other.play(8000, kStraight);
        for (std::size_t i = 0; i < 8000; ++i)
            ASSERT_EQ(other.played[0][i], loop.played[0][i]) << block << ", " << i;
    }
}

TYPED_TEST(IrMaker, StopBypassAndPreparationEndItWithoutAFile)
{
    using Change = void (*)(Loop<TypeParam>&);
    for (const Change change : {Change([](auto& l) { l.fx.set("stop", 1); }),
                                Change([](auto& l) { l.fx.set("bypass", 1); }),
                                Change([](auto& l) { l.fx.prepare(1); })}) {
        Loop<TypeParam> loop(1, 1);
        loop.fx.set("start", 1);
        loop.play(4500, kStraight);
        EXPECT_EQ(loop.fx.meter("state"), 2);
        loop.play(512 * 4, kStraight);
        const auto before = loop.played[0].size();
        change(loop);
        loop.play(20000, [](int, int) { return 0; });
        EXPECT_LT(test::largestStep(loop.played[0], before - 2, before + 20000), 0.5);
        EXPECT_EQ(test::peak(test::Signal<TypeParam>(
                      loop.played[0].begin() + std::ptrdiff_t(before) + 512, loop.played[0].end())),
                  0);
        EXPECT_TRUE(loop.files().empty());
    }
    // A second start begins anew, and its measurement is whole.
    Loop<TypeParam> loop(1, 1);
    loop.fx.set("start", 1);
    loop.play(6000, kStraight);
    loop.fx.set("start", 1);
    loop.play(kWhole / 2 + 4000, kStraight);
    EXPECT_EQ(loop.files(), std::set<std::string>{"Response.wav"});
    EXPECT_EQ(loop.fx.meter("latencyfound"), 700);
}

TEST(IrMakerFiles, WhatHindersAMeasurementIsSaid)
{
    Loop<float> loop(1, 1);
    loop.fx.set("start", 1);
    loop.play(kWhole / 2 + 4000, [](int, int) { return 0; });
    EXPECT_EQ(loop.fx.meter("state"), 6);
    EXPECT_EQ(loop.problem(), "nothing came back");
    EXPECT_TRUE(loop.files().empty());
    EXPECT_FALSE(loop.setText("folder", "/nowhere/at/all"));
    for (const char* const name : {"", "a/b", "..", ".hidden"})
        EXPECT_FALSE(loop.setText("name", name)) << name;
    EXPECT_TRUE(loop.setText("name", "Räum 1, links"));

    // More than a gigabyte is refused before it is taken.
    Loop<float> large(16, 16, 512, 192000);
    large.fx.set("sweeplength", 60).set("taillength", 30).set("start", 1);
    large.play(40000, kStraight);
    EXPECT_EQ(large.fx.meter("state"), 6);
}

TEST(IrMakerFiles, NamesAreKeptApartAndKindsThatCannotHoldItBecomeWav)
{
    Loop<float> loop(1, 2);
    loop.fx.set("passes", 1).set("align", 2).set("trim", 1).set("normalise", 1).set("format", 0);
    for (int i = 0; i < 2; ++i) {
        loop.fx.set("mode", i).set("start", 1);
        loop.play(2 * kWhole, kStraight);
    }
    EXPECT_EQ(loop.files(), (std::set<std::string>{"Response.wav", "Response 2.wav"}));
    const auto first = loop.read("Response.wav").channels,
               both = loop.read("Response 2.wav").channels;
    ASSERT_EQ(first.size(), 1u) << "one microphone, one source";
    EXPECT_NEAR(test::db(test::peak(first[0])), -1, 0.01);
    EXPECT_NEAR(double(first[0][8]), test::peak(first[0]), 1e-6) << "1 ms before the first sound";
    EXPECT_LT(first[0].size(), 4000u);

    Loop<float> many(3, 3);
    many.fx.set("format", 2).set("start", 1);
    many.play(2 * kWhole, kStraight);
    EXPECT_EQ(many.read("Response.wav").channels.size(), 9u) << "FLAC holds eight";
    Loop<float> loud(1, 1);
    loud.fx.set("format", 2).set("start", 1).set("level", -40);
    loud.play(kWhole, [](int, int) { return 4; });
    EXPECT_NEAR(loud.read("Response.wav").channels[0][700], 4, 0.04);
}

TEST(IrMakerFiles, ALoopbackOnTheSideChainIsTheTimeZeroAndTheInputIsHeardOnlyWhenAsked)
{
    Loop<float> loop(1, 1);
    loop.fx.set("start", 1).sideChain({test::Signal<float>(kWhole)});
    // The sweep as it will be played comes back on the bus 300 frames late.
    Loop<float> model(1, 1);
    model.fx.set("start", 1);
    model.play(kWhole / 2, kStraight);
    test::Signal<float> bus(300);
    bus.insert(bus.end(), model.played[0].begin(), model.played[0].end());
    loop.fx.sideChain({bus});
    loop.play(kWhole, kStraight);
    EXPECT_EQ(loop.fx.meter("latencyfound"), 400);
    EXPECT_NEAR(loop.read("Response.wav").channels[0][400], 0.5, 0.004);

    const auto x = test::noise<float>(4800);
    test::EffectUnderTest<float> fx("IR Maker");
    EXPECT_EQ(test::peak(fx.run(x)), 0);
    EXPECT_EQ(test::EffectUnderTest<float>("IR Maker").set("thru", 1).run(x), x);
}

}  // namespace
}  // namespace quillworks
