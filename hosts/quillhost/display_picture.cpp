// SPDX-License-Identifier: ISC
// quillhost plot --what display: a display as JSON or as a picture.
#include <nlohmann/json.hpp>

#include "displays.h"
#include "error.h"
#include "picture.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kTop = 84;  // below title and subtitle

const Colour kChannelColours[] = {0, colour::kOut, colour::kSecond, colour::kLevel};

void drawTrace(const Json& shown, int sampleRate, Picture& picture, Colour accent)
{
    const auto& channels = shown["channels"];
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
        return shown.contains(key) && shown[key].is_number() ? shown[key].get<double>() : otherwise;
    };
    // Points are samples, or those of two periods. Time counts from the trigger.
    const double perMs =
        shown.contains("period") ? span / (2000 * find("period", 1)) : sampleRate / 1000.0;
    const double origin = find("offset", 0);
    const double from = -origin / perMs, to = (span - 1 - origin) / perMs;
    Graph graph(picture, kTop, picture.height() - 56,
                {"time in ms", from, std::max(to, from + 1e-3)},
                {"full scale = 1", -1.05 * peak, 1.05 * peak});
    std::vector<Graph::Key> keys;
    for (std::size_t c = lines.size(); c-- > 0;) {
        const Colour colour = c == 0 ? accent : kChannelColours[std::min<std::size_t>(c, 3)];
        graph.wave(lines[c], from, 1 / perMs, colour);
        keys.insert(keys.begin(), {channels[c]["name"].get<std::string>(), colour});
    }
    graph.legend(keys);
}

bool isJson(const std::string& path)
{
    return path.ends_with(".json");
}

}  // namespace

int plotDisplay(const Session& session, const DisplayPlot& plot)
{
    const EffectSpec spec = parseEffectSpec(plot.spec);
    const Effect effect = session.create(spec.name);
    session.noteThoseThatPassThrough({effect});
    const auto names = Displays::namesOf(effect);
    if (names.empty()) throw UsageError(effect.name() + " has no displays");
    const auto name = Displays::chosen(effect, {plot.display.empty() ? names[0] : plot.display})[0];
    const auto accent = accentOf(session.find(effect.name()).subCategory->text());

    // Refused before the work is done.
    std::optional<Picture> picture;
    std::optional<OutputFile> file;
    if (isJson(plot.out))
        file.emplace(plot.out);
    else
        picture.emplace(plot.out, 520);
    const auto run = runDisplays(session, spec, plot.options, plot.in, plot.seconds);
    for (const auto& remark : run.remarks) session.note(remark);
    const Json shown = run.displays.show(name);
    if (file) {
        Json all = {{"effect", effect.name()},
                    {"display", name},
                    {"frame", run.frames},
                    {"sampleRate", run.sampleRate}};
        all.update(shown);
        file->write(all.dump(1) + "\n");
        file->finish();
        return kDone;
    }
    auto subtitle = plot.spec.find(':') == std::string::npos
                        ? "default settings"
                        : plot.spec.substr(plot.spec.find(':') + 1);
    subtitle += " on " + plot.in.substr(plot.in.find_last_of('/') + 1);
    picture->title(effect.name() + ": " + name, subtitle);
    drawTrace(shown, run.sampleRate, *picture, accent);
    picture->finish();
    return kDone;
}

}  // namespace quillhost
