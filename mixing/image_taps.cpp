// SPDX-License-Identifier: ISC
#include "mixing/image_taps.h"

#include <algorithm>
#include <cmath>

#include "dsp/fetch_ahead.h"

namespace quillworks {
namespace {

constexpr UnitVector kRoom = {6.2, 4.7, 2.9};      // m
constexpr UnitVector kListener = {2.6, 2.1, 1.3};  // m from the rear, the right and the floor
constexpr double kFarthest = 1.9;                  // m, that a source stands away
constexpr double kToWall = 0.1;                    // m, at least
constexpr double kWall = 0.6, kFloor = 0.5;        // reflected
constexpr double kReference = 2.1;                 // m, path with a gain of 1
constexpr double kAbsorption = -3;                 // dB above the shadow's corner
constexpr double kLongest = 0.1;                   // s; the last image comes after 30 ms

}  // namespace

std::array<RoomImage, 6> roomImages(const UnitVector& direction, double distance) noexcept
{
    UnitVector source{}, from{};
    for (std::size_t k = 0; k < 3; ++k) {
        source[k] = std::clamp(kListener[k] + std::min(distance, kFarthest) * direction[k], kToWall,
                               kRoom[k] - kToWall);
        from[k] = source[k] - kListener[k];
    }
    const double own = std::hypot(from[0], from[1], from[2]);
    std::array<RoomImage, 6> images;
    for (std::size_t i = 0; i < 6; ++i) {
        const std::size_t axis = i / 2;
        UnitVector to = from;
        to[axis] = (i % 2 == 0 ? -source[axis] : 2 * kRoom[axis] - source[axis]) - kListener[axis];
        const double path = std::hypot(to[0], to[1], to[2]);
        images[i] = {{to[0] / path, to[1] / path, to[2] / path},
                     (path - own) / kSpeedOfSound,
                     (axis == 2 ? kFloor : kWall) * kReference / path};
    }
    return images;
}

template <typename T> void ImageTaps<T>::prepare(int sources, double sampleRate)
{
    sampleRate_ = sampleRate;
    lanes_ = sources * 12;
    line_.prepare(sources, static_cast<int>(kLongest * sampleRate) + 2 * LongLine<T>::kMirror);
    fade_.prepare(sampleRate, {.fade = 0.02, .listen = 0, .pause = 0.2});
    reset();
}

template <typename T> void ImageTaps<T>::reset() noexcept
{
    line_.clear();
    present_ = wanted_;
    std::fill_n(present_.z, kMost, T(0));
    isWanted_ = false;
    fade_.reset();
}

template <typename T>
void ImageTaps<T>::place(int source, const UnitVector& direction, double distance, double radius,
                         double timing) noexcept
{
    int lane = 12 * source;
    for (const auto& image : roomImages(direction, distance)) {
        const double left = head::lateness(image.direction, radius) * timing;
        for (int ear = 0; ear < 2; ++ear, ++lane) {
            const double late = image.late + std::max(0.0, ear == 0 ? left : -left);
            const auto colour = head::colour(head::toEar(image.direction, ear));
            const auto shadow = head::shelf<T>(0, colour[0] + kAbsorption, sampleRate_);
            wanted_.delay[lane] = static_cast<int>(late * sampleRate_ + 0.5);
            wanted_.b[lane] = shadow.b;
            wanted_.l[lane] = shadow.l * T(image.gain);
            wanted_.h[lane] = shadow.h * T(image.gain);
        }
    }
    isWanted_ = true;
}

template <typename T>
void ImageTaps<T>::process(const T* const* sources, T* const* ears, GridSlice slice) noexcept
{
    const int n = slice.frames;
    line_.write(sources, n);
    if (fade_.next(slice, isWanted_)) {
        leaving_ = present_;
        present_ = wanted_;
        std::fill_n(present_.z, kMost, T(0));
        isWanted_ = false;
    }
    T heard[2][kSubBlock];
    run(present_, heard, n);
    if (fade_.isFading()) {
        T before[2][kSubBlock];
        run(leaving_, before, n);
        const auto gains = fade_.template gains<T>(0, n);
        for (int ear = 0; ear < 2; ++ear) gains.mix(heard[ear], before[ear], n);
    }
    for (int ear = 0; ear < 2; ++ear) vec::addInplace(ears[ear], heard[ear], n);
    fade_.advance(n);
}

template <typename T> void ImageTaps<T>::run(Set& set, T (*ears)[kSubBlock], int n) noexcept
{
    ImageRun<T> run;
    T pieces[kMost][kSubBlock];
    for (int lane = 0; lane < lanes_; ++lane) {
        const int source = lane / 12, back = set.delay[lane] + n - 1;
        if (back < line_.valid()) {
            run.from[lane] = line_.at(source, back);
            fetchAhead(run.from[lane] + n, kSubBlock);  // of the next sub-block
        } else {
            line_.copy(source, pieces[lane], back, n);
            run.from[lane] = pieces[lane];
        }
    }
    run.b = set.b;
    run.l = set.l;
    run.h = set.h;
    run.z = set.z;
    run.lanes = lanes_;
    run.frames = n;
    run.ears[0] = ears[0];
    run.ears[1] = ears[1];
    ImageRun<T>::run(run);
}

template class ImageTaps<float>;
template class ImageTaps<double>;

}  // namespace quillworks
