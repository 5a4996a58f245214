// SPDX-License-Identifier: ISC
#include "editors/displays/swell_curve.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kDecay = 13.8;  // of energy to -60 dB: ln 10^6
constexpr double kShortestOnset = 0.05;

}  // namespace

void SwellCurve::sized()
{
    plot_.area = {34, 10, width() - 46, height() - 32};
    plot_.y = {-60, 0, false};
}

double SwellCurve::span() const
{
    const double decay = decay_.get(1);
    for (const double seconds : {0.5, 1.0, 2.0, 3.0, 5.0, 10.0, 20.0})
        if (decay * 1.1 <= seconds) return seconds;
    return 30;
}

/// Two exponential decays, one after the other; the first one alone until there is any swell.
double SwellCurve::energy(double seconds) const
{
    const double decay = decay_.get(1), swell = swell_.get(0) / 100;
    if (seconds < 0) return -200;
    const double plain = std::exp(-kDecay * seconds / decay);
    if (swell <= 0) return 10 * std::log10(plain);
    const double onset = std::max(kShortestOnset, decay * swell);
    const double a = kDecay / decay, b = kDecay / onset;
    const bool isEqual = std::abs(a - b) < 1e-3 * a;
    const double peakAt = isEqual ? 1 / a : std::log(b / a) / (b - a);
    const auto both = [&](double t) {
        return isEqual ? t * std::exp(-a * t) : (std::exp(-a * t) - std::exp(-b * t)) / (b - a);
    };
    const double share = std::min(1.0, swell * 10);  // below a tenth the plain onset fades out
    return 10 *
           std::log10(std::max(1e-12, (1 - share) * plain + share * both(seconds) / both(peakAt)));
}

void SwellCurve::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {decay_.get(0), swell_.get(0)});
}

void SwellCurve::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(span());
}

void SwellCurve::drawStatic(Canvas& canvas)
{
    plot_.x = {0, span(), false};
    auto ticks = linearTicks(plot_.x, 10, false);
    if (!ticks.empty()) ticks.back().text += " s";
    drawAcross(canvas, plot_, ticks, true);
    drawUp(canvas, plot_, linearTicks(plot_.y, static_cast<int>(plot_.area.h / 16), true),
           FiguresAt::Left);
}

void SwellCurve::draw(Canvas& canvas)
{
    plot_.x = {0, span(), false};
    sampleCurve(points_, plot_, 1, [this](double t) { return energy(t); });
    graph_.begin(canvas, plot_.area);
    graph_.fill(points_, plot_.area.bottom(), Ink(Color::Accent, 0.3), Ink(Color::Accent, 0.05));
    graph_.stroke(points_, 2, Color::Accent);
    graph_.show(canvas);
}

std::string SwellCurve::describe() const
{
    return "Energy, " + decay_.title() + " " + decay_.text() + ", " + swell_.title() + " " +
           swell_.text();
}

}  // namespace quillworks::editors
