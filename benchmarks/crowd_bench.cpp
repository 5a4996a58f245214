// SPDX-License-Identifier: ISC
// What instances cost a session that has hundreds of them: every effect as an LV2 plug-in, alone
// and in a crowd, what the adapter adds, what a new one takes, and how long it takes to make.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <numeric>
#include <string>
#include <vector>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include "adapters/common/offline.h"
#include "adapters/lv2/instance.h"
#include "benchmarks/peers/programme.h"
#include "framework/pass_through.h"
#include "vnk/plugin_manager.h"

namespace quillworks {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kRate = 48000;  // Hz
constexpr double kPeakDb = 6;    // so that a limiter as it opens has something to do

struct Options {
    int crowd = 200, block = 256, turns = 9;
    double seconds = 0.4;  // of signal in one turn
    std::string only;
    std::string module = CROWD_MODULE;
    bool speed = true;
};

double nanoseconds(Clock::duration d)
{
    return std::chrono::duration<double, std::nano>(d).count();
}

template <class F> double timeOf(F&& f)
{
    const auto start = Clock::now();
    f();
    return nanoseconds(Clock::now() - start);
}

/// A class that does nothing: what it takes is the frame and the adapter.
VNK::HostedEffect passThrough(const VNK::ClassDescription& description)
{
    const auto algorithm = VNK::Ref<PassThroughAlgorithm>::adopt(new PassThroughAlgorithm);
    auto component = VNK::Ref<PassThroughComponent<"Plain">>::adopt(
        new PassThroughComponent<"Plain">(*algorithm));
    component->identify(description.classId, description.name->text());
    return VNK::HostedEffect::adopt(static_cast<VNK::IEffectComponent*>(component.detach()));
}

/// The host's numbers for URIs.
class Urids {
public:
    LV2_URID id(const std::string& uri)
    {
        return ids_.try_emplace(uri, static_cast<LV2_URID>(ids_.size() + 1)).first->second;
    }
    const LV2_Feature* const* features() const noexcept { return list_; }

private:
    std::map<std::string, LV2_URID> ids_;
    LV2_URID_Map map_{this, [](LV2_URID_Map_Handle handle, const char* uri) {
                          return static_cast<Urids*>(handle)->id(uri);
                      }};
    LV2_Feature feature_{LV2_URID__map, &map_};
    const LV2_Feature* list_[2] = {&feature_, nullptr};
};

/// Buffers that the host hands to all of its plug-ins.
struct Buffers {
    explicit Buffers(int frames) : in(2, std::vector<float>(std::size_t(frames))), out(in) {}

    std::vector<std::vector<float>> in, out;
    std::vector<float> silence = std::vector<float>(in[0].size());
};

/// A plug-in in a host, which keeps the values of its control ports side by side.
class Plugged {
public:
    Plugged(const lv2::Plugin& plugin, std::unique_ptr<lv2::Instance> instance, Urids& urids)
        : plugin_(plugin), instance_(std::move(instance)), values_(plugin.ports.size())
    {
        events_ = {{sizeof(LV2_Atom_Sequence_Body), urids.id(LV2_ATOM__Sequence)}, {0, 0}};
        for (std::size_t i = 0; i < values_.size(); ++i)
            if (plugin.ports[i].role == lv2::Port::Role::Parameter)
                values_[i] = plugin.controls[static_cast<std::size_t>(plugin.place[i])].start;
            else if (plugin.ports[i].role == lv2::Port::Role::Enabled)
                values_[i] = 1;
    }

