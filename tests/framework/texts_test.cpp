// SPDX-License-Identifier: ISC
// Texts of an effect, and bytes that it keeps in its state.
#include <gtest/gtest.h>

#include <numeric>
#include <string>

#include "framework/base64.h"
#include "tests/framework/frame_fixture.h"
#include "tests/support/listener.h"
#include "vnk/hosted_effect.h"

namespace quillworks::test {
namespace {

using Texts = Frame;

std::string stateOf(const VNK::HostedEffect& effect)
{
    VNK::StringSink sink;
    EXPECT_TRUE(effect.saveState(sink));
    return sink.text();
}

std::string presetOf(const VNK::HostedEffect& effect)
{
    VNK::StringSink sink;
    EXPECT_TRUE(effect.savePreset("", sink));
    return sink.text();
}

VNK::HostedEffect hosted(ProbeComponent& component)
{
    return VNK::HostedEffect(static_cast<VNK::IEffectComponent*>(&component));
}

TEST_F(Texts, AreFoundSetRefusedAndCounted)
{
    const auto effect = hosted(*component);
    ASSERT_EQ(effect.countTexts(), 2);
    VNK::TextInfo info;
    ASSERT_TRUE(effect.getTextInfo(0, info));
    EXPECT_STREQ(info.key, "source");
    EXPECT_EQ(info.kind, VNK::TextKind::File);
    EXPECT_STREQ(effect.getText(0), info.defaultText);
    EXPECT_STREQ(effect.getString("source"), "factory:Probe");
    for (const int beyond : {-1, 2}) {
        EXPECT_FALSE(effect.getTextInfo(beyond, info) || effect.setText(beyond, "x"));
        EXPECT_EQ(effect.getText(beyond), nullptr);
    }
    EXPECT_EQ(effect.findText("sourc"), -1);
    EXPECT_EQ(effect.findText(nullptr), -1);

    EXPECT_TRUE(effect.setText(effect.findText("note"), "of the room"));
    EXPECT_TRUE(effect.setText(1, "of the room")) << "the same again is told too";
    EXPECT_EQ(effect.textChangeCount(1), 1u);
    EXPECT_TRUE(effect.setText(1, std::string(VNK::kLongestText, 'x').c_str()));
    EXPECT_EQ(component->told, "note note note ");
    const std::string tooLong(VNK::kLongestText + 1, 'y');
    for (const char* refused : {"refused", tooLong.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(effect.setText(1, refused));
        EXPECT_STRNE(effect.textRefusal(), "");
    }
    EXPECT_EQ(effect.textChangeCount(1), 2u);
    EXPECT_EQ(effect.getText(1)[0], 'x');

    EXPECT_STREQ(effect.textProblem(0), "");
    EXPECT_TRUE(effect.setText(0, "/missing"));
    EXPECT_STREQ(effect.textProblem(0), "there is no such file");
    effect.setBaseFolder("/songs");
    EXPECT_EQ(component->baseFolder(), "/songs");

    Listener listener;
    component->setListener(&listener);
    component->moveText("source", "/found");
    component->moveText("source", "/found");
    EXPECT_EQ(listener.messages, std::vector<std::string>{"textChanged"});
    EXPECT_STREQ(effect.getText(0), "/found");
}

TEST_F(Texts, ComeBackFromStatesAndPresetsWithTheBytesBesideThem)
{
    const auto effect = hosted(*component);
    const std::string odd = "/a b/\"<&>'\t\n\r\x01\xC3\xA9\xFF,=.wav";
    component->data.bytes.resize(1000);
    std::iota(component->data.bytes.begin(), component->data.bytes.end(), char(0));
    const auto data = component->data;
    effect.setText(0, odd.c_str());
    effect.setInteger("mode", 9);
    const auto chunk = stateOf(effect), preset = presetOf(effect);
    for (const bool isPreset : {false, true}) {
        const auto& stored = isPreset ? preset : chunk;
        effect.setText(0, "");
        effect.setText(1, "gone");
        component->data.bytes.clear();
        effect.setInteger("mode", 1);
        component->told.clear();
        ASSERT_TRUE(isPreset ? effect.loadPreset(stored.data(), stored.size())
                             : effect.loadState(stored.data(), stored.size()))
            << effect.refusalReason();
        EXPECT_STREQ(effect.refusalReason(), "");
        EXPECT_EQ(effect.getText(0), odd);
        EXPECT_STREQ(effect.getText(1), "") << "its default";
        EXPECT_EQ(component->data, data);
        EXPECT_EQ(component->told, "restored source note ") << "when all is in place";
        EXPECT_EQ(stateOf(effect), chunk);
    }
    component->told.clear();
    ASSERT_TRUE(effect.loadState(chunk.data(), chunk.size()));
    EXPECT_EQ(component->told, "restored ") << "no text is another";
}

TEST_F(Texts, OfStatesThatHoldAnotherTypeOrTooMuchTakeTheirDefaults)
{
    const auto effect = hosted(*component);
    StoredState state;
    std::string reason;
    const auto before = stateOf(effect);
    ASSERT_TRUE(readChunk(before.data(), before.size(), state, reason)) << reason;
    const std::pair<AttributeValue, const char*> cases[] = {
        {std::int64_t{3}, "factory:Probe"},
        {Blob{"/x"}, "factory:Probe"},
        {std::string(VNK::kLongestText + 1, 'x'), "factory:Probe"},
        {std::string("/a\0b", 4), "/a"},
        {std::string("refused"), "refused"},
    };
    for (const auto& [value, expected] : cases) {
        effect.setText(0, "/before");
        state.attributes["source"] = value;
        state.attributes["mode"] = std::string("nine");
        const auto chunk = writeChunk(state);
        ASSERT_TRUE(effect.loadState(chunk.data(), chunk.size())) << effect.refusalReason();
        EXPECT_STREQ(effect.getText(0), expected);
        std::int64_t mode = 0;
        EXPECT_TRUE(effect.getInteger("mode", mode) && mode == 7);
    }
}

TEST_F(Texts, BytesTooManyForAPresetOrAStateAreLeftOutOfItAlone)
{
    const auto effect = hosted(*component);
    effect.setText(0, "/kept");
    component->data.bytes.assign(kLargestPresetBlobs, 'd');
    const auto whole = presetOf(effect);
    EXPECT_STREQ(effect.refusalReason(), "");
    EXPECT_LE(whole.size(), kLargestPreset);
    component->data.bytes += 'd';
    const auto without = presetOf(effect);
    EXPECT_STREQ(effect.refusalReason(), "\"data\" is too long for a preset and is left out");
    const auto longest = stateOf(effect);
    for (const auto& [preset, length] : {std::pair(whole, kLargestPresetBlobs), {without, 0u}}) {
        ASSERT_TRUE(effect.loadPreset(preset.data(), preset.size())) << effect.refusalReason();
        EXPECT_EQ(component->data.bytes.size(), length);
        EXPECT_STREQ(effect.getText(0), "/kept");
    }
    ASSERT_TRUE(effect.loadState(longest.data(), longest.size()));
    EXPECT_EQ(component->data.bytes.size(), kLargestPresetBlobs + 1);

    StoredState state;
    state.attributes["data"] = Blob{std::string(kLargestChunkBlobs + 1, 'd')};
    std::string chunk = writeChunk(state), reason;
    EXPECT_FALSE(readChunk(chunk.data(), chunk.size(), state, reason));
    state.attributes["other"] = Blob{"1"};
    EXPECT_EQ(state.dropBlobsBeyond(kLargestChunkBlobs), "\"data\"");
    EXPECT_TRUE(state.attribute<Blob>("other"));
    chunk = writeChunk(state);
    EXPECT_TRUE(readChunk(chunk.data(), chunk.size(), state, reason)) << reason;
}

TEST(Base64, RefusesWhatItDoesNotWrite)
{
    const std::string_view good[] = {"", "AA==", "AAE=", "AAEC", "/+8="};
    std::string bytes;
    for (const auto text : good) {
        ASSERT_TRUE(readBase64(text, bytes)) << text;
        EXPECT_EQ(base64(bytes), text);
    }
    for (const std::string_view bad : {"A", "AA=", "A===", "====", "AA=A", "A A=", "AAE*"})
        EXPECT_FALSE(readBase64(bad, bytes)) << bad;
}

}  // namespace
}  // namespace quillworks::test
