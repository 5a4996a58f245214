// SPDX-License-Identifier: ISC
// Component of an effect whose side-chain filter has a button that exchanges its two frequencies.
#pragma once

#include "framework/effect_component.h"

namespace quillworks {

/// The button "swapfreqs" is a press and a lamp: setting it exchanges the frequencies unless it
/// already shows what they are, and it lights while the high-cut lies below the low-cut.
class SwapComponent : public AudioEffectComponent {
protected:
    template <class S, std::size_t N>
    SwapComponent(AudioEffectAlgorithm& algorithm, const Parameter<S> (&rows)[N],
                  EffectTraits traits, const char* lowCutKey, const char* highCutKey)
        : AudioEffectComponent(algorithm, rows, std::move(traits)),
          lowCut_(list().find(lowCutKey)),
          highCut_(list().find(highCutKey)),
          swap_(list().find("swapfreqs"))
    {}

    void changed(const AlgorithmParameter& parameter, float) noexcept override
    {
        if (parameter.tag == tagOf(lowCut_) || parameter.tag == tagOf(highCut_)) return light();
        if (parameter.tag != tagOf(swap_) || isLit() == isSwapped()) return;
        const float low = getValue(lowCut_), high = getValue(highCut_);
        showAt(lowCut_, high);
        showAt(highCut_, low);
        light();
    }

    /// What is stored are the frequencies; the lamp follows them.
    void migrate(StoredState& state) const override
    {
        const auto stored = [&](int index) {
            const auto& p = list().parameters()[static_cast<std::size_t>(index)];
            const float* const value = state.find(p.key);
            return value ? p.limited(*value) : p.defaultValue;
        };
        const float low = stored(lowCut_), high = stored(highCut_);
        if (low != high) state.set("swapfreqs", high < low ? 1.0f : 0.0f);
    }

    void reconcile() noexcept override
    {
        if (getValue(lowCut_) != getValue(highCut_)) light();
    }

private:
    Tag tagOf(int index) const noexcept
    {
        return list().parameters()[static_cast<std::size_t>(index)].tag;
    }
    bool isLit() const noexcept { return getValue(swap_) != 0; }
    bool isSwapped() const noexcept { return getValue(highCut_) < getValue(lowCut_); }
    /// Until they agree: the other thread may set a frequency meanwhile.
    void light() noexcept
    {
        while (isLit() != isSwapped()) showAt(swap_, isSwapped() ? 1.0f : 0.0f);
    }

    int lowCut_, highCut_, swap_;
};

}  // namespace quillworks
