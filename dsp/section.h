// SPDX-License-Identifier: ISC
// Second-order sections and one-poles in trapezoidal integration (Zavalishin, "The Art of VA Filter
// Design", 2012), written so that they keep their digits in single precision and stay stable
// however they are modulated.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/control_grid.h"

namespace quillworks {

inline constexpr double kButterworthQ = 0.70710678118654752;
/// Both sections of a fourth-order Butterworth filter.
inline constexpr double kButterworth4Q[2] = {0.54119610014619698, 1.30656296487637652};

/// Share of the sample rate that the pack's filters are limited to.
inline constexpr double kHighestCutOff = 0.45;

/// Warped frequency g = tan(pi f / fs) of the trapezoidal rule; f in Hz, limited to 0.45 fs.
inline double warpedFrequency(double frequency, double sampleRate) noexcept
{
    return std::tan(std::numbers::pi * std::min(frequency, kHighestCutOff * sampleRate) /
                    sampleRate);
}

/// What a section gives out: m0 x + m1 v1 + m2 v2, v1 its band-pass integrator (gain Q at the
/// corner), v2 its low-pass. k = 1/Q.
struct SectionOutput {
    double m0 = 1, m1 = 0, m2 = 0;

    static constexpr SectionOutput lowPass() noexcept { return {0, 0, 1}; }
    static constexpr SectionOutput highPass(double k) noexcept { return {1, -k, -1}; }
    /// Gain 1 at the corner.
    static constexpr SectionOutput bandPass(double k) noexcept { return {0, k, 0}; }
    static constexpr SectionOutput notch(double k) noexcept { return {1, -k, 0}; }
    static constexpr SectionOutput allPass(double k) noexcept { return {1, -2 * k, 0}; }
    /// The input and `share` of the way from it to this output.
    constexpr SectionOutput faded(double share) const noexcept
    {
        return {1 + (m0 - 1) * share, m1 * share, m2 * share};
    }
};

/// Coefficients of a section. A sample x changes the states by
///
///     z1' = z1 + (b1 (x - z2) - r z1),  z2' = z2 + (b1 z1 + b2 (x - z2)),
///
/// and the output is (c1 z1 + c2 z2) + d x. What is added to the states is small at low frequencies
/// and keeps all its digits. (With 1 - r as one coefficient its last digits would be lost: in
/// floats, at 384 kHz and 100 Hz, an error of -87 dB instead of -119.)
///
/// The matrix of the states is a Cayley transform of a dissipative one, so it never adds energy to
/// z1^2 + z2^2, and nor does a mean of two such: coefficients that run linearly from one set to
/// another are stable at any speed.
template <typename T> struct SectionCoefficients {
    T r = 0, b1 = 0, b2 = 0;
    T c1 = 0, c2 = 0, d = 1;

    /// g > 0 the warped frequency, k >= 0 the damping 1/Q.
    static SectionCoefficients of(double g, double k, const SectionOutput& out) noexcept
    {
        const double a1 = 1 / (1 + g * (g + k)), a2 = g * a1, a3 = g * a2;
        // v1 = a1 z1 + a2 (x - z2), v2 = z2 + a2 z1 + a3 (x - z2); z' = 2 v - z.
        return {T(2 * g * (g + k) * a1),
                T(2 * a2),
                T(2 * a3),
                T(out.m1 * a1 + out.m2 * a2),
                T(out.m2 * (1 - a3) - out.m1 * a2),
                T(out.m0 + out.m1 * a2 + out.m2 * a3)};
    }
    /// The kinds of SectionOutput at a corner in Hz, limited to 0.45 of the sample rate.
    static SectionCoefficients lowPass(double frequency, double q, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1 / q, SectionOutput::lowPass());
    }
    static SectionCoefficients highPass(double frequency, double q, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1 / q, SectionOutput::highPass(1 / q));
    }
    static SectionCoefficients bandPass(double frequency, double q, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1 / q, SectionOutput::bandPass(1 / q));
    }
    static SectionCoefficients notch(double frequency, double q, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1 / q, SectionOutput::notch(1 / q));
    }
    static SectionCoefficients allPass(double frequency, double q, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1 / q, SectionOutput::allPass(1 / q));
    }

    bool operator==(const SectionCoefficients&) const = default;
};

/// What one section remembers of one channel.
template <typename T> struct SectionState {
    T z1 = 0, z2 = 0;

    T next(const SectionCoefficients<T>& c, T x) noexcept
    {
        const T y = (c.c1 * z1 + c.c2 * z2) + c.d * x;
        const T u = x - z2;
        const T step1 = c.b1 * u - c.r * z1;
        z2 += c.b2 * u + c.b1 * z1;
        z1 += step1;
        return y;
    }
    void run(const SectionCoefficients<T>& c, T* x, int n) noexcept
    {
        SectionState s = *this;  // in registers
        for (int i = 0; i < n; ++i) x[i] = s.next(c, x[i]);
        *this = s;
    }
    void reset() noexcept { z1 = z2 = 0; }
    bool isFinite() const noexcept { return std::isfinite(z1) && std::isfinite(z2); }
};

