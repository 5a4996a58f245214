// SPDX-License-Identifier: ISC
#include "adapters/common/song_position.h"

#include <cmath>

namespace quillworks::adapters {
namespace {

/// Up to here a double counts single frames; a song has fewer.
constexpr double kMostFrames = 0x1p53;

}  // namespace

SongWord SongPosition::present() const noexcept
{
    SongWord now = word_;
    const double frames = static_cast<double>(elapsed_) * word_.speed;
    now.frame += frames;
    now.quarterNotes += frames / sampleRate_ * word_.tempo / 60;
    const bool isCounted = elapsed_ == 0 || word_.speed == 0 || word_.tempo > 0;
    now.isBeatKnown = word_.isBeatKnown && isCounted;
    return now;
}

void SongPosition::tell(VNK::IEffectAlgorithm& algorithm) const noexcept
{
    if (!isKnown_) return;
    const auto word = present();
    VNK::Transport now;
    now.playing = word.speed != 0;
    now.tempo = word.tempo;
    now.positionKnown = word.isBeatKnown && std::isfinite(word.quarterNotes);
    if (now.positionKnown) now.quarterNotes = word.quarterNotes;
    now.frameKnown = word.isFrameKnown && std::abs(word.frame) < kMostFrames;
    if (now.frameKnown) now.frame = std::llround(word.frame);
    algorithm.setTransport(now);
}

}  // namespace quillworks::adapters
