// SPDX-License-Identifier: ISC
#include "adapters/lv2/instance.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include <lv2/atom/util.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/options/options.h>

#include "adapters/common/offline.h"

namespace quillworks::lv2 {
namespace {

using Role = Port::Role;

constexpr int kUsualFrames = 1024;  // where the host does not say

}  // namespace

Instance::Instance(VNK::HostedEffect effect, const Plugin& plugin, double sampleRate,
                   const LV2_Feature* const* features)
    : inputs_(plugin.input.channels),
      in_(static_cast<std::size_t>(inputs_ + count(plugin.ports, Role::SideChain))),
      out_(static_cast<std::size_t>(plugin.output.channels)),
      meterPorts_(plugin.meters.size()),
      plugin_(plugin),
      effect_(std::move(effect)),
      controlPorts_(plugin.controls.size())
{
    if (!effect_) throw std::bad_alloc();
    const VNK::RunSetup setup{plugin.input, plugin.output, VNK::Precision::Float, sampleRate,
                              readOptions(features)};
    if (!running_.prepare(effect_, setup, count(plugin.ports, Role::SideChain)))
        throw std::bad_alloc();
    // Hosts show output ports whenever they like: meters run as if somebody looked.
    effect_->setEditorOpen(true);
    position_.map(map_, sampleRate);
    sequence_ = position_.sequence();
    texts_.prepare(effect_, plugin, map_, features);
    readings_.resize(static_cast<std::size_t>(effect_->countMeters()));
    runs_.reserve(plugin.controls.size());
    // The effect stands at its defaults: a port that does as well is no news.
    for (const auto& control : plugin.controls) seen_.push_back(control.start);
}

int Instance::readOptions(const LV2_Feature* const* features)
{
    const LV2_Options_Option* options = nullptr;
    for (; features && *features; ++features) {
        if (!std::strcmp((*features)->URI, LV2_URID__map))
            map_ = static_cast<LV2_URID_Map*>((*features)->data);
        if (!std::strcmp((*features)->URI, LV2_OPTIONS__options))
            options = static_cast<const LV2_Options_Option*>((*features)->data);
    }
    if (!map_ || !options) return kUsualFrames;
    const auto id = [&](const char* uri) { return map_->map(map_->handle, uri); };
    std::int32_t nominal = 0, longest = 0;
    for (; options->key; ++options) {
        if (options->type != id(LV2_ATOM__Int) || options->size != sizeof(std::int32_t)) continue;
        const auto value = *static_cast<const std::int32_t*>(options->value);
        if (options->key == id(LV2_BUF_SIZE__nominalBlockLength)) nominal = value;
        if (options->key == id(LV2_BUF_SIZE__maxBlockLength)) longest = value;
    }
    // Longer blocks are cut, so what the host usually asks for is enough.
    const auto usual = nominal > 0 ? nominal : longest;
    return usual > 0 ? std::clamp(usual, 16, 8192) : kUsualFrames;
}

void Instance::connect(std::uint32_t port, void* data) noexcept
{
    if (port >= plugin_.ports.size()) return;
    const auto& p = plugin_.ports[port];
    const auto i = static_cast<std::size_t>(p.index);
    const auto place = static_cast<std::size_t>(plugin_.place[port]);
    switch (p.role) {
    case Role::AudioIn:
        in_[i] = static_cast<const float*>(data);
        break;
    case Role::AudioOut:
        out_[i] = static_cast<float*>(data);
        break;
    case Role::SideChain:
        in_[static_cast<std::size_t>(inputs_) + i] = static_cast<const float*>(data);
        break;
    case Role::Events:
        events_ = static_cast<const LV2_Atom_Sequence*>(data);
        break;
    case Role::Notify:
        texts_.connect(static_cast<LV2_Atom_Sequence*>(data));
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
        freeWheel_ = static_cast<const float*>(data);
        break;
    case Role::Parameter:
        controlPorts_[place] = static_cast<const float*>(data);
        areRunsKnown_ = false;
        break;
    case Role::Meter:
        meterPorts_[place] = static_cast<float*>(data);
        break;
    }
}

void Instance::activate() noexcept
{
    running_.reset();
    position_.forget();
}

/// Hosts may connect between any two blocks: the room for the runs is there.
void Instance::findRuns() noexcept
{
    runs_.clear();
    for (std::size_t i = 0; i < controlPorts_.size(); ++i) {
        const float* const port = controlPorts_[i];
        const int control = static_cast<int>(i);
        if (!port) continue;
        const bool goesOn = !runs_.empty() && runs_.back().first + runs_.back().count == port &&
                            runs_.back().control + runs_.back().count == control;
        if (goesOn)
            ++runs_.back().count;
        else
            runs_.push_back({port, control, 1});
    }
    areRunsKnown_ = true;
}

void Instance::readControls() noexcept
{
    if (!areRunsKnown_) findRuns();
    for (const auto& run : runs_) {
        const float* const seen = seen_.data() + run.control;
        bool isNew = false;
        for (int i = 0; i < run.count; ++i) isNew |= run.first[i] != seen[i];
        if (!isNew) continue;
        for (int i = 0; i < run.count; ++i) take(run.control + i, run.first[i]);
    }
    running_.setSideChain(isOn(sideChainOn_, false));
}

void Instance::take(int control, float value) noexcept
{
    // A value that stands still is not set again: an effect may have moved the parameter since, as
    // coupled ones do, and the host cannot be told.
    const auto seen = seenOf(control);
    if (value == seen.load(std::memory_order_relaxed) || !std::isfinite(value)) return;
    seen.store(value, std::memory_order_relaxed);
    // Ports of parameters that cannot be automated are marked so: what arrives there was set.
    const int parameter = plugin_.controls[static_cast<std::size_t>(control)].parameter;
    if (effect_->getValue(parameter) != value) effect_->setBetweenBlocks(parameter, value);
}

void Instance::run(std::uint32_t frames) noexcept
{
    readControls();
    if (isOn(freeWheel_, false)) adapters::waitWhileBusy(effect_);
    if (texts_.areThere()) texts_.begin();
    int done = 0;
    const int total = static_cast<int>(std::min<std::uint32_t>(frames, 1u << 30));
    if (events_ && sequence_ != 0 && events_->atom.type == sequence_) {
        LV2_ATOM_SEQUENCE_FOREACH(events_, event)
        {
            const auto at =
                static_cast<int>(std::clamp<std::int64_t>(event->time.frames, done, total));
            process(done, at - done);
            done = at;
            position_.read(event->body);
            if (texts_.areThere()) texts_.read(event->body);
        }
    }
    process(done, total - done);
    writeOutputs();
}

void Instance::writeOutputs() noexcept
{
    effect_->readMeters(readings_.data(), static_cast<std::int32_t>(readings_.size()));
    for (std::size_t i = 0; i < meterPorts_.size(); ++i) {
        if (!meterPorts_[i]) continue;
        const auto& meter = plugin_.meters[i];
        const float value = readings_[static_cast<std::size_t>(meter.index)];
        // Not a number stands for "nothing to show", which a host cannot draw.
        *meterPorts_[i] = value >= meter.minimum ? std::min(value, meter.maximum) : meter.minimum;
    }
    if (latency_) *latency_ = static_cast<float>(running_.latency());
}

}  // namespace quillworks::lv2