/// Coefficients that move: laid out where a sub-block begins, they run linearly within it, counted
/// by the frame, so the division into calls does not matter.
template <typename T> class SectionRamp {
public:
    using Coefficients = SectionCoefficients<T>;

    /// Takes the coefficients at once.
    void snap(const Coefficients& c) noexcept
    {
        to_ = c;
        step_ = kStill;
        isMoving_ = false;
    }
    /// Where a sub-block begins: from the end of the last one to `to`.
    void follow(const Coefficients& to) noexcept
    {
        isMoving_ = !(to == to_);
        step_ = isMoving_ ? stepTo(to) : kStill;
        to_ = to;
    }
    bool isMoving() const noexcept { return isMoving_; }
    /// At the end of the sub-block.
    const Coefficients& end() const noexcept { return to_; }
    /// Change per frame.
    const Coefficients& step() const noexcept { return step_; }
    /// At a frame of the sub-block, 0 .. 31; the last is end() exactly.
    Coefficients at(int frame) const noexcept
    {
        const T left = T(kSubBlock - 1 - frame);
        return {to_.r - step_.r * left,   to_.b1 - step_.b1 * left, to_.b2 - step_.b2 * left,
                to_.c1 - step_.c1 * left, to_.c2 - step_.c2 * left, to_.d - step_.d * left};
    }
    /// One channel, in place; every channel with a state of its own.
    void run(SectionState<T>& state, T* x, GridSlice slice) const noexcept
    {
        if (!isMoving_) return state.run(to_, x, slice.frames);
        for (int i = 0; i < slice.frames; ++i) x[i] = state.next(at(slice.phase + i), x[i]);
    }

private:
    static constexpr Coefficients kStill{0, 0, 0, 0, 0, 0};

    Coefficients stepTo(const Coefficients& to) const noexcept
    {
        constexpr T share = T(1) / kSubBlock;
        return {(to.r - to_.r) * share,   (to.b1 - to_.b1) * share, (to.b2 - to_.b2) * share,
                (to.c1 - to_.c1) * share, (to.c2 - to_.c2) * share, (to.d - to_.d) * share};
    }

    Coefficients to_, step_ = kStill;
    bool isMoving_ = false;
};

/// Coefficients of a one-pole: with u = x - z the state moves by z' = z + b u, and the output is
/// (l z + h x): all of the low-pass and of the high-pass that the two weights ask for.
template <typename T> struct OnePoleCoefficients {
    T b = 0;
    T l = 0, h = 1;

    /// g > 0 the warped frequency; the output is `low` times the low-pass and `high` times the
    /// high-pass part, which add up to the input.
    static OnePoleCoefficients of(double g, double low, double high) noexcept
    {
        const double share = g / (1 + g);  // low-pass = z + share (x - z)
        return {T(2 * share), T((low - high) * (1 - share)), T(high + (low - high) * share)};
    }
    /// Corners in Hz, limited to 0.45 of the sample rate.
    static OnePoleCoefficients lowPass(double frequency, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1, 0);
    }
    static OnePoleCoefficients highPass(double frequency, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 0, 1);
    }
    static OnePoleCoefficients allPass(double frequency, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), 1, -1);
    }
    /// (A s/w + 1)/(s/(A w) + 1), A^2 = gain: gain 1 at 0 Hz, `gain` far above, its root at the
    /// frequency. gain > 0, linear.
    static OnePoleCoefficients highShelf(double frequency, double gain, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate) * std::sqrt(gain), 1, gain);
    }
    /// (s/w + A)/(s/w + 1/A), A^2 = gain: `gain` at 0 Hz, 1 far above.
    static OnePoleCoefficients lowShelf(double frequency, double gain, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate) / std::sqrt(gain), gain, 1);
    }
    /// `low` below the frequency and 1/low above it: low > 0, linear.
    static OnePoleCoefficients tilt(double frequency, double low, double sampleRate) noexcept
    {
        return of(warpedFrequency(frequency, sampleRate), low, 1 / low);
    }
};

/// What a one-pole remembers of one channel. Stable however its coefficients move.
template <typename T> struct OnePoleState {
    T z = 0;

    T next(const OnePoleCoefficients<T>& c, T x) noexcept
    {
        const T y = c.l * z + c.h * x;
        z += c.b * (x - z);
        return y;
    }
    void run(const OnePoleCoefficients<T>& c, T* x, int n) noexcept
    {
        OnePoleState s = *this;  // in registers
        for (int i = 0; i < n; ++i) x[i] = s.next(c, x[i]);
        *this = s;
    }
    void reset() noexcept { z = 0; }
};

}  // namespace quillworks
