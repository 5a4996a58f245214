// SPDX-License-Identifier: ISC
// Panning over the hull of the speakers: a direction becomes powers of the speakers around it.
#pragma once

#include <array>
#include <span>
#include <vector>

namespace quillworks {

using UnitVector = std::array<double, 3>;  // x to the front, y to the left, z up

/// Vector base amplitude panning (Pulkki 1997) with imaginary speakers (Zotter and Frank 2012)
/// where real ones leave a gap: in the middle of ear-level gaps above 120 degrees, above and below
/// a layout without heights, and on facets with more than three corners, whose triangulation would
/// else not be symmetric. What an imaginary speaker is given goes to those around it. All in
/// powers: their sum is 1 in every direction.
class HullPanner {
public:
    static constexpr int kMostSpeakers = 32;

    /// Directions of the speakers, at least one and at most kMostSpeakers; speakers in one place
    /// share what the place is given. Allocates, and takes up to some milliseconds.
    void prepare(std::span<const UnitVector> speakers);

    int speakers() const noexcept { return count_; }
    int imaginarySpeakers() const noexcept { return imaginary_; }

    /// Powers of the speakers for a direction (of about unit length); `hint` remembers the triangle
    /// for the next search, 0 at first and after each preparation. [prepared]
    void powers(const UnitVector& direction, double* powers, int& hint) const noexcept;

    /// The same in two steps, for a source of many directions: the sum of what each gives to the
    /// points of the hull, of which there are points() and at most kMostPoints, and from it the
    /// powers of the speakers. [prepared]
    int points() const noexcept { return static_cast<int>(points_.size()); }
    void add(const UnitVector& direction, double weight, double* points, int& hint) const noexcept;
    void share(const double* points, double* powers) const noexcept;

    static constexpr int kMostPoints = 96;  // a hull that takes more is none

private:
    /// A point of the hull and what of its power each speaker gets.
    struct Point {
        UnitVector at;
        std::array<double, kMostSpeakers> shares{};
    };
    struct Triangle {
        std::array<int, 3> corner;
        std::array<UnitVector, 3> inverse;  // rows: gain of each corner from a direction
        std::array<int, 3> beyond;          // triangle across the edge opposite to each corner
    };

    void addImaginary(const UnitVector& at, std::span<const int> sharers);
    void fillGapsOfTheEar(std::span<const UnitVector> speakers);
    bool closesFacets();
    bool findTriangles();
    void findNeighbours();
    UnitVector gains(int triangle, const UnitVector& direction) const noexcept;
    bool walk(const UnitVector& direction, int& triangle, UnitVector& gains) const noexcept;

    std::vector<Point> points_;
    std::vector<Triangle> triangles_;
    int count_ = 0, imaginary_ = 0;
};

}  // namespace quillworks
