// SPDX-License-Identifier: ISC
// Saturation: a diode limiter with one capacitor, table-driven.
#pragma once
#include <array>

namespace quillworks {

/// dv/dt = wc (x - v - f(v)), f(v) = 0.02 sinh(v / 0.25), wc at 16 kHz: a source, a resistor, and
/// to ground a capacitor between two opposite diodes, as a nonlinear state space of order 1 by the
/// trapezoidal rule (Yeh, Abel and Smith, "Simplified, physically-informed models of distortion and
/// overdrive guitar effects pedals", 2007; Borin, De Poli and Rocchesso, "Elimination of delay-free
/// loops in discrete-time models of nonlinear acoustic systems", 2000). The circuit is passive and
/// the rule keeps it so (Fettweis, "Wave digital filters", 1986): at no level does the stage add
/// gain to a loop.
class DiodeCircuit {
public:
    /// Solves the diode equation for the whole range. [main thread]
    void prepare(double sampleRate);

    /// The next output for input x; `state` is the capacitor's. Unity gain for small signals.
    float next(float& state, float x) const noexcept
    {
        const float p = state + input_ * x;
        const float magnitude = p < 0 ? -p : p;
        const float at = magnitude * scale_;
        const float place = at < kLast ? at : kLast;
        const auto i = static_cast<unsigned>(static_cast<int>(place));
        const float v = voltage_[i] + (place - static_cast<float>(i)) * slope_[i];
        const float out = p < 0 ? -v : v;
        state = 2 * out - state;
        return kGain * out;
    }
    /// The state that makes a steady small input x a steady output.
    static float stateFor(float x) noexcept { return x / kGain; }

private:
    static constexpr int kPoints = 4097;
    static constexpr float kLast = kPoints - 1.001f;
    static constexpr float kGain = 1.08f;  // 1 + f'(0): undoes the diodes' loss on small signals

    float input_ = 0;  // a = tan(pi fc / fs)
    float scale_ = 0;  // table steps per unit of p
    std::array<float, kPoints> voltage_{}, slope_{};
};

}  // namespace quillworks
