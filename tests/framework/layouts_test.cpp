// SPDX-License-Identifier: ISC
// Unequal layouts and generators: what the core gets, and what bypass plays.
#include <string>

#include "framework/pass_through.h"
#include "tests/framework/frame_fixture.h"

namespace quillworks::test {
namespace {

VNK::SpeakerArrangement layout(const char* name)
{
    VNK::SpeakerArrangement arrangement;
    EXPECT_TRUE(VNK::SpeakerArrangement::named(name, arrangement)) << name;
    return arrangement;
}

/// The channels that hear an input channel, with its gain: "L1 R1".
template <class Rule> std::string heard(Rule&& rule, const char* from, const char* to, int channel)
{
    const auto input = layout(from), output = layout(to);
    std::string text;
    for (int c = 0; c < output.channels; ++c) {
        VNK::SpeakerArrangement one;
        one.channels = 1;
        one.speakers[0] = output.speakers[c];
        const int percent = static_cast<int>(100 * rule(input, output, channel, c) + 0.5f);
        if (percent != 0) text += one.names() + std::to_string(percent) + " ";
    }
    return text;
}

TEST(BypassGains, ASingleChannelIsHeardInBothAndPannersKeepItsPower)
{
    struct Row {
        const char *from, *to;
        int channel;
        const char *placed, *panned;
    };
    const Row rows[] = {
        {"mono", "mono", 0, "M100 ", "M100 "},     {"mono", "stereo", 0, "L100 R100 ", "L71 R71 "},
        {"mono", "5.1", 0, "L100 R100 ", "C100 "}, {"mono", "quad", 0, "L100 R100 ", "L71 R71 "},
        {"stereo", "mono", 0, "M100 ", "M50 "},    {"stereo", "mono", 1, "", "M50 "},
        {"stereo", "7.1.4", 1, "R100 ", "R100 "},  {"5.1", "stereo", 3, "", ""},
        {"5.1", "7.1", 4, "Ls100 ", "Ls100 "},     {"stereo", "12", 1, "-100 ", "-100 "},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(heard(placedBypassGain, row.from, row.to, row.channel), row.placed)
            << row.from << " to " << row.to;
        EXPECT_EQ(heard(pannedBypassGain, row.from, row.to, row.channel), row.panned)
            << row.from << " to " << row.to;
    }
}

TEST_F(Frame, BypassOfUnequalLayoutsPlaysTheInputInBothFromTheFirstSampleAndFades)
{
    for (const char* output : {"stereo", "5.1"}) {
        ASSERT_TRUE(algorithm->setSpeakerArrangement(layout("mono"), layout(output)));
        ASSERT_TRUE(algorithm->setSampleRate(64, 48000));
        const int outputs = layout(output).channels;
        set("gain", -20);
        set("bypass", 1);
        const Signal<float> x(200, 1.f);
        auto y = play({x}, outputs);
        EXPECT_EQ(y[0], x);
        EXPECT_EQ(y[1], x);
        for (std::size_t c = 2; c < y.size(); ++c) EXPECT_EQ(y[c], Signal<float>(200, 0.f)) << c;
        // The core leaves the right side silent, so it shows the fade's weight: 10 ms out.
        set("bypass", 0);
        y = play({Signal<float>(600, 1.f)}, outputs);
        for (std::size_t i = 0; i < 480; ++i) ASSERT_NEAR(y[1][i], 1 - float(i) / 480, 0.01) << i;
        EXPECT_EQ(y[1][500], 0);
        EXPECT_NEAR(y[0][500], 0.1f, 1e-6);
        EXPECT_EQ(algorithm->getBypassGain(0, 1), 1);
        EXPECT_EQ(algorithm->getBypassGain(1, 0), 0) << "there is no second input";
    }
}

TEST_F(Frame, AttributesTellTheLayoutsOfBothSides)
{
    ASSERT_TRUE(algorithm->setSpeakerArrangement(layout("mono"), layout("5.1")));
    std::int64_t input = 0, output = 0;
    ASSERT_TRUE(component->getInteger("inputspeakerchannels", input));
    ASSERT_TRUE(component->getInteger("speakerchannels", output));
    EXPECT_EQ(input, std::int64_t(layout("mono").bits()));
    EXPECT_EQ(output, std::int64_t(layout("5.1").bits()));
}

struct ToneSettings {
    float adds;
};

/// Writes 0.25, or adds it to its input, which a generator is free to do.
template <typename T> struct ToneCore {
    using Settings = ToneSettings;
    static constexpr CoreHooks kHooks{};
    void prepare(const ProcessSpec&) {}
    void reset() noexcept {}
    void apply(const Settings& s, unsigned) noexcept { adds = s.adds != 0; }
    void process(const AudioBlock<T>& block) noexcept
    {
        for (int c = 0; c < block.channels; ++c)
            for (int i = 0; i < block.frames; ++i)
                block[c][i] = T(0.25) + (adds ? block[c][i] : T(0));
    }
    bool adds = false;
};
constexpr Parameter<ToneSettings> kTone[] = {
    {"adds", "Adds"_tag, "Adds", Kind::Toggle, 0, 1, 0, "", &ToneSettings::adds, 1},
    {"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
};

TEST(Generator, GetsTheInputAsAnyInsertAndBypassPlaysIt)
{
    struct Algorithm final : PrecisionAlgorithm<ToneCore, AudioSynthAlgorithm> {
        Algorithm() : PrecisionAlgorithm(kTone) {}
    };
    const auto algorithm = VNK::Ref<Algorithm>::adopt(new Algorithm);
    const auto component = VNK::Ref<AudioEffectComponent>::adopt(
        new AudioEffectComponent(*algorithm, {.viewPrefix = "Tone"}));
    EXPECT_FALSE(algorithm->setSpeakerArrangement(layout("stereo"), VNK::SpeakerArrangement{}));
    ASSERT_TRUE(algorithm->setSpeakerArrangement(layout("5.1"), layout("stereo")));
    ASSERT_TRUE(algorithm->setSpeakerArrangement(layout("stereo"), layout("stereo")));
    ASSERT_TRUE(algorithm->setSampleRate(64, 48000));
    const Signal<float> in(8, 1.f);
    Signal<float> left(8, 99.f), right(8, 99.f);
    const auto play = [&] {
        const void* inputs[] = {in.data(), in.data()};
        void* outputs[] = {left.data(), right.data()};
        algorithm->process({inputs, 2, outputs, 2, nullptr, 0, 8});
        EXPECT_EQ(left, right);
        return left[7];
    };
    const auto set = [&](const char* key, float value) {
        component->setValue(component->findParameter(key), value);
        algorithm->reset();
    };
    EXPECT_EQ(play(), 0.25f);
    set("adds", 1);
    EXPECT_EQ(play(), 1.25f);
    set("bypass", 1);
    EXPECT_EQ(play(), 1.f);
}

}  // namespace
}  // namespace quillworks::test
