// SPDX-License-Identifier: ISC
#include "framework/speakers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <string>

#include "dsp/hull_panner.h"

namespace quillworks::test {
namespace {

constexpr double kDegree = std::numbers::pi / 180;

VNK::SpeakerArrangement layoutOf(const char* name)
{
    VNK::SpeakerArrangement layout;
    EXPECT_TRUE(VNK::SpeakerArrangement::named(name, layout)) << name;
    return layout;
}

UnitVector towards(double azimuth, double elevation = 0)
{
    return SpeakerPlace{azimuth, elevation, false}.direction();
}

/// A panner over the channels of a layout that have a direction.
struct Panner {
    explicit Panner(const VNK::SpeakerArrangement& layout) : field(layout)
    {
        for (int c = 0; c < field.channels(); ++c)
            if (!field[c].isLfe) channels.push_back(c), speakers.push_back(field[c].direction());
        hull.prepare(speakers);
    }
    std::vector<double> at(const UnitVector& u, int hint = 0) const
    {
        std::vector<double> powers(channels.size());
        hull.powers(u, powers.data(), hint);
        return powers;
    }
    /// Angle in degrees from `u` to where the powers lie, and how concentrated they are.
    std::pair<double, double> energy(const UnitVector& u) const
    {
        const auto p = at(u);
        UnitVector sum{};
        for (std::size_t i = 0; i < p.size(); ++i)
            for (std::size_t k = 0; k < 3; ++k) sum[k] += p[i] * speakers[i][k];
        const double length = std::hypot(sum[0], sum[1], sum[2]);
        const double cosine = (sum[0] * u[0] + sum[1] * u[1] + sum[2] * u[2]) / length;
        return {std::acos(std::clamp(cosine, -1.0, 1.0)) / kDegree, length};
    }

