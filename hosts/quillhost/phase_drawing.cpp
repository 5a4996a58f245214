// SPDX-License-Identifier: ISC
// Stereo fields and correlations.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "display_drawing.h"
#include "error.h"

namespace quillhost {
namespace {

constexpr Colour kInverted = 0xFF6B5E;  // of correlations below 0

Colour colourOf(const ShownDisplay& d, double correlation)
{
    return correlation < 0 ? kInverted : d.accent;
}

enum class FieldView { Goniometer, Channels, Polar };

/// A point of the goniometer as the view has it.
Point viewed(Point p, FieldView view)
{
    if (view == FieldView::Channels)
        return {(p.y - p.x) / std::numbers::sqrt2, (p.y + p.x) / std::numbers::sqrt2};
    if (view == FieldView::Polar) {
        constexpr double kRange = 60;  // dB from the middle to the rim
        const double radius = std::hypot(p.x, p.y);
        if (radius < 1e-9) return {0, 0};
        const double shown = std::max(0.0, 1 + 20 * std::log10(radius) / kRange);
        return {p.x / radius * shown, p.y / radius * shown};
    }
    return p;
}

}  // namespace

void drawGoniometer(const ShownDisplay& d, Picture& picture)
{
    const auto& points = d.shown["points"];
    if (points.empty()) throw WorkError("there are no points yet (a longer file, or --at later)");
    const double bottom = picture.height() - 56;
    const double aspect = (Picture::kWidth - 128) / (bottom - kDisplayTop);
    const auto view = static_cast<FieldView>(static_cast<int>(d.value("view")));
    constexpr const char* kAxes[][2] = {{"right minus left", "left plus right"},
                                        {"left", "right"},
                                        {"right minus left", "left plus right, radius over 60 dB"}};
    const auto& axes = kAxes[static_cast<int>(view)];
    char gain[40];
    std::snprintf(gain, sizeof gain, ", gain %.1f dB", d.shown["gain"].get<double>());
    const std::vector<double> ticks = {-1, -0.5, 0, 0.5, 1};
    Graph graph(picture, kDisplayTop, bottom, {axes[0], -aspect, aspect, false, ticks},
                {axes[1] + std::string(gain), -1, 1, false, ticks});
    // The two channels alone are the diagonals.
    if (view != FieldView::Channels) {
        graph.line({{-1, 1}, {1, -1}}, colour::kGridEnd, 1, true);
        graph.line({{-1, -1}, {1, 1}}, colour::kGridEnd, 1, true);
    }
    // Older points are fainter: to a 20th over the time that is shown.
    constexpr std::size_t kAges = 12;
    for (std::size_t age = 0; age < kAges; ++age) {
        std::vector<Point> part;
        for (std::size_t i = age * points.size() / kAges; i < (age + 1) * points.size() / kAges;
             ++i)
            part.push_back(viewed({points[i][0], points[i][1]}, view));
        const double old = 1 - (double(age) + 1) / kAges;
        graph.dots(part, d.accent, 0.6, std::max(0.05, 0.6 * std::exp(-3 * old)));
    }
}

void drawBandCorrelation(const ShownDisplay& d, Picture& picture)
{
    const auto centre = numbersOf(d.shown["centre"]), value = numbersOf(d.shown["value"]),
               coherence = numbersOf(d.shown["coherence"]);
    if (value.empty())
        throw WorkError("there is nothing to show yet (a longer file, or --at later)");
    const double edge = std::sqrt(centre[1] / centre[0]);
    Axis frequency{"frequency in Hz", centre.front() / edge, centre.back() * edge, true, {}};
    for (const double f :
         {31.5, 63.0, 125.0, 250.0, 500.0, 1000.0, 2000.0, 4000.0, 8000.0, 16000.0})
        if (frequency.isBetween(f)) frequency.ticks.push_back(f);
    Graph graph(picture, kDisplayTop, picture.height() - 56, frequency,
                {"correlation", -1.05, 1.05, false, {-1, -0.5, 0, 0.5, 1}});
    for (std::size_t b = 0; b < value.size(); ++b) {
        if (!std::isfinite(value[b])) continue;
        const double from = centre[b] / std::pow(edge, 0.85), to = centre[b] * std::pow(edge, 0.85);
        const bool isValid = d.shown["valid"][b];
        const Colour colour = colourOf(d, value[b]);
        if (isValid) graph.box({from, 0}, {to, value[b]}, colour, 0.75);
        graph.line({{from, 0}, {from, value[b]}, {to, value[b]}, {to, 0}, {from, 0}}, colour, 1);
        if (isValid)
            graph.line({{from, coherence[b]}, {to, coherence[b]}}, colour::kText, 1.5, true);
    }
    graph.legend({{"correlation", d.accent}, {"coherence", colour::kText}});
}

void drawMatrix(const ShownDisplay& d, Picture& picture)
{
    const auto& rows = d.shown["value"];
    const auto n = rows.size();
    if (n == 0) throw WorkError("there is nothing to show yet (a longer file, or --at later)");
    const double bottom = picture.height() - 56, top = kDisplayTop + 12;
    const double cell = std::min((Picture::kWidth - 160) / double(n), (bottom - top) / double(n));
    const double left = (Picture::kWidth - cell * double(n)) / 2;
    const double size = std::clamp(cell * 0.3, 7.0, 13.0);
    for (std::size_t i = 0; i < n; ++i) {
        const auto values = numbersOf(rows[i]);
        const double y = top + cell * double(i);
        const auto name = d.name("channels", i);
        picture.text(left - 8, y + cell / 2 + 4, name, Picture::Anchor::Right, 11, colour::kLabel);
        picture.text(left + cell * (double(i) + 0.5), top - 8, name, Picture::Anchor::Middle, 11,
                     colour::kLabel);
        for (std::size_t k = 0; k < n; ++k) {
            const double x = left + cell * double(k);
            const bool isKnown = std::isfinite(values[k]);
            picture.setColour(colour::kWell);
            cairo_rectangle(picture.context(), x + 1, y + 1, cell - 2, cell - 2);
            cairo_fill(picture.context());
            if (!isKnown) continue;
            picture.setColour(colourOf(d, values[k]), 0.08 + 0.6 * std::abs(values[k]));
            cairo_rectangle(picture.context(), x + 1, y + 1, cell - 2, cell - 2);
            cairo_fill(picture.context());
            char text[16];
            std::snprintf(text, sizeof text, "%.2f", values[k]);
            picture.text(x + cell / 2, y + cell / 2 + size / 3, text, Picture::Anchor::Middle, size,
                         colour::kText);
        }
    }
}

}  // namespace quillhost
