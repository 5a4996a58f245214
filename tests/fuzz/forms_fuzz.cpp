// SPDX-License-Identifier: ISC
// Forms of the shipped skin, edited, opened and drawn: an editor has to live with whatever form can
// be read, also one that the module would refuse.
#include <cstdlib>
#include <memory>
#include <vector>

#include "editors/view.h"
#include "editors/view_offscreen.h"
#include "module/class_registry.h"
#include "tests/fuzz/fuzz_target.h"
#include "vnk/file.h"
#include "vnk/skin.h"

namespace {

using namespace quillworks;
using fuzz::require;

std::string resources()
{
    const char* folder = std::getenv("QUILLWORKS_RESOURCES");
    return folder ? folder : "";
}

/// The shipped skin, taken apart so that an input edits one effect's forms and is quick to read.
struct ShippedSkin {
    ShippedSkin()
    {
        std::string text, reason;
        const auto path = resources() + "/skins/quillworks/skin.xml";
        require(VNK::readFile(path.c_str(), 1 << 20, text, reason), "the shipped skin is there");
        for (std::size_t at = text.find("<Effect "); at != text.npos;) {
            if (head.empty()) head = text.substr(0, at);
            const auto end = text.find("</Effect>", at) + 9;
            effects.push_back(text.substr(at, end - at));
            at = text.find("<Effect ", end);
        }
        require(!effects.empty(), "the shipped skin has effects");
    }
    std::string head;
    std::vector<std::string> effects;
};

/// Which effect and form, then edits: place (two bytes), bytes that go, bytes that come, these.
class Edits {
public:
    Edits(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    std::size_t byte() { return left_ == 0 ? 0 : (--left_, *data_++); }
    std::string applied(std::string form)
    {
        while (left_ > 0) {
            const auto at = (byte() << 8 | byte()) % form.size();
            const auto goes = byte();
            const auto comes = std::min(byte(), left_);
            form.replace(at, goes, reinterpret_cast<const char*>(data_), comes);
            data_ += comes, left_ -= comes;
            if (form.empty()) return form;
        }
        return form;
    }

private:
    const std::uint8_t* data_;
    std::size_t left_;
};

void open(const VNK::Skin& skin, const VNK::SkinView& form, const std::string& className)
{
    static const std::shared_ptr<editors::Fonts> fonts = [] {
        std::string reason;
        return editors::Fonts::load(resources() + "/skins/fonts", reason);
    }();
    require(fonts != nullptr, "the fonts are there");
    static std::map<std::string, VNK::HostedEffect> effects;
    auto& effect = effects[className];
    if (!effect) effect = VNK::HostedEffect::adopt(createEffect(className));
    if (!effect) return;
    editors::ViewSetup setup;
    setup.effect = effect;
    setup.skin = &skin;
    setup.name = form.name;
    setup.fonts = fonts;
    setup.settings.scale = 1;
    editors::View view(std::move(setup));
    editors::OffscreenWindow window(view);
    window.wait(1.0 / 30);
    for (int page = 0; page < view.countPages(); ++page) {
        view.showPage(page);
        window.wait(1.0 / 30);
        window.move(view.width() / 2.0, view.height() / 2.0);
    }
    view.texts();
    view.problems();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const ShippedSkin shipped;
    Edits edits(data, size);
    const auto& effect = shipped.effects[edits.byte() % shipped.effects.size()];
    const auto which = edits.byte();
    const auto document = shipped.head + edits.applied(effect) + "</Skin>";
    VNK::Skin skin;
    std::string reason;
    if (!VNK::readSkin(document.data(), document.size(), skin, reason)) {
        require(!reason.empty(), "a refusal has a reason");
        return 0;
    }
    for (const auto& e : skin.effects)
        if (!e.views.empty()) open(skin, e.views[which % e.views.size()], e.className);
    return 0;
}
