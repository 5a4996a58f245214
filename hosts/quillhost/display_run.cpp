// SPDX-License-Identifier: ISC
#include "display_run.h"

#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

#include "chain.h"
#include "console.h"
#include "table.h"

namespace quillhost {

std::vector<const CLI::Option*> addDisplayOptions(CLI::App& app, DisplayOptions& o)
{
    return {
        addRepeatable(app, "--preset", o.presets, "preset, loaded before the values of SPEC",
                      "FILE"),
        addNumber(app, "--block", o.block, 1, 1 << 20, "longest block in frames (512)"),
        addChoice(app, "--precision", o.precision, {"32", "64"}, "bits of the processing (32)"),
        addNumber(app, "--tempo", o.tempo, 10.0, 400.0, "quarter notes per minute (120)"),
        addNumber(app, "--position", o.position, -1e6, 1e6,
                  "song position of frame 0, in quarters (0)"),
        addOption(app, "--automation", o.automation,
                  "JSON array of {\"frame\",\"fx\",\"key\",\"value\"}", "FILE"),
    };
}

namespace {

template <typename T>
std::int64_t playFile(Chain& chain, SoundReader& in, int block, std::int64_t most)
{
    Planes<T> planes(std::max(chain.planeChannels(), in.channels()), block);
    std::int64_t done = 0;
    while (done < most) {
        const int wanted = static_cast<int>(std::min<std::int64_t>(block, most - done));
        const int n = in.read(planes, wanted);
        if (n > 0) chain.run(planes, static_cast<const Planes<T>*>(nullptr), n);
        done += n;
        if (n < wanted) break;
    }
    return done;
}

}  // namespace

DisplayRun runDisplays(const Session& session, const EffectSpec& asked,
                       const DisplayOptions& options, const std::string& path, double seconds)
{
    EffectSpec spec = asked;
    spec.presets = options.presets;
    Effect effect = createEffect(session, spec);
    SoundReader in(path);
    ChainSetup setup;
    setup.sampleRate = in.sampleRate();
    setup.block = options.block;
    setup.precision = options.precision == 0 ? VNK::Precision::Float : VNK::Precision::Double;
    setup.input = in.layout();
    setup.tempo = options.tempo;
    setup.position = options.position;
    Chain chain({effect}, setup);
    chain.requireFiles(session, options.allowMissing);
    std::vector<std::string> remarks;
    if (!options.automation.empty()) {
        auto automation = readAutomation(options.automation, {effect});
        remarks = automation.remarks;
        chain.setAutomation(std::move(automation.events));
    }
    Displays displays(effect);
    effect.component().setEditorOpen(true);
    chain.setWatcher([&](std::size_t, std::int64_t, int) { displays.update(); });
    const auto most = std::isfinite(seconds) ? std::llround(seconds * in.sampleRate())
                                             : std::numeric_limits<std::int64_t>::max();
    const auto frames = options.precision == 0 ? playFile<float>(chain, in, options.block, most)
                                               : playFile<double>(chain, in, options.block, most);
    chain.waitUntilReady();
    for (const auto& remark : in.remarks()) remarks.push_back(shownPath(path) + ": " + remark);
    return {effect,          std::move(displays), frames,
            in.sampleRate(), in.channels(),       std::move(remarks)};
}

namespace {

using Json = nlohmann::ordered_json;

Json valuesOf(const Effect& effect)
{
    Json values = Json::object();
    for (int i = 0; i < effect.component().countMeters(); ++i) {
        VNK::MeterInfo info{};
        effect.component().getMeter(i, info);
        const float value = effect.component().readMeter(i);
        values[info.key] = std::isfinite(value) ? Json(asShown(value)) : Json(nullptr);
    }
    return values;
}

void printValues(const std::string& file, const Effect& effect)
{
    std::vector<Row> rows;
    for (int i = 0; i < effect.component().countMeters(); ++i) {
        VNK::MeterInfo info{};
        effect.component().getMeter(i, info);
        char text[256];
        effect.component().meterToText(i, effect.component().readMeter(i), text, sizeof text);
        rows.push_back({info.key, text, info.title});
    }
    std::cout << file << "\n" << columns(rows, {});
}

}  // namespace

int measureDisplays(const Session& session, const std::string& text, const DisplayOptions& options,
                    const std::vector<std::string>& files, const std::vector<std::string>& asked,
                    bool asJson)
{
    constexpr const char* kOnlyIfAsked = "sonogram";  // megabytes
    const EffectSpec spec = parseEffectSpec(text);
    std::vector<std::string> displays;
    {
        const Effect effect = session.create(spec.name);
        session.noteThoseThatPassThrough({effect});
        displays = Displays::chosen(effect, asked.empty() ? Displays::namesOf(effect) : asked);
        if (asked.empty()) std::erase(displays, kOnlyIfAsked);
    }
    Json all = Json::array();
    int code = kDone;
    for (const auto& file : files) {
        try {
            const auto run = runDisplays(session, spec, options, file);
            for (const auto& remark : run.remarks) session.note(remark);
            if (!asJson) {
                printValues(shownPath(file), run.effect);
                continue;
            }
            Json item = {{"file", file},
                         {"effect", run.effect.name()},
                         {"frames", run.frames},
                         {"sampleRate", run.sampleRate},
                         {"channels", run.channels},
                         {"values", valuesOf(run.effect)},
                         {"displays", Json::object()}};
            for (const auto& name : displays) item["displays"][name] = run.displays.show(name);
            all.push_back(std::move(item));
        } catch (const WorkError& e) {
            say(e.what());
            if (asJson) all.push_back({{"file", file}, {"error", e.what()}});
            code = kFailed;
        }
    }
    if (asJson) std::cout << all.dump(1, ' ', false, Json::error_handler_t::replace) << "\n";
    std::cout.flush();
    return code;
}

}  // namespace quillhost
