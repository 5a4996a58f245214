// SPDX-License-Identifier: ISC
#include "reverb/response_maker.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "dsp/decibel.h"
#include "dsp/fft.h"
#include "framework/parameter.h"
#include "framework/twelfth_bands.h"
#include "vnk/file.h"

namespace quillworks {
namespace {

constexpr int kMostOfAName = 9999;

const char* endingOf(VNK::SoundKind kind) noexcept
{
    return kind == VNK::SoundKind::Flac24 ? ".flac" : ".wav";
}

VNK::SoundKind kindThatHolds(const MeasuredResponse::Paths& paths, VNK::SoundKind kind)
{
    constexpr std::size_t kMostInFlac = 8;
    double peak = 0;
    for (const auto& path : paths)
        for (const double x : path) peak = std::max(peak, std::abs(x));
    if (peak >= 1) return VNK::SoundKind::WavFloat;
    if (kind == VNK::SoundKind::Flac24 && paths.size() > kMostInFlac) return VNK::SoundKind::Wav24;
    return kind;
}

/// Takes a name that does not exist yet by an empty file. Empty with a reason where that fails.
std::string reserve(const std::string& stem, const char* ending, std::string& reason)
{
    for (int n = 1; n <= kMostOfAName; ++n) {
        std::string path = stem;
        if (n > 1) path.append(" ").append(std::to_string(n));
        path += ending;
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            return path;
        }
        if (errno != EEXIST) {
            reason = path + ": " + std::strerror(errno);
            return {};
        }
    }
    reason = stem + ending + ": there are too many of that name";
    return {};
}

bool writePaths(const MeasuredResponse::Paths& paths, double sampleRate, const std::string& stem,
                VNK::SoundKind kind, std::vector<std::string>& files, std::string& reason)
{
    kind = kindThatHolds(paths, kind);
    const VNK::Sound<double> sound{sampleRate, paths,
                                   static_cast<std::int64_t>(paths.front().size())};
    std::string content;
    if (!VNK::encodeSound(sound, kind, content, reason)) return false;
    const auto path = reserve(stem, endingOf(kind), reason);
    if (path.empty()) return false;
    if (!VNK::writeFile(path.c_str(), content.data(), content.size(), reason)) {
        ::unlink(path.c_str());
        return false;
    }
    files.push_back(path);
    return true;
}

std::vector<std::vector<float>> envelopesOf(const MeasuredResponse::Paths& paths)
{
    std::vector<std::vector<float>> envelopes;
    for (const auto& path : paths) {
        auto& envelope = envelopes.emplace_back();
        for (std::size_t i = 0; i < ResponseReport::kColumns; ++i) {
            const auto from = i * path.size() / ResponseReport::kColumns;
            const auto to = std::max(from, (i + 1) * path.size() / ResponseReport::kColumns);
            double peak = 0;
            for (auto k = from; k < to; ++k) peak = std::max(peak, std::abs(path[k]));
            envelope.push_back(static_cast<float>(gainToDb(peak)));
        }
    }
    return envelopes;
}

/// What comes later than that changes no magnitude by anything that is seen.
constexpr std::size_t kMostTransformed = 1 << 18;  // frames

void addMagnitudes(const MeasuredResponse::Paths& paths, ResponseReport& report)
{
    const auto frames = std::min(paths.front().size(), kMostTransformed);
    const auto size = std::bit_ceil(std::max<std::size_t>(frames, 64));
    TwelfthBands bands;
    bands.prepare(size, report.sampleRate);
    Fft<float> fft;
    fft.setSize(static_cast<std::uint32_t>(size), FftPlanning::Repeatable);
    for (std::size_t b = 0; b < bands.count(); ++b)
        report.hertz.push_back(static_cast<float>(bands.hertz(b)));
    std::vector<float> work(size);
    for (const auto& path : paths) {
        std::fill(work.begin(), work.end(), 0.0f);
        std::transform(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(frames),
                       work.begin(), [](double x) { return static_cast<float>(x); });
        fft.forward(work.data(), work.data());
        bands.clear();
        bands.add(work.data(), 1);
        bands.sum();
        auto& magnitudes = report.magnitudes.emplace_back();
        for (std::size_t b = 0; b < bands.count(); ++b) {
            const double mean = bands.power(b) / bands.width(b);
            magnitudes.push_back(static_cast<float>(10 * std::log10(std::max(mean, 1e-20))));
        }
    }
}

}  // namespace

std::string responseLibrary()
{
    const auto data = VNK::userFolder(VNK::UserFolder::Data);
    return data.empty() ? data : data + "/quillworks/ir";
}

