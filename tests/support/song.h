// SPDX-License-Identifier: ISC
// A song that plays, with the position that hosts tell.
#pragma once

#include <functional>

#include "tests/support/effect_under_test.h"

namespace quillworks::test {

/// Plays a song from `frame` on, by default 1 throughout, so that the output of a gain is the gain.
/// Loops back by `loop` frames at `loopAt`.
struct Song {
    double tempo = 120, rate = 48000;
    std::int64_t loopAt = -1, loop = 0;

    template <typename T>
    Channels<T> play(EffectUnderTest<T>& fx, std::int64_t frame, int frames, int block = 512,
                     const std::function<void(int)>& automate = {}, Channels<T> x = {}) const
    {
        if (x.empty()) x.assign(2, constant<T>(std::size_t(frames), 1));
        fx.tempo(tempo).sampleRate(rate).prepare(int(x.size()));
        auto y = x;
        for (int done = 0; done < frames;) {
            if (automate) automate(done);
            if (frame == loopAt) frame -= loop;
            int n = std::min(block - done % block, frames - done);
            if (loopAt > frame) n = int(std::min<std::int64_t>(n, loopAt - frame));
            fx.algorithm().setTransport({.playing = true,
                                         .positionKnown = true,
                                         .quarterNotes = double(frame) * tempo / (60 * rate),
                                         .frameKnown = true,
                                         .frame = frame,
                                         .tempo = tempo});
            fx.processBlock(x, y, done, n);
            done += n, frame += n;
        }
        return y;
    }
};

}  // namespace quillworks::test
