// SPDX-License-Identifier: ISC
#include "analysis/spectrum_engine.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "dsp/decibel.h"
#include "dsp/rate_factor.h"
#include "dsp/vector_math.h"

namespace quillworks {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr double kGuard = kSilence * kSilence;  // power
constexpr std::size_t kMostPeaks = 32;

/// dB of a power that is above the guard; below it, the reading knows no weighting or calibration.
float levelOf(double power, double added)
{
    return static_cast<float>(power < kGuard ? kSilenceDb : 10 * std::log10(power) + added);
}

double weightDb(Weighting weighting, double frequency)
{
    constexpr double kLeast = 1e-20;  // at 0 Hz nothing is heard
    return 20 * std::log10(std::max(weightingGain(weighting, frequency), kLeast));
}

/// Means over `octaves` around each bin, or the bin alone where that is less.
std::vector<double> smoothed(const std::vector<double>& powers, double octaves)
{
    const double reach = std::exp2(octaves / 2);
    const std::size_t last = powers.size() - 1;
    std::vector<double> sums(powers.size() + 1), means(powers.size());
    for (std::size_t k = 0; k <= last; ++k) sums[k + 1] = sums[k] + powers[k];
    for (std::size_t k = 0; k <= last; ++k) {
        const auto bin = static_cast<double>(k);
        const auto from = static_cast<std::size_t>(std::lround(bin / reach));
        const auto to = std::min(last, static_cast<std::size_t>(std::lround(bin * reach)));
        means[k] = from == to ? powers[k]
                              : (sums[to + 1] - sums[from]) / static_cast<double>(to + 1 - from);
    }
    return means;
}

void showLevels(VNK::IDisplaySink& sink, const char* key, const std::vector<float>& levels)
{
    if (levels.empty())
        sink.number(key, kNothing);
    else
        sink.numbers(key, levels.data(), static_cast<std::int64_t>(levels.size()));
}

}  // namespace

void SpectrumEngine::prepareMeter(const ProcessSpec&)
{
    // Windows and plans are made by whoever feeds.
    isBuilt_ = false;
    source_.prepare(settings_.source, spec(), channelNames());
}

void SpectrumEngine::releaseMeter() noexcept
{
    isBuilt_ = false;
    spectrum_.release();
    bands_.release();
    sonogram_.release();
    weights_ = weightDb_ = std::vector<double>();
    peaks_ = {};
}

int SpectrumEngine::length() const noexcept
{
    constexpr int kLengths[] = {2048, 8192, 16384, 32768};
    return kLengths[settings_.resolution] * rateFactor(spec().sampleRate);
}

void SpectrumEngine::build(std::int64_t first)
{
    const double rate = spec().sampleRate;
    source_.prepare(settings_.source, spec(), channelNames());
    spectrum_.setAverage(settings_.average);
    spectrum_.setHold(settings_.hold);
    spectrum_.prepare(source_.signals(), source_.isLoudest(), length(), settings_.window, rate);
    spectrum_.begin(first);
    bands_.release();
    if (settings_.mode == SpectrumMode::Bands) buildBands();
    sonogram_.prepare(static_cast<int>(spectrum_.curves()), length(), rate);
    isBuilt_ = true;
    isFigured_ = false;
    weigh();
}

void SpectrumEngine::buildBands()
{
    // Without average, a level of 30 ms: a mean square needs some time.
    bands_.setAverage(settings_.average > 0 ? settings_.average : 0.03);
    bands_.setHold(settings_.hold);
    bands_.prepare(source_.signals(), source_.isLoudest(), settings_.fraction, spec().sampleRate);
}

void SpectrumEngine::weigh()
{
    weights_.resize(static_cast<std::size_t>(length() / 2 + 1));
    weightDb_.resize(weights_.size());
    const double perBin = spec().sampleRate / length();
    for (std::size_t k = 0; k < weights_.size(); ++k) {
        weightDb_[k] = weightDb(settings_.weighting, perBin * static_cast<double>(k));
        weights_[k] = std::pow(10, weightDb_[k] / 10);
    }
}

void SpectrumEngine::begin(std::int64_t first)
{
    if (!isBuilt_) return;
    spectrum_.begin(first);
    bands_.begin();
    sonogram_.begin();
}

void SpectrumEngine::clear()
{
    spectrum_.clear();
    if (isBuilt_ && bands_.isRunning()) buildBands();
    sonogram_.clear();
    isFigured_ = false;
}

void SpectrumEngine::resetHolds()
{
    spectrum_.restart();
    bands_.restart();
}

