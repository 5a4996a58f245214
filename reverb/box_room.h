// SPDX-License-Identifier: ISC
// A room of six walls: where its reflections come from, and when, and how loud.
#pragma once

#include <array>

namespace quillworks {

enum class RoomShape { Room, Chamber, Hall, Church, Tunnel };

inline constexpr int kRoomShapes = 5;
inline constexpr double kSoundSpeed = 343;  // m/s

/// A sound that has met walls, as it arrives at the listener.
struct Reflection {
    double delay;      // s, behind the sound that comes straight
    double gain;       // against the one that comes straight
    int order;         // walls met, 1 .. 4
    double azimuth;    // radians, to the left positive
    double elevation;  // radians
};

/// Image sources in a box (Allen and Berkley, "Image method for efficiently simulating small-room
/// acoustics", JASA 1979), listener and sources at places that follow the room.
class BoxRoom {
public:
    static constexpr int kMostReflections = 40;

    /// `size` in metres: the side of the cube of the same volume.
    BoxRoom(RoomShape shape, double size) noexcept;

    /// What a wall leaves of a sound, in amplitude, so that it decays by 60 dB in so many seconds:
    /// one wall after each mean free path 4V/S (Sabine; Kosten 1960). At most 0.97.
    double reflectance(double decaySeconds) const noexcept;
    /// Seconds; none of the loudest reflections is later, whatever else is set.
    double latest() const noexcept { return 2 * length_ / kSoundSpeed; }
    /// Metres from the listener to the pair of sources. `distance` 0 .. 1.
    double reach(double distance) const noexcept { return (0.08 + 0.42 * distance) * length_; }

    using Reflections = std::array<Reflection, kMostReflections>;
    /// The loudest reflections of order 1 to 4 of a source 30 degrees to the left (side 1), to the
    /// right (-1) or straight ahead (0); returns how many there are. Takes some microseconds.
    int reflections(int side, double distance, double reflectance, Reflections& to) const noexcept;

private:
    double length_, width_, height_;  // m: to the front, to the left, up
};

}  // namespace quillworks
