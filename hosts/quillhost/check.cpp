// SPDX-License-Identifier: ISC
// quillhost check: whether an effect keeps what a host relies on, measured from outside.
#include <array>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>

#include "chain.h"
#include "command.h"
#include "console.h"
#include "effect_spec.h"
#include "table.h"
#include "vnk/buffer.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;
using Sound = std::vector<std::vector<double>>;  // by channel

constexpr double kSameBits = -std::numeric_limits<double>::infinity();
constexpr double kRoundingOf32 = -84;  // dB, of 32 bits beside 64
constexpr double kSeconds = 0.5;
constexpr int kUsualBlock = 512;

struct Options {
    std::vector<std::string> specs;
    double rate = 48000;
    double within = kSameBits;  // dB of full scale, where the same bits are owed
    bool isCopy = false, json = false;
};

struct Verdict {
    const char* check;
    std::string text;     // what was looked at, or found
    double figure = NAN;  // dB of full scale: the largest difference, or a peak
    double limit = NAN;   // none: whatever is finite
    bool isKept = true, isLeftOut = false;
};

/// Noise whose level changes ten times a second, as single precision holds it.
Sound testSignal(int channels, double rate)
{
    const auto frames = static_cast<std::size_t>(kSeconds * rate);
    const auto stretch = static_cast<std::size_t>(rate / 10);
    Sound x(static_cast<std::size_t>(channels), std::vector<double>(frames));
    std::mt19937 random(1);
    for (auto& channel : x)
        for (std::size_t i = 0; i < frames; ++i) {
            const double level = i / stretch % 2 ? 0.02 : 0.5;
            channel[i] = static_cast<float>(level * (double(random()) / 2147483648.0 - 1));
        }
    return x;
}

/// dB of full scale; above all limits where something is not finite or the lengths differ.
double difference(const Sound& a, const Sound& b)
{
    double worst = 0;
    for (std::size_t c = 0; c < std::max(a.size(), b.size()); ++c) {
        if (c >= a.size() || c >= b.size() || a[c].size() != b[c].size()) return INFINITY;
        for (std::size_t i = 0; i < a[c].size(); ++i) {
            const double d = std::abs(a[c][i] - b[c][i]);
            if (!std::isfinite(d)) return INFINITY;
            worst = std::max(worst, d);
        }
    }
    return 20 * std::log10(worst);
}

double peakDb(const Sound& x)
{
    return difference(x, Sound(x.size(), std::vector<double>(x.empty() ? 0 : x[0].size())));
}

class Checks {
public:
    Checks(const Session& session, std::string spec, const Options& options)
        : session_(session), spec_(parseEffectSpec(spec)), options_(options)
    {}

    std::vector<Verdict> run()
    {
        copy();
        blocks();
        precisions();
        bypass();
        state();
        rates();
        badSamples();
        return std::move(verdicts_);
    }

private:
    Effect fresh() const { return createEffect(session_, spec_); }

    template <typename T>
    Sound play(const Effect& effect, const Sound& x, int block, double rate) const
    {
        ChainSetup setup;
        setup.sampleRate = rate;
        setup.block = block;
        setup.precision = sizeof(T) == 4 ? VNK::Precision::Float : VNK::Precision::Double;
        const auto layouts = effect.usualLayouts();
        setup.input = layouts.input;
        setup.output = layouts.output;
        Chain chain({effect}, setup);
        Planes<T> planes(chain.planeChannels(), block);
        const auto outputs = static_cast<std::size_t>(chain.output().channels);
        Sound y(outputs);
        const auto frames = x[0].size();
        for (std::size_t at = 0; at < frames; at += static_cast<std::size_t>(block)) {
            const auto n = std::min(static_cast<std::size_t>(block), frames - at);
            for (std::size_t c = 0; c < x.size(); ++c)
                for (std::size_t i = 0; i < n; ++i)
                    planes[static_cast<int>(c)][i] = static_cast<T>(x[c][at + i]);
            chain.run<T>(planes, nullptr, static_cast<int>(n));
            for (std::size_t c = 0; c < outputs; ++c)
                for (std::size_t i = 0; i < n; ++i)
                    y[c].push_back(static_cast<double>(planes[static_cast<int>(c)][i]));
        }
        chain.waitUntilReady();
        return y;
    }
    Sound play(const Effect& effect, const Sound& x) const
    {
        return play<float>(effect, x, kUsualBlock, options_.rate);
    }
    Sound signalFor(const Effect& effect, double rate) const
    {
        return testSignal(effect.usualLayouts().input.channels, rate);
    }
    Sound signal() const { return signalFor(fresh(), options_.rate); }

