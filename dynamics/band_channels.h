// SPDX-License-Identifier: ISC
// The channels of a multiband effect in bands, and what its detectors hear in them.
#pragma once

#include <vector>

#include "dsp/band_splitter.h"
#include "dsp/long_line.h"
#include "framework/audio_block.h"

namespace quillworks {

/// Which channels have a detector in common: a set of keys is one key for each band.
enum class KeySharing {
    Linked,      // one set for all
    PerChannel,  // each its own
    MidSide,     // two channels as their mid and their side
};

/// Splits the effect's own channels and those of the external bus alike. Once per slice
///
///     begin(part); split(part, of the audio); powers(...); ...; join(part);
template <typename T> class BandChannels {
public:
    /// Allocates.
    void prepare(double sampleRate, int channels, int longestBusDelay = 0);
    void reset() noexcept;
    /// Frames that the bus is delayed by, as the audio is before split(). A bus that has just come
    /// is silent until then. reset() follows.
    void setBusDelay(int frames) noexcept { busDelay_ = frames; }
    /// Number of bands and where they part; see there. Its begin() is called here.
    BandSplitter<T>& splitter() noexcept { return splitter_; }
    int bands() const noexcept { return splitter_.bands(); }
    int channels() const noexcept { return channels_; }

    /// The splits move on; takes in the bus. When it comes, goes or has another number of channels,
    /// what its filters have heard is past.
    void begin(const AudioBlock<T>& part) noexcept;
    /// The slice's channels into bands.
    void split(const AudioBlock<T>& part) noexcept;
    /// The samples of one channel in a band, which may be changed before join().
    T* band(int band, int channel) noexcept
    {
        return audio_[static_cast<std::size_t>(channel / 2)].of(band, channel % 2);
    }
    /// The sum of the bands to the slice's channels.
    void join(const AudioBlock<T>& part) noexcept;

    /// As it can be with these channels: mid and side are of two.
    KeySharing possible(KeySharing wanted) const noexcept
    {
        return wanted == KeySharing::MidSide && channels_ != 2 ? KeySharing::Linked : wanted;
    }
    int sets(KeySharing sharing) const noexcept
    {
        return sharing == KeySharing::PerChannel ? channels_
                                                 : (sharing == KeySharing::MidSide ? 2 : 1);
    }
    /// The power that each detector hears: key b of set s has the row p + (s bands + b) kSubBlock.
    /// Linked, the largest of all channels. Of a bus, the mean of its channels' powers, so that
    /// opposite polarities do not cancel; the channel's own where each has one.
    void powers(KeySharing sharing, T* p, int n) noexcept;

private:
    const T* key(int band, int channel) const noexcept
    {
        const auto& rows = busChannels_ > 0 ? bus_ : audio_;
        return rows[static_cast<std::size_t>(channel / 2)].of(band, channel % 2);
    }
    void takeBus(int channel, T* x, const AudioBlock<T>& part) noexcept;
    void linkedPower(int band, T* p, int n) noexcept;

    int channels_ = 0, busChannels_ = 0;
    int busPair_ = 0;  // of the splitter, its first for the bus
    int busDelay_ = 0;
    BandSplitter<T> splitter_;
    std::vector<BandRows<T>> audio_, bus_;  // by pair
    LongLine<T> busLine_;
};

}  // namespace quillworks
