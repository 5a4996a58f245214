// SPDX-License-Identifier: ISC
// quillhost plot --what display: a display as JSON or as a picture.
#include <nlohmann/json.hpp>

#include "display_drawing.h"
#include "display_run.h"
#include "error.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

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
    const auto accent = accentOf(effect.subCategory());

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
    auto subtitle = settingsOf(plot.spec);
    subtitle += " on " + plot.in.substr(plot.in.find_last_of('/') + 1);
    picture->title(effect.name() + ": " + name, subtitle);
    drawDisplay(name, {shown, run.effect, run.sampleRate, accent}, *picture);
    picture->finish();
    return kDone;
}

}  // namespace quillhost
