// SPDX-License-Identifier: ISC
#include "editors/displays/ground_bars.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace quillworks::editors {
namespace {

constexpr Axis kLevels{-78, 0, false};  // dB
constexpr std::size_t kTogether = 8;    // bars that are damaged as one

}  // namespace

void GroundBars::tick(EffectModel& model, const Plot& plot, double scale,
                      const std::function<void(const Rect&)>& damage)
{
    if (name_.empty() || (isThere() && std::exchange(isBetween_, !isBetween_))) return;
    const auto& node = model.display(name_);
    const auto& hertz = node["frequency"].numbers();
    const auto& level = node["level"].numbers();
    const auto& area = plot.area;
    const auto n = std::min(hertz.size(), level.size());
    const Plot levels{area, plot.x, kLevels};
    // On whole pixels, so that what is beside a bar stays as it is.
    const auto onPixel = [scale](double at) { return std::round(at * scale) / scale; };
    if (tops_.size() != n) {
        tops_.assign(n, area.bottom());
        damage(area);
    }
    edges_.resize(n + 1);
    for (std::size_t first = 0; first < n; first += kTogether) {
        double top = area.bottom(), bottom = area.y;
        const auto end = std::min(n, first + kTogether);
        for (auto i = first; i < end; ++i) {
            // From half way to the neighbours, which lie in equal ratios.
            const double ratio =
                i + 1 < n ? hertz[i + 1] / hertz[i] : hertz[i] / hertz[i - (i > 0)];
            edges_[i] = onPixel(plot.across(hertz[i] / std::sqrt(ratio)));
            edges_[i + 1] = onPixel(plot.across(hertz[i] * std::sqrt(ratio)));
            double y = area.bottom();
            if (level[i] > kLevels.minimum) y = onPixel(levels.upWithin(level[i]));
            double& was = tops_[i];
            if (y == was) continue;
            top = std::min({top, y, was});
            bottom = std::max({bottom, y, was});
            was = y;
        }
        if (top < bottom) damage({edges_[first], top, edges_[end] - edges_[first], bottom - top});
    }
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