void SpectrumEngine::set(const SpectrumSettings& s, std::uint32_t stores)
{
    const SpectrumSettings before = settings_;
    const bool isStored = stores != stores_;
    stores_ = stores;
    if (isStored && isBuilt_) store();
    if (s == before) return;
    settings_ = s;
    sonogram_.setRange(s.low, s.high);
    if (isPrepared() && s.source != before.source)
        source_.prepare(s.source, spec(), channelNames());
    if (!isBuilt_) return;
    isFigured_ = false;
    if (s.source != before.source || s.resolution != before.resolution ||
        s.window != before.window) {
        isBuilt_ = false;
        spectrum_.clear();
        bands_.release();
        sonogram_.clear();
        return;
    }
    spectrum_.setAverage(s.average);
    spectrum_.setHold(s.hold);
    if (s.mode != SpectrumMode::Bands)
        bands_.release();
    else if (!bands_.isRunning() || s.fraction != before.fraction)
        buildBands();
    bands_.setAverage(s.average > 0 ? s.average : 0.03);
    bands_.setHold(s.hold);
    if (s.weighting != before.weighting) weigh();
    if (s.mode != SpectrumMode::Sonogram) sonogram_.clear();
}

void SpectrumEngine::take(const float* const* x, int n)
{
    const std::int64_t first = next() - n;
    if (!isBuilt_) build(first);
    const float* const* signals = source_.signalsOf(x, n);
    spectrum_.take(signals, n, [&] {
        isFigured_ = false;
        if (settings_.mode == SpectrumMode::Sonogram)
            sonogram_.add(spectrum_.latest(), spectrum_.frames().end());
    });
    if (bands_.isRunning()) bands_.take(signals, n, first);
}

void SpectrumEngine::figure()
{
    isFigured_ = true;
    peaks_.assign(spectrum_.curves(), {});
    for (std::size_t c = 0; c < peaks_.size(); ++c) {
        peaks_[c] = peaksOf(spectrum_.curve(c), weights_, length(), spec().sampleRate,
                            settings_.window, kMostPeaks);
        for (auto& peak : peaks_[c])
            peak.level += weightDb(settings_.weighting, peak.frequency) + settings_.offset;
        std::stable_sort(peaks_[c].begin(), peaks_[c].end(),
                         [](const auto& a, const auto& b) { return a.level > b.level; });
    }
    level_ = double(levelOf(spectrum_.power(weights_), settings_.offset));
}

void SpectrumEngine::publishMeter(MeterSlots& meters) noexcept
{
    SpectrumPeak highest{kNothing, kNothing};
    double level = kNothing;
    if (isBuilt_ && spectrum_.hasFigures()) try {
            if (!isFigured_) figure();
            for (const auto& peaks : peaks_)
                if (!peaks.empty() && !(peaks[0].level <= highest.level)) highest = peaks[0];
            level = level_;
        } catch (...) {  // no memory: no readings
            isFigured_ = false;
        }
    meters.publish("PkFr"_tag, static_cast<float>(highest.frequency));
    meters.publish("PkLv"_tag, static_cast<float>(highest.level));
    meters.publish("Lvl "_tag, static_cast<float>(level));
}

void SpectrumEngine::store()
{
    if (spectrum_.hasFigures()) {
        spectrumReference_ = {length(), spec().sampleRate, source_.curves(), {}};
        for (std::size_t c = 0; c < spectrum_.curves(); ++c)
            spectrumReference_.powers.push_back(spectrum_.curve(c));
    }
    if (bands_.isRunning()) {
        bandReference_ = {settings_.fraction, spec().sampleRate, source_.curves(), {}};
        for (std::size_t c = 0; c < bands_.curves(); ++c)
            bandReference_.powers.push_back(bands_.curve(c));
    }
}

const std::vector<double>* SpectrumEngine::Reference::find(std::size_t curve,
                                                           const std::string& name) const noexcept
{
    return curve < names.size() && names[curve] == name ? &powers[curve] : nullptr;
}

double SpectrumEngine::densityOverSine() const noexcept
{
    const auto& frames = spectrum_.frames();
    const double sum = frames.windowSum();
    return sum * sum / (2 * spec().sampleRate * frames.windowSquares());
}

std::vector<float> SpectrumEngine::spectrumLevels(const std::vector<double>& powers) const
{
    const bool isDensity = settings_.reading == SpectrumReading::Density;
    const double density = 10 * std::log10(densityOverSine());
    const auto means = settings_.smoothing > 0 ? smoothed(powers, settings_.smoothing) : powers;
    std::vector<float> levels(powers.size());
    std::vector<double> decibels(levels.size());
    vec::decibelsFromPower(decibels.data(), means.data(), 1e-300,
                           static_cast<int>(decibels.size()));
    for (std::size_t k = 0; k < levels.size(); ++k) {
        levels[k] = static_cast<float>(
            means[k] < kGuard ? kSilenceDb : decibels[k] + weightDb_[k] + settings_.offset);
        if (!isDensity) continue;
        const bool isEnd = k == 0 || k + 1 == levels.size();  // whose power is there once
        levels[k] += static_cast<float>(density + (isEnd ? 10 * std::log10(2) : 0));
    }
    return levels;
}

std::vector<float> SpectrumEngine::bandLevels(const std::vector<double>& powers) const
{
    std::vector<float> levels(bands_.bands().size(), static_cast<float>(kNothing));
    for (std::size_t b = 0; b < std::min(levels.size(), powers.size()); ++b)
        levels[b] = levelOf(powers[b], settings_.offset +
                                           weightDb(settings_.weighting, bands_.bands()[b].centre));
    return levels;
}

