// SPDX-License-Identifier: ISC
// quillhost ir: sweeps to measure with, and the responses that come of them.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>

#include "chain.h"
#include "effect_spec.h"
#include "output_options.h"
#include "progress.h"
#include "table.h"
#include "vnk/impulse_responses.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kChunk = 16384;  // frames
constexpr double kLead = 0.1;  // seconds of silence before the first sweep
constexpr double kUsualTail = 4, kShortestTail = 0.1, kLongestTail = 60;  // seconds
constexpr double kShortestAutoTail = 0.5, kLongestAutoTail = 30;          // seconds
constexpr const char* kAlignments[] = {"As Recorded", "Minus Latency", "To Onset"};
constexpr int kAsRecorded = 0, kMinusLatency = 1, kToOnset = 2;

struct Options {
    std::string action;
    std::vector<std::string> words;
    std::string out, sweep, align, tail, reference, layout = "stereo";
    std::vector<std::string> effects;
    int rate = 48000, channels = 1, precision = 0, format = kAnyFormat;
    double length = 8, from = 20, level = -18, latency = 0;
    bool inTurn = false, trim = false, normalise = false, harmonics = false, json = false;
};

/// A whole sound, channel by channel.
struct Sound {
    int sampleRate = 0;
    std::vector<std::vector<float>> channels;

    std::size_t frames() const noexcept { return channels.front().size(); }
    std::vector<const float*> pointers() const
    {
        std::vector<const float*> all;
        for (const auto& channel : channels) all.push_back(channel.data());
        return all;
    }
};

/// What an operation gives: by order, channels of double precision.
struct Responses final : VNK::IResponseSink {
    std::vector<std::pair<int, std::vector<std::vector<double>>>> orders;

    void take(std::int32_t order, const double* const* channels, std::int32_t count,
              std::int64_t frames) override
    {
        auto& taken = orders.emplace_back(order, std::vector<std::vector<double>>()).second;
        for (int c = 0; c < count; ++c) taken.emplace_back(channels[c], channels[c] + frames);
    }
};

VNK::Ref<VNK::IImpulseResponses> responsesOf(const Effect& effect)
{
    auto tool = effect.component().queryInterface<VNK::IImpulseResponses>();
    if (!tool) throw WorkError("this module's IR Maker solves no recordings");
    return tool;
}

Sound readWhole(const Session& session, const std::string& path)
{
    SoundReader reader(path);
    Sound sound;
    sound.sampleRate = reader.sampleRate();
    sound.channels.resize(static_cast<std::size_t>(reader.channels()));
    needingMemory(shownPath(path), [&] {
        Planes<float> planes(reader.channels(), kChunk);
        for (int n = kChunk; n == kChunk;) {
            n = reader.read(planes, kChunk);
            for (int c = 0; c < reader.channels(); ++c)
                sound.channels[static_cast<std::size_t>(c)].insert(
                    sound.channels[static_cast<std::size_t>(c)].end(), planes[c], planes[c] + n);
        }
        return 0;
    });
    if (sound.frames() == 0) throw WorkError(shownPath(path) + ": is empty");
    session.note(shownPath(path), reader.remarks());
    return sound;
}

template <class Channels>
void writeWhole(const Session& session, const std::string& path, const Channels& channels, int rate,
                int asked, std::uint32_t mask = 0)
{
    const auto frames = static_cast<std::int64_t>(channels.front().size());
    const SoundShape shape{static_cast<int>(channels.size()), rate, mask, frames};
    // A dither would be noise in every sound that the response is played to.
    SoundWriter writer(path, shape, chooseFormat(path, shape, asked, SampleFormat::Float32),
                       Dither::None);
    Planes<double> planes(shape.channels, kChunk);
    for (std::int64_t done = 0; done < frames;) {
        const auto n = static_cast<int>(std::min<std::int64_t>(kChunk, frames - done));
        for (int c = 0; c < shape.channels; ++c)
            std::copy_n(channels[static_cast<std::size_t>(c)].begin() + done, n, planes[c]);
        writer.write(planes, 0, n);
        done += n;
    }
    writer.finish();
    noteClipping(session, path, writer);
}

/// What is played: silence, then for each source the sweep and time for the room.
struct SweepFile {
    Sound sound;
    int sources = 1;
    VNK::SweepPlan plan;
    double tail = kUsualTail;  // seconds
};

