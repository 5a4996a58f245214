// SPDX-License-Identifier: ISC
#include "reverb/measured_response.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <span>

#include "dsp/decibel.h"
#include "reverb/decay_analysis.h"
#include "reverb/deconvolution.h"

namespace quillworks {
namespace {

using Paths = MeasuredResponse::Paths;

constexpr double kSweepFloor = 1e-12;     // of the excitation's largest power
constexpr double kReferenceFloor = 1e-6;  // a recording has noise below
constexpr double kOnsetLead = 0.001;      // seconds before the first sound
constexpr double kBefore = 0.1;           // seconds before time 0 that are looked at
constexpr double kDisturbed = 0.05;       // seconds before the first sound that tell a disturbance
constexpr double kDisturbance = 0.00316;  // -50 dB of the peak
constexpr double kHarmonicLead = 0.01, kHarmonicEnd = 0.02;  // seconds round a harmonic's response
constexpr double kNormalised = -1;                           // dB
constexpr double kJudged = 60;                               // dB under the strongest path
constexpr double kLeast = -200;                              // dB of what is exactly nothing

double peakOf(std::span<const double> x) noexcept
{
    double peak = 0;
    for (const double v : x) peak = std::max(peak, std::abs(v));
    return peak;
}

double decibels(double power) noexcept
{
    return power > 0 ? std::max(kLeast, 10 * std::log10(power)) : kLeast;
}

/// Frames from .. to of a circular response.
std::vector<double> cut(std::span<const double> response, std::ptrdiff_t from, std::ptrdiff_t to)
{
    std::vector<double> x;
    x.reserve(static_cast<std::size_t>(std::max<std::ptrdiff_t>(to - from, 0)));
    for (auto t = from; t < to; ++t) x.push_back(Deconvolver::at(response, t));
    return x;
}

/// Mean power of a response over the third of an octave round `frequency`.
double thirdOctavePower(const std::vector<double>& response, double frequency, double sampleRate)
{
    Fft<double> fft;
    const auto n = std::bit_ceil(std::max<std::size_t>(
        response.size(), static_cast<std::size_t>(16 * sampleRate / frequency)));
    fft.setSize(static_cast<std::uint32_t>(n), FftPlanning::Repeatable);
    if (!fft.isReady()) throw std::bad_alloc();
    std::vector<double> x(n);
    std::copy(response.begin(), response.end(), x.begin());
    fft.forward(x.data(), x.data());
    const double sixth = std::exp2(1.0 / 6), bin = static_cast<double>(n) / sampleRate;
    const auto from = static_cast<std::uint32_t>(std::ceil(frequency / sixth * bin));
    const auto to = static_cast<std::uint32_t>(frequency * sixth * bin);
    double sum = 0;
    for (auto k = from; k <= to; ++k) sum += fft.binPower(x.data(), k);
    return to >= from ? sum / (to - from + 1) : 0;
}

/// One path on its way from recording to response.
struct Path {
    std::vector<double> response;  // from `before` frames before time 0 on
    std::array<std::vector<double>, MeasuredResponse::kHarmonics> harmonics;
    double peak = 0, noise = ResponseFigures::kNone;  // linear; mean square
    std::size_t first = 0;                            // sound, in `response`
};

class Solver {
public:
    Solver(const SweepMeasurement& m, const SolveOptions& options,
           const std::function<bool()>& cancelled)
        : m_(m), options_(options), isCancelled_(cancelled), rate_(m.sweep.sampleRate())
    {
        // What lies further before time 0 than half way to the second harmonic is distortion.
        before_ = frames(std::min(kBefore, 0.5 * m.sweep.harmonicLead(2)));
    }

    std::optional<MeasuredResponse> run()
    {
        if (!takePathsOut()) return {};
        MeasuredResponse result;
        result.sampleRate = rate_;
        judge(result.figures);
        if (isCancelled_()) return {};
        judgeDistortion(result.figures);
        if (isCancelled_()) return {};
        align(result);
        judgeRoom(result);
        if (isCancelled_()) return {};
        if (options_.trim) trim(result.paths);
        if (options_.normalise) normalise(result);
        return result;
    }

private:
    std::ptrdiff_t frames(double seconds) const noexcept
    {
        return static_cast<std::ptrdiff_t>(std::lround(seconds * rate_));
    }
    bool isJudged(const Path& path) const noexcept
    {
        return path.peak > 0 && path.peak >= loudest_ * std::pow(10, -kJudged / 20);
    }