    lv2::Instance& instance() noexcept { return *instance_; }
    void connect(Buffers& buffers)
    {
        using Role = lv2::Port::Role;
        for (std::uint32_t i = 0; i < values_.size(); ++i) {
            const auto channel = static_cast<std::size_t>(plugin_.ports[i].index);
            switch (plugin_.ports[i].role) {
            case Role::AudioIn:
                instance_->connect(i, buffers.in[channel].data());
                break;
            case Role::AudioOut:
                instance_->connect(i, buffers.out[channel].data());
                break;
            case Role::SideChain:
                instance_->connect(i, buffers.silence.data());
                break;
            case Role::Events:
                instance_->connect(i, &events_);
                break;
            case Role::Notify:
                break;
            default:
                instance_->connect(i, &values_[i]);
            }
        }
        instance_->activate();
    }
    void run(int frames) noexcept { instance_->run(static_cast<std::uint32_t>(frames)); }

private:
    const lv2::Plugin& plugin_;
    std::unique_ptr<lv2::Instance> instance_;
    std::vector<float> values_;
    LV2_Atom_Sequence events_{};
};

/// Resident memory of the process in kB, once what has been freed is given back.
double residentMemory()
{
    malloc_trim(0);
    std::ifstream file("/proc/self/statm");
    double all = 0, resident = 0;
    file >> all >> resident;
    return resident * double(sysconf(_SC_PAGESIZE)) / 1024;
}

/// The least time of each block over some turns: what else the machine did is left out.
class LeastTimes {
public:
    void take(std::size_t block, double time)
    {
        if (block >= least_.size()) least_.resize(block + 1, 1e300);
        least_[block] = std::min(least_[block], time);
    }
    /// ns a block, without the first `cold`, which find the caches full of somebody else's data.
    double mean(std::size_t cold) const
    {
        cold = std::min(cold, least_.size() - 1);
        return std::accumulate(least_.begin() + std::ptrdiff_t(cold), least_.end(), 0.0) /
               double(least_.size() - cold);
    }

private:
    std::vector<double> least_;
};

class Crowds {
public:
    explicit Crowds(const Options& options)
        : options_(options),
          buffers_(options.block),
          signal_(peers::programme(2, kRate, options.seconds, kPeakDb))
    {
        // What taking the time of nothing costs.
        for (int i = 0; i < 20000; ++i) clock_ = std::min(clock_, timeOf([] {}));
    }

    void all()
    {
        std::printf("%-20s %8s %8s %8s %8s | %8s %8s %8s\n", "48 kHz, stereo,", "alone", "crowd",
                    "crowd", "adapter", "make", "prepare", "new");
        std::printf("%4d in turn, %4d    %8s %8s %8s %8s | %8s %8s %8s\n", options_.crowd,
                    options_.block, "ns/frame", "ns/frame", "/ alone", "ns/block", "ms", "ms",
                    "kB");
        // The description matters to nobody here.
        const auto& any = *catalogue_.plugins().front().effect;
        const auto plain = lv2::pluginsOf(any, passThrough(any));
        row("passes through", plain.front(), [&] { return passThrough(any); });
        const VNK::ClassDescription* last = nullptr;
        for (const auto& plugin : catalogue_.plugins())
            if (std::exchange(last, plugin.effect) != plugin.effect)  // the usual layout
                row(plugin.effect->name->text(), plugin, [&] { return catalogue_.create(plugin); });
    }

