// SPDX-License-Identifier: ISC
#include "batch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "console.h"
#include "progress.h"
#include "text.h"

namespace quillhost {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::int64_t kWhole = 1000;  // steps of progress per file
constexpr int kMostJobs = 64;

/// What became of a file.
struct Outcome {
    enum State { Waiting, Done, Skipped, Failed } state = Waiting;
    std::string error;
    bool isWrongUsage = false;  // of the command line, not of the file
    std::vector<std::string> notes;
    std::optional<Normalised> loudness;  // where it was measured
    Rendered rendered;
    std::int64_t clipped = 0;
    bool isMissed() const { return loudness && !loudness->missed.empty(); }
};

Json jsonOf(double value, int digits = 3)
{
    if (!std::isfinite(value)) return nullptr;
    const double scale = std::pow(10.0, digits);
    return std::round(value * scale) / scale;
}

Json jsonOf(const LoudnessReport& r)
{
    return {{"integrated", jsonOf(r.integrated)},
            {"momentaryMax", jsonOf(r.momentaryMax)},
            {"shortTermMax", jsonOf(r.shortTermMax)},
            {"range", jsonOf(r.range)},
            {"truePeak", jsonOf(r.truePeak)}};
}

Json jsonOf(const RenderTask& task, const Outcome& outcome, bool isTargeted)
{
    Json item = {{"file", task.in}, {"output", task.out}};
    if (outcome.state == Outcome::Failed) {
        item["error"] = outcome.error;
    } else if (outcome.state == Outcome::Skipped) {
        item["skipped"] = true;
    } else {
        const auto& r = outcome.rendered;
        item["frames"] = r.frames;
        item["seconds"] = jsonOf(static_cast<double>(r.frames) / r.sampleRate, 6);
        item["sampleRate"] = r.sampleRate;
        item["channels"] = r.channels;
        item["latency"] = r.latency;
        item["clipped"] = outcome.clipped;
        if (!outcome.notes.empty()) item["remarks"] = outcome.notes;
        item["before"] = jsonOf(outcome.loudness->before);
        item["after"] = jsonOf(outcome.loudness->after);
        if (isTargeted) {
            item["gain"] = jsonOf(outcome.loudness->gain);
            item["limited"] = outcome.loudness->limits;
            item["missed"] = outcome.loudness->missed;
        }
    }
    return item;
}

void printJson(const Json& all, const BatchOptions& options)
{
    // A file name need not be UTF-8; the rest of the report must not suffer from it.
    std::cout << (options.folder.empty() ? all[0] : all)
                     .dump(1, ' ', false, Json::error_handler_t::replace)
              << "\n";
}

std::string shown(double value)
{
    return std::isfinite(value) ? fixedText(value, 1) : "-";
}

/// The line of a file that has been rendered.
std::string lineOf(const RenderTask& task, const Outcome& outcome)
{
    const auto& r = outcome.rendered;
    std::string line = escaped(task.out) + ": ";
    if (outcome.state == Outcome::Skipped) return line + "is there already";
    line += shown(static_cast<double>(r.frames) / r.sampleRate) + " s";
    if (!outcome.loudness) return line;
    const auto& n = *outcome.loudness;
    line += ", " + shown(n.before.integrated) + " to " + shown(n.after.integrated) + " LUFS, " +
            shown(n.after.truePeak) + " dBTP" + (n.limits ? ", limited" : "");
    if (!n.missed.empty()) line += "; missed: " + n.missed;
    return line;
}

/// The share of one file in the progress of all. A file may be read several times, `passes` as a
/// rule; the bar stands still for the further ones.
class FileSteps {
public:
    FileSteps(std::atomic<std::int64_t>& steps, int passes) : steps_(steps), passes_(passes) {}
    ~FileSteps() { steps_ += kWhole - shown_; }
    FileSteps(const FileSteps&) = delete;
    FileSteps& operator=(const FileSteps&) = delete;
    void reach(std::int64_t done, std::int64_t total)
    {
        if (total <= 0) return;
        const auto now = std::min(kWhole, done * kWhole / (total * passes_));
        if (now > shown_) steps_ += now - std::exchange(shown_, now);
    }

private:
    std::atomic<std::int64_t>& steps_;
    int passes_;
    std::int64_t shown_ = 0;
};

class Batch {
public:
    Batch(const Session& session, const RenderPlan& plan, const std::vector<RenderTask>& tasks,
          const BatchOptions& options)
        : session_(session), plan_(plan), tasks_(tasks), options_(options), outcomes_(tasks.size())
    {}

    int run();

private:
    void work(std::size_t worker);
    void render(std::size_t i, Normaliser* normaliser);
    double albumGain(Progress& progress);
    void report(std::size_t i);
    int summary() const;
    bool measures() const { return options_.target || options_.json; }

