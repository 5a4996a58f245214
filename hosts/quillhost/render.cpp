// SPDX-License-Identifier: ISC
// quillhost render: sound files through effects in series into others.
#include <optional>

#include "batch.h"
#include "command.h"
#include "lv2_effect.h"
#include "progress.h"
#include "text.h"

namespace quillhost {
namespace {

constexpr int kLongestBlock = 1 << 20;

struct Options {
    RenderPlan plan;
    BatchOptions batch;
    std::vector<std::string> files;  // IN and OUT, or many IN
    std::vector<std::string> effects, presets;
    std::vector<bool> order;  // true: an --fx, false: a --preset
    std::string target;       // by name
    std::optional<double> loudness, truePeak, rangeMax;
};

std::vector<EffectSpec> effectSpecs(const Options& options)
{
    std::vector<EffectSpec> specs;
    std::size_t preset = 0;
    for (const bool isEffect : options.order) {
        if (isEffect)
            specs.push_back(parseEffectSpec(options.effects[specs.size()]));
        else if (specs.empty())
            throw UsageError("--preset " + options.presets[preset] +
                             " stands before every --fx (put it after the one it is for)");
        else
            specs.back().presets.push_back(options.presets[preset++]);
    }
    if (specs.empty() && !options.loudness && options.target.empty() && options.plan.rate == 0)
        throw UsageError("render needs at least one --fx NAME");
    return specs;
}

void refuseSameFiles(const Options& options, const RenderTask& task)
{
    const auto& plan = options.plan;
    std::vector<std::string> inputs = options.presets;
    inputs.insert(inputs.end(), {task.in, plan.sideChain, plan.automation});
    for (const auto& input : inputs) {
        refuseSameFile(task.out, input);
        if (!plan.meters.empty()) refuseSameFile(plan.meters, input);
    }
    if (!plan.meters.empty() && plan.meters == task.out)
        throw UsageError("--meters and the output are the same file (name another)");
    if (!plan.meters.empty()) refuseSameFile(plan.meters, task.out);
}

/// What of the loudness is asked for, into the batch's target.
void checkTarget(Options& o)
{
    if (!o.target.empty() && o.loudness)
        throw UsageError("--target names a loudness, and so does --normalize (leave one out)");
    const bool isAsked = o.loudness || !o.target.empty();
    if (isAsked) {
        auto target = o.target.empty() ? LoudnessTarget{} : targetNamed(o.target);
        target.loudness = o.loudness.value_or(target.loudness);
        target.truePeak = o.truePeak.value_or(target.truePeak);
        target.rangeMax = o.rangeMax;
        o.batch.target = target;
    } else if (o.truePeak || o.rangeMax || o.batch.album || o.batch.strict) {
        throw UsageError("--true-peak, --range-max, --album and --strict need --normalize LUFS or "
                         "--target NAME");
    }
    if (isAsked && !o.plan.meters.empty())
        throw UsageError("--meters does not go with --normalize");
    const auto& b = o.batch;
    if (b.album && o.rangeMax)
        throw UsageError("--range-max changes what lies between the files, which --album keeps "
                         "(leave one out)");
    if (b.folder.empty() &&
        (!b.suffix.empty() || !b.extension.empty() || b.jobs > 0 || b.skipExisting || b.album))
        throw UsageError("--suffix, --extension, --jobs, --skip-existing and --album need "
                         "--out-dir DIR");
    if (b.extension.find_first_of("./") != std::string::npos ||
        b.suffix.find('/') != std::string::npos)
        throw UsageError("--extension and --suffix are parts of a name (flac, -loud)");
}

int render(const Session& session, Options& options)
{
    auto& plan = options.plan;
    auto& batch = options.batch;
    const bool isBatch = !batch.folder.empty();
    requireArgument(options.files.empty() ? "" : options.files[0], isBatch ? "an IN" : "IN and OUT",
                    "render");
    if (!isBatch)
        requireArgument(options.files.size() < 2 ? "" : options.files[1], "OUT", "render");
    if (!isBatch && options.files.size() > 2)
        throw UsageError("render takes IN and OUT, or many files with --out-dir DIR");
    plan.effects = effectSpecs(options);
    checkTarget(options);
    // What is wrong with an effect is said once and before anything is opened.
    {
        std::vector<std::string> saidLater;
        const Session::NotesApart apart(saidLater);
        // What other people's code shares between its instances is not known.
        for (const auto& spec : plan.effects) {
            createEffect(session, spec);
            if (isLv2(spec.name)) batch.jobs = 1;
        }
    }
    checkPlan(plan);
    if (isBatch) {
        if (!plan.meters.empty() || plan.sideChain == "-")
            throw UsageError(
                "--meters and a side-chain from standard input do not go with --out-dir");
        return renderAll(session, plan, tasksFor(options.files, batch, plan), batch);
    }
    const RenderTask task{options.files[0], options.files[1]};
    isCoded(task.out);  // refuses an unknown kind before anything is opened
    if (task.in == "-" && plan.sideChain == "-")
        throw UsageError("IN and --sidechain cannot both be standard input");
    if (task.in == "-" && batch.target)
        throw UsageError("a file is read more than once for --normalize: IN cannot be standard "
                         "input");
    if (task.out == "-" && (batch.target || batch.json))
        throw UsageError("--normalize and --json report on standard output: name a file for OUT");
    refuseSameFiles(options, task);
    if (batch.target || batch.json || batch.dryRun) return renderAll(session, plan, {task}, batch);

    FileSink file(task.out, plan);
    {
        std::optional<Progress> progress;
        renderFile(session, plan, task.in, file,
                   [&](std::int64_t done, std::int64_t total, int sampleRate) {
                       if (!progress) progress.emplace(session.quiet(), total, sampleRate);
                       progress->show(done);
                   });
    }
    file.finish(session);
    return kDone;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    auto& plan = o->plan;
    auto& batch = o->batch;
    addOption(app, "IN", o->files,
              "sound file, - for a WAV from standard input; then OUT, kind by its extension, - for "
              "standard output; with --out-dir any number of IN",
              "IN OUT");
    auto* const effect = addRepeatable(
        app, "--fx", o->effects,
        "effect with settings, NAME:key=value,..., or an LV2 plug-in, lv2:URI:symbol=value,...; "
        "repeatable",
        "SPEC");
    auto* const preset =
        addRepeatable(app, "--preset", o->presets,
                      "preset for the --fx before it, loaded before its values", "FILE");
    addNumber(app, "--block", plan.block, 1, kLongestBlock, "longest block in frames (512)");
    addChoice(app, "--precision", plan.precision, {"32", "64"}, "bits of the processing (32)");
    addNumber(app, "--tempo", plan.tempo, 10.0, 400.0, "quarter notes per minute (120)");
    addNumber(app, "--position", plan.position, -1e6, 1e6,
              "song position of frame 0, in quarters (0)");
    addFlag(app, "--stopped", plan.stopped, "the song stands still: no position is reported");
    addFormat(app, plan.format, "samples of OUT (as IN)");
    addDither(app, plan.dither);
    addNumber(app, "--rate", plan.rate, kLowestRate, kHighestRate,
              "sampling rate that IN is converted to before the effects, in Hz");
    addOption(app, "--tail", plan.tail,
              "silence after IN: seconds, or the effects' own, at most 60 s", "SECONDS|auto");
    addOption(app, "--sidechain", plan.sideChain, "sound file for the side-chain inputs", "FILE");
    addOption(app, "--automation", plan.automation,
              "JSON array of {\"frame\",\"fx\",\"key\",\"value\"}; \"tempo\" moves the song's",
              "FILE");
    addOption(app, "--meters", plan.meters, "JSON Lines of all meters and parameters, per block",
              "FILE");
    addOption(app, "--layout", plan.layout, "layout of OUT (stereo, 5.1, 7.1.4, ...)", "NAME");
    addFlag(app, "--keep-latency", plan.keepLatency,
            "leave the effects' delay in OUT; else it is taken out as it is before any automation");
    addFlag(app, "--allow-missing", plan.allowMissing,
            "render though a file that an effect names cannot be had");
    addOption(app, "--out-dir", batch.folder,
              "folder for what becomes of many files, made where there is none", "DIR");
    addOption(app, "--suffix", batch.suffix, "with --out-dir, put behind each file's name", "TEXT");
    addOption(app, "--extension", batch.extension, "with --out-dir, kind of the files (as each IN)",
              "KIND");
    addNumber(app, "--jobs", batch.jobs, 1, 64, "files rendered side by side (the cores)");
    addFlag(app, "--skip-existing", batch.skipExisting, "leave out files that are there already");
    addFlag(app, "--dry-run", batch.dryRun, "only say which files would be written");
    addFlag(app, "--json", batch.json,
            "report length, latency, clipped samples, loudness before and after");
    const auto addLimit = [&app](const char* name, std::optional<double>& to, double min,
                                 double max, const char* help) {
        addRead(
            app, name, [=, &to](const std::string& text) { to = number(name, text, min, max); },
            help, "N");
    };
    addLimit("--normalize", o->loudness, -70, 0, "bring OUT to this integrated loudness, in LUFS");
    addOption(app, "--target", o->target, "the same by name",
              "ebu-r128|atsc-a85|streaming|podcast");
    addLimit("--true-peak", o->truePeak, -12, 0,
             "highest true peak of OUT, by a limiter where needed, in dBTP (-1, or the target's)");
    addLimit("--range-max", o->rangeMax, 1, 100, "widest loudness range of OUT, in LU");
    addFlag(app, "--album", batch.album, "one gain for all files of the call");
    addFlag(app, "--strict", batch.strict, "exit 1 where a file misses its target");
    return [o, &app, effect, preset](Session& session) {
        for (const auto* option : optionsGiven(app))
            if (option == effect || option == preset) o->order.push_back(option == effect);
        return render(session, *o);
    };
}

}  // namespace

extern const Command kRender;
const Command kRender = {
    "render", "sound files through effects in series into others",
    "  quillhost render in.wav out.wav --fx compressor:threshold=-20,ratio=4\n"
    "  quillhost render in.wav out.flac --fx limiter --preset loud.fxpreset --format pcm24\n"
    "  quillhost render in.wav out.wav --fx analogdelay --tail auto --tempo 96\n"
    "  quillhost render *.wav --out-dir loud --target streaming --fx compressor:ratio=2\n"
    "  cat in.wav | quillhost render - - --fx mixtool:gain=-6 > out.wav",
    declare};

}  // namespace quillhost
