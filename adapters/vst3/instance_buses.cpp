// SPDX-License-Identifier: ISC
// Buses of a plug-in and what songs keep of it.
#include <string>

#include "adapters/common/state.h"
#include "adapters/vst3/instance.h"
#include "adapters/vst3/speakers.h"
#include "adapters/vst3/text.h"
#include "vnk/buffer.h"

namespace quillworks::vst3 {
namespace {

constexpr std::size_t kLongestState = std::size_t{1} << 26;  // bytes
constexpr std::size_t kPiece = 4096;

bool readAll(v3_bstream** stream, std::string& bytes)
{
    char piece[kPiece];
    for (;;) {
        std::int32_t n = 0;
        const auto result = v3_cpp_obj(stream)->read(stream, piece, kPiece, &n);
        if (n <= 0) return result == V3_OK || !bytes.empty();
        if (n > static_cast<std::int32_t>(kPiece) || bytes.size() > kLongestState) return false;
        bytes.append(piece, static_cast<std::size_t>(n));
        if (result != V3_OK) return true;
    }
}

bool writeAll(v3_bstream** stream, std::string bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        const auto left = static_cast<std::int32_t>(std::min(bytes.size() - done, kLongestState));
        std::int32_t n = 0;
        const auto result = v3_cpp_obj(stream)->write(stream, bytes.data() + done, left, &n);
        if (result != V3_OK || n <= 0 || n > left) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

v3_result Instance::getControllerClassId(std::uint8_t*) noexcept
{
    return V3_NOT_IMPLEMENTED;  // this object is the controller
}

v3_result Instance::setIoMode(std::int32_t) noexcept
{
    return V3_NOT_IMPLEMENTED;
}

std::int32_t Instance::getBusCount(std::int32_t media, std::int32_t direction) noexcept
{
    if (media != V3_AUDIO || (direction != V3_INPUT && direction != V3_OUTPUT)) return 0;
    return direction == V3_INPUT && plugin_.offered.hasSideChain ? 2 : 1;
}

v3_result Instance::getBusInfo(std::int32_t media, std::int32_t direction, std::int32_t bus,
                               v3_bus_info* info) noexcept
{
    if (!info || !hasBus(media, direction, bus)) return V3_INVALID_ARG;
    const bool isInput = direction == V3_INPUT, isSide = bus > 0;
    *info = {};
    info->media_type = media;
    info->direction = direction;
    info->channel_count = arrangement(isInput, bus).channels;
    writeText(info->bus_name, isSide ? "Side-chain" : isInput ? "Input" : "Output");
    info->bus_type = isSide ? V3_AUX : V3_MAIN;
    info->flags = isSide ? 0 : V3_DEFAULT_ACTIVE;
    return V3_OK;
}

v3_result Instance::getRoutingInfo(v3_routing_info*, v3_routing_info*) noexcept
{
    return V3_NOT_IMPLEMENTED;
}

/// Only the side-chain's says anything: the main buses are what the effect is for.
v3_result Instance::activateBus(std::int32_t media, std::int32_t direction, std::int32_t bus,
                                v3_bool state) noexcept
{
    if (!hasBus(media, direction, bus)) return V3_INVALID_ARG;
    if (bus > 0) isSideActive_ = state != 0;
    return V3_OK;
}

v3_result Instance::setBusArrangements(v3_speaker_arrangement* inputs, std::int32_t inputCount,
                                       v3_speaker_arrangement* outputs,
                                       std::int32_t outputCount) noexcept
{
    if (isActive_ || !inputs || !outputs || inputCount < 1 || outputCount != 1 ||
        inputCount > getBusCount(V3_AUDIO, V3_INPUT))
        return V3_FALSE;
    const auto input = layoutOf(inputs[0]), output = layoutOf(outputs[0]);
    if (!input || !output) return V3_FALSE;
    auto side = adapters::sideChainOf(*output);
    if (inputCount > 1) {
        const auto asked = layoutOf(inputs[1]);
        if (!asked || asked->channels > 2) return V3_FALSE;
        side = *asked;
    }
    if (!effect_->algorithm()->setSpeakerArrangement(*input, *output)) return V3_FALSE;
    input_ = *input;
    output_ = *output;
    side_ = side;
    return V3_OK;
}

v3_result Instance::getBusArrangement(std::int32_t direction, std::int32_t bus,
                                      v3_speaker_arrangement* places) noexcept
{
    if (!places || !hasBus(V3_AUDIO, direction, bus)) return V3_INVALID_ARG;
    const auto known = placesOf(arrangement(direction == V3_INPUT, bus));
    if (!known) return V3_FALSE;
    *places = *known;
    return V3_OK;
}

v3_result Instance::getState(v3_bstream** stream) noexcept
{
    if (!stream) return V3_INVALID_ARG;
    VNK::StringSink chunk;
    if (!adapters::saveState(effect_, {isOn_, isSideActive_}, chunk)) return V3_NOMEM;
    try {
        return writeAll(stream, chunk.text()) ? V3_OK : V3_INTERNAL_ERR;
    } catch (...) {
        return V3_NOMEM;
    }
}

v3_result Instance::setState(v3_bstream** stream) noexcept
{
    if (!stream) return V3_INVALID_ARG;
    try {
        std::string chunk;
        if (!readAll(stream, chunk)) return V3_INTERNAL_ERR;
        adapters::Switches switches{isOn_, isSideActive_};
        isRestoring_ = true;
        const bool isTaken = adapters::loadState(effect_, chunk.data(), chunk.size(), switches);
        isRestoring_ = false;
        if (!isTaken) return V3_FALSE;
        isOn_ = switches.isOn;  // the bus is switched by the host
        showPresent();
        tellLatency();
        return V3_OK;
    } catch (...) {
        return V3_NOMEM;
    }
}

/// Component and controller are one: it knows already.
v3_result Instance::setComponentState(v3_bstream**) noexcept
{
    showPresent();
    return V3_OK;
}

v3_result Instance::setControllerState(v3_bstream**) noexcept
{
    return V3_OK;
}

v3_result Instance::getControllerState(v3_bstream**) noexcept
{
    return V3_OK;
}

}  // namespace quillworks::vst3