    const Session& session_;
    const RenderPlan& plan_;
    const std::vector<RenderTask>& tasks_;
    const BatchOptions& options_;
    std::vector<Outcome> outcomes_;
    std::vector<std::unique_ptr<Normaliser>> normalisers_;
    std::optional<double> albumGain_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<std::size_t> next_ = 0;
    std::atomic<std::int64_t> steps_ = 0;
};

void Batch::render(std::size_t i, Normaliser* normaliser)
{
    const auto& task = tasks_[i];
    auto& outcome = outcomes_[i];
    FileSteps steps(steps_, options_.target ? 2 : 1);
    const Watched watched = [&](std::int64_t done, std::int64_t total, int) {
        steps.reach(done, total);
    };
    if (options_.target) {
        outcome.loudness =
            albumGain_ ? normaliser->runWith(*albumGain_, plan_, *options_.target, task.in,
                                             task.out, watched)
                       : normaliser->run(plan_, *options_.target, task.in, task.out, watched);
        outcome.rendered = outcome.loudness->rendered;
        outcome.clipped = outcome.loudness->clipped;
    } else if (options_.json) {
        outcome.loudness = normaliser->measured(plan_, task.in, task.out, watched);
        outcome.rendered = outcome.loudness->rendered;
        outcome.clipped = outcome.loudness->clipped;
    } else {
        FileSink file(task.out, plan_);
        outcome.rendered = renderFile(session_, plan_, task.in, file, watched);
        file.finish(session_);
        outcome.clipped = file.clipped();
    }
}

/// Of the files that can be read; the others have failed.
double Batch::albumGain(Progress& progress)
{
    std::vector<std::size_t> members;
    for (std::size_t i = 0; i < tasks_.size(); ++i) members.push_back(i);
    while (!members.empty()) {
        std::vector<std::string> files;
        for (const auto i : members) files.push_back(tasks_[i].in);
        std::optional<FileSteps> steps;
        std::size_t at = 0, shown = members.size();
        const auto before = steps_.load();
        try {
            return normalisers_[0]->albumGain(plan_, *options_.target, files, at,
                                              [&](std::int64_t done, std::int64_t total, int) {
                                                  if (std::exchange(shown, at) != at)
                                                      steps.emplace(steps_, 1);
                                                  steps->reach(done, total);
                                                  progress.show(steps_);
                                              });
        } catch (const NoAlbum&) {
            throw;
        } catch (const WorkError& e) {
            outcomes_[members[at]].state = Outcome::Failed;
            outcomes_[members[at]].error = e.what();
            members.erase(members.begin() + static_cast<std::ptrdiff_t>(at));
        }
        steps.reset();
        steps_ = before;
    }
    return 0;
}

void Batch::work(std::size_t worker)
{
    auto* const normaliser = measures() ? normalisers_[worker].get() : nullptr;
    for (std::size_t i; (i = next_++) < tasks_.size();) {
        auto& outcome = outcomes_[i];
        if (outcome.state == Outcome::Failed) continue;  // as part of the album
        const Session::NotesApart apart(outcome.notes);
        auto state = Outcome::Done;
        std::error_code ignored;
        try {
            if (options_.skipExisting && fs::exists(tasks_[i].out, ignored))
                state = Outcome::Skipped;
            else
                render(i, normaliser);
        } catch (const std::bad_alloc&) {
            state = Outcome::Failed;
            outcome.error = tasks_[i].in + ": there is not enough memory";
        } catch (const std::exception& e) {
            state = Outcome::Failed;
            outcome.error = e.what();
            outcome.isWrongUsage = dynamic_cast<const UsageError*>(&e) != nullptr;
        }
        const std::lock_guard lock(mutex_);
        outcome.state = state;
        changed_.notify_one();
    }
}

void Batch::report(std::size_t i)
{
    auto& outcome = outcomes_[i];
    for (const auto& note : outcome.notes) session_.note(note);
    if (outcome.state == Outcome::Failed)
        say(outcome.error.find(tasks_[i].in) == std::string::npos
                ? tasks_[i].in + ": " + outcome.error
                : outcome.error);
    else if (!options_.json)
        std::cout << lineOf(tasks_[i], outcome) << std::endl;
}

int Batch::run()
{
    const auto cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    const auto jobs = std::min(
        tasks_.size(),
        static_cast<std::size_t>(std::min(kMostJobs, options_.jobs > 0 ? options_.jobs : cores)));
    if (measures())
        for (std::size_t i = 0; i < jobs; ++i)
            normalisers_.push_back(std::make_unique<Normaliser>(session_));
    const auto total = static_cast<std::int64_t>(tasks_.size()) * kWhole;
    Progress progress(session_.quiet(), options_.album ? 2 * total : total, 0);
    if (options_.album) albumGain_ = albumGain(progress);
    std::vector<std::jthread> threads;
    try {
        for (std::size_t i = 0; i < jobs; ++i) threads.emplace_back(&Batch::work, this, i);
    } catch (const std::system_error&) {  // no more threads: those there are do the work
        if (threads.empty()) work(0);
    }
    for (std::size_t i = 0; i < tasks_.size(); ++i) {
        for (std::unique_lock lock(mutex_); outcomes_[i].state == Outcome::Waiting;) {
            changed_.wait_for(lock, std::chrono::milliseconds(50));
            progress.show(steps_);
        }
        progress.clear();
        report(i);
    }
    return summary();
}

int Batch::summary() const
{
    std::size_t failed = 0, skipped = 0, missed = 0;
    for (const auto& outcome : outcomes_) {
        failed += outcome.state == Outcome::Failed;
        skipped += outcome.state == Outcome::Skipped;
        missed += outcome.isMissed();
    }
    if (options_.json) {
        Json all = Json::array();
        for (std::size_t i = 0; i < tasks_.size(); ++i)
            all.push_back(jsonOf(tasks_[i], outcomes_[i], options_.target.has_value()));
        printJson(all, options_);
    } else if (!options_.folder.empty()) {
        std::cout << tasks_.size() - failed - skipped << " rendered";
        if (skipped) std::cout << ", " << skipped << " skipped";
        if (missed) std::cout << ", " << missed << " missed the target";
        if (failed) {
            std::cout << ", " << failed << " failed:";
            for (std::size_t i = 0; i < tasks_.size(); ++i)
                if (outcomes_[i].state == Outcome::Failed)
                    std::cout << "\n  " << escaped(tasks_[i].in);
        }
        std::cout << "\n";
    }
    if (options_.folder.empty() && outcomes_[0].isWrongUsage) return kWrongUsage;
    return failed > 0 || (options_.strict && missed > 0) ? kFailed : kDone;
}

}  // namespace

