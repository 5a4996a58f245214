// SPDX-License-Identifier: ISC
// What every effect owes when its state is saved and restored.
#include <cstring>
#include <random>
#include <set>

#include "tests/support/effect_under_test.h"
#include "tests/support/every_effect.h"

namespace quillworks::test {
namespace {

class EveryState : public ::testing::TestWithParam<std::string> {
protected:
    using Effect = EffectUnderTest<float>;

    static std::string state(Effect& fx)
    {
        VNK::StringSink sink;
        EXPECT_TRUE(fx.component().saveState(sink));
        return sink.text();
    }
    static std::string preset(Effect& fx)
    {
        VNK::StringSink sink;
        EXPECT_TRUE(fx.component().savePreset("Name & <more>", sink));
        return sink.text();
    }
    static bool load(Effect& fx, const std::string& data, bool isPreset)
    {
        return isPreset ? fx.component().loadPreset(data.data(), data.size())
                        : fx.component().loadState(data.data(), data.size());
    }
};

TEST_P(EveryState, ComesBackBitForBit)
{
    for (std::uint32_t seed = 0; seed < 20; ++seed) {
        Effect source(GetParam());
        source.randomise(seed);
        for (bool isPreset : {false, true}) {
            const auto saved = isPreset ? preset(source) : state(source);
            Effect target(GetParam());
            ASSERT_TRUE(load(target, saved, isPreset)) << target.component().refusalReason();
            EXPECT_EQ(isPreset ? preset(target) : state(target), saved) << "seed " << seed;
        }
    }
}

TEST_P(EveryState, RestoresWhileProcessing)
{
    const auto x = noise<float>(4800);
    Effect source(GetParam());
    source.randomise(kSeed);
    const auto saved = state(source);
    Effect fx(GetParam());
    fx.run(x);
    ASSERT_TRUE(load(fx, saved, false));
    fx.algorithm().reset();
    EXPECT_EQ(fx.run(x), source.run(x));
}

TEST_P(EveryState, BothSetsComeBackAndASwitchIsOneGestureOfWhatChanges)
{
    /// Every change is within a hold of its own, and every hold within the group.
    struct Host final : VNK::IEffectListener {
        void message(const char* name) noexcept override
        {
            if (!std::strcmp(name, "groupEditBegun")) depth += isGroup ? 100 : 1, isGroup = true;
            if (!std::strcmp(name, "groupEditEnded"))
                isGood = isGood && held.empty(), isGroup = false;
        }
        void parameterChanged(std::int32_t i) noexcept override
        {
            isGood = isGood && held.count(i);
            changed.insert(i);
        }
        void editBegun(std::int32_t i) noexcept override
        {
            isGood = isGood && isGroup && held.insert(i).second;
        }
        void editEnded(std::int32_t i) noexcept override
        {
            isGood = isGood && held.erase(i) && changed.count(i);
        }
        std::set<int> held, changed;
        bool isGood = true, isGroup = false;
        int depth = 0;
    } host;
    Effect fx(GetParam());
    const auto& component = fx.component();
    const int bypass = component.findParameter("bypass"), mix = component.findParameter("mix");
    fx.randomise(kSeed);
    const auto first = preset(fx);
    ASSERT_TRUE(component.selectSet(1));
    EXPECT_EQ(preset(fx), first) << "the other set begins as the first";
    fx.randomise(kSeed + 1);
    const auto second = preset(fx);
    EXPECT_EQ(component.setsDiffer(), second != first);
    std::vector<float> before;
    for (int i = 0; i < component.countParameters(); ++i) before.push_back(component.getValue(i));
    component.setListener(&host);
    ASSERT_TRUE(component.selectSet(0));
    component.setListener(nullptr);
    EXPECT_TRUE(host.isGood && !host.isGroup && host.depth <= 1);
    for (int i = 0; i < component.countParameters(); ++i) {
        VNK::ParameterInfo p;
        component.getParameter(i, p);
        const bool isMoved = p.isStored() && component.getValue(i) != before[std::size_t(i)];
        EXPECT_TRUE(!isMoved || host.changed.count(i)) << p.key << " is told";
    }
    EXPECT_EQ(preset(fx), first);

    Effect target(GetParam());
    ASSERT_TRUE(load(target, state(fx), false)) << target.component().refusalReason();
    EXPECT_EQ(state(target), state(fx));
    target.component().setValue(bypass, 1);
    ASSERT_TRUE(target.component().selectSet(1));
    EXPECT_EQ(target.component().getValue(bypass), 1) << "a person's switch, and no set's";
    target.component().setValue(bypass, 0);
    EXPECT_EQ(preset(target), second);

    target.component().setWetLocked(true);
    const float wet = target.component().getValue(mix);
    ASSERT_TRUE(load(target, first, true));
    EXPECT_EQ(target.component().getValue(mix), wet);
    ASSERT_TRUE(target.component().selectSet(0));
    EXPECT_EQ(target.component().getValue(mix), wet);
    EXPECT_FALSE(target.component().selectSet(2));
}

TEST_P(EveryState, DamagedStateIsRefusedAndNothingChanges)
{
    Effect source(GetParam());
    source.randomise(kSeed);
    Effect fx(GetParam());
    fx.randomise(kSeed + 1);
    const auto before = state(fx);
    const auto good = state(source);
    std::mt19937 random(kSeed);
    const auto refuse = [&](const std::string& data, bool isPreset, const char* what) {
        ASSERT_FALSE(load(fx, data, isPreset)) << what;
        EXPECT_NE(std::string(fx.component().refusalReason()), "") << what;
        ASSERT_EQ(state(fx), before) << what;
    };
    for (std::size_t n = 0; n < good.size(); n += 1 + good.size() / 256)
        refuse(good.substr(0, n), false, "truncated");
    std::string noise(1 << 20, ' ');
    for (auto& c : noise) c = static_cast<char>(random());
    refuse(noise, false, "random");
    refuse(noise, true, "random");
    refuse(std::string("FXST\1\0\0\0", 8) + good.substr(8, 16) +
               std::string("\3\0\0\0\xff\xff\xff\x7f", 8),
           false, "a length of 2 GB");
    Effect other(GetParam() == "Phaser" ? "Flanger" : "Phaser");
    refuse(state(other), false, "of another effect");
    refuse(preset(other), true, "of another effect");
    const auto document = preset(source);
    const auto replaced = [&](std::string what, std::string with) {
        auto text = document;
        const auto at = text.find(what);
        EXPECT_NE(at, std::string::npos) << what;
        return text.replace(at, what.size(), with);
    };
    refuse(document.substr(0, document.size() / 2), true, "truncated");
    refuse(replaced("version=\"1\"", "version=\"2\""), true, "newer");
    refuse(replaced("<Parameter ", "<Parameter key=\"bypass\" value=\"0,5\" /><Parameter "), true,
           "a decimal comma");
    refuse(replaced(
               "<Parameter ",
               "<Parameter key=\"a\" value=\"0\" /><Parameter key=\"a\" value=\"0\" /><Parameter "),
           true, "a key twice");
    refuse(replaced("algorithmVersion=\"", "algorithmVersion=\"9"), true, "of a newer effect");
    std::string deep = "<?xml version=\"1.0\"?>";
    for (int i = 0; i < 10000; ++i) deep += "<AudioEffectPreset>";
    refuse(deep, true, "nested deeply");
    refuse("<!DOCTYPE a [<!ENTITY b \"b\">]><a>&b;</a>", true, "entities");
    // A flipped byte is refused or gives a valid state, never a crash.
    for (std::size_t i = 0; i < good.size(); ++i) {
        auto flipped = good;
        flipped[i] = static_cast<char>(flipped[i] ^ (1 << (random() % 8)));
        load(fx, flipped, false);
    }
}

TEST_P(EveryState, OddValuesAreLimitedAndMissingOnesTakeTheirDefaults)
{
    Effect fx(GetParam());
    const std::string head = preset(fx).substr(0, preset(fx).find("<ParameterData"));
    const auto document = [&](const std::string& parameters) {
        return head + "<ParameterData>" + parameters +
               "<Parameter key=\"no such key\" "
               "value=\"1\"/><Unknown/></ParameterData></AudioEffectPreset>";
    };
    fx.randomise(kSeed);
    ASSERT_TRUE(load(fx, document(""), true));
    std::string tooLarge, largest, notFinite;
    const auto with = [](const char* key, const std::string& value) {
        return "<Parameter key=\"" + std::string(key) + "\" value=\"" + value + "\"/>";
    };
    for (int i = 0; i < fx.component().countParameters(); ++i) {
        VNK::ParameterInfo p;
        fx.component().getParameter(i, p);
        if (!p.isStored()) continue;
        EXPECT_EQ(fx.component().getValue(i), p.defaultValue) << p.key;
        tooLarge += with(p.key, "1e30");
        largest += with(p.key, std::to_string(p.maximum));
        notFinite += with(p.key, "nan");
    }
    const auto defaults = state(fx);
    const auto remark = [&] { return std::string(fx.component().refusalReason()); };
    ASSERT_TRUE(load(fx, document(largest), true));
    EXPECT_EQ(remark(), "");
    const auto atMaximum = state(fx);
    ASSERT_TRUE(load(fx, document(notFinite), true));
    EXPECT_NE(remark().find("finite"), std::string::npos);
    EXPECT_EQ(state(fx), defaults);
    ASSERT_TRUE(load(fx, document(tooLarge), true));
    EXPECT_NE(remark().find("limited"), std::string::npos);
    EXPECT_EQ(state(fx), atMaximum);
}

TEST_P(EveryState, FactoryPresetsLoadAndProcess)
{
    Effect fx(GetParam());
    const bool passesThrough = [&] {
        std::int64_t flag = 0;
        return fx.component().getInteger("passThrough", flag);
    }();
    const int programs = fx.component().countPrograms();
    EXPECT_GE(programs, passesThrough ? 0 : 6);
    for (int i = 0; i < programs; ++i) {
        EXPECT_TRUE(fx.component().loadProgram(i))
            << fx.component().programTitle(i) << ": " << fx.component().refusalReason();
        EXPECT_STREQ(fx.component().programName(), fx.component().programTitle(i));
        EXPECT_TRUE(isFinite(fx.run(noise<float>(4800))));
    }
    VNK::StringSink pages;
    EXPECT_EQ(fx.component().remotePages(pages), !passesThrough);
}

INSTANTIATE_TEST_SUITE_P(Pack, EveryState, ::testing::ValuesIn(registeredClasses()), className);

}  // namespace
}  // namespace quillworks::test