    SpeakerField field;
    std::vector<int> channels;
    std::vector<UnitVector> speakers;
    HullPanner hull;
};

TEST(HullPanner, PointsWhereItShouldOnEveryLayout)
{
    struct Row {
        const char* layout;
        int imaginary;
        double meanError, largestError, length;  // over the circle, degrees
        double largestStep;                      // of a gain per degree
    };
    for (const auto& row :
         {Row{"5.1", 3, 7.7, 19.7, 0.80, 0.053}, Row{"7.1", 2, 5.5, 12.8, 0.93, 0.053},
          Row{"5.1.4", 3, 7.7, 19.7, 0.80, 0.058}, Row{"7.1.2", 2, 5.5, 12.8, 0.93, 0.060},
          Row{"7.1.4", 3, 5.5, 12.8, 0.93, 0.058}, Row{"9.1.6", 5, 4.6, 12.8, 0.95, 0.058}}) {
        const Panner panner(layoutOf(row.layout));
        EXPECT_EQ(panner.hull.imaginarySpeakers(), row.imaginary) << row.layout;
        double errors = 0, largest = 0, lengths = 0, step = 0;
        for (int a = 0; a < 360; ++a) {
            const auto [error, length] = panner.energy(towards(a));
            errors += error / 360, lengths += length / 360, largest = std::max(largest, error);
            for (int e = 0; e <= 90; e += 5) {
                const auto p = panner.at(towards(a, e)), q = panner.at(towards(a + 1, e));
                for (std::size_t i = 0; i < p.size(); ++i)
                    step = std::max(step, std::abs(std::sqrt(p[i]) - std::sqrt(q[i])));
            }
        }
        EXPECT_NEAR(errors, row.meanError, 0.06) << row.layout;
        EXPECT_NEAR(largest, row.largestError, 0.06) << row.layout;
        EXPECT_NEAR(lengths, row.length, 0.006) << row.layout;
        EXPECT_LE(step, row.largestStep + 0.001) << row.layout;
    }
}

TEST(HullPanner, KeepsThePowerAndTheSymmetryOnAnySetOfSpeakers)
{
    std::vector<VNK::SpeakerArrangement> layouts;
    for (const char* name :
         {"mono", "stereo", "lcr", "quad", "5.0", "7.0", "9.1.6", "3", "7", "16", "32"})
        layouts.push_back(layoutOf(name));
    using enum VNK::Speaker;
    for (const auto& odd :
         {std::vector{Ltf, Rtf}, {L, Rtf}, {L, R, M, C}, {C, Cs}, {Ltm, Rtm, Ltr, Rtr}}) {
        VNK::SpeakerArrangement layout;
        for (const auto speaker : odd) layout.speakers[layout.channels++] = speaker;
        layouts.push_back(layout);
    }
    for (const auto& layout : layouts) {
        const Panner panner(layout);
        bool isSymmetric = true;  // every speaker has its mirror
        for (const int c : panner.channels)
            isSymmetric &= panner.field.mirror(c) != c || panner.field.isMiddle(c);
        for (int a = 0; a < 360; a += 7)
            for (int e = -90; e <= 90; e += 15) {
                const auto p = panner.at(towards(a, e)), mirrored = panner.at(towards(-a, e), 5);
                ASSERT_EQ(panner.at(towards(a, e), 3), p) << "wherever the search begins";
                double sum = 0;
                for (std::size_t i = 0; i < p.size(); ++i) {
                    ASSERT_GE(p[i], 0) << layout.names();
                    sum += p[i];
                    const auto twin = static_cast<std::size_t>(
                        std::find(panner.channels.begin(), panner.channels.end(),
                                  panner.field.mirror(panner.channels[i])) -
                        panner.channels.begin());
                    if (isSymmetric) {
                        ASSERT_NEAR(p[i], mirrored[twin], 1e-9)
                            << layout.names() << " " << a << " " << e;
                    }
                }
                ASSERT_NEAR(sum, 1, 1e-12) << layout.names() << " " << a << " " << e;
            }
        for (std::size_t i = 0; i < panner.speakers.size(); ++i) {
            double there = 0;  // of all that stand there
            const auto p = panner.at(panner.speakers[i]);
            for (std::size_t k = 0; k < p.size(); ++k)
                if (panner.speakers[k] == panner.speakers[i]) there += p[k];
            EXPECT_NEAR(there, 1, 1e-6) << layout.names() << ": a source at a speaker is in it";
        }
    }
}

TEST(SpeakerField, KnowsPlacesMirrorsAndRings)
{
    const SpeakerField atmos(layoutOf("7.1.4"));
    EXPECT_EQ(atmos.earRing(), (std::vector{2, 1, 5, 7, 6, 4, 0})) << "C R Rs Rrs Lrs Ls L";
    EXPECT_EQ(atmos.heightRing(), (std::vector{9, 11, 10, 8})) << "Rtf Rtr Ltr Ltf";
    EXPECT_EQ(atmos[5].azimuth, 90) << "Rs stands at the side where there are rear speakers";
    EXPECT_EQ(atmos.mirror(7), 6);
    EXPECT_EQ(atmos.mirror(2), 2);
    EXPECT_TRUE(atmos[3].isLfe);
    EXPECT_EQ(SpeakerField(layoutOf("5.1"))[5].azimuth, 110);
    EXPECT_EQ(SpeakerField(layoutOf("quad"))[3].azimuth, 135);
    const SpeakerField ring(layoutOf("8"));
    EXPECT_EQ(ring[1].azimuth, 45);
    EXPECT_EQ(ring.mirror(1), 7);
    EXPECT_TRUE(ring.isMiddle(4));
}

TEST(ChannelPairs, LeftTradesWithRightOfItsKind)
{
    struct Case {
        const char* layout;
        std::vector<std::pair<int, int>> pairs;
    };
    const Case cases[] = {
        {"mono", {}},
        {"stereo", {{0, 1}}},
        {"lcr", {{0, 1}}},
        {"quad", {{0, 1}, {2, 3}}},
        {"5.0", {{0, 1}, {3, 4}}},
        {"5.1", {{0, 1}, {4, 5}}},
        {"7.0", {{0, 1}, {3, 4}, {5, 6}}},
        {"7.1", {{0, 1}, {4, 5}, {6, 7}}},
        {"5.1.4", {{0, 1}, {4, 5}, {6, 7}, {8, 9}}},
        {"7.1.2", {{0, 1}, {4, 5}, {6, 7}, {8, 9}}},
        {"7.1.4", {{0, 1}, {4, 5}, {6, 7}, {8, 9}, {10, 11}}},
        {"9.1.6", {{0, 1}, {4, 5}, {6, 7}, {8, 9}, {10, 11}, {12, 13}, {14, 15}}},
        {"16", {{0, 1}, {2, 3}, {4, 5}, {6, 7}, {8, 9}, {10, 11}, {12, 13}, {14, 15}}},
    };
    for (const auto& c : cases) {
        VNK::SpeakerArrangement layout;
        ASSERT_TRUE(VNK::SpeakerArrangement::named(c.layout, layout)) << c.layout;
        const auto found = ChannelPairs::of(layout);
        const std::vector<std::pair<int, int>> pairs(found.pairs.begin(),
                                                     found.pairs.begin() + found.count);
        EXPECT_EQ(pairs, c.pairs) << c.layout;
    }
}

}  // namespace
}  // namespace quillworks::test