    bool takePathsOut()
    {
        const bool hasReference = !m_.reference.empty();
        Deconvolver deconvolver(m_.frames(), hasReference ? m_.frames() : m_.excitation.size());
        std::vector<double> noise;
        for (int s = 0; s < m_.sources; ++s) {
            const auto source = static_cast<std::size_t>(s);
            if (hasReference)
                deconvolver.setExcitation(m_.reference[source], rate_, kReferenceFloor);
            else if (s == 0)
                deconvolver.setExcitation(m_.excitation, rate_, kSweepFloor);
            if (s == 0) chooseBand(deconvolver);
            if (hasReference || s == 0) noise = noisePowers(deconvolver);
            for (std::size_t i = 0; i < static_cast<std::size_t>(m_.microphones); ++i) {
                if (isCancelled_()) return false;
                const auto& recording =
                    m_.recorded[source * static_cast<std::size_t>(m_.microphones) + i];
                auto& path = paths_.emplace_back(pathOf(deconvolver.solve(recording)));
                if (!noise.empty()) path.noise = noise[i];
                loudest_ = std::max(loudest_, path.peak);
            }
        }
        return true;
    }

    std::vector<double> noisePowers(Deconvolver& deconvolver) const
    {
        std::vector<double> powers;
        for (const auto& noise : m_.noise) powers.push_back(deconvolver.noisePower(noise));
        return powers;
    }

    /// The sweep has some energy far below its lowest frequency, for it begins suddenly. Used as
    /// far as the noise there allows it, it leaves nearly no low cut and so nearly no ringing, of
    /// which a response that begins with its sound would lose the half before it.
    void chooseBand(Deconvolver& deconvolver) const
    {
        const double from = m_.sweep.from();
        deconvolver.setBand(from / 2, from);
        if (m_.noise.empty()) return;
        const auto usual = noisePowers(deconvolver);
        deconvolver.setBand(std::min(kLowest, from / 25), std::min(kLowest, from / 25) * 5);
        const auto wide = noisePowers(deconvolver);
        for (std::size_t i = 0; i < wide.size(); ++i)
            if (wide[i] > kAllowed * usual[i]) return deconvolver.setBand(from / 2, from);
    }

    Path pathOf(std::span<const double> circular)
    {
        Path path;
        const auto tail = static_cast<std::ptrdiff_t>(m_.tail);
        path.response = cut(circular, -before_, tail);
        path.peak = peakOf(path.response);
        path.first = firstSound(path.response);
        for (int order = 2; order <= MeasuredResponse::kLastHarmonic; ++order)
            path.harmonics[static_cast<std::size_t>(order - 2)] = harmonicOf(circular, order);
        return path;
    }

    /// From 10 ms before its place to 20 ms before that of the next lower order, its ends faded.
    std::vector<double> harmonicOf(std::span<const double> circular, int order) const
    {
        const auto& sweep = m_.sweep;
        auto x = cut(circular, -frames(sweep.harmonicLead(order) + kHarmonicLead),
                     -frames(sweep.harmonicLead(order - 1) + kHarmonicEnd));
        const auto n = std::min<std::size_t>(static_cast<std::size_t>(frames(kHarmonicLead / 2)),
                                             x.size() / 4);
        for (std::size_t i = 0; i < n; ++i) {
            const double w = std::sin(0.5 * std::numbers::pi * (static_cast<double>(i) + 0.5) /
                                      static_cast<double>(n));
            x[i] *= w * w;
            x[x.size() - 1 - i] *= w * w;
        }
        return x;
    }

