// SPDX-License-Identifier: ISC
#include "editors/displays/spectrum.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr double kLeastStep = 0.8;             // px between points of a curve
constexpr double kNames = 22, kReading = 180;  // px of the texts at the top
constexpr double kTiltCentre = 1000;           // Hz, where a tilt changes nothing

Ink inkOf(std::size_t curve)
{
    if (curve == 0) return Color::Accent;
    return curve == 1 ? Ink(Color::Output) : Ink(Color::Text2, curve % 2 ? 0.6 : 0.8);
}

}  // namespace

Spectrum::Spectrum(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      mode_(value("mode")),
      tilt_(value("tilt")),
      top_(value("top")),
      range_(value("range")),
      low_(value("low")),
      high_(value("high")),
      compare_(value("compare")),
      peakHertz_(kNothing),
      peakLevel_(kNothing)
{}

void Spectrum::sized()
{
    plot_.area = !hasFigures() ? Rect{1, 1, width() - 2, height() - 2}
                               : Rect{34, 10, width() - 46, height() - 34};
    const auto device = [this](double px) { return static_cast<int>(std::lround(px * scale())); };
    sonogram_.resize(device(plot_.area.w), device(plot_.area.h));
    curves_.clear();
    isBuilt_ = false;
    groups_.clear();
}

Rect Spectrum::dotPlace(Point at)
{
    if (!std::isfinite(at.x)) return {};
    return {at.x - 8, at.y - 8, 16, 16};
}

Rect Spectrum::readingPlace() const
{
    return {plot_.area.right() - kReading, plot_.area.y, kReading, kNames};
}

void Spectrum::lookStatic(std::vector<double>& numbers) const
{
    for (const auto* v : {&mode_, &top_, &range_, &low_, &high_}) numbers.push_back(v->get(0));
}

void Spectrum::look(std::vector<double>& numbers) const
{
    numbers.push_back(tilt_.get(0));
}

double Spectrum::tilted(double db, double hertz) const
{
    return db + tilt_.get(0) * std::log2(hertz / kTiltCentre);
}

/// Points of a curve: the bins within a pixel are one.
void Spectrum::group()
{
    groups_.clear();
    const auto n = hertz_.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (!(hertz_[i] > 0)) continue;
        const double x = plot_.across(hertz_[i]);
        // One neighbour on each side, so that the curve reaches the rim.
        if (x < plot_.area.x && i + 1 < n && plot_.across(hertz_[i + 1]) < plot_.area.x) continue;
        if (groups_.empty() || x - groups_.back().x >= kLeastStep)
            groups_.push_back({i, i + 1, x, std::log2(hertz_[i] / kTiltCentre)});
        else
            groups_.back().end = i + 1;
        if (x > plot_.area.right()) break;
    }
}

/// Of each group the loudest; between those that lie farther apart a straight line.
void Spectrum::trace(std::vector<Point>& points, const std::vector<double>& levels) const
{
    points.clear();
    const double tilt = tilt_.get(0);
    for (const auto& group : groups_) {
        if (group.end > levels.size()) break;
        double level = levels[group.begin];
        for (auto i = group.begin + 1; i < group.end; ++i)
            if (!(levels[i] <= level)) level = levels[i];
        const double y = std::isnan(level) ? kNothing
                                           : std::clamp(plot_.up(level + tilt * group.octaves),
                                                        plot_.area.y - 3, plot_.area.bottom() + 3);
        points.push_back({group.x, y});
    }
}

void Spectrum::readCurves(const char* display, const char* frequencies)
{
    const auto& node = model().display(display);
    const auto& hertz = node[frequencies].numbers();
    const bool isSame = hertz == hertz_ && !groups_.empty() &&
                        acrossOf_.x.minimum == plot_.x.minimum &&
                        acrossOf_.x.maximum == plot_.x.maximum;
    if (!isSame) {
        hertz_ = hertz;
        acrossOf_ = plot_;
        group();
    }
    const auto& channels = node["channels"];
    if (curves_.size() != channels.size()) damage();
    curves_.resize(channels.size());
    for (std::size_t c = 0; c < curves_.size(); ++c) {
        auto& curve = curves_[c];
        if (curve.name != channels[c]["name"].text()) damage();
        curve.name = channels[c]["name"].text();
        trace(curve.level, channels[c]["level"].numbers());
        trace(curve.hold, channels[c]["hold"].numbers());
        trace(curve.reference, channels[c]["reference"].numbers());
    }
    const auto& peaks = channels[0]["peaks"];
    peakHertz_ = peakLevel_ = kNothing;
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        const double at = peaks[i]["frequency"].number();
        if (!(at >= plot_.x.minimum && at <= plot_.x.maximum)) continue;
        if (peaks[i]["level"].number() <= peakLevel_) continue;
        peakHertz_ = at;
        peakLevel_ = peaks[i]["level"].number();
    }
}

