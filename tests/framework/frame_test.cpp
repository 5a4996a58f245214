// SPDX-License-Identifier: ISC
// The frame around an effect, tried on a small effect of its own.
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/framework/frame_fixture.h"
#include "tests/support/listener.h"

namespace quillworks::test {
namespace {

TEST_F(Frame, TableBecomesParametersMetersAndCommands)
{
    ASSERT_EQ(component->countParameters(), 9);
    VNK::ParameterInfo p;
    component->getParameter(component->findParameter("step2"), p);
    EXPECT_EQ(p.tag, 502u);
    EXPECT_EQ(p.index, 2);
    EXPECT_EQ(p.defaultValue, 4);
    EXPECT_STREQ(component->choiceText(component->findParameter("step2"), 1), "Middle");
    component->getParameter(component->findParameter("undeclared"), p);
    EXPECT_EQ(p.minimum, 0);
    EXPECT_EQ(p.maximum, 1);
    EXPECT_EQ(p.defaultValue, 0);
    EXPECT_EQ(p.index, -1);
    EXPECT_EQ(component->findParameter(""), -1);
    prepare(2);
    ASSERT_EQ(component->countMeters(), 3);  // the read-only parameter and two of four channels
    EXPECT_EQ(component->readMeter(0), 0.5f);
    play({{0}, {0}});
    EXPECT_EQ(component->readMeter(0), 1);
    EXPECT_EQ(component->readMeter(2), 1);
}

TEST_F(Frame, TextsGoBothWays)
{
    const int gain = component->findParameter("gain"), step = component->findParameter("step0");
    char text[32];
    component->valueToText(gain, -12.5f, text, sizeof text);
    EXPECT_STREQ(text, "-12.5 dB");
    component->valueToText(gain, -60, text, sizeof text);
    EXPECT_STREQ(text, "Off");
    EXPECT_EQ(component->valueToText(gain, -12.5f, text, 4), 8);
    EXPECT_STREQ(text, "-12");
    float v = 0;
    for (const char* good : {"-3", "-3dB", " -3 db ", "-3.0 dB"})
        EXPECT_TRUE(component->textToValue(gain, good, v) && v == -3) << good;
    EXPECT_TRUE(component->textToValue(step, "high", v) && v == 4);
    EXPECT_TRUE(component->textToValue(step, "3", v) && v == 3);
    for (const char* bad : {"", "x", "3 ms", "13", "-3,0", "nan", "inf", "- 3"})
        EXPECT_FALSE(component->textToValue(gain, bad, v)) << bad;
    EXPECT_FALSE(component->textToValue(step, "2.5", v));
}

TEST_F(Frame, ValuesReachTheAlgorithmConvertedInDeclarationOrderLatestWins)
{
    prepare();
    play({{1}});
    algorithm->seen.clear();
    set("reset", 1);
    set("reset", 0);
    set("step1", 4);
    set("gain", -6);
    set("gain", -20);
    component->setEditorOpen(true);
    play({{1}});
    const std::vector<std::pair<Tag, float>> expected{
        {"Gain"_tag, 0.1f}, {501, 4}, {"Rset"_tag, 1}, {"Edit"_tag, 1}};
    EXPECT_EQ(algorithm->seen, expected);
    algorithm->core([](auto& core) { EXPECT_EQ(core.sum, 10); });
    algorithm->seen.clear();
    play({{1}});
    EXPECT_TRUE(algorithm->seen.empty());
}

TEST_F(Frame, WhatIsSetBeforeTheFirstBlockDoesNotGlide)
{
    prepare();
    set("gain", -20);
    EXPECT_EQ(play({{1}})[0][0], 0.1f);
    set("gain", 0);
    EXPECT_LT(play({{1}})[0][0], 1);  // now it does
}

TEST_F(Frame, TempoAndPositionReachTheCore)
{
    prepare();
    const auto tempo = [&](double t) {
        algorithm->setTempo(t);
        play({{1}});
        double seen = 0;
        algorithm->core([&](auto& core) { seen = core.tempo; });
        return seen;
    };
    EXPECT_EQ(tempo(140), 140);
    EXPECT_EQ(tempo(-1), 140);
    EXPECT_EQ(tempo(std::numeric_limits<double>::infinity()), 140);
    EXPECT_EQ(tempo(5), 10);
    EXPECT_EQ(tempo(1e9), 400);
    algorithm->setTransport(
        {.playing = true, .positionKnown = true, .quarterNotes = 2.5, .tempo = 90});
    play({{1}});
    algorithm->core([](auto& core) {
        EXPECT_EQ(core.transport.quarterNotes, 2.5);
        EXPECT_EQ(core.tempo, 90);
    });
    play({{1}});
    algorithm->core([](auto& core) { EXPECT_FALSE(core.transport.positionKnown); });
    algorithm->setWetOnly(true);
    play({{1}});
    algorithm->core([](auto& core) { EXPECT_TRUE(core.wetOnly); });
}

TEST_F(Frame, BothClocksOfTheSongRunOrStandWhereABlockIsCut)
{
    prepare(1, 100);
    for (const bool playing : {true, false}) {
        algorithm->setTransport({.playing = playing,
                                 .positionKnown = true,
                                 .quarterNotes = 8,
                                 .frameKnown = true,
                                 .frame = 1000,
                                 .tempo = 120});
        play({Signal<float>(300)});
        algorithm->core([&](auto& core) {  // as the last of three pieces saw it
            EXPECT_EQ(core.transport.frame, playing ? 1200 : 1000);
            EXPECT_DOUBLE_EQ(core.transport.quarterNotes, playing ? 8 + 200. / 24000 : 8);
        });
    }
}

TEST_F(Frame, InputAndOutputLayoutsMayDiffer)
{
    const auto mono = VNK::SpeakerArrangement::withChannels(1);
    const auto six = VNK::SpeakerArrangement::withChannels(6);
    EXPECT_FALSE(algorithm->setSpeakerArrangement(six, mono));
    ASSERT_TRUE(algorithm->setSpeakerArrangement(mono, six));
    ASSERT_TRUE(algorithm->setSampleRate(64, 48000));
    algorithm->reset();
    const auto y = play({{1, 2}}, 6);
    EXPECT_EQ(y[0], (Signal<float>{1, 2}));
    EXPECT_EQ(y[5], (Signal<float>{0, 0}));
    std::int64_t n = 0;
    EXPECT_TRUE(component->getInteger("channelcount", n));
    EXPECT_EQ(n, 6);
}

TEST_F(Frame, ChannelsMayChangePlacesBetweenInputAndOutput)
{
    prepare(2);
    Signal<float> a{1, 2}, b{3, 4};
    const void* in[] = {a.data(), b.data()};
    void* out[] = {b.data(), a.data()};
    algorithm->process({in, 2, out, 2, nullptr, 0, 2});
    EXPECT_EQ(b, (Signal<float>{1, 2}));
    EXPECT_EQ(a, (Signal<float>{3, 4}));
}

TEST_F(Frame, SideChainIsSilentUntilConnectedAndFed)
{
    Listener listener;
    component->setListener(&listener);
    prepare(1, 2);  // shorter than the block: pieces keep their place on the bus
    EXPECT_EQ(play({{0, 0, 0}}, 1, {{1, 2, 3}})[0], (Signal<float>{0, 0, 0}));
    algorithm->setSideChainActive(true);
    EXPECT_EQ(listener.messages.back(), "sideChainActivated");
    EXPECT_EQ(play({{0, 0, 0}}, 1, {{1, 2, 3}})[0], (Signal<float>{1, 2, 3}));
    EXPECT_EQ(play({{1, 1, 1}})[0], (Signal<float>{1, 1, 1}));
}

TEST_F(Frame, LatencyAndTailFollowParametersAndRateAndAreAnnounced)
{
    Listener listener;
    component->setListener(&listener);
    prepare();
    listener.messages.clear();
    set("late", 1);
    EXPECT_EQ(listener.messages, std::vector<std::string>{"processSetupChanged"});
    EXPECT_EQ(algorithm->getLatency(), 480u);
    EXPECT_EQ(algorithm->getTailLength(), 2000u);
    set("bypass", 1);
    EXPECT_EQ(algorithm->getLatency(), 0u);
    set("bypass", 0);
    ASSERT_TRUE(algorithm->setSampleRate(64, 96000));
    EXPECT_EQ(algorithm->getLatency(), 960u);
}

TEST_F(Frame, AutomationBelongsToNoGestureAndTellsNobody)
{
    Listener listener;
    component->setListener(&listener);
    prepare();
    const int late = component->findParameter("late"), follower = late + 1;
    set("late", 1);
    EXPECT_EQ(listener.changed, std::vector<int>{follower});
    set("late", 0);
    listener = {};
    component->beginGroupEdit();
    {
        const AudioThreadGuard guard;
        EXPECT_TRUE(component->automate(late, 1));
        EXPECT_FALSE(component->automate(late, std::nanf("")));
        EXPECT_FALSE(component->automate(component->findParameter("level"), 1));
    }
    component->endGroupEdit();
    EXPECT_EQ(component->getValue(follower), 1);
    EXPECT_EQ(algorithm->getLatency(), 480u);
    EXPECT_TRUE(listener.messages.empty() && listener.changed.empty() && listener.edits.empty());
    set("gain", 1);
    EXPECT_EQ(listener.messages, std::vector<std::string>{"processSetupChanged"}) << "late is told";
}

TEST_F(Frame, LatencyIsThatOfTheLatestValueThoughAThreadIsOvertaken)
{
    prepare();
    // While one thread works the delays out, another changes what they depend on.
    component->meanwhile = [this] { set("late", 1); };
    component->automate(component->findParameter("gain"), -1);
    EXPECT_EQ(algorithm->getLatency(), 480u);
    EXPECT_EQ(algorithm->getTailLength(), 2000u);
}

TEST_F(Frame, PreparationThatFailsIsToldAndTheEffectCanBePreparedAgain)
{
    prepare();
    EXPECT_FALSE(algorithm->setSampleRate(64, 666));
    if constexpr (kChecksRules)
        EXPECT_DEATH(play({{1}}), "without a preparation");
    else
        EXPECT_EQ(play({{1}})[0][0], 99) << "an unprepared effect touches nothing";
    prepare();
    EXPECT_EQ(play({{1}})[0][0], 1);
}

TEST_F(Frame, GesturesNestAndGroupsCloseThemselves)
{
    Listener listener;
    component->setListener(&listener);
    component->beginEdit("Gain"_tag);
    component->beginEdit("Gain"_tag);
    component->endEdit("Gain"_tag);
    EXPECT_EQ(listener.edits, std::vector<int>{0});
    component->endEdit("Gain"_tag);
    component->endEdit("Gain"_tag);  // one too many does nothing
    EXPECT_EQ(listener.edits, (std::vector<int>{0, 0}));
    listener.edits.clear();
    component->beginGroupEdit();
    set("step1", 3);
    set("step1", 4);
    set("step2", 3);
    component->endGroupEdit();
    EXPECT_EQ(listener.edits, (std::vector<int>{2, 3, -2, -3}));
    EXPECT_EQ(component->changeCount(2), 2u);
}

TEST_F(Frame, OldStatesAreMigratedAndAttributesStored)
{
    set("gain", 5);
    ASSERT_TRUE(component->setInteger("mode", 9));
    EXPECT_FALSE(component->setInteger("channelcount", 9));
    VNK::StringSink sink;
    component->savePreset("x", &sink);
    std::string text = sink.text();
    set("gain", 0);
    component->setInteger("mode", 1);
    ASSERT_TRUE(component->loadPreset(text.data(), text.size())) << component->refusalReason();
    EXPECT_EQ(component->getValue(0), 5);
    std::int64_t mode = 0;
    component->getInteger("mode", mode);
    EXPECT_EQ(mode, 9);
    text.replace(text.find("algorithmVersion=\"3\""), 20, "algorithmVersion=\"2\"");
    ASSERT_TRUE(component->loadPreset(text.data(), text.size()));
    EXPECT_EQ(component->getValue(0), -3);
}

}  // namespace
}  // namespace quillworks::test
