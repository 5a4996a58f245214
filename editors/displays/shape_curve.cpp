// SPDX-License-Identifier: ISC
#include "editors/displays/shape_curve.h"

#include <algorithm>
#include <cmath>

#include "editors/displays/waves.h"

namespace quillworks::editors {
namespace {

constexpr double kBiasReach = 0.8;  // of full scale, at 100 %

}  // namespace

ShapeCurve::ShapeCurve(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      curve_(value("curve")),
      drive_(value("drive")),
      bias_(value("bias")),
      point_(value("point"))
{
    plot_.x = {-1, 1, false};
    plot_.y = {-1.5, 1.5, false};
}

void ShapeCurve::sized()
{
    plot_.area = isSmall() ? Rect{8, 8, width() - 16, height() - 16}
                           : Rect{34, 12, width() - 48, height() - 36};
}

/// Biased before the shape and freed of the offset behind it. A folder takes half the drive.
double ShapeCurve::output(double x) const
{
    const auto curve = static_cast<ShaperCurve>(static_cast<int>(curve_.get(0)));
    const double db = drive_.get(0) * (curve == ShaperCurve::Fold ? 0.5 : 1);
    const double bias = kBiasReach * bias_.get(0) / 100;
    return shaped(curve, std::pow(10, db / 20) * x + bias) - shaped(curve, bias);
}

void ShapeCurve::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {curve_.get(0), drive_.get(0), bias_.get(0)});
}

void ShapeCurve::ticked(double)
{
    const double now = std::min(1.0, std::pow(10, point_.get(-144) / 20));
    const double pixels = plot_.area.w * scale();
    if (std::round(now * pixels) == std::round(peak_ * pixels)) return;
    for (const double peak : {peak_, now})
        for (const double x : {-peak, peak})
            damage({plot_.across(x) - 8, plot_.upWithin(output(x)) - 8, 16, 16});
    peak_ = now;
}

void ShapeCurve::drawStatic(Canvas& canvas)
{
    drawAcross(canvas, plot_, linearTicks(plot_.x, 8, false), !isSmall());
    drawUp(canvas, plot_, linearTicks(plot_.y, 6, false),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
}

void ShapeCurve::draw(Canvas& canvas)
{
    curves_.draw(canvas, *this, [this](Canvas& own) {
        own.clip(plot_.area);
        own.line({plot_.across(-1), plot_.up(-1)}, {plot_.across(1), plot_.up(1)}, 0, Color::Track,
                 Dash::Dashes);
        graph_.begin(own, plot_.area);
        sampleCurve(points_, plot_, 0.5, [this](double x) { return output(x); });
        graph_.stroke(points_, 2, Color::Accent);
        graph_.show(own);
    });
    if (!(peak_ > 0.001)) return;
    for (const double x : {-peak_, peak_})
        drawDot(canvas, {plot_.across(x), plot_.upWithin(output(x))}, Color::Text);
}

std::string ShapeCurve::describe() const
{
    return "Shape, " + curve_.text() + ", " + drive_.title() + " " + drive_.text() + ", " +
           bias_.title() + " " + bias_.text();
}

}  // namespace quillworks::editors
