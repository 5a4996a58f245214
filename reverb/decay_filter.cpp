// SPDX-License-Identifier: ISC
#include "reverb/decay_filter.h"

#include <algorithm>
#include <utility>

namespace quillworks {
namespace {

constexpr int kSteps = kDecayValues, kStates = 2 * kDecayValues;
constexpr int kFrames = kStates + 2 * DecaySections::kMost, kRows = kFrames + kDecayRow;

}  // namespace

template <typename T>
void DecayFilter<T>::prepare(const DecayDesign& design, int lanes, double scale)
{
    lanes_ = lanes;
    count_ = (lanes + 7) / 8 * 8;
    sections_ = design.sections();
    scale_ = T(scale);
    values_.require(static_cast<std::size_t>(kRows * count_));
    values_.fill(0);
    spare_.require(kDecayRow);
    for (int lane = 0; lane < count_; ++lane) set(lane, {});
    reset();
}

template <typename T> void DecayFilter<T>::reset() noexcept
{
    begin();
    std::fill(row(kStates), row(kFrames), T(0));
}

template <typename T> void DecayFilter<T>::begin() noexcept
{
    if (std::exchange(isMoving_, false)) std::fill(row(kSteps), row(kStates), T(0));
}

template <typename T>
void DecayFilter<T>::write(int lane, const DecaySections& s, bool glides) noexcept
{
    const auto put = [&](int i, double value) {
        T &to = row(i)[lane], &step = row(kSteps + i)[lane];
        step = glides ? (T(value) - to) * (T(1) / kSubBlock) : T(0);
        to = T(value);
        isMoving_ |= step != 0;
    };
    put(0, s.gain * double(scale_));
    for (int i = 0; i < sections_; ++i) {
        put(1 + 3 * i, s.kappa[i]);
        put(2 + 3 * i, s.a1[i]);
        put(3 + 3 * i, s.a2[i]);
    }
}

template <typename T>
void DecayFilter<T>::process(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    const T* from[kMostLanes];
    T* to[kMostLanes];
    std::copy_n(in, lanes_, from);
    std::copy_n(out, lanes_, to);
    std::fill(from + lanes_, from + count_, spare_.data());
    std::fill(to + lanes_, to + count_, spare_.data());
    runDecayFilters(DecayRun<T>{from, to, row(kFrames), row(0), row(kSteps), row(kStates), count_,
                                sections_ == 0 ? -1 : sections_ - DecaySections::kShelves,
                                slice.frames, slice.phase, isMoving_});
}

template class DecayFilter<float>;
template class DecayFilter<double>;

}  // namespace quillworks
