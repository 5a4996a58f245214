// SPDX-License-Identifier: ISC
#include "distortion/digitiser.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr SincDesign kKernel{.taps = kEdgeTaps, .phases = 256, .beta = 9, .cut = 0.92};
constexpr SincDesign kStepKernel{
    .taps = kEdgeTaps, .phases = 256, .beta = 9, .cut = 0.92, .kind = SincKind::Increment};
constexpr double kFadeSeconds = 0.01;
constexpr double kTolerance = 1e-6;  // of a range, where a glide ends
constexpr double kOctaves = 8, kBits = 23;

static_assert(SampleClock::kMaxEdges <= kMaxQuantised);
static_assert(kDrawnFrames >= kSubBlock + kStepTaps);
// An edge is reported when the last sample that its reading needs has come, and its step, drawn
// around the middle of an increment row one frame later, is centred kLatency behind the edge.
static_assert(SampleClock::kDelay == kEdgeTaps / 2);
static_assert(Digitiser::kLatency == 2 * SampleClock::kDelay);

}  // namespace

void Digitiser::prepare(double sampleRate, int channels, double glideHalfLife)
{
    sampleRate_ = sampleRate;
    taps_ = SincTable<double>::shared(kKernel);
    increments_ = SincTable<double>::shared(kStepKernel);
    isClocked_.prepare(sampleRate, kFadeSeconds);
    law_.prepare(sampleRate, kFadeSeconds);
    period_.prepare(glideHalfLife, kTolerance * kOctaves);
    steps_.prepare(glideHalfLife, kTolerance * kBits);
    jitter_.prepare(glideHalfLife, kTolerance);
    dither_.prepare(glideHalfLife, kTolerance);
    channels_.resize(static_cast<std::size_t>(channels));
    for (auto& ch : channels_) ch.past.prepare(kLatency, kSubBlock);
    found_.resize(channels_.size());
    pasts_.resize(channels_.size());
    values_.clear();
    heights_.clear();
    sums_.clear();
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        values_.push_back(found_[c].value);
        heights_.push_back(found_[c].step);
        sums_.push_back(channels_[c].sums);
    }
    rows_.require(static_cast<std::size_t>(kRowsAtOnce * kRowStride));
}

void Digitiser::reset() noexcept
{
    isClocked_.snap();
    law_.snap();
    for (auto* course : {&period_, &jitter_, &steps_, &dither_}) course->snap();
    clock_.reset();
    frames_ = 0;
    for (auto& ch : channels_) {
        ch.past.reset();
        ch.held = ch.level = 0;
        ch.age = kStepTaps;
        vec::clear(ch.sums, kDrawnFrames);
    }
}

void Digitiser::setClock(bool isOn, double rate) noexcept
{
    isClocked_.target(isOn);
    if (isOn) period_.target(std::log2(rate));  // a clock that goes out keeps its rate
}

void Digitiser::setQuantiser(QuantiserLaw law, double bits) noexcept
{
    law_.target(law);
    steps_.target(bits);
}

void Digitiser::follow(GridSlice slice) noexcept
{
    const bool starts = isClocked_.next(slice) && isClocked_.present();
    law_.next(slice);
    if (starts) period_.snap();
    const auto share = [](double x) { return x; };
    period_.follow(slice, [this](double octave) { return sampleRate_ / std::exp2(octave); });
    jitter_.follow(slice, share);
    steps_.follow(slice, [](double bits) { return std::exp2(bits - 1); });
    dither_.follow(slice, share);
    if (law_.isFading()) law_.fade().weights(fade_, slice.frames);
    if (starts) startClock(slice);
}

/// The converter comes in as if it had been holding what is played just now.
void Digitiser::startClock(GridSlice slice) noexcept
{
    clock_.startNow();
    for (auto& ch : channels_) {
        double now = ch.past.end()[-slice.frames - kLatency];
        quantise(law_.present(), &now, 1, {steps_.of(slice), nullptr, 0, 0});
        ch.held = ch.level = now;
        ch.age = kStepTaps;
        vec::clear(ch.sums, kDrawnFrames);
    }
}

/// The slice's edges, and what all channels share of them.
void Digitiser::layEdges(GridSlice slice) noexcept
{
    if (period_.isConstant() && jitter_.is(0))
        clock_.next(*period_.of(slice), slice.frames, edges_);
    else
        clock_.next(period_.of(slice), jitter_.of(slice), slice.frames, edges_);
    for (int i = 0; i < edges_.count; ++i) {
        const int frame = edges_.frame[i];
        tapPlace_[i] = edges_.fraction[i] * kKernel.phases;
        incrementPlace_[i] = kKernel.phases - tapPlace_[i];
        edgeSteps_[i] = steps_.of(slice)[frame];
        edgeDither_[i] = dither_.of(slice)[frame];
        edgeFade_[i] = fade_[frame];
    }
}

/// Quantises n samples, by two laws while one follows the other.
void Digitiser::convert(double* x, int n, const double* steps, const double* dither,
                        const double* fade, std::uint32_t index, int channel) const noexcept
{
    const QuantiserBlock block{steps, dither_.is(0) ? nullptr : dither, index,
                               static_cast<std::uint32_t>(channel) + 1};
    if (!law_.isFading()) return quantise(law_.present(), x, n, block);
    double old[kMaxQuantised];
    std::copy_n(x, n, old);
    quantise(law_.leaving(), old, n, block);
    quantise(law_.present(), x, n, block);
    for (int i = 0; i < n; ++i) x[i] = old[i] + (x[i] - old[i]) * fade[i];
}

