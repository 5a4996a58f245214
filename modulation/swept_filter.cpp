// SPDX-License-Identifier: ISC
#include "modulation/swept_filter.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "dsp/section.h"

namespace quillworks {
namespace {

constexpr int kRowSize = kSides * kSubBlock + 8;  // vectors may read some elements too far

/// Qualities at a resonance of 0 .. 1. Without resonance those of Butterworth filters.
double quality12(double resonance)
{
    return kButterworthQ * std::pow(40, resonance);
}
double quality24(double resonance)
{
    return kButterworth4Q[1] * std::pow(20, resonance);
}
double qualityBand24(double resonance)
{
    return kButterworthQ * std::pow(20, resonance);
}

}  // namespace

// clang-format off
template <typename T>
const typename SweptFilter<T>::Parts SweptFilter<T>::kPartsOf[kFilterTypes] = {
    // dampings 1, 2    input, band, low 1, 2
    {1, 0, 0,  1, 0,    0,  0,  1,   1,  0,  0},   // Low 12
    {0, 1, 0,  1, 0,    0,  0,  1,   0,  0,  1},   // Low 24
    {1, 0, 0,  1, 0,    1, -1, -1,   1,  0,  0},   // High 12
    {0, 1, 0,  1, 0,    1, -1, -1,   1, -1, -1},   // High 24
    {1, 0, 0,  1, 0,    0,  1,  0,   1,  0,  0},   // Band 12
    {0, 0, 1,  0, 1,    0,  1,  0,   0,  1,  0},   // Band 24
    {1, 0, 0,  1, 0,    1, -1,  0,   1,  0,  0},   // Notch
    {1, 0, 0,  1, 0,    1,  2,  0,   1,  0,  0},   // Peak
};
// clang-format on

template <typename T> void SweptFilter<T>::prepare(double sampleRate, int factor, int slots)
{
    assert(slots % 4 == 0 && (factor == 1 || factor == 2));
    sweptFilterKernels<T>();  // chosen here, not on the audio thread
    slots_ = slots;
    factor_ = factor;
    resonance_.prepareHalfLife(2 * glideSubBlocks(sampleRate));
    fadeLength_ = static_cast<int>(std::max(1.0, std::trunc(0.02 * sampleRate / kSubBlock + 0.5)));
    rows_.require(static_cast<std::size_t>(factor * kRowSize));
    rows_.fill(0);
    states_.require(static_cast<std::size_t>(SweptFilterRun<T>::kStates * slots));
    reset();
}

template <typename T> void SweptFilter<T>::reset() noexcept
{
    states_.fill(0);
    resonance_.snap();
    parts_ = kPartsOf[static_cast<int>(type_)];
    fadeLeft_ = 0;
    isLaid_ = false;
}

template <typename T> void SweptFilter<T>::setType(FilterType type) noexcept
{
    if (type == type_) return;
    type_ = type;
    fadeLeft_ = fadeLength_;
    const Parts& to = kPartsOf[static_cast<int>(type)];
    for (std::size_t i = 0; i < kParts; ++i) step_[i] = (to[i] - parts_[i]) / fadeLength_;
}

template <typename T> double SweptFilter<T>::qualityOf(FilterType type, double resonance) noexcept
{
    switch (type) {
    case FilterType::Low24:
    case FilterType::High24:
        return quality24(resonance);
    case FilterType::Band24:
        return qualityBand24(resonance);
    default:
        return quality12(resonance);
    }
}

template <typename T> void SweptFilter<T>::next(double drive) noexcept
{
    const bool stands =
        isLaid_ && !moves_ && fadeLeft_ == 0 && !resonance_.isGliding() && drive == drive_;
    if (stands) return;
    drive_ = drive;
    resonance_.next(kWholeSubBlock);
    if (fadeLeft_ > 0) {
        for (std::size_t i = 0; i < kParts; ++i) parts_[i] += step_[i];
        if (--fadeLeft_ == 0) parts_ = kPartsOf[static_cast<int>(type_)];
    }
    const double r = resonance_.current();
    const double band24 = 1 / qualityBand24(r);
    std::array<double, kSweptFilterValues> values{};
    values[kDamping1] = parts_[kFirst12] / quality12(r) + parts_[kFirst24] / kButterworth4Q[0] +
                        parts_[kFirstBand24] * band24;
    values[kDamping2] = parts_[kSecond24] / quality24(r) + parts_[kSecondBand24] * band24;
    values[kDrive] = 2 * drive;
    for (std::size_t i = 0; i < 6; ++i) values[kInput1 + i] = parts_[kWeights + i];
    moves_ = false;
    for (std::size_t i = 0; i < kSweptFilterValues; ++i) {
        const T to = static_cast<T>(values[i]);
        slope_[i] = isLaid_ ? (to - to_[i]) / kSubBlock : T(0);
        moves_ |= slope_[i] != 0;
        to_[i] = to;
    }
    isLaid_ = true;
}

template <typename T>
void SweptFilter<T>::lay(int first, int count, const double (*g)[kSides]) noexcept
{
    T ends[(kGroups + 1) * kSides];
    for (int i = 0; i <= count; ++i)
        for (int s = 0; s < kSides; ++s) ends[i * kSides + s] = static_cast<T>(g[i][s]);
    sweptFilterKernels<T>().lay({.g = ends,
                                 .rows = {rows_.data(), rows_.data() + (factor_ - 1) * kRowSize},
                                 .factor = factor_,
                                 .first = first,
                                 .count = count});
}

template <typename T> void SweptFilter<T>::process(T* const* const* x, GridSlice slice) noexcept
{
    sweptFilterKernels<T>().run({.rows = {rows_.data(), rows_.data() + (factor_ - 1) * kRowSize},
                                 .to = to_.data(),
                                 .step = slope_.data(),
                                 .moves = moves_,
                                 .states = states_.data(),
                                 .x = {x[0], x[factor_ - 1]},
                                 .slots = slots_,
                                 .factor = factor_,
                                 .frames = slice.frames,
                                 .phase = slice.phase});
}

template class SweptFilter<float>;
template class SweptFilter<double>;

}  // namespace quillworks
