// SPDX-License-Identifier: ISC
// The module as a host meets it: entry points, factory, theme, plug-in manager.
#include <gtest/gtest.h>

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <set>

#include "framework/resources.h"
#include "module/class_registry.h"
#include "module/initialisers.h"
#include "module/module_main.h"
#include "tests/support/build_paths.h"
#include "vnk/debug.h"
#include "vnk/file.h"
#include "vnk/hosted_effect.h"
#include "vnk/plugin_manager.h"
#include "vnk/skin.h"
#include "vnk/xml.h"

namespace quillworks::test {
namespace {

/// Collects debug messages while it lives.
struct Messages {
    Messages()
    {
        VNK::setDebugSink(
            [](const char* m, void* self) { static_cast<Messages*>(self)->text += m; }, this);
    }
    ~Messages() { VNK::setDebugSink(nullptr, nullptr); }
    std::string text;
};

/// The resources folder named by the environment while it lives.
struct ResourcesAt {
    explicit ResourcesAt(const std::string& folder) : before(std::getenv("QUILLWORKS_RESOURCES"))
    {
        setenv("QUILLWORKS_RESOURCES", folder.c_str(), 1);
    }
    ~ResourcesAt() { setenv("QUILLWORKS_RESOURCES", before.c_str(), 1); }
    std::string before;
};

/// FNV-1a.
std::uint64_t checksum(const std::string& text)
{
    std::uint64_t sum = 0xcbf29ce484222325;
    for (const char c : text) sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return sum;
}

VNK::Ref<VNK::IClassFactory> factory()
{
    return VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
}

TEST(ModuleMain, LoadsAndUnloadsAnyNumberOfTimes)
{
    int handle = 0;
    EXPECT_TRUE(VNKModuleMain(nullptr, 2)) << "unload without load";
    EXPECT_TRUE(VNKModuleMain(nullptr, 99)) << "an unknown reason";
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(VNKModuleMain(&handle, 1));
        EXPECT_TRUE(VNKModuleMain(&handle, 1)) << "a second load changes nothing";
        EXPECT_TRUE(VNKModuleMain(&handle, 2));
    }
    const auto kept = factory();
    const int count = kept->countClasses();
    VNKModuleMain(&handle, 1);
    VNKModuleMain(&handle, 2);
    EXPECT_EQ(kept->countClasses(), count) << "a factory that the host holds stays valid";
}

TEST(ModuleMain, ANullHandleCountsAsLoaded)
{
    {
        const ResourcesAt nowhere("no/such/folder");
        const Messages messages;
        EXPECT_FALSE(VNKModuleMain(nullptr, 1));
    }
    EXPECT_TRUE(VNKModuleMain(nullptr, 1));
    const ResourcesAt nowhere("no/such/folder");
    const Messages messages;
    EXPECT_TRUE(VNKModuleMain(nullptr, 1)) << "loaded already: nothing is looked for again";
    EXPECT_TRUE(VNKModuleMain(nullptr, 2));
    EXPECT_FALSE(VNKModuleMain(nullptr, 1)) << "it had been unloaded";
}

TEST(ModuleMain, FailsWithoutItsTheme)
{
    const Messages messages;
    const ResourcesAt nowhere("no/such/folder");
    int handle = 0;
    EXPECT_FALSE(VNKModuleMain(&handle, 1));
    EXPECT_TRUE(messages.text.ends_with("ModuleComponent::loadTheme failed\n")) << messages.text;
}

TEST(Initialisers, RunInOrderStopAtTheFirstFailureAndAreUndoneBackwards)
{
    static std::string log;
    log.clear();
    struct Step {
        char name;
        bool works;
    } steps[] = {{'a', true}, {'b', true}, {'c', false}, {'d', true}};
    InitialiserRegistry registry;
    for (auto& step : steps)
        registry.add({[](void* s) {
                          log += static_cast<Step*>(s)->name;
                          return static_cast<Step*>(s)->works;
                      },
                      [](void* s) { (log += '-') += static_cast<Step*>(s)->name; }, &step});
    EXPECT_FALSE(registry.run());
    registry.tearDown();
    EXPECT_EQ(log, "abc-b-a");
    registry.tearDown();
    EXPECT_EQ(log, "abc-b-a");
}

TEST(Factory, OffersEveryClassOnce)
{
    const auto first = factory(), second = factory();
    EXPECT_EQ(first.get(), second.get());
    const int count = second->countClasses();
    constexpr int published = 31;
    ASSERT_GE(count, published);
    EXPECT_STREQ(first->moduleInformation().title, "Quillworks Pack");
    std::string changes, reason;
    ASSERT_TRUE(VNK::readFile((paths::source + "/CHANGELOG.md").c_str(), 1 << 20, changes, reason));
    const std::string version = first->moduleInformation().version;
    EXPECT_EQ(changes.find("\n## " + version + "\n"), changes.find("\n## "))
        << version << " is not the latest of the changelog";
    EXPECT_STREQ(first->moduleId(), "quillworks");
    const std::set<std::string> groups{"Distortion", "Dynamics",   "Mixing",   "Tool",   "Delay",
                                       "Reverb",     "Modulation", "Analysis", "Spatial"};
    std::string ids;
    for (int i = 0; i < count; ++i) {
        const auto& c = *first->getClass(i);
        const std::string name = c.name->text();
        if (i < published) ids += name + "=" + c.classId.text() + "\n";
        EXPECT_TRUE(groups.contains(c.subCategory->text())) << name;
        EXPECT_STREQ(c.category->text(), name == "Surround Panner" ? "AudioPanner" : "AudioEffect");
        EXPECT_EQ(c.flags, 0u);
        EXPECT_STREQ(c.description->text(), "");
        EXPECT_NE(name, "Overdrive");
        EXPECT_NE(name, "Multiband Distortion");
        EXPECT_TRUE(VNK::HostedEffect::create(*first, c.classId)) << name;
        EXPECT_EQ(first->getAttribute(i, 0) != nullptr, name == "Vaulter" || name == "Scope")
            << name;
    }
    // Songs and presets hold these: a change of name, order or ID is a song that no longer opens.
    // New classes come behind them.
    EXPECT_EQ(checksum(ids), 0x64c3b617ea657fu) << ids;
    EXPECT_EQ(first->getClass(count), nullptr);
    EXPECT_EQ(first->createInstance({}), nullptr);
    for (const char* withheld : {"Overdrive", "Multiband Distortion"})
        EXPECT_TRUE(VNK::Ref<VNK::IObject>::adopt(createEffect(withheld))) << withheld;
}

TEST(Factory, ManyInstancesComeAndGoInAnyOrder)
{
    const auto f = factory();
    const int count = f->countClasses();
    std::vector<VNK::Ref<VNK::IObject>> all;
    for (int i = 0; i < 200; ++i)
        all.push_back(
            VNK::Ref<VNK::IObject>::adopt(f->createInstance(f->getClass(i % count)->classId)));
    for (std::size_t i = 0; i < all.size(); i += 2) all[i] = {};
    all.clear();
}

TEST(PluginManager, LoadsTheModuleAndSaysWhyOthersAreNone)
{
    std::string reason;
    const auto isMapped = [] {
        void* const library = dlopen(paths::module.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (library) dlclose(library);
        return library != nullptr;
    };
    for (int i = 0; i < 20; ++i) {
        const auto module = VNK::LoadedModule::load(paths::module.c_str(), reason);
        ASSERT_TRUE(module) << reason;
        EXPECT_EQ(module->factory().countClasses(), factory()->countClasses());
        EXPECT_TRUE(isMapped());
    }
    EXPECT_FALSE(isMapped()) << "a host must be able to put another version in its place";
    const Messages messages;
    const auto theme = paths::source + "/resources/skins/quillworks/skin.xml";
    const std::pair<const char*, const char*> cases[] = {
        {"no/such/file.so", "no such file"},
        {theme.c_str(), "skin.xml"},
        {paths::moduleWithoutExports.c_str(), "it does not export VNKModuleMain"},
        {paths::moduleWithoutFactory.c_str(), "it does not export VNKGetClassFactory"},
        {paths::moduleThatRefuses.c_str(), "refuses to load"},
    };
    for (const auto& [file, why] : cases) {
        reason.clear();
        EXPECT_FALSE(VNK::LoadedModule::load(file, reason)) << file;
        std::string lower = reason;
        for (auto& c : lower) c = static_cast<char>(c == 'N' ? 'n' : c);  // "No such file"
        EXPECT_TRUE(reason.find(why) != std::string::npos || lower.find(why) != std::string::npos)
            << reason;
    }
    EXPECT_NE(std::getenv("BROKEN_MODULE_UNLOADED"), nullptr) << "a refusal leaves work to undo";
}

TEST(PluginManager, AModuleLeavesAHostThatBringsNoSymbolsAlong)
{
    EXPECT_EQ(std::system((paths::bareHost + " " + paths::module).c_str()), 0);
}

class Theme : public ::testing::Test {
protected:
    Theme()
    {
        std::string reason;
        const auto file = resourcesFolder() + "/skins/quillworks/skin.xml";
        EXPECT_TRUE(VNK::readFile(file.c_str(), 1 << 22, text, reason)) << reason;
    }
    /// Why the document is refused, "" if it is not.
    static std::string refusal(const std::string& document)
    {
        VNK::Skin skin;
        std::string reason;
        const bool good = VNK::readSkin(document.data(), document.size(), skin, reason) &&
                          VNK::checkSkin(skin, *factory(), reason);
        return good ? "" : reason;
    }
    std::string with(const std::string& effects) const
    {
        auto document = text;
        // The forms that are there stay out of the way of the ones tried.
        const auto first = document.find("<Effect");
        if (first != std::string::npos) document.erase(first, document.rfind("</Skin>") - first);
        return document.insert(document.rfind("</Skin>"), effects);
    }
    std::string text;
};

TEST_F(Theme, ShippedSkinIsAccepted)
{
    EXPECT_EQ(refusal(text), "");
}

TEST_F(Theme, TruncatedAndContradictoryDocumentsAreRefused)
{
    for (std::size_t n = 0; n < text.size() - 2; n += 1 + text.size() / 50)
        EXPECT_NE(refusal(text.substr(0, n)), "") << n;
    const auto mixtool = [&](const std::string& editor) {
        return with(
            "<Effect class=\"Mixtool\" accent=\"mixing\">"
            "<View name=\"MixTool/Editor\" title=\"Mixtool\" width=\"60\" height=\"40\">" +
            editor +
            "</View><View name=\"MixTool/Compact\" title=\"Mixtool\" width=\"9\" height=\"9\"/>"
            "<View name=\"MixTool/Micro\" title=\"Mixtool\" width=\"9\" height=\"9\"/></Effect>");
    };
    const std::string gain =
        "<Panel title=\"A\" x=\"1\" y=\"6\" w=\"11\" h=\"20\"><Knob key=\"gain\"/>";
    const std::pair<std::string, const char*> cases[] = {
        {with("<Effect class=\"Nothing\" accent=\"mixing\"/>"), "unknown or stands twice"},
        {with("<Effect class=\"Mixtool\" accent=\"mauve\"/>"), "unknown accent"},
        {with("<Effect class=\"Mixtool\" accent=\"mixing\"/>"), "is missing"},
        {with("<Nonsense/>"), "no element Nonsense"},
        {mixtool("<Header/>" + gain + "</Panel>"), "cannot be reached"},
        {mixtool("<Header/>" + gain + "<Knob key=\"gain\"/></Panel>"), "too narrow"},
        {mixtool(gain + "<Toggle key=\"gain\"/></Panel>"), "does not fit"},
        {mixtool(gain + "<Toggle key=\"nothing\"/></Panel>"), "names no parameter"},
        {mixtool(gain + "<File key=\"channelflip\"/></Panel>"), "names no text"},
        {mixtool(gain + "</Panel><Display kind=\"Meters\" x=\"5\" y=\"5\" w=\"9\" h=\"9\"/>"),
         "overlaps"},
        {mixtool("<Panel title=\"A\" x=\"1\" y=\"6\" w=\"60\" h=\"20\"/>"), "leaves the form"},
        {mixtool("<Panel title=\"A\" x=\"1\" y=\"6\" h=\"20\"/>"), "no place"},
        {mixtool("<Display kind=\"Meters\" in=\"Redu\" x=\"5\" y=\"5\" w=\"9\" h=\"9\"/>"),
         "unknown value"},
        {mixtool("<Display kind=\"Metres\" x=\"5\" y=\"5\" w=\"9\" h=\"9\"/>"),
         "no display \"Metres\""},
    };
    for (const auto& [document, why] : cases)
        EXPECT_NE(refusal(document).find(why), std::string::npos)
            << why << ": " << refusal(document);
}

TEST_F(Theme, EveryTextOfAnEffectCanBeReached)
{
    for (const char* key : {"irfile", "folder", "name"}) {
        auto document = text;
        const auto from = document.find(std::string("<File key=\"").append(key));
        ASSERT_NE(from, std::string::npos) << key;
        document.erase(from, document.find("/>", from) + 2 - from);
        EXPECT_NE(refusal(document).find(std::string(key) + "\" cannot be reached"),
                  std::string::npos)
            << refusal(document);
    }
}

TEST_F(Theme, AMisspeltAttributeIsRefusedOnEveryElement)
{
    std::set<std::string> elements;
    for (auto at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
        const auto end = text.find_first_of(" />\n", at + 1);
        const auto name = text.substr(at + 1, end - at - 1);
        if (name.empty() || !std::isalpha(static_cast<unsigned char>(name[0]))) continue;
        if (!elements.insert(name).second) continue;
        auto document = text;
        document.insert(end, " nonsense=\"1\"");
        EXPECT_NE(refusal(document).find("has no attribute \"nonsense\""), std::string::npos)
            << name << ": " << refusal(document);
    }
    EXPECT_GE(elements.size(), 14u);
    auto other = text;  // known, but not there
    other.insert(other.find("<Toggle ") + 8, "origin=\"max\" ");
    EXPECT_NE(refusal(other), "");
}

TEST_F(Theme, ADisplayThatNamesAFamilyMakesAllOfItReachable)
{
    const auto from = text.find("<Panel title=\"Channel level\"");
    const auto to = text.find("</Panel>", from) + 8;
    ASSERT_NE(text.substr(from, to - from).find("channellevel15"), std::string::npos);
    const auto withDisplay = [&](const std::string& attribute) {
        auto document = text;
        return document.replace(from, to - from,
                                "<Display kind=\"Meters\" " + attribute +
                                    " x=\"2\" y=\"22\" w=\"101\" h=\"12\"/>");
    };
    EXPECT_EQ(refusal(withDisplay("level=\"channellevel\"")), "") << "by the key";
    EXPECT_EQ(refusal(withDisplay("level=\"200\"")), "") << "by the base of the tags";
    EXPECT_NE(refusal(withDisplay("level=\"channellevel0\"")).find("cannot be reached"),
              std::string::npos);
    EXPECT_NE(refusal(withDisplay("level=\"level\"")).find("unknown value"), std::string::npos);
}

/// Contrast ratio of WCAG 2.2.
double contrast(std::uint32_t a, std::uint32_t b)
{
    const auto luminance = [](std::uint32_t rgb) {
        const auto linear = [](std::uint32_t v) {
            const double c = double(v & 0xFF) / 255;
            return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(rgb >> 16) + 0.7152 * linear(rgb >> 8) + 0.0722 * linear(rgb);
    };
    const double la = luminance(a) + 0.05, lb = luminance(b) + 0.05;
    return std::max(la, lb) / std::min(la, lb);
}

TEST_F(Theme, TokensKeepTheirContrast)
{
    VNK::Skin skin;
    std::string reason;
    ASSERT_TRUE(VNK::readSkin(text.data(), text.size(), skin, reason)) << reason;
    for (const auto& entry : skin.variants) {
        const auto& variant = entry.first;
        auto colors = entry.second.colors;
        colors.merge(std::map(skin.variants["dark"].colors));
        const auto least = [&](const std::string& on, const std::string& under, double ratio) {
            EXPECT_GE(contrast(colors.at(on), colors.at(under)), ratio)
                << on << " on " << under << ", " << variant;
        };
        least("text", "panel", 7);
        least("text2", "panel", 7);
        least("text3", "well", 4.5);
        least("focus", "panel", 3);
        least("level", "well", 3);
        least("warn", "well", 3);
        for (const auto& [name, value] : colors)
            if (name.starts_with("accent-")) {
                least(name, "panel", 4.5);
                least("ink", name, 4.5);
            }
    }
}

TEST(ControllerPages, NameParametersOfTheirEffectOnceEach)
{
    const auto f = factory();
    for (int i = 0; i < f->countClasses(); ++i) {
        const auto component = VNK::HostedEffect::create(*f, f->getClass(i)->classId);
        VNK::StringSink pages;
        if (!component->remotePages(pages)) continue;
        const char* name = f->getClass(i)->name->text();
        VNK::XmlDocument document;
        ASSERT_TRUE(document.parse(pages.text().data(), pages.text().size())) << name;
        EXPECT_STREQ(document.root().name(), "RemotePages");
        const auto page = document.root().child("Group").child("Page");
        EXPECT_STREQ(page.attribute("name"), name);
        std::set<std::string> seen;
        for (auto section = page.child("GenericSection"); section;
             section = section.next("GenericSection"))
            for (auto slot = section.child("Slot"); slot; slot = slot.next("Slot")) {
                EXPECT_GE(component->findParameter(slot.attribute("param")), 0)
                    << name << ": " << slot.attribute("param");
                EXPECT_TRUE(seen.insert(slot.attribute("param")).second) << slot.attribute("param");
                EXPECT_LT(std::atoi(slot.attribute("row")), std::atoi(section.attribute("rows")));
                EXPECT_LT(std::atoi(slot.attribute("column")),
                          std::atoi(section.attribute("columns")));
            }
        EXPECT_FALSE(seen.empty());
    }
}

}  // namespace
}  // namespace quillworks::test
