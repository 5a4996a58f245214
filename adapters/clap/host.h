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

    /// Whether a call that belongs to a thread has come on it; hosts that do not say are believed.
    /// What has not is told the host. [any thread]
    bool isMainThread(const char* call) const noexcept;
    bool isAudioThread(const char* call) const noexcept;

    void log(Severity severity, const char* text) const noexcept;  // [any thread]
    void requestRestart() const noexcept;                          // [any thread]
    void requestFlush() const noexcept;                            // [main thread]
    void latencyChanged() const noexcept;                          // [main thread, not active]
    void tailChanged() const noexcept;                             // [audio thread]
    void valuesChanged() const noexcept;                           // [main thread]

private:
    const clap_host_t* host_;
    const clap_host_thread_check_t* threads_ = nullptr;
    const clap_host_params_t* params_ = nullptr;
    const clap_host_latency_t* latency_ = nullptr;
    const HostTail* tail_ = nullptr;
    const HostLog* log_ = nullptr;
};

}  // namespace quillworks::clap
