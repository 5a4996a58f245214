// SPDX-License-Identifier: ISC
// Component of an effect whose side-chain filter has a button that exchanges its two frequencies.
#pragma once

#include "framework/effect_component.h"

namespace quillworks {

/// The button "swapfreqs" is a press and a lamp: setting it exchanges the frequencies unless it
/// already shows what they are, and it lights while the high-cut lies below the low-cut.
class SwapComponent : public AudioEffectComponent {
protected:
    SwapComponent(AudioEffectAlgorithm& algorithm, EffectTraits traits, const char* lowCutKey,
                  const char* highCutKey)
        : AudioEffectComponent(algorithm, std::move(traits)),
          lowCut_(list().find(lowCutKey)),
          highCut_(list().find(highCutKey)),
          swap_(list().find("swapfreqs"))
    {}

    void changed(const AlgorithmParameter& parameter, float) noexcept override
    {
        if (isFollowing_) return;
        isFollowing_ = true;
        const float low = getValue(lowCut_), high = getValue(highCut_);
        const bool isSwapped = high < low;
        if (parameter.tag == tagOf(swap_)) {
            if ((getValue(swap_) != 0) != isSwapped) {
                setAt(lowCut_, high);
                setAt(highCut_, low);
                show(low < high);
            }
        } else if (parameter.tag == tagOf(lowCut_) || parameter.tag == tagOf(highCut_)) {
            show(isSwapped);
        }
        isFollowing_ = false;
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

private:
    Tag tagOf(int index) const noexcept
    {
        return list().parameters()[static_cast<std::size_t>(index)].tag;
    }
    void show(bool isSwapped) noexcept
    {
        const float lamp = isSwapped ? 1.0f : 0.0f;
        if (getValue(swap_) != lamp) setAt(swap_, lamp);
    }

    int lowCut_, highCut_, swap_;
    bool isFollowing_ = false;
};

}  // namespace quillworks