void Spectrum::ticked(double)
{
    plot_.x = {std::max(1.0, low_.get(20)), std::max(low_.get(20) * 2, high_.get(20000)), true};
    const double top = top_.get(0);
    plot_.y = {top - std::max(1.0, range_.get(90)), top, false};
    if (mode() == Mode::Sonogram) {
        sonogram_.setLevels(plot_.y.minimum, plot_.y.maximum);
        if (sonogram_.update(model())) damage(plot_.area);
        return;
    }
    if (mode() == Mode::Bands) {
        readCurves("bands", "centre");
        damageBars();
    } else {
        readCurves("spectrum", "frequency");
        moveCurves();
    }
    markPeak();
}

Rect Spectrum::covered() const
{
    return mode() == Mode::Sonogram ? plot_.area : Rect{};
}

void Spectrum::buildCurves()
{
    auto& graph = graph_.next(plot_.area, scale());
    for (std::size_t c = curves_.size(); c-- > 0;) {
        const auto& curve = curves_[c];
        const auto ink = inkOf(c);
        const auto faint = [&](double share) { return Ink(ink.color, share * ink.opacity); };
        if (c == 0) graph.fill(curve.level, plot_.area.bottom(), faint(0.3), faint(0.04));
        if (!curve.reference.empty()) graph.stroke(curve.reference, 1, Ink(Color::Text3, 0.9));
        if (!curve.hold.empty()) graph.stroke(curve.hold, 1, faint(0.55));
        graph.stroke(curve.level, 1.5, ink);
    }
    isBuilt_ = true;
}

void Spectrum::moveCurves()
{
    const bool wasBuilt = isBuilt_;
    buildCurves();
    const Rect above[] = {{plot_.area.x, plot_.area.y, names_ - plot_.area.x, kNames},
                          readingPlace(),
                          dotPlace(peak_),
                          {cursor_ - 1, plot_.area.y, cursor_ < 0 ? 0.0 : 2.0, plot_.area.h}};
    bool isHit[std::size(above)] = {};
    const bool isKnown = graph_.compare([&](const Rect& rect) {
        moved(rect);
        for (std::size_t i = 0; i < std::size(above); ++i) isHit[i] |= above[i].overlaps(rect);
    });
    if (!isKnown || !wasBuilt) return damage();
    for (std::size_t i = 0; i < std::size(above); ++i)
        if (isHit[i]) damage(above[i]);
}

/// Each band from half way to its neighbours, of all curves side by side.
void Spectrum::damageBars()
{
    const auto& area = plot_.area;
    const auto count = std::max<std::size_t>(1, curves_.size());
    for (std::size_t c = 0; c < curves_.size(); ++c) {
        auto& curve = curves_[c];
        const auto& level = curve.level;
        const auto place = [&](std::size_t i, double y, double h) {
            const double next = i + 1 < level.size() ? level[i + 1].x - level[i].x
                                : i > 0              ? level[i].x - level[i - 1].x
                                                     : 10;
            const double w = std::max(1.0, (next - 2) / static_cast<double>(count));
            const double x = level[i].x - next / 2 + 1 + static_cast<double>(c) * w;
            return y < area.bottom() ? Rect{x, y, w - 0.5, h} : Rect{};
        };
        const auto move = [&](std::vector<Rect>& bars, const std::vector<Point>& points,
                              bool isMark) {
            bars.resize(std::min(points.size(), level.size()));
            for (std::size_t i = 0; i < bars.size(); ++i) {
                const double y = points[i].y;
                const auto now = isMark ? place(i, y - 0.75, 1.5) : place(i, y, area.bottom() - y);
                auto& was = bars[i];
                if (now.x == was.x && now.y == was.y && now.w == was.w) continue;
                auto changed = was.united(now);
                // Of a bar that has only become longer or shorter, what is between its tops.
                if (!isMark && was.x == now.x && was.w == now.w)
                    changed.h = std::abs(was.y - now.y);
                damage(changed.inset(-1));
                was = now;
            }
        };
        move(curve.bars, curve.level, false);
        move(curve.marks, curve.hold, true);
        move(curve.grey, curve.reference, true);
    }
}

