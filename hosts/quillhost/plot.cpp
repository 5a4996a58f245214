// SPDX-License-Identifier: ISC
// quillhost plot: a picture of what an effect does.
#include <numbers>

#include "command.h"
#include "display_run.h"
#include "effect_spec.h"
#include "loudness_picture.h"
#include "picture.h"
#include "probe.h"
#include "progress.h"

namespace quillhost {
namespace {

constexpr double kTop = 84;  // below title and subtitle

struct Options {
    std::string spec, out, in;
    int what = -1;
    double seconds = 0;  // of the step picture, 0: as long as the effect answers
    // Of a display.
    std::string display;
    double at = std::numeric_limits<double>::infinity();  // seconds
    DisplayOptions displayOptions;
};

enum What { Curve, Response, Step, Gain, Display, Loudness };
const std::vector<std::string> kWhat = {"curve", "response", "step", "gain", "display", "loudness"};

Axis levelAxis(const std::string& label, double from, double to)
{
    return {label, from, to, false, roundTicks(from, to, 12, true)};
}

void plotCurve(const Effect& effect, Picture& picture, Colour accent)
{
    constexpr double kFrom = -72, kTo = 6, kStep = 0.5;
    Probe probe(effect);
    std::vector<Point> points, reference;
    double highest = kTo, lowest = kFrom;
    for (double level = kFrom; level <= kTo; level += kStep) {
        points.push_back({level, probe.steadyLevel(level)});
        reference.push_back({level, level});
        highest = std::max(highest, points.back().y);
    }
    lowest = std::min(lowest, std::max(points.front().y, kFrom - 24));
    Graph graph(picture, kTop, picture.height() - 56, levelAxis("input level in dB", kFrom, kTo),
                levelAxis("output level in dB", lowest, std::ceil(highest / 6) * 6));
    graph.line(reference, colour::kLevel, 1.5, true);
    graph.line(points, accent, 2.5);
    graph.legend({{"input = output", colour::kLevel}, {"steady 1 kHz square wave", accent}});
}

void plotResponse(const Effect& effect, Picture& picture, Colour accent)
{
    constexpr double kLow = 20, kHigh = 20000;
    constexpr int kPoints = 240;
    Probe probe(effect);
    std::vector<Point> magnitude, phase;
    double top = 6, bottom = -24;
    for (int i = 0; i <= kPoints; ++i) {
        const double f = kLow * std::pow(kHigh / kLow, double(i) / kPoints);
        const auto h = probe.response(f);
        const double decibel = 20 * std::log10(std::max(std::abs(h), 1e-6));
        const double degrees = std::arg(h) * 180 / std::numbers::pi;
        // A jump from one end of the scale to the other is no course of the phase.
        const bool wraps = !phase.empty() && std::abs(phase.back().y - degrees) > 180;
        if (wraps) phase.push_back({f, std::nan("")});
        magnitude.push_back({f, decibel});
        phase.push_back({f, decibel < -90 ? std::nan("") : degrees});
        top = std::max(top, std::ceil((decibel + 1) / 6) * 6);
        bottom = std::min(bottom, std::max(-96.0, std::floor((decibel - 1) / 6) * 6));
    }
    const std::vector<double> decades = {20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000};
    const double middle = kTop + (picture.height() - kTop) * 0.56;
    Graph upper(picture, kTop, middle - 28, {"", kLow, kHigh, true, decades},
                levelAxis("magnitude in dB", bottom, top));
    upper.line(magnitude, accent, 2.5);
    Graph lower(
        picture, middle + 34, picture.height() - 56,
        {"frequency in Hz", kLow, kHigh, true, decades},
        {"phase in degrees, reported delay taken out", -180, 180, false, {-180, -90, 0, 90, 180}});
    lower.line(phase, accent, 2);
}

void plotStep(const Effect& effect, Picture& picture, Colour accent, double seconds)
{
    Probe probe(effect);
    if (seconds == 0) seconds = probe.answerSeconds();
    const auto impulse = probe.impulse(seconds), step = probe.step(seconds);
    const auto rangeOf = [](const std::vector<std::vector<float>>& channels, double least) {
        double high = least, low = 0;
        for (const auto& channel : channels)
            for (const float x : channel) {
                high = std::max(high, double(x));
                low = std::min(low, double(x));
            }
        const double margin = (high - low) * 0.08;
        return std::pair(low - margin, high + margin);
    };
    const bool inMilliseconds = seconds < 2;
    const double unit = inMilliseconds ? 1000 : 1;
    const Axis time = {inMilliseconds ? "time in ms" : "time in s", 0, seconds * unit};
    const double middle = kTop + (picture.height() - kTop) * 0.5;
    const auto draw = [&](Graph& graph, const std::vector<std::vector<float>>& channels) {
        const bool isStereo = channels.size() == 2 && channels[0] != channels[1];
        if (isStereo) graph.wave(channels[1], 0, unit / Probe::kRate, colour::kOut);
        graph.wave(channels[0], 0, unit / Probe::kRate, accent);
        if (isStereo) graph.legend({{"left", accent}, {"right", colour::kOut}});
    };
    const auto [low, high] = rangeOf(impulse, 0.1);
    Axis upperTime = time;
    upperTime.label.clear();
    Graph upper(picture, kTop, middle - 28, upperTime, {"response to an impulse of 1", low, high});
    draw(upper, impulse);
    const auto [stepLow, stepHigh] = rangeOf(step, 0.5);
    Graph lower(picture, middle + 34, picture.height() - 56, time,
                {"response to a step to 0.5", stepLow, stepHigh});
    draw(lower, step);
}

/// Energy of input and output over a stretch of the file.
struct Column {
    double in = 0, out = 0;
    std::int64_t samples = 0;
};

/// Columns over a file whose length shows only at its end: when there are too many, every two
/// become one of twice the width.
class Columns {
public:
    Column& at(std::int64_t frame)
    {
        while (frame / width_ >= kMost) halve();
        const auto i = static_cast<std::size_t>(frame / width_);
        if (i >= all_.size()) all_.resize(i + 1);
        return all_[i];
    }
    const std::vector<Column>& all() const noexcept { return all_; }
    double framesPerColumn() const noexcept { return static_cast<double>(width_); }

private:
    static constexpr std::int64_t kMost = 1504;  // two to a point of the picture
    void halve()
    {
        for (std::size_t i = 0; i < all_.size(); i += 2) {
            Column sum = all_[i];
            if (i + 1 < all_.size()) {
                sum.in += all_[i + 1].in;
                sum.out += all_[i + 1].out;
                sum.samples += all_[i + 1].samples;
            }
            all_[i / 2] = sum;
        }
        all_.resize((all_.size() + 1) / 2);
        width_ *= 2;
    }

