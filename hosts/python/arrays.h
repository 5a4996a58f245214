// SPDX-License-Identifier: ISC
// Arrays of NumPy as sound: channels by frames, or the frames of one channel, as float32 or
// float64.
#pragma once

#include <chrono>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "sound_file.h"

namespace quillworks::python {

namespace py = pybind11;

/// A view of an array, which must outlive it. Strides may be anything. It is read without the
/// interpreter's lock.
class SoundArray {
public:
    /// TypeError for other sample types, ValueError for shapes that are no sound. `what` is its
    /// name in messages.
    SoundArray(const py::array& array, const char* what);

    bool isDouble() const noexcept { return isDouble_; }
    bool isFlat() const noexcept { return isFlat_; }
    int channels() const noexcept { return channels_; }
    py::ssize_t frames() const noexcept { return frames_; }
    /// Frames from .. from + count into the planes at `at`, silence beyond the end. UsageError for
    /// samples that are not finite.
    template <typename T>
    void read(quillhost::Planes<T>& planes, int at, py::ssize_t from, int count) const;

private:
    template <typename S, typename T>
    void readAs(quillhost::Planes<T>& planes, int at, py::ssize_t from, int count) const;

    const char* what_;
    const char* data_;
    bool isDouble_, isFlat_;
    int channels_;
    py::ssize_t frames_, channelStride_, frameStride_;  // strides in bytes
};

/// A new array, its samples not set; flat only for one channel.
template <typename T> py::array_t<T> newArray(int channels, py::ssize_t frames, bool isFlat)
{
    if (isFlat && channels == 1) return py::array_t<T>(frames);
    return py::array_t<T>({py::ssize_t(channels), frames});
}

/// Lets other threads of Python work while it lives, but for moments in which the signals of a
/// terminal are heard.
class Unlocked {
public:
    Unlocked() = default;
    /// Now and then, from the thread that made it: error_already_set for an interrupt.
    void listen();

private:
    py::gil_scoped_release release_;
    std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + kPatience;
    static constexpr std::chrono::milliseconds kPatience{100};
};

}  // namespace quillworks::python
