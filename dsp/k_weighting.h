// SPDX-License-Identifier: ISC
// K-weighting after ITU-R BS.1770: a high shelf for the head, then a high pass.
#pragma once
#include <array>

namespace quillworks {

/// y = b0 x + b1 x1 + b2 x2 + c1 y1 + c2 y2: the feedback carries the sign it is added with.
struct KWeightingSection {
    double b0 = 1, b1 = 0, b2 = 0, c1 = 0, c2 = 0;
};

/// The two sections at a rate, by the bilinear transform of the analogue prototypes whose 48 kHz
/// images the Recommendation tabulates. The coefficients are rounded to single precision once; the
/// recursion itself runs in double.
struct KWeighting {
    KWeightingSection shelf, highPass;

    static KWeighting at(double sampleRate) noexcept;
};

/// What the sections of a channel remember.
using KWeightingState = std::array<double, 6>;

/// The sections' ringing after a signal's end, without running them through it: what 2^i samples
/// of silence make of a state is a matrix, and their power a quadratic form, for every i.
class KWeightingTail {
public:
    static constexpr int kLongest = (1 << 14) - 1;  // samples passed at once

    void prepare(const KWeighting& k) noexcept;
    /// Lets n samples of silence pass. Returns the sum of the squares that come out meanwhile.
    double pass(KWeightingState& state, int n) const noexcept;

private:
    using Matrix = std::array<KWeightingState, 6>;  // row by row
    struct Span {
        Matrix next, power;
    };
    std::array<Span, 14> spans_{};
};

/// Both sections for two channels side by side in one register: the recursion waits for its own
/// result, so the second channel costs nothing. SSE2's two doubles are in every x86-64; there is
/// nothing to choose at run time.
class KWeightingPair {
public:
    void reset() noexcept { *this = {}; }

    /// ya = K(a), yb = K(b), n samples each; a and b may be the same.
    template <typename T>
    void process(const KWeighting& k, const T* a, const T* b, double* ya, double* yb,
                 int n) noexcept
    {
        const Section s = spread(k.shelf), p = spread(k.highPass);
        Pair x1 = x1_, x2 = x2_, v1 = v1_, v2 = v2_, y1 = y1_, y2 = y2_;
        for (int i = 0; i < n; ++i) {
            const Pair x = {double(a[i]), double(b[i])};
            const Pair v = (s.b0 * x + s.b1 * x1 + s.b2 * x2 + s.c2 * v2) + s.c1 * v1;
            const Pair y = (p.b0 * v + p.b1 * v1 + p.b2 * v2 + p.c2 * y2) + p.c1 * y1;
            x2 = x1;
            x1 = x;
            v2 = v1;
            v1 = v;
            y2 = y1;
            y1 = y;
            ya[i] = y[0];
            yb[i] = y[1];
        }
        x1_ = x1;
        x2_ = x2;
        v1_ = v1;
        v2_ = v2;
        y1_ = y1;
        y2_ = y2;
    }

    /// What channel 0 or 1 remembers: input, shelf and output, the newer of each two first.
    KWeightingState state(int channel) const noexcept
    {
        return {x1_[channel], x2_[channel], v1_[channel], v2_[channel], y1_[channel], y2_[channel]};
    }

private:
    using Pair [[gnu::vector_size(16)]] = double;
    struct Section {
        Pair b0, b1, b2, c1, c2;
    };
    static Section spread(const KWeightingSection& s) noexcept
    {
        const auto both = [](double v) { return Pair{v, v}; };
        return {both(s.b0), both(s.b1), both(s.b2), both(s.c1), both(s.c2)};
    }

    Pair x1_{}, x2_{};  // input
    Pair v1_{}, v2_{};  // after the shelf
    Pair y1_{}, y2_{};  // output
};

}  // namespace quillworks
