// SPDX-License-Identifier: ISC
// Control curves: where on a knob's way a value lies. One object serves all parameters that share a
// law.
#pragma once

namespace quillworks {

struct Curve {
    enum class Law { Linear, Logarithmic, Middle };

    Law law = Law::Linear;
    float middle = 0;  // value at half way, for Middle; between minimum and maximum

    /// Position 0 .. 1 of a value within min .. max.
    float toPosition(float value, float min, float max) const noexcept;
    /// Value at a position 0 .. 1; the ends are met exactly.
    float toValue(float position, float min, float max) const noexcept;
};

namespace curve {

inline constexpr Curve linear{};
inline constexpr Curve decibel{};  // decibels are linear on the control; the text says dB
inline constexpr Curve logarithmic{Curve::Law::Logarithmic};  // equal ratios; needs min > 0
/// Power law with its middle position at the given value.
template <int Thousandths>
inline constexpr Curve middleAt{Curve::Law::Middle, Thousandths / 1000.0f};

}  // namespace curve
}  // namespace quillworks
