// SPDX-License-Identifier: ISC
#include "delay/tap_bank.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr int kStates = 2 * kBankValues, kPeaks = kStates + 4, kRows = kPeaks + 1;
constexpr double kFadeSeconds = 0.01;
constexpr double kSoftTone = 0.05;  // below, the filter is mixed in

template <typename T>
SectionCoefficients<T> toneSection(double tone, bool isDark, double sampleRate) noexcept
{
    const double amount = std::abs(tone);
    const double frequency =
        isDark ? 18000 * std::pow(250.0 / 18000, amount) : 30 * std::pow(200.0, amount);
    constexpr double k = 1 / kButterworthQ;
    const auto output = isDark ? SectionOutput::lowPass() : SectionOutput::highPass(k);
    return SectionCoefficients<T>::of(warpedFrequency(frequency, sampleRate), k,
                                      output.faded(std::min(1.0, amount / kSoftTone)));
}

}  // namespace

template <typename T> void TapBank<T>::prepare(double sampleRate, bool isMono)
{
    sampleRate_ = sampleRate;
    isMono_ = isMono;
    fadeStep_ = 1 / std::max(1.0, std::trunc(kFadeSeconds * sampleRate / kSubBlock + 0.5));
    const double halfLife = glideSubBlocks(sampleRate);
    for (Tap& tap : taps_) {
        for (auto* value : {&tap.left, &tap.right, &tap.own}) value->prepareHalfLife(2 * halfLife);
        tap.tone.prepareHalfLife(halfLife);
    }
    lanes_.require(kRows * kTaps);
    samples_.require(static_cast<std::size_t>((2 * kTaps + 2) * kBankStride));
    samples_.fill(0);
    for (int t = 0; t < kTaps; ++t) {
        for (int side = 0; side < 2; ++side)
            rooms_[t][side] = samples_.data() + (2 * t + side) * kBankStride;
        place(t, rooms_[t]);
    }
    reset();
}

template <typename T> void TapBank<T>::reset() noexcept
{
    lanes_.fill(0);
    isMoving_ = false;
    isSettled_ = false;
    running_ = 0;
    for (int t = 0; t < kTaps; ++t) {
        Tap& tap = taps_[t];
        for (auto* value : {&tap.left, &tap.right, &tap.own, &tap.tone}) value->snap();
        tap.weight = tap.isOn ? 1 : 0;
        tap.toneNow = tap.tone.current();
        if (!tap.isOn) {
            leaveOut(t);
            continue;
        }
        running_ |= 1u << t;
        layTone(t, false, tap.toneNow, tap.toneNow < 0);
        layGains(t, false);
    }
}

template <typename T> void TapBank<T>::set(int t, const TapSettings& s) noexcept
{
    Tap& tap = taps_[t];
    isSettled_ = false;
    tap.isOn = s.isOn;
    // Exactly 1 in the middle.
    const double angle = (s.pan + 1) * std::numbers::pi / 4;
    const bool isPlaced = !isMono_ && s.pan != 0;
    tap.left.target(s.level * (isPlaced ? std::numbers::sqrt2 * std::cos(angle) : 1));
    tap.right.target(isMono_ ? 0
                             : s.level * (isPlaced ? std::numbers::sqrt2 * std::sin(angle) : 1));
    tap.own.target(isPlaced ? 1 - std::abs(s.pan) / 2 : 1);
    tap.tone.target(s.tone);
}

/// Values of a tap, at once or over the sub-block.
template <typename T>
void TapBank<T>::write(int t, int first, const T* values, int count, bool glides) noexcept
{
    constexpr T share = T(1) / kSubBlock;
    for (int i = 0; i < count; ++i) {
        T& to = row(first + i)[t];
        T& step = row(kBankValues + first + i)[t];
        step = glides ? (values[i] - to) * share : 0;
        to = values[i];
        isMoving_ |= step != 0;
    }
}

template <typename T>
void TapBank<T>::layTone(int t, bool glides, double tone, bool isDark) noexcept
{
    const auto c = toneSection<T>(tone, isDark, sampleRate_);
    const T values[] = {c.r, c.b1, c.b2, c.c1, c.c2, c.d};
    write(t, 0, values, 6, glides);
}

