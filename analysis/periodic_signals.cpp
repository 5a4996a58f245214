// SPDX-License-Identifier: ISC
#include "analysis/periodic_signals.h"

#include <cmath>
#include <complex>
#include <numbers>
#include <optional>

#include "dsp/fft.h"
#include "dsp/random.h"
#include "dsp/shared_tables.h"

namespace quillworks {
namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr double kLowest = 20, kHighest = 20000;  // Hz
constexpr double kHighestOfRate = 0.45;
constexpr int kRounds = 20;
constexpr double kClip = 1.9;  // times the RMS
constexpr int kFinely = 8;     // points per sample for the peak

struct Cancelled {};

/// A spectrum and the transforms between it and one period.
class Period {
public:
    Period(int length, const std::function<bool()>& isCancelled)
        : bins_(std::size_t(length)), signal_(std::size_t(length)), isCancelled_(isCancelled)
    {
        fft_.setSize(static_cast<std::uint32_t>(length), FftPlanning::Repeatable);
        if (!fft_.isReady()) throw std::bad_alloc();
    }

    int size() const noexcept { return static_cast<int>(signal_.size()); }
    void setLine(int k, std::complex<double> value) noexcept
    {
        bins_[2 * std::size_t(k)] = value.real();
        bins_[2 * std::size_t(k) + 1] = value.imag();
    }
    std::complex<double> line(int k) const noexcept
    {
        return {bins_[2 * std::size_t(k)], bins_[2 * std::size_t(k) + 1]};
    }
    double& operator[](int i) noexcept { return signal_[std::size_t(i)]; }

    void toSignal()
    {
        run([&] { fft_.inverse(bins_.data(), signal_.data()); });
    }
    void toLines()
    {
        run([&] { fft_.forward(signal_.data(), bins_.data()); });
    }
    double rms() const noexcept
    {
        double sum = 0;
        for (std::size_t i = 0; i < signal_.size(); ++i) sum += signal_[i] * signal_[i];
        return std::sqrt(sum / double(signal_.size()));
    }

private:
    template <class F> void run(F&& f)
    {
        if (isCancelled_()) throw Cancelled();
        f();
    }

    Fft<double> fft_;
    AlignedBuffer<double> bins_, signal_;
    const std::function<bool()>& isCancelled_;
};

/// Peak of the spectrum's signal between its samples: the signal moved by eighths of a sample, and
/// a parabola through the points beside each crest. Leaves another signal and spectrum behind.
double peakBetween(Period& period)
{
    const int n = period.size();
    std::vector<double> fine(std::size_t(n) * kFinely);
    for (int j = 0; j < kFinely; ++j) {
        if (j > 0)
            for (int k = 1; k < n / 2; ++k)
                period.setLine(k,
                               period.line(k) * std::polar(1.0, kTurn * k / (double(n) * kFinely)));
        period.toSignal();
        for (int i = 0; i < n; ++i) fine[std::size_t(i * kFinely + j)] = std::abs(period[i]);
    }
    double peak = 0, before = fine.back();
    for (std::size_t i = 0; i < fine.size(); ++i) {
        const double here = fine[i], after = fine[i + 1 < fine.size() ? i + 1 : 0];
        if (here >= before && here >= after) {
            const double bend = before - 2 * here + after, slope = after - before;
            peak = std::max(peak, here - (bend < 0 ? slope * slope / (8 * bend) : 0));
        }
        before = here;
    }
    return peak;
}

/// What the period's lines sound like, at a peak of 1. Without lines: silence.
PeriodicSignal finished(Period& period)
{
    PeriodicSignal result;
    period.toSignal();
    for (int i = 0; i < period.size(); ++i) result.samples.push_back(period[i]);
    result.rms = period.rms();
    const double peak = peakBetween(period);
    if (!(peak > 0)) return {std::move(result.samples), 1};
    for (double& x : result.samples) x /= peak;
    result.rms /= peak;
    return result;
}

PeriodicSignal makeMultitone(Period period, double unit, double top)
{
    std::vector<int> lines;
    for (int third = -17; third <= 13; ++third) {
        const double centre = 1000 * std::pow(10, third / 10.0);
        const int line = 2 * static_cast<int>(std::round((centre / unit - 1) / 2)) + 1;
        if (centre > top || line < 1 || (!lines.empty() && lines.back() == line)) continue;
        lines.push_back(line);
    }
    const double n = double(lines.size());
    for (std::size_t k = 0; k < lines.size(); ++k)
        period.setLine(lines[k],
                       std::polar(1.0, std::numbers::pi * double(k + 1) * double(k + 1) / n));
    return finished(period);
}

PeriodicSignal makePink(Period period, double unit, double top)
{
    const int first = static_cast<int>(std::ceil(kLowest / unit));
    const int last = static_cast<int>(top / unit);
    std::uint64_t random = 1;
    const auto amplitude = [](int k) { return 1 / std::sqrt(double(k)); };
    for (int k = first; k <= last; ++k) {
        const double phase = static_cast<double>(splitmix64(random) >> 11) * 0x1p-53;
        period.setLine(k, std::polar(amplitude(k), kTurn * phase));
    }
    const int most = period.size() / 2 - 1;
    for (int round = 0; round < kRounds; ++round) {
        period.toSignal();
        const double limit = kClip * period.rms();
        for (int i = 0; i < period.size(); ++i) period[i] = std::clamp(period[i], -limit, limit);
        period.toLines();
        period.setLine(0, 0);
        for (int k = 1; k <= most; ++k) {
            const bool isLine = k >= first && k <= last;
            period.setLine(k, isLine ? std::polar(amplitude(k), std::arg(period.line(k))) : 0);
        }
    }
    return finished(period);
}

}  // namespace

int rateMultiple(double sampleRate) noexcept
{
    return sampleRate < 50000 ? 1 : sampleRate < 100000 ? 2 : sampleRate < 200000 ? 4 : 8;
}

std::shared_ptr<const PeriodicSignals> PeriodicSignals::of(double sampleRate,
                                                           const std::function<bool()>& isCancelled)
{
    auto& tables = SharedTables<double, PeriodicSignals>::instance();
    try {
        return tables.get(sampleRate, [&] {
            const int length = periodicLength(sampleRate);
            const double unit = sampleRate / length;
            const double top = std::min(kHighest, kHighestOfRate * sampleRate);
            PeriodicSignals made;
            made.rate = sampleRate;
            made.multitone = makeMultitone(Period(length, isCancelled), unit, top);
            made.pink = makePink(Period(length, isCancelled), unit, top);
            return made;
        });
    } catch (const Cancelled&) {
        return nullptr;
    }
}

}  // namespace quillworks
