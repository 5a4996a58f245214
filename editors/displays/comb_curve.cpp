// SPDX-License-Identifier: ISC
#include "editors/displays/comb_curve.h"

#include <cmath>

#include "editors/displays/filter_response.h"

namespace quillworks::editors {

CombCurve::CombCurve(const VNK::SkinBox& box, EffectModel& model)
    : ResponseDisplay(box, model),
      delays_{value("left"), value("right")},
      feedback_(value("feedback")),
      damp_(value("damp")),
      invert_(value("invert")),
      mix_(value("mix"))
{
    // Teeth stand at equal distances in Hz.
    setAxes({0, 4000, false}, {-36, 12, false});
}

double CombCurve::response(int side, double hertz) const
{
    return toDecibel(comb(hertz, {delays_[side].get() / 1000, feedback_.get(0) / 100,
                                  damp_.get(20000), invert_.isOn(), mix_.get(50) / 100}));
}

int CombCurve::curves() const
{
    return std::abs(delays_[0].get(0) - delays_[1].get(0)) < 0.001 || !delays_[1].exists() ? 1 : 2;
}

void CombCurve::look(std::vector<double>& numbers) const
{
    for (const auto& delay : delays_) numbers.push_back(std::round(delay.get(0) * 2000));
    for (const auto* v : {&feedback_, &damp_, &invert_, &mix_}) numbers.push_back(v->get(0));
}

std::string CombCurve::describe() const
{
    return "Comb, " + delays_[0].title() + " " + delays_[0].text() + ", " + delays_[1].title() +
           " " + delays_[1].text();
}

}  // namespace quillworks::editors
