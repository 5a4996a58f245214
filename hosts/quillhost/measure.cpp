// SPDX-License-Identifier: ISC
// quillhost measure: loudness and peaks of many files side by side.
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

#include "command.h"
#include "console.h"
#include "display_run.h"
#include "loudness_report.h"
#include "progress.h"
#include "sound_file.h"
#include "table.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

enum Format { Table, JsonArray, JsonLines, Csv };
const std::vector<std::string> kFormats = {"table", "json", "jsonl", "csv"};

struct Options {
    std::vector<std::string> files;
    int format = -1;  // a Format; -1: as --json says
    bool json = false;
    int jobs = 0;  // 0: the cores
    std::optional<double> target, maxTruePeak;
    double tolerance = 0.5;  // LU
};

/// What came of a file: a report or the reason why there is none.
struct Outcome {
    std::optional<LoudnessReport> report;
    std::string error;
};

/// `told` is called with each outcome in the order of the files, as soon as it is there.
std::vector<Outcome> measureAll(const Session& session, const Options& options,
                                const std::function<void(std::size_t, const Outcome&)>& told)
{
    const auto count = options.files.size();
    const auto cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    const auto jobs =
        std::min(count, static_cast<std::size_t>(options.jobs > 0 ? options.jobs : cores));
    std::vector<Outcome> outcomes(count);
    std::vector<LoudnessGauge> gauges;
    for (std::size_t i = 0; i < jobs; ++i) gauges.emplace_back(session);

    std::atomic<std::size_t> next = 0;
    std::vector<std::atomic<bool>> isDone(count);
    std::atomic<std::int64_t> steps = 0;
    const auto work = [&](LoudnessGauge& gauge) {
        for (std::size_t i; (i = next++) < count; isDone[i] = true) {
            try {
                outcomes[i].report = gauge.measure(options.files[i], steps);
            } catch (const std::exception& e) {
                outcomes[i].error = e.what();
            }
        }
    };
    std::vector<std::jthread> threads;
    try {
        for (auto& gauge : gauges) threads.emplace_back(work, std::ref(gauge));
    } catch (const std::system_error&) {  // no more threads: those there are do the work
        if (threads.empty()) work(gauges[0]);
    }
    Progress progress(session.quiet(), LoudnessGauge::kWhole * static_cast<std::int64_t>(count), 0);
    for (std::size_t i = 0; i < count; ++i) {
        while (!isDone[i]) {
            progress.show(steps);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        if (told) {
            progress.clear();
            told(i, outcomes[i]);
        }
    }
    return outcomes;
}

/// What of the limits the file misses, in words; empty if nothing.
std::string missedBy(const LoudnessReport& r, const Options& o)
{
    std::string missed;
    if (o.target && !(std::abs(double(r.integrated) - *o.target) <= o.tolerance)) missed = "target";
    if (o.maxTruePeak && double(r.truePeak) > *o.maxTruePeak)
        missed += missed.empty() ? "true peak" : ", true peak";
    return missed;
}

Json jsonOf(float value)
{
    return std::isfinite(value) ? Json(asShown(value)) : Json(nullptr);
}

Json jsonOf(const std::vector<float>& values)
{
    Json all = Json::array();
    for (const float v : values) all.push_back(jsonOf(v));
    return all;
}

Json jsonOf(const std::string& file, const Outcome& outcome, const Options& options)
{
    if (!outcome.report) return {{"file", file}, {"error", outcome.error}};
    const auto& r = *outcome.report;
    Json item = {{"file", r.file},
                 {"integrated", jsonOf(r.integrated)},
                 {"momentaryMax", jsonOf(r.momentaryMax)},
                 {"shortTermMax", jsonOf(r.shortTermMax)},
                 {"range", jsonOf(r.range)},
                 {"rangeLow", jsonOf(r.rangeLow)},
                 {"rangeHigh", jsonOf(r.rangeHigh)},
                 {"truePeak", jsonOf(r.truePeak)},
                 {"samplePeak", jsonOf(r.samplePeak)},
                 {"rms", jsonOf(r.rms)},
                 {"frames", r.frames},
                 {"sampleRate", r.sampleRate},
                 {"channels", r.channels}};
    if (options.target || options.maxTruePeak) item["missed"] = missedBy(r, options);
    return item;
}

/// A file name need not be UTF-8; the rest of the report must not suffer from it.
std::string textOf(const Json& json, int indent)
{
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

/// A field of RFC 4180.
std::string csvField(const std::string& text)
{
    if (text.find_first_of("\",\r\n") == std::string::npos) return text;
    std::string quoted(1, '"');
    for (const char c : text) quoted.append(c == '"' ? 2 : 1, c);
    return quoted + '"';
}

/// The columns of every report, whatever the file; figures of the channels are joined by "/".
constexpr const char* kColumns[] = {"file",       "integrated", "momentaryMax", "shortTermMax",
                                    "range",      "rangeLow",   "rangeHigh",    "truePeak",
                                    "samplePeak", "rms",        "frames",       "sampleRate",
                                    "channels",   "missed",     "error"};

std::string csvLine(const Json& item)
{
    const auto shown = [](const Json& value) -> std::string {
        return value.is_null() ? "" : value.is_string() ? value.get<std::string>() : value.dump();
    };
    std::string line;
    for (const char* column : kColumns) {
        if (column != kColumns[0]) line += ',';
        const auto found = item.find(column);
        if (found == item.end()) continue;
        std::string text;
        if (found->is_array())
            for (const auto& value : *found)
                text.append(&value == &found->front() ? "" : "/").append(shown(value));
        else
            text = shown(*found);
        line += csvField(text);
    }
    return line;
}

std::string shown(float value)
{
    return std::isfinite(value) ? fixedText(value, 1) : "-";
}

std::string shown(const std::vector<float>& values)
{
    std::string all;
    for (const float v : values) {
        if (!all.empty()) all += '/';
        all += shown(v);
    }
    return all;
}

void printTable(const std::vector<Outcome>& outcomes, const Options& options)
{
    const bool hasLimits = options.target || options.maxTruePeak;
    std::vector<Row> rows = {{"integrated", "momentary", "short-term", "range", "true peak",
                              "sample peak", "RMS", "file"},
                             {"LUFS", "max LUFS", "max LUFS", "LU", "dBTP", "dBFS", "dB", ""}};
    for (const auto& outcome : outcomes) {
        if (!outcome.report) continue;
        const auto& r = *outcome.report;
        rows.push_back({shown(r.integrated), shown(r.momentaryMax), shown(r.shortTermMax),
                        shown(r.range), shown(r.truePeak), shown(r.samplePeak), shown(r.rms),
                        r.file});
        if (!hasLimits) continue;
        const auto missed = missedBy(r, options);
        rows.back().push_back(missed.empty() ? "" : "missed: " + missed);
    }
    if (rows.size() > 2) std::cout << columns(rows, {0, 1, 2, 3, 4, 5, 6});
}

int run(const Session& session, const Options& options)
{
    const auto item = [&](std::size_t i, const Outcome& outcome) {
        return jsonOf(options.files[i], outcome, options);
    };
    std::function<void(std::size_t, const Outcome&)> told;
    if (options.format == JsonLines)
        told = [&](std::size_t i, const Outcome& outcome) {
            std::cout << textOf(item(i, outcome), -1) << std::endl;
        };
    if (options.format == Csv) {
        std::string header;
        for (const char* column : kColumns) {
            if (!header.empty()) header += ',';
            header += column;
        }
        std::cout << header << std::endl;
        told = [&](std::size_t i, const Outcome& outcome) {
            std::cout << csvLine(item(i, outcome)) << std::endl;
        };
    }
    const auto outcomes = measureAll(session, options, told);
    if (options.format == JsonArray) {
        Json all = Json::array();
        for (std::size_t i = 0; i < outcomes.size(); ++i) all.push_back(item(i, outcomes[i]));
        std::cout << textOf(all, 1) << "\n";
    } else if (options.format == Table) {
        printTable(outcomes, options);
    }
    std::cout.flush();
    int code = kDone;
    for (const auto& outcome : outcomes) {
        if (!outcome.report)
            say(outcome.error);
        else
            session.note(shownPath(outcome.report->file), outcome.report->remarks);
        if (!outcome.report || !missedBy(*outcome.report, options).empty()) code = kFailed;
    }
    return code;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "FILE", o->files, "sound files; - is a WAV from standard input");
    addFlag(app, "--json", o->json, "as a JSON array, figures with nothing to report as null");
    addChoice(app, "--format", o->format, kFormats,
              "how the report is written; jsonl and csv give a line for each file as soon as it is "
              "there (table)");
    addNumber(app, "--jobs", o->jobs, 1, 1024, "files measured side by side (the cores)");
    auto limits = std::make_shared<std::array<double, 2>>();
    auto* target = addNumber(app, "--target", (*limits)[0], -100.0, 20.0,
                             "integrated loudness asked for, in LUFS");
    auto* tolerance = addNumber(app, "--tolerance", o->tolerance, 0.0, 100.0,
                                "how far from the target it may be, in LU (0.5)");
    auto* peak = addNumber(app, "--max-true-peak", (*limits)[1], -144.0, 144.0,
                           "highest true peak allowed, in dBTP");
    struct Shown {
        std::string spec;
        std::vector<std::string> displays;
        DisplayOptions options;
    };
    auto shown = std::make_shared<Shown>();
    auto* effect = addOption(app, "--fx", shown->spec,
                             "instead of loudness: what an effect's meters and displays show after "
                             "each file",
                             "SPEC");
    addRepeatable(app, "--display", shown->displays,
                  "with --fx, a display to report; repeatable (all but sonogram)", "NAME");
    auto displayOptions = addDisplayOptions(app, shown->options);
    displayOptions.push_back(addFlag(app, "--allow-missing", shown->options.allowMissing,
                                     "with --fx, though a file that it names cannot be had"));
    return [=](Session& session) {
        if (o->files.empty()) requireArgument("", "a FILE", "measure");
        if (o->json && o->format != -1 && o->format != JsonArray)
            throw UsageError("--json and --format name two formats (leave one out)");
        if (o->format == -1) o->format = o->json ? JsonArray : Table;
        if (isGiven(effect)) {
            if (isGiven(target) || isGiven(peak) || o->jobs > 0)
                throw UsageError("--target, --max-true-peak and --jobs do not go with --fx");
            if (o->format == JsonLines || o->format == Csv)
                throw UsageError("--format with --fx is table or json");
            return measureDisplays(session, shown->spec, shown->options, o->files, shown->displays,
                                   o->format == JsonArray);
        }
        for (const auto* option : displayOptions)
            if (isGiven(option)) throw UsageError(nameOf(option) + " needs --fx SPEC");
        if (!shown->displays.empty()) throw UsageError("--display needs --fx SPEC");
        if (isGiven(tolerance) && !isGiven(target))
            throw UsageError("--tolerance needs --target LUFS");
        if (std::count(o->files.begin(), o->files.end(), "-") > 1)
            throw UsageError("standard input can be measured once only");
        if (isGiven(target)) o->target = (*limits)[0];
        if (isGiven(peak)) o->maxTruePeak = (*limits)[1];
        return run(session, *o);
    };
}

}  // namespace

extern const Command kMeasure;
const Command kMeasure = {"measure", "loudness and peaks of sound files",
                          "  quillhost measure *.wav\n"
                          "  quillhost measure album/*.flac --json --jobs 8\n"
                          "  quillhost measure mix.wav --target -23 --tolerance 0.5 "
                          "--max-true-peak -1\n"
                          "  quillhost measure archive/*.wav --format csv > loudness.csv\n"
                          "  quillhost measure in.wav --fx scope:time=50 --json",
                          declare};

}  // namespace quillhost