    void say(const char* check, std::string text, double figure, double limit)
    {
        verdicts_.push_back({check, std::move(text), figure, limit, figure <= limit});
    }
    void sayPeak(const char* check, std::string text, double peak)
    {
        verdicts_.push_back({check, std::move(text), peak, NAN, peak <= kLoudest});
    }
    void leaveOut(const char* check, std::string why)
    {
        verdicts_.push_back({check, std::move(why), NAN, NAN, true, true});
    }

    void copy()
    {
        EffectSpec spec = spec_;
        std::int64_t promises = 0;
        if (!options_.isCopy) {
            const auto effect = session_.create(spec.name);
            if (!effect.component().getInteger("copiesAtDefaults", promises) || promises == 0)
                return leaveOut("copy", "not promised");
            spec = {spec.name, {}, {}};
        }
        const auto effect = createEffect(session_, spec);
        const auto x = signalFor(effect, options_.rate);
        say("copy", options_.isCopy ? "with these settings" : "at the defaults",
            difference(play(effect, x), x), options_.within);
    }

    void blocks()
    {
        const auto x = signal(), expected = play(fresh(), x);
        double worst = kSameBits;
        int worstBlock = 0;
        for (const int block : {1, 17, 32, 48, 509, 4096}) {
            const auto found = difference(play<float>(fresh(), x, block, options_.rate), expected);
            if (found > worst || worstBlock == 0) worstBlock = block;
            worst = std::max(worst, found);
        }
        say("blocks",
            worst > options_.within
                ? "calls of " + std::to_string(worstBlock) + " frames beside 512"
                : "calls of 1 to 4096 frames",
            worst, options_.within);
    }

    void precisions()
    {
        const auto x = signal();
        const auto wide = play<double>(fresh(), x, kUsualBlock, options_.rate);
        say("precision", "32 bits beside 64", difference(play(fresh(), x), wide),
            kRoundingOf32 + std::max(0.0, peakDb(wide)));
    }

    void bypass()
    {
        const auto effect = fresh();
        const auto& component = effect.component();
        const int parameter = component.findParameter("bypass");
        if (parameter < 0) return leaveOut("bypass", "no parameter \"bypass\"");
        component.setValue(parameter, 1);
        const auto x = signalFor(effect, options_.rate);
        const auto y = play(effect, x);
        Sound expected(y.size(), std::vector<double>(x[0].size()));
        for (std::size_t to = 0; to < y.size(); ++to)
            for (std::size_t from = 0; from < x.size(); ++from) {
                const double gain = static_cast<double>(
                    effect.algorithm().getBypassGain(static_cast<int>(from), static_cast<int>(to)));
                for (std::size_t i = 0; i < x[0].size(); ++i) expected[to][i] += gain * x[from][i];
            }
        say("bypass", "from the first sample", difference(y, expected), options_.within);
        const auto latency = effect.algorithm().getLatency();
        if (latency == 0) return;
        verdicts_.push_back({"bypass", "its latency is " + std::to_string(latency) + " samples"});
        verdicts_.back().isKept = false;
    }

    Effect drawn(std::uint32_t seed) const
    {
        const auto effect = fresh();
        std::mt19937 random(seed);
        for (int i = 0; i < effect.component().countParameters(); ++i) {
            const auto p = effect.parameter(i);
            const auto place = static_cast<float>(random()) / 4294967296.0f;
            if (p.isStored() && !p.has(VNK::isBypass))
                effect.component().setValue(i, effect.component().fromNormalized(i, place));
        }
        return effect;
    }

    /// Settings drawn by chance, saved and loaded: the same state, and the same sound.
    void state()
    {
        constexpr std::uint32_t kDraws = 4;
        double worst = kSameBits;
        for (std::uint32_t seed = 1; seed <= kDraws; ++seed) {
            // One after the other, as in two runs of a host.
            VNK::StringSink saved, again;
            Sound expected;
            {
                const auto first = drawn(seed);
                if (!first.component().saveState(saved)) return fail("state", "is not saved");
                expected = play(first, signal());
            }
            const auto second = session_.create(spec_.name);
            const auto& component = second.component();
            if (!component.loadState(saved.text().data(), saved.text().size()))
                return fail("state",
                            std::string("is not loaded: ").append(component.refusalReason()));
            if (!component.saveState(again) || again.text() != saved.text())
                return fail("state", "loaded and saved again it is another");
            worst = std::max(worst, difference(play(second, signal()), expected));
        }
        say("state", "saved and loaded, the sound", worst, options_.within);
    }