/// At the pointer, else at the loudest peak.
void Spectrum::markPeak()
{
    const auto& area = plot_.area;
    std::string text;
    Point peak{kNothing, kNothing};
    if (cursor_ >= area.x && cursor_ <= area.right()) {
        text = frequencyText(plot_.valueAcross(cursor_));
        if (mode() != Mode::Sonogram && !curves_.empty()) {
            const auto& points = curves_[0].level;
            const auto at = std::lower_bound(points.begin(), points.end(), cursor_,
                                             [](const Point& p, double x) { return p.x < x; });
            if (at != points.end() && std::isfinite(at->y))
                text += "  " + figure(plot_.valueUp(at->y), 1) + " dB";
        }
    } else if (mode() == Mode::Spectrum && std::isfinite(peakLevel_)) {
        const Point at{plot_.across(peakHertz_), plot_.upWithin(tilted(peakLevel_, peakHertz_))};
        if (at.x > area.x && at.x < area.right()) peak = at;
        text = frequencyText(peakHertz_) + "  " + figure(peakLevel_, 1) + " dB";
    }
    const bool hasMoved = std::isfinite(peak.x) != std::isfinite(peak_.x) ||
                          (std::isfinite(peak.x) && (peak.x != peak_.x || peak.y != peak_.y));
    if (hasMoved) {
        damage(dotPlace(peak_));
        damage(dotPlace(peak));
    }
    peak_ = peak;
    if (text != reading_) damage(readingPlace());
    reading_ = std::move(text);
}

void Spectrum::drawStatic(Canvas& canvas)
{
    const auto& area = plot_.area;
    if (!(plot_.x.maximum > plot_.x.minimum)) return;
    if (mode() != Mode::Sonogram) {
        drawAcross(canvas, plot_, frequencyTicks(plot_.x), hasFigures());
        drawUp(canvas, plot_, linearTicks(plot_.y, static_cast<int>(area.h / 26), true),
               hasFigures() ? FiguresAt::Left : FiguresAt::None);
        return;
    }
    const Plot upright{area, {-SonogramPicture::kSeconds, 0, false}, plot_.x};
    auto times = linearTicks(upright.x, 6, false);
    for (auto& tick : times) tick.text = tick.value == 0 ? "now" : tick.text + " s";
    drawAcross(canvas, upright, times, hasFigures());
    drawUp(canvas, upright, frequencyTicks(plot_.x),
           hasFigures() ? FiguresAt::Left : FiguresAt::None);
}

void Spectrum::drawBars(Canvas& canvas)
{
    bands_.begin(plot_.area, scale());
    for (std::size_t c = 0; c < curves_.size(); ++c) {
        const auto ink = inkOf(c);
        bands_.bars(curves_[c].bars, ink, Ink(ink.color, 0.5 * ink.opacity));
        bands_.bars(curves_[c].marks, Color::Text, Color::Text);
        bands_.bars(curves_[c].grey, Color::Text3, Color::Text3);
    }
    bands_.show(canvas);
}

void Spectrum::drawMoved(Canvas& canvas)
{
    if (mode() == Mode::Spectrum) graph_.showMoved(canvas);
}

void Spectrum::drawNames(Canvas& canvas)
{
    const auto& area = plot_.area;
    if (!hasFigures() || !canvas.sees({area.x, area.y, area.w, kNames})) return;
    double x = area.x + 8;
    for (std::size_t c = 0; c < curves_.size(); ++c)
        x = canvas.text(Type::Axis, curves_[c].name, x, area.y + 15, Align::Left, inkOf(c))
                .right() +
            10;
    names_ = x;
}

void Spectrum::drawCursor(Canvas& canvas)
{
    const auto& area = plot_.area;
    if (cursor_ >= area.x && cursor_ <= area.right())
        canvas.vertical(cursor_, area.y, area.bottom(), Ink(Color::Text, 0.4));
    if (std::isfinite(peak_.x)) drawDot(canvas, peak_, Ink(Color::Text, 0.8));
    if (hasFigures() && !reading_.empty() && canvas.sees(readingPlace()))
        canvas.text(Type::Axis, reading_, area.right() - 8, area.y + 15, Align::Right,
                    Color::Text2);
}

void Spectrum::draw(Canvas& canvas)
{
    const auto saved = canvas.save();
    canvas.clip(plot_.area.inset(-1));
    if (mode() == Mode::Sonogram) {
        sonogram_.draw(canvas, plot_.area);
        return;
    }
    if (mode() == Mode::Bands) {
        drawBars(canvas);
    } else {
        if (!isBuilt_) buildCurves();
        graph_.show(canvas);
    }
    drawNames(canvas);
    drawCursor(canvas);
}

bool Spectrum::pointer(const PointerEvent& event)
{
    const double before = cursor_;
    cursor_ = event.action == PointerAction::Leave ? -1 : event.x;
    if (before == cursor_) return false;
    damage();
    markPeak();
    return false;
}

std::string Spectrum::describe() const
{
    std::string text = "Analyser, " + mode_.text();
    if (mode() == Mode::Spectrum && std::isfinite(peakLevel_))
        text += ", loudest " + frequencyText(peakHertz_) + " " + figure(peakLevel_, 1) + " dB";
    return text;
}

}  // namespace quillworks::editors
