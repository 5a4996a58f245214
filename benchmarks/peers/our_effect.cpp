// SPDX-License-Identifier: ISC
#include "benchmarks/peers/contestant.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace quillworks::peers {
namespace {

class OurEffect final : public Contestant {
public:
    OurEffect(VNK::HostedEffect component, const VNK::EffectRunner& runner, const Format& format,
              Buffers& buffers)
        : component_(std::move(component)),
          runner_(runner),
          frames_(format.block),
          inputs_(buffers.in, format.channels),
          outputs_(buffers.out, format.channels)
    {}
    void run() noexcept override { runner_.process<float>(inputs_, outputs_, frames_); }

private:
    VNK::HostedEffect component_;
    VNK::EffectRunner runner_;
    int frames_;
    VNK::ChannelPointers<const float> inputs_;
    VNK::ChannelPointers<float> outputs_;
};

VNK::HostedEffect find(VNK::IClassFactory& factory, const std::string& name)
{
    for (int i = 0; i < factory.countClasses(); ++i)
        if (const auto* c = factory.getClass(i); name == c->name->text())
            return VNK::HostedEffect::create(factory, c->classId);
    return {};
}

}  // namespace

std::unique_ptr<Contestant> ourEffect(VNK::IClassFactory& factory, const std::string& name,
                                      const Settings& settings, const Format& format,
                                      Buffers& buffers, std::string& reason)
{
    auto component = find(factory, name);
    std::int64_t passThrough = 0;
    if (!component)
        reason = "the module has no effect " + name;
    else if (component->getInteger("passThrough", passThrough) && passThrough)
        reason = name + " does not process yet";
    if (!reason.empty()) return nullptr;

    for (const auto& [key, value] : settings) {
        const int i = component->findParameter(key.c_str());
        if (i < 0 || !component->setValue(i, value) || component->getValue(i) != value) {
            reason = name + " does not take " + key + " = " + std::to_string(value);
            return nullptr;
        }
    }
    VNK::EffectRunner runner(*component->algorithm());
    const auto layout = VNK::SpeakerArrangement::withChannels(format.channels);
    if (!runner.prepare(
            {layout, layout, VNK::Precision::Float, double(format.sampleRate), format.block})) {
        reason = name + " does not run at this rate";
        return nullptr;
    }
    return std::make_unique<OurEffect>(std::move(component), runner, format, buffers);
}

}  // namespace quillworks::peers
