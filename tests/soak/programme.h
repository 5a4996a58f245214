// SPDX-License-Identifier: ISC
// Programme material of a long run: noise, silence, tones, pulses, denormals and bad samples.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace quillworks::test {

/// Endless material in segments of up to 1.5 s. Now and then come up to 64 frames of what is no
/// audio (NaN, infinity, absurd levels), and then at least 1.5 s that is: an effect has one second
/// to recover.
class Programme {
public:
    Programme(double sampleRate, std::uint32_t seed, int channels)
        : rate_(sampleRate), random_(seed)
    {
        for (int c = 0; c < channels; ++c) noise_.push_back(static_cast<std::uint32_t>(random_()));
    }

    template <typename T> void play(T* const* out, int frames)
    {
        for (int done = 0, n = 0; done < frames; done += n) {
            if (left_ == 0) nextSegment();
            n = std::min(frames - done, left_);
            for (std::size_t c = 0; c < noise_.size(); ++c) fill(out[c] + done, noise_[c], n);
            phase_ = std::fmod(phase_ + step_ * n, 2 * std::numbers::pi);
            left_ -= n;
            cleanFrames_ = kind_ == Bad ? 0 : cleanFrames_ + n;
        }
    }

private:
    enum Kind { Noise, Silence, Tone, Pulses, Denormals, Bad };

    void nextSegment()
    {
        constexpr double levels[] = {0.001, 0.1, 0.5, 1, 8};
        const bool isBad = cleanFrames_ > 1.5 * rate_ && random_() % 3 == 0;
        kind_ = isBad ? Bad : static_cast<Kind>(random_() % Bad);
        left_ = 1 + static_cast<int>(random_() % (isBad ? 64 : unsigned(1.5 * rate_)));
        level_ = levels[random_() % std::size(levels)];
        step_ = std::numbers::pi * std::exp2(-double(random_() % 1000) / 80);  // 12 octaves
    }

    template <typename T> void fill(T* x, std::uint32_t& noise, int n)
    {
        using Limits = std::numeric_limits<T>;
        constexpr T bad[] = {Limits::quiet_NaN(), Limits::infinity(),  -Limits::infinity(), T(1e30),
                             Limits::max(),       Limits::denorm_min()};
        const auto level = static_cast<T>(level_);
        for (int i = 0; i < n; ++i) {
            noise = noise * 1664525u + 1013904223u;
            switch (kind_) {
            case Noise:
                x[i] = level * (T(noise >> 8) / T(1 << 23) - 1);
                break;
            case Silence:
                x[i] = 0;
                break;
            case Tone:
                x[i] = level * static_cast<T>(std::sin(phase_ + step_ * i));
                break;
            case Pulses:
                x[i] = noise >> 20 == 0 ? level : T(0);
                break;
            case Denormals:
                x[i] = Limits::denorm_min() * T(noise >> 24);
                break;
            case Bad:
                x[i] = bad[(noise >> 16) % std::size(bad)];
                break;
            }
        }
    }

    double rate_;
    std::mt19937 random_;
    std::vector<std::uint32_t> noise_;  // by channel
    Kind kind_ = Silence;
    int left_ = 0;  // frames of the segment
    double cleanFrames_ = 0;
    double level_ = 0, phase_ = 0, step_ = 0;  // radians
};

}  // namespace quillworks::test
