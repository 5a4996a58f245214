// SPDX-License-Identifier: ISC
// K-weighting after ITU-R BS.1770: a high shelf for the head, then a high pass.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>

namespace quillworks {

/// y = b0 x + b1 x1 + b2 x2 + c1 y1 + c2 y2: the feedback carries the sign it is added with.
struct KWeightingSection {
    double b0 = 1, b1 = 0, b2 = 0, c1 = 0, c2 = 0;

    /// Rounded to single precision once; the recursion itself runs in double.
    static KWeightingSection rounded(double b0, double b1, double b2, double c1, double c2) noexcept
    {
        const auto r = [](double v) { return double(float(v)); };
        return {r(b0), r(b1), r(b2), r(c1), r(c2)};
    }
};

/// The two sections at a rate, by the bilinear transform of the analogue prototypes whose 48 kHz
/// images the Recommendation tabulates.
struct KWeighting {
    KWeightingSection shelf, highPass;

    static KWeighting at(double sampleRate) noexcept
    {
        KWeighting design;
        {
            const double k = prewarped(5284.078578647619, sampleRate);  // pi 1681.97445095553 Hz
            const double kq = 1.414076664088621 * k;                    // Q = 0.7071752369554196
            const double high = 1.584864701130855;                      // +3.9998438539733434 dB
            const double band = 1.258720930232562 * kq;                 // gain at the shelf corner
            const double n = 1 / (1 + kq + k * k);
            design.shelf = KWeightingSection::rounded(
                (k * k + band + high) * n, 2 * (k * k - high) * n, (k * k - band + high) * n,
                -2 * (k * k - 1) * n, (kq - k * k - 1) * n);
        }
        {
            const double k = prewarped(119.8061151453059, sampleRate);  // pi 38.13547087602444 Hz
            const double kq = 1.9986927057725021 * k;                   // Q = 0.5003270373238773
            const double n = 1 / (1 + kq + k * k);
            // Numerator not normalised: the calibration constant -0.691 counts on it.
            design.highPass =
                KWeightingSection::rounded(1, -2, 1, -2 * (k * k - 1) * n, (kq - k * k - 1) * n);
        }
        return design;
    }

private:
    /// tan(angle / rate); below some 3.5 kHz the shelf would lie beyond half the rate.
    static double prewarped(double angle, double sampleRate) noexcept
    {
        return std::tan(std::min(angle / sampleRate, 1.5));
    }
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