SweepFile makeSweep(VNK::IImpulseResponses& tool, const Options& options, int channels, int sources,
                    double tail)
{
    SweepFile file;
    file.plan = {double(options.rate), options.length, options.from, 0, options.level};
    file.sources = sources;
    file.tail = tail;
    Responses taken;
    if (!tool.makeSweep(file.plan, &taken)) throw WorkError(tool.refusal());
    const auto& sweep = taken.orders.front().second.front();
    const auto frames = [&](double seconds) {
        return static_cast<std::size_t>(std::lround(seconds * options.rate));
    };
    const auto each = sweep.size() + frames(tail);
    file.sound.sampleRate = options.rate;
    file.sound.channels.assign(
        static_cast<std::size_t>(channels),
        std::vector<float>(frames(kLead) + static_cast<std::size_t>(sources) * each));
    for (int s = 0; s < sources; ++s)
        for (int c = 0; c < channels; ++c) {
            if (sources > 1 && s != c) continue;
            const auto start = frames(kLead) + static_cast<std::size_t>(s) * each;
            std::copy(sweep.begin(), sweep.end(),
                      file.sound.channels[static_cast<std::size_t>(c)].begin() +
                          static_cast<std::ptrdiff_t>(start));
        }
    return file;
}

Json jsonOf(double value)
{
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

std::string shown(double value, int digits, const char* unit)
{
    return std::isfinite(value) ? fixedText(value, digits) + unit : "-";
}

double tailSeconds(const Options& options)
{
    return number("--tail", options.tail, kShortestTail, kLongestTail);
}

int sweep(const Session& session, const Options& options)
{
    if (options.words.size() != 1)
        throw UsageError("ir sweep takes OUT (quillhost ir --help shows how)");
    const auto& out = options.words[0];
    isCoded(out);  // refuses an unknown kind before anything is done
    const double tail = options.tail.empty() ? kUsualTail : tailSeconds(options);
    const Effect maker = session.create("IR Maker");
    const auto tool = responsesOf(maker);
    const auto file =
        makeSweep(*tool, options, options.channels, options.inTurn ? options.channels : 1, tail);
    writeWhole(session, out, file.sound.channels, options.rate, options.format);
    if (out == "-") return kDone;  // standard output carries the sound
    if (options.json)
        std::cout << Json{{"sampleRate", options.rate},
                          {"channels", options.channels},
                          {"sources", file.sources},
                          {"sweepLength", file.plan.seconds},
                          {"lead", kLead},
                          {"tail", file.tail},
                          {"from", file.plan.from},
                          {"to", file.plan.to},
                          {"level", file.plan.level}}
                  << "\n";
    else
        std::cout << "sweep of " << fixedText(file.plan.seconds, 3) << " s from "
                  << shortText(file.plan.from) << " to " << shortText(file.plan.to) << " Hz at "
                  << shortText(file.plan.level) << " dB, " << file.sources
                  << (file.sources == 1 ? " time, " : " times, ") << shortText(kLead)
                  << " s of silence before and " << shortText(file.tail) << " s behind each\n";
    return kDone;
}

/// "room.wav", 2 -> "room H2.wav".
std::string besideName(const std::string& path, int order)
{
    const auto slash = path.find_last_of('/');
    const auto dot = path.find_last_of('.');
    const bool hasEnding = dot != std::string::npos && (slash == std::string::npos || dot > slash);
    const auto stem = path.substr(0, hasEnding ? dot : path.size());
    return stem + " H" + std::to_string(order) + (hasEnding ? path.substr(dot) : "");
}

int alignment(const Options& options, int usual)
{
    if (options.align.empty()) return usual;
    for (int i = 0; i < 3; ++i)
        if (sameName(options.align, kAlignments[i]) || options.align == std::to_string(i)) return i;
    throw UsageError("--align does not take " + inQuotes(options.align) +
                     " (As Recorded, Minus Latency, To Onset, or 0 to 2)");
}

void printFigures(const VNK::ResponseFigures& f, const Options& options)
{
    if (options.json) {
        std::cout << Json{{"latency", jsonOf(f.latency)},
                          {"noiseFloor", jsonOf(f.noiseFloor)},
                          {"responseToNoise", jsonOf(f.responseToNoise)},
                          {"thd", jsonOf(f.thd)},
                          {"t30", jsonOf(f.t30)},
                          {"c80", jsonOf(f.c80)},
                          {"clipped", f.clipped},
                          {"disturbed", f.disturbed}}
                  << "\n";
        return;
    }
    std::cout << columns({{"latency", shown(f.latency, 0, " samples")},
                          {"noise floor", shown(f.noiseFloor, 1, " dB")},
                          {"response to noise", shown(f.responseToNoise, 1, " dB")},
                          {"distortion", shown(f.thd, 3, " %")},
                          {"T30", shown(f.t30, 2, " s")},
                          {"C80", shown(f.c80, 1, " dB")},
                          {"clipped", std::to_string(f.clipped) + " samples"}});
    if (f.disturbed) std::cout << "disturbed: something drowned the sweep, measure again\n";
}

/// Solves, writes what comes of it and says what it is.
void solveAndWrite(const Session& session, const Options& options, VNK::IImpulseResponses& tool,
                   const Sound& played, const Sound& recorded, int reference,
                   const VNK::SolvePlan& plan, const std::string& what)
{
    const auto playedPointers = played.pointers(), recordedPointers = recorded.pointers();
    VNK::SweepRecording recording;
    recording.sampleRate = played.sampleRate;
    recording.played = playedPointers.data();
    recording.playedChannels = static_cast<std::int32_t>(played.channels.size());
    recording.playedFrames = static_cast<std::int64_t>(played.frames());
    recording.recorded = recordedPointers.data();
    recording.recordedChannels = static_cast<std::int32_t>(recorded.channels.size());
    recording.recordedFrames = static_cast<std::int64_t>(recorded.frames());
    recording.reference = reference;
    Responses taken;
    VNK::ResponseFigures figures;
    if (!tool.solve(recording, plan, &taken, figures)) throw WorkError(what + tool.refusal());
    for (const auto& [order, channels] : taken.orders)
        writeWhole(session, order == 1 ? options.out : besideName(options.out, order), channels,
                   played.sampleRate, options.format);
    if (options.out != "-") printFigures(figures, options);
}

void requireOutput(const Options& options, const char* action)
{
    if (options.out.empty())
        throw UsageError(std::string("ir ") + action +
                         " needs -o IR (quillhost ir --help shows how)");
    isCoded(options.out);
    if (options.out == "-" && options.harmonics)
        throw UsageError("--harmonics writes files beside -o, which standard output has not");
}

int solve(const Session& session, const Options& options)
{
    if (options.words.size() != 1 || options.sweep.empty())
        throw UsageError(
            "ir solve takes RECORDED and --sweep FILE (quillhost ir --help shows how)");
    requireOutput(options, "solve");
    const auto& path = options.words[0];
    const VNK::SolvePlan plan{alignment(options, kToOnset), options.latency / 1000, options.trim,
                              options.normalise, options.harmonics};
    refuseSameFile(options.out, path);
    refuseSameFile(options.out, options.sweep);
    const Sound recorded = readWhole(session, path);
    const auto most = static_cast<int>(recorded.channels.size()) - 1;
    const int reference =
        options.reference.empty() ? -1 : number("--reference", options.reference, 0, most);
    if (reference >= 0 && most == 0)
        throw UsageError("--reference leaves no channel of " + shownPath(path) + " to solve");
    const Sound played = readWhole(session, options.sweep);
    if (played.sampleRate != recorded.sampleRate)
        throw WorkError(shownPath(path) + ": has another sampling rate than " +
                        shownPath(options.sweep));
    const Effect maker = session.create("IR Maker");
    solveAndWrite(session, options, *responsesOf(maker), played, recorded, reference, plan,
                  shownPath(path) + ": ");
    return kDone;
}

template <typename T> Sound throughChain(const Session& session, Chain& chain, const Sound& played)
{
    const auto frames = static_cast<std::int64_t>(played.frames());
    Sound recorded;
    recorded.sampleRate = played.sampleRate;
    recorded.channels.resize(static_cast<std::size_t>(chain.output().channels));
    Planes<T> planes(chain.planeChannels(), kChunk);
    Progress progress(session.quiet(), frames, played.sampleRate);
    for (std::int64_t done = 0; done < frames;) {
        const auto n = static_cast<int>(std::min<std::int64_t>(kChunk, frames - done));
        planes.clear(0, n);
        for (std::size_t c = 0; c < played.channels.size(); ++c)
            std::copy_n(played.channels[c].begin() + done, n, planes[static_cast<int>(c)]);
        chain.run(planes, static_cast<const Planes<T>*>(nullptr), n);
        for (std::size_t c = 0; c < recorded.channels.size(); ++c) {
            const T* const x = planes[static_cast<int>(c)];
            for (int i = 0; i < n; ++i) recorded.channels[c].push_back(static_cast<float>(x[i]));
        }
        done += n;
        progress.show(done);
    }
    chain.waitUntilReady();
    return recorded;
}

int ofChain(const Session& session, const Options& options)
{
    if (!options.words.empty() || options.effects.empty())
        throw UsageError("ir of takes --fx SPEC and -o IR (quillhost ir --help shows how)");
    requireOutput(options, "of");
    const int align = alignment(options, kAsRecorded);
    const double asked = options.tail.empty() || options.tail == "auto" ? 0 : tailSeconds(options);
    std::vector<Effect> effects;
    for (const auto& text : options.effects)
        effects.push_back(createEffect(session, parseEffectSpec(text)));
    session.noteThoseThatPassThrough(effects);
    ChainSetup setup;
    setup.input = layoutNamed(options.layout);
    setup.sampleRate = options.rate;
    setup.precision = options.precision == 0 ? VNK::Precision::Float : VNK::Precision::Double;
    Chain chain(effects, setup);
    chain.waitUntilReady();
    const auto longest = std::llround(kLongestAutoTail * options.rate);
    const double own = static_cast<double>(chain.tail(longest)) / options.rate;
    const double tail = asked > 0 ? asked : std::max(kShortestAutoTail, own);

    const Effect maker = session.create("IR Maker");
    const auto tool = responsesOf(maker);
    const int channels = setup.input.channels;
    const auto file = makeSweep(*tool, options, channels, channels, tail);
    const Sound recorded = options.precision == 0
                               ? throughChain<float>(session, chain, file.sound)
                               : throughChain<double>(session, chain, file.sound);
    const double latency = align == kMinusLatency && options.latency == 0
                               ? static_cast<double>(chain.latency()) / options.rate
                               : options.latency / 1000;
    solveAndWrite(session, options, *tool, file.sound, recorded, -1,
                  {align, latency, options.trim, options.normalise, options.harmonics}, "");
    return kDone;
}

int show(const Session& session, const Options& options)
{
    if (options.words.size() != 1)
        throw UsageError("ir show takes one IR (quillhost ir --help shows how)");
    const Sound sound = readWhole(session, options.words[0]);
    std::vector<std::vector<double>> channels;
    for (const auto& channel : sound.channels)
        channels.emplace_back(channel.begin(), channel.end());
    std::vector<const double*> pointers;
    for (const auto& channel : channels) pointers.push_back(channel.data());
    const Effect maker = session.create("IR Maker");
    const auto tool = responsesOf(maker);
    VNK::ResponseFacts facts;
    if (!tool->readResponse(pointers.data(), static_cast<std::int32_t>(pointers.size()),
                            static_cast<std::int64_t>(sound.frames()), sound.sampleRate, facts))
        throw WorkError(shownPath(options.words[0]) + ": " + tool->refusal());
    if (options.json) {
        Json t60 = Json::array();
        for (const double t : facts.t60) t60.push_back(jsonOf(t));
        std::cout << Json{{"length", jsonOf(facts.seconds)},
                          {"latency", jsonOf(facts.latency)},
                          {"noiseFloor", jsonOf(facts.noiseFloor)},
                          {"t60", t60}}
                  << "\n";
        return kDone;
    }
    std::vector<Row> rows{{"length", shown(facts.seconds, 3, " s")},
                          {"latency", shown(facts.latency, 0, " samples")},
                          {"noise floor", shown(facts.noiseFloor, 1, " dB")}};
    for (int k = 0; k < VNK::kResponseOctaves; ++k)
        rows.push_back(
            {"T60 at " + shortText(31.25 * (1 << k)) + " Hz", shown(facts.t60[k], 2, " s")});
    std::cout << columns(rows);
    return kDone;
}

struct Action {
    const char* name;
    int (*run)(const Session& session, const Options& options);
    const char* options;  // that it takes
};

constexpr Action kActions[] = {
    {"sweep", &sweep,
     " --rate --length --tail --from --level --channels --in-turn --format --json "},
    {"solve", &solve,
     " --sweep --reference --align --latency --trim --normalise --harmonics --format --json "
     "--output "},
    {"of", &ofChain,
     " --fx --rate --length --tail --from --level --layout --precision --align --latency --trim "
     "--normalise --harmonics --format --json --output "},
    {"show", &show, " --json "},
};

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "ACTION", o->action, "sweep OUT, solve RECORDED, of, or show IR");
    addOption(app, "FILE", o->words, "the file of sweep, solve and show", "");
    addOption(app, "-o,--output", o->out,
              "solve, of: the response; channels by source, then by microphone", "IR");
    addOption(app, "--sweep", o->sweep, "solve: the file that was played", "FILE");
    addOption(app, "--reference", o->reference,
              "solve: channel of RECORDED that is a loopback, from 0", "CHANNEL");
    addRepeatable(app, "--fx", o->effects, "of: NAME or NAME:key=value,...; repeat for a chain",
                  "SPEC");
    addNumber(app, "--rate", o->rate, kLowestRate, kHighestRate, "sampling rate in Hz (48000)");
    addNumber(app, "--length", o->length, 1.0, 60.0,
              "length of the sweep in s, rounded to whole periods (8)");
    addOption(app, "--tail", o->tail,
              "silence behind each sweep in s (4; of: the chain's own tail)", "SECONDS");
    addNumber(app, "--from", o->from, 5.0, 200.0,
              "where the sweep begins, in Hz (20); it ends at half the rate");
    addNumber(app, "--level", o->level, -60.0, 0.0, "peak of the sweep in dB (-18)");
    addNumber(app, "--channels", o->channels, 1, kMostChannels, "sweep: channels of OUT (1)");
    addFlag(app, "--in-turn", o->inTurn, "sweep: one channel after the other");
    addOption(app, "--layout", o->layout, "of: layout that goes in, channel after channel (stereo)",
              "NAME");
    addChoice(app, "--precision", o->precision, {"32", "64"}, "of: bits of the processing (32)");
    addOption(app, "--align", o->align, "As Recorded (of), Minus Latency, or To Onset (solve)",
              "A");
    addNumber(app, "--latency", o->latency, 0.0, 1000.0,
              "ms that Minus Latency takes away (of: the chain's)");
    addFlag(app, "--trim", o->trim, "end where the response has sunk into its noise");
    addFlag(app, "--normalise", o->normalise, "bring the largest sample to -1 dB");
    addFlag(app, "--harmonics", o->harmonics, "write the responses of orders 2 to 5 beside");
    addFormat(app, o->format, "samples of the file (float32)");
    addFlag(app, "--json", o->json, "print a JSON object");
    return [o, &app](Session& session) {
        for (const auto& action : kActions) {
            if (o->action != action.name) continue;
            for (const auto* option : optionsGiven(app)) {
                const auto name = nameOf(option);
                if (name[0] == '-' && std::string_view(action.options).find(" " + name + " ") ==
                                          std::string_view::npos)
                    throw UsageError("ir " + o->action + " has no use for " + name);
            }
            return action.run(session, *o);
        }
        throw UsageError("ir does not know " + inQuotes(o->action) +
                         " (sweep OUT, solve RECORDED, of --fx SPEC, show IR)");
    };
}

}  // namespace

extern const Command kIr;
const Command kIr = {"ir", "impulse responses: sweeps to play, and what came back solved",
                     "  quillhost ir sweep sweep.wav --length 10 --channels 2 --in-turn\n"
                     "  quillhost render sweep.wav recorded.wav --fx dualpan:width=50\n"
                     "  quillhost ir solve recorded.wav --sweep sweep.wav --trim -o room.wav\n"
                     "  quillhost ir show room.wav --json\n"
                     "  quillhost ir of --fx beatdelay:mix=100 --fx limiter -o echoes.wav",
                     declare};

}  // namespace quillhost
