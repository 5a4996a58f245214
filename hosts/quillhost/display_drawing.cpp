// SPDX-License-Identifier: ISC
#include "display_drawing.h"

#include <algorithm>
#include <cmath>

#include "error.h"

namespace quillhost {
namespace {

void drawTrace(const ShownDisplay& d, Picture& picture)
{
    const auto& channels = d.shown["channels"];
    std::vector<std::vector<float>> lines;
    double peak = 0.01;
    for (const auto& channel : channels) {
        lines.push_back(channel["samples"].get<std::vector<float>>());
        for (const float x : lines.back()) peak = std::max(peak, double(std::abs(x)));
    }
    if (lines.empty() || lines[0].empty())
        throw WorkError("there is no trace yet (a longer file, or --at later)");
    const double span = static_cast<double>(lines[0].size());
    const auto find = [&](const char* key, double otherwise) {
        const auto at = d.shown.find(key);
        return at != d.shown.end() && at->is_number() ? at->get<double>() : otherwise;
    };
    // Points are samples, or those of two periods. Time counts from the trigger.
    const double perMs =
        d.shown.contains("period") ? span / (2000 * find("period", 1)) : d.sampleRate / 1000.0;
    const double origin = find("offset", 0);
    const double from = -origin / perMs, to = (span - 1 - origin) / perMs;
    Graph graph(picture, kDisplayTop, picture.height() - 56,
                {"time in ms", from, std::max(to, from + 1e-3)},
                {"full scale = 1", -1.05 * peak, 1.05 * peak});
    std::vector<Graph::Key> keys;
    for (std::size_t c = lines.size(); c-- > 0;) {
        graph.wave(lines[c], from, 1 / perMs, d.colour(c));
        keys.insert(keys.begin(), {d.name("channels", c), d.colour(c)});
    }
    graph.legend(keys);
}

/// Level and gain of the last seconds.
void drawHistory(const ShownDisplay& d, Picture& picture)
{
    const auto& bands = d.shown["bands"];
    const auto frames = bands.empty() ? 0 : bands[0]["gain"].size();
    if (frames == 0) throw WorkError("there is no history yet (a longer file, or --at later)");
    const double seconds = double(frames) / d.shown["rate"].get<double>();
    double highest = 3, lowest = -12;
    for (const auto& band : bands)
        for (const double gain : numbersOf(band["gain"])) {
            highest = std::max(highest, std::ceil((gain + 1) / 3) * 3);
            lowest = std::min(lowest, std::max(-60.0, std::floor((gain - 1) / 3) * 3));
        }
    Graph graph(picture, kDisplayTop, picture.height() - 56, {"time in s", -seconds, 0},
                {"gain in dB", lowest, highest, false, roundTicks(lowest, highest, 12, true)});
    graph.addRightAxis({"level in dB", -72, 0, false, roundTicks(-72, 0, 12, true)});
    std::vector<Graph::Key> keys;
    for (std::size_t b = 0; b < bands.size(); ++b) {
        const auto course = [&](const char* key) {
            std::vector<Point> points;
            for (const double y : numbersOf(bands[b][key]))
                points.push_back({seconds * (double(points.size()) / double(frames) - 1), y});
            return points;
        };
        if (b == 0) graph.area(course("level"), colour::kLevel, true);
        graph.line(course("gain"), d.colour(b), 2);
        keys.push_back({d.name("bands", b), d.colour(b)});
    }
    graph.legend(keys);
}

/// Peaks of an impulse response over time, of each of its paths.
void drawResponse(const ShownDisplay& d, Picture& picture)
{
    const bool isLoaded = d.shown.contains("channels");
    const auto& paths = d.shown[isLoaded ? "channels" : "paths"];
    const double seconds = d.shown["seconds"].is_number() ? d.shown["seconds"].get<double>() : 0;
    if (paths.empty() || !(seconds > 0)) throw WorkError("there is no response yet");
    constexpr double kFloor = -90;
    Graph graph(picture, kDisplayTop, picture.height() - 56, {"time in s", 0, seconds},
                {"level in dB", kFloor, 6, false, roundTicks(kFloor, 6, 12, true)});
    std::vector<Graph::Key> keys;
    for (std::size_t p = paths.size(); p-- > 0;) {
        const auto values = numbersOf(paths[p][isLoaded ? "peaks" : "level"]);
        std::vector<Point> points;
        for (const double x : values) {
            const double level = isLoaded ? 20 * std::log10(std::abs(x) + 1e-9) : x;
            points.push_back(
                {seconds * double(points.size()) / double(values.size()), std::max(kFloor, level)});
        }
        graph.line(points, d.colour(p), 1.5);
        keys.insert(keys.begin(), {"path " + std::to_string(p + 1), d.colour(p)});
    }
    graph.legend(keys);
}

}  // namespace

double ShownDisplay::value(const char* key) const
{
    const int i = effect.component().findParameter(key);
    return i < 0 ? 0 : double(effect.component().getValue(i));
}

Colour ShownDisplay::colour(std::size_t channel) const
{
    constexpr Colour kOthers[] = {colour::kSecond, 0xF5A742, 0xC79BFF, 0xA6D06A, colour::kOut};
    return channel == 0 ? accent : kOthers[(channel - 1) % std::size(kOthers)];
}

std::vector<double> numbersOf(const nlohmann::ordered_json& list)
{
    std::vector<double> numbers;
    for (const auto& x : list) numbers.push_back(x.is_number() ? x.get<double>() : std::nan(""));
    return numbers;
}

void drawDisplay(const std::string& name, const ShownDisplay& display, Picture& picture)
{
    struct Drawing {
        const char* display;
        void (*draw)(const ShownDisplay&, Picture&);
    };
    constexpr Drawing kDrawings[] = {
        {"trace", drawTrace},       {"history", drawHistory},
        {"spectrum", drawSpectrum}, {"bands", drawBands},
        {"sonogram", drawSonogram}, {"goniometer", drawGoniometer},
        {"matrix", drawMatrix},     {"bandcorrelation", drawBandCorrelation},
        {"response", drawResponse},
    };
    for (const auto& drawing : kDrawings)
        if (name == drawing.display) return drawing.draw(display, picture);
    throw WorkError("there is no picture of the display " + name + ", but its figures as .json");
}

}  // namespace quillhost
