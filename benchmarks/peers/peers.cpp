// SPDX-License-Identifier: ISC
// Times our effects and other people's plug-ins side by side: one process, one signal, turn by
// turn, so that whatever else the machine does meets them alike.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <unistd.h>

#include "adapters/common/slug.h"
#include "benchmarks/peers/contestant.h"
#include "benchmarks/peers/programme.h"
#include "tests/support/build_paths.h"
#include "vnk/plugin_manager.h"

namespace quillworks::peers {
namespace {

using Json = nlohmann::json;
using Clock = std::chrono::steady_clock;

struct Options {
    std::string table = paths::source + "/benchmarks/peers/peers.json", module = paths::module,
                only;
    std::vector<int> blocks = {64, 256, 1024};
    std::string bundles = paths::lv2Folder;
    double sampleRate = 48000;
    double seconds = 1;  // of signal in one turn
    int turns = 15;
    int crowd = 1;     // instances of each contestant
    bool lv2 = false;  // ours too
    bool json = false;
};

double nanoseconds(Clock::duration d)
{
    return std::chrono::duration<double, std::nano>(d).count();
}

/// What taking the time of nothing costs.
double clockCost()
{
    double least = 1e9;
    for (int i = 0; i < 20000; ++i) {
        const auto start = Clock::now();
        least = std::min(least, nanoseconds(Clock::now() - start));
    }
    return least;
}

/// Value below which `part` of the values lie.
double quantile(std::vector<double> values, double part)
{
    if (values.empty()) return 0;
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

struct Entry {
    std::string name;
    bool isOurs = false;
    std::vector<std::unique_ptr<Contestant>> crowd;  // in turn, block by block
    double making = 0;                               // ms to make one of them
    double memory = 0;                       // kB that one of them has touched when it is new
    double bar = 0;                          // our time over this one's at most, 0: none
    std::vector<std::vector<double>> turns;  // ns of each block of the signal, turn by turn
    double peak = 0, power = 0;              // of the output, over the last turn
    std::size_t frames = 0;

    /// ns of each block of the signal: the median over the turns, which what else the machine does
    /// during one of them leaves alone.
    std::vector<double> typical() const
    {
        std::vector<double> blocks;
        for (std::size_t b = 0; b < turns.front().size(); ++b) {
            std::vector<double> times;
            for (const auto& turn : turns) times.push_back(turn[b]);
            blocks.push_back(quantile(std::move(times), 0.5));
        }
        return blocks;
    }
    std::vector<double> all() const
    {
        std::vector<double> blocks;
        for (const auto& turn : turns) blocks.insert(blocks.end(), turn.begin(), turn.end());
        return blocks;
    }
};

/// Resident memory of the process in kB.
double residentMemory()
{
    std::ifstream file("/proc/self/statm");
    double all = 0, resident = 0;
    file >> all >> resident;
    return resident * double(sysconf(_SC_PAGESIZE)) / 1024;
}

/// Plays the whole signal once and keeps the times, those of one instance.
void takeTurn(Entry& e, Buffers& buffers, const std::vector<std::vector<float>>& signal, int block,
              double clock, bool counts)
{
    const auto n = static_cast<std::size_t>(block);
    const std::size_t blocks = signal.front().size() / n;
    // The first 5 ms of a turn find the caches full of somebody else's data: that is the price of
    // taking turns and not an effect's own.
    const std::size_t cold = std::min(blocks - 1, 240 / n + 1);
    std::vector<double> times;
    e.peak = e.power = 0;
    e.frames = 0;
    for (std::size_t b = 0; b < blocks; ++b) {
        for (std::size_t ch = 0; ch < signal.size(); ++ch)
            std::copy_n(signal[ch].begin() + static_cast<std::ptrdiff_t>(b * n), n,
                        buffers.in[ch].begin());
        for (auto& c : e.crowd) c->beginBlock();
        const auto start = Clock::now();
        for (auto& c : e.crowd) c->run();
        const double took = std::max(0.0, nanoseconds(Clock::now() - start) - clock);
        for (auto& c : e.crowd) c->endBlock();
        if (b >= cold) times.push_back(took / double(e.crowd.size()));
        for (std::size_t ch = 0; ch < signal.size(); ++ch)
            for (const float y : buffers.out[ch]) {
                e.peak = std::max(e.peak, std::abs(double(y)));
                e.power += double(y) * double(y);
            }
        e.frames += n * signal.size();
    }
    if (counts) e.turns.push_back(std::move(times));
}

double decibels(double factor)
{
    return 20 * std::log10(std::max(factor, 1e-10));
}

std::string ratio(double r)
{
    char text[32] = "-";
    if (std::isfinite(r)) std::snprintf(text, sizeof text, "%.3f", r);
    return text;
}

class Bench {
public:
    Bench(const Options& options, VNK::IClassFactory* factory)
        : options_(options), factory_(factory), clock_(clockCost())
    {}

    void compare(const Json& row)
    {
        for (const int block : options_.blocks) {
            Buffers buffers({options_.sampleRate, 2, block});
            auto entries = line(row, block, buffers);
            if (entries.empty()) continue;
            const auto signal =
                programme(2, options_.sampleRate, options_.seconds, row.value("peakDb", -3.0));
            // The first turn warms caches and branch predictors, fills delay lines, and lets
            // plug-ins that set themselves up on their first blocks do so.
            for (int turn = -1; turn < options_.turns; ++turn)
                for (auto& e : entries) takeTurn(e, buffers, signal, block, clock_, turn >= 0);
            report(row, block, entries);
        }
    }
    const Json& results() const { return results_; }
    bool meetsBars() const { return meetsBars_; }

private:
    std::vector<Entry> line(const Json& row, int block, Buffers& buffers)
    {
        const Format format{options_.sampleRate, 2, block};
        const auto at = row.value("barAt", std::vector<int>{block});
        const bool isHeld = std::find(at.begin(), at.end(), block) != at.end();
        std::vector<Entry> entries;
        const auto add = [&](const std::string& name, bool isOurs, double bar, auto&& make) {
            std::string reason;
            Entry e;
            e.name = name;
            e.isOurs = isOurs;
            e.bar = bar;
            const double memory = residentMemory();
            const auto start = Clock::now();
            for (int i = 0; i < options_.crowd; ++i)
                if (auto contestant = make(reason)) e.crowd.push_back(std::move(contestant));
            e.making = nanoseconds(Clock::now() - start) / 1e6 / options_.crowd;
            e.memory = (residentMemory() - memory) / options_.crowd;
            if (std::ssize(e.crowd) == options_.crowd)
                entries.push_back(std::move(e));
            else if (block == options_.blocks.front())
                std::fprintf(stderr, "left out: %s\n", reason.c_str());
        };
        const std::string effect = row.at("effect");
        const auto settings = row.at("settings").get<Settings>();
        add("ours", true, 0, [&](std::string& reason) {
            return options_.lv2 ? lv2Peer(world_, "urn:quillworks:" + adapters::slug(effect),
                                          settings, format, buffers, reason)
                                : ourEffect(*factory_, effect, settings, format, buffers, reason);
        });
        for (const auto& peer : row.at("peers"))
            add(peer.at("name"), false, isHeld ? peer.value("bar", 0.0) : 0,
                [&](std::string& reason) {
                    return lv2Peer(world_, peer.at("uri"), peer.at("controls").get<Settings>(),
                                   format, buffers, reason);
                });
        return entries;
    }

    void report(const Json& row, int block, const std::vector<Entry>& entries)
    {
        const auto perFrame = [&](const std::vector<double>& blocks) {
            return std::accumulate(blocks.begin(), blocks.end(), 0.0) /
                   static_cast<double>(blocks.size()) / block;
        };
        const double ours = entries.front().isOurs ? perFrame(entries.front().typical()) : NAN;
        Json contestants = Json::array();
        if (!options_.json) {
            std::printf("\n%s, %d frames a block\n", row.at("name").get<std::string>().c_str(),
                        block);
            std::printf("  %-28s %9s %9s %9s %9s %9s %9s %9s %9s %9s\n", "", "ns/frame", "ours/it",
                        "worst us", "p99 us", "max us", "out peak", "out rms", "made ms", "kB");
        }
        for (const auto& e : entries) {
            const auto typical = e.typical();
            const auto all = e.all();
            const double time = perFrame(typical);
            const double r = e.isOurs ? NAN : ours / time;
            // The costliest block of the signal, whatever else the machine did.
            const double worst = quantile(typical, 1) / 1000;
            const double p99 = quantile(all, 0.99) / 1000;
            const double most = quantile(all, 1) / 1000;
            const double rms = decibels(std::sqrt(e.power / static_cast<double>(e.frames)));
            const bool met = !(e.bar > 0 && r > e.bar);
            meetsBars_ = meetsBars_ && met;
            if (!options_.json) {
                std::printf("  %-28s %9.2f %9s %9.2f %9.2f %9.2f %9.1f %9.1f %9.3f %9.0f",
                            e.name.c_str(), time, ratio(r).c_str(), worst, p99, most,
                            decibels(e.peak), rms, e.making, e.memory);
                if (e.bar > 0 && std::isfinite(r))
                    std::printf("  bar %.1f %s", e.bar, met ? "met" : "MISSED");
                std::printf("\n");
            }
            contestants.push_back({{"name", e.name},
                                   {"ours", e.isOurs},
                                   {"nsPerFrame", time},
                                   {"ratio", std::isfinite(r) ? Json(r) : Json()},
                                   {"bar", e.bar > 0 ? Json(e.bar) : Json()},
                                   {"met", met},
                                   {"worstUs", worst},
                                   {"p99Us", p99},
                                   {"maxUs", most},
                                   {"outPeakDb", decibels(e.peak)},
                                   {"outRmsDb", rms},
                                   {"madeMs", e.making},
                                   {"residentKb", e.memory}});
        }
        results_.push_back({{"name", row.at("name")},
                            {"effect", row.at("effect")},
                            {"block", block},
                            {"instances", options_.crowd},
                            {"contestants", contestants}});
        std::fflush(stdout);
    }

    const Options& options_;
    VNK::IClassFactory* factory_;  // null: ours through LV2
    lilv::World world_;
    double clock_;
    Json results_ = Json::array();
    bool meetsBars_ = true;
};

int run(const Options& options)
{
    std::ifstream file(options.table);
    if (!file) throw std::runtime_error(options.table + ": cannot be read");
    const Json table = Json::parse(file);
    std::string reason;
    std::unique_ptr<VNK::LoadedModule> module;
    if (!options.lv2) module = VNK::LoadedModule::load(options.module.c_str(), reason);
    if (!options.lv2 && !module) throw std::runtime_error(reason);
    // Ours first, in place of one that is installed.
    const char* path = std::getenv("LV2_PATH");
    const std::string others = path && *path ? path : "/usr/local/lib/lv2:/usr/lib/lv2";
    if (options.lv2) setenv("LV2_PATH", (options.bundles + ":" + others).c_str(), 1);
    Bench bench(options, module ? &module->factory() : nullptr);
    for (const auto& row : table.at("comparisons"))
        if (row.at("name").get<std::string>().find(options.only) != std::string::npos)
            bench.compare(row);
    if (options.json) std::printf("%s\n", bench.results().dump(2).c_str());
    return bench.meetsBars() ? 0 : 1;
}

}  // namespace
}  // namespace quillworks::peers

int main(int argc, char** argv)
{
    quillworks::peers::Options options;
    CLI::App app{"Times our effects and other LV2 plug-ins side by side. Exit 1: a bar is missed."};
    app.add_option("--table", options.table, "Who stands against whom");
    app.add_option("--module", options.module, "The module to load");
    app.add_option("--only", options.only, "Rows whose name contains this text");
    app.add_option("--block", options.blocks, "Frames a block, several are run one after another")
        ->check(CLI::Range(1, 65536));
    app.add_option("--rate", options.sampleRate, "Samples per second")
        ->check(CLI::Range(8000.0, 384000.0));
    app.add_option("--seconds", options.seconds, "Signal in one turn")
        ->check(CLI::Range(0.1, 60.0));
    app.add_option("--turns", options.turns, "Turns of each, of which the median counts")
        ->check(CLI::Range(1, 10000));
    app.add_flag("--lv2", options.lv2, "Ours through our LV2 bundle, as theirs are");
    app.add_option("--bundles", options.bundles, "The folder that our bundle lies in");
    app.add_option("--crowd", options.crowd, "Instances of each contestant, run in turn")
        ->check(CLI::Range(1, 10000));
    app.add_flag("--json", options.json, "Print JSON instead of tables");
    CLI11_PARSE(app, argc, argv);
    try {
        return quillworks::peers::run(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "peers: %s\n", e.what());
        return 2;
    }
}
