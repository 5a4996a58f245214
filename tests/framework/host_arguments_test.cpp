// SPDX-License-Identifier: ISC
// What a careless host hands over: null, layouts that cannot be, parameters that are not its to
// move.
#include <gtest/gtest.h>

#include <new>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/support/effect_under_test.h"
#include "tests/support/every_effect.h"
#include "vnk/debug.h"
#include "vnk/file.h"
#include "vnk/memory.h"
#include "vnk/module_component.h"
#include "vnk/plugin_manager.h"
#include "vnk/xml.h"

namespace quillworks::test {
namespace {

class EveryEffectsHost : public ::testing::TestWithParam<std::string> {};

TEST_P(EveryEffectsHost, NullIsRefusedByTheComponent)
{
    EffectUnderTest<float> fx(GetParam());
    auto& c = fx.component();
    VNK::StringSink sink;
    float f = 0;
    std::int64_t n = 0;
    EXPECT_EQ(c.findParameter(nullptr), -1);
    EXPECT_FALSE(c.textToValue(0, nullptr, f));
    EXPECT_GT(c.valueToText(c.findParameter("bypass"), 1, nullptr, 100), 0);
    EXPECT_FALSE(c.saveState(nullptr));
    EXPECT_FALSE(c.savePreset("x", nullptr));
    EXPECT_FALSE(c.savePreset(nullptr, sink));
    EXPECT_FALSE(c.remotePages(nullptr));
    EXPECT_FALSE(c.loadState(nullptr, 100));
    EXPECT_FALSE(c.loadPreset(nullptr, 100));
    EXPECT_STRNE(c.refusalReason(), "");
    EXPECT_FALSE(c.getInteger(nullptr, n));
    EXPECT_FALSE(c.getFloat(nullptr, f));
    EXPECT_EQ(c.getString(nullptr), nullptr);
    EXPECT_FALSE(c.setInteger(nullptr, 1));
    EXPECT_EQ(sink.text(), "");
}

TEST_P(EveryEffectsHost, NullBuffersAreSilentOrUnheard)
{
    EffectUnderTest<double> fx(GetParam()), whole(GetParam());
    Channels<double> in(2, noise<double>(100)), out = in, expected = in;
    in[1].assign(100, 0.0);
    whole.prepare(2, 100);
    whole.processBlock(in, expected, 0, 100);
    fx.prepare(2, 100);
    fx.algorithm().setSideChainActive(fx.algorithm().hasSideChain());
    const void *inputs[] = {in[0].data(), nullptr}, *sides[] = {nullptr, nullptr};
    void *outputs[] = {out[0].data(), nullptr}, *unheard[] = {nullptr, nullptr};
    const AudioThreadGuard guard;
    fx.algorithm().process({inputs, 2, outputs, 2, sides, 2, 100});
    fx.algorithm().process({nullptr, 2, nullptr, 2, nullptr, 2, 100});
    fx.algorithm().process({sides, 2, unheard, 2, nullptr, 2, 100});
    if (!fx.algorithm().hasSideChain()) {
        EXPECT_EQ(out[0], expected[0]);
    }
}

TEST_P(EveryEffectsHost, AutomationLeavesAloneWhatIsMarked)
{
    EffectUnderTest<float> fx(GetParam());
    auto& c = fx.component();
    VNK::ParameterInfo p;
    for (int i = 0; c.getParameter(i, p); ++i) {
        if (p.has(VNK::isReadOnly)) continue;
        const auto before = c.changeCount(i);
        EXPECT_EQ(c.automate(i, p.maximum), p.isAutomatable()) << p.key;
        EXPECT_EQ(c.changeCount(i) != before, p.isAutomatable()) << p.key;
        EXPECT_TRUE(c.setBetweenBlocks(i, p.maximum)) << p.key;
    }
}

/// A layout at the very end of the memory that may be read.
class LayoutAtTheEdge {
public:
    explicit LayoutAtTheEdge(std::int32_t channels)
        : page_(static_cast<std::size_t>(::sysconf(_SC_PAGESIZE))),
          memory_(static_cast<std::byte*>(::mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE,
                                                 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        ::mprotect(memory_ + page_, page_, PROT_NONE);
        layout = new (memory_ + page_ - sizeof *layout) VNK::SpeakerArrangement;
        layout->channels = channels;
    }
    ~LayoutAtTheEdge() { ::munmap(memory_, 2 * page_); }
    LayoutAtTheEdge(const LayoutAtTheEdge&) = delete;

    VNK::SpeakerArrangement* layout;

private:
    std::size_t page_;
    std::byte* memory_;
};

TEST_P(EveryEffectsHost, LayoutsThatCannotBeAreRefusedUnread)
{
    EffectUnderTest<float> fx(GetParam());
    const auto stereo = VNK::SpeakerArrangement::withChannels(2);
    for (const std::int32_t channels : {-1, 33, 1 << 30}) {
        const LayoutAtTheEdge a(channels), b(channels);
        EXPECT_FALSE(fx.algorithm().acceptsArrangement(*a.layout, *b.layout)) << channels;
        EXPECT_FALSE(fx.algorithm().setSpeakerArrangement(*a.layout, *b.layout)) << channels;
        EXPECT_FALSE(fx.algorithm().setSpeakerArrangement(*a.layout, stereo)) << channels;
        EXPECT_EQ(a.layout->find(VNK::Speaker::M), -1);
        EXPECT_LE(a.layout->bits(), 1u);
        EXPECT_LT(a.layout->names().size(), 100u);
    }
}

INSTANTIATE_TEST_SUITE_P(Pack, EveryEffectsHost, ::testing::ValuesIn(registeredClasses()),
                         className);

TEST(HostFramework, NullIsRefused)
{
    std::string text, reason;
    EXPECT_FALSE(VNK::LoadedModule::load(nullptr, reason));
    EXPECT_FALSE(VNK::LoadedModule::load("", reason)) << "the program is no module of its own";
    EXPECT_FALSE(VNK::readFile(nullptr, 9, text, reason));
    EXPECT_FALSE(VNK::writeFile(nullptr, "x", 1, reason));
    EXPECT_FALSE(VNK::writeFile("x", nullptr, 1, reason));
    EXPECT_TRUE(VNK::listFiles(nullptr, "x").empty() && VNK::listFiles(".", nullptr).empty());
    VNK::debugMessage(nullptr);
    core_free(core_realloc(nullptr, 9));
    EXPECT_EQ(VNK::ModuleComponent(nullptr, {}).moduleId(), "");
    EXPECT_FALSE(VNK::queryInterface<VNK::IString>(nullptr));
    VNK::Skin skin;
    EXPECT_FALSE(VNK::readSkin(nullptr, 9, skin, reason));
    VNK::StringSink sink;
    EXPECT_FALSE(sink.write(nullptr, 1));
    EXPECT_TRUE(sink.write(nullptr, 0));

    EXPECT_STREQ(VNKGetConstantString(nullptr)->text(), "");
    EXPECT_STREQ(VNKGetConstantCString(nullptr)->text(), "");
    const auto string = VNK::Ref<VNK::IMutableCString>::adopt(VNKCreateMutableCString(nullptr));
    EXPECT_TRUE(string->append(nullptr) && string->assign(nullptr));
    EXPECT_STREQ(string->text(), "");

    VNK::XmlDocument document("Root");
    EXPECT_FALSE(document.parse(nullptr, 9));
    EXPECT_FALSE(VNK::XmlDocument(nullptr).root());
    VNK::XmlDocument good("Root");
    const auto root = good.root();
    EXPECT_STREQ(root.attribute(nullptr), "");
    EXPECT_FALSE(root.hasAttribute(nullptr) || root.nextAttribute(nullptr));
    EXPECT_FALSE(root.addChild(nullptr));
    root.setAttribute(nullptr, "x");
    root.setAttribute("x", nullptr);
    EXPECT_STREQ(root.firstAttribute(), "x");
}

TEST(HostFramework, FactoryRefusesRecordsThatLackSomething)
{
    const auto factory = VNK::Ref<VNK::IClassFactory>::adopt(VNKCreateClassFactory());
    factory->setModuleId(nullptr);
    factory->setModuleInformation({nullptr, nullptr, nullptr, nullptr, nullptr});
    EXPECT_STREQ(factory->moduleId(), "");
    EXPECT_STREQ(factory->moduleInformation().vendor, "");
    auto* const text = VNKGetEmptyString();
    const auto create = [](const VNK::ClassDescription&) -> VNK::IObject* { return nullptr; };
    const VNK::ClassDescription good{0, {}, text, text, text, text};
    using Field = VNK::IString* VNK::ClassDescription::*;
    for (const Field field :
         {&VNK::ClassDescription::category, &VNK::ClassDescription::name,
          &VNK::ClassDescription::subCategory, &VNK::ClassDescription::description}) {
        auto bad = good;
        bad.*field = nullptr;
        EXPECT_FALSE(factory->registerClass(bad, create));
    }
    EXPECT_FALSE(factory->registerClass(good, nullptr));
    const VNK::ClassAttribute nameless[] = {{nullptr, "x"}};
    EXPECT_FALSE(factory->registerClass(good, create, nameless, 1));
    EXPECT_TRUE(factory->registerClass(good, create));
    EXPECT_EQ(factory->countClasses(), 1);
}

}  // namespace
}  // namespace quillworks::test
