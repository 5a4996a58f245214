// SPDX-License-Identifier: ISC
// THE table: one row per class, in the order hosts list them.
#include "module/class_registry.h"

#include <array>
#include <utility>

#include "analysis/level_meter.h"
#include "analysis/phase_meter.h"
#include "analysis/scope.h"
#include "analysis/spectrum_meter.h"
#include "analysis/tone_generator.h"
#include "delay/analog_delay.h"
#include "delay/beat_delay.h"
#include "delay/groove_delay.h"
#include "delay/surround_delay.h"
#include "distortion/bitcrusher.h"
#include "distortion/ember_dist.h"
#include "distortion/multiband_distortion.h"
#include "distortion/overdrive.h"
#include "dynamics/bandpress.h"
#include "dynamics/channel_strip.h"
#include "dynamics/compressor.h"
#include "dynamics/expander.h"
#include "dynamics/gate.h"
#include "dynamics/limiter.h"
#include "dynamics/multiband_dynamics.h"
#include "mixing/binaural_pan.h"
#include "mixing/dual_pan.h"
#include "mixing/mixtool.h"
#include "mixing/surround_panner.h"
#include "modulation/autofilter.h"
#include "modulation/chorus.h"
#include "modulation/flanger.h"
#include "modulation/phaser.h"
#include "modulation/wobbla.h"
#include "module/trial_classes.h"
#include "reverb/ir_maker.h"
#include "reverb/room_reverb.h"
#include "reverb/swellroom.h"
#include "reverb/vaulter.h"

