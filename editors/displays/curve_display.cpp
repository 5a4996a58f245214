// SPDX-License-Identifier: ISC
#include "editors/displays/curve_display.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "editors/displays/static_gain.h"

namespace quillworks::editors {
namespace {

constexpr Axis kLevels{-60, 0, false};

}  // namespace

CurveDisplay::CurveDisplay(const VNK::SkinBox& box, EffectModel& model)
    : HandleDisplay(box, model),
      threshold_(values("threshold")),
      ratio_(values("ratio")),
      range_(values("range")),
      lowThreshold_(values("lowThreshold")),
      lowRatio_(values("lowRatio")),
      gain_(values("gain")),
      bandLevels_(values("levels")),
      knee_(value("knee")),
      on_(value("on")),
      point_(value("point")),
      amount_(value("amount")),
      choice_(attribute("choice")),
      levels_(model, "inlevel")
{
    if (const auto width = attribute("kneeWidth"); !width.empty())
        kneeWidth_ = std::atof(width.c_str());
    if (threshold_.parameter(0) >= 0) handles().all().resize(1);
}

int CurveDisplay::band() const
{
    return choice_.empty() ? 0 : std::clamp(model().chosen(choice_), 0, threshold_.count() - 1);
}

double CurveDisplay::of(const Values& values, double fallback) const
{
    return values.exist() ? values[band()] : fallback;
}

BandLaw CurveDisplay::law() const
{
    return {of(threshold_, 0),      of(ratio_, 1),    knee(),
            of(lowThreshold_, 0),   of(lowRatio_, 1), of(range_, 0),
            amount_.get(100) / 100, of(gain_, 0)};
}

void CurveDisplay::sized()
{
    const Rect area = isSmall() ? Rect{8, 8, width() - 16, height() - 16}
                                : Rect{31, 12, width() - 40, height() - 39};
    plot_ = {area, kLevels, kLevels};
    place();
}

double CurveDisplay::output(double input) const
{
    if (on_.exists() && !on_.isOn()) return input;
    if (isOfBand()) return banded(input, law());
    const double threshold = of(threshold_, 0), ratio = of(ratio_, 1);
    if (range_.exist()) return expanded(input, threshold, 1 / std::max(ratio, 1e-3) - 1, range_[0]);
    return compressed(input, threshold, ratio, std::max(knee(), 1e-3));
}

/// Where the level is on the curve; not-a-number where it is too low to be seen.
Point CurveDisplay::dot() const
{
    const double level = point_.exists()       ? point_.get()
                         : bandLevels_.exist() ? bandLevels_[band()]
                                               : levels_.largestDecibels();
    const double nothing = std::numeric_limits<double>::quiet_NaN();
    if (!(level > kLevels.minimum)) return {nothing, nothing};
    const double shown = std::min(level, kLevels.maximum), half = 0.5 / scale();
    const auto rounded = [half](double x) { return std::round(x / half) * half; };
    return {rounded(plot_.across(shown)), rounded(plot_.upWithin(output(shown)))};
}

void CurveDisplay::place()
{
    if (handles().all().empty()) return;
    auto& handle = handles().all()[0];
    const double threshold = of(threshold_, 0);
    handle.at = {plot_.across(std::clamp(threshold, -60.0, 0.0)),
                 plot_.upWithin(output(threshold))};
    handle.x = {threshold_.parameter(band()),
                kLevels.minimum,
                kLevels.maximum,
                plot_.area.x,
                plot_.area.right(),
                false};
    handle.y.parameter = ratio_.parameter(band());  // no place: up is more
}

void CurveDisplay::ticked(double)
{
    const auto now = dot();
    if (now.x == dot_.x && now.y == dot_.y) return;
    for (const auto& at : {dot_, now})
        if (at.x == at.x && at.y == at.y) damage({at.x - 8, at.y - 8, 16, 16});
    dot_ = now;
}

void CurveDisplay::look(std::vector<double>& numbers) const
{
    const auto now = law();
    numbers.insert(numbers.end(),
                   {double(band()), on_.get(1), now.threshold, now.ratio, now.knee,
                    now.lowThreshold, now.lowRatio, now.range, now.amount, now.gain});
}

void CurveDisplay::drawStatic(Canvas& canvas)
{
    const auto ticks = linearTicks(kLevels, 5, true);
    drawAcross(canvas, plot_, ticks, !isSmall());
    drawUp(canvas, plot_, ticks, isSmall() ? FiguresAt::None : FiguresAt::Left);
    if (!isSmall())
        canvas.text(Type::Axis, "Output dB", plot_.area.x + 6, plot_.area.y + 14, Align::Left,
                    Color::Text3);
}

void CurveDisplay::drawCurve(Canvas& canvas)
{
    const auto& area = plot_.area;
    const Point corners[] = {{area.x, area.bottom()}, {area.right(), area.y}};
    sampleCurve(points_, plot_, 1, [this](double input) { return output(input); });
    canvas.clip(area.inset(-2));
    // What is taken: between the straight line and the curve.
    auto between = points_;
    between.push_back(corners[1]);
    between.push_back(corners[0]);
    canvas.polygon(between, Ink(Color::Accent, 0.12));
    canvas.line(corners[0], corners[1], 0, Color::Track, Dash::Dashes);
    canvas.vertical(plot_.across(of(threshold_, 0)), area.y, area.bottom(), Color::Text3,
                    Dash::Dots);
    canvas.polyline(points_, 2, Color::Accent);
}

void CurveDisplay::draw(Canvas& canvas)
{
    place();
    curve_.draw(canvas, *this, [this](Canvas& own) { drawCurve(own); });
    if (!choice_.empty() && !isSmall())
        canvas.text(Type::Label, choice_ + " " + std::to_string(band() + 1), plot_.area.right() - 6,
                    plot_.area.bottom() - 8, Align::Right, Color::Accent);
    handles().draw(canvas);
    if (!isSmall()) handles().drawLabel(canvas, plot_.area);
    if (dot_.x == dot_.x) drawDot(canvas, dot_, Color::Text);
}

std::string CurveDisplay::describe() const
{
    std::string text = "Curve";
    if (!choice_.empty()) text += " of " + choice_ + " " + std::to_string(band() + 1);
    for (const auto* v : {&threshold_, &ratio_, &lowThreshold_, &lowRatio_, &range_, &gain_})
        if (v->exist()) text += ", " + v->title(band()) + " " + v->text(band());
    if (knee_.exists()) text += ", " + knee_.title() + " " + knee_.text();
    return text;
}

std::string CurveDisplay::tip(double, double) const
{
    return "Drag the ring sideways for the threshold, up and down for the ratio.";
}

}  // namespace quillworks::editors
