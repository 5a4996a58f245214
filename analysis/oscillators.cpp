// SPDX-License-Identifier: ISC
#include "analysis/oscillators.h"

#include <cmath>
#include <cstring>
#include <numbers>

#include "dsp/sine.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kHalfWay = 0.01;  // seconds
constexpr double kTurn = 2 * std::numbers::pi;

double fraction(double x) noexcept
{
    return x - std::floor(x);
}

}  // namespace

void sinesOfCycles(double* x, int n) noexcept
{
    constexpr double kToWhole = 0x1.8p52;  // adding it leaves no room for a fraction
    for (int i = 0; i < n; ++i) {
        const double halfTurns = 2 * (x[i] - ((x[i] + kToWhole) - kToWhole));
        const double size = std::abs(halfTurns);
        const double rest = 1 - size;
        x[i] = std::copysign(sinPi(size < rest ? size : rest), halfTurns);
    }
}

void FrequencyGlide::prepare(double sampleRate) noexcept
{
    rate_ = sampleRate;
    octaves_.prepareHalfLife(std::max(1.0, std::trunc(sampleRate * kHalfWay / kSubBlock)));
}

void FrequencyGlide::target(double frequency) noexcept
{
    if (frequency == frequency_) return;
    frequency_ = frequency;
    octaves_.target(std::log2(frequency));
}

void FrequencyGlide::snap() noexcept
{
    octaves_.snap();
    current_ = frequency_;
}

Ramp<double> FrequencyGlide::next() noexcept
{
    const double from = current_;
    if (octaves_.isGliding()) {
        const double to = octaves_.next(kWholeSubBlock).to;
        current_ = to == octaves_.target() ? frequency_ : std::exp2(to);
    }
    return {from / rate_, current_ / rate_};
}

void SineOscillator::layTurns(double increment) noexcept
{
    for (int i = 0; i < kSubBlock; ++i) {
        sines_[i] = std::sin(kTurn * (increment * i));
        cosines_[i] = std::cos(kTurn * (increment * i));
    }
    turn_ = increment;
}

void SineOscillator::next(Ramp<double> increment, double* out) noexcept
{
    if (increment.isConstant()) {
        if (increment.to != turn_) layTurns(increment.to);
        const double s = std::sin(kTurn * phase_), c = std::cos(kTurn * phase_);
        for (int i = 0; i < kSubBlock; ++i) out[i] = s * cosines_[i] + c * sines_[i];
        phase_ = fraction(phase_ + kSubBlock * increment.to);
        return;
    }
    double increments[kSubBlock];
    vec::ramp(increments, increment.from, increment.to, kSubBlock);
    for (int i = 0; i < kSubBlock; ++i) {
        out[i] = phase_;
        phase_ += increments[i];
    }
    phase_ = fraction(phase_);
    sinesOfCycles(out, kSubBlock);
}

const BandlimitedOscillator::Tables& BandlimitedOscillator::tables()
{
    constexpr SincDesign kStep{kTaps, 512, 12, 0.94, SincKind::Step};
    constexpr SincDesign kCorner{kTaps, 512, 12, 0.94, SincKind::Corner};
    static const Tables tables{SincTable<double>(kStep), SincTable<double>(kCorner)};
    return tables;
}

void BandlimitedOscillator::prepare()
{
    tables_ = &tables();
}

void BandlimitedOscillator::begin(WaveShape shape, double width, double increment) noexcept
{
    // Where the phase is at the first sample that is given.
    const double start = shape == WaveShape::Sawtooth   ? 0.5
                         : shape == WaveShape::Triangle ? 0.25
                                                        : 0;
    shape_ = shape;
    phase_ = fraction(start - kAhead * increment);
    isFirst_ = phase_ < (shape == WaveShape::Pulse ? width : 0.5);
    at_ = 0;
    vec::clear(line_, kLength);
    // From 64 samples before the first, so that all that reaches it is there.
    double past[kSubBlock];
    for (int i = 0; i < kTaps; i += kSubBlock) next({increment, increment}, {width, width}, past);
}

/// An edge `before` samples ahead of the sample at `at`.
void BandlimitedOscillator::event(const SincTable<double>& table, double height, double before,
                                  double* at) noexcept
{
    const double place = std::min(1.0, before) * table.design().phases;
    const int below = static_cast<int>(place);
    const double upper = height * (place - below), lower = height - upper;
    const double *const row = table.row(below), *const above = row + kTaps;
    double* const to = at - kAhead;
    for (int k = 0; k < kTaps; ++k) to[k] += lower * row[k] + upper * above[k];
}

