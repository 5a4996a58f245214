// SPDX-License-Identifier: ISC
#include "mixing/binaural_source.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr double kLatest = 0.00075;  // s, of an ear: the largest head, a source at its side

}  // namespace

template <typename T> void BinauralSource<T>::prepare(double sampleRate)
{
    sampleRate_ = sampleRate;
    const double base = glideSubBlocks(sampleRate);
    delay_.prepareHalfLife(base);
    level_.prepareHalfLife(2 * base);
    nearness_.prepareHalfLife(2 * base);
    for (auto& late : late_) late.prepare(kLatest * sampleRate + 1);
}

template <typename T> void BinauralSource<T>::reset() noexcept
{
    delay_.snap();
    delayRamp_ = {delay_.target(), delay_.target()};
    level_.snap();
    nearness_.snap();
    levelCourse_.set(level_.target());
    nearnessCourse_.set(nearness_.target());
    for (auto& late : late_) late.reset();
}

template <typename T>
void BinauralSource<T>::place(double lateness, double level, double nearness) noexcept
{
    delay_.target(lateness * sampleRate_);
    level_.target(T(level));
    nearness_.target(T(nearness));
}

template <typename T> void BinauralSource<T>::beginSubBlock() noexcept
{
    if (delay_.isGliding()) delayRamp_ = delay_.next(kWholeSubBlock);
    levelCourse_.follow(level_, kWholeSubBlock);
    nearnessCourse_.follow(nearness_, kWholeSubBlock);
}

template <typename T>
void BinauralSource<T>::process(T* x, T* const* ears, GridSlice slice) noexcept
{
    if (slice.begins()) beginSubBlock();
    const int n = slice.frames;
    levelCourse_.scale(x, slice);
    T straight[kSubBlock];
    vec::copy(straight, static_cast<const T*>(x), n);
    nearnessCourse_.scale(straight, slice);
    for (std::size_t ear = 0; ear < 2; ++ear) {
        const double sign = ear == 0 ? 1 : -1;
        if (delayRamp_.isConstant()) {
            late_[ear].process(ears[ear], straight, std::max(0.0, sign * delayRamp_.to), n);
            continue;
        }
        const double step = (delayRamp_.to - delayRamp_.from) / kSubBlock;
        double delays[kSubBlock];
        for (int i = 0; i < n; ++i)
            delays[i] =
                std::max(0.0, sign * (delayRamp_.to - step * (kSubBlock - 1 - slice.phase - i)));
        late_[ear].process(ears[ear], straight, delays, n);
    }
}

template class BinauralSource<float>;
template class BinauralSource<double>;

}  // namespace quillworks
