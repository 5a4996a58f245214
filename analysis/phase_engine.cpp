// SPDX-License-Identifier: ISC
#include "analysis/phase_engine.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "framework/speakers.h"

namespace quillworks {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr double kSilence = 1e-12;  // mean square
constexpr double kSettling = 0.1;   // seconds before a correlation may be the lowest
constexpr double kConfident = 0.2;  // of a delay
constexpr double kFarthest = 144;   // dB

double decibels(double ratio)
{
    return std::clamp(10 * std::log10(std::max(ratio, 0.0)), -kFarthest, kFarthest);
}

}  // namespace

void PhaseEngine::prepareMeter(const ProcessSpec& spec)
{
    // What is large is made by whoever feeds.
    isBuilt_ = false;
    delay_.release();
    matrix_.prepare(spec.channels, spec.sampleRate);
    setTimes();
    choosePair();
}

void PhaseEngine::releaseMeter() noexcept
{
    isBuilt_ = false;
    pair_.reset();
    bands_.release();
    delay_.release();
    field_.release();
    matrix_.release();
}

void PhaseEngine::choosePair() noexcept
{
    const auto pairs = ChannelPairs::of(spec().layout);
    pair_.reset();
    if (settings_.pair < pairs.count) pair_ = pairs.pairs[static_cast<std::size_t>(settings_.pair)];
}

void PhaseEngine::setTimes() noexcept
{
    correlation_.prepare(spec().sampleRate, settings_.time);
    matrix_.setTime(settings_.time);
    bands_.setTime(settings_.time);
}

void PhaseEngine::build(std::int64_t first)
{
    const double rate = spec().sampleRate;
    bands_.prepare(rate, settings_.fraction);
    bands_.begin(first);
    field_.prepare(rate);
    field_.clear(settings_.gain);
    isBuilt_ = true;
}

void PhaseEngine::begin(std::int64_t first)
{
    matrix_.begin();
    if (!isBuilt_) return;
    bands_.begin(first);
    delay_.begin(first);
    field_.begin();
}

void PhaseEngine::clear()
{
    matrix_.clear();
    clearPair();
}

void PhaseEngine::clearPair()
{
    correlation_.reset();
    hasLowest_ = false;
    pairFrames_ = 0;
    lowestFrom_ = std::llround(kSettling * spec().sampleRate);
    bands_.clear();
    delay_.clear();
    if (isBuilt_) field_.clear(settings_.gain);
}

void PhaseEngine::resetHolds()
{
    hasLowest_ = correlation_.hasValue();
    const double now = correlation_.value();
    lowest_ = now * std::abs(now);
    lowestFrom_ = 0;
}

void PhaseEngine::set(const PhaseSettings& s)
{
    if (s == settings_) return;
    const PhaseSettings before = settings_;
    settings_ = s;
    if (!isPrepared()) return;
    if (s.time != before.time) setTimes();
    if (s.pair != before.pair) {
        choosePair();
        clearPair();
        if (isBuilt_) begin(next());
    }
    if (!isBuilt_) return;
    if (s.fraction != before.fraction) {
        bands_.prepare(spec().sampleRate, s.fraction);
        bands_.begin(next());
    }
    field_.setGain(s.autoGain, s.gain);
    if (!s.findsDelay) delay_.release();
}

void PhaseEngine::take(const float* const* x, int n)
{
    const std::int64_t first = next() - n;
    matrix_.take(x, n, first);
    if (!pair_) return;
    if (!isBuilt_) {
        build(first);
        field_.setGain(settings_.autoGain, settings_.gain);
    }
    if (settings_.findsDelay && !delay_.isPrepared()) {
        delay_.prepare(spec().sampleRate);
        delay_.begin(first);
    }
    const float* const channels[] = {x[pair_->first], x[pair_->second]};
    follow(channels[0], channels[1], n);
    bands_.take(channels, n);
    field_.take(channels[0], channels[1], n);
    if (settings_.findsDelay) delay_.take(channels[0], channels[1], n);
}

void PhaseEngine::follow(const float* left, const float* right, int n) noexcept
{
    for (int i = 0; i < n; ++i) {
        correlation_.add(left + i, right + i, 1);
        if (++pairFrames_ <= lowestFrom_ || !correlation_.hasValue()) continue;
        // Compared by squares, which needs neither root nor quotient.
        const double xy = correlation_.xy(), both = correlation_.xx() * correlation_.yy();
        if (hasLowest_ && xy * std::abs(xy) >= lowest_ * both) continue;
        lowest_ = xy * std::abs(xy) / both;
        hasLowest_ = true;
    }
}