/// What the converter finds at the edges, and the steps from value to value.
void Digitiser::drawEdges(int n) noexcept
{
    const int count = edges_.count;
    for (std::size_t c = 0; c < channels_.size(); ++c) pasts_[c] = channels_[c].past.end() - n;
    digitiserKernels.read(taps_->row(0), {count, edges_.frame, tapPlace_}, pasts_.data(),
                          static_cast<int>(channels_.size()), values_.data());
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        auto& [value, step] = found_[c];
        convert(value, count, edgeSteps_, edgeDither_, edgeFade_, edges_.index,
                static_cast<int>(c));
        double held = channels_[c].held;
        for (int i = 0; i < count; ++i) {
            step[i] = value[i] - held;
            held = value[i];
        }
    }
    digitiserKernels.draw(increments_->row(0), {count, edges_.frame, incrementPlace_},
                          heights_.data(), static_cast<int>(channels_.size()), sums_.data(),
                          rows_.data());
}

/// Frames of the slice until an edge finds the last step complete and no other begun: what rounding
/// has added to the sum goes then. More than the slice has, if none does.
int Digitiser::completion(std::size_t channel, int n) const noexcept
{
    static_assert(kStepTaps > kSubBlock, "a step of the slice is not complete in it");
    for (int i = 0; i < edges_.count; ++i) {
        if (edges_.frame[i] + channels_[channel].age >= kStepTaps) return edges_.frame[i] + 1;
        if (found_[channel].step[i] != 0) break;
    }
    return n + 1;
}

/// What the clock makes of the past of one or two channels, once the edges have been drawn.
template <std::size_t count>
void Digitiser::play(std::size_t first, int n, double* const* out) noexcept
{
    std::array<double, count> level;
    std::array<const double*, count> sums;
    std::array<int, count> end;
    for (std::size_t c = 0; c < count; ++c) {
        level[c] = channels_[first + c].level;
        sums[c] = channels_[first + c].sums;
        end[c] = completion(first + c, n);
    }
    // Each sum waits for the one before: channels side by side take no longer than one.
    const int together = std::min(n, *std::min_element(end.begin(), end.end()));
    for (int i = 0; i < together; ++i)
        for (std::size_t c = 0; c < count; ++c) out[c][i] = level[c] += sums[c][i];
    for (std::size_t c = 0; c < count; ++c) {
        auto& ch = channels_[first + c];
        double now = level[c];
        int i = together;
        for (; i < std::min(n, end[c]); ++i) out[c][i] = now += sums[c][i];
        if (end[c] <= n) now = ch.held;
        for (; i < n; ++i) out[c][i] = now += sums[c][i];
        ch.level = now;

        const auto& [value, step] = found_[first + c];
        int latest = edges_.count - 1;
        while (latest >= 0 && step[latest] == 0) --latest;
        ch.age = std::min(n + (latest < 0 ? ch.age : -edges_.frame[latest]), kStepTaps);
        if (edges_.count > 0) ch.held = value[edges_.count - 1];
        std::copy(ch.sums + n, ch.sums + kDrawnFrames, ch.sums);
        std::fill(ch.sums + kDrawnFrames - n, ch.sums + kDrawnFrames, 0.0);
    }
}

void Digitiser::process(double* const* x, GridSlice slice) noexcept
{
    const int n = slice.frames;
    for (std::size_t c = 0; c < channels_.size(); ++c)
        std::copy_n(x[c], n, channels_[c].past.append(n));
    follow(slice);
    const bool isFading = isClocked_.isFading();
    const bool isPlayed = isClocked_.present() || isFading;
    const bool isDirect = !isClocked_.present() || isFading;
    if (isPlayed) {
        layEdges(slice);
        drawEdges(n);
    }
    for (std::size_t c = 0; isDirect && c < channels_.size(); ++c) {
        std::copy_n(channels_[c].past.end() - n - kLatency, n, x[c]);
        convert(x[c], n, steps_.of(slice), dither_.of(slice), fade_, frames_, static_cast<int>(c));
    }
    for (std::size_t first = 0; isPlayed && first < channels_.size(); first += 2) {
        const bool isPair = first + 1 < channels_.size();
        double played[2][kSubBlock];
        double* out[2] = {played[0], played[1]};
        if (!isDirect) std::copy_n(x + first, isPair ? 2 : 1, out);
        if (isPair)
            play<2>(first, n, out);
        else
            play<1>(first, n, out);
        for (std::size_t c = first; isDirect && c < std::min(first + 2, channels_.size()); ++c) {
            double* const clocked = out[c - first];
            if (isClocked_.present()) {
                isClocked_.fade().mix(clocked, x[c], n);
                std::copy_n(clocked, n, x[c]);
            } else {
                isClocked_.fade().mix(x[c], clocked, n);
            }
        }
    }
    frames_ += static_cast<std::uint32_t>(n);
    isClocked_.advance(n);
    law_.advance(n);
}

}  // namespace quillworks
