// SPDX-License-Identifier: ISC
// The pack as plug-in formats see it: every class of the factory with the layouts it is offered in.
#pragma once

#include <string>
#include <vector>

#include "vnk/class_factory.h"
#include "vnk/hosted_effect.h"
#include "vnk/speaker_arrangement.h"

namespace quillworks::adapters {

/// A pair of main input and output.
struct Layout {
    std::string name;   // "stereo", or "mono-5.1" where the sides differ
    std::string title;  // "Stereo", "Mono to 5.1"
    VNK::SpeakerArrangement input, output;

    bool isPair() const { return !(input == output); }
};

/// The side-chain bus beside a main output: at most two channels.
VNK::SpeakerArrangement sideChainOf(const VNK::SpeakerArrangement& output) noexcept;

/// The layouts that an effect is offered in where formats fix them, the usual one first. The effect
/// is left in the last one.
std::vector<Layout> layoutsOf(const VNK::HostedEffect& effect);

struct OfferedEffect {
    const VNK::ClassDescription* description = nullptr;
    std::string fileName;  // "analog-delay"
    std::string kind;      // what it is within its sub-category ("compressor"), or empty
    bool hasSideChain = false;
    std::vector<Layout> layouts;  // at least one
};

/// Loads the module this binary carries, as a host would. [main thread]
class Catalogue {
public:
    /// Empty where the module does not load; it has said why as a debug message.
    Catalogue();
    ~Catalogue();
    Catalogue(const Catalogue&) = delete;
    Catalogue& operator=(const Catalogue&) = delete;

    const std::vector<OfferedEffect>& effects() const noexcept { return effects_; }
    VNK::IClassFactory& factory() const noexcept { return *factory_; }
    /// A new effect, not prepared yet; empty without memory.
    VNK::HostedEffect create(const OfferedEffect& effect) const noexcept
    {
        return VNK::HostedEffect::create(*factory_, effect.description->classId);
    }

private:
    bool loaded_ = false;
    VNK::Ref<VNK::IClassFactory> factory_;
    std::vector<OfferedEffect> effects_;
};

}  // namespace quillworks::adapters
