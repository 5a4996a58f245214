// SPDX-License-Identifier: ISC
#include "editors/displays/filter_curve.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "editors/displays/filter_response.h"

namespace quillworks::editors {
namespace {

constexpr Axis kHertz{20, 20000, true};
constexpr double kMinusThree = -3.0103;

}  // namespace

FilterCurve::FilterCurve(const VNK::SkinBox& box, EffectModel& model)
    : ResponseDisplay(box, model),
      low_(value("low")),
      high_(value("high")),
      slope_(value("slope")),
      resonance_(value("resonance")),
      type_(value("type")),
      stages_(value("stages")),
      corners_{value("left"), value("right")},
      on_(value("on")),
      mix_(value("mix")),
      mode_(value("mode")),
      centre_(value("centre")),
      range_(value("range")),
      cycle_(value("cycle"))
{
    if (const auto order = attribute("lowOrder"); !order.empty())
        lowOrder_ = std::atoi(order.c_str());
    Axis decibels{-36, 6, false};
    std::size_t grips = 0;
    if (stages_.exists()) {
        kind_ = Kind::Phaser;
        decibels = {-36, 12, false};
    } else if (type_.exists()) {
        kind_ = Kind::Swept;
        decibels = {-48, 30, false};
    } else {
        for (int i = 1; !attribute("freq" + std::to_string(i)).empty(); ++i) {
            const auto n = std::to_string(i);
            bands_.push_back(
                {value("freq" + n), value("gain" + n), value("q" + n), value("bell" + n)});
        }
        if (!bands_.empty()) {
            kind_ = Kind::Bands;
            decibels = {-20, 20, false};
        } else if (resonance_.exists()) {
            decibels = {-36, 12, false};
        }
        grips = bands_.size() + low_.exists() + high_.exists();
    }
    setAxes(kHertz, decibels);
    handles().all().resize(grips);
}

/// At its end a cut is out.
bool FilterCurve::cutsLow() const
{
    const int p = low_.parameter();
    return p >= 0 && low_.get() > double(model().info(p).minimum) * 1.0001;
}

bool FilterCurve::cutsHigh() const
{
    const int p = high_.parameter();
    return p >= 0 && high_.get() < double(model().info(p).maximum) * 0.9999;
}

void FilterCurve::place()
{
    auto& all = handles().all();
    std::size_t h = 0;
    const auto& area = plot().area;
    const Grip across{-1, plot().x.minimum, plot().x.maximum, area.x, area.right(), true};
    const Grip up{-1, plot().y.minimum, plot().y.maximum, area.bottom(), area.y, false};
    for (const auto& band : bands_) {
        if (h >= all.size()) return;
        auto& handle = all[h++];
        handle.x = across;
        handle.y = up;
        handle.x.parameter = band.frequency.parameter();
        handle.y.parameter = band.gain.parameter();
        handle.wheel = band.q.parameter();
        handle.at = {plot().across(band.frequency.get()), plot().upWithin(band.gain.get())};
    }
    for (const auto* cut : {&low_, &high_}) {
        if (!cut->exists() || h >= all.size() || kind_ == Kind::Swept || kind_ == Kind::Phaser)
            continue;
        auto& handle = all[h++];
        handle.x = across;
        handle.x.parameter = cut->parameter();
        handle.at = {std::clamp(plot().across(cut->get()), area.x, area.right()),
                     plot().upWithin(kMinusThree)};
    }
}

double FilterCurve::cuts(double hertz) const
{
    const bool lows = cutsLow(), highs = cutsHigh();
    if (resonance_.exists() && kind_ == Kind::Cuts)
        return toDecibel(resonantCuts(hertz, lows ? low_.get() : 1e-3, highs ? high_.get() : 1e9,
                                      resonance_.get()));
    Response all = 1;
    const int order = slope_.exists() ? (slope_.isOn() ? 4 : 2) : lowOrder_;
    if (lows) all *= lowCut(hertz, low_.get(), order);
    if (highs) all *= highCut(hertz, high_.get());
    return toDecibel(all);
}

double FilterCurve::bands(double hertz) const
{
    Response all = 1;
    for (std::size_t i = 0; i < bands_.size(); ++i) {
        const auto& band = bands_[i];
        const double centre = band.frequency.get(), gain = band.gain.get();
        const bool isOuter = i == 0 || i + 1 == bands_.size();
        if (gain == 0) continue;
        if (!isOuter || band.bell.isOn())
            all *= bell(hertz, centre, gain, band.q.get(0.7));
        else
            all *= i == 0 ? lowShelf(hertz, centre, gain) : highShelf(hertz, centre, gain);
    }
    return toDecibel(all) + cuts(hertz);
}

void FilterCurve::beginCurve(int)
{
    // A list of texts that are numbers.
    countStages_ = 2;
    if (const int p = stages_.parameter(); p >= 0)
        countStages_ = std::atoi(model().text(p).c_str());
}

double FilterCurve::corner(int side) const
{
    return corners_[side].exists() ? corners_[side].get() : centre_.get();
}

/// Sweeping, all stages at one corner; or notches that rise or fall for ever, each heard most in
/// the middle of its way (Esqueda, Valimaki and Parker, "Barberpole phasing and flanging
/// illusions", 2015).
double FilterCurve::phased(int side, double hertz) const
{
    const double feedback = resonance_.get(0) / 100, mix = mix_.get(50) / 100;
    const int stages = countStages_;
    if (!(mode_.get(0) > 0.5)) return toDecibel(phaser(hertz, corner(side), stages, feedback, mix));
    const int notches = std::max(1, stages / 2);
    const double range = std::max(1.0, range_.get(1)), way = mode_.get() > 1.5 ? -1 : 1;
    const double octaves = 0.6 * (1 - 0.8 * std::abs(feedback)) * range / notches;
    const double k = 2 * std::sinh(0.34657 * octaves);
    Response all = 1;
    for (int j = 0; j < notches; ++j) {
        double u = double(j) / notches + way * cycle_.get(0);
        u -= std::floor(u);
        const Response s(0, hertz / (centre_.get(1000) * std::exp2(range * (u - 0.5))));
        const double depth = 0.5 - 0.5 * std::cos(6.283185307 * u);
        all *= 1.0 - depth * k * s / (s * s + k * s + 1.0);
    }
    return toDecibel(1.0 - mix + mix * all);
}

double FilterCurve::response(int side, double hertz) const
{
    switch (kind_) {
    case Kind::Bands:
        return bands(hertz);
    case Kind::Swept:
        return toDecibel(swept(hertz, static_cast<SweptType>(static_cast<int>(type_.get(0))),
                               corner(side), resonance_.get(0) / 100));
    case Kind::Phaser:
        return phased(side, hertz);
    default:
        return cuts(hertz);
    }
}

int FilterCurve::curves() const
{
    if (!corners_[1].exists() || (kind_ == Kind::Phaser && mode_.get(0) > 0.5)) return 1;
    return std::abs(std::log2(corner(0) / corner(1))) < 0.005 ? 1 : 2;
}

void FilterCurve::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&low_, &high_, &slope_, &resonance_, &type_, &stages_, &on_, &mix_,
                          &mode_, &centre_, &range_})
        numbers.push_back(v->get(0));
    if (kind_ == Kind::Phaser && mode_.get(0) > 0.5) {
        numbers.push_back(cycle_.get(0));
    } else {
        // To a two-hundredth of an octave, which is less than a pixel.
        for (const auto& v : corners_) numbers.push_back(std::round(200 * std::log2(v.get(1))));
    }
    for (const auto& band : bands_)
        numbers.insert(numbers.end(),
                       {band.frequency.get(), band.gain.get(), band.q.get(0), band.bell.get(0)});
}

std::string FilterCurve::describe() const
{
    std::string text = "Filter";
    const auto add = [&](const Value& v) {
        if (v.exists()) text += ", " + v.title() + " " + v.text();
    };
    for (const auto* v : {&low_, &high_, &type_, &stages_, &resonance_, &corners_[0]}) add(*v);
    for (const auto& band : bands_) {
        add(band.frequency);
        add(band.gain);
    }
    return text;
}

std::string FilterCurve::tip(double, double) const
{
    if (kind_ == Kind::Bands) return "Drag a ring for frequency and gain; the wheel sets its Q.";
    return kind_ == Kind::Cuts ? "Drag a ring to move its cut." : std::string();
}

}  // namespace quillworks::editors
