// SPDX-License-Identifier: ISC
// Sound files as impulse responses: decoded, shaped, and laid out on a layout of channels.
#include "reverb/response.h"
#include "tests/fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks;
    using fuzz::require;
    constexpr double kRate = 8000;
    VNK::SoundLimits limits;
    limits.seconds = 0.25;
    limits.bytes = 1 << 18;
    VNK::Sound<float> sound;
    std::string reason;
    if (!VNK::readSoundData(data, size, limits, sound, reason)) {
        require(!reason.empty(), "a refusal has a reason");
        require(reason.find('\n') == std::string::npos, "the reason is one line");
        require(sound.channels.empty(), "a refusal changes nothing");
        return 0;
    }
    require(std::ssize(sound.channels) <= limits.channels, "no more channels than asked for");
    require(sound.sampleRate >= limits.lowestRate && sound.sampleRate <= limits.highestRate,
            "a rate as asked for");
    require(sound.frames() > 0 && double(sound.frames()) <= limits.seconds * sound.sampleRate + 1,
            "something, and no more than asked for");
    const auto routing = static_cast<ResponseRouting>(size % 4);
    const ResponseShape shape{0.01 * double(size % 3), size % 5 == 0 ? 1.5 : 1,
                              size % 7 == 0 ? 0.5 : 1};
    const auto layout = VNK::SpeakerArrangement::withChannels(1 + static_cast<int>(size / 4 % 2));
    const auto matrix = routedResponse(shapedResponse(sound, shape, kRate), routing, layout);
    require(!matrix.paths.empty(), "every layout is served");
    for (const auto& path : matrix.paths)
        require(path.response >= 0 && path.response < std::ssize(matrix.responses),
                "a path has its response");
    for (const auto& response : matrix.responses)
        for (const double x : response) require(std::isfinite(x), "a response is finite");
    require(std::isfinite(autoLevelGain(matrix, kRate)), "its level is finite");
    return 0;
}
