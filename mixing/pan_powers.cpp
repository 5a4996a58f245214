// SPDX-License-Identifier: ISC
#include "mixing/pan_powers.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks {
namespace {

constexpr double kDegree = std::numbers::pi / 180;
constexpr double kWidestDivergence = 60;  // degrees to each side
constexpr std::size_t kRing = 8;          // directions around the first
constexpr int kDirections = 9;

/// Cosine and sine of the ring's angles, counted from above. The ring mirrors itself at the middle.
constexpr double kHalf = 0.70710678118654752;
constexpr std::array<std::array<double, 2>, kRing> kAround = {{{1, 0},
                                                               {kHalf, kHalf},
                                                               {0, 1},
                                                               {-kHalf, kHalf},
                                                               {-1, 0},
                                                               {-kHalf, -kHalf},
                                                               {0, -1},
                                                               {kHalf, -kHalf}}};

}  // namespace

void PanPowers::prepare(const VNK::SpeakerArrangement& layout)
{
    const SpeakerField field(layout);
    channels_.clear();
    speakers_.clear();
    hasHeights_ = !field.heightRing().empty();
    for (int c = 0; c < field.channels(); ++c) {
        if (field[c].isLfe) continue;
        channels_.push_back(c);
        speakers_.push_back(field[c].direction());
    }
    if (!speakers_.empty()) hull_.prepare(speakers_);
    left_ = layout.find(VNK::Speaker::L);
    right_ = layout.find(VNK::Speaker::R);
    centre_ = left_ >= 0 && right_ >= 0 ? layout.find(VNK::Speaker::C) : -1;
}

void PanPowers::of(const PanPlace& place, double* powers, Search& search) const noexcept
{
    std::fill_n(powers, kMost, 0.0);
    if (speakers_.empty()) return;
    Sum sum;
    std::fill_n(sum.points, hull_.points(), 0.0);
    std::fill_n(sum.speakers, speakers_.size(), 0.0);
    int* const hints = search.triangle.data();
    const Source source(place);
    const double beside = 2 * place.divergence / 3;
    addTurned(source, 0, 1 - beside, sum, hints);
    if (beside > 0) {
        const double turn = kWidestDivergence * place.divergence;
        addTurned(source, turn, beside / 2, sum, hints + kDirections);
        addTurned(source, -turn, beside / 2, sum, hints + 2 * kDirections);
    }
    double speakers[kMost];
    hull_.share(sum.points, speakers);
    for (std::size_t i = 0; i < channels_.size(); ++i)
        powers[channels_[i]] = speakers[i] + sum.speakers[i] + sum.all;
    if (centre_ < 0) return;
    const double leaving = (1 - place.centre) * powers[centre_] / 2;
    powers[left_] += leaving;
    powers[right_] += leaving;
    powers[centre_] *= place.centre;
}

PanPowers::Source::Source(const PanPlace& at) noexcept : place(at)
{
    radius = std::min(1.0, std::hypot(place.x, place.y));
    azimuth = std::atan2(place.x, place.y);
    cosE = std::cos(place.elevation * kDegree);
    sinE = std::sin(place.elevation * kDegree);
    // In the middle a direction means nothing: all speakers are alike there.
    const double inner = (1 - radius) * (1 - radius);
    spread = place.spread + (1 - place.spread) * inner;
    if (spread <= 0) return;
    along = std::cos(spread * std::numbers::pi / 2);
    aside = std::sin(spread * std::numbers::pi / 2);
}

void PanPowers::addTurned(const Source& source, double turn, double weight, Sum& sum,
                          int* hints) const noexcept
{
    const PanPlace& place = source.place;
    const double azimuth = source.azimuth + (place.turn + turn) * kDegree;
    const double cosA = std::cos(azimuth), sinA = std::sin(azimuth);
    if (place.distanceShare < 1)
        addByDirection(source, cosA, sinA, weight * (1 - place.distanceShare), sum, hints);
    if (place.distanceShare > 0) {
        const double level = source.radius * source.cosE;
        addByDistance({level * cosA, -level * sinA, source.radius * source.sinE}, place.spread,
                      weight * place.distanceShare, sum);
    }
}

void PanPowers::addByDirection(const Source& source, double cosA, double sinA, double weight,
                               Sum& sum, int* hints) const noexcept
{
    const double cosE = source.cosE, sinE = source.sinE, spread = source.spread;
    const UnitVector to = {cosE * cosA, -cosE * sinA, sinE};
    if (spread <= 0) return hull_.add(to, weight, sum.points, hints[0]);
    const double cube = spread * spread * spread;
    sum.all += weight * cube / double(speakers_.size());
    const double share = weight * (1 - cube) / kDirections;
    hull_.add(to, share, sum.points, hints[0]);
    const UnitVector up = {-sinE * cosA, sinE * sinA, cosE}, right = {-sinA, -cosA, 0};
    for (std::size_t d = 0; d < kRing; ++d) {
        const auto& [rising, turning] = kAround[d];
        UnitVector u;
        for (std::size_t k = 0; k < 3; ++k)
            u[k] = source.along * to[k] + source.aside * (rising * up[k] + turning * right[k]);
        // With speakers above and none below, what would come from below comes from the horizon.
        // Straight down there is none: the source's own side it is.
        if (hasHeights_ && u[2] < 0) {
            u[2] = 0;
            if (const double level = std::sqrt(u[0] * u[0] + u[1] * u[1]); level > 1e-9)
                u[0] /= level, u[1] /= level;
            else
                u = {cosA, -sinA, 0};
        }
        hull_.add(u, share, sum.points, hints[d + 1]);
    }
}

void PanPowers::addByDistance(const UnitVector& at, double spread, double weight,
                              Sum& sum) const noexcept
{
    // What is added keeps a source that stands in a speaker from being heard in it alone.
    const double blur = 0.04 + 4 * spread * spread;
    double powers[kMost];
    double total = 0;
    for (std::size_t i = 0; i < speakers_.size(); ++i) {
        double square = blur;
        for (std::size_t k = 0; k < 3; ++k) {
            const double away = at[k] - speakers_[i][k];
            square += away * away;
        }
        powers[i] = 1 / (square * square);
        total += powers[i];
    }
    for (std::size_t i = 0; i < speakers_.size(); ++i)
        sum.speakers[i] += weight * powers[i] / total;
}

}  // namespace quillworks
