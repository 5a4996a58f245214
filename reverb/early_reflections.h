// SPDX-License-Identifier: ISC
// The first reflections of a room, one by one.
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "dsp/crossfade.h"
#include "dsp/hull_panner.h"
#include "dsp/smoothed.h"
#include "framework/speakers.h"
#include "reverb/box_room.h"
#include "reverb/grid_lines.h"
#include "reverb/reflection_kernels.h"

namespace quillworks {

/// What the reflections depend on.
struct EarlyRoom {
    RoomShape shape = RoomShape::Room;
    double size = 12;             // m, see BoxRoom
    double distance = 0.4;        // 0 .. 1
    double decay = 1;             // s to -60 dB, of the middle
    double highDecay = 1;         // s, far above `highFrequency`
    double highFrequency = 4500;  // Hz, where the walls' filter is half way down
};

/// The forty loudest reflections of each of two sources in a box, left and right channels being
/// one each and those in the middle between them; a single channel is one source straight ahead.
/// Two channels hear as a near-coincident pair (cardioids at 55 degrees to each side, 0.17 m
/// apart); other layouts place each reflection between the two speakers next to it, above 30
/// degrees those of the height.
///
/// A reflection that has met k walls has passed the walls' filter k times, at most three. That is
/// done on the way in: once for each source, however many channels there are.
///
/// What changes the taps is worked out at a sub-block each, and they are cross-faded in 50 ms, one
/// change at a time, the latest waiting; the walls' filter glides.
template <typename T> class EarlyReflections {
public:
    /// Where the channels are heard, 1 to 16, no LFE. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, std::span<const SpeakerPlace> places);
    /// Silence, in the room that is asked for.
    void reset() noexcept;
    void target(const EarlyRoom& room) noexcept;

    /// A slice: a row of each channel in and out, not the same, with room for kReflectionRow
    /// frames.
    void process(const T* const* in, T* const* out, GridSlice slice) noexcept;
    /// The same where nobody hears it: ready for when somebody does.
    void listen(const T* const* in, GridSlice slice) noexcept;
    /// Reflections heard later than this are left out: those along the largest tunnels.
    static constexpr double kLatest = 0.65;  // s

private:
    using Tap = ReflectionTap<T>;
    static constexpr int kMostChannels = 16;

    /// What decides the taps.
    struct Geometry {
        RoomShape shape = RoomShape::Room;
        double size = 0, distance = 0, decay = 0;

        explicit Geometry(const EarlyRoom& r) noexcept
            : shape(r.shape), size(r.size), distance(r.distance), decay(r.decay)
        {}
        Geometry() = default;
        bool operator==(const Geometry&) const = default;
    };
    /// The taps of each channel, those of short delays first.
    struct TapSet {
        AlignedBuffer<Tap> taps;
        std::array<int, kMostChannels> counts{};
    };

    void begin() noexcept;
    void addSource(int source) noexcept;
    void hearAsPair(int ring, const Reflection& reflection) noexcept;
    void pan(int ring, const Reflection& reflection) noexcept;
    void addTap(int channel, int ring, double delay, double gain) noexcept;
    void sortTaps() noexcept;
    WallCoefficients<T> walls() const noexcept;
    void takeIn(const T* const* in, GridSlice slice) noexcept;
    void advance(GridSlice slice) noexcept;
    void sum(const TapSet& set, int channel, T* out, int n) noexcept;
    int ringOf(int order, int source) const noexcept
    {
        return (std::min(order, kReflectionOrders) - 1) * kReflectionSources + source;
    }
    TapSet& coming() noexcept { return sets_[1 - current_]; }
    Tap* tapsOf(TapSet& set, int channel) const noexcept
    {
        return set.taps.data() + channel * capacity_;
    }

    double sampleRate_ = 44100;
    int channels_ = 0, sources_ = 1;
    bool isPair_ = false;     // two channels, heard as by a pair of microphones
    bool isFine_ = false;     // its delays lie between the samples
    bool isSwapped_ = false;  // the right one comes first
    int capacity_ = 0;        // of taps, per channel
    int latest_ = 0;          // samples
    /// What each source gets of each channel.
    std::array<std::array<T, kReflectionSources>, kMostChannels> shares_{};
    HullPanner panner_;
    int panningHint_ = 0;
    double heightElevation_ = 0;  // degrees, of the speakers above; 0: there are none
    EarlyRoom wanted_;
    Geometry present_, building_;
    int built_ = 0;  // sources of the coming taps, -1 if none are being built
    TapSet sets_[2];
    int current_ = 0;
    Crossfade fade_;
    Smoothed<double> wallOctave_, wallDecibels_;
    WallCoefficients<T> wallsTo_, wallsStep_;
    bool wallsMove_ = false;
    std::array<T, kReflectionOrders * kReflectionSources> states_{};
    GridLines<T> rings_;  // of one length: order by order, source by source
    int heard_ = 0;       // frames in the rings where the sub-block began
};

}  // namespace quillworks