bool PhaseEngine::isSilent() const noexcept
{
    return correlation_.xx() < kSilence && correlation_.yy() < kSilence;
}

void PhaseEngine::publishMeter(MeterSlots& meters) noexcept
{
    double value = kNothing, lowest = kNothing, balance = kNothing, mono = kNothing,
           side = kNothing, delay = kNothing, confidence = kNothing, polarity = kNothing;
    if (pair_ && isBuilt_) {
        const double xx = correlation_.xx(), yy = correlation_.yy(), xy = correlation_.xy();
        if (correlation_.hasValue()) value = correlation_.value();
        if (hasLowest_)
            lowest = std::clamp(std::copysign(std::sqrt(std::abs(lowest_)), lowest_), -1.0, 1.0);
        if (!isSilent()) {
            balance = decibels(xx / yy);
            mono = std::min(decibels((xx + yy + 2 * xy) / (2 * (xx + yy))), 0.0);
            side = decibels((xx + yy - 2 * xy) / std::max(xx + yy + 2 * xy, 0.0));
        }
        if (const auto& found = delay_.result()) {
            confidence = found->confidence;
            if (confidence >= kConfident && correlation_.hasValue()) {
                delay = 1000 * found->samples / spec().sampleRate;
                polarity = found->polarity;
            }
        }
    }
    meters.publish("Corr"_tag, static_cast<float>(value));
    meters.publish("MinC"_tag, static_cast<float>(lowest));
    meters.publish("Bal "_tag, static_cast<float>(balance));
    meters.publish("Mono"_tag, static_cast<float>(mono));
    meters.publish("SMRt"_tag, static_cast<float>(side));
    meters.publish("Dely"_tag, static_cast<float>(delay));
    meters.publish("DlyC"_tag, static_cast<float>(confidence));
    meters.publish("Pola"_tag, static_cast<float>(polarity));
}

void PhaseEngine::showMeter(int index, VNK::IDisplaySink& sink) const
{
    constexpr void (PhaseEngine::*kShow[])(VNK::IDisplaySink&)
        const = {&PhaseEngine::showField, &PhaseEngine::showBands, &PhaseEngine::showMatrix,
                 &PhaseEngine::showRecent};
    (this->*kShow[index])(sink);
}

void PhaseEngine::showField(VNK::IDisplaySink& sink) const
{
    const bool isThere = pair_ && isBuilt_;
    sink.number("gain", isThere ? field_.gain() : kNothing);
    sink.beginList("points");
    if (isThere)
        for (const auto& point : field_.points(settings_.persistence)) {
            const double xy[] = {point.x, point.y};
            sink.numbers(nullptr, xy, 2);
        }
    sink.end();
}

void PhaseEngine::showRecent(VNK::IDisplaySink& sink) const
{
    if (pair_ && isBuilt_)
        field_.showRecent(sink);
    else
        sink.number("frames", kNothing);
}

void PhaseEngine::showBands(VNK::IDisplaySink& sink) const
{
    const auto bands = isPrepared() ? correlationBands(settings_.fraction, spec().sampleRate)
                                    : std::vector<Band>();
    auto values = pair_ && isBuilt_ ? bands_.values() : std::vector<BandCorrelation::Value>();
    values.resize(bands.size(), {kNothing, kNothing, false});
    const auto list = [&](const char* key, auto&& of) {
        std::vector<double> numbers;
        for (std::size_t b = 0; b < bands.size(); ++b) numbers.push_back(of(b));
        sink.numbers(key, numbers.data(), static_cast<std::int64_t>(numbers.size()));
    };
    list("centre", [&](std::size_t b) { return bands[b].centre; });
    list("value", [&](std::size_t b) { return values[b].correlation; });
    list("coherence", [&](std::size_t b) { return values[b].coherence; });
    sink.beginList("valid");
    for (const auto& value : values) sink.flag(nullptr, value.isValid);
    sink.end();
}

void PhaseEngine::showMatrix(VNK::IDisplaySink& sink) const
{
    sink.beginList("channels");
    for (int c = 0; c < matrix_.channels(); ++c) {
        sink.beginObject(nullptr);
        sink.text("name", channelNames()[static_cast<std::size_t>(c)].c_str());
        sink.end();
    }
    sink.end();
    sink.beginList("value");
    for (int a = 0; a < matrix_.channels(); ++a) {
        std::vector<double> row;
        for (int b = 0; b < matrix_.channels(); ++b) row.push_back(matrix_.value(a, b));
        sink.numbers(nullptr, row.data(), static_cast<std::int64_t>(row.size()));
    }
    sink.end();
}

}  // namespace quillworks
