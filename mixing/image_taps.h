// SPDX-License-Identifier: ISC
// The first reflections of a small room, as both ears hear them.
#pragma once

#include <array>

#include "dsp/long_line.h"
#include "dsp/matched_fade.h"
#include "mixing/head_model.h"
#include "mixing/image_kernel.h"

namespace quillworks {

/// A source mirrored in a wall, floor or ceiling.
struct RoomImage {
    UnitVector direction;
    double late;  // seconds behind the source itself
    double gain;  // linear
};

/// Six first-order images (Allen and Berkley 1979) of a source in a room of 6.2 x 4.7 x 2.9 m,
/// whose listener looks along its length. The source stays within the room; distance in m.
std::array<RoomImage, 6> roomImages(const UnitVector& direction, double distance) noexcept;

/// Reads the images of up to two sources from their lines: per image and ear a delay of whole
/// samples and the head's shadow. A new place is faded in over 20 ms, at most every 0.2 s.
template <typename T> class ImageTaps {
public:
    static constexpr int kMostSources = 2;
    static constexpr int kMost = ImageRun<T>::kMostLanes;

    /// Allocates.
    void prepare(int sources, double sampleRate);
    void reset() noexcept;
    /// Places the images of a source for a head of this radius in m; `timing` scales how much later
    /// the far ear is.
    void place(int source, const UnitVector& direction, double distance, double radius,
               double timing) noexcept;
    /// Adds to both ears what the sources make, one slice of each.
    void process(const T* const* sources, T* const* ears, GridSlice slice) noexcept;

private:
    /// Lane 2 i + ear is image i at that ear; the lanes of the first source come first.
    struct Set {
        int delay[kMost];                            // samples
        alignas(64) T b[kMost], l[kMost], h[kMost];  // one-poles, with the gain
        alignas(64) T z[kMost];
    };
    void run(Set& set, T (*ears)[kSubBlock], int n) noexcept;

    int lanes_ = 0;
    double sampleRate_ = 44100;
    LongLine<T> line_;
    Set wanted_{}, present_{}, leaving_{};
    bool isWanted_ = false;  // another place than the present one
    MatchedFade fade_;
};

}  // namespace quillworks
