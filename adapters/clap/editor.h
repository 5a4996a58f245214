// SPDX-License-Identifier: ISC
// The editor of a plug-in: a window in the host's, or floating above it.
#pragma once

#include <memory>
#include <string>

#include "adapters/clap/host.h"
#include "adapters/editor/editor_window.h"
#include "adapters/editor/switched_component.h"

namespace quillworks::clap {

/// Operations have the names of the format's. They fail where there is no editor. [main thread]
class Editor {
public:
    /// All outlive it.
    Editor(const VNK::HostedEffect& effect, VNK::IEffectListener& listener,
           adapters::IHostSwitch& hostSwitch, const Host& host) noexcept
        : effect_(effect), listener_(listener), switch_(hostSwitch), host_(host)
    {}
    ~Editor() { destroy(); }
    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    static bool isPossible(const char* api) noexcept;
    bool create(const char* api, bool isFloating);
    void destroy() noexcept;
    bool setScale(double scale);
    bool getSize(std::uint32_t& width, std::uint32_t& height);
    bool getResizeHints(clap_gui_resize_hints_t& hints);
    bool adjustSize(std::uint32_t& width, std::uint32_t& height);
    bool setSize(std::uint32_t width, std::uint32_t height);
    bool setParent(const clap_window_t& window);
    bool setTransient(const clap_window_t& window);
    void suggestTitle(const char* title);
    bool show();
    bool hide();
    void onTimer(clap_id timer);

private:
    static constexpr std::uint32_t kTimerMs = 33;

    bool isThere() const noexcept { return window_ != nullptr; }
    editors::X11Window& window() noexcept { return window_->window(); }

    const VNK::HostedEffect& effect_;
    VNK::IEffectListener& listener_;
    adapters::IHostSwitch& switch_;
    const Host& host_;
    std::unique_ptr<adapters::EditorWindow> window_;
    clap_id timer_ = CLAP_INVALID_ID;
    bool isFloating_ = false, isTold_ = false, isPolling_ = false;
};

}  // namespace quillworks::clap
