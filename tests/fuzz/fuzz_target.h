// SPDX-License-Identifier: ISC
// What the fuzz targets share: a fault that is no crash, and effects to load things into.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "module/module_main.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

/// One input through the code under test. libFuzzer calls it, and so does the regression program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quillworks::fuzz {

/// A broken promise: ends the fuzzer like a crash does, and fails the regression test.
inline void require(bool holds, const char* promise)
{
    if (!holds) throw std::logic_error(promise);
}

inline std::string_view textOf(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

inline VNK::IClassFactory& factory()
{
    static const auto shared = VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    return *shared;
}

inline VNK::HostedEffect create(const VNK::UID& classId)
{
    return VNK::HostedEffect::create(factory(), classId);
}

/// The effect of a class, the same one at each call, ready for loadedOrUntouched(); without such a
/// class the compressor.
inline const VNK::HostedEffect& effectOf(VNK::UID classId)
{
    static std::map<VNK::UID, VNK::HostedEffect> effects;
    auto& effect = effects[classId];
    if (!effect) effect = create(classId);
    if (!effect) {
        effects.erase(classId);
        return effectOf(VNK::UID::constant("{F5E10250-E10F-4447-AC90-5B8001BE5158}"));
    }
    return *effect;
}

inline constexpr int kFrames = 32;

/// One block of a square wave in mono at a low rate, where the delay lines that reset() clears are
/// short: nothing that a state may hold makes the output other than finite.
inline void processes(const VNK::HostedEffect& effect)
{
    auto& algorithm = *effect.algorithm();
    const auto mono = VNK::SpeakerArrangement::withChannels(1);
    const auto layout =
        algorithm.acceptsArrangement(mono, mono) ? mono : VNK::SpeakerArrangement::withChannels(2);
    VNK::EffectRunner runner(algorithm);
    static std::map<const void*, bool> prepared;
    if (std::exchange(prepared[&algorithm], true))
        algorithm.reset();
    else
        runner.prepare({layout, layout, VNK::Precision::Float, 8000, kFrames});
    float left[kFrames], right[kFrames];
    for (int i = 0; i < kFrames; ++i) left[i] = right[i] = i % 8 < 4 ? 0.5f : -0.5f;
    float* const channels[] = {left, right};
    runner.process<float>({channels, layout.channels}, {channels, layout.channels}, kFrames);
    for (const float y : left) require(std::isfinite(y), "the output is finite");
}

inline std::string savedState(const VNK::HostedEffect& effect)
{
    VNK::StringSink sink;
    require(effect.saveState(sink), "a state can be saved");
    return sink.text();
}

/// Loads a state or preset. What is refused leaves the effect alone and has a reason; what is
/// accepted leaves values within their ranges, comes back bit for bit, and processes.
inline void loadedOrUntouched(const VNK::HostedEffect& effect,
                              bool (VNK::HostedEffect::*load)(const void*, std::size_t) const,
                              std::string_view data)
{
    const auto before = savedState(effect);
    const bool isLoaded = (effect.*load)(data.data(), data.size());
    const std::string_view reason = effect.refusalReason();
    const auto after = savedState(effect);
    if (!isLoaded) {
        require(!reason.empty(), "a refusal has a reason");
        require(after == before, "a refusal changes nothing");
        return;
    }
    for (int i = 0; i < effect.countParameters(); ++i) {
        VNK::ParameterInfo p{};
        effect.getParameter(i, p);
        const float value = effect.getValue(i);
        if (p.isStored())
            require(value >= p.minimum && value <= p.maximum, "values are within their ranges");
        char text[64];
        effect.valueToText(i, value, text, sizeof text);
    }
    processes(effect);
    VNK::StringSink preset;
    const std::string name = effect.programName();
    require(effect.savePreset(name.c_str(), preset), "a preset can be saved");
    require(effect.loadState(after.data(), after.size()), "a saved state loads");
    require(*effect.refusalReason() == 0, "a saved state needs no mending");
    require(savedState(effect) == after, "a saved state comes back bit for bit");
    const auto back = [&] {
        const bool isBack = effect.selectSet(1 - effect.comparedSet()) &&
                            effect.selectSet(1 - effect.comparedSet());
        require(isBack, "sets can be switched");
        return savedState(effect);
    };
    const auto withBoth = back();
    require(back() == withBoth, "a set is as it was left");
    require(effect.loadState(after.data(), after.size()), "as before");
    // A song knows that its preset has been changed, which the preset does not.
    const bool isChanged = effect.isModified();
    require(effect.loadPreset(preset.text().data(), preset.text().size()), "a saved preset loads");
    require(*effect.refusalReason() == 0, "a saved preset needs no mending");
    require(isChanged || savedState(effect) == after, "a saved preset comes back bit for bit");
    require(effect.programName() == name, "a preset keeps its name");
}

}  // namespace quillworks::fuzz
