// SPDX-License-Identifier: ISC
#include "editors/displays/impulse_wave.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kFloor = -80;  // dB
constexpr double kFade = 0.2;   // of what is kept, before a cut at the end
constexpr double kMillis = 1000;

void toDecibels(std::vector<double>& peaks)
{
    double most = -1000;
    for (auto& v : peaks) {
        v = 20 * std::log10(std::max(v, 1e-9));
        most = std::max(most, v);
    }
    for (auto& v : peaks) v -= most;
}

}  // namespace

ImpulseWave::ImpulseWave(const VNK::SkinBox& box, EffectModel& model)
    : HandleDisplay(box, model),
      start_(value("start")),
      length_(value("length")),
      stretch_(value("stretch")),
      reverse_(value("reverse")),
      tailMode_(value("tailMode")),
      tailStart_(value("tailStart"))
{
    if (start_.exists() && length_.exists()) handles().all().resize(tailStart_.exists() ? 3 : 2);
}

void ImpulseWave::sized()
{
    plot_.area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                           : Rect{34, 10, width() - 46, height() - 34};
    plot_.y = {kFloor, 0, false};
}

double ImpulseWave::begin() const
{
    return hasWhole() ? std::min(start_.get(0) / kMillis, wholeSeconds_) * stretch() : 0;
}

double ImpulseWave::end() const
{
    if (!hasWhole()) return seconds_;
    return begin() + (span() - begin()) * length_.get(100) / 100;
}

void ImpulseWave::ticked(double)
{
    const auto& node = model().display("response");
    const auto& channels = node["channels"];
    const auto& paths = node["paths"];
    now_.clear();
    for (std::size_t i = 0; i < channels.size(); ++i) {  // peaks, linear
        auto line = channels[i]["peaks"].numbers();
        for (auto& v : line) v = 20 * std::log10(std::max(v, 1e-9));
        now_.push_back(std::move(line));
    }
    for (std::size_t i = 0; i < paths.size(); ++i) now_.push_back(paths[i]["level"].numbers());
    double most = -1000;
    for (const auto& line : now_)
        for (const double v : line) most = std::max(most, v);
    for (auto& line : now_)
        for (auto& v : line) v -= most;
    wholeNow_ = node["file"]["peaks"].numbers();
    toDecibels(wholeNow_);
    const double seconds = node["seconds"].number(), tail = node["tailstart"].number();
    const double whole = node["file"]["seconds"].number();
    const auto& failure = node["failure"].text();
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    if (now_ == lines_ && wholeNow_ == whole_ && same(seconds, seconds_) && same(tail, madeTail_) &&
        same(whole, wholeSeconds_) && failure == failure_)
        return;
    lines_.swap(now_);
    whole_.swap(wholeNow_);
    seconds_ = seconds;
    madeTail_ = tail;
    wholeSeconds_ = whole;
    failure_ = failure;
    damage();
}

void ImpulseWave::place()
{
    auto& all = handles().all();
    if (all.empty()) return;
    const auto& area = plot_.area;
    plot_.x = {0, std::max(1e-3, span()), false};
    const bool isThere = hasWhole() && span() > 0;
    const auto lay = [&](Handle& handle, double seconds, double y, const Value& value, auto of) {
        handle.isVisible = isThere;
        handle.at = {std::clamp(plot_.across(seconds), area.x, area.right()), y};
        handle.x = {value.parameter(), 0, 1, area.x, area.right()};
        handle.x.warped = [this, of](double x) { return of(plot_.valueAcross(x)); };
    };
    lay(all[0], begin(), area.y + 6, start_, [this](double t) { return t / stretch() * kMillis; });
    lay(all[1], end(), area.bottom() - 6, length_,
        [this](double t) { return 100 * (t - begin()) / std::max(1e-9, span() - begin()); });
    if (all.size() < 3) return;
    lay(all[2], begin() + tailStart_.get(0) / kMillis, area.centre().y, tailStart_,
        [this](double t) { return (t - begin()) * kMillis; });
    all[2].isVisible = isThere && hasTail();
}

void ImpulseWave::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&start_, &length_, &stretch_, &reverse_, &tailMode_, &tailStart_})
        numbers.push_back(v->get(0));
}

void ImpulseWave::lookStatic(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {span(), double(lines_.empty())});
}

