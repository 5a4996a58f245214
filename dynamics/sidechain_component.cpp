// SPDX-License-Identifier: ISC
#include "dynamics/sidechain_component.h"

#include "dynamics/lookahead.h"

namespace quillworks {

SidechainComponent::SidechainComponent(AudioEffectAlgorithm& algorithm, EffectTraits traits,
                                       const SidechainKeys& keys)
    : AudioEffectComponent(algorithm, std::move(traits)),
      lowCut_(list().find(keys.lowCut)),
      highCut_(list().find(keys.highCut)),
      swap_(list().find("swapfreqs")),
      lookAhead_(list().find(keys.lookAhead))
{}

void SidechainComponent::changed(const AlgorithmParameter& parameter, float, Setter by) noexcept
{
    const int index = list().findTag(parameter.tag);
    if (index == swap_ && (getValue(swap_) != 0) != isSwapped()) {
        const float low = getValue(lowCut_), high = getValue(highCut_);
        isExchanging_ = true;
        setAt(lowCut_, high, by);
        setAt(highCut_, low, by);
        isExchanging_ = false;
    }
    if (isExchanging_) return;
    if (index == swap_ || index == lowCut_ || index == highCut_) showLamp(by);
}

void SidechainComponent::showLamp(Setter by) noexcept
{
    const float lamp = isSwapped() ? 1.0f : 0.0f;
    if (getValue(swap_) != lamp) setAt(swap_, lamp, by);
}

Delays SidechainComponent::delays(double sampleRate) const noexcept
{
    const auto frames =
        static_cast<std::uint32_t>(getValue(lookAhead_) != 0 ? lookAheadFrames(sampleRate) : 0);
    return {.latency = frames, .tail = frames};
}

}  // namespace quillworks
