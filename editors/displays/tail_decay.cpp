// SPDX-License-Identifier: ISC
#include "editors/displays/tail_decay.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr double kLowest = 31.25, kMiddle = 1000;  // Hz

}  // namespace

TailDecay::TailDecay(const VNK::SkinBox& box, EffectModel& model)
    : ResponseDisplay(box, model),
      mode_(value("mode")),
      decay_(value("decay")),
      time_(value("time")),
      stretch_(value("stretch"))
{
    setAxes({kLowest, 16000, true}, {0.05, 30, true});
    handles().all().resize(1);
}

void TailDecay::ticked(double)
{
    auto octaves = model().display("response")["file"]["decay"].numbers();
    // What has no decay at 1 kHz has none that could be scaled.
    const bool isUsable = octaves.size() > 5 && octaves[5] > 0;
    if (!isUsable) octaves.clear();
    if (octaves == octaves_) return;
    octaves_.swap(octaves);
    lookChanged();
    damage();
}

/// Between octaves in equal ratios; a file drawn out rings as much longer.
double TailDecay::measured(double hertz) const
{
    if (!isThere()) return std::numeric_limits<double>::quiet_NaN();
    const double last = static_cast<double>(octaves_.size()) - 1;
    const double octave = std::clamp(std::log2(hertz / kLowest), 0.0, last);
    const auto i = static_cast<std::size_t>(octave), k = std::min(i + 1, octaves_.size() - 1);
    const double t = octave - static_cast<double>(i);
    const double a = std::max(octaves_[i], 1e-3), b = std::max(octaves_[k], 1e-3);
    return stretch_.get(100) / 100 * a * std::pow(b / a, t);
}

double TailDecay::response(int side, double hertz) const
{
    const double own = measured(hertz), middle = measured(kMiddle), decay = decay_.get(1);
    if (side == 1) return own;
    switch (mode()) {
    case Mode::Continue:
        return own * decay;
    case Mode::Replace:
        return time_.get(1) * own / middle;
    default:
        // One fall more for all octaves, by which that of 1 kHz is as wanted.
        return decay < 1 ? 1 / (1 / own + (1 / decay - 1) / middle) : own;
    }
}

void TailDecay::place()
{
    auto& handle = handles().all()[0];
    const auto& area = plot().area;
    const bool isTime = mode() == Mode::Replace;
    handle.isVisible = isThere();
    handle.at = {plot().across(kMiddle), plot().upWithin(response(0, kMiddle))};
    handle.y = {(isTime ? time_ : decay_).parameter(), 0, 1, area.bottom(), area.y};
    handle.y.warped = [this, isTime](double y) {
        const double seconds = plot().valueUp(y);
        return isTime ? seconds : seconds / measured(kMiddle);
    };
}

void TailDecay::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&mode_, &decay_, &time_, &stretch_}) numbers.push_back(v->get(0));
}

void TailDecay::draw(Canvas& canvas)
{
    if (!isThere())
        return void(canvas.text(Type::Label, "No decay", plot().area.centre().x,
                                plot().area.centre().y, Align::Centre, Color::Text3));
    ResponseDisplay::draw(canvas);
    if (!isSmall())
        canvas.text(Type::Axis, "Decay in s", plot().area.right() - 6, plot().area.y + 14,
                    Align::Right, Color::Text3);
}

std::string TailDecay::describe() const
{
    if (!isThere()) return "Decay: none";
    std::string text = "Decay";
    for (const double hertz : {125.0, 1000.0, 8000.0})
        text += ", " + frequencyText(hertz) + " " + shortTime(response(0, hertz));
    return text + ", measured " + shortTime(measured(kMiddle));
}

std::string TailDecay::tip(double, double) const
{
    return "Drag the ring for the decay; the grey line is the file's own.";
}

}  // namespace quillworks::editors
