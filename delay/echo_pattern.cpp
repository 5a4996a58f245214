// SPDX-License-Identifier: ISC
#include "delay/echo_pattern.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace quillworks {
namespace {

using Ring = std::vector<int>;

/// Degrees 0 .. 360 clockwise from the front.
double fromFront(const SpeakerPlace& place)
{
    return place.azimuth < 0 ? place.azimuth + 360 : place.azimuth;
}

void turn(const Ring& ring, int steps, std::vector<int>& to)
{
    const int n = static_cast<int>(ring.size());
    for (int i = 0; i < n; ++i)
        to[std::size_t(ring[std::size_t(i)])] = ring[std::size_t((i + steps + n) % n)];
}

void frontToBack(const SpeakerField& field, const Ring& ring, std::vector<int>& to)
{
    Ring left, right, middle;
    for (const int c : ring)
        (field.isMiddle(c) ? middle : field[c].azimuth < 0 ? left : right).push_back(c);
    for (auto* side : {&left, &right, &middle}) {
        std::stable_sort(side->begin(), side->end(), [&](int a, int b) {
            return std::abs(field[a].azimuth) < std::abs(field[b].azimuth);
        });
        turn(*side, 1, to);
    }
}

void zigzag(const SpeakerField& field, Ring both, const Ring& height, std::vector<int>& to)
{
    both.insert(both.end(), height.begin(), height.end());
    std::stable_sort(both.begin(), both.end(),
                     [&](int a, int b) { return fromFront(field[a]) < fromFront(field[b]); });
    turn(both, 1, to);
}

/// Heights are equal, so the nearest is the one at the nearest angle; of two the one in front.
void upAndDown(const SpeakerField& field, Ring free, const Ring& height, std::vector<int>& to)
{
    for (const int up : height) {
        const auto distance = [&](int c) {
            return std::abs(std::remainder(field[c].azimuth - field[up].azimuth, 360));
        };
        const auto down = std::min_element(free.begin(), free.end(), [&](int a, int b) {
            return std::pair(distance(a), std::abs(field[a].azimuth)) <
                   std::pair(distance(b), std::abs(field[b].azimuth));
        });
        if (down == free.end()) return;
        to[std::size_t(up)] = *down;
        to[std::size_t(*down)] = up;
        free.erase(down);
    }
}

}  // namespace

std::vector<int> echoOrder(const SpeakerField& field, EchoPattern pattern, int without)
{
    std::vector<int> to(static_cast<std::size_t>(field.channels()));
    std::iota(to.begin(), to.end(), 0);
    const auto ringOf = [&](Ring ring) {
        ring.erase(std::remove(ring.begin(), ring.end(), without), ring.end());
        return ring;
    };
    const Ring ear = ringOf(field.earRing()), height = ringOf(field.heightRing());
    if (pattern == EchoPattern::Zigzag) zigzag(field, ear, height, to);
    if (pattern == EchoPattern::UpAndDown) upAndDown(field, ear, height, to);
    for (const Ring& ring : {ear, height}) {
        const int half = static_cast<int>(ring.size()) / 2;
        if (pattern == EchoPattern::Clockwise) turn(ring, 1, to);
        if (pattern == EchoPattern::Anticlockwise) turn(ring, -1, to);
        if (pattern == EchoPattern::Opposite) turn(ring, half, to);
        if (pattern == EchoPattern::FrontToBack) frontToBack(field, ring, to);
        if (pattern == EchoPattern::SideToSide)
            for (const int c : ring) to[std::size_t(c)] = field.mirror(c);
    }
    return to;
}

}  // namespace quillworks