void ImpulseWave::drawStatic(Canvas& canvas)
{
    drawUp(canvas, plot_, linearTicks(plot_.y, 5, false),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
    if (!(span() > 0)) return;
    plot_.x = {0, span(), false};
    auto ticks = linearTicks(plot_.x, 8, false);
    for (auto& tick : ticks) tick.text = tick.value == 0 ? "0" : shortTime(tick.value);
    drawAcross(canvas, plot_, ticks, !isSmall());
}

/// Columns without a sample of the response carry the peak before them.
void ImpulseWave::outline(const Line& line, double from, double to, double raise, bool isReversed)
{
    points_.clear();
    const double left = plot_.across(from), w = plot_.across(to) - left;
    const auto n = line.size();
    double last = kFloor - 10;
    for (std::size_t k = 0; k < n; ++k) {
        const double v = line[isReversed ? n - 1 - k : k];
        if (v > kFloor - 20) last = v + raise;
        const double x = left + w * (static_cast<double>(k) + 0.5) / static_cast<double>(n);
        points_.push_back(
            {x, std::clamp(plot_.up(last), plot_.area.y - 3, plot_.area.bottom() + 3)});
    }
}

void ImpulseWave::draw(Canvas& canvas)
{
    const auto& area = plot_.area;
    if (lines_.empty() || !(seconds_ > 0)) {
        const auto text = failure_.empty() ? std::string("No response yet") : failure_;
        canvas.text(Type::Label, canvas.fitted(Type::Label, text, area.w - 12), area.centre().x,
                    area.centre().y, Align::Centre, failure_.empty() ? Color::Text3 : Color::Warn);
        return;
    }
    plot_.x = {0, span(), false};
    place();
    graph_.begin(canvas, area);
    const double from = begin(), to = hasWhole() ? std::min(from + seconds_, span()) : seconds_;
    if (hasWhole() && to - from < span() * 0.999) {
        outline(whole_, 0, span(), 0, false);
        graph_.fill(points_, area.bottom(), Ink(Color::Level, 0.5), Ink(Color::Level, 0.2));
    }
    // What is kept lies where it is in the whole.
    double raise = 0;
    if (const auto n = static_cast<double>(whole_.size()); hasWhole() && n > 0) {
        const auto first = static_cast<std::size_t>(std::min(n - 1, n * from / span()));
        const auto last = static_cast<std::size_t>(std::clamp(n * to / span(), 1.0, n));
        raise = kFloor;
        for (auto i = first; i < std::max(first + 1, last); ++i) raise = std::max(raise, whole_[i]);
    }
    // The picture stays in the time of the file, so that handles do not change sides.
    for (std::size_t i = lines_.size(); i-- > 0;) {
        outline(lines_[i], from, to, raise, hasWhole() && reverse_.isOn());
        if (i == 0)
            graph_.fill(points_, area.bottom(), Ink(Color::Accent, 0.45), Ink(Color::Accent, 0.1));
        graph_.stroke(points_, i == 0 ? 1.5 : 1,
                      i == 0 ? Ink(Color::Accent) : Ink(Color::Output, 0.6));
    }
    graph_.show(canvas);
    const double tail = hasTail() ? tailStart_.get() / kMillis : madeTail_;
    if (const double x = plot_.across(from + tail); tail > 0 && x < area.right()) {
        canvas.vertical(x, area.y, area.bottom(), Color::Text2, Dash::Dashes);
        if (!isSmall())
            canvas.text(Type::Axis, "Tail", x + 5, area.y + 13, Align::Left, Color::Text2);
    }
    if (hasWhole()) drawCuts(canvas);
}

void ImpulseWave::drawCuts(Canvas& canvas)
{
    const auto& area = plot_.area;
    const double from = begin(), to = end();
    for (const double t : {from, to})
        canvas.vertical(plot_.across(t), area.y, area.bottom(), Color::Accent);
    if (length_.get(100) < 99.95) {
        // A squared cosine.
        const double fade = kFade * (to - from);
        points_.clear();
        for (int i = 0; i < 40; ++i) {
            const double share = i / 40.0, gain = std::cos(1.5707963 * share);
            points_.push_back(
                {plot_.across(to - fade + share * fade), plot_.upWithin(40 * std::log10(gain))});
        }
        canvas.polyline(points_, 1.25, Color::Text2);
    }
    if (reverse_.isOn() && !isSmall())
        canvas.text(Type::Axis, "Reversed", area.right() - 6, area.y + 13, Align::Right,
                    Color::Accent);
    handles().draw(canvas);
    handles().drawLabel(canvas, area);
}

std::string ImpulseWave::describe() const
{
    if (lines_.empty() || !(seconds_ > 0)) return "Response: none yet";
    std::string text =
        "Response of " + shortTime(seconds_) + ", " + std::to_string(lines_.size()) + " paths";
    if (hasWhole())
        text +=
            ", from " + shortTime(begin()) + " to " + shortTime(end()) + " of " + shortTime(span());
    return text;
}

std::string ImpulseWave::tip(double, double) const
{
    return handles().all().empty()
               ? std::string()
               : "Drag the rings: above the start, below the end, between them the tail's start.";
}

}  // namespace quillworks::editors
