// SPDX-License-Identifier: ISC
// On, solo and mute of the bands of a multiband effect.
#pragma once

#include <algorithm>

#include "dsp/band_splitter.h"
#include "dsp/course.h"
#include "dsp/crossfade.h"

namespace quillworks {

/// What a band's gain G becomes: (1 + m o (G - 1)) h, m the mix, o 1 while the band is on, h 1
/// while it is heard: not muted and no other soloed, or soloed itself. o and h go linearly over 10
/// ms. (The bands add up to the phase of the dry signal, so mixing in the gains is mixing with it.)
template <typename T> class BandSwitches {
public:
    void prepare(double sampleRate) noexcept
    {
        for (auto& band : bands_)
            for (auto* s : {&band.on, &band.heard}) s->prepare(sampleRate, 0.01);
    }
    /// Takes the targets at once.
    void snap() noexcept
    {
        for (auto& band : bands_)
            for (auto* s : {&band.on, &band.heard}) s->snap();
    }
    /// The rows of the parameter table, for the bands in use.
    void target(const float* on, const float* solo, const float* mute, int bands) noexcept
    {
        const bool anySolo = std::any_of(solo, solo + bands, [](float s) { return s != 0; });
        for (int b = 0; b < bands; ++b) {
            bands_[b].on.target(on[b] != 0);
            bands_[b].heard.target(anySolo ? solo[b] != 0 : mute[b] == 0);
        }
    }
    bool isOn(int band) const noexcept { return bands_[band].on.present(); }
    /// Once per slice, before the bands.
    void next(GridSlice slice) noexcept
    {
        for (auto& band : bands_)
            for (auto* s : {&band.on, &band.heard}) s->next(slice);
    }
    /// Whether the band's samples stay as they are where its gain is 1.
    bool passes(int band) const noexcept
    {
        const auto& heard = bands_[band].heard;
        return heard.present() && !heard.isFading();
    }
    /// Gains of a slice, in place.
    void apply(int band, T* gain, const Course<T>& mix, GridSlice slice) const noexcept
    {
        const auto& [on, heard] = bands_[band];
        const int n = slice.frames;
        T share[kSubBlock];
        if (!on.isFading() && !on.present()) {
            vec::set(gain, T(1), n);
        } else if (on.isFading() || !mix.is(1)) {
            shares(on, share, n);
            vec::mulInplace(share, mix.of(slice), n);
            for (int i = 0; i < n; ++i) gain[i] = 1 + share[i] * (gain[i] - 1);
        }
        if (heard.isFading()) {
            shares(heard, share, n);
            vec::mulInplace(gain, share, n);
        } else if (!heard.present()) {
            vec::clear(gain, n);
        }
    }
    void advance(int n) noexcept
    {
        for (auto& band : bands_)
            for (auto* s : {&band.on, &band.heard}) s->advance(n);
    }

private:
    static void shares(const Switch<bool>& s, T* share, int n) noexcept
    {
        s.fade().weights(share, n);  // of what is present
        if (!s.present())
            for (int i = 0; i < n; ++i) share[i] = 1 - share[i];
    }

    struct Band {
        Switch<bool> on, heard;
    };
    Band bands_[kMaxBands];
};

}  // namespace quillworks
