// SPDX-License-Identifier: ISC
#include "mixing/head_model.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks::head {
namespace {

struct Filter {
    double frequency;  // Hz
    double q;          // of a peak
    double fit[8];     // gain in dB per (x - 1, y, z, xy, xz, yz, xx - 1, zz)
};

// clang-format off
constexpr Filter kFit[kFilters] = {
    {900,   0,   {-0.1, 7.9,  0.8,  -1.2, 2.2,  0.1,  1.1,  -0.9}},
    {1100,  1.2, {0.2,  1.0,  -1.2, 0.1,  -2.5, -1.8, -1.2, -1.4}},
    {4200,  1.0, {1.6,  -1.8, -0.3, 3.9,  -0.6, -2.0, 3.1,  6.7}},
    {11000, 0,   {3.4,  9.0,  -2.6, 4.5,  -0.4, -4.6, 4.4,  3.5}},
};
// clang-format on

double linear(double db)
{
    return std::pow(10, db / 20);
}

}  // namespace

double lateness(const UnitVector& direction, double radius) noexcept
{
    // Straight to an ear in sight, round the head to the other.
    const auto path = [](double towards) {
        const double incidence = std::acos(std::clamp(towards, -1.0, 1.0));
        constexpr double side = std::numbers::pi / 2;
        return incidence < side ? -std::cos(incidence) : incidence - side;
    };
    return (path(direction[1]) - path(-direction[1])) * radius / kSpeedOfSound;
}

std::array<double, kFilters> colour(const UnitVector& direction) noexcept
{
    const auto [x, y, z] = direction;
    const double terms[] = {x - 1, y, z, x * y, x * z, y * z, x * x - 1, z * z};
    std::array<double, kFilters> gains{};
    for (std::size_t i = 0; i < kFilters; ++i)
        for (std::size_t k = 0; k < 8; ++k) gains[i] += kFit[i].fit[k] * terms[k];
    return gains;
}

double levelling(const UnitVector& direction) noexcept
{
    const double x = direction[0], z = direction[2];
    return -(0.6 * (x - 1) - 0.5 * z + 0.3 * x * z - 1.5 * (x * x - 1) - 1.4 * z * z);
}

template <typename T> OnePoleCoefficients<T> shelf(int i, double gain, double sampleRate) noexcept
{
    return OnePoleCoefficients<T>::highShelf(kFit[i].frequency, linear(gain), sampleRate);
}

template <typename T> SectionCoefficients<T> peak(int i, double gain, double sampleRate) noexcept
{
    // (s^2 + s w A/Q + w^2) / (s^2 + s w/(A Q) + w^2), A^2 the gain at the peak.
    const double a = linear(gain / 2), k = 1 / (a * kFit[i].q);
    return SectionCoefficients<T>::of(warpedFrequency(kFit[i].frequency, sampleRate), k,
                                      {1, k * (a * a - 1), 0});
}

template OnePoleCoefficients<float> shelf(int, double, double) noexcept;
template OnePoleCoefficients<double> shelf(int, double, double) noexcept;
template SectionCoefficients<float> peak(int, double, double) noexcept;
template SectionCoefficients<double> peak(int, double, double) noexcept;

}  // namespace quillworks::head
