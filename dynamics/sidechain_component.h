// SPDX-License-Identifier: ISC
// Component of an effect with a filtered side-chain, a button that exchanges the filter's two
// frequencies, and a switch for the look-ahead.
#pragma once

#include <atomic>

#include "framework/effect_component.h"

namespace quillworks {

/// Keys of the parameters that it looks after, beside "swapfreqs".
struct SidechainKeys {
    const char* lowCut;
    const char* highCut;
    const char* lookAhead;
};

/// The button "swapfreqs" is a press and a lamp: setting it exchanges the frequencies unless it
/// already shows what they are, and it lights while the high-cut lies below the low-cut. What is
/// stored are the frequencies.
class SidechainComponent : public AudioEffectComponent {
protected:
    SidechainComponent(AudioEffectAlgorithm& algorithm, EffectTraits traits,
                       const SidechainKeys& keys);

    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void reconcile() noexcept override { showLamp(Setter::Host); }
    /// 2 ms while the look-ahead is on.
    Delays delays(double sampleRate) const noexcept override;

private:
    bool isSwapped() const noexcept { return getValue(highCut_) < getValue(lowCut_); }
    void showLamp(Setter by) noexcept;

    int lowCut_, highCut_, swap_, lookAhead_;
    std::atomic<bool> isExchanging_{
        false};  // half-way the two are equal, and the lamp would go out
};

}  // namespace quillworks
