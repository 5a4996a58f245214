// SPDX-License-Identifier: ISC
#include "adapters/editor/editor_window.h"

#include <cstring>
#include <map>
#include <mutex>

#include "editors/editor_surface.h"
#include "vnk/file.h"

namespace quillworks::adapters {
namespace {

/// Read once for all views that are open. Null where there is none.
std::shared_ptr<const VNK::Skin> skinIn(const std::string& resources)
{
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<const VNK::Skin>> skins;
    const std::lock_guard lock(mutex);
    auto& known = skins[resources];
    if (auto skin = known.lock()) return skin;
    constexpr std::size_t kLargest = 16 << 20;  // bytes
    const auto file = resources + "/skins/quillworks/skin.xml";
    auto skin = std::make_shared<VNK::Skin>();
    std::string text, reason;
    if (!VNK::readFile(file.c_str(), kLargest, text, reason) ||
        !VNK::readSkin(text.data(), text.size(), *skin, reason))
        return nullptr;
    known = skin;
    return skin;
}

}  // namespace

std::unique_ptr<EditorWindow> EditorWindow::open(Setup setup)
{
    const char* const view = setup.effect ? setup.effect->viewName(0) : nullptr;
    if (!view) return nullptr;
    std::unique_ptr<EditorWindow> editor(new EditorWindow);
    editor->skin_ = skinIn(setup.resources);
    if (!editor->skin_) return nullptr;
    if (setup.window.title.empty()) setup.window.title = std::string(view, std::strcspn(view, "/"));
    const auto component = setup.effect.queryInterface<VNK::IEffectComponent>();
    auto surface = editors::makeEditorSurface(component.get(), *editor->skin_, view,
                                              setup.resources, std::move(setup.writer));
    editor->window_ = editors::X11Window::open(std::move(surface), std::move(setup.window));
    if (!editor->window_) return nullptr;
    return editor;
}

bool EditorWindow::poll()
{
    window_->processEvents();
    window_->tick();
    return window_->isOpen();
}

}  // namespace quillworks::adapters
