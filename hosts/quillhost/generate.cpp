// SPDX-License-Identifier: ISC
// quillhost generate: what an effect makes of silence, into a sound file.
#include <cmath>

#include "chain.h"
#include "effect_spec.h"
#include "output_options.h"
#include "progress.h"

namespace quillhost {
namespace {

constexpr int kChunk = 16384;       // frames written at a time
constexpr double kLongest = 86400;  // seconds
constexpr int kUsualRate = 48000;

struct Options {
    std::string spec, out;
    std::vector<std::string> presets;
    std::string seconds, layout = "stereo";
    int rate = kUsualRate;
    int precision = 0;  // 0: 32 bits, 1: 64
    int format = kAnyFormat;
    int dither = 0;  // a Dither
    double tempo = 120;
    bool allowMissing = false;
};

template <typename T>
void run(const Session& session, const Options& options, Chain& chain, std::int64_t frames)
{
    const SoundShape shape{chain.output().channels, options.rate, waveMask(chain.output()), frames};
    const auto format = chooseFormat(options.out, shape, options.format, SampleFormat::Float32);
    SoundWriter writer(options.out, shape, format, static_cast<Dither>(options.dither));
    Planes<T> planes(chain.planeChannels(), kChunk);
    const auto delay = chain.latency();
    VNK::LatencyTrim trim(delay);
    {
        Progress progress(session.quiet(), frames, options.rate);
        for (std::int64_t done = 0; done < frames + delay;) {
            const auto n = static_cast<int>(std::min<std::int64_t>(kChunk, frames + delay - done));
            planes.clear(0, n);
            chain.run(planes, static_cast<const Planes<T>*>(nullptr), n);
            writer.write(planes, trim.skip(n), n);
            done += n;
            progress.show(done);
        }
    }
    chain.waitUntilReady();
    writer.finish();
    noteClipping(session, options.out, writer);
}

int generate(const Session& session, const Options& options)
{
    requireArgument(options.spec, "SPEC and OUT", "generate");
    requireArgument(options.out, "OUT", "generate");
    requireArgument(options.seconds, "--seconds N", "generate");
    const double seconds = number("--seconds", options.seconds, 0.0, kLongest);
    const auto frames = std::llround(seconds * options.rate);
    if (frames < 1) throw UsageError("--seconds " + options.seconds + " is no length (above 0)");
    EffectSpec spec = parseEffectSpec(options.spec);
    spec.presets = options.presets;
    ChainSetup setup;
    setup.input = layoutNamed(options.layout);
    isCoded(options.out);  // refuses an unknown kind before anything is done
    for (const auto& preset : options.presets) refuseSameFile(options.out, preset);
    const Effect effect = createEffect(session, spec);
    session.noteThoseThatPassThrough({effect});
    setup.sampleRate = options.rate;
    setup.precision = options.precision == 0 ? VNK::Precision::Float : VNK::Precision::Double;
    setup.tempo = options.tempo;
    Chain chain({effect}, setup);
    chain.requireFiles(session, options.allowMissing);
    if (options.precision == 0)
        run<float>(session, options, chain, frames);
    else
        run<double>(session, options, chain, frames);
    return kDone;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "SPEC", o->spec, "NAME or NAME:key=value,...");
    addOption(app, "OUT", o->out, "sound file, kind by its extension; - for standard output");
    addOption(app, "--seconds", o->seconds, "length of OUT", "N");
    addNumber(app, "--rate", o->rate, kLowestRate, kHighestRate, "sampling rate in Hz (48000)");
    addOption(app, "--layout", o->layout, "layout of OUT: mono, stereo, 5.1, ... (stereo)", "NAME");
    addFormat(app, o->format, "samples of OUT (float32)");
    addDither(app, o->dither);
    addRepeatable(app, "--preset", o->presets, "preset, loaded before the values of SPEC", "FILE");
    addChoice(app, "--precision", o->precision, {"32", "64"}, "bits of the processing (32)");
    addNumber(app, "--tempo", o->tempo, 10.0, 400.0, "quarter notes per minute (120)");
    addFlag(app, "--allow-missing", o->allowMissing,
            "though a file that the effect names cannot be had");
    return [o](Session& session) { return generate(session, *o); };
}

}  // namespace

extern const Command kGenerate;
const Command kGenerate = {
    "generate", "a test signal, or what else an effect makes of silence",
    "  quillhost generate tonegenerator:frequency=997,level=-20 tone.wav --seconds 10\n"
    "  quillhost generate \"tonegenerator:wave=log sweep,frequency=20\" sweep.flac --seconds 12\n"
    "  quillhost generate tonegenerator:wave=pink,channels=walk walk.wav --seconds 60 --layout 5.1",
    declare};

}  // namespace quillhost