    std::vector<Column> all_;
    std::int64_t width_ = 1;  // frames of a column
};

struct GainCourse {
    Columns columns;
    std::int64_t frames = 0;
};

GainCourse gainCourse(const Effect& effect, SoundReader& in, Progress& progress)
{
    constexpr int kBlock = 512;
    ChainSetup setup;
    setup.sampleRate = in.sampleRate();
    setup.block = kBlock;
    setup.input = in.layout();
    Chain chain({effect}, setup);
    const std::int64_t latency = chain.latency();
    GainCourse course;
    Planes<float> planes(std::max(chain.planeChannels(), in.channels()), kBlock);
    bool isOver = false;
    for (std::int64_t at = 0; !isOver || at < course.frames + latency; at += kBlock) {
        const int n = isOver ? 0 : in.read(planes, kBlock);
        isOver = n < kBlock;
        course.frames += n;
        planes.clear(n, kBlock);
        for (int c = 0; c < in.channels(); ++c)
            for (int i = 0; i < n; ++i) {
                auto& column = course.columns.at(at + i);
                column.in += double(planes[c][i]) * planes[c][i];
                ++column.samples;
            }
        chain.run<float>(planes, nullptr, kBlock);
        for (int i = 0; i < kBlock; ++i) {
            const auto frame = at + i - latency;
            if (frame < 0 || frame >= course.frames) continue;
            auto& column = course.columns.at(frame);
            for (int c = 0; c < chain.output().channels; ++c)
                column.out += double(planes[c][i]) * planes[c][i];
        }
        progress.show(at);
    }
    return course;
}

void plotGain(const Session& session, const Effect& effect, SoundReader& in, Picture& picture,
              Colour accent)
{
    constexpr double kQuiet = -70;  // below, a gain says nothing
    GainCourse course;
    {
        Progress progress(session.quiet(), in.estimatedFrames(), in.sampleRate());
        course = gainCourse(effect, in, progress);
    }
    session.note(shownPath(in.path()), in.remarks());
    const double seconds = static_cast<double>(course.frames) / in.sampleRate();
    const bool inMilliseconds = seconds < 2;
    const double unit = inMilliseconds ? 1000 : 1, length = seconds * unit;
    const auto& columns = course.columns.all();
    const double columnWidth = course.columns.framesPerColumn() / in.sampleRate() * unit;
    std::vector<Point> level, gain;
    double top = 3, bottom = -12;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const auto& c = columns[i];
        const double x = std::min(length, (double(i) + 0.5) * columnWidth);
        const double inDb =
            10 * std::log10(std::max(c.in / double(std::max<std::int64_t>(c.samples, 1)), 1e-20));
        const double gainDb = 10 * std::log10(std::max(c.out, 1e-20) / std::max(c.in, 1e-20));
        level.push_back({x, inDb});
        gain.push_back({x, inDb < kQuiet ? std::nan("") : gainDb});
        if (inDb < kQuiet) continue;
        top = std::max(top, std::ceil((gainDb + 1) / 3) * 3);
        bottom = std::min(bottom, std::max(-60.0, std::floor((gainDb - 1) / 3) * 3));
    }
    Graph graph(picture, kTop, picture.height() - 56,
                {inMilliseconds ? "time in ms" : "time in s", 0, length},
                levelAxis("gain in dB", bottom, top));
    graph.addRightAxis(levelAxis("input level in dB", -72, 0));
    graph.area(level, colour::kLevel, true);
    graph.line(gain, accent, 2);
    graph.legend({{"gain", accent}, {"input level (RMS)", colour::kLevel}});
}

int plot(const Session& session, const Options& o)
{
    if (o.what < 0) throw UsageError("plot needs --what curve|response|step|gain|display|loudness");
    if (o.what != Loudness) requireArgument(o.spec, "SPEC", "plot");
    if (o.out.empty()) throw UsageError("plot needs -o FILE.png or FILE.svg");
    if (o.what >= Gain && (o.in.empty() || o.in == "-"))
        throw UsageError("plot --what " + kWhat[static_cast<std::size_t>(o.what)] +
                         " needs --in FILE, the sound to show it on");
    refuseSameFile(o.out, o.in);
    if (o.what == Display)
        return plotDisplay(session, {o.spec, o.in, o.out, o.display, o.at, o.displayOptions});
    if (o.what == Loudness)
        return plotLoudness(session, {o.spec, o.in, o.out, o.displayOptions.allowMissing});
    const Effect effect = createEffect(session, parseEffectSpec(o.spec));
    session.noteThoseThatPassThrough({effect});
    prepareAsUsual(effect, session, o.displayOptions.allowMissing);
    const auto accent = accentOf(effect.subCategory());
    std::optional<SoundReader> in;
    if (o.what == Gain) in.emplace(o.in);

    Picture picture(o.out, o.what == Response || o.what == Step ? 620 : 520);
    const char* subject[] = {": static curve", ": magnitude and phase",
                             ": impulse and step response", ": gain over time"};
    auto subtitle = settingsOf(o.spec);
    if (in) subtitle += " on " + o.in.substr(o.in.find_last_of('/') + 1);
    picture.title(effect.name() + subject[o.what], subtitle);
    switch (o.what) {
    case Curve:
        plotCurve(effect, picture, accent);
        break;
    case Response:
        plotResponse(effect, picture, accent);
        break;
    case Step:
        plotStep(effect, picture, accent, o.seconds);
        break;
    default:
        plotGain(session, effect, *in, picture, accent);
    }
    picture.finish();
    return kDone;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "SPEC", o->spec,
              "NAME or NAME:key=value,...; none for the loudness of a file as it is");
    addChoice(app, "--what", o->what, kWhat, "what the picture shows");
    addOption(app, "-o,--output", o->out, "picture; display and loudness also as .json",
              "FILE.png|.svg");
    addOption(app, "--in", o->in, "sound file for gain, display and loudness", "FILE");
    addNumber(app, "--seconds", o->seconds, 0.001, 60.0,
              "length of a step picture (as long as the effect answers)");
    addFlag(app, "--allow-missing", o->displayOptions.allowMissing,
            "though a file that the effect names cannot be had");
    auto shown = addDisplayOptions(app, o->displayOptions);
    shown.push_back(
        addOption(app, "--display", o->display, "which display (the effect's first)", "NAME"));
    shown.push_back(addNumber(app, "--at", o->at, 0.0, 1e6, "when, in seconds (the file's end)"));
    return [o, shown](Session& session) {
        for (const auto* option : shown)
            if (o->what != Display && isGiven(option))
                throw UsageError(nameOf(option) + " needs --what display");
        return plot(session, *o);
    };
}

}  // namespace

extern const Command kPlot;
const Command kPlot = {
    "plot", "a picture of what an effect does",
    "  quillhost plot compressor:threshold=-20,ratio=4 --what curve -o curve.png\n"
    "  quillhost plot \"Analog Delay:feedback=50\" --what step -o echoes.svg\n"
    "  quillhost plot compressor --what gain --in speech.wav -o gain.png\n"
    "  quillhost plot scope:trigger=period --what display --in speech.wav -o trace.png\n"
    "  quillhost plot --what loudness --in speech.wav -o loudness.png\n"
    "  quillhost plot compressor:ratio=4 --what loudness --in speech.wav -o levelled.svg",
    declare};

}  // namespace quillhost
