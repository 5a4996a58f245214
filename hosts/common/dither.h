// SPDX-License-Identifier: ISC
// Dither: noise in place of distortion where a sample is rounded to fewer bits.
#pragma once

#include <cstddef>
#include <random>
#include <vector>

namespace quillhost {

/// The words of --dither in this order.
enum class Dither {
    /// Triangular noise of two steps: the error has neither mean nor power that follow the signal
    /// (Lipshitz, Wannamaker and Vanderkooy, "Quantization and Dither", 1992).
    Triangular,
    /// The same with its error moved to where the ear is dull: at 44.1 and 48 kHz by the five-tap
    /// filter of Lipshitz, Vanderkooy and Wannamaker, "Minimally Audible Noise Shaping" (1991), at
    /// other rates by one zero at 0 Hz.
    Shaped,
    /// Rounds to the nearest.
    None,
};

/// Rounds the samples of a file. Noise begins, channel by channel, with the first sample that lies
/// between two steps: what has the target's resolution already stays the same bits, and so does
/// silence before the sound. The noise is the same in every run and for every division into calls.
class Ditherer {
public:
    Ditherer(Dither kind, int channels, int sampleRate);

    /// Samples in steps of the target become whole ones.
    void round(int channel, double* steps, std::size_t n) noexcept;

private:
    static constexpr std::size_t kTaps = 5;

    struct Channel {
        bool isOn = false;
        std::mt19937_64 random;
        double errors[kTaps] = {};  // of the last samples, the newest first
    };

    double noise(Channel& channel) const noexcept;

    Dither kind_;
    const double* shape_;
    std::vector<Channel> channels_;
};

}  // namespace quillhost
