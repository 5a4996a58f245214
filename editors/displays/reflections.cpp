// SPDX-License-Identifier: ISC
#include "editors/displays/reflections.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <numbers>

namespace quillworks::editors {
namespace {

constexpr double kSound = 343;  // m/s
constexpr double kRange = 40;   // dB that are drawn
constexpr int kOrder = 3;

/// Length, width and height of the shapes, to be brought to the volume of the size.
constexpr double kShapes[][3] = {
    {1.6, 1.26, 1}, {1.25, 1.1, 1}, {2.2, 1.4, 1}, {3, 1.2, 1.3}, {8, 1, 1}};

}  // namespace

std::vector<Reflection> reflectionsOf(int shape, double size, double distance, double decay)
{
    const auto& ratio = kShapes[std::clamp(shape, 0, 4)];
    const double cube = size / std::cbrt(ratio[0] * ratio[1] * ratio[2]);
    const std::array room{ratio[0] * cube, ratio[1] * cube, ratio[2] * cube};
    const std::array ear{0.62 * room[0], 0.47 * room[1], std::min(1.6, 0.4 * room[2])};
    const double away = (0.08 + 0.42 * distance) * room[0];
    const std::array source{ear[0] - away, ear[1], ear[2]};
    const double area = 2 * (room[0] * room[1] + room[1] * room[2] + room[2] * room[0]);
    const double path = 4 * room[0] * room[1] * room[2] / area;  // mean free path (Kosten)
    const double wall = std::min(0.97, std::pow(10, -3 * path / (kSound * std::max(0.05, decay))));
    std::vector<Reflection> all;
    for (int i = -kOrder; i <= kOrder; ++i) {
        for (int j = -kOrder; j <= kOrder; ++j) {
            for (int k = -kOrder; k <= kOrder; ++k) {
                const int order = std::abs(i) + std::abs(j) + std::abs(k);
                if (order == 0 || order > kOrder) continue;
                // The n-th room along an axis holds the source or its mirror image.
                const std::array cell{i, j, k};
                std::array<double, 3> d{};
                for (std::size_t a = 0; a < 3; ++a) {
                    const double mirrored = cell[a] % 2 ? room[a] - source[a] : source[a];
                    d[a] = cell[a] * room[a] + mirrored - ear[a];
                }
                const double r = std::hypot(d[0], d[1], d[2]);
                const double gain = std::pow(wall, order) * away / r;
                const double aside = std::hypot(d[0], d[1]);
                all.push_back(
                    {(r - away) / kSound, 20 * std::log10(gain), aside > 0 ? -d[1] / aside : 0});
            }
        }
    }
    return all;
}

void Reflections::sized()
{
    plot_.area = {18, 8, width() - 30, height() - 30};
    plot_.y = {-1, 1, false};
}

std::vector<Reflection> Reflections::list() const
{
    return reflectionsOf(static_cast<int>(shape_.get(0)), size_.get(12), distance_.get(40) / 100,
                         decay_.get(1));
}

double Reflections::span() const
{
    double last = 0;
    for (const auto& r : list())
        if (r.decibels > -kRange) last = std::max(last, r.seconds);
    for (const double seconds : {0.02, 0.05, 0.1, 0.2, 0.5})
        if (last <= seconds) return seconds;
    return 1;
}

void Reflections::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&shape_, &size_, &distance_, &decay_}) numbers.push_back(v->get(0));
}

void Reflections::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(span());
}

void Reflections::drawStatic(Canvas& canvas)
{
    plot_.x = {0, span() * 1000, false};
    auto ticks = linearTicks(plot_.x, 5, false);
    if (!ticks.empty()) ticks.back().text += " ms";
    drawAcross(canvas, plot_, ticks, true);
    canvas.horizontal(plot_.area.x, plot_.area.right(), plot_.up(0), Color::GridEnd);
    canvas.text(Type::Axis, "L", plot_.area.x - 4, plot_.area.y + 12, Align::Right, Color::Text3);
    canvas.text(Type::Axis, "R", plot_.area.x - 4, plot_.area.bottom() - 5, Align::Right,
                Color::Text3);
}

void Reflections::draw(Canvas& canvas)
{
    plot_.x = {0, span() * 1000, false};
    for (const auto& r : list()) {
        const double share = 1 + r.decibels / kRange;
        if (!(share > 0)) continue;
        const double x = plot_.across(r.seconds * 1000);
        const double up = share * std::min(1.0, 1 - r.side),
                     down = share * std::min(1.0, 1 + r.side);
        canvas.fill({x - 0.75, plot_.up(up), 1.5, plot_.up(-down) - plot_.up(up)},
                    Ink(Color::Accent, 0.35 + 0.6 * share));
    }
    canvas.fill({plot_.across(0) - 1, plot_.area.y, 2, plot_.area.h}, Color::Output);
}

std::string Reflections::describe() const
{
    double first = 1;
    for (const auto& r : list()) first = std::min(first, r.seconds);
    return "Reflections, the first after " + shortTime(first);
}

}  // namespace quillworks::editors
