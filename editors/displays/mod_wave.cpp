// SPDX-License-Identifier: ISC
#include "editors/displays/mod_wave.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr double kPeriods = 2;
constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr double kDot = 8;  // px around its middle

}  // namespace

ModWave::ModWave(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      wave_(value("wave")),
      rate_(value("rate")),
      depth_(value("depth")),
      sync_(value("sync")),
      beats_(value("beats")),
      stereo_(value("stereo")),
      phase_(value("phase"))
{
    for (auto& dot : dots_) dot = {kNothing, kNothing};
}

void ModWave::sized()
{
    const double foot = isSmall() ? 8 : 24;
    plot_ = {{10, 10, width() - 20, height() - 10 - foot}, {0, kPeriods, false}, {-1, 1, false}};
}

/// Of the most that it can be; below 0 the wave stands on its head.
double ModWave::depth() const
{
    const int p = depth_.parameter();
    if (p < 0) return 1;
    const double most = std::max(std::abs(double(model().info(p).minimum)),
                                 std::abs(double(model().info(p).maximum)));
    return most > 0 ? depth_.get() / most : 1;
}

std::string ModWave::period() const
{
    return sync_.isOn() && beats_.exists() ? beats_.text() : rate_.text();
}

void ModWave::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&wave_, &rate_, &depth_, &sync_, &beats_, &stereo_})
        numbers.push_back(v->get(0));
}

void ModWave::drawStatic(Canvas& canvas)
{
    const auto& area = plot_.area;
    for (double p = 0; p <= kPeriods; p += 0.5)
        canvas.vertical(plot_.across(p), area.y, area.bottom(),
                        p == std::floor(p) ? Color::GridEnd : Color::Grid);
    for (const double v : {-1.0, 0.0, 1.0})
        canvas.horizontal(area.x, area.right(), plot_.up(v), v == 0 ? Color::GridEnd : Color::Grid);
}

ModulationWave ModWave::wave() const
{
    return static_cast<ModulationWave>(static_cast<int>(wave_.get(0)));
}

Point ModWave::dot(double shift) const
{
    const double phase = phase_.get(kNothing), half = 0.5 / scale();
    if (!(phase >= 0)) return {kNothing, kNothing};
    const auto rounded = [half](double x) { return std::round(x / half) * half; };
    return {rounded(plot_.across(phase)),
            rounded(plot_.up(depth() * modulationWave(wave(), phase + shift)))};
}

void ModWave::ticked(double)
{
    if (!phase_.exists()) return;
    const bool isSplit = std::abs(shift()) > 1e-4;
    const Point now[] = {dot(0), isSplit ? dot(shift()) : Point{kNothing, kNothing}};
    for (std::size_t i = 0; i < 2; ++i) {
        if (now[i].x == dots_[i].x && now[i].y == dots_[i].y) continue;
        for (const auto& at : {dots_[i], now[i]})
            if (at.x == at.x) damage({at.x - kDot, at.y - kDot, 2 * kDot, 2 * kDot});
        dots_[i] = now[i];
    }
}

void ModWave::drawCurves(Canvas& canvas)
{
    const auto shape = wave();
    const double d = depth();
    const auto curve = [&](double offset, double width, Ink ink) {
        const bool jumps = shape == ModulationWave::Sawtooth || shape == ModulationWave::Square;
        sampleCurve(points_, plot_, jumps ? 0.5 : 1,
                    [&](double phase) { return d * modulationWave(shape, phase + offset); });
        canvas.polyline(points_, width, ink);
    };
    canvas.clip(plot_.area.inset(-2));
    if (std::abs(shift()) > 1e-4) curve(shift(), 1.5, Ink(Color::Output, 0.8));
    curve(0, 2, Color::Accent);
}

void ModWave::draw(Canvas& canvas)
{
    curve_.draw(canvas, *this, [this](Canvas& own) { drawCurves(own); });
    if (dots_[1].x == dots_[1].x) drawDot(canvas, dots_[1], Color::Output);
    if (dots_[0].x == dots_[0].x) drawDot(canvas, dots_[0], Color::Text);
    if (isSmall()) return;
    const double baseline = height() - 9;
    const auto text =
        canvas.text(Type::Axis, period(), plot_.across(0.5), baseline, Align::Centre, Color::Text2);
    // The width of a period.
    const double y = baseline - 3.5;
    canvas.horizontal(plot_.across(0), text.x - 5, y, Color::Text3);
    canvas.horizontal(text.right() + 5, plot_.across(1), y, Color::Text3);
    if (std::abs(shift()) > 1e-4)
        canvas.text(Type::Axis, "R " + stereo_.text(), plot_.area.right(), baseline, Align::Right,
                    Color::Text3);
}

std::string ModWave::describe() const
{
    return "Modulation, " + wave_.text() + ", " + period() + ", " + depth_.title() + " " +
           depth_.text();
}

}  // namespace quillworks::editors