    /// From what a song has stored of them, at other values than they open with.
    void restore()
    {
        const auto& plugins = catalogue_.plugins();
        const auto at = std::find_if(plugins.begin(), plugins.end(), [](const lv2::Plugin& plugin) {
            return plugin.fileName == "compressor";
        });
        struct Stored {
            std::vector<char> bytes;
            std::uint32_t type, flags;
        };
        std::map<std::uint32_t, Stored> song;
        const auto effect = catalogue_.create(*at);
        effect->setValue(effect->findParameter("threshold"), -24);
        lv2::Instance saved(effect, *at, kRate, urids_.features());
        saved.save(
            [](LV2_State_Handle handle, std::uint32_t key, const void* value, std::size_t size,
               std::uint32_t type, std::uint32_t flags) {
                const auto* const bytes = static_cast<const char*>(value);
                (*static_cast<decltype(song)*>(handle))[key] = {{bytes, bytes + size}, type, flags};
                return LV2_STATE_SUCCESS;
            },
            &song, urids_.features());
        const auto retrieve = [](LV2_State_Handle handle, std::uint32_t key, std::size_t* size,
                                 std::uint32_t* type, std::uint32_t* flags) -> const void* {
            const auto& all = *static_cast<const decltype(song)*>(handle);
            const auto found = all.find(key);
            if (found == all.end()) return nullptr;
            *size = found->second.bytes.size();
            *type = found->second.type;
            *flags = found->second.flags;
            return found->second.bytes.data();
        };
        double least = 1e300;
        for (int turn = 0; turn < options_.turns; ++turn) {
            std::vector<std::unique_ptr<lv2::Instance>> session;
            least = std::min(least, timeOf([&] {
                                 for (int i = 0; i < options_.crowd; ++i) {
                                     session.push_back(std::make_unique<lv2::Instance>(
                                         catalogue_.create(*at), *at, kRate, urids_.features()));
                                     session.back()->restore(retrieve, &song, urids_.features());
                                     session.back()->activate();
                                 }
                             }));
            const auto& last = session.back()->effect();
            if (last.getValue(last.findParameter("threshold")) != -24)
                throw std::runtime_error("the session was not restored");
        }
        std::printf("%d compressors of a stored session: %.1f ms\n", options_.crowd, least / 1e6);
    }

private:
    template <class Create> void row(const char* name, const lv2::Plugin& plugin, Create&& create)
    {
        if (std::string(name).find(options_.only) == std::string::npos) return;
        std::vector<std::unique_ptr<Plugged>> crowd;
        std::vector<VNK::HostedEffect> effects;
        create();  // tables that all of them share are made for the first
        plug(plugin, create());
        const double memory = residentMemory();
        const double making = timeOf([&] {
            for (int i = 0; i < options_.crowd; ++i) effects.push_back(create());
        });
        const double preparing = timeOf([&] {
            for (auto& effect : effects) crowd.push_back(plug(plugin, std::move(effect)));
        });
        const double taken = residentMemory() - memory;
        const auto each = [&](double all) { return all / options_.crowd; };
        std::printf("%-20s", name);
        if (options_.speed) {
            const auto [alone, among, core] = speeds(crowd);
            std::printf(" %8.2f %8.2f %8.2f %8.0f", alone / options_.block, among / options_.block,
                        among / alone, alone - core);
        }
        std::printf(" | %8.4f %8.3f %8.0f\n", each(making) / 1e6, each(preparing) / 1e6,
                    each(taken));
        std::fflush(stdout);
    }
    std::unique_ptr<Plugged> plug(const lv2::Plugin& plugin, VNK::HostedEffect effect)
    {
        auto plugged = std::make_unique<Plugged>(
            plugin,
            std::make_unique<lv2::Instance>(std::move(effect), plugin, kRate, urids_.features()),
            urids_);
        plugged->connect(buffers_);
        return plugged;
    }

