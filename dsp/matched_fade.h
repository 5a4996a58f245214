// SPDX-License-Identifier: ISC
// A fade between two signals that keeps the level, however alike they are.
#pragma once

#include <algorithm>
#include <cmath>
#include <iterator>

#include "dsp/control_grid.h"
#include "dsp/crossfade.h"

namespace quillworks {

/// How alike two signals are. Summed in double and in an order that hangs on the frame alone, so
/// it has the same bits however the signals are divided.
class Likeness {
public:
    void reset() noexcept { *this = {}; }
    /// A slice of both, all channels counted together.
    template <typename T>
    void add(const T* const* a, const T* const* b, int channels, GridSlice slice) noexcept
    {
        double ab[kSubBlock]{}, aa[kSubBlock]{}, bb[kSubBlock]{};
        const int n = slice.frames;
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < n; ++i) {
                const double x = double(a[c][i]), y = double(b[c][i]);
                ab[i] += x * y;
                aa[i] += x * x;
                bb[i] += y * y;
            }
        // Several sums side by side: a chain of additions would take longer than the rest.
        for (int i = 0; i < n; ++i) {
            const int k = (slice.phase + i) % kSums;
            ab_[k] += ab[i];
            aa_[k] += aa[i];
            bb_[k] += bb[i];
        }
    }
    /// Correlation coefficient of all that was added, limited to 0..1; 0 of silence and of sums
    /// that are not finite. (With less than 0 a fade would have to lift its middle beyond all
    /// bounds: opposite signals cancel there.)
    double correlation() const noexcept
    {
        const double r = sum(ab_) / std::sqrt(sum(aa_) * sum(bb_) + 1e-20);
        return r > 0 ? std::min(r, 1.0) : 0;
    }

private:
    static constexpr int kSums = 8;

    static double sum(const double (&sums)[kSums]) noexcept
    {
        double total = 0;
        for (const double s : sums) total += s;
        return total;
    }

    double ab_[kSums]{}, aa_[kSums]{}, bb_[kSums]{};
};

/// The gains of a piece of a fade.
template <typename T> struct MatchedGains {
    int frames = 0;  // behind these only the new signal counts
    T old[kSubBlock], fresh[kSubBlock];

    /// `x`, the new signal over n frames, becomes the faded one.
    void mix(T* x, const T* before, int n) const noexcept
    {
        for (int i = 0; i < std::min(n, frames); ++i) x[i] = old[i] * before[i] + fresh[i] * x[i];
    }
};

/// When to fade from one signal to another, and how. A change begins where a sub-block begins; for
/// some sub-blocks the owner only listens how alike the two are; then the fade runs, and until some
/// time after its beginning no other change begins. The latest waits.
///
///     if (fade.next(slice, isAnythingWanted)) { takeTheTarget(); likeness.reset(); }
///     ...                                     // while it listens: old heard, both added to
///     likeness
///     ...                                     // while it fades: fade.gains<T>(correlation,
///     n).mix() fade.advance(slice.frames);
///
/// The weights follow s = u^2 (3 - 2u) and are scaled so that the power stays: linear gains lose
/// 3 dB of signals that have nothing in common, equal-power gains lift those that have much.
/// Source: Fink, Holters, Zoelzer, "Signal-matched power-complementary cross-fading and dry-wet
/// mixing", DAFx 2016.
class MatchedFade {
public:
    struct Design {
        double fade = 0.02;    // s
        double listen = 0.01;  // s, and 4 sub-blocks at least; 0: takes the signals for unlike
        double pause = 0.2;    // s from the beginning of a fade to the next change
    };

    void prepare(double sampleRate, const Design& design) noexcept
    {
        length_ = fadeFrames(sampleRate, design.fade);
        pause_ = static_cast<int>(design.pause * sampleRate + 0.5);
        const double subBlocks = design.listen * sampleRate / kSubBlock;
        toHear_ = subBlocks > 0 ? std::max(4, static_cast<int>(subBlocks + 0.5)) : 0;
        reset();
    }
    /// No change under way; the next one may begin at once.
    void reset() noexcept
    {
        left_ = 0;
        position_ = length_;
        sinceFade_ = pause_;
    }
    /// Once per slice, before the run. True where a change begins.
    bool next(GridSlice slice, bool isWanted) noexcept
    {
        if (!slice.begins()) return false;
        if (isListening()) {
            if (--left_ == 0) start();
            return false;
        }
        if (!isWanted || isFading() || sinceFade_ < pause_) return false;
        left_ = toHear_;
        if (left_ == 0) start();
        return true;
    }
    bool isListening() const noexcept { return left_ > 0; }
    bool isFading() const noexcept { return position_ < length_; }
    /// Frames of the fade alone.
    int length() const noexcept { return length_; }

    /// Gains of the next n <= 32 frames for signals of this correlation.
    template <typename T> MatchedGains<T> gains(double correlation, int n) const noexcept
    {
        MatchedGains<T> g;
        g.frames = std::clamp(length_ - position_ - 1, 0, n);  // the last has gains 0 and 1
        for (int i = 0; i < g.frames; ++i) {
            const double u = double(position_ + i + 1) / length_, s = u * u * (3 - 2 * u),
                         r = 1 - s;
            const double level = 1 / std::sqrt(r * r + s * s + 2 * s * r * correlation);
            g.old[i] = T(level * r);
            g.fresh[i] = T(level * s);
        }
        return g;
    }
    void advance(int n) noexcept
    {
        position_ += std::min(n, length_ - position_);
        sinceFade_ += std::min(n, pause_ - sinceFade_);
    }

private:
    void start() noexcept { position_ = sinceFade_ = 0; }

    int length_ = 1, position_ = 1;  // frames
    int pause_ = 0, sinceFade_ = 0;  // frames
    int toHear_ = 0, left_ = 0;      // sub-blocks
};

}  // namespace quillworks
