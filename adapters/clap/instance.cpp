// SPDX-License-Identifier: ISC
// Life and sound of a plug-in.
#include "adapters/clap/instance.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "adapters/clap/calls.h"
#include "adapters/common/offline.h"

namespace quillworks::clap {

Instance::Instance(std::shared_ptr<const Plugins> plugins, const Plugin& plugin,
                   const clap_host_t* host)
    : plugins_(std::move(plugins)),
      effect_(plugins_->catalogue().create(plugin.offered)),
      plugin_(plugin),
      host_(host),
      gestures_(plugin.parameters.list().size()),
      handle_(callsOf(plugin, *this))
{
    if (!effect_) throw std::bad_alloc();
    told_ = std::make_unique<std::atomic<std::uint32_t>[]>(plugin.parameters.list().size());
    effect_->setListener(this);
}

Instance::~Instance()
{
    editor_.destroy();
    effect_->setListener(nullptr);
}

bool Instance::init()
{
    host_.findExtensions();
    // Hosts show read-only parameters whenever they like: meters run as if somebody looked.
    effect_->setEditorOpen(true);
    findMeters();
    return true;
}

bool Instance::activate(double sampleRate, std::uint32_t maxFrames)
{
    if (isActive_ || !host_.isMainThread("activate is for the main thread")) return false;
    // Longer blocks are cut.
    const auto frames = static_cast<int>(std::clamp<std::uint32_t>(maxFrames, 16, 8192));
    isPreparing_ = true;
    const bool isReady = running_.prepare(
        effect_, {layout().input, layout().output, VNK::Precision::Float, sampleRate, frames},
        sideChannels());
    isPreparing_ = false;
    if (!isReady) return false;
    running_.setSideChain(isSideChainOn_);
    sampleRate_ = sampleRate;
    position_.prepare(sampleRate);
    position_.forget();
    if (isOffline_) adapters::waitWhileBusy(effect_);
    isRestartAsked_ = false;
    tail_ = tail();
    const auto latency = static_cast<std::uint32_t>(running_.latency());
    if (latency_.exchange(latency) != latency) host_.latencyChanged();
    isActive_ = true;
    return true;
}

void Instance::deactivate() noexcept
{
    host_.isMainThread("deactivate is for the main thread");
    isActive_ = false;
}

bool Instance::startProcessing() noexcept
{
    host_.expectAudioThread("start_processing is for the audio thread");
    return isActive_;
}

void Instance::stopProcessing() noexcept
{
    host_.expectAudioThread("stop_processing is for the audio thread");
}

void Instance::reset() noexcept
{
    host_.expectAudioThread("reset is for the audio thread");
    if (!isActive_) return;
    running_.reset();
    position_.forget();
}

clap_process_status Instance::process(const clap_process_t& process) noexcept
{
    host_.expectAudioThread("process is for the audio thread");
    if (!isActive_ || !connect(process)) return CLAP_PROCESS_ERROR;
    if (isOffline_) adapters::waitWhileBusy(effect_);
    running_.setSideChain(isSideChainOn_);
    readTransport(process.transport);
    const int total = static_cast<int>(std::min<std::uint32_t>(process.frames_count, 1u << 30));
    int done = 0;
    const auto* const events = process.in_events;
    const auto count = events && events->size && events->get ? events->size(events) : 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto* const event = events->get(events, i);
        if (!event) continue;
        const auto at = static_cast<int>(std::clamp<std::int64_t>(event->time, done, total));
        run(done, at - done);
        done = at;
        read(*event);
    }
    run(done, total - done);
    report(process.out_events);
    tellMeters(process.out_events, total);
    checkDelays();
    if (!host_.hasTail()) return CLAP_PROCESS_CONTINUE;
    if (const auto now = tail(); std::exchange(tail_, now) != now) host_.tailChanged();
    return CLAP_PROCESS_TAIL;
}

/// Ports and channels that the host leaves out are silent, or not heard.
bool Instance::connect(const clap_process_t& process) noexcept
{
    const auto take = [](auto& pointers, auto* buffers, std::uint32_t count, std::uint32_t port) {
        pointers.fill(nullptr);
        if (!buffers || port >= count) return true;
        const auto& buffer = buffers[port];
        if (!buffer.data32) return buffer.data64 == nullptr || buffer.channel_count == 0;
        const auto channels = std::min<std::size_t>(buffer.channel_count, pointers.size());
        std::copy_n(buffer.data32, channels, pointers.begin());
        return true;
    };
    const bool isTaken = take(in_, process.audio_inputs, process.audio_inputs_count, 0) &&
                         take(side_, process.audio_inputs, process.audio_inputs_count, 1) &&
                         take(out_, process.audio_outputs, process.audio_outputs_count, 0);
    if (isTaken && process.audio_outputs && process.audio_outputs_count > 0)
        process.audio_outputs[0].constant_mask = 0;
    return isTaken;
}

void Instance::run(int from, int frames) noexcept
{
    if (frames > 0)
        running_.process({in_.data(), out_.data(), side_.data()}, from, frames, isOn_, position_);
}

void Instance::readTransport(const clap_event_transport_t* transport) noexcept
{
    if (!transport) return position_.forget();
    const auto has = [&](std::uint32_t flag) { return (transport->flags & flag) != 0; };
    adapters::SongWord word;
    word.speed = has(CLAP_TRANSPORT_IS_PLAYING) ? 1 : 0;
    if (has(CLAP_TRANSPORT_HAS_TEMPO) && std::isfinite(transport->tempo))
        word.tempo = std::max(0.0, transport->tempo);
    word.isBeatKnown = has(CLAP_TRANSPORT_HAS_BEATS_TIMELINE);
    word.quarterNotes = static_cast<double>(transport->song_pos_beats) / CLAP_BEATTIME_FACTOR;
    word.isFrameKnown = has(CLAP_TRANSPORT_HAS_SECONDS_TIMELINE);
    word.frame =
        static_cast<double>(transport->song_pos_seconds) / CLAP_SECTIME_FACTOR * sampleRate_;
    position_.set(word);
}

std::uint32_t Instance::latency() const noexcept
{
    return isActive_ ? latency_.load() : effect_->algorithm()->getLatency();
}

/// The format fixes the latency of a plug-in that is active: a new one is a reason to start anew.
/// [main thread, audio thread]
void Instance::checkDelays() noexcept
{
    const auto now = effect_->algorithm()->getLatency();
    if (isPreparing_ || now == latency_.load(std::memory_order_relaxed)) return;
    if (!isActive_) {
        latency_ = now;
        host_.latencyChanged();
    } else if (!isRestartAsked_.exchange(true)) {
        host_.requestRestart();
    }
}

}  // namespace quillworks::clap
