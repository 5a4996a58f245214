// SPDX-License-Identifier: ISC
#include "editors/displays/band_curve.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace quillworks::editors {
namespace {

constexpr Axis kHertz{20, 20000, true};
constexpr Axis kLevels{-60, 18, false};

}  // namespace

BandCurve::BandCurve(const VNK::SkinBox& box, EffectModel& model)
    : HandleDisplay(box, model),
      bands_(value("bands")),
      thresholds_(values("thresholds")),
      gains_(values("gains")),
      reductions_(values("reductions")),
      levels_(values("levels")),
      choice_(attribute("choice")),
      ground_(attribute("ground"))
{
    for (const char* name : {"split1", "split2"})
        if (!attribute(name).empty()) splits_.push_back(value(name));
    const auto family = model.parameters(attribute("splits"));
    if (!attribute("splits").empty())
        for (const int p : family) splits_.emplace_back(model, model.info(p).key);
    handles().all().resize(splits_.size() + 2 * (splits_.size() + 1));
}

void BandCurve::sized()
{
    const Rect area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                                : Rect{34, 10, width() - 46, height() - 34};
    plot_ = {area, kHertz, kLevels};
    ground_.forget();
    set_.forget();
    place();
}

/// As many as are chosen, in a list of texts that are numbers; else one more than the splits.
int BandCurve::bands() const
{
    const int most = static_cast<int>(splits_.size()) + 1;
    const int p = bands_.parameter();
    return p < 0 ? most : std::clamp(std::atoi(model().text(p).c_str()), 1, most);
}

double BandCurve::edge(int band) const
{
    if (band <= 0) return kHertz.minimum;
    if (band >= bands()) return kHertz.maximum;
    return std::clamp(splits_[static_cast<std::size_t>(band - 1)].get(), kHertz.minimum,
                      kHertz.maximum);
}

void BandCurve::place()
{
    const auto& area = plot_.area;
    const int count = bands();
    std::size_t h = 0;
    auto& all = handles().all();
    for (std::size_t i = 0; i < splits_.size(); ++i) {
        auto& handle = all[h++];
        handle.isVisible = static_cast<int>(i) < count - 1;
        handle.at = {plot_.across(std::max(1.0, splits_[i].get())), area.bottom() - 8};
        handle.x = {
            splits_[i].parameter(), kHertz.minimum, kHertz.maximum, area.x, area.right(), true};
    }
    for (const auto* list : {&thresholds_, &gains_}) {
        for (int b = 0; b <= static_cast<int>(splits_.size()); ++b) {
            auto& handle = all[h++];
            handle.isVisible = b < count && list->parameter(b) >= 0;
            const double left = plot_.across(edge(b)), right = plot_.across(edge(b + 1));
            const double x = left + (right - left) * (list == &thresholds_ ? 0.35 : 0.65);
            handle.at = {x, plot_.upWithin((*list)[b])};
            handle.y = {list->parameter(b), kLevels.minimum, kLevels.maximum,
                        area.bottom(),      area.y,          false};
        }
    }
}

bool BandCurve::pointer(const PointerEvent& event)
{
    if (event.action == PointerAction::Press && event.button == 1 && !choice_.empty())
        for (int b = 0; b < bands(); ++b)
            if (event.x >= plot_.across(edge(b)) && event.x < plot_.across(edge(b + 1)))
                model().choose(choice_, b);
    return HandleDisplay::pointer(event);
}

void BandCurve::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {double(bands()), double(model().chosen(choice_))});
    for (const auto& split : splits_) numbers.push_back(split.get());
    for (int b = 0; b < bands(); ++b)
        numbers.insert(numbers.end(), {thresholds_[b], gains_[b], std::round(reductions_[b] * 8),
                                       std::round(std::max(-61.0, levels_[b]) * 4)});
}

