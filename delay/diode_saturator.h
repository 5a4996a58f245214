// SPDX-License-Identifier: ISC
// Saturation: a diode limiter with one capacitor, table-driven.
#pragma once
#include <array>
#include <memory>

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
    /// Solves the diode equation for the whole range, unless another circuit at this rate has.
    /// [main thread]
    void prepare(double sampleRate);

    /// The next output for input x; `state` is the capacitor's. Unity gain for small signals.
    float next(float& state, float x) const noexcept
    {
        // The chain from state to state is what takes time: everything is in table steps, and a
        // piece of the table is a line by slope and offset.
        const float p = state + input_ * x;
        const float magnitude = p < 0 ? -p : p;
        const float place = magnitude < kLast ? magnitude : kLast;
        const Line& line = (*lines_)[static_cast<unsigned>(static_cast<int>(place))];
        const float v = line.offset + line.slope * place;
        const float twice = p < 0 ? -v : v;
        state = twice - state;
        return output_ * twice;
    }
    /// The state that makes a steady small input x a steady output.
    float stateFor(float x) const noexcept { return x * 0.5f / output_; }

private:
    static constexpr int kPoints = 4097;
    static constexpr float kLast = kPoints - 1.001f;

    struct Line {
        float offset = 0, slope = 0;  // of 2 v
    };
    using Lines = std::array<Line, kPoints - 1>;
    static Lines solved(double a, double steps);

    float input_ = 0;   // a = tan(pi fc / fs), in table steps
    float output_ = 0;  // table steps of 2 v to output
    std::shared_ptr<const Lines> lines_;
};

}  // namespace quillworks
