// SPDX-License-Identifier: ISC
#include "dynamics/band_channels.h"

#include <algorithm>
#include <utility>

#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {

template <typename T>
void BandChannels<T>::prepare(double sampleRate, int channels, int longestBusDelay)
{
    channels_ = channels;
    busPair_ = (channels + 1) / 2;
    constexpr int kBusPairs = VNK::kMaxChannels / 2;
    audio_.assign(static_cast<std::size_t>(busPair_), {});
    bus_.assign(kBusPairs, {});
    splitter_.prepare(sampleRate, busPair_ + kBusPairs);
    busChannels_ = 0;
    busDelay_ = 0;
    if (longestBusDelay > 0)
        busLine_.prepare(VNK::kMaxChannels,
                         std::max(longestBusDelay + kSubBlock, LongLine<T>::kMirror));
}

template <typename T> void BandChannels<T>::reset() noexcept
{
    splitter_.reset();
    busLine_.clear();
}

template <typename T> void BandChannels<T>::begin(const AudioBlock<T>& part) noexcept
{
    splitter_.begin(part);
    const int count = part.sideChainChannels;
    if (std::exchange(busChannels_, count) != count) {
        for (int pair = 0; pair < static_cast<int>(bus_.size()); ++pair)
            splitter_.clear(busPair_ + pair);
        busLine_.clear();
    }
    for (int c = 0; c < count; c += 2) {
        T x[2][kSubBlock];
        const bool isPair = c + 1 < count;
        for (int i = 0; i < (isPair ? 2 : 1); ++i) takeBus(c + i, x[i], part);
        splitter_.split(busPair_ + c / 2, x[0], isPair ? x[1] : nullptr,
                        bus_[static_cast<std::size_t>(c / 2)], part);
    }
    if (count > 0 && busDelay_ > 0) busLine_.advance(part.frames);
}

template <typename T>
void BandChannels<T>::takeBus(int channel, T* x, const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    vec::copy(x, part.side(channel), n);
    sanitise(x, n, kLoudestSignal);
    if (busDelay_ == 0) return;
    busLine_.put(channel, x, n);  // the newest sample is the one before it
    busLine_.copy(channel, x, busDelay_ - 1, n);
}

template <typename T> void BandChannels<T>::split(const AudioBlock<T>& part) noexcept
{
    for (int c = 0; c < part.channels; c += 2)
        splitter_.split(c / 2, part[c], c + 1 < part.channels ? part[c + 1] : nullptr,
                        audio_[static_cast<std::size_t>(c / 2)], part);
}

template <typename T> void BandChannels<T>::join(const AudioBlock<T>& part) noexcept
{
    for (int c = 0; c < part.channels; c += 2)
        splitter_.join(c / 2, audio_[static_cast<std::size_t>(c / 2)], part[c],
                       c + 1 < part.channels ? part[c + 1] : nullptr, part);
}

template <typename T> void BandChannels<T>::linkedPower(int band, T* p, int n) noexcept
{
    if (busChannels_ > 0) {
        vec::mulCopy(p, key(band, 0), key(band, 0), n);
        for (int c = 1; c < busChannels_; ++c) {
            const T* const x = key(band, c);
            for (int i = 0; i < n; ++i) p[i] += x[i] * x[i];
        }
        if (busChannels_ > 1) vec::scale(p, 1 / T(busChannels_), n);
        return;
    }
    if (channels_ > 1)
        vec::maxAbsCopy(p, key(band, 0), key(band, 1), n);
    else
        vec::copy(p, key(band, 0), n);
    for (int c = 2; c < channels_; ++c) vec::maxAbs(p, key(band, c), n);
    vec::mulInplace(p, p, n);
}

template <typename T> void BandChannels<T>::powers(KeySharing sharing, T* p, int n) noexcept
{
    const int count = bands();
    const auto row = [&](int set, int band) { return p + (set * count + band) * kSubBlock; };
    const bool hasOwn =
        busChannels_ == 0 ||
        (sharing == KeySharing::MidSide ? busChannels_ == 2 : busChannels_ >= channels_);
    for (int b = 0; b < count; ++b) {
        if (sharing == KeySharing::Linked || !hasOwn) {
            linkedPower(b, row(0, b), n);
            for (int s = 1; s < sets(sharing); ++s) vec::copy(row(s, b), row(0, b), n);
        } else if (sharing == KeySharing::MidSide) {
            const T *const left = key(b, 0), *const right = key(b, 1);
            T *const mid = row(0, b), *const side = row(1, b);
            for (int i = 0; i < n; ++i) {
                const T m = (left[i] + right[i]) * T(0.5), s = (left[i] - right[i]) * T(0.5);
                mid[i] = m * m;
                side[i] = s * s;
            }
        } else {
            for (int c = 0; c < channels_; ++c) vec::mulCopy(row(c, b), key(b, c), key(b, c), n);
        }
    }
}

template class BandChannels<float>;
template class BandChannels<double>;

}  // namespace quillworks
