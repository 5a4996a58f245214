// SPDX-License-Identifier: ISC
// What happens to the two channels of a pair as one matrix: levels, width, rotation, panning.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {

/// In the order of the list's texts.
enum class PanLaw { Minus3dB, Minus4_5dB, Minus6dB, Balance, ZeroDb };

struct PanGains {
    double left, right;
};

/// Gains of a point at `position`, -1 (left) .. 1 (right). At the ends one gain is exactly 0. The
/// laws are named after the gain in the middle; "Balance" leaves the nearer side at 1, and "0 dB"
/// is the law of -3 dB raised by 3 dB.
inline PanGains panGains(PanLaw law, double position) noexcept
{
    const double q = (std::clamp(position, -1.0, 1.0) + 1) / 2;
    if (law == PanLaw::Balance) return {std::min(1.0, 2 - 2 * q), std::min(1.0, 2 * q)};
    const double angle = q * std::numbers::pi / 2;
    const double left = q < 1 ? std::cos(angle) : 0, right = q < 1 ? std::sin(angle) : 1;
    switch (law) {
    case PanLaw::Minus4_5dB:
        return {std::pow(left, 1.5), std::pow(right, 1.5)};
    case PanLaw::Minus6dB:
        return {left * left, right * right};
    case PanLaw::ZeroDb:
        return {left * std::numbers::sqrt2, right * std::numbers::sqrt2};
    default:
        return {left, right};
    }
}

/// Outputs are ll L + lr R and rl L + rr R. Neutral values give exact ones and zeros.
struct StereoMatrix {
    double ll = 1, lr = 0;
    double rl = 0, rr = 1;

    static StereoMatrix levels(double left, double right) noexcept { return {left, 0, 0, right}; }
    /// The side, (L - R)/2, times `width`.
    static StereoMatrix width(double width) noexcept
    {
        const double same = (1 + width) / 2, other = (1 - width) / 2;
        return {same, other, other, same};
    }
    /// Turns the image to the right; the power stays. Degrees.
    static StereoMatrix rotation(double degrees) noexcept
    {
        const double angle = degrees * std::numbers::pi / 180;
        const double c = std::cos(angle), s = std::sin(angle);
        return {c, -s, s, c};
    }
    /// Each input at a place of its own, -1 .. 1.
    static StereoMatrix panning(PanLaw law, double left, double right) noexcept
    {
        const auto l = panGains(law, left), r = panGains(law, right);
        return {l.left, r.left, l.right, r.right};
    }

    bool operator==(const StereoMatrix&) const = default;
};

/// First b, then a.
inline StereoMatrix operator*(const StereoMatrix& a, const StereoMatrix& b) noexcept
{
    return {a.ll * b.ll + a.lr * b.rl, a.ll * b.lr + a.lr * b.rr, a.rl * b.ll + a.rr * b.rl,
            a.rl * b.lr + a.rr * b.rr};
}

}  // namespace quillworks
