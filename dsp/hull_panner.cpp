// SPDX-License-Identifier: ISC
#include "dsp/hull_panner.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

constexpr double kCoplanar = 1e-7;       // distance from a facet's plane
constexpr double kThroughCentre = 1e-6;  // distance of a facet's plane from the listener
constexpr double kWidestGap = 120 * std::numbers::pi / 180;
// Gains of a triangle's corners: of a direction within it, within or on its edge, and away from a
// corner.
constexpr double kWithin = 1e-7, kOutside = -1e-9, kAtCorner = 1e-3;

UnitVector operator-(const UnitVector& a, const UnitVector& b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
UnitVector operator+(const UnitVector& a, const UnitVector& b)
{
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
UnitVector operator*(double s, const UnitVector& a)
{
    return {s * a[0], s * a[1], s * a[2]};
}
double dot(const UnitVector& a, const UnitVector& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
UnitVector cross(const UnitVector& a, const UnitVector& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double least(const UnitVector& g)
{
    return std::min({g[0], g[1], g[2]});
}
double length(const UnitVector& a)
{
    return std::sqrt(dot(a, a));
}
UnitVector normalised(const UnitVector& a)
{
    return (1 / length(a)) * a;
}

/// Corners of the plane through three points if all others lie on one side of it; empty if not.
struct Facet {
    UnitVector normal{};  // outward
    double distance = 0;  // of the plane from the listener, along the normal
    std::vector<int> corners;
};

template <class Points> Facet facetOf(const Points& points, int i, int j, int k)
{
    const auto at = [&](int p) -> const UnitVector& {
        return points[static_cast<std::size_t>(p)].at;
    };
    Facet facet;
    const UnitVector across = cross(at(j) - at(i), at(k) - at(i));
    if (length(across) < 1e-9) return facet;
    facet.normal = normalised(across);
    facet.distance = dot(facet.normal, at(i));
    bool isAbove = false, isBelow = false;
    for (int p = 0; p < static_cast<int>(points.size()); ++p) {
        const double d = dot(facet.normal, at(p)) - facet.distance;
        if (std::abs(d) <= kCoplanar)
            facet.corners.push_back(p);
        else
            (d > 0 ? isAbove : isBelow) = true;
    }
    if (isAbove == isBelow) facet.corners.clear();  // cuts the hull, or is all there is
    if (isAbove) facet.normal = -1.0 * facet.normal, facet.distance = -facet.distance;
    return facet;
}

}  // namespace

void HullPanner::prepare(std::span<const UnitVector> speakers)
{
    assert(!speakers.empty() && speakers.size() <= kMostSpeakers);
    points_.clear();
    triangles_.clear();
    count_ = static_cast<int>(speakers.size());
    imaginary_ = 0;
    std::vector<int> all;
    for (int i = 0; i < count_; ++i) {
        const auto& at = speakers[static_cast<std::size_t>(i)];
        const auto same = std::find_if(points_.begin(), points_.end(), [&](const Point& p) {
            return length(p.at - at) < kThroughCentre;
        });
        if (same != points_.end()) {
            same->shares[static_cast<std::size_t>(i)] = 1;
            continue;
        }
        all.push_back(static_cast<int>(points_.size()));
        points_.push_back({at, {}});
        points_.back().shares[static_cast<std::size_t>(i)] = 1;
    }
    for (auto& point : points_) {
        double sum = 0;
        for (const double share : point.shares) sum += share;
        for (double& share : point.shares) share /= sum;
    }
    if (points_.size() == 1) return;
    fillGapsOfTheEar(speakers);
    const bool hasHeights = std::any_of(speakers.begin(), speakers.end(),
                                        [](const UnitVector& u) { return std::abs(u[2]) > 1e-6; });
    const auto above = [&] {
        addImaginary({0, 0, 1}, all);
        addImaginary({0, 0, -1}, all);
    };
    if (!hasHeights) above();
    if (findTriangles()) return;
    // A set of speakers that spans no space: what is missing is imagined in all directions.
    if (hasHeights) above();
    for (const auto& u : {UnitVector{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}})
        if (std::none_of(points_.begin(), points_.end(),
                         [&](const Point& p) { return length(p.at - u) < 0.1; }))
            addImaginary(u, all);
    findTriangles();
}

void HullPanner::addImaginary(const UnitVector& at, std::span<const int> sharers)
{
    Point point{at, {}};
    for (const int s : sharers)
        for (std::size_t i = 0; i < kMostSpeakers; ++i)
            point.shares[i] +=
                points_[static_cast<std::size_t>(s)].shares[i] / double(sharers.size());
    points_.push_back(point);
    ++imaginary_;
}

void HullPanner::fillGapsOfTheEar(std::span<const UnitVector> speakers)
{
    std::vector<std::pair<double, int>> ring;  // angle and point
    for (int i = 0; i < static_cast<int>(points_.size()); ++i) {
        const auto& u = points_[static_cast<std::size_t>(i)].at;
        if (std::abs(u[2]) < 1e-6) ring.emplace_back(std::atan2(u[1], u[0]), i);
    }
    if (ring.empty() || speakers.empty()) return;
    std::sort(ring.begin(), ring.end());
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const auto [from, a] = ring[i];
        auto [to, b] = ring[(i + 1) % ring.size()];
        if (i + 1 == ring.size()) to += 2 * std::numbers::pi;
        if (to - from <= kWidestGap + 1e-9) continue;
        const double middle = (from + to) / 2;
        const int both[] = {a, b};
        addImaginary({std::cos(middle), std::sin(middle), 0}, std::span(both, a == b ? 1 : 2));
    }
}

/// Puts an imaginary speaker onto the first facet that is no triangle around the listener. False if
/// there is none.
bool HullPanner::closesFacets()
{
    const int n = static_cast<int>(points_.size());
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            for (int k = j + 1; k < n; ++k) {
                const Facet facet = facetOf(points_, i, j, k);
                const bool isOpen = facet.distance < kThroughCentre;
                if (facet.corners.size() < 3 || (facet.corners.size() == 3 && !isOpen)) continue;
                UnitVector middle{};
                for (const int c : facet.corners)
                    middle = middle + points_[static_cast<std::size_t>(c)].at;
                addImaginary(isOpen ? facet.normal : normalised(middle), facet.corners);
                return true;
            }
    return false;
}

/// Triangulates the hull. False, with nothing found, where the points span no space.
bool HullPanner::findTriangles()
{
    while (static_cast<int>(points_.size()) < kMostPoints && closesFacets()) {}
    triangles_.clear();
    const int n = static_cast<int>(points_.size());
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            for (int k = j + 1; k < n; ++k) {
                if (facetOf(points_, i, j, k).corners.size() != 3) continue;
                const auto& a = points_[static_cast<std::size_t>(i)].at;
                const auto& b = points_[static_cast<std::size_t>(j)].at;
                const auto& c = points_[static_cast<std::size_t>(k)].at;
                const double volume = dot(a, cross(b, c));
                if (std::abs(volume) < 1e-9) continue;
                triangles_.push_back({{i, j, k},
                                      {(1 / volume) * cross(b, c), (1 / volume) * cross(c, a),
                                       (1 / volume) * cross(a, b)},
                                      {}});
            }
    findNeighbours();
    return !triangles_.empty();
}

void HullPanner::findNeighbours()
{
    const int n = static_cast<int>(triangles_.size());
    for (int t = 0; t < n; ++t)
        for (std::size_t c = 0; c < 3; ++c) {
            auto& triangle = triangles_[static_cast<std::size_t>(t)];
            const int a = triangle.corner[(c + 1) % 3], b = triangle.corner[(c + 2) % 3];
            const auto has = [](const Triangle& other, int corner) {
                return std::find(other.corner.begin(), other.corner.end(), corner) !=
                       other.corner.end();
            };
            triangle.beyond[c] = t;  // none: the hull has a hole
            for (int other = 0; other < n; ++other) {
                const auto& o = triangles_[static_cast<std::size_t>(other)];
                if (other != t && has(o, a) && has(o, b)) triangle.beyond[c] = other;
            }
        }
}

void HullPanner::powers(const UnitVector& direction, double* powers, int& hint) const noexcept
{
    double points[kMostPoints];
    std::fill_n(points, points_.size(), 0.0);
    add(direction, 1, points, hint);
    share(points, powers);
}

UnitVector HullPanner::gains(int t, const UnitVector& direction) const noexcept
{
    const Triangle& triangle = triangles_[static_cast<std::size_t>(t)];
    return {dot(triangle.inverse[0], direction), dot(triangle.inverse[1], direction),
            dot(triangle.inverse[2], direction)};
}

/// From triangle to triangle toward a direction. False where it lies at a corner or is not found in
/// a few steps.
bool HullPanner::walk(const UnitVector& direction, int& triangle, UnitVector& found) const noexcept
{
    constexpr int kMostSteps = 8;
    found = gains(triangle, direction);
    for (int step = 0; step < kMostSteps; ++step) {
        // Within a triangle there is no other.
        const double smallest = least(found);
        if (smallest > kWithin) return true;
        const std::size_t c = found[0] == smallest ? 0 : found[1] == smallest ? 1 : 2;
        const int beyond = triangles_[static_cast<std::size_t>(triangle)].beyond[c];
        const UnitVector there = gains(beyond, direction);
        if (smallest < kOutside) {
            triangle = beyond;
            found = there;
            continue;
        }
        // On an edge the first of the two, so that nothing depends on where the source has been.
        if (std::min(found[(c + 1) % 3], found[(c + 2) % 3]) < kAtCorner) return false;
        if (beyond < triangle && least(there) >= kOutside) {
            triangle = beyond;
            found = there;
        }
        return true;
    }
    return false;
}

void HullPanner::add(const UnitVector& direction, double weight, double* points,
                     int& hint) const noexcept
{
    if (triangles_.empty()) {
        points[0] += weight;
        return;
    }
    UnitVector gains;
    if (!walk(direction, hint, gains)) {
        double best = -1e300;
        for (int t = 0; t < static_cast<int>(triangles_.size()) && best < kOutside; ++t) {
            const UnitVector g = this->gains(t, direction);
            if (!(least(g) > best)) continue;
            best = least(g);
            gains = g;
            hint = t;
        }
    }
    double sum = 1e-300;
    for (double& g : gains) {
        g = std::max(g, 0.0);
        g *= g;
        sum += g;
    }
    const auto& corners = triangles_[static_cast<std::size_t>(hint)].corner;
    for (std::size_t c = 0; c < 3; ++c) points[corners[c]] += weight * (gains[c] / sum);
}

void HullPanner::share(const double* points, double* powers) const noexcept
{
    std::fill_n(powers, count_, 0.0);
    for (std::size_t p = 0; p < points_.size(); ++p) {
        if (points[p] == 0) continue;
        const double* const shares = points_[p].shares.data();
        for (int i = 0; i < count_; ++i) powers[i] += points[p] * shares[i];
    }
}

}  // namespace quillworks
