// SPDX-License-Identifier: ISC
#include "adapters/clap/host.h"

#include <type_traits>

namespace quillworks::clap {

void Host::findExtensions() noexcept
{
    if (!host_ || !host_->get_extension) return;
    const auto find = [this](auto& extension, const char* id) {
        extension = static_cast<std::remove_reference_t<decltype(extension)>>(
            host_->get_extension(host_, id));
    };
    find(threads_, CLAP_EXT_THREAD_CHECK);
    find(params_, CLAP_EXT_PARAMS);
    find(latency_, CLAP_EXT_LATENCY);
    find(state_, CLAP_EXT_STATE);
    find(tail_, kTailExtension);
    find(log_, kLogExtension);
    find(timer_, CLAP_EXT_TIMER_SUPPORT);
    find(gui_, CLAP_EXT_GUI);
}

bool Host::isMainThread(const char* call) const noexcept
{
    if (!threads_ || !threads_->is_main_thread || threads_->is_main_thread(host_)) return true;
    log(Severity::HostMisbehaving, call);
    return false;
}

void Host::expectAudioThread(const char* call) noexcept
{
    if (hasComplained_ || !threads_ || !threads_->is_audio_thread) return;
    if (threads_->is_audio_thread(host_)) return;
    hasComplained_ = true;
    log(Severity::HostMisbehaving, call);
}

void Host::log(Severity severity, const char* text) const noexcept
{
    if (log_ && log_->log) log_->log(host_, static_cast<std::int32_t>(severity), text);
}

void Host::requestRestart() const noexcept
{
    if (host_ && host_->request_restart) host_->request_restart(host_);
}

void Host::requestFlush() const noexcept
{
    if (params_ && params_->request_flush) params_->request_flush(host_);
}

void Host::latencyChanged() const noexcept
{
    if (latency_ && latency_->changed) latency_->changed(host_);
}

void Host::tailChanged() const noexcept
{
    if (tail_ && tail_->changed) tail_->changed(host_);
}

void Host::valuesChanged() const noexcept
{
    if (params_ && params_->rescan) params_->rescan(host_, CLAP_PARAM_RESCAN_VALUES);
}

bool Host::startTimer(std::uint32_t ms, clap_id& id) const noexcept
{
    return hasTimer() && timer_->register_timer(host_, ms, &id);
}

void Host::stopTimer(clap_id id) const noexcept
{
    if (timer_ && timer_->unregister_timer) timer_->unregister_timer(host_, id);
}

bool Host::requestSize(int width, int height) const noexcept
{
    return gui_ && gui_->request_resize &&
           gui_->request_resize(host_, static_cast<std::uint32_t>(width),
                                static_cast<std::uint32_t>(height));
}

void Host::editorClosed() const noexcept
{
    if (gui_ && gui_->closed) gui_->closed(host_, false);
}

void Host::stateChanged() const noexcept
{
    if (state_ && state_->mark_dirty) state_->mark_dirty(host_);
}

}  // namespace quillworks::clap
