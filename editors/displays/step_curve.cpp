// SPDX-License-Identifier: ISC
#include "editors/displays/step_curve.h"

#include <cmath>
#include <numbers>

#include "editors/displays/waves.h"

namespace quillworks::editors {
namespace {

constexpr double kCycles = 2, kHertz = 440;
constexpr double kLevel = -6;  // dB of full scale

}  // namespace

StepCurve::StepCurve(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      rate_(value("rate")),
      bits_(value("bits")),
      law_(value("law")),
      gain_(value("gain"))
{
    plot_.x = {0, 1000 * kCycles / kHertz, false};
    plot_.y = {-1.1, 1.1, false};
}

void StepCurve::sized()
{
    plot_.area = isSmall() ? Rect{8, 8, width() - 16, height() - 16}
                           : Rect{34, 12, width() - 48, height() - 36};
}

double StepCurve::input(double milliseconds) const
{
    return std::pow(10, (kLevel + gain_.get(0)) / 20) *
           std::sin(2 * std::numbers::pi * kHertz * milliseconds / 1000);
}

/// At its upper end the rate is that of the sound itself.
double StepCurve::output(double milliseconds) const
{
    const int p = rate_.parameter();
    const double rate = rate_.get(48000);
    const bool holds = p < 0 || rate < double(model().info(p).maximum) * 0.9999;
    const double step = 1000 / rate;
    const double taken = holds ? std::floor(milliseconds / step + 1e-9) * step : milliseconds;
    return quantised(static_cast<QuantiserLaw>(static_cast<int>(law_.get(0))), bits_.get(24),
                     input(taken));
}

void StepCurve::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {rate_.get(0), bits_.get(0), law_.get(0), gain_.get(0)});
}

void StepCurve::drawStatic(Canvas& canvas)
{
    drawAcross(canvas, plot_, linearTicks(plot_.x, 10, false), !isSmall());
    drawUp(canvas, plot_, linearTicks(plot_.y, 5, false),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
    if (!isSmall())
        canvas.text(Type::Axis, "440 Hz, -6 dB, in ms", plot_.area.right() - 6, plot_.area.y + 14,
                    Align::Right, Color::Text3);
}

void StepCurve::draw(Canvas& canvas)
{
    graph_.begin(canvas, plot_.area);
    sampleCurve(points_, plot_, 1, [this](double t) { return input(t); });
    graph_.stroke(points_, 1.25, Ink(Color::Output, 0.7));
    sampleCurve(points_, plot_, 0.25, [this](double t) { return output(t); });
    graph_.stroke(points_, 2, Color::Accent);
    graph_.show(canvas);
}

std::string StepCurve::describe() const
{
    return "Steps of a sine, " + rate_.title() + " " + rate_.text() + ", " + bits_.title() + " " +
           bits_.text() + ", " + law_.text();
}

}  // namespace quillworks::editors
