// SPDX-License-Identifier: ISC
// The spectrum behind a display over frequency: bars of the bands that an effect shows.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "editors/canvas.h"
#include "editors/displays/plot.h"
#include "editors/effect_model.h"

namespace quillworks::editors {

class GroundBars {
public:
    static constexpr Ink kInk{Color::Level, 0.5};

    /// `name`: of the effect's display with "frequency" and "level"; empty: none.
    explicit GroundBars(std::string name) : name_(std::move(name)) {}

    /// Whether there is anything to draw.
    bool isThere() const noexcept { return !tops_.empty(); }
    void forget() noexcept { tops_.clear(); }
    /// At every other call, which is as often as there is a new spectrum. Bars move a little at a
    /// time: only where they have moved is damaged. `scale`: device pixels per logical one.
    void tick(EffectModel& model, const Plot& plot, double scale,
              const std::function<void(const Rect&)>& damage);
    void draw(Canvas& canvas, const Rect& area);
    /// The same as rectangles within `area`, from left to right; those of silence are empty.
    std::span<const Rect> bars(const Rect& area);

private:
    std::string name_;
    std::vector<double> edges_, tops_;  // px, of the bands
    std::vector<Rect> bars_;
    bool isBetween_ = false;  // the next call shows what there is
};

}  // namespace quillworks::editors