template <typename T> void TapBank<T>::layGains(int t, bool glides) noexcept
{
    const Tap& tap = taps_[t];
    const T values[] = {T(tap.own.current()), T(tap.weight * tap.left.current()),
                        T(tap.weight * tap.right.current())};
    write(t, 6, values, 3, glides);
}

/// Its lane does nothing, whatever is in its row.
template <typename T> void TapBank<T>::leaveOut(int t) noexcept
{
    running_ &= ~(1u << t);
    constexpr T nothing[kBankValues]{};
    write(t, 0, nothing, kBankValues, false);
    clear(t);
}

template <typename T> void TapBank<T>::clear(int t) noexcept
{
    for (int i = 0; i < 4; ++i) row(kStates + i)[t] = 0;
}

template <typename T> void TapBank<T>::next(GridSlice slice) noexcept
{
    if (!slice.begins()) return;
    clearIfBad();
    if (std::exchange(isMoving_, false)) std::fill(row(kBankValues), row(2 * kBankValues), T(0));
    if (isSettled_) return;
    isSettled_ = true;
    for (int t = 0; t < kTaps; ++t) isSettled_ &= advance(t);
}

/// A sub-block begins. Returns true if nothing moves in it, nor will.
template <typename T> bool TapBank<T>::advance(int t) noexcept
{
    Tap& tap = taps_[t];
    if (!tap.isOn && tap.weight == 0) {  // where it comes in, it stands
        for (auto* value : {&tap.left, &tap.right, &tap.own, &tap.tone}) value->snap();
        if (runs(t)) leaveOut(t);
        place(t, rooms_[t]);
        return true;
    }
    if (!runs(t)) {
        running_ |= 1u << t;
        tap.toneNow = tap.tone.current();
        layTone(t, false, tap.toneNow, tap.toneNow < 0);
        layGains(t, false);
    }
    const double weight = std::clamp(tap.weight + (tap.isOn ? fadeStep_ : -fadeStep_), 0.0, 1.0);
    const bool isFading = weight != tap.weight;
    tap.weight = weight < fadeStep_ / 2 ? 0 : weight > 1 - fadeStep_ / 2 ? 1 : weight;
    const bool glides = tap.left.isGliding() || tap.right.isGliding() || tap.own.isGliding();
    if (isFading || glides) {
        for (auto* value : {&tap.left, &tap.right, &tap.own}) value->next(kWholeSubBlock);
        layGains(t, true);
    }
    if (!tap.tone.isGliding() && tap.toneNow == tap.tone.current())
        return tap.isOn && !isFading && !glides;
    tap.tone.next(kWholeSubBlock);
    const double before = std::exchange(tap.toneNow, tap.tone.current());
    if (before * tap.toneNow < 0) tap.toneNow = 0;  // one filter goes before the other comes
    const bool isDark = tap.toneNow < 0 || (tap.toneNow == 0 && before < 0);
    if (before == 0) {
        clear(t);
        layTone(t, false, 0, isDark);
    }
    layTone(t, true, tap.toneNow, isDark);
    return false;
}

template <typename T> void TapBank<T>::process(T* left, T* right, GridSlice run) noexcept
{
    T* const sums = samples_.data() + 2 * kTaps * kBankStride;
    vec::clear(sums, 2 * kBankStride);
    if (running_ != 0)
        runTaps(TapRun<T>{row(0), row(kBankValues), row(kStates), row(kPeaks), left_, right_, sums,
                          sums + kBankStride, running_, run.frames, run.phase, isMoving_});
    vec::copy(left, static_cast<const T*>(sums), run.frames);
    if (!isMono_) vec::copy(right, static_cast<const T*>(sums + kBankStride), run.frames);
}

/// A state that is not finite never becomes so again.
template <typename T> void TapBank<T>::clearIfBad() noexcept
{
    constexpr T most = std::numeric_limits<T>::max();
    T* const states = row(kStates);
    int bad = 0;
    for (int i = 0; i < 4 * kTaps; ++i) bad += !(std::abs(states[i]) <= most);
    if (bad != 0) std::fill_n(states, 4 * kTaps, T(0));
}

template <typename T> T TapBank<T>::takePeak(int tap) noexcept
{
    return std::exchange(row(kPeaks)[tap], T(0));
}

template class TapBank<float>;
template class TapBank<double>;

}  // namespace quillworks
