// SPDX-License-Identifier: ISC
#include "modulation/song_lfo.h"

namespace quillworks {

void SongLfo::prepare(double sampleRate) noexcept
{
    clock_.prepare(sampleRate);
    cycle_.prepare(sampleRate);
}

void SongLfo::reset() noexcept
{
    clock_.reset();
    cycle_.reset();
    isFresh_ = true;
}

void SongLfo::set(const Settings& settings) noexcept
{
    settings_ = settings;
    if (!(settings_.noteValue > 0)) settings_.noteValue = 0.5;
    update();
}

void SongLfo::setTempo(double beatsPerMinute) noexcept
{
    tempo_ = beatsPerMinute;
    update();
}

/// A song that stands still leaves its tempo.
void SongLfo::update() noexcept
{
    const double synced = tempo_ / (120 * exactNoteValue(settings_.noteValue));
    cycle_.set(settings_.isSynced, settings_.noteValue,
               settings_.isSynced ? synced : settings_.hertz);
}

void SongLfo::next(int offset) noexcept
{
    place_ = cycle_.next(clock_, offset);
    jumps_ = !isFresh_ && (cycle_.hasJumped() || settings_.wave != waves_.wave());
    waves_.select(settings_.wave);
    isFresh_ = false;
}

double SongLfo::hertz() const noexcept
{
    if (!settings_.isSynced) return settings_.hertz;
    const double tempo = clock_.isLocked() ? clock_.tempo() : tempo_;
    return tempo / (120 * exactNoteValue(settings_.noteValue));
}

}  // namespace quillworks