std::vector<RenderTask> tasksFor(const std::vector<std::string>& files, const BatchOptions& options,
                                 const RenderPlan& plan)
{
    std::error_code error;
    if (fs::exists(options.folder, error) && !fs::is_directory(options.folder, error))
        throw UsageError(options.folder + " is no folder (--out-dir names one)");
    std::vector<RenderTask> tasks;
    std::map<std::string, std::string> places;
    for (const auto& in : files) {
        if (in == "-") throw UsageError("--out-dir needs files with names, not standard input");
        const fs::path name = fs::path(in).filename();
        auto extension =
            options.extension.empty() ? name.extension().string() : "." + options.extension;
        const auto out =
            (fs::path(options.folder) / (name.stem().string() + options.suffix + extension))
                .string();
        const auto [place, isNew] = places.emplace(out, in);
        if (!isNew) throw UsageError(in + " and " + place->second + " would both become " + out);
        isCoded(out);  // refuses an unknown kind before anything is opened
        tasks.push_back({in, out});
    }
    std::vector<std::string> read = files;
    read.insert(read.end(), {plan.sideChain, plan.automation});
    for (const auto& effect : plan.effects)
        read.insert(read.end(), effect.presets.begin(), effect.presets.end());
    std::map<std::pair<std::uint64_t, std::uint64_t>, std::string> inputs;
    for (const auto& in : read)
        if (const auto id = FileIdentity::of(in); id.exists)
            inputs.emplace(std::pair(id.device, id.inode), in);
    for (const auto& task : tasks) {
        const auto id = FileIdentity::of(task.out);
        const auto same = inputs.find({id.device, id.inode});
        if (id.exists && same != inputs.end()) refuseSameFile(task.out, same->second);
    }
    return tasks;
}

int renderAll(const Session& session, const RenderPlan& plan, const std::vector<RenderTask>& tasks,
              const BatchOptions& options)
{
    if (options.dryRun) {
        std::error_code error;
        Json all = Json::array();
        for (const auto& task : tasks) {
            const bool exists = fs::exists(task.out, error);
            all.push_back({{"file", task.in}, {"output", task.out}, {"exists", exists}});
            if (options.json) continue;
            std::cout << escaped(task.in) << " -> " << escaped(task.out)
                      << (!exists                ? ""
                          : options.skipExisting ? " (is there, stays)"
                                                 : " (replaces the one there)")
                      << "\n";
        }
        if (options.json) printJson(all, options);
        return kDone;
    }
    if (std::error_code error; !options.folder.empty()) {
        fs::create_directories(options.folder, error);
        if (error) throw WorkError(options.folder + " cannot be made: " + error.message());
    }
    return Batch(session, plan, tasks, options).run();
}

}  // namespace quillhost