namespace quillworks {
namespace {

/// Builds the algorithm and then the component around it; no object rather than an exception.
template <class Component, class Algorithm>
VNK::IObject* create(const VNK::ClassDescription& description) noexcept
{
    try {
        const auto algorithm = VNK::Ref<Algorithm>::adopt(new Algorithm);
        auto component = VNK::Ref<Component>::adopt(new Component(*algorithm));
        component->identify(description.classId, description.name->text());
        return static_cast<VNK::IEffectComponent*>(component.detach());
    } catch (...) {
        return nullptr;
    }
}

constexpr VNK::ClassAttribute kVaulterAttributes[] = {
    {"browserTags", "Convolution;Algorithmic"},
    {"acceptsFileDrop", nullptr, 1},
    {"fileTypes", "wav;aif;aiff;flac"},
    {"longTail", nullptr, 1},
};
constexpr VNK::ClassAttribute kScopeAttributes[] = {
    {"browserTags", "Oscilloscope;Test"},
    {"displayOnly", nullptr, 1},
};

struct ClassRow {
    VNK::UID classId;  // stored in songs and presets: never change
    const char* category;
    const char* name;
    const char* subCategory;
    VNK::CreateFunction create;
    std::span<const VNK::ClassAttribute> attributes = {};
};

consteval VNK::UID id(std::string_view text)
{
    return VNK::UID::constant(text);
}

// clang-format off
constexpr ClassRow kOffered[] = {
    {id("{DC1589F8-DE0A-4F60-BBA2-C74740FA14B8}"), "AudioEffect", "Channel Strip", "Mixing", create<SimpleStripComponent, SimpleStripAlgorithm>},
    {id("{450B506D-EB47-44BD-90C3-6E870AD65083}"), "AudioEffect", "Mixtool", "Tool", create<MixToolComponent, MixToolAlgorithm>},
    {id("{85F86292-037A-400E-8C2B-FBB2F8357FC2}"), "AudioEffect", "Binaural Pan", "Mixing", create<PanToolComponent, PanToolAlgorithm>},
    {id("{A27818F7-B56B-4C09-93D7-B3230BF603C7}"), "AudioEffect", "Dual Pan", "Mixing", create<DualPanComponent, DualPanAlgorithm>},
    {id("{F5E10250-E10F-4447-AC90-5B8001BE5158}"), "AudioEffect", "Compressor", "Dynamics", create<CompressorComponent, CompressorAlgorithm>},
    {id("{A43CCA38-0C54-4319-8520-B493A4A7AA6F}"), "AudioEffect", "Limiter", "Dynamics", create<LimiterComponent, LimiterAlgorithm>},
    {id("{18BFCE9E-DDD0-4F49-A901-063FE2AAB1DB}"), "AudioEffect", "Expander", "Dynamics", create<ExpanderComponent, ExpanderAlgorithm>},
    {id("{898C8F7E-331F-4786-B8D4-69F301857F11}"), "AudioEffect", "Gate", "Dynamics", create<GateXComponent, GateXAlgorithm>},
    {id("{34482E73-6C17-4E96-8FD3-E479254C4E87}"), "AudioEffect", "Bandpress", "Dynamics", create<TriBandComponent, TriBandCompressorAlgorithm>},
    {id("{73111A30-CCA3-4A7B-ACBD-AC55F8F4DE0F}"), "AudioEffect", "Multiband Dynamics", "Dynamics", create<MultiBandComponent, MultiBandCompressorAlgorithm>},
    {id("{156A2B4D-6A63-4F25-88F9-235FE7E6976C}"), "AudioEffect", "EmberDist", "Distortion", create<SimpleDistComponent, SimpleDistAlgorithm>},
    {id("{1AA50082-B92A-495E-8373-1C0BCE8E037D}"), "AudioEffect", "Bitcrusher", "Distortion", create<BitcrusherComponent, BitcrusherAlgorithm>},
    {id("{FBB41E8F-816C-45FA-85DF-E52F6F6DB33F}"), "AudioEffect", "Phaser", "Modulation", create<PhaserComponent, PhaserAlgorithm>},
    {id("{BB4D25AB-4073-48AA-AC2F-FA279457AE9F}"), "AudioEffect", "Flanger", "Modulation", create<FlangerComponent, FlangerAlgorithm>},
    {id("{97735FAF-2751-49A8-8729-AD0BF0CB19C1}"), "AudioEffect", "Chorus", "Modulation", create<ChorusComponent, ChorusAlgorithm>},
    {id("{7DE79E39-B062-4110-AECC-4417B332412C}"), "AudioEffect", "Wobbla", "Modulation", create<SuperTremComponent, SuperTremAlgorithm>},
    {id("{2612A242-085F-4BC6-8384-968BCDD42509}"), "AudioEffect", "Autofilter", "Modulation", create<AutoFilterComponent, AutoFilterAlgorithm>},
    {id("{4E70C6B1-A46F-425B-9CD9-70CF64B27A48}"), "AudioEffect", "Beat Delay", "Delay", create<BeatDelayComponent, BeatDelayAlgorithm>},
    {id("{CF5D839B-CF1D-43F0-88F7-7F6A7A758C30}"), "AudioEffect", "Groove Delay", "Delay", create<RhythmDelayComponent, RhythmDelayAlgorithm>},
    {id("{71FA8D9F-7679-460D-AA19-820806AE26FD}"), "AudioEffect", "Surround Delay", "Delay", create<SurroundDelayComponent, SurroundDelayAlgorithm>},
    {id("{51F3ADC5-911D-4885-8CE5-A7CD1709754D}"), "AudioEffect", "Analog Delay", "Delay", create<AnalogDelayComponent, AnalogDelayAlgorithm>},
    {id("{D29EC731-C2ED-45EE-930E-A966F9D6C9E5}"), "AudioEffect", "Room Reverb", "Reverb", create<ReverbComponent, ReverbAlgorithm>},
    {id("{15EF9C1B-A608-4261-8CD5-EF9C6E9B1AA3}"), "AudioEffect", "Swellroom", "Reverb", create<SwellroomComponent, SwellroomAlgorithm>},
    {id("{2FA96B02-C629-4CBD-AC79-E87349F2300E}"), "AudioEffect", "Vaulter", "Reverb", create<FDNReverbComponent, FDNReverbAlgorithm>, kVaulterAttributes},
    {id("{4FC926A6-84FC-40BC-8A88-12EBDC45FCA0}"), "AudioEffect", "IR Maker", "Tool", create<IrMakerComponent, IrMakerAlgorithm>},
    {id("{68E72AD5-BAD9-436C-8B5E-739637B59D35}"), "AudioEffect", "Spectrum Meter", "Analysis", create<SpectrumMeterComponent, SpectrumMeterAlgorithm>},
    {id("{6F823189-B3F1-46AE-8BFC-E2BE89701D7C}"), "AudioEffect", "Phase Meter", "Analysis", create<PhaseMeterComponent, PhaseMeterAlgorithm>},
    {id("{1B856086-1421-48D3-9226-78734AF5F251}"), "AudioEffect", "Level Meter", "Analysis", create<LevelMeterComponent, LevelMeterAlgorithm>},
    {id("{EE02426F-7FAF-4702-868C-36672B4BB6B4}"), "AudioEffect", "Scope", "Analysis", create<TestScopeComponent, TestScopeAlgorithm>, kScopeAttributes},
    {id("{2C077583-3E6A-4441-94B4-A4B15A5F8E20}"), "AudioEffect", "Tone Generator", "Tool", create<SignalGeneratorComponent, SignalGeneratorAlgorithm>},
    {id("{A8B1590B-9E41-4F36-AD08-EA04A7453AD0}"), "AudioPanner", "Surround Panner", "Spatial", create<SurroundPanComponent, SurroundPanAlgorithm>},
};

/// Exist and stay buildable, but no host sees them.
constexpr ClassRow kWithheld[] = {
    {id("{29D0D80A-EC9A-420E-99BC-E5A8250B24EA}"), "AudioEffect", "Overdrive", "Distortion", create<OverdriveComponent, OverdriveAlgorithm>},
    {id("{46966E76-9FB2-47CC-B52A-7C5791F13971}"), "AudioEffect", "Multiband Distortion", "Distortion", create<MultiDistComponent, MultiDistAlgorithm>},
};
// clang-format on

constexpr std::size_t kCount = std::size(kOffered) + std::size(kWithheld);

constexpr const ClassRow& rowAt(std::size_t i)
{
    return i < std::size(kOffered) ? kOffered[i] : kWithheld[i - std::size(kOffered)];
}

/// The records that the factory keeps by reference, built before the host calls in.
std::array<VNK::ClassDescription, kCount> buildDescriptions()
{
    std::array<VNK::ClassDescription, kCount> all;
    for (std::size_t i = 0; i < kCount; ++i) {
        const auto& row = rowAt(i);
        auto& d = all[i];
        d.classId = row.classId;
        d.category = VNKGetConstantString(row.category);
        d.name = VNKGetConstantString(row.name);
        d.subCategory = VNKGetConstantString(row.subCategory);
        d.description = VNKGetEmptyString();
    }
    return all;
}

const std::array<VNK::ClassDescription, kCount> kDescriptions = buildDescriptions();

}  // namespace

bool registerClasses(VNK::IClassFactory& factory) noexcept
{
    for (std::size_t i = 0; i < std::size(kOffered); ++i) {
        const auto& row = kOffered[i];
        if (!factory.registerClass(kDescriptions[i], row.create, row.attributes.data(),
                                   static_cast<std::int32_t>(row.attributes.size())))
            return false;
    }
    return true;
}

VNK::IObject* createEffect(std::string_view name) noexcept
{
    for (std::size_t i = 0; i < kCount; ++i)
        if (name == rowAt(i).name) return rowAt(i).create(kDescriptions[i]);
    return nullptr;
}

}  // namespace quillworks
