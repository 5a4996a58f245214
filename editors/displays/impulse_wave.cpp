// SPDX-License-Identifier: ISC
#include "editors/displays/impulse_wave.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kFloor = -80;  // dB

}  // namespace

void ImpulseWave::sized()
{
    plot_.area = isSmall() ? Rect{6, 6, width() - 12, height() - 12}
                           : Rect{34, 10, width() - 46, height() - 34};
    plot_.y = {kFloor, 0, false};
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
    const double seconds = node["seconds"].number(), tail = node["tailstart"].number();
    const auto& failure = node["failure"].text();
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    if (now_ == lines_ && same(seconds, seconds_) && same(tail, tailStart_) && failure == failure_)
        return;
    lines_.swap(now_);
    seconds_ = seconds;
    tailStart_ = tail;
    failure_ = failure;
    damage();
}

void ImpulseWave::lookStatic(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {seconds_, double(lines_.empty())});
}

void ImpulseWave::drawStatic(Canvas& canvas)
{
    drawUp(canvas, plot_, linearTicks(plot_.y, 5, false),
           isSmall() ? FiguresAt::None : FiguresAt::Left);
    if (!(seconds_ > 0)) return;
    plot_.x = {0, seconds_, false};
    auto ticks = linearTicks(plot_.x, 8, false);
    for (auto& tick : ticks) tick.text = tick.value == 0 ? "0" : shortTime(tick.value);
    drawAcross(canvas, plot_, ticks, !isSmall());
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
    plot_.x = {0, seconds_, false};
    graph_.begin(canvas, area);
    for (std::size_t i = lines_.size(); i-- > 0;) {
        const auto& line = lines_[i];
        points_.clear();
        // Columns without a sample of the response carry the peak before them.
        double last = kFloor - 10;
        for (std::size_t k = 0; k < line.size(); ++k) {
            if (line[k] > kFloor - 20) last = line[k];
            const double x =
                area.x + area.w * (static_cast<double>(k) + 0.5) / static_cast<double>(line.size());
            points_.push_back({x, std::clamp(plot_.up(last), area.y - 3, area.bottom() + 3)});
        }
        if (i == 0)
            graph_.fill(points_, area.bottom(), Ink(Color::Accent, 0.45), Ink(Color::Accent, 0.1));
        graph_.stroke(points_, i == 0 ? 1.5 : 1,
                      i == 0 ? Ink(Color::Accent) : Ink(Color::Output, 0.6));
    }
    graph_.show(canvas);
    if (tailStart_ > 0 && tailStart_ < seconds_) {
        const double x = plot_.across(tailStart_);
        canvas.vertical(x, area.y, area.bottom(), Color::Text2, Dash::Dashes);
        if (!isSmall())
            canvas.text(Type::Axis, "Tail", x + 5, area.y + 13, Align::Left, Color::Text2);
    }
}

std::string ImpulseWave::describe() const
{
    if (lines_.empty() || !(seconds_ > 0)) return "Response: none yet";
    return "Response of " + shortTime(seconds_) + ", " + std::to_string(lines_.size()) + " paths";
}

}  // namespace quillworks::editors
