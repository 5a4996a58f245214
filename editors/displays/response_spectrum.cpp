// SPDX-License-Identifier: ISC
#include "editors/displays/response_spectrum.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr Axis kHertz{20, 20000, true};
constexpr Axis kDecibels{-36, 18, false};
/// Where rooms and loudspeakers are at their level.
constexpr double kMiddleFrom = 200, kMiddleTo = 4000;  // Hz

}  // namespace

void ResponseSpectrum::sized()
{
    plot_ = {isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                       : Rect{30, 10, width() - 40, height() - 32},
             kHertz, kDecibels};
}

void ResponseSpectrum::ticked(double)
{
    const auto& node = model().display("response");
    const auto& paths = node["paths"];
    std::vector<Line> now;
    for (std::size_t i = 0; i < paths.size(); ++i) now.push_back(paths[i]["magnitude"].numbers());
    const auto& hertz = node["frequency"].numbers();
    double loudest = -1000;
    for (const auto& line : now) {
        double sum = 0;
        int count = 0;
        for (std::size_t b = 0; b < std::min(line.size(), hertz.size()); ++b)
            if (hertz[b] > kMiddleFrom && hertz[b] < kMiddleTo) {
                sum += line[b];
                ++count;
            }
        if (count > 0) loudest = std::max(loudest, sum / count);
    }
    for (auto& line : now)
        for (auto& level : line) level -= loudest;
    if (now == lines_ && hertz == hertz_) return;
    lines_ = std::move(now);
    hertz_ = hertz;
    damage();
}

void ResponseSpectrum::drawStatic(Canvas& canvas)
{
    drawAcross(canvas, plot_, frequencyTicks(kHertz), !isSmall());
    drawUp(canvas, plot_, linearTicks(kDecibels, static_cast<int>(plot_.area.h / 18), true),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
}

void ResponseSpectrum::draw(Canvas& canvas)
{
    graph_.begin(canvas, plot_.area);
    for (std::size_t i = lines_.size(); i-- > 0;) {
        points_.clear();
        for (std::size_t b = 0; b < std::min(lines_[i].size(), hertz_.size()); ++b)
            points_.push_back(
                {plot_.across(hertz_[b]),
                 std::clamp(plot_.up(lines_[i][b]), plot_.area.y - 3, plot_.area.bottom() + 3)});
        if (i == 0)
            graph_.fill(points_, plot_.area.bottom(), Ink(Color::Accent, 0.3),
                        Ink(Color::Accent, 0.06));
        graph_.stroke(points_, i == 0 ? 1.5 : 1,
                      i == 0 ? Ink(Color::Accent) : Ink(Color::Output, 0.6));
    }
    graph_.show(canvas);
}

std::string ResponseSpectrum::describe() const
{
    return lines_.empty() ? "Magnitude: none yet"
                          : "Magnitude of " + std::to_string(lines_.size()) + " paths";
}

}  // namespace quillworks::editors
