// SPDX-License-Identifier: ISC
// Spectra, bands and sonograms.
#include <algorithm>
#include <cmath>

#include "colour_scale.h"
#include "display_drawing.h"
#include "error.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kTiltCentre = 1000;  // Hz, where it changes nothing

Axis frequencyAxis(const ShownDisplay& d)
{
    const double low = d.value("freqlow");
    const double high =
        std::clamp(d.value("freqhigh"), 1.1 * low, std::max(1.1 * low, d.sampleRate / 2.0));
    Axis axis{"frequency in Hz", low, high, true, {}};
    for (double decade = 1; decade < high; decade *= 10)
        for (const double step : {1, 2, 5})
            if (axis.isBetween(step * decade)) axis.ticks.push_back(step * decade);
    return axis;
}

std::string levelLabel(const ShownDisplay& d)
{
    std::string label = d.value("reading") != 0 ? "density in dB per Hz" : "level in dB";
    const double tilt = d.value("tilt");
    char text[80];
    std::snprintf(text, sizeof text, ", tilted by %g dB per octave about 1 kHz", tilt);
    return tilt != 0 ? label + text : label;
}

Axis levelAxis(const ShownDisplay& d, const std::string& label)
{
    const double top = d.value("top"), bottom = top - d.value("range");
    return {label, bottom, top, false, roundTicks(bottom, top, 12, true)};
}

double tilted(const ShownDisplay& d, double frequency, double level)
{
    return level + d.value("tilt") * std::log2(std::max(frequency, 1e-3) / kTiltCentre);
}

/// Of each px of the picture the highest point, so that lines closer than that remain.
std::vector<Point> thinned(const std::vector<Point>& points, const Axis& axis)
{
    std::vector<Point> kept;
    int column = -1;
    for (const Point& p : points) {
        if (!axis.isBetween(p.x)) continue;
        const int now = static_cast<int>(axis.place(p.x) * Picture::kWidth);
        if (now != column || kept.empty())
            kept.push_back(p);
        else if (!(p.y <= kept.back().y))
            kept.back() = p;
        column = now;
    }
    return kept;
}

const Json& channelsOf(const ShownDisplay& d, const char* key)
{
    const auto& channels = d.shown["channels"];
    if (channels.empty() || channels[0][key].is_null() || channels[0][key].empty())
        throw WorkError(
            "there is nothing to show yet (a longer file, --at later, or another \"mode\")");
    return channels;
}

}  // namespace

void drawSpectrum(const ShownDisplay& d, Picture& picture)
{
    const auto& channels = channelsOf(d, "level");
    const auto frequency = numbersOf(d.shown["frequency"]);
    const Axis axis = frequencyAxis(d);
    Graph graph(picture, kDisplayTop, picture.height() - 56, axis, levelAxis(d, levelLabel(d)));
    const auto curve = [&](const Json& levels) {
        const auto level = numbersOf(levels);
        std::vector<Point> points;
        for (std::size_t k = 1; k < level.size(); ++k)
            points.push_back({frequency[k], tilted(d, frequency[k], level[k])});
        return points;
    };
    // A tone between two bins is drawn where it is and as loud as it is.
    const bool hasVertices = d.value("reading") == 0 && d.value("smooth") == 0;
    std::vector<Graph::Key> keys;
    for (std::size_t c = channels.size(); c-- > 0;) {
        const auto& channel = channels[c];
        auto points = curve(channel["level"]);
        for (const auto& peak : channel["peaks"]) {
            if (!hasVertices) break;
            const double f = peak["frequency"];
            points.push_back({f, tilted(d, f, peak["level"])});
        }
        std::stable_sort(points.begin(), points.end(),
                         [](const Point& a, const Point& b) { return a.x < b.x; });
        graph.line(thinned(curve(channel["hold"]), axis), d.colour(c), 0.8);
        graph.line(thinned(curve(channel["reference"]), axis), colour::kAxis, 1.2, true);
        graph.line(thinned(points, axis), d.colour(c), 1.6);
        keys.insert(keys.begin(), {d.name("channels", c), d.colour(c)});
    }
    graph.legend(keys);
}

