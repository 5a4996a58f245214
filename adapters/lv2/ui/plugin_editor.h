// SPDX-License-Identifier: ISC
// The editor of a plug-in: a window in the host's, and values to and fro.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "adapters/editor/editor_window.h"
#include "adapters/lv2/ui/host_side.h"

namespace quillworks::lv2 {

/// Where the host hands over the running plug-in, its component shows texts, meters, presets and
/// displays; values still go by the host, which records them. Without that the editor has a
/// component of its own, which follows the ports. [main thread]
class PluginEditor final : private VNK::IEffectListener {
public:
    struct Host {
        LV2UI_Write_Function write;
        LV2UI_Controller controller;
        UiFeatures features;
    };
    /// Null where there is no server, or the plug-in is none of the bundle's.
    static std::unique_ptr<PluginEditor> open(const std::string& plugin, const std::string& bundle,
                                              const Host& host);
    ~PluginEditor();
    PluginEditor(const PluginEditor&) = delete;
    PluginEditor& operator=(const PluginEditor&) = delete;

    std::uint32_t window() noexcept { return window_->window().id(); }
    int width() noexcept { return window_->window().width(); }
    int height() noexcept { return window_->window().height(); }
    /// The host has another value of a port.
    void portChanged(std::uint32_t port, float value);
    /// False once the window is gone.
    bool idle();
    void resize(int width, int height);

private:
    class Writer;
    class Guard;

    PluginEditor(const std::string& plugin, const EditorAccess& access, const Host& host);
    bool show(const std::string& bundle);
    void touch(int parameter, bool isHeld) const;
    void set(int parameter, float value);
    void write(int parameter, float value);
    int portOf(int parameter) const noexcept { return ports_[static_cast<std::size_t>(parameter)]; }
    bool isOwn() const noexcept { return !isShared_; }

    // Of the component, on whatever thread the host calls it: told at the next idle call.
    void message(const char*) noexcept override {}
    void parameterChanged(std::int32_t index) noexcept override
    {
        if (!isFromHost_) isNews_[static_cast<std::size_t>(index)] = true;
    }
    void editBegun(std::int32_t) noexcept override {}
    void editEnded(std::int32_t index) noexcept override { parameterChanged(index); }

    const std::string plugin_;
    const EditorAccess& access_;
    const Host host_;
    VNK::HostedEffect effect_;
    bool isShared_ = false;  // the effect is the one that runs
    bool hasLock_ = false;
    bool isFromHost_ = false;
    std::vector<int> ports_;      // of the parameters, -1 without one
    std::vector<float> written_;  // what the host has, as far as is known
    std::unique_ptr<std::atomic<bool>[]> isNews_;
    std::unique_ptr<adapters::EditorWindow> window_;
};

}  // namespace quillworks::lv2
