// SPDX-License-Identifier: ISC
#include "analysis/scope_readings.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr int kPoints = 8;       // per sample
constexpr double kMargin = 0.1;  // hysteresis of crossings, of the height

float dot(const float* row, const float* x)
{
    float sum[8] = {};
    for (int k = 0; k < ScopeInterpolator::kTaps; k += 8)
        for (int j = 0; j < 8; ++j) sum[j] += row[k + j] * x[k + j];
    return ((sum[0] + sum[1]) + (sum[2] + sum[3])) + ((sum[4] + sum[5]) + (sum[6] + sum[7]));
}

}  // namespace

void ScopeReader::interpolate(const float* x, int span)
{
    // Near the end, where samples are missing, there is nothing between them.
    between_ = std::max(0, span - kScopeReach);
    points_.resize(static_cast<std::size_t>(between_ * kPoints + (span - between_)));
    auto to = points_.begin();
    for (int i = 0; i < span; ++i) {
        *to++ = x[i];
        for (int k = 1; k < kPoints && i < between_; ++k)
            *to++ = dot(interpolator_.row(k), x + i - kScopeReach + 1);
    }
}

template <class F> void ScopeReader::forEachPoint(F&& f) const
{
    auto value = points_.begin();
    for (int i = 0; i < between_ * kPoints; ++i) f(double(i) / kPoints, double(*value++));
    for (int i = between_; value != points_.end(); ++i) f(double(i), double(*value++));
}

void ScopeReader::findCrossings(const float* x, int span, double middle, double margin,
                                bool upwards)
{
    crossings_.clear();
    known_ = 0;
    const double sign = upwards ? 1 : -1;
    bool isArmed = false;
    double before = 0, at = 0;
    forEachPoint([&](double place, double value) {
        const double now = sign * (value - middle);
        if (place > 0 && isArmed && before < 0 && now >= 0) {
            const int i = static_cast<int>(at);
            double crossing = at + (place - at) * before / (before - now);
            if (i + kScopeReach < span) {
                crossing =
                    i + interpolator_.crossing(x + i - kScopeReach + 1, middle, at - i, place - i);
                ++known_;
            }
            crossings_.push_back(crossing);
            isArmed = false;
        }
        isArmed |= now < -margin;
        before = now;
        at = place;
    });
}

ScopeReader::Periods ScopeReader::wholePeriods(std::optional<double> period) const
{
    // Those near the end are known to a sample only.
    const auto count = known_ < 2 ? crossings_.size() : known_;
    if (count < 2) return {};
    if (!period) return {crossings_[0], crossings_[count - 1], static_cast<int>(count) - 1};
    Periods found{crossings_[0], crossings_[0], 0};
    const auto end = crossings_.begin() + static_cast<std::ptrdiff_t>(count);
    for (auto from = crossings_.begin();;) {
        const double expected = *from + *period;
        auto next = std::lower_bound(from + 1, end, expected);
        if (next == end || (next - 1 > from && expected - *(next - 1) < *next - expected)) --next;
        if (next == from || std::abs(*next - expected) > *period / 4) break;
        from = next;
        found.last = *next;
        ++found.count;
    }
    return found;
}

ScopeReadings ScopeReader::read(const std::vector<float>& trace, int span, double sampleRate,
                                bool upwards, std::optional<double> period)
{
    const float* const x = trace.data() + kScopeReach;
    ScopeReadings r;
    interpolate(x, span);
    double high = double(x[0]), low = high;
    forEachPoint([&](double, double value) {
        high = std::max(high, value);
        low = std::min(low, value);
    });
    r.maximum = high;
    r.minimum = low;
    const double height = high - low, middle = (high + low) / 2;
    if (height > 0) findCrossings(x, span, middle, kMargin * height, upwards);
    auto periods = height > 0 ? wholePeriods(period) : Periods{};
    if (periods.count > 0)
        r.frequency = sampleRate * periods.count / (periods.last - periods.first);
    else
        periods = {0, double(span - 1), 0};
    // The trapezoidal rule, whose errors cancel over whole periods.
    double sum = 0, squares = 0, above = 0, before = 0, at = 0;
    forEachPoint([&](double place, double value) {
        const double from = std::max(at, periods.first), to = std::min(place, periods.last);
        if (place > 0 && to > from) {
            const double slope = (value - before) / (place - at);
            const double a = before + slope * (from - at), b = before + slope * (to - at);
            sum += (to - from) * (a + b) / 2;
            squares += (to - from) * (a * a + b * b) / 2;
            const double u = a - middle, v = b - middle;
            if (u >= 0 && v >= 0)
                above += to - from;
            else if (u > 0 || v > 0)
                above += (to - from) * std::max(u, v) / std::abs(u - v);
        }
        before = value;
        at = place;
    });
    const double length = periods.last - periods.first;
    r.mean = sum / length;
    r.rms = std::sqrt(squares / length);
    if (height > 0) r.dutyCycle = above / length;
    return r;
}

}  // namespace quillworks
