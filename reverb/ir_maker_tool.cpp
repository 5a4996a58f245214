// SPDX-License-Identifier: ISC
// What IR Maker does for hosts outside the sound: sweeps and responses of files, and its display.
#include <algorithm>
#include <array>
#include <cmath>

#include "dsp/decibel.h"
#include "reverb/ir_maker.h"

namespace quillworks {
namespace {

constexpr const char* kResponse = "response";
constexpr const char* kNoMemory = "there is not enough memory for so long a recording";

void give(VNK::IResponseSink& sink, int order, const MeasuredResponse::Paths& paths)
{
    std::vector<const double*> channels;
    for (const auto& path : paths) channels.push_back(path.data());
    sink.take(order, channels.data(), static_cast<std::int32_t>(channels.size()),
              static_cast<std::int64_t>(paths.front().size()));
}

/// `n` frames of a channel from `first` on, silent beyond its end.
std::vector<float> piece(const float* channel, std::size_t frames, std::size_t first, std::size_t n)
{
    std::vector<float> x(n);
    if (first < frames) std::copy_n(channel + first, std::min(n, frames - first), x.begin());
    return x;
}

/// What was recorded of a file of sweeps, cut into its paths.
SweepMeasurement measurementOf(const SweepFile& played, const VNK::SweepRecording& recording)
{
    const auto& schedule = played.schedule;
    const auto frames = static_cast<std::size_t>(recording.recordedFrames);
    SweepMeasurement m(played.sweep);
    m.excitation = played.samples;
    m.tail = schedule.tail;
    m.sources = schedule.sources;
    m.microphones = 0;
    for (int c = 0; c < recording.recordedChannels; ++c) m.microphones += c != recording.reference;
    for (int s = 0; s < schedule.sources; ++s)
        for (int c = 0; c < recording.recordedChannels; ++c) {
            auto x = piece(recording.recorded[c], frames, schedule.start(s), m.frames());
            if (c == recording.reference) {
                m.reference.push_back(std::move(x));
                continue;
            }
            m.clipped += std::count_if(x.begin(), x.end(),
                                       [](float v) { return std::abs(v) >= kFullScale; });
            m.recorded.push_back(std::move(x));
        }
    for (int c = 0; c < recording.recordedChannels && schedule.lead > 0; ++c)
        if (c != recording.reference)
            m.noise.push_back(piece(recording.recorded[c], frames, 0, schedule.lead));
    return m;
}

VNK::ResponseFigures shown(const ResponseFigures& f) noexcept
{
    return {f.latency, f.noiseFloor, f.responseToNoise, f.thd,
            f.t30,     f.c80,        f.clipped,         f.isDisturbed};
}

}  // namespace

bool IrMakerComponent::refuse(const char* reason) noexcept
{
    try {
        refusal_ = reason;
    } catch (...) {
        refusal_.clear();
    }
    return false;
}

bool IrMakerComponent::makeSweep(VNK::SweepPlan& plan, VNK::IResponseSink* sink) noexcept
{
    try {
        const bool isPossible = sink && plan.sampleRate >= 1000 && plan.seconds > 0 &&
                                plan.seconds <= 600 && plan.from > 0 &&
                                plan.from < plan.sampleRate / 4 && std::isfinite(plan.level);
        if (!isPossible) return refuse("there is no such sweep");
        const Sweep sweep(
            SweepSettings{plan.sampleRate, plan.seconds, plan.from, dbToGain(plan.level)});
        const auto samples = sweep.samples();
        give(*sink, 0, {std::vector<double>(samples.begin(), samples.end())});
        plan.seconds = sweep.seconds();
        plan.to = sweep.to();
        return true;
    } catch (const std::bad_alloc&) {
        return refuse(kNoMemory);
    } catch (...) {
        return refuse("the sweep was not taken");
    }
}

bool IrMakerComponent::solve(const VNK::SweepRecording& recording, const VNK::SolvePlan& plan,
                             VNK::IResponseSink* sink, VNK::ResponseFigures& figures) noexcept
{
    try {
        if (!sink || recording.recordedChannels < 1 || recording.playedChannels < 1)
            return refuse("there is no recording");
        const bool onlyReference = recording.recordedChannels == 1 && recording.reference == 0;
        if (recording.reference >= recording.recordedChannels || onlyReference)
            return refuse("there is no such channel beside one to solve");
        const auto played = SweepFile::recognise(
            {recording.played, static_cast<std::size_t>(recording.playedChannels)},
            static_cast<std::size_t>(recording.playedFrames), recording.sampleRate);
        if (!played) return refuse("there is no sweep in the file that was played");
        const SolveOptions options{static_cast<Align>(std::clamp(plan.align, 0, 2)), plan.latency,
                                   plan.trim, plan.normalise, plan.harmonics};
        const auto solved =
            solveMeasurement(measurementOf(*played, recording), options, [] { return false; });
        if (std::isnan(solved->figures.latency)) return refuse("nothing of the sweep came back");
        figures = shown(solved->figures);
        give(*sink, 1, solved->paths);
        for (std::size_t i = 0; i < solved->harmonics.size(); ++i)
            if (!solved->harmonics[i].empty())
                give(*sink, static_cast<int>(i) + MeasuredResponse::kFirstHarmonic,
                     solved->harmonics[i]);
        return true;
    } catch (const std::bad_alloc&) {
        return refuse(kNoMemory);
    } catch (...) {
        return refuse("the response was not taken");
    }
}

bool IrMakerComponent::readResponse(const double* const* channels, std::int32_t count,
                                    std::int64_t frames, double sampleRate,
                                    VNK::ResponseFacts& facts) noexcept
{
    try {
        if (count < 1 || frames < 1 || !(sampleRate > 0)) return refuse("there is no response");
        MeasuredResponse::Paths paths;
        for (int c = 0; c < count; ++c) paths.emplace_back(channels[c], channels[c] + frames);
        const auto read = quillworks::readResponse(paths, sampleRate);
        facts.seconds = read.seconds;
        facts.latency = read.latency;
        facts.noiseFloor = read.noiseFloor;
        static_assert(kOctaves == VNK::kResponseOctaves);
        std::copy(read.t60.begin(), read.t60.end(), facts.t60);
        return true;
    } catch (...) {
        return refuse(kNoMemory);
    }
}

const char* IrMakerComponent::displayName(std::int32_t index) const noexcept
{
    return index == 0 ? kResponse : nullptr;
}

bool IrMakerComponent::snapshot(const char* name, VNK::IDisplaySink* sink) noexcept
{
    if (!name || !sink || std::string_view(name) != kResponse) return false;
    try {
        const auto report = maker_.report();
        const ResponseReport nothing;
        const auto& r = report ? *report : nothing;
        const double none = ResponseFigures::kNone;
        sink->beginList("files");
        for (const auto& file : r.files) sink->text(nullptr, file.c_str());
        sink->end();
        sink->text("failure", r.failure.c_str());
        sink->number("seconds", r.envelopes.empty() ? none : r.seconds);
        sink->number("betterSweep", r.figures.betterSweep);
        sink->flag("disturbed", r.figures.isDisturbed);
        auto t60 = r.t60;
        if (!report) t60.fill(none);
        sink->numbers("t60", t60.data(), kOctaves);
        sink->numbers("frequency", r.hertz.data(), static_cast<std::int64_t>(r.hertz.size()));
        sink->beginList("paths");
        for (std::size_t i = 0; i < r.envelopes.size(); ++i) {
            const auto microphones = static_cast<std::size_t>(r.microphones);
            sink->beginObject(nullptr);
            sink->number("source", static_cast<double>(i / microphones));
            sink->number("microphone", static_cast<double>(i % microphones));
            sink->numbers("level", r.envelopes[i].data(),
                          static_cast<std::int64_t>(r.envelopes[i].size()));
            if (i < r.magnitudes.size())
                sink->numbers("magnitude", r.magnitudes[i].data(),
                              static_cast<std::int64_t>(r.magnitudes[i].size()));
            sink->end();
        }
        sink->end();
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace quillworks
