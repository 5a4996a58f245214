// SPDX-License-Identifier: ISC
#include "dynamics/gate_gain.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"

namespace quillworks {
namespace {

constexpr double kLongestGap = 0.0125;   // seconds: half-waves down to 40 Hz
constexpr double kChangeSeconds = 0.02;  // of another range

/// 0.5 - 0.5 cos(pi t) = sin(pi t/2)^2 for 0 <= t <= 1, by the Taylor series of the sine: its first
/// term left out is 4.4e-14.
template <typename T> T raisedCosine(T t) noexcept
{
    const T u = t * t;
    T s = T(6.066935730769387e-12);
    s = s * u - T(6.688035109811467e-10);
    s = s * u + T(5.692172921967926e-8);
    s = s * u - T(3.598843235212085e-6);
    s = s * u + T(1.604411847873598e-4);
    s = s * u - T(4.681754135318688e-3);
    s = s * u + T(7.969262624616704e-2);
    s = s * u - T(0.6459640975062463);
    s = s * u + T(1.570796326794897);
    s *= t;
    return s * s;
}

}  // namespace

template <typename T> int GateGain<T>::frames(double seconds) const noexcept
{
    return std::max(1, static_cast<int>(seconds * sampleRate_ + 0.5));
}

template <typename T> void GateGain<T>::reset(bool isOpen) noexcept
{
    isOpen_ = isOpen;
    left_ = hold_;
    value_ = target_ = aim();
    length_ = position_ = 0;
}

template <typename T> void GateGain<T>::setThreshold(double db, double hysteresis) noexcept
{
    opensAt_ = dbToGain(db);
    holdsAt_ = dbToGain(db - hysteresis);
}

template <typename T> void GateGain<T>::setRange(double db) noexcept
{
    range_ = db <= kSilentRange ? T(0) : T(dbToGain(db));
}

template <typename T> void GateGain<T>::setDuck(bool ducks) noexcept
{
    if (ducks_ == ducks) return;
    ducks_ = ducks;
    // What the key has under way would lead the wrong way; a change of settings is short.
    if (!(isMoving() && isChange_)) {
        begin(frames(kChangeSeconds), true);
        isChange_ = true;
    }
}

template <typename T>
void GateGain<T>::setTimes(double attack, double hold, double release, double lowCut) noexcept
{
    const double gap = lowCut > 0 ? std::min(kLongestGap, 0.625 / lowCut) : kLongestGap;
    attack_ = frames(attack);
    hold_ = frames(std::max(hold, gap));
    release_ = frames(release);
    left_ = std::min(left_, hold_);
}

template <typename T> bool GateGain<T>::run(const double* key, double peak, T* gain, int n) noexcept
{
    bool isSteady = !isMoving() && value_ == aim();
    int rendered = 0;
    for (int at = 0; at < n; ++at) {
        at = isOpen_ ? findClosing(key, peak, at, n) : findOpening(key, peak, at, n);
        if (at == n) break;
        isSteady = false;
        render(gain + rendered, at - rendered);
        rendered = at;
        isOpen_ = !isOpen_;
        begin(isOpen_ ? attack_ : release_, !isOpen_);
    }
    if (isSteady)
        gain[0] = value_;
    else
        render(gain + rendered, n - rendered);
    return isSteady;
}

/// First frame from `from` on at which the closed gate opens, n if none.
template <typename T>
int GateGain<T>::findOpening(const double* key, double peak, int from, int n) noexcept
{
    if (!(peak >= opensAt_)) return n;
    while (from < n && !(key[from] >= opensAt_)) ++from;
    if (from < n) left_ = hold_;
    return from;
}

/// First frame from `from` on at which the open gate closes, n if none.
template <typename T>
int GateGain<T>::findClosing(const double* key, double peak, int from, int n) noexcept
{
    const int count = n - from;
    if (std::min(left_, hold_) > count) {  // not yet: only the last that holds it open counts
        int since = count;
        if (peak >= holdsAt_) {
            since = 0;
            while (since < count && !(key[n - 1 - since] >= holdsAt_)) ++since;
        }
        left_ = (since < count ? hold_ : left_) - since;
        return n;
    }
    for (; from < n; ++from) {
        if (key[from] >= holdsAt_)
            left_ = hold_;
        else if (--left_ == 0)
            break;
    }
    return from;
}

/// A curve from the present gain to the aim.
template <typename T> void GateGain<T>::begin(int length, bool inDb) noexcept
{
    const auto place = [inDb](T gain) {
        if (!inDb) return gain;
        return T(std::max(kSilentRange, gainToDb(double(gain))));
    };
    target_ = aim();
    from_ = place(value_);
    way_ = place(target_) - from_;
    length_ = value_ == target_ ? 0 : length;
    position_ = 0;
    isInDb_ = inDb;
    isChange_ = false;
}

template <typename T> void GateGain<T>::render(T* gain, int n) noexcept
{
    while (n > 0) {
        if (!isMoving()) {
            if (value_ == aim()) return vec::set(gain, value_, n);
            begin(frames(kChangeSeconds), true);  // the range has moved
            isChange_ = true;
        }
        const int count = std::min(n, length_ - position_);
        curve(gain, count);
        position_ += count;
        if (!isMoving()) gain[count - 1] = target_;
        value_ = gain[count - 1];
        gain += count;
        n -= count;
    }
}

template <typename T> void GateGain<T>::curve(T* gain, int n) const noexcept
{
    const T share = T(1) / T(length_);
    for (int i = 0; i < n; ++i) gain[i] = from_ + way_ * raisedCosine(T(position_ + i + 1) * share);
    if (isInDb_) vec::gainFromDecibels(gain, gain, n);
}

template class GateGain<float>;
template class GateGain<double>;

}  // namespace quillworks
