// SPDX-License-Identifier: ISC
// Reductions that follow the extremes of a level without a ripple: one side at once or by the
// attack, a hold, the other side by the release.
#pragma once

#include <vector>

#include "dsp/control_grid.h"

namespace quillworks {

/// Detectors side by side in the lanes of vectors, one per key; in double, for at long releases a
/// step is smaller than a float's rounding. The same bits however the signal is divided.
class KeyDetectors {
public:
    /// How many of the keys prepared for are in use; reset() follows.
    void use(int keys) noexcept { keys_ = keys; }
    int keys() const noexcept { return keys_; }

    /// Frames of the hold for tones down to an octave below `lowest`, in Hz: 1/lowest, at most
    /// 12.5 ms. (The octave: tones from below an edge leak through its filter, at their own
    /// period.) 0: no lower edge.
    static int holdFrames(double sampleRate, double lowest) noexcept;
    /// Coefficients per sample (followerCoefficient), and frames of the hold, at least 1.
    void setTimes(int key, double attack, double release, int hold) noexcept;

    /// What one detector has reached, both in dB.
    struct Reached {
        double body = 0;    // u
        double result = 0;  // v
    };
    Reached reached(int key) const noexcept;
    /// A detector that replaces another goes on from there.
    void takeOver(int key, const Reached& from) noexcept;
    /// All do: key k from the largest that the keys k mod `bands` of `before` have reached.
    void takeOver(const KeyDetectors& before, int bands) noexcept;

protected:
    enum Row { Release, Attack, Hold, Body, Result, Left, kRows };

    void prepare(int keys, int rows);
    void rest() noexcept;
    double* row(int i) noexcept { return lanes_.data() + i * stride_; }
    const double* row(int i) const noexcept { return lanes_.data() + i * stride_; }

    int keys_ = 0, stride_ = 0;
    bool isIdle_ = true;  // u and v are 0
    std::vector<double> lanes_;
};

/// For what rises above a threshold. Smooth decoupled detector in the gain domain after
/// Giannoulis, Massberg and Reiss (2012), with a hold: per sample, r >= 0 the reduction in dB that
/// a curve asks for, u the body, v the result,
///
///     r > max(u - 0.05, 0):  u = max(u, r), and the hold begins anew;
///     else, while it lasts:  u stays;
///     else:                  u = r + cr (u - r), and u = 0 where r = 0 and u <= 0.05;
///     v = u + ca (v - u), and v = 0 where u = 0 and v < 1e-6,
///
/// cr and ca the coefficients of release and attack. A hold of half a period of the lowest tone
/// keeps u still under a steady tone, however short the release: no ripple, no distortion. Both
/// ends are met, so that a gain becomes exactly 1 again.
class PeakHold : public KeyDetectors {
public:
    /// Detectors at rest. Allocates.
    void prepare(int keys);
    /// No reduction, nothing held.
    void reset() noexcept { rest(); }
    /// In place, from asked to given reductions: key k has the row x + k kSubBlock, of which the
    /// first n samples count and all may be written. Returns true if all are 0 and nothing moves.
    template <typename T> bool run(T* x, int n) noexcept;
};

/// The mirror image, for what falls below a threshold: q >= 0 asks for more the lower the level is,
/// and is largest at every zero crossing, so the body follows the smallest q at once and rises late
/// towards h, the smallest q of the last hold (of a stretch of a quarter of it that is under way,
/// and of the four before):
///
///     q < u:         u = q;
///     h > u + 0.05:  u = h + cr (u - h);
///     v as above.
class TroughHold : public KeyDetectors {
public:
    void prepare(int keys);
    /// Nothing asked for so far.
    void reset() noexcept;
    void setTimes(int key, double attack, double release, int hold) noexcept;
    /// As of PeakHold, but it does not look out for rest.
    template <typename T> void run(T* x, int n) noexcept;
    /// Whether it has come to rest.
    bool isIdle() const noexcept { return isIdle_; }
};

}  // namespace quillworks
