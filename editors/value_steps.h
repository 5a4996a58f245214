// SPDX-License-Identifier: ISC
// Values that hands reach in steps: by keys, by a wheel, and round ones.
#pragma once

#include "editors/effect_model.h"
#include "editors/surface.h"

namespace quillworks::editors {

/// A fraction of its range away from where the parameter is; angles come round, and a list goes on
/// by one step in the direction of the fraction.
float movedValue(const EffectModel& model, int parameter, double fraction);

/// The nearest round value to one: whole decibels, 1-2-5 steps, 1.2, 1.5, ... of a decade.
float roundValue(const VNK::ParameterInfo& info, float value);

/// Notches of a wheel, each a fiftieth of the range or a step of a list, a tenth of that with
/// Shift: one gesture, which ends when the wheel has rested.
class WheelTurn {
public:
    explicit WheelTurn(EffectModel& model) noexcept : model_(model) {}

    void turn(int parameter, const WheelEvent& event);
    void tick(double seconds);

private:
    void end();

    EffectModel& model_;
    int parameter_ = -1;  // that is held
    double end_ = 0;      // second of the gesture's end
    double rest_ = 0;     // of a step of a list
};

}  // namespace quillworks::editors
