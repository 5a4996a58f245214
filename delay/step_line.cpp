// SPDX-License-Identifier: ISC
#include "delay/step_line.h"

#include "dsp/fetch_ahead.h"

namespace quillworks {
namespace {

/// Within +-1 as it is; above, u = min((|v| - 1)/2, 1) and 1 + (2 - u) u: slope 1 at the corner,
/// never above 2. What is not a number becomes 0.
template <typename T> T guarded(T v) noexcept
{
    const T magnitude = std::abs(v);
    if (magnitude <= 1) return v;
    if (std::isnan(v)) return 0;
    const T u = std::min((magnitude - 1) / 2, T(1));
    return std::copysign(1 + (2 - u) * u, v);
}

template <typename T> void guard(T* x, int n) noexcept
{
    int beyond = 0;  // counted without a branch: the usual run costs a compare per vector
    for (int i = 0; i < n; ++i) beyond += !(std::abs(x[i]) <= 1);
    if (beyond == 0) return;
    for (int i = 0; i < n; ++i) x[i] = guarded(x[i]);
}

/// Of the next sub-block. Many lines are more streams than processors find by themselves, and each
/// would wait for memory once a sub-block: a third of the time of 16 channels.
template <bool toWrite, typename T> void fetchNext(const T* x)
{
    fetchAhead<toWrite>(x, kSubBlock);
}

}  // namespace

template <typename T> void StepLine<T>::prepare(int channels, int taps, const StepDelays& delays)
{
    delays_ = delays;
    line_.prepare(channels,
                  static_cast<int>(delays.longest * delays.sampleRate) + LongLine<T>::kMirror);
    const auto count = static_cast<std::size_t>(channels);
    rows_.require(count * kSubBlock);
    old_.assign(count, nullptr);
    new_.assign(count, nullptr);
    likeness_.assign(static_cast<std::size_t>(taps), {});
    wanted_.assign(static_cast<std::size_t>(taps) * count, delays.least());
    coming_ = now_ = wanted_;
    fade_.prepare(delays.sampleRate, {});
    wantsFreeze_ = false;
    reset();
}

template <typename T> void StepLine<T>::reset() noexcept
{
    line_.clear();
    std::copy(wanted_.begin(), wanted_.end(), coming_.begin());
    std::copy(wanted_.begin(), wanted_.end(), now_.begin());
    findShortest();
    fade_.reset();
    isFreezing_ = wantsFreeze_;
    frozen_ = isFreezing_ ? fade_.length() : 0;
}

template <typename T> void StepLine<T>::setTime(int tap, int channel, double seconds) noexcept
{
    wanted_[at(tap, channel)] = delays_.samples(seconds);
}

template <typename T> void StepLine<T>::setTime(int tap, double seconds) noexcept
{
    for (int c = 0; c < line_.channels(); ++c) setTime(tap, c, seconds);
}

template <typename T> void StepLine<T>::findShortest() noexcept
{
    shortest_ = std::min(*std::min_element(now_.begin(), now_.end()),
                         *std::min_element(coming_.begin(), coming_.end()));
}

template <typename T> void StepLine<T>::next(GridSlice slice) noexcept
{
    if (!slice.begins()) return;
    isFreezing_ = wantsFreeze_;
    if (!fade_.next(slice, wanted_ != now_)) return;
    std::copy(wanted_.begin(), wanted_.end(), coming_.begin());
    findShortest();
    for (Likeness& l : likeness_) l.reset();
}

template <typename T> void StepLine<T>::advance(int n) noexcept
{
    const bool wasFading = fade_.isFading();
    fade_.advance(n);
    if (wasFading && !fade_.isFading()) {
        std::copy(coming_.begin(), coming_.end(), now_.begin());
        findShortest();
    }
    frozen_ = std::clamp(frozen_ + (isFreezing_ ? n : -n), 0, fade_.length());
}

template <typename T> void StepLine<T>::read(int tap, T* const* out, GridSlice run) noexcept
{
    const int n = run.frames, channels = line_.channels();
    const int* const now = now_.data() + at(tap, 0);
    const int* const coming = coming_.data() + at(tap, 0);
    if (fade_.isFading()) {
        const auto gains = fade_.gains<T>(likeness_[std::size_t(tap)].correlation(), n);
        for (int c = 0; c < channels; ++c) {
            line_.copy(c, out[c], coming[c] - 1, n);
            if (coming[c] == now[c]) continue;
            line_.copy(c, rows_.data(), now[c] - 1, n);
            gains.mix(out[c], rows_.data(), n);
        }
        return;
    }
    for (int c = 0; c < channels; ++c) {
        line_.copy(c, out[c], now[c] - 1, n);
        fetchNext<false>(line_.at(c, now[c] - 1) + n);
    }
    if (!fade_.isListening()) return;
    // Channels that stay would make the others look more alike than they are.
    int moving = 0;
    for (int c = 0; c < channels; ++c) {
        if (coming[c] == now[c]) continue;
        T* const row = rows_.data() + moving * kSubBlock;
        line_.copy(c, row, coming[c] - 1, n);
        old_[std::size_t(moving)] = out[c];
        new_[std::size_t(moving++)] = row;
    }
    likeness_[std::size_t(tap)].add(old_.data(), new_.data(), moving, run);
}

template <typename T>
void StepLine<T>::look(int tap, const T** out, T* const* room, GridSlice run) noexcept
{
    const bool isMixed = fade_.isFading() || fade_.isListening();
    if (isMixed) read(tap, room, run);
    for (int c = 0; c < line_.channels(); ++c) {
        const int distance = delay(tap, c) - 1;
        out[c] = room[c];
        if (isMixed) continue;
        if (distance < line_.valid())
            out[c] = line_.at(c, distance);
        else
            line_.copy(c, room[c], distance, run.frames);
    }
}

template <typename T> T StepLine<T>::frozenShare(int i) const noexcept
{
    const int frames = std::clamp(frozen_ + (isFreezing_ ? i + 1 : -i - 1), 0, fade_.length());
    return T(frames) / T(fade_.length());
}

template <typename T>
void StepLine<T>::unfilter(T* const* filtered, const T* const* read, int n) const noexcept
{
    if (isLive()) return;
    for (int c = 0; c < line_.channels(); ++c) {
        T* const x = filtered[c];
        const T* const r = read[c];
        for (int i = 0; i < n; ++i) {
            const T w = frozenShare(i);
            x[i] = w == 1 ? r[i] : x[i] + (r[i] - x[i]) * w;
        }
    }
}

template <typename T>
void StepLine<T>::feed(T* to, const T* in, const T* fed, const T* gain, int first,
                       int n) const noexcept
{
    if (isFrozen()) {
        vec::copy(to, fed, n);
    } else if (!isFreezeMoving()) {
        for (int i = 0; i < n; ++i) to[i] = in[i] + gain[i] * fed[i];
    } else {
        for (int i = 0; i < n; ++i) {
            const T w = frozenShare(first + i), live = in[i] + gain[i] * fed[i];
            // A fault in the input must not reach a loop that is closed.
            to[i] = w == 1 ? fed[i] : w == 0 ? live : (1 - w) * live + w * fed[i];
        }
    }
    guard(to, n);
}

template <typename T>
void StepLine<T>::write(const T* const* in, const T* const* fed, const T* gain, int n) noexcept
{
    for (int c = 0; c < line_.channels(); ++c) {
        const T* const x = in[c];
        fetchNext<true>(line_.at(c, 0) + 1 + n);
        line_.put(c, x, n, [&](T* to, const T* from, int count) {
            const auto first = static_cast<int>(from - x);
            feed(to, from, fed[c] + first, gain + first, first, count);
        });
    }
    line_.advance(n);
}

template class StepLine<float>;
template class StepLine<double>;

}  // namespace quillworks
