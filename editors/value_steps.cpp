// SPDX-License-Identifier: ISC
#include "editors/value_steps.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kPause = 0.3;  // s without a notch that end the gesture
constexpr double kNotch = 1.0 / 50, kFineNotch = 1.0 / 500;

bool isStepped(const VNK::ParameterInfo& info)
{
    return info.kind != VNK::ValueKind::Continuous;
}

}  // namespace

float movedValue(const EffectModel& model, int parameter, double fraction)
{
    const auto& info = model.info(parameter);
    if (isStepped(info))
        return std::clamp(model.value(parameter) + (fraction > 0 ? 1.0f : -1.0f), info.minimum,
                          info.maximum);
    double position = double(model.position(parameter)) + fraction;
    if (info.wraps) position -= std::floor(position);
    return model.effect().fromNormalized(parameter,
                                         static_cast<float>(std::clamp(position, 0.0, 1.0)));
}

float roundValue(const VNK::ParameterInfo& info, float value)
{
    if (isStepped(info)) return std::round(value);
    double step = 0;
    if (info.has(VNK::isDecibel)) {
        step = 1;
    } else if (info.logarithmic) {
        const double decade = std::pow(10, std::floor(std::log10(std::max(value, 1e-9f))));
        const double lead = value / decade;
        double best = 10;
        for (const double round : {1.0, 1.2, 1.5, 2.0, 2.5, 3.0, 4.0, 5.0, 6.0, 8.0})
            if (std::abs(std::log(lead / round)) < std::abs(std::log(lead / best))) best = round;
        return std::clamp(static_cast<float>(best * decade), info.minimum, info.maximum);
    } else {
        const double wanted = (info.maximum - info.minimum) / 40;
        step = std::pow(10, std::floor(std::log10(wanted)));
        for (const double more : {2.0, 2.5, 2.0})
            if (step < wanted * 0.7) step *= more;
    }
    return std::clamp(static_cast<float>(std::round(value / step) * step), info.minimum,
                      info.maximum);
}

void WheelTurn::turn(int parameter, const WheelEvent& event)
{
    if (parameter != parameter_) {
        end();
        rest_ = 0;
        parameter_ = parameter;
        model_.begin(parameter);
    }
    end_ = event.seconds + kPause;
    const auto& info = model_.info(parameter);
    const float now = model_.value(parameter);
    float next = now;
    if (isStepped(info)) {
        rest_ += event.notches;
        const double whole = std::trunc(rest_);
        rest_ -= whole;
        next = std::clamp(now + static_cast<float>(whole), info.minimum, info.maximum);
    } else {
        const double notch = event.modifiers & kShift ? kFineNotch : kNotch;
        next = movedValue(model_, parameter, event.notches * notch);
    }
    if (next != now) model_.set(parameter, next);
}

void WheelTurn::tick(double seconds)
{
    if (parameter_ >= 0 && seconds >= end_) end();
}

void WheelTurn::end()
{
    if (parameter_ >= 0) model_.end(parameter_);
    parameter_ = -1;
}

}  // namespace quillworks::editors
