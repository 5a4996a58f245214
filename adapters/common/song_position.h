// SPDX-License-Identifier: ISC
// Where the song stands as hosts tell it, carried on from word to word.
#pragma once

#include <cstdint>

#include "vnk/effect.h"

namespace quillworks::adapters {

/// What a host says of the coming frame.
struct SongWord {
    double speed = 0;  // 1: as recorded, 0: standing
    double tempo = 0;  // quarter notes per minute, 0: unknown
    bool isFrameKnown = false, isBeatKnown = false;
    double frame = 0;         // since the start of the song
    double quarterNotes = 0;  // since the start of the song
};

/// The unit is prepared once and then belongs to the audio thread.
class SongPosition {
public:
    void prepare(double sampleRate) noexcept { sampleRate_ = sampleRate; }
    /// As before the first word.
    void forget() noexcept
    {
        isKnown_ = false;
        word_ = {};
        elapsed_ = 0;
    }

    /// The host's word holds from here on.
    void set(const SongWord& word) noexcept
    {
        isKnown_ = true;
        word_ = word;
        elapsed_ = 0;
    }
    /// Hands the position to the effect for its next block.
    void tell(VNK::IEffectAlgorithm& algorithm) const noexcept;
    void advance(int frames) noexcept
    {
        if (isKnown_) elapsed_ += frames;
    }

    /// The last word as it stands now, as far as it could be carried on: not the beat while the
    /// song runs at a tempo that nobody has told.
    SongWord present() const noexcept;

private:
    double sampleRate_ = 48000;
    bool isKnown_ = false;
    // The last word, and how long ago that was: added up block by block the position would depend
    // on how the host cuts its blocks.
    SongWord word_;
    std::int64_t elapsed_ = 0;
};

}  // namespace quillworks::adapters