bool writeResponse(const MeasuredResponse& response, const ResponseTarget& target,
                   std::vector<std::string>& files, std::string& reason)
{
    std::string folder = target.folder;
    if (folder.empty()) {
        folder = responseLibrary();
        std::error_code error;
        if (!folder.empty()) std::filesystem::create_directories(folder, error);
        if (folder.empty() || error) {
            reason = folder.empty() ? "there is no folder to write to (choose one)"
                                    : folder + ": " + error.message();
            return false;
        }
    }
    const std::string stem = folder + "/" + target.name;
    if (!writePaths(response.paths, response.sampleRate, stem, target.kind, files, reason))
        return false;
    // Beside it under the name that it got.
    const auto& written = files.front();
    const auto beside = written.substr(0, written.rfind('.'));
    for (std::size_t i = 0; i < response.harmonics.size(); ++i) {
        const auto& paths = response.harmonics[i];
        const auto order = std::to_string(i + MeasuredResponse::kFirstHarmonic);
        if (!paths.empty() && !writePaths(paths, response.sampleRate, beside + " H" + order,
                                          target.kind, files, reason))
            return false;
    }
    return true;
}

void ResponseMaker::run(const WorkerJob::Progress& progress)
{
    offer();
    while (const auto capture = exchange_.collect()) {
        if (progress.isCancelled()) return;
        solve(*capture, progress);
        offer();  // a start may have come meanwhile
    }
}

void ResponseMaker::offer()
{
    const auto shape = exchange_.shape();
    if (!exchange_.isWaiting() || !(shape.sampleRate > 0)) return;
    const auto plan = ask_(shape).plan;
    if (exchange_.isOffered(plan)) return;
    publish({});
    try {
        exchange_.offer(std::make_unique<SweepCapture>(plan, shape));
    } catch (const std::bad_alloc&) {
        exchange_.offer(SweepCapture::refused(plan, shape));
    }
}

void ResponseMaker::solve(SweepCapture& capture, const WorkerJob::Progress& progress)
{
    auto report = std::make_shared<ResponseReport>();
    const auto wishes = ask_(exchange_.shape());
    const auto isCancelled = [&progress] { return progress.isCancelled(); };
    try {
        const auto& measurement = capture.finish();
        const auto response = solveMeasurement(measurement, wishes.options, isCancelled);
        if (!response) return;
        report->figures = response->figures;
        if (std::isnan(response->figures.latency)) report->failure = "nothing came back";
        report->sampleRate = response->sampleRate;
        report->seconds =
            static_cast<double>(response->paths.front().size()) / response->sampleRate;
        report->microphones = measurement.microphones;
        report->envelopes = envelopesOf(response->paths);
        addMagnitudes(response->paths, *report);
        report->t60 = readResponse(response->paths, response->sampleRate).t60;
        if (progress.isCancelled()) return;
        if (report->failure.empty())
            writeResponse(*response, wishes.target, report->files, report->failure);
    } catch (const std::exception&) {
        report->failure = "there is not enough memory to solve the recording";
    }
    const bool isDone = report->failure.empty();
    if (isDone) publish(report->figures);
    setReport(std::move(report));
    // A measurement that has begun since then shows its own state.
    if (capture.start() == exchange_.begun())
        meters_.publish("MkSt"_tag, static_cast<float>(isDone ? SweepRun::State::Done
                                                              : SweepRun::State::Failed));
}

void ResponseMaker::publish(const ResponseFigures& figures) noexcept
{
    const auto put = [this](Tag tag, double value, double least, double most) {
        meters_.publish(
            tag, static_cast<float>(std::isnan(value) ? value : std::clamp(value, least, most)));
    };
    const bool isKnown = !std::isnan(figures.latency);
    const double clipped = isKnown ? static_cast<double>(figures.clipped) : ResponseFigures::kNone;
    put("ClIn"_tag, clipped, 0, 16777216);
    put("NsFl"_tag, figures.noiseFloor, -200, 20);
    put("SnRt"_tag, figures.responseToNoise, 0, 200);
    put("LtFd"_tag, figures.latency, 0, 16777216);
    put("ThdR"_tag, figures.thd, 0, 100);
    put("T30m"_tag, figures.t30, 0, 60);
    put("C80m"_tag, figures.c80, -60, 60);
}

std::shared_ptr<const ResponseReport> ResponseMaker::report() const
{
    const std::lock_guard lock(mutex_);
    return report_;
}

void ResponseMaker::setReport(std::shared_ptr<const ResponseReport> report)
{
    const std::lock_guard lock(mutex_);
    report_ = std::move(report);
}

}  // namespace quillworks