    struct Speeds {
        double alone, among, core;  // ns a block of one instance; the effect without the adapter
    };
    Speeds speeds(std::vector<std::unique_ptr<Plugged>>& crowd)
    {
        auto& first = *crowd.front();
        for (auto& one : crowd) adapters::waitWhileBusy(one->instance().effect());
        const VNK::EffectRunner runner(*first.instance().effect().algorithm());
        const VNK::ChannelPointers<const float> in(buffers_.in, 2);
        const VNK::ChannelPointers<float> out(buffers_.out, 2);
        // Timed in groups: a machine that does something else as well is done with a few of them
        // undisturbed sooner than with all.
        constexpr std::size_t kGroup = 5;
        const std::size_t groups = (crowd.size() + kGroup - 1) / kGroup;
        LeastTimes alone, among, core;
        for (int turn = -1; turn < options_.turns; ++turn) {  // the first fills caches and lines
            const bool counts = turn >= 0;
            play([&](std::size_t block) {
                const double took = taken([&] { runner.process<float>(in, out, options_.block); });
                if (counts) core.take(block, took);
            });
            play([&](std::size_t block) {
                const double took = taken([&] { first.run(options_.block); });
                if (counts) alone.take(block, took);
            });
            play([&](std::size_t block) {
                for (std::size_t g = 0; g < groups; ++g) {
                    const auto end = std::min((g + 1) * kGroup, crowd.size());
                    const double took = taken([&] {
                        for (std::size_t i = g * kGroup; i < end; ++i)
                            crowd[i]->run(options_.block);
                    });
                    if (counts) among.take(block * groups + g, took);
                }
            });
        }
        // The first 5 ms find the caches full of what ran before.
        const auto cold = static_cast<std::size_t>(240 / options_.block + 1);
        return {alone.mean(cold), among.mean(cold * groups) * double(groups) / double(crowd.size()),
                core.mean(cold)};
    }
    template <class F> double taken(F&& f) const { return std::max(0.0, timeOf(f) - clock_); }
    /// The whole signal, run(i) for its i-th block.
    template <class Run> void play(Run&& run)
    {
        const auto n = static_cast<std::size_t>(options_.block);
        for (std::size_t b = 0; b < signal_[0].size() / n; ++b) {
            for (std::size_t c = 0; c < 2; ++c)
                std::copy_n(signal_[c].begin() + std::ptrdiff_t(b * n), n, buffers_.in[c].begin());
            run(b);
        }
    }

    const Options& options_;
    Urids urids_;
    lv2::Catalogue catalogue_;
    Buffers buffers_;
    std::vector<std::vector<float>> signal_;
    double clock_ = 1e300;
};

/// Each time in a process that has not loaded it before, the file being in memory.
void timeLoading(const Options& options)
{
    double least = 1e300;
    for (int turn = 0; turn < options.turns; ++turn) {
        int ends[2];
        if (pipe(ends) != 0) return;
        if (const pid_t child = fork(); child == 0) {
            std::string reason;
            std::unique_ptr<VNK::LoadedModule> module;
            const double took =
                timeOf([&] { module = VNK::LoadedModule::load(options.module.c_str(), reason); });
            const double told = module ? took : NAN;
            _exit(write(ends[1], &told, sizeof told) == sizeof told ? 0 : 1);
        } else {
            double took = NAN;
            if (read(ends[0], &took, sizeof took) == sizeof took) least = std::min(least, took);
            close(ends[0]);
            close(ends[1]);
            waitpid(child, nullptr, 0);
        }
    }
    std::printf("The module loads in %.2f ms\n", least / 1e6);
}

}  // namespace
}  // namespace quillworks

int main(int argc, char** argv)
{
    quillworks::Options options;
    CLI::App app{
        "Times every effect as an LV2 plug-in, alone and in a crowd, and tells what making "
        "instances takes."};
    app.add_option("--crowd", options.crowd, "Instances of each, run in turn")
        ->check(CLI::Range(1, 10000));
    app.add_option("--block", options.block, "Frames a block")->check(CLI::Range(1, 8192));
    app.add_option("--turns", options.turns, "Turns, of which the least time of each block counts")
        ->check(CLI::Range(1, 10000));
    app.add_option("--seconds", options.seconds, "Signal in one turn")
        ->check(CLI::Range(0.02, 60.0));
    app.add_option("--only", options.only, "Effects whose name contains this text");
    app.add_option("--module", options.module, "The module to load");
    app.add_flag("!--no-speed", options.speed, "Only what making them takes");
    CLI11_PARSE(app, argc, argv);
    setenv("QUILLWORKS_RESOURCES", CROWD_RESOURCES, 0);
    try {
        quillworks::timeLoading(options);  // before this process has threads
        quillworks::Crowds crowds(options);
        crowds.restore();
        crowds.all();
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "crowd_bench: %s\n", e.what());
        return 2;
    }
}