void drawBands(const ShownDisplay& d, Picture& picture)
{
    const auto& channels = channelsOf(d, "level");
    const auto centre = numbersOf(d.shown["centre"]);
    const double edge = centre.size() > 1 ? std::sqrt(centre[1] / centre[0]) : std::sqrt(2.0);
    const Axis levels = levelAxis(d, levelLabel(d));
    Graph graph(picture, kDisplayTop, picture.height() - 56, frequencyAxis(d), levels);
    std::vector<Graph::Key> keys;
    // The channels share the width of a band, but for a gap.
    const double share = 1.0 / static_cast<double>(channels.size());
    for (std::size_t c = 0; c < channels.size(); ++c) {
        const auto level = numbersOf(channels[c]["level"]), hold = numbersOf(channels[c]["hold"]),
                   reference = numbersOf(channels[c]["reference"]);
        for (std::size_t b = 0; b < level.size(); ++b) {
            const auto place = [&](double part) {
                return centre[b] * std::pow(edge, (2 * part - 1) * 0.9);
            };
            const double from = place(share * static_cast<double>(c)),
                         to = place(share * static_cast<double>(c + 1));
            const auto at = [&](double value) { return tilted(d, centre[b], value); };
            graph.box({from, levels.from}, {to, at(level[b])}, d.colour(c), 0.75);
            const auto mark = [&](const std::vector<double>& values, Colour colour) {
                if (values.empty()) return;
                graph.line({{from, at(values[b])}, {to, at(values[b])}}, colour, 1.5);
            };
            mark(hold, d.colour(c));
            mark(reference, colour::kText);
        }
        keys.push_back({d.name("channels", c), d.colour(c)});
    }
    graph.legend(keys);
}

void drawSonogram(const ShownDisplay& d, Picture& picture)
{
    const auto& channels = channelsOf(d, "level");
    const auto time = numbersOf(d.shown["time"]), frequency = numbersOf(d.shown["frequency"]);
    const auto count = std::min<std::size_t>(channels.size(), 4);
    const double step = time.size() > 1 ? (time.back() - time[0]) / double(time.size() - 1) : 0.1;
    const double low = frequency.front(), high = frequency.back();
    const double top = d.value("top"), range = d.value("range");
    Axis rows = frequencyAxis(d);
    rows.from = low;
    rows.to = high;
    constexpr double kGap = 34;  // px
    const double height = (picture.height() - 56 - kDisplayTop + kGap) / double(count);
    const auto& colours = levelColours();
    for (std::size_t c = 0; c < count; ++c) {
        const auto& columns = channels[c]["level"];
        const auto width = static_cast<int>(columns.size()), rowCount = int(frequency.size());
        std::vector<Colour> pixels(columns.size() * frequency.size());
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const auto levels = numbersOf(columns[i]);
            for (std::size_t r = 0; r < levels.size(); ++r) {
                const double part = (tilted(d, frequency[r], levels[r]) - top) / range + 1;
                const double place = std::isfinite(part) ? std::clamp(part, 0.0, 1.0) : 0;
                pixels[(levels.size() - 1 - r) * columns.size() + i] =
                    colours[static_cast<std::size_t>(std::lround(255 * place))];
            }
        }
        const double from = kDisplayTop + height * double(c);
        const bool isLast = c + 1 == count;
        rows.label = "frequency in Hz, " + d.name("channels", c);
        Graph graph(picture, from, from + height - kGap,
                    {isLast ? "time in s" : "", time.front() - step / 2, time.back() + step / 2},
                    rows);
        graph.image(pixels, width, rowCount);
    }
    // What the colours mean.
    const double left = Picture::kWidth - 52, bottom = picture.height() - 56;
    for (int i = 0; i < 256; ++i) {
        const double y = bottom - (bottom - kDisplayTop) * (i + 1) / 256.0;
        picture.setColour(colours[static_cast<std::size_t>(i)]);
        cairo_rectangle(picture.context(), left, y, 10, (bottom - kDisplayTop) / 256 + 0.5);
        cairo_fill(picture.context());
    }
    const Axis scale{"", top - range, top};
    for (const double v : roundTicks(top - range, top, 8, true))
        picture.text(left + 15, bottom - (bottom - kDisplayTop) * scale.place(v) + 4,
                     std::to_string(std::lround(v)), Picture::Anchor::Left, 10, colour::kAxis);
    picture.text(Picture::kWidth - 16, kDisplayTop - 10, "dB", Picture::Anchor::Right, 12,
                 colour::kLabel);
}

}  // namespace quillhost
