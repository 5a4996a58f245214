// SPDX-License-Identifier: ISC
#include "mixing/crosstalk_canceller.h"

#include <algorithm>
#include <cmath>

#include "dsp/fractional_delay.h"
#include "framework/speakers.h"

namespace quillworks {
namespace {

constexpr double kTaken = 0.85;     // share of the crosstalk
constexpr double kLowest = 150;     // Hz
constexpr double kLatest = 0.0005;  // s, more than the largest head and the widest speakers make

}  // namespace

template <typename T> void CrosstalkCanceller<T>::prepare(double sampleRate)
{
    sampleRate_ = sampleRate;
    delay_.prepareHalfLife(glideSubBlocks(sampleRate));
    filters_.prepare(2, sampleRate);
    high_ = OnePoleCoefficients<T>::highPass(kLowest, sampleRate);
    high_.l *= T(kTaken);
    high_.h *= T(kTaken);
    const int longest = static_cast<int>(kLatest * sampleRate) + 5;
    for (auto& past : past_) past.prepare(longest, kSubBlock);
}

template <typename T> void CrosstalkCanceller<T>::reset() noexcept
{
    delay_.snap();
    delayRamp_ = {delay_.target(), delay_.target()};
    filters_.reset();
    for (auto& state : highState_) state.reset();
    for (auto& past : past_) past.reset();
}

template <typename T> void CrosstalkCanceller<T>::place(double speakerAngle, double radius) noexcept
{
    const auto speaker = SpeakerPlace{-speakerAngle / 2, 0, false}.direction();
    const auto near = head::colour(head::toEar(speaker, 0));
    const auto far = head::colour(head::toEar(speaker, 1));
    typename EarFilters<T>::Gains gains;
    for (std::size_t i = 0; i < gains.size(); ++i) gains[i] = far[i] - near[i];
    for (int side = 0; side < 2; ++side) filters_.target(side, gains);
    delay_.target(std::max(1.0, -head::lateness(speaker, radius) * sampleRate_));
}

template <typename T>
void CrosstalkCanceller<T>::process(T* left, T* right, GridSlice slice) noexcept
{
    if (slice.begins()) delayRamp_ = delay_.next(kWholeSubBlock);
    // As many samples at a time as need no later ones.
    const int run = std::max(1, static_cast<int>(std::min(delayRamp_.from, delayRamp_.to)) - 1);
    const double step = (delayRamp_.to - delayRamp_.from) / kSubBlock;
    LagrangeWeights<T> weights(delayRamp_.to, 1);
    for (int done = 0; done < slice.frames;) {
        const int n = std::min(run, slice.frames - done), phase = slice.phase + done;
        T *const l = left + done, *const r = right + done;
        T* const made[2] = {past_[0].append(n), past_[1].append(n)};
        auto [highLeft, highRight] = highState_;
        for (int i = 0; i < n; ++i) {
            if (step != 0)
                weights = LagrangeWeights<T>(delayRamp_.to - step * (kSubBlock - 1 - phase - i), 1);
            l[i] -= weights.of(made[1] + i);
            r[i] -= weights.of(made[0] + i);
            made[0][i] = highLeft.next(high_, l[i]);
            made[1][i] = highRight.next(high_, r[i]);
        }
        highState_ = {highLeft, highRight};
        filters_.process(made, {n, phase});
        done += n;
    }
}

template class CrosstalkCanceller<float>;
template class CrosstalkCanceller<double>;

}  // namespace quillworks
