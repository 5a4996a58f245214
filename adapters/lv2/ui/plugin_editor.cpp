// SPDX-License-Identifier: ISC
#include "adapters/lv2/ui/plugin_editor.h"

#include <limits>
#include <map>
#include <mutex>

#include "vnk/effect_displays.h"
#include "vnk/effect_editing.h"

namespace quillworks::lv2 {
namespace {

/// A component of the editor's own: what only the one that runs can show or keep is not offered.
class TablesOnly final : public VNK::Object<VNK::IEffectComponent> {
public:
    explicit TablesOnly(VNK::Ref<VNK::IEffectComponent> component) : inner_(std::move(component)) {}

    void* queryInterface(const VNK::UID& id) noexcept override
    {
        for (const auto& hidden :
             {VNK::IEffectEditing::iid, VNK::IEffectUserPresets::iid, VNK::IEffectDisplays::iid})
            if (id == hidden) return nullptr;
        return id == VNK::IEffectComponent::iid ? static_cast<VNK::IEffectComponent*>(this)
                                                : inner_->queryInterface(id);
    }
    VNK::IEffectAlgorithm* algorithm() noexcept override { return inner_->algorithm(); }
    void setListener(VNK::IEffectListener* listener) noexcept override
    {
        inner_->setListener(listener);
    }

private:
    VNK::Ref<VNK::IEffectComponent> inner_;
};

/// Which editor listens to an effect: hosts may open two.
std::map<VNK::IEffectAlgorithm*, VNK::IEffectListener*>& listeners()
{
    static std::map<VNK::IEffectAlgorithm*, VNK::IEffectListener*> all;
    return all;
}

}  // namespace

/// Keeps the host's worker from the component meanwhile.
class PluginEditor::Guard {
public:
    explicit Guard(const PluginEditor& editor) : editor_(editor)
    {
        if (editor_.hasLock_) editor_.access_.lock(editor_.host_.features.instance);
    }
    ~Guard()
    {
        if (editor_.hasLock_) editor_.access_.unlock(editor_.host_.features.instance);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    const PluginEditor& editor_;
};

class PluginEditor::Writer final : public editors::ParameterWriter {
public:
    explicit Writer(PluginEditor& editor) noexcept : editor_(editor) {}
    void begin(int parameter) override { editor_.touch(parameter, true); }
    void set(int parameter, float value) override { editor_.set(parameter, value); }
    void end(int parameter) override { editor_.touch(parameter, false); }

private:
    PluginEditor& editor_;
};

std::unique_ptr<PluginEditor> PluginEditor::open(const std::string& plugin,
                                                 const std::string& bundle, const Host& host)
{
    const auto* const access = findAccess(bundle);
    if (!access || !host.features.parent) return nullptr;
    std::unique_ptr<PluginEditor> editor(new PluginEditor(plugin, *access, host));
    if (!editor->effect_ || !editor->show(bundle)) return nullptr;
    return editor;
}

PluginEditor::PluginEditor(const std::string& plugin, const EditorAccess& access, const Host& host)
    : plugin_(plugin), access_(access), host_(host)
{
    if (auto* const running = access.component(host.features.instance)) {
        effect_ = VNK::HostedEffect(running);
        isShared_ = true;
    } else if (auto* const own = access.create(plugin.c_str())) {
        const auto component = VNK::Ref<VNK::IObject>::adopt(own);
        const auto tables = VNK::Ref<TablesOnly>::adopt(
            new TablesOnly(VNK::queryInterface<VNK::IEffectComponent>(component.get())));
        effect_ = VNK::HostedEffect(static_cast<VNK::IEffectComponent*>(tables.get()));
    }
    if (!effect_) return;
    hasLock_ = isShared_ && effect_.countTexts() > 0;
    const int count = effect_.countParameters();
    for (int i = 0; i < count; ++i) ports_.push_back(access.portOf(plugin.c_str(), i));
    written_.resize(ports_.size(), std::numeric_limits<float>::quiet_NaN());
    isNews_ = std::make_unique<std::atomic<bool>[]>(ports_.size());
    effect_.setListener(this);
    listeners()[effect_.algorithm()] = this;
}

PluginEditor::~PluginEditor()
{
    {
        const Guard guard(*this);
        window_.reset();
    }
    if (!effect_) return;
    const auto mine = listeners().find(effect_.algorithm());
    if (mine == listeners().end() || mine->second != this) return;
    effect_.setListener(nullptr);
    listeners().erase(mine);
}

bool PluginEditor::show(const std::string& bundle)
{
    const Guard guard(*this);
    adapters::EditorWindow::Setup setup;
    setup.effect = effect_;
    setup.resources = bundle + "resources";
    setup.writer = std::make_unique<Writer>(*this);
    setup.window.parent = host_.features.parent;
    setup.window.hostScale = host_.features.scale;
    if (const auto* const resize = host_.features.resize; resize && resize->ui_resize)
        setup.window.mayResize = [resize](int width, int height) {
            return resize->ui_resize(resize->handle, width, height) == 0;
        };
    window_ = adapters::EditorWindow::open(std::move(setup));
    if (!window_) return false;
    if (const auto* const resize = host_.features.resize; resize && resize->ui_resize)
        resize->ui_resize(resize->handle, width(), height());
    return true;
}

void PluginEditor::touch(int parameter, bool isHeld) const
{
    const auto* const touch = host_.features.touch;
    if (touch && touch->touch && portOf(parameter) >= 0)
        touch->touch(touch->handle, static_cast<std::uint32_t>(portOf(parameter)), isHeld);
}

/// By hand. What has no port, and triggers, whose port would have to fall back, go to the
/// component.
void PluginEditor::set(int parameter, float value)
{
    VNK::ParameterInfo info{};
    effect_.getParameter(parameter, info);
    const bool isDirect = portOf(parameter) < 0 || (isShared_ && info.has(VNK::isTrigger));
    if (isDirect || isOwn()) effect_.setValue(parameter, value);
    if (!isDirect) write(parameter, value);
}

void PluginEditor::write(int parameter, float value)
{
    written_[static_cast<std::size_t>(parameter)] = value;
    host_.write(host_.controller, static_cast<std::uint32_t>(portOf(parameter)), sizeof value, 0,
                &value);
}

void PluginEditor::portChanged(std::uint32_t port, float value)
{
    const int parameter = access_.parameterOf(plugin_.c_str(), port);
    if (parameter < 0) return;
    written_[static_cast<std::size_t>(parameter)] = value;
    if (!isOwn()) return;
    isFromHost_ = true;
    effect_.setValue(parameter, value);
    isFromHost_ = false;
}

bool PluginEditor::idle()
{
    const Guard guard(*this);
    const bool isOpen = window_->poll();
    // What presets, the other set, or one parameter has moved of others.
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        if (!isNews_[i].exchange(false) || ports_[i] < 0) continue;
        const int parameter = static_cast<int>(i);
        const float now = effect_.getValue(parameter);
        if (now == written_[i]) continue;
        touch(parameter, true);
        write(parameter, now);
        touch(parameter, false);
    }
    return isOpen;
}

void PluginEditor::resize(int width, int height)
{
    const Guard guard(*this);
    window_->window().setSize(width, height);
}

}  // namespace quillworks::lv2
