// SPDX-License-Identifier: ISC
#include "editors/displays/decay_curve.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quillworks::editors {
namespace {

/// Seconds to -60 dB that air alone leaves, at 31.25 Hz and the octaves above, 20 degrees Celsius
/// and 50 % humidity (ISO 9613-1).
constexpr std::array kAir{5656.0, 1449.0, 397.0, 133.0, 64.1, 37.5, 17.7, 5.89, 1.66, 0.479};

double airAt(double hertz)
{
    const double octave = std::clamp(std::log2(hertz / 31.25), 0.0, 8.999);
    const auto i = static_cast<std::size_t>(octave);
    const double t = octave - static_cast<double>(i);
    return std::exp((1 - t) * std::log(kAir[i]) + t * std::log(kAir[i + 1]));
}

}  // namespace

DecayCurve::DecayCurve(const VNK::SkinBox& box, EffectModel& model)
    : ResponseDisplay(box, model),
      decay_(value("decay")),
      low_(value("low")),
      lowFrequency_(value("lowFrequency")),
      high_(value("high")),
      highFrequency_(value("highFrequency")),
      air_(value("air"))
{
    setAxes({31.25, 16000, true}, {0.1, 30, true});
    handles().all().resize(3);
}

double DecayCurve::response(int, double hertz) const
{
    const double lows = lowFrequency_.get(250), highs = highFrequency_.get(4500);
    const auto low = [&](double f) { return 1 / (1 + (f / lows) * (f / lows)); };
    const auto high = [&](double f) { return 1 / (1 + (highs / f) * (highs / f)); };
    double seconds = decay_.get(1) * std::pow(low_.get(1), low(hertz) - low(1000)) *
                     std::pow(high_.get(1), high(hertz) - high(1000));
    if (air_.isOn()) seconds = 1 / (1 / seconds + 1 / airAt(hertz));
    return std::clamp(seconds, 0.05, 60.0);
}

void DecayCurve::place()
{
    auto& all = handles().all();
    const auto& area = plot().area;
    const Grip across{-1, plot().x.minimum, plot().x.maximum, area.x, area.right(), true};
    const auto set = [&](Handle& handle, double hertz, const Value& frequency,
                         const Value& amount) {
        handle.at = {std::clamp(plot().across(hertz), area.x, area.right()),
                     plot().upWithin(response(0, hertz))};
        handle.x = across;
        handle.x.parameter = frequency.parameter();
        handle.y = {};
        handle.y.parameter = amount.parameter();  // factors have no place of their own
    };
    set(all[0], lowFrequency_.get(250), lowFrequency_, low_);
    set(all[1], 1000, {}, decay_);
    set(all[2], highFrequency_.get(4500), highFrequency_, high_);
}

void DecayCurve::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&decay_, &low_, &lowFrequency_, &high_, &highFrequency_, &air_})
        numbers.push_back(v->get(0));
}

void DecayCurve::draw(Canvas& canvas)
{
    ResponseDisplay::draw(canvas);
    if (!isSmall())
        canvas.text(Type::Axis, "Decay in s", plot().area.right() - 6, plot().area.y + 14,
                    Align::Right, Color::Text3);
}

std::string DecayCurve::describe() const
{
    std::string text = "Decay";
    for (const double hertz : {125.0, 1000.0, 8000.0})
        text += ", " + frequencyText(hertz) + " " + shortTime(response(0, hertz));
    return text;
}

}  // namespace quillworks::editors
