// SPDX-License-Identifier: ISC
#include "adapters/lv2/instance.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include <lv2/atom/util.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>

namespace quillworks::lv2 {
namespace {

using Role = Port::Role;

/// Latencies beyond this are not matched while the plug-in is switched off.
constexpr double kLongestDrySeconds = 0.25;

}  // namespace

Instance::Instance(VNK::HostedEffect effect, const Plugin& plugin, double sampleRate,
                   const LV2_Feature* const* features)
    : plugin_(plugin),
      effect_(std::move(effect)),
      sampleRate_(sampleRate),
      seen_(plugin.ports.size())
{
    readOptions(features);
    if (!effect_) throw std::bad_alloc();
    runner_ = VNK::EffectRunner(*effect_->algorithm());
    if (!runner_.prepare(
            {plugin.input, plugin.output, VNK::Precision::Float, sampleRate, maxFrames_}))
        throw std::bad_alloc();
    // Hosts show output ports whenever they like: meters run as if somebody looked.
    effect_->setEditorOpen(true);
    position_.map(map_, sampleRate);

    const auto n = static_cast<std::size_t>(maxFrames_);
    in_.resize(static_cast<std::size_t>(plugin.input.channels));
    out_.resize(static_cast<std::size_t>(plugin.output.channels));
    side_.resize(static_cast<std::size_t>(count(plugin.ports, Role::SideChain)));
    sideCopy_.assign(side_.size(), std::vector<float>(n));
    silence_.resize(n);
    nowhere_.resize(n);
    dry_.prepare(*effect_->algorithm(), plugin.input.channels, plugin.output.channels, sampleRate,
                 maxFrames_, static_cast<int>(kLongestDrySeconds * sampleRate));
    for (const auto& port : plugin.ports) {
        controlOfPort_.push_back(static_cast<int>(controls_.size()));
        meterOfPort_.push_back(static_cast<int>(meters_.size()));
        if (port.role == Role::Parameter) {
            // The effect stands at its defaults: a port that does as well is no news.
            VNK::ParameterInfo info{};
            effect_->getParameter(port.index, info);
            seen_[controls_.size()].store(info.defaultValue, std::memory_order_relaxed);
            controls_.push_back({port.index, nullptr});
        }
        if (port.role != Role::Meter) continue;
        VNK::MeterInfo info{};
        effect_->getMeter(port.index, info);
        meters_.push_back({port.index, nullptr, info.minimum, info.maximum});
    }
}

void Instance::readOptions(const LV2_Feature* const* features)
{
    const LV2_Options_Option* options = nullptr;
    for (; features && *features; ++features) {
        if (!std::strcmp((*features)->URI, LV2_URID__map))
            map_ = static_cast<LV2_URID_Map*>((*features)->data);
        if (!std::strcmp((*features)->URI, LV2_OPTIONS__options))
            options = static_cast<const LV2_Options_Option*>((*features)->data);
    }
    if (!map_ || !options) return;
    const auto id = [&](const char* uri) { return map_->map(map_->handle, uri); };
    std::int32_t nominal = 0, longest = 0;
    for (; options->key; ++options) {
        if (options->type != id(LV2_ATOM__Int) || options->size != sizeof(std::int32_t)) continue;
        const auto value = *static_cast<const std::int32_t*>(options->value);
        if (options->key == id(LV2_BUF_SIZE__nominalBlockLength)) nominal = value;
        if (options->key == id(LV2_BUF_SIZE__maxBlockLength)) longest = value;
    }
    // Longer blocks are cut, so what the host usually asks for is enough.
    if (const auto usual = nominal > 0 ? nominal : longest; usual > 0)
        maxFrames_ = std::clamp(usual, 16, 8192);
}

void Instance::connect(std::uint32_t port, void* data) noexcept
{
    if (port >= plugin_.ports.size()) return;
    const auto& p = plugin_.ports[port];
    const auto i = static_cast<std::size_t>(p.index);
    switch (p.role) {
    case Role::AudioIn:
        in_[i] = static_cast<const float*>(data);
        break;
    case Role::AudioOut:
        out_[i] = static_cast<float*>(data);
        break;
    case Role::SideChain:
        side_[i] = static_cast<const float*>(data);
        break;
    case Role::Events:
        events_ = static_cast<const LV2_Atom_Sequence*>(data);
        break;
    case Role::Enabled:
        enabled_ = static_cast<const float*>(data);
        break;
    case Role::SideChainOn:
        sideChainOn_ = static_cast<const float*>(data);
        break;
    case Role::Latency:
        latency_ = static_cast<float*>(data);
        break;
    case Role::FreeWheel:
        break;  // the effects do the same work either way
    case Role::Parameter:
        controls_[static_cast<std::size_t>(controlOfPort_[port])].port =
            static_cast<const float*>(data);
        break;
    case Role::Meter:
        meters_[static_cast<std::size_t>(meterOfPort_[port])].port = static_cast<float*>(data);
        break;
    }
}

void Instance::activate() noexcept
{
    effect_->algorithm()->reset();
    dry_.reset();
    position_.forget();
}

void Instance::readControls() noexcept
{
    for (std::size_t i = 0; i < controls_.size(); ++i) {
        const auto& control = controls_[i];
        if (!control.port) continue;
        const float value = *control.port;
        // A value that stands still is not set again: an effect may have moved the parameter
        // since, as coupled ones do, and the host cannot be told.
        if (value == seen_[i].load(std::memory_order_relaxed) || !std::isfinite(value)) continue;
        seen_[i].store(value, std::memory_order_relaxed);
        // Ports of parameters that cannot be automated are marked so: what arrives there was set.
        if (effect_->getValue(control.parameter) != value)
            effect_->setBetweenBlocks(control.parameter, value);
    }
    effect_->algorithm()->setSideChainActive(isOn(sideChainOn_, false));
}

void Instance::run(std::uint32_t frames) noexcept
{
    readControls();
    int done = 0;
    const int total = static_cast<int>(std::min<std::uint32_t>(frames, 1u << 30));
    if (events_ && position_.sequence() != 0 && events_->atom.type == position_.sequence()) {
        LV2_ATOM_SEQUENCE_FOREACH(events_, event)
        {
            const auto at =
                static_cast<int>(std::clamp<std::int64_t>(event->time.frames, done, total));
            process(done, at - done);
            done = at;
            position_.read(event->body);
        }
    }
    process(done, total - done);
    writeOutputs();
}

void Instance::process(int from, int frames) noexcept
{
    const auto inputs = static_cast<int>(in_.size()), outputs = static_cast<int>(out_.size());
    const auto piece = [&](int at, int n) {
        const float* in[VNK::kMaxChannels];
        float* out[VNK::kMaxChannels];
        for (std::size_t c = 0; c < in_.size(); ++c)
            in[c] = in_[c] ? in_[c] + from + at : silence_.data();
        for (std::size_t c = 0; c < out_.size(); ++c)
            out[c] = out_[c] ? out_[c] + from + at : nowhere_.data();
        for (std::size_t c = 0; c < side_.size(); ++c)
            if (side_[c])
                std::copy_n(side_[c] + from + at, n, sideCopy_[c].data());
            else
                std::fill_n(sideCopy_[c].data(), n, 0.0f);
        dry_.keep(in, n);
        position_.tell(runner_.algorithm());
        runner_.process<float>({in, inputs}, {out, outputs}, n,
                               {sideCopy_, static_cast<int>(side_.size())});
        position_.advance(n);
        dry_.mix(out, n, static_cast<int>(runner_.algorithm().getLatency()), isOn(enabled_, true));
    };
    VNK::runCut(
        frames, [this](int) { return maxFrames_; }, piece);
}

void Instance::writeOutputs() noexcept
{
    for (const auto& meter : meters_) {
        if (!meter.port) continue;
        const float value = effect_->readMeter(meter.index);
        // Not a number stands for "nothing to show", which a host cannot draw.
        *meter.port = value >= meter.minimum ? std::min(value, meter.maximum) : meter.minimum;
    }
    if (latency_) *latency_ = static_cast<float>(effect_->algorithm()->getLatency());
}

}  // namespace quillworks::lv2