    void rates()
    {
        double worst = kSameBits;
        std::string where = "peak at 8 to 384 kHz";
        for (const double rate : {8000.0, 44100.0, 192000.0, 384000.0}) {
            const auto effect = fresh();
            const auto x = signalFor(effect, rate);
            const auto peak = peakDb(play<float>(effect, x, kUsualBlock, rate));
            if (peak > worst) worst = peak;
            if (peak > kLoudest) where = "peak at " + shortText(rate) + " Hz";
        }
        sayPeak("rates", where, worst);
    }

    void badSamples()
    {
        double worst = kSameBits;
        for (const double bad : {double(NAN), double(INFINITY), 1e30}) {
            const auto effect = fresh();
            auto x = signalFor(effect, options_.rate);
            const auto clean = x;
            for (auto& channel : x) channel[channel.size() / 10] = bad;
            // A second later nothing of it may be left that is not finite.
            for (std::size_t c = 0; c < x.size(); ++c)
                for (int turn = 0; turn < 2; ++turn)
                    x[c].insert(x[c].end(), clean[c].begin(), clean[c].end());
            auto y = play(effect, x);
            for (auto& channel : y)
                channel.erase(channel.begin(),
                              channel.end() - static_cast<std::ptrdiff_t>(clean[0].size() / 2));
            worst = std::max(worst, peakDb(y));
        }
        sayPeak("recovery", "peak a second after NaN, infinity, 1e30", worst);
    }

    void fail(const char* check, std::string text)
    {
        verdicts_.push_back({check, std::move(text)});
        verdicts_.back().isKept = false;
    }

    static constexpr double kLoudest = 200;  // dB: whatever is finite and no runaway

    const Session& session_;
    EffectSpec spec_;
    const Options& options_;
    std::vector<Verdict> verdicts_;
};

std::string decibels(double value)
{
    if (std::isnan(value)) return "";
    if (value == kSameBits) return "same bits";
    return std::isfinite(value) ? fixedText(value, 1) + " dB" : "not finite";
}

Json jsonOf(double value)
{
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

std::string failureOf(const std::string& spec, const Verdict& v)
{
    std::string line = spec + ": " + v.check + ": " + v.text;
    if (!std::isnan(v.figure)) line += ": " + decibels(v.figure);
    if (!std::isnan(v.limit)) line += " (limit: " + decibels(v.limit) + ")";
    return line;
}

int check(const Session& session, const Options& o)
{
    auto specs = o.specs;
    if (specs.empty())
        for (const auto* c : session.classes()) specs.emplace_back(c->name->text());
    Json all = Json::array();
    std::vector<Row> rows = {{"effect", "check", "", "figure", "limit", "of"}};
    std::vector<std::string> failures;
    for (const auto& spec : specs) {
        Json checks = Json::array();
        for (const auto& v : Checks(session, spec, o).run()) {
            const auto* const state = v.isLeftOut ? "left out" : v.isKept ? "kept" : "FAILED";
            checks.push_back({{"check", v.check},
                              {"state", v.isLeftOut ? "left out"
                                        : v.isKept  ? "kept"
                                                    : "failed"},
                              {"figure", jsonOf(v.figure)},
                              {"sameBits", v.figure == kSameBits},
                              {"limit", jsonOf(v.limit)},
                              {"of", v.text}});
            rows.push_back({spec, v.check, state, decibels(v.figure), decibels(v.limit), v.text});
            if (!v.isKept) failures.push_back(failureOf(spec, v));
        }
        all.push_back({{"effect", spec}, {"checks", std::move(checks)}});
    }
    if (o.json)
        std::cout << all.dump(1, ' ', false, Json::error_handler_t::replace) << "\n";
    else
        std::cout << columns(rows, {3, 4});
    std::cout.flush();
    for (const auto& failure : failures) say(failure);
    return failures.empty() ? kDone : kFailed;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "SPEC", o->specs, "NAME or NAME:key=value,... (default: every effect)");
    addNumber(app, "--rate", o->rate, double(kLowestRate), double(kHighestRate),
              "sampling rate in Hz (48000)");
    addFlag(app, "--copy", o->isCopy,
            "with these settings the output is to be the input (else that is tried at the defaults "
            "of effects that promise it)");
    addNumber(app, "--within", o->within, -400.0, 0.0,
              "largest difference in dB of full scale, where else the same bits are owed");
    addFlag(app, "--json", o->json, "as a JSON array");
    return [o](Session& session) { return check(session, *o); };
}

}  // namespace

extern const Command kCheck;
const Command kCheck = {"check", "whether effects keep what hosts rely on",
                        "  quillhost check\n"
                        "  quillhost check mixtool --copy\n"
                        "  quillhost check compressor:threshold=-30 --rate 96000 --json",
                        declare};

}  // namespace quillhost
