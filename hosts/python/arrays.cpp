// SPDX-License-Identifier: ISC
#include "arrays.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "error.h"

namespace quillworks::python {

SoundArray::SoundArray(const py::array& array, const char* what)
    : what_(what),
      data_(static_cast<const char*>(array.data())),
      isDouble_(py::isinstance<py::array_t<double>>(array)),
      isFlat_(array.ndim() == 1)
{
    if (!isDouble_ && !py::isinstance<py::array_t<float>>(array))
        throw py::type_error(std::string(what) + " holds " +
                             py::str(array.dtype()).cast<std::string>() +
                             " and must hold float32 or float64, with full scale at 1");
    if (array.ndim() != 1 && array.ndim() != 2)
        throw quillhost::UsageError(std::string(what) + " has " + std::to_string(array.ndim()) +
                                    " dimensions (channels by frames, or frames alone)");
    const auto channels = isFlat_ ? 1 : array.shape(0);
    if (channels < 1 || channels > quillhost::kMostChannels)
        throw quillhost::UsageError(
            std::string(what) + " has " + std::to_string(channels) + " channels by " +
            std::to_string(array.shape(1)) + " frames (1 to " +
            std::to_string(quillhost::kMostChannels) +
            " channels; an array of frames by channels goes in as array.T)");
    channels_ = static_cast<int>(channels);
    frames_ = array.shape(array.ndim() - 1);
    frameStride_ = array.strides(array.ndim() - 1);
    channelStride_ = isFlat_ ? 0 : array.strides(0);
}

template <typename S, typename T>
void SoundArray::readAs(quillhost::Planes<T>& planes, int at, py::ssize_t from, int count) const
{
    const int there = static_cast<int>(std::clamp<py::ssize_t>(frames_ - from, 0, count));
    for (int c = 0; c < channels_; ++c) {
        const char* source = data_ + c * channelStride_ + from * frameStride_;
        T* const target = planes[c] + at;
        T sum = 0;
        for (int i = 0; i < there; ++i, source += frameStride_) {
            S sample;
            std::memcpy(&sample, source, sizeof sample);  // an array need not be aligned
            target[i] = static_cast<T>(sample);
            sum += target[i] * 0;  // not a number as soon as one sample is none
        }
        std::fill(target + there, target + count, T{});
        if (sum == 0) continue;
        const auto bad =
            std::find_if(target, target + there, [](T x) { return !std::isfinite(x); });
        throw quillhost::UsageError(std::string(what_) + " is not finite in channel " +
                                    std::to_string(c) + " at frame " +
                                    std::to_string(from + (bad - target)));
    }
}

template <typename T>
void SoundArray::read(quillhost::Planes<T>& planes, int at, py::ssize_t from, int count) const
{
    isDouble_ ? readAs<double>(planes, at, from, count) : readAs<float>(planes, at, from, count);
}
template void SoundArray::read(quillhost::Planes<float>&, int, py::ssize_t, int) const;
template void SoundArray::read(quillhost::Planes<double>&, int, py::ssize_t, int) const;

void Unlocked::listen()
{
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + kPatience;
    const py::gil_scoped_acquire lock;
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

}  // namespace quillworks::python
