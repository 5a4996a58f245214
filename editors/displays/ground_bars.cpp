// SPDX-License-Identifier: ISC
#include "editors/displays/ground_bars.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr Axis kLevels{-78, 0, false};  // dB

}  // namespace

void GroundBars::tick(EffectModel& model, const Plot& plot, double scale,
                      const std::function<void(const Rect&)>& damage)
{
    if (name_.empty()) return;
    const auto& node = model.display(name_);
    const auto& hertz = node["frequency"].numbers();
    const auto& level = node["level"].numbers();
    const auto& area = plot.area;
    const auto n = std::min(hertz.size(), level.size());
    const Plot levels{area, plot.x, kLevels};
    const double pixel = 1 / scale;
    double top = area.bottom(), bottom = area.y;
    if (tops_.size() != n) {
        tops_.assign(n, area.bottom());
        damage(area);
    }
    edges_.resize(n + 1);
    for (std::size_t i = 0; i < n; ++i) {
        // From half way to the neighbours, which lie in equal ratios.
        const double ratio = i + 1 < n ? hertz[i + 1] / hertz[i] : hertz[i] / hertz[i - (i > 0)];
        edges_[i] = plot.across(hertz[i] / std::sqrt(ratio));
        edges_[i + 1] = plot.across(hertz[i] * std::sqrt(ratio));
        double y = area.bottom();
        if (level[i] > kLevels.minimum) y = std::round(levels.upWithin(level[i]) / pixel) * pixel;
        double& was = tops_[i];
        if (y == was) continue;
        top = std::min({top, y, was});
        bottom = std::max({bottom, y, was});
        was = y;
    }
    if (top < bottom) damage({area.x, top - 1, area.w, bottom - top + 2});
}

std::span<const Rect> GroundBars::bars(const Rect& area)
{
    bars_.resize(tops_.size());
    for (std::size_t i = 0; i < tops_.size(); ++i) {
        const double left = std::max(edges_[i], area.x);
        const double right = std::min(edges_[i + 1], area.right());
        bars_[i] = {left, tops_[i], right - left, area.bottom() - tops_[i]};
    }
    return bars_;
}

void GroundBars::draw(Canvas& canvas, const Rect& area)
{
    for (const auto& bar : bars(area)) canvas.fill(bar, kInk);
}

}  // namespace quillworks::editors
