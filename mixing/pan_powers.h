// SPDX-License-Identifier: ISC
// Powers of a layout's speakers for a point between or behind them.
#pragma once

#include <array>
#include <vector>

#include "dsp/hull_panner.h"
#include "framework/speakers.h"

namespace quillworks {

/// Where a source stands and how large it is.
struct PanPlace {
    double x = 0, y = 1;       // to the right and to the front; 1 is where the speakers stand
    double elevation = 0;      // degrees above the ear
    double turn = 0;           // degrees clockwise from there
    double spread = 0;         // 0: a point, 1: all speakers alike
    double divergence = 0;     // 0 .. 1: how much of it is up to 60 degrees beside
    double centre = 1;         // share of what the centre speaker gets that stays in it
    double distanceShare = 0;  // 0: by direction, 1: by distance
};

/// Two laws, and any mixture of both. By direction: amplitude panning over the hull of the speakers
/// (Pulkki 1997), spread by eight more directions around the first (Pulkki 1999, "Uniform spreading
/// of amplitude panned virtual sources"), the more of them the nearer the source is to the
/// listener. By distance: the power falls by 12 dB per doubled distance of a speaker from the
/// source, which may stand between them (Lossius, Baltazar and de la Hogue, "DBAP", 2009). All in
/// powers, whose sum is 1: nothing that moves changes the level.
class PanPowers {
public:
    static constexpr int kMost = VNK::kMaxChannels;

    /// Remembers where the last source was found, each source its own.
    struct Search {
        std::array<int, 27> triangle{};  // by turn and direction
    };

    /// Allocates, and takes up to some milliseconds.
    void prepare(const VNK::SpeakerArrangement& layout);

    /// Of each channel; 0 for LFE. [prepared]
    void of(const PanPlace& place, double* powers, Search& search) const noexcept;

private:
    /// What a source adds: to the points of the hull, to all speakers alike, and to each speaker.
    struct Sum {
        double points[HullPanner::kMostPoints];
        double all = 0;
        double speakers[kMost];
    };
    /// What all turns of a source have in common.
    struct Source {
        explicit Source(const PanPlace& at) noexcept;

        const PanPlace& place;
        double radius, azimuth, cosE, sinE;  // azimuth without any turn
        double spread;                       // by direction, which the middle of the room widens
        double along = 1, aside = 0;         // of the directions around
    };
    void addTurned(const Source& source, double turn, double weight, Sum& sum,
                   int* hints) const noexcept;
    void addByDirection(const Source& source, double cosA, double sinA, double weight, Sum& sum,
                        int* hints) const noexcept;
    void addByDistance(const UnitVector& at, double spread, double weight, Sum& sum) const noexcept;

    HullPanner hull_;
    std::vector<int> channels_;         // of the speakers that have a direction
    std::vector<UnitVector> speakers_;  // theirs
    bool hasHeights_ = false;
    int left_ = -1, right_ = -1, centre_ = -1;  // channels
};

}  // namespace quillworks
