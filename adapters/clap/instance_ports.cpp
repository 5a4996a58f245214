// SPDX-License-Identifier: ISC
// Ports of a plug-in and what songs keep of it.
#include <algorithm>
#include <cstdio>
#include <string>

#include "adapters/clap/instance.h"
#include "adapters/common/state.h"
#include "vnk/buffer.h"

namespace quillworks::clap {
namespace {

constexpr clap_id kMain = 0, kSideChain = 1;
constexpr std::size_t kLongestState = std::size_t{1} << 26;  // bytes

const char* typeOf(int channels) noexcept
{
    return channels == 1 ? CLAP_PORT_MONO : channels == 2 ? CLAP_PORT_STEREO : nullptr;
}

/// "Input", or with the places of more than two channels: the format has no other way to name them.
void writeName(char (&name)[CLAP_NAME_SIZE], const char* title,
               const VNK::SpeakerArrangement& layout)
{
    const auto places = layout.channels > 2 ? " (" + layout.names() + ")" : "";
    std::snprintf(name, sizeof name, "%s%s", title, places.c_str());
}

}  // namespace

std::uint32_t Instance::countPorts(bool isInput) const noexcept
{
    return isInput && plugin_.offered.hasSideChain ? 2 : 1;
}

bool Instance::getPort(std::uint32_t index, bool isInput, clap_audio_port_info_t& info) const
{
    if (index >= countPorts(isInput)) return false;
    info = {};
    const bool isSide = index == kSideChain;
    const auto arrangement = isSide    ? adapters::sideChainOf(layout().output)
                             : isInput ? layout().input
                                       : layout().output;
    info.id = index;
    if (!isSide) info.flags = CLAP_AUDIO_PORT_IS_MAIN;
    info.channel_count = static_cast<std::uint32_t>(arrangement.channels);
    info.port_type = typeOf(arrangement.channels);
    info.in_place_pair =
        !isSide && layout().input.channels == layout().output.channels ? kMain : CLAP_INVALID_ID;
    writeName(info.name, isSide ? "Side-chain" : isInput ? "Input" : "Output", arrangement);
    return true;
}

std::uint32_t Instance::countConfigs() const noexcept
{
    return static_cast<std::uint32_t>(plugin_.offered.layouts.size());
}

bool Instance::getConfig(std::uint32_t index, AudioPortsConfig& config) const
{
    if (index >= countConfigs()) return false;
    const auto& layout = plugin_.offered.layouts[index];
    config = {};
    config.id = index;
    std::snprintf(config.name, sizeof config.name, "%s", layout.title.c_str());
    config.inputPorts = countPorts(true);
    config.outputPorts = countPorts(false);
    config.hasMainInput = config.hasMainOutput = true;
    config.mainInputChannels = static_cast<std::uint32_t>(layout.input.channels);
    config.mainInputType = typeOf(layout.input.channels);
    config.mainOutputChannels = static_cast<std::uint32_t>(layout.output.channels);
    config.mainOutputType = typeOf(layout.output.channels);
    return true;
}

bool Instance::selectConfig(clap_id config)
{
    if (isActive_ || config >= countConfigs()) return false;
    layout_ = config;
    findMeters();
    return true;
}

bool Instance::save(const clap_ostream_t& stream) noexcept
{
    if (!host_.isMainThread("state.save is for the main thread")) return false;
    VNK::StringSink chunk;
    if (!adapters::saveState(effect_, {isOn_, isSideChainOn_}, chunk)) return false;
    const auto& bytes = chunk.text();
    for (std::size_t done = 0; done < bytes.size();) {  // hosts may take it in parts
        const auto n = stream.write(&stream, bytes.data() + done, bytes.size() - done);
        if (n <= 0) return false;
        done += std::min(static_cast<std::size_t>(n), bytes.size() - done);
    }
    return true;
}

bool Instance::load(const clap_istream_t& stream)
{
    if (!host_.isMainThread("state.load is for the main thread")) return false;
    std::string bytes;
    char part[4096];
    for (;;) {
        const auto n = stream.read(&stream, part, sizeof part);
        if (n < 0 || n > static_cast<std::int64_t>(sizeof part)) return false;
        if (n == 0) break;
        bytes.append(part, static_cast<std::size_t>(n));
        if (bytes.size() > kLongestState) return false;
    }
    adapters::Switches switches;
    isRestoring_ = true;
    const bool isTaken = adapters::loadState(effect_, bytes.data(), bytes.size(), switches);
    isRestoring_ = false;
    if (!isTaken) {
        host_.log(Severity::Warning, effect_->refusalReason());
        return false;
    }
    isOn_ = switches.isOn;
    isSideChainOn_ = switches.isSideChainOn;
    // The host reads all of them anew.
    for (int place = 0; place < plugin_.parameters.count(); ++place)
        told(place) = effect_->changeCount(plugin_.parameters[place].index);
    host_.valuesChanged();
    checkDelays();
    return true;
}

}  // namespace quillworks::clap
