// SPDX-License-Identifier: ISC
// Dry/wet mixer: a smoothed fraction, three laws, and the dry signal's way past the effect.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

#include "dsp/course.h"
#include "dsp/delay_line.h"

namespace quillworks {

/// Gains of dry and wet for the fraction m. All laws copy the dry signal at 0 and the wet one at 1.
enum class MixLaw {
    Linear,      // 1 - m, m: for wet signals that are like the dry one
    Balance,     // min(1, 2 - 2 m), min(1, 2 m): both full in the middle, for echoes
    EqualPower,  // cos(pi m / 2), sin(pi m / 2): for wet signals unlike the dry one, as
                 // reverberation
};

/// m moves once per sub-block and the gains run linearly within it. They are laid out for the whole
/// sub-block, so the output has the same bits however the signal is divided.
///
///     mixer.next(part);
///     for (each channel c) dry[c] = mixer.keep(c, part[c], part.frames);
///     process(part);                                    // in place
///     for (each channel c) mixer.mix(part[c], dry[c], part);
template <typename T> class DryWet {
public:
    /// One-pole with the time constant `seconds`.
    void prepare(double sampleRate, double seconds) noexcept { mix_.prepare(sampleRate, seconds); }
    /// One-pole that covers half the way every `subBlocks`.
    void prepareHalfLife(double subBlocks) noexcept { mix_.prepareHalfLife(subBlocks); }
    /// Room for the dry signals that keep() takes, delayed by up to `longestDelay` samples.
    /// Allocates.
    void prepareDry(int channels, int longestDelay = 0)
    {
        dry_.resize(static_cast<std::size_t>(channels));
        for (auto& line : dry_) line.prepare(longestDelay, longestDelay);
    }
    /// Before the first sub-block, or while nothing is heard: the gains are not faded.
    void setLaw(MixLaw law) noexcept
    {
        law_ = law;
        laid_ = -1;
    }
    /// Samples that the dry signal is delayed by: the latency of what makes the wet one. A new
    /// delay begins with cleared lines, like the latency it stands for.
    void setDelay(int samples) noexcept
    {
        for (auto& line : dry_) {
            if (line.delay() == samples) continue;
            line.setDelay(samples);
            line.reset();
        }
    }

    /// Fraction wet, 0 .. 1.
    void target(T mix) noexcept
    {
        wanted_ = mix;
        updateTarget();
    }
    /// The wet signal alone, whatever the fraction: for an effect on a send.
    void setWetOnly(bool wetOnly) noexcept
    {
        wetOnly_ = wetOnly;
        updateTarget();
    }
    /// Takes the target at once and clears the dry signals.
    void reset() noexcept
    {
        mix_.snap();
        for (auto& line : dry_) line.reset();
    }

    /// Once per slice, before anything below.
    void next(GridSlice slice) noexcept
    {
        if (!slice.begins()) return;
        fraction_ = mix_.next(kWholeSubBlock);
        // Sines and cosines take as long as mixing a sub-block.
        if (fraction_.isConstant() && fraction_.to == laid_) return;
        laid_ = fraction_.isConstant() ? fraction_.to : T(-1);
        wetGain_.follow({wetGain(fraction_.from), wetGain(fraction_.to)});
        if (law_ != MixLaw::Linear)
            dryGain_.follow({wetGain(1 - fraction_.from), wetGain(1 - fraction_.to)});
    }
    /// Only the wet signal is heard in this sub-block: the dry one is not needed.
    bool isWet() const noexcept { return fraction_.from == 1 && fraction_.to == 1; }
    /// Only the dry signal is heard in this sub-block.
    bool isDry() const noexcept { return fraction_.from == 0 && fraction_.to == 0; }

    /// The channel's samples as dry signal, delayed: valid until its next call. With prepareDry();
    /// n <= kSubBlock. Null where neither a mix nor a delay needs it.
    const T* keep(int channel, const T* x, int n) noexcept
    {
        auto& line = dry_[static_cast<std::size_t>(channel)];
        if (isWet() && line.delay() == 0) return nullptr;
        return line.push(x, n);
    }

    /// The wet signal's gain over the slice, for those who mix by themselves while it is neither
    /// isWet() nor isDry(); by the law Linear the output is dry + (wet - dry) gain.
    const T* wetGains(GridSlice slice) const noexcept { return wetGain_.of(slice); }

    /// Mixes `dry` into `wet`, a channel's samples of the slice; m = 0 and m = 1 copy bit by bit.
    void mix(T* wet, const T* dry, GridSlice slice) const noexcept
    {
        const int n = slice.frames;
        if (isWet()) return;
        if (isDry()) return vec::copy(wet, dry, n);
        const T* const w = wetGain_.of(slice);
        if (law_ == MixLaw::Linear) {
            // One gain, on the difference: equal signals pass unchanged.
            vec::subInplace(wet, dry, n);
            vec::mulInplace(wet, w, n);
            vec::addInplace(wet, dry, n);
            return;
        }
        const T* const d = dryGain_.of(slice);
        for (int i = 0; i < n; ++i) wet[i] = d[i] * dry[i] + w[i] * wet[i];
    }

    /// The same the other way round: mixes `wet` into `dry`.
    void mixInto(T* dry, const T* wet, GridSlice slice) const noexcept
    {
        const int n = slice.frames;
        if (isDry()) return;
        if (isWet()) return vec::copy(dry, wet, n);
        const T* const w = wetGain_.of(slice);
        if (law_ == MixLaw::Linear) {
            for (int i = 0; i < n; ++i) dry[i] = (wet[i] - dry[i]) * w[i] + dry[i];
            return;
        }
        const T* const d = dryGain_.of(slice);
        for (int i = 0; i < n; ++i) dry[i] = d[i] * dry[i] + w[i] * wet[i];
    }

private:
    void updateTarget() noexcept { mix_.target(wetOnly_ ? T(1) : wanted_); }

    /// All laws are symmetric: the dry gain is the wet one of 1 - m.
    T wetGain(T m) const noexcept
    {
        if (law_ == MixLaw::Balance) return std::min(T(1), 2 * m);
        // Beyond the middle by the cosine, which is exactly 1 at m = 1.
        if (law_ == MixLaw::EqualPower) {
            constexpr T quarter = std::numbers::pi_v<T> / 2;
            return m <= T(0.5) ? std::sin(quarter * m) : std::cos(quarter * (1 - m));
        }
        return m;
    }

    Smoothed<T> mix_;
    T wanted_ = 1;
    bool wetOnly_ = false;
    MixLaw law_ = MixLaw::Linear;
    Ramp<T> fraction_{1, 1};
    T laid_ = -1;  // the fraction that the gains stand for throughout a sub-block; -1: for none
    Course<T> wetGain_, dryGain_;
    std::vector<DelayLine<T>> dry_;
};

}  // namespace quillworks
