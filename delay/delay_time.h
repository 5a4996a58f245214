// SPDX-License-Identifier: ISC
// From time or note value, tempo and speed to tape length and motor speed.
#pragma once
#include <algorithm>

#include "delay/tape_line.h"
#include "dsp/note_value.h"

namespace quillworks {

struct DelayTime {
    int samples = 0;        // N: the delay at tempo ratio and speed 1
    float tempoRatio = 1;   // tempo over 120 BPM while synced
    float speedFactor = 1;  // of the motor, 0.5 .. 2

    /// `seconds` at 120 BPM. While synced the line keeps the length it has at 120 BPM and the tempo
    /// enters through the speed alone, so that tempo changes bend.
    static DelayTime of(bool isSynced, float seconds, float tempo, float speed,
                        double sampleRate) noexcept
    {
        constexpr float kSlow = 0.5f, kFast = 2;
        DelayTime t;
        t.samples = static_cast<int>(double(seconds) * sampleRate + 0.5);
        if (isSynced) t.tempoRatio = quillworks::tempoRatio(tempo);
        // kHeads of the samples do not follow the speed; the rest makes up for them, save at its
        // ends, where the echo comes as much early or late as they lag behind.
        const auto n = static_cast<float>(t.samples);
        const float s = t.tempoRatio * speed;
        const float rest = n - TapeLine::kHeads * s;
        const float factor = rest > 0 ? (n - TapeLine::kHeads) * s / rest : kFast;
        t.speedFactor = std::clamp(factor, kSlow, kFast);
        return t;
    }

    /// Distance of the heads in tape samples, the same at every speed.
    int tapeLength() const noexcept { return std::max(0, samples - TapeLine::kLatency); }
    /// What is heard, in output samples.
    double echo() const noexcept
    {
        return TapeLine::kHeads + (tapeLength() + TapeLine::kPlay) / double(speedFactor);
    }
    /// Delay of the lines that carry an echo to the other side, in output samples: as long as the
    /// tape's. The last term is fitted to what kHeads and kPlay make of a speed other than 1.
    int crossing() const noexcept
    {
        const float r = std::clamp(1 / tempoRatio, 0.5f, 2.0f);
        const float fit = ((r * 7.846f + 2.534f) * r - 10.49f) / ((r - 2.119f) * r + 1.537f);
        return static_cast<int>(float(tapeLength()) * r) + TapeLine::kLatency +
               static_cast<int>(fit);
    }
};

}  // namespace quillworks
