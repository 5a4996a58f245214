// SPDX-License-Identifier: ISC
// What moves in displays, drawn by differences.
#include "editors/displays/moving_graph.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "editors/displays/blend.h"
#include "tests/editors/editor_under_test.h"

namespace quillworks::test {
namespace {

using editors::kStrip;

TEST(MovingGraphs, LeaveThePictureThatTheWholeGraphOverItsGroundWouldBe)
{
    const editors::Theme theme(skin(), "dark", "dynamics");
    const auto faces = fonts();
    constexpr int kWidth = 203, kHeight = 97;  // no whole strips, nor whole words of rows
    editors::Image ground(kWidth, kHeight), picture(kWidth, kHeight), whole(kWidth, kHeight);
    std::minstd_rand random(1);
    std::uniform_real_distribution<double> uniform(-20, 110);
    const auto count = static_cast<std::size_t>(kWidth * kHeight);
    for (std::size_t i = 0; i < count; ++i)
        ground.pixels().data[i] = 0xFF000000u | static_cast<std::uint32_t>(random() & 0xFFFFFF);
    editors::Canvas canvas(picture.pixels(), 1, *faces, theme);
    editors::Canvas anew(whole.pixels(), 1, *faces, theme);
    canvas.setGround(ground.pixels());
    editors::MovingGraph graph;
    std::vector<editors::Point> points(40);
    for (int turn = 0; turn < 20; ++turn) {
        // A few points move at a time, some leave a gap.
        for (std::size_t i = 0; i < points.size(); ++i) {
            points[i].x = 5.3 * static_cast<double>(i);
            if (turn == 0 || random() % 8 == 0)
                points[i].y = random() % 16 ? uniform(random) : std::nan("");
        }
        auto& next = graph.next({1, 2, 200, 90}, 1);
        next.fill(points, 80, editors::Color::Accent, editors::Ink(editors::Color::Level, 0.1));
        next.stroke(points, 1.7, editors::Ink(editors::Color::Output, 0.7));
        std::copy_n(ground.pixels().data, count, whole.pixels().data);
        graph.show(anew);
        std::vector<std::uint32_t> before(picture.pixels().data, picture.pixels().data + count);
        std::vector<bool> isTold(count);
        const bool isKnown = graph.compare([&](const editors::Rect& rect) {
            for (int y = int(rect.y); y < rect.bottom(); ++y)
                for (int x = int(rect.x); x < rect.right(); ++x)
                    isTold[static_cast<std::size_t>(y * kWidth + x)] = true;
        });
        ASSERT_EQ(isKnown, turn > 0);
        if (!isKnown) {
            std::copy_n(whole.pixels().data, count, picture.pixels().data);
            continue;
        }
        graph.showMoved(canvas);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(picture.pixels().data[i], whole.pixels().data[i])
                << turn << ": " << i % kWidth << ", " << i / kWidth;
            ASSERT_TRUE(isTold[i] || picture.pixels().data[i] == before[i]) << "not told";
        }
    }
}

TEST(Blending, IsWithinOneOfTheSumOfBothSharesAndFadesToNothing)
{
    std::minstd_rand random(2);
    for (int turn = 0; turn < 200; ++turn) {
        const unsigned alpha = turn % 4 ? static_cast<unsigned>(random() % 256) : 255;
        std::uint32_t colour = alpha << 24;
        for (int shift = 0; shift < 24; shift += 8)
            colour |= static_cast<std::uint32_t>(random() % (alpha + 1)) << shift;
        std::array<std::uint32_t, kStrip> below{}, over{}, lit{};
        std::array<std::int16_t, kStrip> cover{};
        std::array<std::uint16_t, kStrip> light{};
        for (std::size_t i = 0; i < kStrip; ++i) {
            below[i] = 0xFF000000u | static_cast<std::uint32_t>(random() & 0xFFFFFF);
            cover[i] = static_cast<std::int16_t>(i ? random() % (editors::kCovered + 1)
                                                   : editors::kCovered);
            light[i] = static_cast<std::uint16_t>(random());
        }
        over = below;
        editors::blendSteps(over.data(), kStrip, 1, cover.data(), &colour);
        editors::blendLight(lit.data(), below.data(), light.data(), colour | 0xFF000000u);
        for (std::size_t i = 0; i < kStrip; ++i)
            for (int shift = 0; shift < 32; shift += 8) {
                const auto byte = [&](std::uint32_t pixel) {
                    return double(pixel >> shift & 0xFF);
                };
                const double part = cover[i] / double(editors::kCovered);
                EXPECT_NEAR(byte(over[i]),
                            part * byte(colour) + byte(below[i]) * (1 - part * alpha / 255.0), 2.1);
                const double glow = light[i] / 65535.0;
                EXPECT_NEAR(byte(lit[i]),
                            glow * byte(colour | 0xFF000000u) + byte(below[i]) * (1 - glow), 2.1);
            }
        const auto was = light;
        const bool isLeft = editors::fadeLight(light.data(), 0x8000, 0x3000);
        EXPECT_EQ(isLeft, std::any_of(light.begin(), light.end(), [](auto l) { return l > 0; }));
        for (std::size_t i = 0; i < kStrip; ++i)
            EXPECT_EQ(light[i], was[i] / 2 < 0x3000 ? 0 : was[i] / 2);
    }
}

}  // namespace
}  // namespace quillworks::test
