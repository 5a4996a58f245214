// SPDX-License-Identifier: ISC
// The host as a plug-in sees it: every call is one that it may lack.
#pragma once

#include "adapters/clap/abi.h"

namespace quillworks::clap {

class Host {
public:
    explicit Host(const clap_host_t* host) noexcept : host_(host) {}
    /// Not before the plug-in is told to initialise itself. [main thread]
    void findExtensions() noexcept;

    bool hasTail() const noexcept { return tail_ != nullptr; }

    /// Whether a call that belongs to the main thread has come on it; hosts that do not say are
    /// believed. What has not is told the host. [any thread]
    bool isMainThread(const char* call) const noexcept;
    /// Tells the host, once, of a call that belongs to its audio thread and has not come on it. No
    /// reason to fall silent: as long as such calls come one at a time they do no harm.
    /// [audio thread]
    void expectAudioThread(const char* call) noexcept;

    void log(Severity severity, const char* text) const noexcept;  // [any thread]
    void requestRestart() const noexcept;                          // [any thread]
    void requestFlush() const noexcept;                            // [main thread]
    void latencyChanged() const noexcept;                          // [main thread, not active]
    void tailChanged() const noexcept;                             // [audio thread]
    void valuesChanged() const noexcept;                           // [main thread]
    void stateChanged() const noexcept;                            // [main thread]

    // For editors. [main thread]
    bool hasTimer() const noexcept { return timer_ && timer_->register_timer; }
    bool startTimer(std::uint32_t ms, clap_id& id) const noexcept;
    void stopTimer(clap_id id) const noexcept;
    /// Whether the host gives the editor this size.
    bool requestSize(int width, int height) const noexcept;
    void editorClosed() const noexcept;

private:
    const clap_host_t* host_;
    const clap_host_thread_check_t* threads_ = nullptr;
    const clap_host_params_t* params_ = nullptr;
    const clap_host_latency_t* latency_ = nullptr;
    const clap_host_state_t* state_ = nullptr;
    const HostTail* tail_ = nullptr;
    const HostLog* log_ = nullptr;
    const clap_host_timer_support_t* timer_ = nullptr;
    const clap_host_gui_t* gui_ = nullptr;
    bool hasComplained_ = false;  // about the audio thread
};

}  // namespace quillworks::clap
