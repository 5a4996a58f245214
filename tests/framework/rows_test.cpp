// SPDX-License-Identifier: ISC
// What rows say of parameters and meters beyond their values, and what depends on the tempo.
#include <limits>
#include <string>

#include "framework/pass_through.h"
#include "tests/framework/frame_fixture.h"

namespace quillworks::test {
namespace {

constexpr const char* kStages[] = {"Waiting", "Running", "Done"};
constexpr float kNothing = std::numeric_limits<float>::quiet_NaN();
constexpr Parameter<PassThroughSettings> kRows[] = {
    {.key = "angle",
     .tag = "Angl"_tag,
     .title = "Angle",
     .min = -180,
     .max = 180,
     .notes = {.minText = "Back", .drivenBy = "bypass", .origin = 0.f, .wraps = true}},
    {.key = "bias",
     .tag = "Bias"_tag,
     .title = "Bias",
     .min = -2,
     .max = 6,
     .notes = {.flags = VNK::isBipolar, .generation = 1}},
    {"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
    {.key = "stage",
     .tag = "Stag"_tag,
     .title = "Stage",
     .kind = Kind::Reading,
     .max = 2,
     .def = kNothing,
     .notes = {.texts = kStages}},
    {.key = "level",
     .tag = "Leve"_tag,
     .title = "Level",
     .kind = Kind::Reading,
     .min = -60,
     .max = 0,
     .def = -60,
     .unit = "Media.DB",
     .notes = {.minText = "Silence", .generation = 2}},
};

class RowsComponent final : public AudioEffectComponent {
public:
    explicit RowsComponent(AudioEffectAlgorithm& a) : AudioEffectComponent(a, {.viewPrefix = "R"})
    {}
    Delays delays(double rate) const noexcept override
    {
        return {0, static_cast<std::uint32_t>(rate * 60 / double(tempo()))};
    }
    void measure(float level) { meterSlots().publish("Leve"_tag, level); }
};

class Rows : public ::testing::Test {
protected:
    Rows()
    {
        EXPECT_TRUE(algorithm->setSampleRate(64, 48000));
        component->identify({}, "Rows");
    }
    std::string meterText(int index, float value)
    {
        char text[32] = "";
        const int length = component->meterToText(index, value, text, sizeof text);
        EXPECT_EQ(length, int(std::string(text).size()));
        return text;
    }

    struct Algorithm final : PrecisionAlgorithm<PassThroughCore> {
        Algorithm() : PrecisionAlgorithm(kRows) {}
    };
    VNK::Ref<Algorithm> algorithm = VNK::Ref<Algorithm>::adopt(new Algorithm);
    VNK::Ref<RowsComponent> component =
        VNK::Ref<RowsComponent>::adopt(new RowsComponent(*algorithm));
};

TEST_F(Rows, ParametersTellEndTextsOriginAndWhoDrivesThem)
{
    VNK::ParameterInfo p;
    ASSERT_TRUE(component->getParameter(0, p));
    EXPECT_STREQ(p.minText, "Back");
    EXPECT_STREQ(p.maxText, "");
    EXPECT_STREQ(p.drivenBy, "bypass");
    EXPECT_EQ(p.origin, 0);
    EXPECT_TRUE(p.wraps);
    EXPECT_EQ(p.generation, 0);
    ASSERT_TRUE(component->getParameter(1, p));
    EXPECT_EQ(p.origin, 2) << "the middle of a bipolar range";
    EXPECT_FALSE(p.wraps);
    EXPECT_EQ(p.generation, 1);
    ASSERT_TRUE(component->getParameter(2, p));
    EXPECT_EQ(p.origin, 0);
}

TEST_F(Rows, MetersHaveKindChoicesAndTexts)
{
    VNK::MeterInfo stage, level;
    ASSERT_TRUE(component->getMeter(0, stage) && component->getMeter(1, level));
    EXPECT_EQ(stage.kind, VNK::ValueKind::List);
    EXPECT_EQ(stage.choices, 3);
    EXPECT_STREQ(component->meterChoice(0, 2), "Done");
    EXPECT_EQ(component->meterChoice(0, 3), nullptr);
    EXPECT_EQ(level.kind, VNK::ValueKind::Continuous);
    EXPECT_STREQ(level.unit, "dB");
    EXPECT_EQ(level.generation, 2);
    EXPECT_EQ(component->meterChoice(1, 0), nullptr);
    EXPECT_EQ(meterText(0, component->readMeter(0)), "-");
    EXPECT_EQ(meterText(0, 1), "Running");
    EXPECT_EQ(meterText(1, -3.5f), "-3.5 dB");
    EXPECT_EQ(meterText(1, -60), "Silence");
    EXPECT_EQ(meterText(2, 0), "") << "beyond the end";
}

TEST_F(Rows, TheComponentMeasuresIntoSlotsOfItsOwn)
{
    component->measure(-12);
    EXPECT_EQ(component->readMeter(1), -12);
}

TEST_F(Rows, TailFollowsTheTempoWithoutATempoRow)
{
    algorithm->setTempo(120);
    EXPECT_EQ(algorithm->getTailLength(), 24000u);
    algorithm->setTempo(60);
    EXPECT_EQ(algorithm->getTailLength(), 48000u);
}

TEST_F(Frame, EditorsAreCountedAndOnlyTheEdgesReachTheAlgorithm)
{
    prepare();
    const auto told = [&](bool open) {
        algorithm->seen.clear();
        component->setEditorOpen(open);
        play({{1}});
        std::string text;
        for (const auto& [tag, value] : algorithm->seen)
            if (tag == "Edit"_tag) text += value != 0 ? "open" : "closed";
        return text;
    };
    EXPECT_EQ(told(false), "") << "none was open";
    EXPECT_EQ(told(true), "open");
    EXPECT_EQ(told(true), "");
    EXPECT_EQ(told(false), "") << "one is still open";
    EXPECT_EQ(told(false), "closed");
    EXPECT_EQ(told(true), "open");
}

TEST_F(Frame, CutBlocksAdvanceTheSongByItsOwnTempo)
{
    prepare(1, 100);
    algorithm->setTransport(
        {.playing = true, .positionKnown = true, .quarterNotes = 1, .tempo = 960});
    play({Signal<float>(300)});
    algorithm->core([](auto& core) {  // of the last piece, which begins 200 frames later
        EXPECT_DOUBLE_EQ(core.transport.quarterNotes, 1 + 200 / 48000.0 * 960 / 60);
        EXPECT_EQ(core.tempo, 400) << "what effects are told is limited";
    });
}

}  // namespace
}  // namespace quillworks::test
