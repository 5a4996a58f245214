// SPDX-License-Identifier: ISC
// What a component keeps for whoever edits it: two sets, the mark of changes, the lock of the mix.
#include <cstring>

#include "tests/framework/frame_fixture.h"
#include "tests/support/listener.h"

namespace quillworks::test {
namespace {

/// What a host hears, in one order: "(" and ")" around a group, "+key", "key", "-key".
struct Course final : VNK::IEffectListener {
    explicit Course(ProbeComponent& c) : component(c) { component.setListener(this); }
    ~Course() { component.setListener(nullptr); }
    void message(const char* name) noexcept override
    {
        if (!std::strcmp(name, "groupEditBegun")) text += "( ";
        if (!std::strcmp(name, "groupEditEnded")) text += ") ";
    }
    void parameterChanged(std::int32_t i) noexcept override { add("", i); }
    void editBegun(std::int32_t i) noexcept override { add("+", i); }
    void editEnded(std::int32_t i) noexcept override { add("-", i); }
    void add(const char* sign, std::int32_t i) noexcept
    {
        VNK::ParameterInfo p;
        component.getParameter(i, p);
        text += sign + std::string(p.key) + " ";
    }

    ProbeComponent& component;
    std::string text;
};

class Editing : public Frame {
protected:
    float get(const char* key) { return component->getValue(component->findParameter(key)); }
    void setText(const char* key, const char* text)
    {
        ASSERT_TRUE(component->setText(component->findText(key), text));
    }
    std::string text(const char* key) { return component->getText(component->findText(key)); }
    static std::string stateOf(const ProbeComponent& c)
    {
        VNK::StringSink sink;
        EXPECT_TRUE(c.saveState(&sink));
        return sink.text();
    }
    std::string state() { return stateOf(*component); }
    bool load(const std::string& chunk) { return component->loadState(chunk.data(), chunk.size()); }
    /// The song's state, changed by f.
    template <class F> std::string changed(F&& f)
    {
        StoredState song;
        std::string reason;
        const auto chunk = state();
        EXPECT_TRUE(readChunk(chunk.data(), chunk.size(), song, reason)) << reason;
        f(song);
        return writeChunk(song);
    }
    void fillBothSets()
    {
        component->selectSet(0);
        set("gain", -6);
        setText("note", "first");
        component->data.bytes = "abc";
        ASSERT_TRUE(component->selectSet(1));
        set("gain", -12);
        set("step1", 4);
        setText("note", "second");
        component->setInteger("mode", 3);
        component->data.bytes = "";
    }
};

TEST_F(Editing, ASwitchOfSetsIsOneGestureOfWhatChanges)
{
    fillBothSets();
    Course course(*component);
    ASSERT_TRUE(component->selectSet(0));
    EXPECT_EQ(course.text, "( +gain +step1 gain step1 -gain -step1 ) ");
    EXPECT_EQ(get("gain"), -6);
    EXPECT_EQ(get("step1"), 3);
    EXPECT_EQ(text("note"), "first");
    EXPECT_EQ(component->data.bytes, "abc");
    std::int64_t mode = 0;
    EXPECT_TRUE(component->getInteger("mode", mode) && mode == 7);
    course.text.clear();
    ASSERT_TRUE(component->selectSet(1));
    EXPECT_EQ(course.text, "( +gain +step1 gain step1 -gain -step1 ) ");
    EXPECT_EQ(text("note"), "second");
    EXPECT_TRUE(component->getInteger("mode", mode) && mode == 3);
    EXPECT_EQ(component->data.bytes, "");
    EXPECT_FALSE(component->selectSet(2));
    EXPECT_FALSE(component->selectSet(-1));
    EXPECT_EQ(component->comparedSet(), 1);
}

TEST_F(Editing, TheOtherSetBeginsAsTheFirstAndBypassBelongsToNeither)
{
    set("gain", -6);
    ASSERT_TRUE(component->selectSet(1));
    EXPECT_EQ(get("gain"), -6);
    EXPECT_FALSE(component->setsDiffer());
    set("bypass", 1);
    EXPECT_FALSE(component->setsDiffer());
    ASSERT_TRUE(component->selectSet(0));
    EXPECT_EQ(get("bypass"), 1);
    set("gain", -7);
    EXPECT_TRUE(component->setsDiffer());
    component->copyToOtherSet();
    EXPECT_FALSE(component->setsDiffer());
    ASSERT_TRUE(component->selectSet(1));
    EXPECT_EQ(get("gain"), -7);
}

TEST_F(Editing, BothSetsComeBackWithTheSong)
{
    fillBothSets();
    const auto song = state();
    // Presets hold the set that is heard, and leave the other alone.
    VNK::StringSink preset;
    ASSERT_TRUE(component->savePreset("P", &preset));
    EXPECT_EQ(preset.text().find("compare"), std::string::npos);

    auto target = VNK::Ref<ProbeAlgorithm>::adopt(new ProbeAlgorithm);
    auto fresh = VNK::Ref<ProbeComponent>::adopt(new ProbeComponent(*target));
    fresh->identify(VNK::UID::constant("{00000000-0000-4000-8000-000000000001}"), "Probe");
    ASSERT_TRUE(fresh->loadState(song.data(), song.size()));
    EXPECT_STREQ(fresh->refusalReason(), "");
    EXPECT_EQ(stateOf(*fresh), song);
    EXPECT_EQ(fresh->comparedSet(), 1);
    EXPECT_TRUE(fresh->setsDiffer());
    ASSERT_TRUE(fresh->loadPreset(preset.text().data(), preset.text().size()));
    ASSERT_TRUE(fresh->selectSet(0));
    EXPECT_EQ(fresh->getValue(fresh->findParameter("gain")), -6);
    EXPECT_STREQ(fresh->getText(fresh->findText("note")), "first");
    EXPECT_EQ(fresh->data.bytes, "abc");
}

TEST_F(Editing, ASongWithoutOrWithADamagedOtherSetHasOne)
{
    const auto before = state();
    fillBothSets();
    const auto damaged = changed([](StoredState& s) {
        auto& other = std::get<Blob>(s.attributes["compareState"]).bytes;
        other.resize(other.size() - 3);
    });
    const auto foreign = changed([](StoredState& s) {
        std::get<Blob>(s.attributes["compareState"]).bytes[10] ^= 1;  // of the class
    });
    const auto odd =
        changed([](StoredState& s) { s.attributes["compareState"] = std::int64_t{5}; });
    for (const auto& song : {before, damaged, foreign, odd}) {
        fillBothSets();
        ASSERT_TRUE(load(song));
        EXPECT_EQ(*component->refusalReason() != 0, song == damaged || song == foreign);
        EXPECT_FALSE(component->setsDiffer());
        EXPECT_EQ(get("gain"), song == before ? 0 : -12);
    }
    // A set within a set would never end.
    fillBothSets();
    const auto song = state();
    ASSERT_TRUE(load(changed([&](StoredState& s) {
        StoredState other;
        std::string reason;
        auto& chunk = std::get<Blob>(s.attributes["compareState"]).bytes;
        ASSERT_TRUE(readChunk(chunk.data(), chunk.size(), other, reason));
        other.attributes["compareState"] = Blob{song};
        chunk = writeChunk(other);
    })));
    EXPECT_EQ(state(), song);
}

TEST_F(Editing, WhatBothSetsHoldStandsOnceAndASongStaysWithinItsBounds)
{
    const auto songWith = [this](std::size_t first, std::size_t second, char fill) {
        component->data.bytes = std::string(first, 'a');
        component->copyToOtherSet();
        component->data.bytes = std::string(second, fill);
        return state();
    };
    set("gain", -3);
    const std::size_t mega = 1u << 20;
    EXPECT_LT(songWith(mega, mega, 'a').size(), mega + 4096);
    ASSERT_TRUE(load(state()));
    ASSERT_TRUE(component->selectSet(1));
    EXPECT_EQ(component->data.bytes.size(), mega);
    const auto large = songWith(12 * mega, 12 * mega, 'b');
    EXPECT_LT(large.size(), 16 * mega + 4096);
    ASSERT_TRUE(load(large));
    EXPECT_EQ(component->data.bytes, std::string(12 * mega, 'b')) << "what is heard comes first";
    ASSERT_TRUE(component->selectSet(0));
    EXPECT_EQ(get("gain"), -3);
}

TEST_F(Editing, TheMarkTellsWhetherWhatIsStoredIsAnotherThanThePreset)
{
    const auto mark = [this] { return component->isModified(); };
    EXPECT_FALSE(mark());
    prepare();
    EXPECT_FALSE(mark()) << "what an effect makes of a layout";
    set("reset", 1);
    set("bypass", 1);
    EXPECT_FALSE(mark()) << "neither is part of a preset";
    set("gain", -1);
    EXPECT_TRUE(mark());
    set("gain", 0);
    EXPECT_FALSE(mark()) << "as it was";
    component->setInteger("mode", 1);
    EXPECT_TRUE(mark());
    component->setInteger("mode", 7);
    setText("note", "x");
    EXPECT_TRUE(mark());

    VNK::StringSink preset;
    ASSERT_TRUE(component->savePreset("Mine", &preset));
    ASSERT_TRUE(component->loadPreset(preset.text().data(), preset.text().size()));
    EXPECT_FALSE(mark());
    for (bool isModified : {false, true}) {
        if (isModified) set("gain", -1);
        ASSERT_TRUE(load(state()));
        EXPECT_EQ(mark(), isModified) << "a song knows";
        EXPECT_STREQ(component->programName(), "Mine");
    }
    // Each set has its own.
    ASSERT_TRUE(component->loadPreset(preset.text().data(), preset.text().size()));
    ASSERT_TRUE(component->selectSet(1));
    set("gain", -2);
    EXPECT_TRUE(mark());
    ASSERT_TRUE(component->selectSet(0));
    EXPECT_FALSE(mark());
}

TEST_F(Editing, WhatAnEditorShowsIsCounted)
{
    const auto counts = [this](auto&& f, const char* what) {
        const auto before = component->editCount();
        f();
        EXPECT_NE(component->editCount(), before) << what;
    };
    const auto song = state();
    counts([&] { setText("note", "y"); }, "a text");
    counts([&] { component->setInteger("mode", 2); }, "an attribute");
    counts([&] { component->selectSet(1); }, "the set");
    counts([&] { component->copyToOtherSet(); }, "a copy");
    counts([&] { component->setWetLocked(true); }, "the lock");
    counts([&] { load(song); }, "a state");
    counts([&] { prepare(2); }, "the layout");
    const auto before = component->editCount();
    set("gain", -5);
    component->setWetLocked(false);
    component->selectSet(0);
    EXPECT_EQ(component->editCount(), before) << "nothing of that";
}

}  // namespace
}  // namespace quillworks::test
