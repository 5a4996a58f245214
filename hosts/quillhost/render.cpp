// SPDX-License-Identifier: ISC
// quillhost render: a sound file through effects in series into another one.
#include <optional>

#include "chain.h"
#include "command.h"
#include "effect_spec.h"
#include "meter_log.h"
#include "output_options.h"
#include "progress.h"

namespace quillhost {
namespace {

constexpr int kChunk = 16384;  // frames read at a time, if blocks are not longer
constexpr int kLongestBlock = 1 << 20;
constexpr double kLongestAutoTail = 60;  // seconds

struct Options {
    std::string in, out, automation, meters, sideChain, layout, tail;
    std::vector<std::string> effects, presets;
    std::vector<bool> order;  // true: an --fx, false: a --preset
    int block = 512;
    int precision = 0;  // 0: 32 bits, 1: 64
    int format = kAnyFormat;
    double tempo = 120, position = 0;
    bool stopped = false, keepLatency = false;
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
    if (specs.empty()) throw UsageError("render needs at least one --fx NAME");
    return specs;
}

void refuseSameFiles(const Options& options)
{
    std::vector<std::string> inputs = options.presets;
    inputs.insert(inputs.end(), {options.in, options.sideChain, options.automation});
    for (const auto& input : inputs) {
        refuseSameFile(options.out, input);
        if (!options.meters.empty()) refuseSameFile(options.meters, input);
    }
    if (!options.meters.empty() && options.meters == options.out)
        throw UsageError("--meters and the output are the same file (name another)");
    if (!options.meters.empty()) refuseSameFile(options.meters, options.out);
}

/// The mask that says where the channels belong: that of IN while they are what they were.
std::uint32_t outputMask(const Chain& chain, const SoundReader& in)
{
    if (chain.output() == in.layout()) return in.mask();
    return waveMask(chain.output());
}

/// Seconds of --tail as frames; -1 for "auto".
std::int64_t askedTail(const Options& options, int sampleRate)
{
    if (options.tail.empty()) return 0;
    if (options.tail == "auto") return -1;
    const double seconds = number("--tail", options.tail, 0.0, 86400.0);
    return std::llround(seconds * sampleRate);
}

template <typename T> class Rendering {
public:
    Rendering(const Options& options, SoundReader& in, SoundReader* sideChain, Chain& chain)
        : in_(in),
          sideIn_(sideChain),
          chain_(chain),
          chunk_(in.isStream() ? options.block
                               : options.block * std::max(1, kChunk / options.block)),
          planes_(std::max(chain.planeChannels(), in.channels()), chunk_),
          side_(sideChain ? sideChain->channels() : 0, chunk_),
          skipped_(options.keepLatency ? 0 : chain.latency()),
          trim_(skipped_)
    {}

    std::int64_t tail(std::int64_t asked) const
    {
        if (asked >= 0) return asked;
        const auto limit = static_cast<std::int64_t>(kLongestAutoTail * in_.sampleRate());
        const auto own = chain_.tail(limit);
        return own == limit ? limit : std::max<std::int64_t>(0, own - skipped_);
    }

    void run(SoundWriter& writer, std::int64_t askedTail, Progress& progress)
    {
        std::int64_t end = -1;  // of the processing, once it is known
        for (bool isOver = false; !isOver;) {
            int n = 0;
            if (end < 0) {
                n = in_.read(planes_, chunk_);
                if (n < chunk_) end = done_ + n + tail(askedTail) + skipped_;
            }
            const int run =
                end < 0 ? n : static_cast<int>(std::min<std::int64_t>(chunk_, end - done_));
            planes_.clear(n, run);
            if (sideIn_) {
                const int got = sideEnded_ ? 0 : sideIn_->read(side_, run);
                sideEnded_ = got < run;
                side_.clear(got, run);
            }
            chain_.run(planes_, sideIn_ ? &side_ : nullptr, run);
            writer.write(planes_, trim_.skip(run), run);
            done_ += run;
            isOver = end >= 0 && done_ >= end;
            progress.show(done_);
        }
    }

private:
    SoundReader& in_;
    SoundReader* sideIn_;
    Chain& chain_;
    int chunk_;
    Planes<T> planes_, side_;
    std::int64_t skipped_;  // what the output begins with and does not write
    VNK::LatencyTrim trim_;
    std::int64_t done_ = 0;
    bool sideEnded_ = false;
};

template <typename T>
void renderAs(const Session& session, const Options& options, SoundReader& in,
              SoundReader* sideChain, const std::vector<Effect>& effects, const ChainSetup& setup)
{
    Chain chain(effects, setup);
    if (sideChain && !chain.hasSideChain())
        session.note("no effect of the chain has a side-chain: --sidechain has no effect");
    bool isAutomated = false;
    if (!options.automation.empty()) {
        auto automation = readAutomation(options.automation, effects);
        for (const auto& remark : automation.remarks) session.note(remark);
        isAutomated = !automation.events.empty();
        chain.setAutomation(std::move(automation.events));
    }
    Rendering<T> rendering(options, in, sideChain, chain);
    const auto asked = askedTail(options, in.sampleRate());
    SoundShape shape{chain.output().channels, in.sampleRate(), outputMask(chain, in), -1};
    // Automation may change what the tail is when the input ends.
    if (in.frames() >= 0 && !(asked < 0 && isAutomated))
        shape.frames = in.frames() + rendering.tail(asked);
    const auto format = chooseFormat(options.out, shape, options.format, in.sampleFormat());

    SoundWriter writer(options.out, shape, format, &in);
    std::optional<MeterLog> log;
    if (!options.meters.empty()) {
        log.emplace(options.meters, effects);
        chain.setWatcher([&](std::size_t effect, std::int64_t frame, int frames) {
            log->write(chain, effect, frame, frames);
        });
    }
    {
        const auto total = shape.frames < 0 ? in.estimatedFrames() : shape.frames;
        Progress progress(session.quiet(), total, in.sampleRate());
        rendering.run(writer, asked, progress);
    }
    chain.waitUntilReady();
    if (log) log->finish();
    writer.finish();
    session.note(shownPath(in.path()), in.remarks());
    if (sideChain) session.note(shownPath(sideChain->path()), sideChain->remarks());
    if (const auto left = chain.eventsLeft(); left > 0)
        session.note(options.automation + ": " + std::to_string(left) +
                     (left == 1 ? " entry lies" : " entries lie") +
                     " behind the end of the sound and had no effect");
    noteClipping(session, options.out, writer);
}

int render(const Session& session, const Options& options)
{
    requireArgument(options.in, "IN and OUT", "render");
    requireArgument(options.out, "OUT", "render");
    const auto specs = effectSpecs(options);
    std::vector<Effect> effects;
    for (const auto& spec : specs) effects.push_back(createEffect(session, spec));
    session.noteThoseThatPassThrough(effects);

    ChainSetup setup;
    if (!options.layout.empty()) setup.output = layoutNamed(options.layout);
    askedTail(options, kLowestRate);
    isCoded(options.out);  // refuses an unknown kind before anything is opened
    if (options.in == "-" && options.sideChain == "-")
        throw UsageError("IN and --sidechain cannot both be standard input");
    refuseSameFiles(options);

    SoundReader in(options.in);
    std::optional<SoundReader> sideChain;
    if (!options.sideChain.empty()) {
        sideChain.emplace(options.sideChain);
        if (sideChain->sampleRate() != in.sampleRate())
            throw WorkError(options.sideChain + ": its sampling rate of " +
                            std::to_string(sideChain->sampleRate()) + " Hz is not that of " +
                            shownPath(options.in) + ", " + std::to_string(in.sampleRate()) + " Hz");
        setup.sideChainChannels = sideChain->channels();
    }
    setup.sampleRate = in.sampleRate();
    setup.block = options.block;
    setup.precision = options.precision == 0 ? VNK::Precision::Float : VNK::Precision::Double;
    setup.input = in.layout();
    setup.tempo = options.tempo;
    setup.playing = !options.stopped;
    setup.position = options.position;
    auto* const side = sideChain ? &*sideChain : nullptr;
    if (setup.precision == VNK::Precision::Float)
        renderAs<float>(session, options, in, side, effects, setup);
    else
        renderAs<double>(session, options, in, side, effects, setup);
    return kDone;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "IN", o->in, "sound file, - for a WAV from standard input");
    addOption(app, "OUT", o->out, "sound file, kind by its extension; - for standard output");
    auto* const effect = addRepeatable(
        app, "--fx", o->effects, "effect with settings, NAME:key=value,...; repeatable", "SPEC");
    auto* const preset =
        addRepeatable(app, "--preset", o->presets,
                      "preset for the --fx before it, loaded before its values", "FILE");
    addNumber(app, "--block", o->block, 1, kLongestBlock, "longest block in frames (512)");
    addChoice(app, "--precision", o->precision, {"32", "64"}, "bits of the processing (32)");
    addNumber(app, "--tempo", o->tempo, 10.0, 400.0, "quarter notes per minute (120)");
    addNumber(app, "--position", o->position, -1e6, 1e6,
              "song position of frame 0, in quarters (0)");
    addFlag(app, "--stopped", o->stopped, "the song stands still: no position is reported");
    addFormat(app, o->format, "samples of OUT (as IN)");
    addOption(app, "--tail", o->tail,
              "silence after IN: seconds, or the effects' own, at most 60 s", "SECONDS|auto");
    addOption(app, "--sidechain", o->sideChain, "sound file for the side-chain inputs", "FILE");
    addOption(app, "--automation", o->automation,
              "JSON array of {\"frame\",\"fx\",\"key\",\"value\"}; \"tempo\" moves the song's",
              "FILE");
    addOption(app, "--meters", o->meters, "JSON Lines of all meters and parameters, per block",
              "FILE");
    addOption(app, "--layout", o->layout, "layout of OUT (stereo, 5.1, 7.1.4, ...)", "NAME");
    addFlag(app, "--keep-latency", o->keepLatency,
            "leave the effects' delay in OUT; else it is taken out as it is before any automation");
    return [o, &app, effect, preset](Session& session) {
        for (const auto* option : optionsGiven(app))
            if (option == effect || option == preset) o->order.push_back(option == effect);
        return render(session, *o);
    };
}

}  // namespace

extern const Command kRender;
const Command kRender = {
    "render", "a sound file through effects in series into another",
    "  quillhost render in.wav out.wav --fx compressor:threshold=-20,ratio=4\n"
    "  quillhost render in.wav out.flac --fx limiter --preset loud.fxpreset --format pcm24\n"
    "  quillhost render in.wav out.wav --fx analogdelay --tail auto --tempo 96\n"
    "  cat in.wav | quillhost render - - --fx mixtool:gain=-6 > out.wav",
    declare};

}  // namespace quillhost
