// SPDX-License-Identifier: ISC
// Reduction that follows peaks without a ripple: rises with an attack, holds, falls with a release.
#pragma once

#include <vector>

#include "dsp/control_grid.h"

namespace quillworks {

/// Smooth decoupled detector in the gain domain after Giannoulis, Massberg and Reiss (2012), with a
/// hold: per sample, r >= 0 the reduction in dB that a curve asks for, u the body, v the result,
///
///     r > max(u - 0.05, 0):  u = max(u, r), and the hold begins anew;
///     else, while it lasts:  u stays;
///     else:                  u = r + cr (u - r), and u = 0 where r = 0 and u <= 0.05;
///     v = u + ca (v - u), and v = 0 where u = 0 and v < 1e-6,
///
/// cr and ca the coefficients of release and attack (followerCoefficient). A hold of half a period
/// of the lowest tone keeps u still under a steady tone, however short the release: no ripple, no
/// distortion. Both ends are met, so that a gain becomes exactly 1 again.
///
/// For any number of keys at once, in the lanes of vectors, in double: at long releases a step is
/// smaller than a float's rounding. The same bits however the signal is divided.
class PeakHold {
public:
    /// Detectors at rest. Allocates.
    void prepare(int keys);
    /// No reduction, nothing held.
    void reset() noexcept;
    int keys() const noexcept { return keys_; }

    /// Frames of the hold for tones down to an octave below `lowest`, in Hz: 1/lowest, at most
    /// 12.5 ms. (The octave: tones from below an edge leak through its filter, at their own
    /// period.) 0: no lower edge.
    static int holdFrames(double sampleRate, double lowest) noexcept;
    /// Coefficients per sample, and frames of the hold, at least 1.
    void setTimes(int key, double attack, double release, int hold) noexcept;

    /// In place, from asked to given reductions: key k has the row x + k kSubBlock, of which the
    /// first n samples count and all may be written. Returns true if all are 0 and nothing moves.
    template <typename T> bool run(T* x, int n) noexcept;

    /// What one detector has reached, both in dB.
    struct Reached {
        double body = 0;    // u
        double result = 0;  // v
    };
    Reached reached(int key) const noexcept;
    /// Goes on from there, for a detector that takes over from others.
    void takeOver(int key, const Reached& from) noexcept;

private:
    double* row(int i) noexcept { return lanes_.data() + i * stride_; }
    const double* row(int i) const noexcept { return lanes_.data() + i * stride_; }

    int keys_ = 0, stride_ = 0;
    bool isIdle_ = true;
    std::vector<double> lanes_;  // rows: release, attack, hold, u, v, frames left of the hold
};

}  // namespace quillworks
