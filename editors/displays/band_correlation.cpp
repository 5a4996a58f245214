// SPDX-License-Identifier: ISC
#include "editors/displays/band_correlation.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks::editors {

namespace {

/// By which a band is known: 63, 125, 250 Hz, ...
double nominal(double centre)
{
    constexpr double kOctaves[] = {16, 31.5, 63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
    for (const double octave : kOctaves)
        if (std::abs(centre / octave - 1) < 0.03) return octave;
    const double unit = std::pow(10, std::floor(std::log10(centre)) - 1);
    return std::round(centre / unit) * unit;
}

}  // namespace

void BandCorrelation::sized()
{
    plot_.area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                           : Rect{34, 12, width() - 46, height() - 36};
    bars_.clear();
    plot_.y = {-1, 1, false};
}

void BandCorrelation::ticked(double)
{
    const auto& node = model().display("bandcorrelation");
    const auto& centres = node["centre"].numbers();
    const auto& values = node["value"].numbers();
    const auto& coherences = node["coherence"].numbers();
    const auto at = [](const std::vector<double>& list, std::size_t i) {
        return i < list.size() ? list[i] : std::numeric_limits<double>::quiet_NaN();
    };
    bands_.clear();
    for (std::size_t i = 0; i < centres.size(); ++i)
        bands_.push_back({centres[i], at(values, i), at(coherences, i), node["valid"][i].flag()});
    if (bars_.size() != bands_.size()) damage();
    bars_.resize(bands_.size());
    for (std::size_t i = 0; i < bars_.size(); ++i) {
        const auto now = bar(i);
        if (now == bars_[i]) continue;
        damage(bars_[i].place.united(now.place).inset(-1));
        bars_[i] = now;
    }
}

void BandCorrelation::lookStatic(std::vector<double>& numbers) const
{
    for (const auto& band : bands_) numbers.push_back(band.centre);
}

Rect BandCorrelation::column(std::size_t band) const
{
    const double w = plot_.area.w / static_cast<double>(std::max<std::size_t>(1, bands_.size()));
    return {plot_.area.x + static_cast<double>(band) * w + 2, plot_.area.y, w - 4, plot_.area.h};
}

void BandCorrelation::drawStatic(Canvas& canvas)
{
    const Tick ticks[] = {{-1, "-1", false},
                          {-0.5, "-0.5", false},
                          {0, "0", true},
                          {0.5, "+0.5", false},
                          {1, "+1", false}};
    drawUp(canvas, plot_, ticks, isSmall() ? FiguresAt::None : FiguresAt::Left);
    if (isSmall()) return;
    double taken = 0;
    for (std::size_t i = 0; i < bands_.size(); ++i) {
        const auto text = shortFrequency(nominal(bands_[i].centre));
        const double x = column(i).centre().x, half = canvas.textWidth(Type::Axis, text) / 2;
        if (x - half < taken + 5) continue;
        canvas.text(Type::Axis, text, x, plot_.area.bottom() + 15, Align::Centre, Color::Text3);
        taken = x + half;
    }
}

BandCorrelation::Bar BandCorrelation::bar(std::size_t i) const
{
    const auto& band = bands_[i];
    if (std::isnan(band.correlation)) return {};
    const auto b = column(i);
    const double pixel = 1 / scale(), zero = plot_.up(0);
    const double y = std::round(plot_.upWithin(band.correlation) / pixel) * pixel;
    // Hollow where there is too little sound to tell; the less coherent, the fainter.
    const double coherence = std::round(std::clamp(band.coherence, 0.0, 1.0) * 50) / 50;
    const Ink ink(band.correlation < 0 ? Color::Warn : Color::Accent, 0.35 + 0.65 * coherence);
    return {{b.x, std::min(y, zero) - 0.5, b.w, std::abs(y - zero) + 1},
            band.isValid ? ink : Ink(Color::Text3, 0.7),
            band.isValid};
}

void BandCorrelation::draw(Canvas& canvas)
{
    for (const auto& bar : bars_) {
        if (bar.place.isEmpty() || !canvas.sees(bar.place)) continue;
        if (bar.isValid)
            canvas.fillRounded(bar.place, 2, bar.ink);
        else
            canvas.strokeRounded(bar.place, 2, 0, bar.ink);
    }
}

std::string BandCorrelation::describe() const
{
    std::string text = "Correlation by band";
    for (const auto& band : bands_)
        if (band.isValid)
            text += ", " + frequencyText(nominal(band.centre)) + " " +
                    figure(band.correlation, 2, true);
    return text;
}

}  // namespace quillworks::editors
