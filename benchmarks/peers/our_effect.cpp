// SPDX-License-Identifier: ISC
#include "benchmarks/peers/contestant.h"

namespace quillworks::peers {
namespace {

class OurEffect final : public Contestant {
public:
    OurEffect(VNK::Ref<VNK::IEffectComponent> component, const Format& format)
        : Contestant(format), component_(std::move(component))
    {
        for (auto& channel : in_) inputs_.push_back(channel.data());
        for (auto& channel : out_) outputs_.push_back(channel.data());
        data_.inputs = inputs_.data();
        data_.outputs = outputs_.data();
        data_.inputChannels = data_.outputChannels = format.channels;
        data_.frames = format.block;
    }
    void run() noexcept override { component_->algorithm()->process(data_); }

private:
    VNK::Ref<VNK::IEffectComponent> component_;
    std::vector<const void*> inputs_;
    std::vector<void*> outputs_;
    VNK::ProcessData data_;
};

VNK::Ref<VNK::IEffectComponent> find(VNK::IClassFactory& factory, const std::string& name)
{
    for (int i = 0; i < factory.countClasses(); ++i)
        if (const auto* c = factory.getClass(i); name == c->name->text()) {
            const auto object = VNK::Ref<VNK::IObject>::adopt(factory.createInstance(c->classId));
            return VNK::queryInterface<VNK::IEffectComponent>(object.get());
        }
    return {};
}

}  // namespace

std::unique_ptr<Contestant> ourEffect(VNK::IClassFactory& factory, const std::string& name,
                                      const Settings& settings, const Format& format,
                                      std::string& reason)
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
    auto& algorithm = *component->algorithm();
    const auto layout = VNK::SpeakerArrangement::withChannels(format.channels);
    algorithm.setSpeakerArrangement(layout, layout);
    algorithm.setPrecision(VNK::Precision::Float);
    if (!algorithm.setSampleRate(format.block, format.sampleRate)) {
        reason = name + " does not run at this rate";
        return nullptr;
    }
    algorithm.reset();
    return std::make_unique<OurEffect>(std::move(component), format);
}

}  // namespace quillworks::peers
