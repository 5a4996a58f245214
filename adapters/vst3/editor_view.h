// SPDX-License-Identifier: ISC
// The editor of a plug-in in a window of the host's.
#pragma once

#include <atomic>
#include <memory>

#include "adapters/editor/editor_window.h"
#include "adapters/vst3/abi.h"

namespace quillworks::vst3 {

class Instance;

/// The functions have the format's names. It keeps the plug-in until it goes itself. [main thread]
class EditorView {
public:
    /// Starts with one reference. The effect is the instance's.
    EditorView(Instance& instance, const VNK::HostedEffect& effect) noexcept;
    EditorView(const EditorView&) = delete;
    EditorView& operator=(const EditorView&) = delete;

    v3_plugin_view** handle() noexcept { return reinterpret_cast<v3_plugin_view**>(&view_); }

    v3_result queryInterface(const std::uint8_t* iid, void** object) noexcept;
    std::uint32_t ref() noexcept;
    std::uint32_t unref() noexcept;

    v3_result isPlatformTypeSupported(const char* type) noexcept;
    v3_result attached(void* parent, const char* type) noexcept;
    v3_result removed() noexcept;
    v3_result onWheel(float distance) noexcept;
    v3_result onKey(std::int16_t character, std::int16_t code, std::int16_t modifiers) noexcept;
    v3_result getSize(v3_view_rect* rect) noexcept;
    v3_result onSize(v3_view_rect* rect) noexcept;
    v3_result onFocus(v3_bool state) noexcept;
    v3_result setFrame(v3_plugin_frame** frame) noexcept;
    v3_result canResize() noexcept;
    v3_result checkSizeConstraint(v3_view_rect* rect) noexcept;

    v3_result setContentScaleFactor(float factor) noexcept;

    // What the host's run loop calls.
    void onFd(int fd) noexcept;
    void onTimer() noexcept;

private:
    using Face = vst3::Face<EditorView>;
    static constexpr std::uint64_t kTimerMs = 33;

    ~EditorView();
    bool open() noexcept;
    void poll() noexcept;
    bool mayResize(int width, int height) noexcept;

    Instance& instance_;
    const VNK::HostedEffect& effect_;
    std::unique_ptr<adapters::EditorWindow> window_;
    v3_plugin_frame** frame_ = nullptr;  // the host's, which takes it back
    v3_run_loop** loop_ = nullptr;
    double hostScale_ = 0;
    bool isPolling_ = false;
    std::atomic<std::uint32_t> references_{1};
    Face view_, scaling_, events_, timer_;
};

}  // namespace quillworks::vst3