    void judge(ResponseFigures& figures)
    {
        figures.clipped = m_.clipped;
        if (!m_.noise.empty()) {
            double loudest = 0;
            for (const auto& noise : m_.noise) {
                double sum = 0;
                for (const float x : noise) sum += double(x) * double(x);
                if (!noise.empty()) loudest = std::max(loudest, sum / double(noise.size()));
            }
            figures.noiseFloor = decibels(loudest);
        }
        for (const auto& path : paths_) {
            if (!isJudged(path)) continue;
            const double latency = static_cast<double>(path.first) - static_cast<double>(before_);
            if (!(figures.latency <= latency)) figures.latency = latency;
            if (!std::isnan(path.noise)) {
                const double ratio = -decibels(path.noise / (path.peak * path.peak));
                if (!(figures.responseToNoise <= ratio)) figures.responseToNoise = ratio;
            }
            const auto end =
                path.first - std::min(path.first, static_cast<std::size_t>(frames(kOnsetLead)));
            const auto from =
                end - std::min(end, static_cast<std::size_t>(frames(kDisturbed - kOnsetLead)));
            const double before =
                peakOf(std::span<const double>(path.response).subspan(from, end - from));
            // Where the noise is not known, it cannot excuse anything.
            const double noise = std::isnan(path.noise) ? 0 : std::sqrt(path.noise);
            // The lows that the sweep leaves out ring before as behind.
            const double ringing = 2 * 1.5 * m_.sweep.from() / rate_;
            figures.isDisturbed |=
                before > 10 * noise && before > path.peak * std::max(kDisturbance, ringing);
        }
    }

    void judgeDistortion(ResponseFigures& figures)
    {
        constexpr double kFundamental = 1000;  // Hz
        const auto& sweep = m_.sweep;
        for (const auto& path : paths_) {
            if (!isJudged(path) || sweep.from() > 0.5 * kFundamental) continue;
            const double linear = thirdOctavePower(path.response, kFundamental, rate_);
            double power = 0, second = 0;
            for (int order = 2; order <= MeasuredResponse::kLastHarmonic; ++order) {
                if (order * kFundamental > 0.4 * rate_) break;
                const auto& harmonic = path.harmonics[static_cast<std::size_t>(order - 2)];
                const double p = thirdOctavePower(harmonic, order * kFundamental, rate_);
                power += p;
                if (order == 2) second = p;
            }
            if (!(linear > 0)) continue;
            const double thd = std::min(100.0, 100 * std::sqrt(power / linear));
            if (!(figures.thd >= thd)) figures.thd = thd;
            // Distortion rings for as long as the sound; behind that it is heard as sound.
            const double lasts =
                BandDecay(path.response, rate_ / 2, rate_).crossing() - double(before_) / rate_;
            if (second > 1e-6 * linear && lasts > sweep.harmonicLead(2)) {
                const double seconds = lasts / sweep.harmonicLead(2) * sweep.seconds();
                if (!(figures.betterSweep >= seconds)) figures.betterSweep = seconds;
            }
            if (isCancelled_()) return;
        }
    }

    /// All paths are moved by the same amount.
    void align(MeasuredResponse& result)
    {
        std::ptrdiff_t shift = 0;
        if (options_.align == Align::MinusLatency) shift = frames(options_.latency);
        if (options_.align == Align::ToOnset && !std::isnan(result.figures.latency))
            shift = static_cast<std::ptrdiff_t>(result.figures.latency) - frames(kOnsetLead);
        const auto tail = static_cast<std::ptrdiff_t>(m_.tail);
        shift = std::clamp(shift, -before_, tail - 1);
        for (auto& path : paths_) {
            const auto from = path.response.begin() + before_ + shift;
            result.paths.emplace_back(from, path.response.end());
            for (std::size_t i = 0; options_.harmonics && i < path.harmonics.size(); ++i)
                result.harmonics[i].push_back(path.harmonics[i]);
        }
    }

    void judgeRoom(MeasuredResponse& result) const
    {
        Paths judged;
        for (std::size_t i = 0; i < paths_.size(); ++i)
            if (isJudged(paths_[i])) judged.push_back(result.paths[i]);
        const auto figures = roomFigures(judged, rate_);
        result.figures.t30 = figures.t30;
        result.figures.c80 = figures.c80;
    }