/// What hands move is drawn anew as a whole; of what the sound moves the difference.
void BandCurve::lookChanged()
{
    const int count = bands();
    std::vector<Band> now;
    std::vector<double> edges;
    for (int b = 0; b < count; ++b) {
        now.push_back({thresholds_[b], gains_[b], levels_[b], reductions_[b]});
        edges.push_back(edge(b));
    }
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    const auto isSet = [&](const Band& a, const Band& b) {
        return same(a.threshold, b.threshold) && same(a.gain, b.gain);
    };
    now.swap(shown_);
    const auto& was = now;
    const int chosen = std::exchange(chosen_, model().chosen(choice_));
    if (edges != edges_ || chosen != chosen_ ||
        !std::equal(was.begin(), was.end(), shown_.begin(), shown_.end(), isSet)) {
        edges_ = std::move(edges);
        set_.forget();
        return damage();
    }
    const auto& area = plot_.area;
    for (int b = 0; b < count; ++b) {
        const auto &before = was[static_cast<std::size_t>(b)],
                   &after = shown_[static_cast<std::size_t>(b)];
        const double left = plot_.across(edge(b)), w = plot_.across(edge(b + 1)) - left;
        const auto between = [&](double from, double to, double rim) {
            const double a = std::isnan(from) ? area.bottom() : plot_.upWithin(from);
            const double z = std::isnan(to) ? area.bottom() : plot_.upWithin(to);
            if (a != z) damage({left, std::min(a, z) - rim, w + 1, std::abs(a - z) + 2 * rim});
        };
        between(before.level, after.level, 1);
        between(before.change, after.change, 2);
    }
}

void BandCurve::ticked(double)
{
    if (isSmall()) return;
    ground_.tick(model(), plot_, scale(), [this](const Rect& rect) { damage(rect); });
}

void BandCurve::drawStatic(Canvas& canvas)
{
    drawAcross(canvas, plot_, frequencyTicks(kHertz), !isSmall());
    drawUp(canvas, plot_, linearTicks(kLevels, 7, true),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
}

void BandCurve::drawSet(Canvas& canvas)
{
    const auto& area = plot_.area;
    for (int b = 0; b < bands(); ++b) {
        const double left = plot_.across(edge(b)) + 1, w = plot_.across(edge(b + 1)) - left;
        if (w <= 0) continue;
        if (!std::isnan(thresholds_[b]))
            canvas.horizontal(left, left + w, plot_.upWithin(thresholds_[b]), Color::Text2,
                              Dash::Dashes);
        if (!std::isnan(gains_[b])) {
            const double y = plot_.upWithin(gains_[b]);
            canvas.fill({left, y - 0.75, w, 1.5}, Color::Text);
        }
        if (!isSmall())
            canvas.text(Type::Axis, std::to_string(b + 1), left + 8, area.y + 14, Align::Left,
                        isChosen(b) ? Color::Accent : Color::Text3);
    }
    for (int b = 1; b < bands(); ++b)
        canvas.vertical(plot_.across(edge(b)), area.y, area.bottom(), Color::Accent);
}

void BandCurve::draw(Canvas& canvas)
{
    place();
    const auto& area = plot_.area;
    const double zero = plot_.up(0);
    if (shown_.size() != static_cast<std::size_t>(bands())) lookChanged();
    // Over a spectrum the bands' levels are lines with a breath of colour.
    const bool isOver = ground_.isThere();
    const double opacity = isOver ? 0.35 : 0.7;
    ground_.draw(canvas, area);
    for (int b = 0; b < bands(); ++b) {
        const auto& shown = shown_[static_cast<std::size_t>(b)];
        const double left = plot_.across(edge(b)) + 1, w = plot_.across(edge(b + 1)) - left;
        if (w <= 0) continue;
        if (const double level = shown.level; level > kLevels.minimum) {
            const double y = plot_.upWithin(level);
            canvas.fill({left, y, w, area.bottom() - y},
                        Paint(Ink(Color::Level, opacity), area.y, Ink(Color::Level, opacity / 2),
                              area.bottom()));
            if (isOver) canvas.fill({left, y - 0.5, w, 1}, Ink(Color::Output, 0.8));
        }
        // What is taken, or given, from the line at 0 dB.
        if (const double change = shown.change; std::abs(change) > 0.05) {
            const double y = plot_.upWithin(change);
            canvas.fill({left, std::min(y, zero), w, std::abs(y - zero)}, Ink(Color::Accent, 0.3));
            canvas.fill({left, y - 1, w, 2}, Color::Accent);
        }
    }
    if (isOver)
        set_.draw(canvas, *this, [this](Canvas& own) { drawSet(own); });
    else
        drawSet(canvas);
    handles().draw(canvas);
    if (!isSmall()) handles().drawLabel(canvas, area);
}

std::string BandCurve::describe() const
{
    std::string text = "Bands";
    for (int b = 0; b < bands(); ++b)
        text += ", " + std::to_string(b + 1) + " from " + frequencyText(edge(b)) + " threshold " +
                thresholds_.text(b) + " gain " + gains_.text(b);
    return text;
}

std::string BandCurve::tip(double, double) const
{
    return "Drag the rings: below the splits, left the thresholds, right the gains.";
}

}  // namespace quillworks::editors