void SpectrumEngine::showMeter(int index, VNK::IDisplaySink& sink) const
{
    constexpr void (SpectrumEngine::*kShow[])(VNK::IDisplaySink&) const = {
        &SpectrumEngine::showSpectrum, &SpectrumEngine::showBands, &SpectrumEngine::showSonogram};
    (this->*kShow[index])(sink);
}

void SpectrumEngine::showSpectrum(VNK::IDisplaySink& sink) const
{
    const int points = isPrepared() ? length() : 0;
    sink.number("length", points);
    std::vector<double> frequencies;
    for (int k = 0; 2 * k <= points && points > 0; ++k)
        frequencies.push_back(k * spec().sampleRate / points);
    sink.numbers("frequency", frequencies.data(), static_cast<std::int64_t>(frequencies.size()));
    sink.beginList("channels");
    const bool hasFigures = isBuilt_ && spectrum_.hasFigures();
    for (std::size_t c = 0; isPrepared() && c < source_.curves().size(); ++c) {
        const auto& name = source_.curves()[c];
        const auto* const reference = settings_.compares && hasFigures &&
                                              spectrumReference_.length == points &&
                                              spectrumReference_.rate == spec().sampleRate
                                          ? spectrumReference_.find(c, name)
                                          : nullptr;
        const auto shown = [&](const std::vector<double>& powers) {
            return powers.empty() ? std::vector<float>() : spectrumLevels(powers);
        };
        sink.beginObject(nullptr);
        sink.text("name", name.c_str());
        showLevels(sink, "level", hasFigures ? shown(spectrum_.curve(c)) : std::vector<float>());
        showLevels(sink, "hold", hasFigures ? shown(spectrum_.held(c)) : std::vector<float>());
        showLevels(sink, "reference", reference ? shown(*reference) : std::vector<float>());
        sink.beginList("peaks");
        for (std::size_t p = 0; hasFigures && c < peaks_.size() && p < peaks_[c].size(); ++p) {
            sink.beginObject(nullptr);
            sink.number("frequency", peaks_[c][p].frequency);
            sink.number("level", peaks_[c][p].level);
            sink.end();
        }
        sink.end();
        sink.end();
    }
    sink.end();
}

void SpectrumEngine::showBands(VNK::IDisplaySink& sink) const
{
    const bool isRunning = isBuilt_ && bands_.isRunning();
    std::vector<double> centres;
    if (isPrepared())
        for (const auto& band : bandsOf(settings_.fraction, spec().sampleRate))
            centres.push_back(band.centre);
    sink.numbers("centre", centres.data(), static_cast<std::int64_t>(centres.size()));
    sink.beginList("channels");
    for (std::size_t c = 0; isPrepared() && c < source_.curves().size(); ++c) {
        const auto& name = source_.curves()[c];
        const auto* const reference =
            settings_.compares && isRunning && bandReference_.length == settings_.fraction
                ? bandReference_.find(c, name)
                : nullptr;
        const auto shown = [&](const std::vector<double>& powers) {
            return powers.empty() ? std::vector<float>() : bandLevels(powers);
        };
        sink.beginObject(nullptr);
        sink.text("name", name.c_str());
        showLevels(sink, "level", isRunning ? shown(bands_.curve(c)) : std::vector<float>());
        showLevels(sink, "hold", isRunning ? shown(bands_.held(c)) : std::vector<float>());
        showLevels(sink, "reference", reference ? shown(*reference) : std::vector<float>());
        sink.end();
    }
    sink.end();
}

void SpectrumEngine::showSonogram(VNK::IDisplaySink& sink) const
{
    std::vector<double> frequencies(Sonogram::kRows), times;
    std::vector<double> added(Sonogram::kRows, settings_.offset);
    const bool isDensity = isBuilt_ && settings_.reading == SpectrumReading::Density;
    const double density = isDensity ? 10 * std::log10(densityOverSine()) : 0;
    for (std::size_t r = 0; r < frequencies.size(); ++r) {
        frequencies[r] = sonogram_.frequency(static_cast<int>(r));
        added[r] += weightDb(settings_.weighting, frequencies[r]);
    }
    for (const auto& column : sonogram_.columns()) times.push_back(column.time);
    sink.numbers("frequency", frequencies.data(), Sonogram::kRows);
    sink.numbers("time", times.data(), static_cast<std::int64_t>(times.size()));
    sink.beginList("channels");
    std::vector<float> levels(Sonogram::kRows);
    for (std::size_t c = 0; isPrepared() && c < source_.curves().size(); ++c) {
        sink.beginObject(nullptr);
        sink.text("name", source_.curves()[c].c_str());
        sink.beginList("level");
        for (const auto& column : sonogram_.columns()) {
            for (std::size_t r = 0; r < levels.size(); ++r) {
                const auto level = double(column.decibels[c * Sonogram::kRows + r]);
                const double shown = level <= kSilenceDb ? kSilenceDb : level + added[r];
                levels[r] = static_cast<float>(shown + density);
            }
            sink.numbers(nullptr, levels.data(), Sonogram::kRows);
        }
        sink.end();
        sink.end();
    }
    sink.end();
}

}  // namespace quillworks
