// SPDX-License-Identifier: ISC
// Takes a response out of the recording of what it was excited with.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "dsp/fft.h"

namespace quillworks {

/// Spectral division of recordings by one excitation, regularised where that has no energy
/// (Kirkeby and Nelson 1999): H = Y conj(X) / max(|X|^2, floor max |X|^2) w, in double precision.
/// The band w begins with a raised cosine from f1/2 to f1, below which the excitation says nothing.
///
/// Results are circular: index 0 is time 0, and what comes before it (the harmonics of an
/// exponential sweep among it) stands at the end.
class Deconvolver {
public:
    /// For recordings of at most `frames` frames and excitations of at most `excitation`. Throws
    /// std::bad_alloc, also where both are longer than any transform (2^26 frames in all).
    Deconvolver(std::size_t frames, std::size_t excitation);

    std::size_t length() const noexcept { return response_.size(); }

    /// `from`: the excitation's lowest frequency f1 in Hz. `floor`: share of the largest power
    /// below which it is taken to have no energy.
    void setExcitation(std::span<const float> signal, double sampleRate, double from, double floor);
    /// The response that made this recording; lives until the next call.
    std::span<const double> solve(std::span<const float> recording);
    /// Mean square of what the background of a recording, of which `noise` is a piece, leaves in
    /// the response.
    double noisePower(std::span<const float> noise);

    /// Sample at `time` frames of a circular response.
    static double at(std::span<const double> response, std::ptrdiff_t time) noexcept
    {
        const auto n = static_cast<std::ptrdiff_t>(response.size());
        return response[static_cast<std::size_t>(((time % n) + n) % n)];
    }

private:
    Fft<double> fft_;
    std::vector<double> inverse_;  // packed spectrum that recordings are multiplied by
    std::vector<double> response_;
};

}  // namespace quillworks
