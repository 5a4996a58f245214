// SPDX-License-Identifier: ISC
#include "editors/displays/bound_display.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace quillworks::editors {
namespace {

/// Takes `now` on; whether it differs. Not-a-number is as good as any other number.
bool replace(std::vector<double>& seen, const std::vector<double>& now)
{
    const auto same = [](double a, double b) { return a == b || (a != a && b != b); };
    if (std::equal(seen.begin(), seen.end(), now.begin(), now.end(), same)) return false;
    seen = now;
    return true;
}

}  // namespace

std::string BoundDisplay::attribute(const std::string& name) const
{
    const auto at = box_.attributes.find(name);
    return at == box_.attributes.end() ? std::string() : at->second;
}

void BoundDisplay::tick(double seconds)
{
    turn_.tick(seconds);
    ticked(seconds);
    now_.clear();
    lookStatic(now_);
    if (replace(seenStatic_, now_)) damageStatic();
    now_.clear();
    look(now_);
    if (replace(seen_, now_)) lookChanged();
}

bool BoundDisplay::turn(int parameter, const WheelEvent& event)
{
    if (parameter >= 0) turn_.turn(parameter, event);
    return parameter >= 0;
}

bool BoundDisplay::step(int parameter, double fraction)
{
    if (parameter >= 0) model().set(parameter, movedValue(model(), parameter, fraction));
    return parameter >= 0;
}

double seenDecibels(double db) noexcept
{
    return std::round(db * 20) / 20;
}

}  // namespace quillworks::editors
