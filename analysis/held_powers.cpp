// SPDX-License-Identifier: ISC
#include "analysis/held_powers.h"

#include <algorithm>
#include <cmath>

namespace quillworks {

void HeldPowers::advance(const std::vector<double>& powers, std::int64_t frames)
{
    if (!isOn()) return;
    now_ += frames;
    if (isOld_ || values_.size() != powers.size()) {
        values_ = powers;
        reached_.assign(powers.size(), now_);
        isOld_ = false;
        return;
    }
    const double fall = std::pow(10, -2 * static_cast<double>(frames) / rate_);
    for (std::size_t k = 0; k < powers.size(); ++k) {
        if (static_cast<double>(now_ - reached_[k]) > time_) values_[k] *= fall;
        if (powers[k] < values_[k]) continue;
        values_[k] = powers[k];
        reached_[k] = now_;
    }
}

}  // namespace quillworks
