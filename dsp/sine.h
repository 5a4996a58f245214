// SPDX-License-Identifier: ISC
// The sine of a quarter turn as a polynomial, for loops over frames that the compiler turns into
// vectors.
#pragma once

namespace quillworks {

/// Coefficients of sinPi(), that of x^15 first.
inline constexpr double kSinPi[] = {-2.19153534478302173e-05, 0.000466302805767612567,
                                    -0.00737043094571435077,  0.0821458866111282288,
                                    -0.599264529320792077,    2.55016403987734549,
                                    -5.16771278004997003,     3.14159265358979324};

/// sin(pi x) for |x| <= 0.5, within 7e-12: the Taylor series to x^15.
template <typename T> constexpr T sinPi(T x) noexcept
{
    const T s = x * x;
    T sum = T(kSinPi[0]);  // written out: a loop would keep callers' from vectors
    sum = sum * s + T(kSinPi[1]);
    sum = sum * s + T(kSinPi[2]);
    sum = sum * s + T(kSinPi[3]);
    sum = sum * s + T(kSinPi[4]);
    sum = sum * s + T(kSinPi[5]);
    sum = sum * s + T(kSinPi[6]);
    sum = sum * s + T(kSinPi[7]);
    return sum * x;
}

/// cos(pi x / 2) for |x| <= 1, exactly 1 at 0.
template <typename T> constexpr T cosQuarterTurn(T x) noexcept
{
    const T s = sinPi(x * T(0.25));
    return 1 - 2 * s * s;
}

}  // namespace quillworks