/// The plain wave and its edges. The value of a sample and the edge before it come from one
/// comparison of the phase, or they could contradict each other by rounding.
template <WaveShape shape>
void BandlimitedOscillator::write(Ramp<double> increment, Ramp<double> width, double* head) noexcept
{
    double increments[kSubBlock], edges[kSubBlock], plain[kSubBlock];
    vec::ramp(increments, increment.from, increment.to, kSubBlock);
    if (shape == WaveShape::Pulse) vec::ramp(edges, width.from, width.to, kSubBlock);
    double phase = phase_;
    bool isFirst = isFirst_;
    for (int i = 0; i < kSubBlock; ++i) {
        const double step = increments[i], edge = shape == WaveShape::Pulse ? edges[i] : 0.5;
        double* const next = head + i + 1;
        if constexpr (shape == WaveShape::Sawtooth) {
            plain[i] = 2 * phase - 1;
            phase += step;
            if (phase < 1) continue;
            phase -= 1;
            event(tables_->step, -2, phase / step, next);
        } else {
            const auto turn = [&](bool toFirst, double past) {
                isFirst = toFirst;
                const double sign = toFirst ? 1 : -1;
                if (shape == WaveShape::Triangle)
                    event(tables_->corner, 8 * sign * step, past / step, next);
                else
                    event(tables_->step, 2 * sign, past / step, next);
            };
            if (shape == WaveShape::Triangle)
                plain[i] = isFirst ? 4 * phase - 1 : 3 - 4 * phase;
            else
                plain[i] = (isFirst ? 2 : 0) - 2 * edge;
            phase += step;
            if (isFirst && phase >= edge) turn(false, phase - edge);
            if (phase < 1) continue;
            phase -= 1;
            turn(true, phase);
            if (phase >= edge) turn(false, phase - edge);
        }
    }
    phase_ = phase;
    isFirst_ = isFirst;
    vec::addInplace(head, plain, kSubBlock);
}

void BandlimitedOscillator::next(Ramp<double> increment, Ramp<double> width, double* out) noexcept
{
    if (at_ + kReach > kLength) {
        constexpr int kKept = kReach - kSubBlock;
        std::memmove(line_, line_ + at_, kKept * sizeof(double));
        vec::clear(line_ + kKept, kLength - kKept);
        at_ = 0;
    }
    double* const head = line_ + at_ + kAhead;
    if (shape_ == WaveShape::Sawtooth)
        write<WaveShape::Sawtooth>(increment, width, head);
    else if (shape_ == WaveShape::Pulse)
        write<WaveShape::Pulse>(increment, width, head);
    else
        write<WaveShape::Triangle>(increment, width, head);
    vec::copy(out, line_ + at_, kSubBlock);
    at_ += kSubBlock;
}

void ImpulseTrain::begin() noexcept
{
    frame_ = count_ = 0;
    origin_ = period_ = phase_ = 0;
}

void ImpulseTrain::next(Ramp<double> increment, double* out) noexcept
{
    vec::clear(out, kSubBlock);
    if (increment.isConstant()) {
        const double period = 1 / increment.to;
        if (period != period_) {
            if (frame_ > 0) {  // the last impulse is the first of the new count
                origin_ = static_cast<double>(frame_) - phase_ * period;
                count_ = 1;
            }
            period_ = period;
        }
        for (;; ++count_) {
            const double place = origin_ + static_cast<double>(count_) * period_;
            const auto i = std::llround(place) - frame_;
            if (i >= kSubBlock) break;
            if (i >= 0) out[i] = 1;
        }
        frame_ += kSubBlock;
        phase_ = (static_cast<double>(frame_) - origin_) / period_ - double(count_ - 1);
        return;
    }
    period_ = 0;
    double increments[kSubBlock];
    vec::ramp(increments, increment.from, increment.to, kSubBlock);
    for (int i = 0; i < kSubBlock; ++i) {
        if (phase_ + increments[i] / 2 >= 1) {
            out[i] = 1;
            phase_ -= 1;
        }
        phase_ += increments[i];
    }
    frame_ += kSubBlock;
}

}  // namespace quillworks