    /// Where the last octave of the last path has sunk into its noise, faded out before.
    void trim(Paths& paths) const
    {
        double end = 0;
        for (std::size_t i = 0; i < paths.size(); ++i)
            for (int k = 0; k < kOctaves && isJudged(paths_[i]); ++k) {
                const double centre = octaveCentre(k);
                if (centre < m_.sweep.from() || !hasOctave(centre, rate_)) continue;
                if (isCancelled_()) return;
                const auto decay = BandDecay::ofOctave(paths[i], centre, rate_);
                if (decay.falls() > kLeastFall) end = std::max(end, decay.crossing());
            }
        if (!(end > 0)) return;
        const auto length = std::clamp<std::size_t>(static_cast<std::size_t>(end * rate_) + 1, 1,
                                                    paths.front().size());
        const auto fade = std::max<std::size_t>(1, length / 10);
        for (auto& path : paths) {
            path.resize(length);
            for (std::size_t i = 0; i < fade; ++i) {
                const double w = std::cos(0.5 * std::numbers::pi * static_cast<double>(i + 1) /
                                          static_cast<double>(fade));
                path[length - fade + i] *= w * w;
            }
        }
    }

    static void normalise(MeasuredResponse& result)
    {
        double peak = 0;
        for (const auto& path : result.paths) peak = std::max(peak, peakOf(path));
        if (!(peak > 0)) return;
        const double gain = dbToGain(kNormalised) / peak;
        const auto scale = [gain](Paths& paths) {
            for (auto& path : paths)
                for (double& x : path) x *= gain;
        };
        scale(result.paths);
        for (auto& order : result.harmonics) scale(order);
    }

    static constexpr double kLowest = 0.8;    // Hz; below is no sound but an offset
    static constexpr double kAllowed = 1.26;  // 1 dB more noise for a wider band
    static constexpr double kLeastFall = 10;  // dB that tell a decay from steady noise

    const SweepMeasurement& m_;
    const SolveOptions& options_;
    const std::function<bool()>& isCancelled_;
    const double rate_;
    std::ptrdiff_t before_ = 0;  // frames that are kept of what comes before time 0
    std::vector<Path> paths_;
    double loudest_ = 0;  // peak
};

}  // namespace

std::optional<MeasuredResponse> solveMeasurement(const SweepMeasurement& measurement,
                                                 const SolveOptions& options,
                                                 const std::function<bool()>& isCancelled)
{
    return Solver(measurement, options, isCancelled).run();
}

ResponseFacts readResponse(const std::vector<std::vector<double>>& paths, double sampleRate)
{
    ResponseFacts facts;
    facts.t60.fill(ResponseFigures::kNone);
    if (paths.empty() || paths.front().empty()) return facts;
    facts.seconds = static_cast<double>(paths.front().size()) / sampleRate;
    double peak = 0, noise = 0;
    for (const auto& path : paths) peak = std::max(peak, peakOf(path));
    if (!(peak > 0)) return facts;
    std::array<int, kOctaves> counts{};
    for (const auto& path : paths) {
        const double own = peakOf(path);
        if (own < peak * std::pow(10, -kJudged / 20)) continue;
        const auto first = static_cast<double>(firstSound(path));
        if (!(facts.latency <= first)) facts.latency = first;
        noise = std::max(noise, BandDecay(path, sampleRate / 2, sampleRate).noise());
        for (int k = 0; k < kOctaves; ++k) {
            const double centre = octaveCentre(k);
            if (!hasOctave(centre, sampleRate)) continue;
            const auto t = BandDecay::ofOctave(path, centre, sampleRate).reverberationTime();
            if (!t) continue;
            auto& mean = facts.t60[static_cast<std::size_t>(k)];
            const int n = counts[static_cast<std::size_t>(k)]++;
            mean = n ? mean + (*t - mean) / (n + 1) : *t;
        }
    }
    if (noise > 0) facts.noiseFloor = decibels(noise / (peak * peak));
    return facts;
}

}  // namespace quillworks
