// SPDX-License-Identifier: ISC
#include "editors/displays/gain_history.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

namespace quillworks::editors {
namespace {

constexpr Axis kLevels{-60, 0, false};
constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr double kFigures = 34;        // px at the right
constexpr double kLongestPause = 0.5;  // s without a tick after which the course begins anew

/// Takes of the stream's pictures the newest steps of the only band.
class StreamSink final : public VNK::IDisplaySink {
public:
    double rate = 0, count = 0;
    int bands = 0;
    double seconds = 0;  // of interest
    double known = -1;   // count at the last time
    std::vector<GainStream::Step>* steps = nullptr;

    void beginObject(const char*) override
    {
        ++depth_;
        bands += depth_ == 1;
    }
    void beginList(const char*) override {}
    void end() override { depth_ = std::max(0, depth_ - 1); }
    void number(const char* key, double value) override
    {
        if (std::string_view(key) == "rate") rate = value;
        if (std::string_view(key) == "count") count = value;
    }
    void numbers(const char* key, const float* values, std::int64_t n) override
    {
        if (bands != 1) return;
        const bool isLevel = std::string_view(key) == "level";
        const double fresh = known < 0 || count < known ? count : count - known;
        const auto most = std::min({double(n), fresh, std::ceil(seconds * rate)});
        const auto taken = static_cast<std::size_t>(std::max(0.0, most));
        if (isLevel) steps->assign(taken, {kNothing, kNothing});
        const float* const from = values + (n - static_cast<std::int64_t>(taken));
        for (std::size_t i = 0; i < std::min(taken, steps->size()); ++i)
            (isLevel ? (*steps)[i].level : (*steps)[i].gain) = double(from[i]);
    }
    void numbers(const char*, const double*, std::int64_t) override {}
    void text(const char*, const char*) override {}
    void flag(const char*, bool) override {}

private:
    int depth_ = 0;
};

double larger(double a, double b)
{
    return a >= b || std::isnan(b) ? a : b;
}

}  // namespace

bool GainStream::read(EffectModel& model, double seconds, std::vector<Step>& steps)
{
    StreamSink sink;
    sink.seconds = seconds;
    sink.known = count_;
    sink.steps = &steps;
    steps.clear();
    if (!model.snapshot("history", sink) || sink.bands > 1) return false;
    rate_ = sink.rate;
    count_ = sink.count;
    return true;
}

GainHistory::GainHistory(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      inputs_(model, attribute("in").empty() ? "inlevel" : attribute("in")),
      outputs_(model, attribute("out").empty() ? "outlevel" : attribute("out")),
      reductions_(values("reduction")),
      threshold_(value("threshold")),
      hysteresis_(value("hysteresis")),
      ceiling_(value("ceiling"))
{
    usesStream_ = reductions_.exist() && stream_.read(model, 0, steps_);
}

void GainHistory::sized()
{
    plot_ = {{1, 12, width() - 1 - kFigures, height() - 39}, {-kSeconds, 0, false}, kLevels};
    if (isSmall()) plot_.area = {1, 1, width() - 2, height() - 2};
    const int columns = std::max(1, static_cast<int>(std::floor(plot_.area.w * scale())));
    if (columns != columns_) {
        columns_ = columns;
        ring_.assign(static_cast<std::size_t>(columns), {kNothing, kNothing, kNothing});
        newest_ = 0;
        quiet_ = columns;
    }
    begun_ = -1;
    image_ = {};
}

const GainHistory::Column& GainHistory::at(int column) const
{
    return ring_[static_cast<std::size_t>((newest_ + 1 + column) % columns_)];
}

GainHistory::Column GainHistory::now() const
{
    double reduction = kNothing;
    for (int i = 0; i < reductions_.count(); ++i)
        reduction = larger(std::abs(reductions_.decibels(i)), reduction);
    return {inputs_.largestDecibels(), outputs_.largestDecibels(), reduction};
}

bool GainHistory::isQuiet(const Column& c) const
{
    return !(c.input > kLevels.minimum) && !(c.output > kLevels.minimum) && !(c.reduction > 0.05);
}

void GainHistory::add(const Column& column)
{
    newest_ = (newest_ + 1) % columns_;
    ring_[static_cast<std::size_t>(newest_)] = column;
    ++added_;
    quiet_ = isQuiet(column) ? std::min(quiet_ + 1, columns_) : 0;
}

/// Every column is the loudest and the most taken of its steps.
void GainHistory::takeStream(double)
{
    if (!stream_.read(model(), kSeconds, steps_)) return;
    const double perColumn = std::max(1e-3, stream_.rate() * kSeconds / columns_);
    const double output = outputs_.largestDecibels();
    for (const auto& step : steps_) {
        if (filling_ == 0 || !(filling_ >= 0)) open_ = {kNothing, output, kNothing};
        open_.input = larger(step.level, open_.input);
        open_.reduction = larger(std::abs(step.gain), open_.reduction);
        for (filling_ += 1; filling_ >= perColumn; filling_ -= perColumn) add(open_);
        if (filling_ < 1) open_ = {kNothing, output, kNothing};
    }
}

/// Between two ticks the course is straight.
void GainHistory::takeMeters(double seconds)
{
    const auto next = now();
    const double perColumn = kSeconds / columns_;
    if (begun_ < 0 || seconds < taken_ || seconds - taken_ > kLongestPause) {
        begun_ = taken_ = seconds;
        last_ = next;
        return;
    }
    const double passed = seconds - taken_;
    const int count = static_cast<int>(passed / perColumn);
    const auto between = [](double a, double b, double t) {
        return std::isnan(a) ? b : a + t * (b - a);
    };
    for (int i = 1; i <= count; ++i) {
        const double t = i * perColumn / passed;
        add({between(last_.input, next.input, t), between(last_.output, next.output, t),
             between(last_.reduction, next.reduction, t)});
    }
    if (count == 0) return;
    taken_ += count * perColumn;
    last_ = at(columns_ - 1);
}

void GainHistory::ticked(double seconds)
{
    if (columns_ == 0) return;
    const int before = added_;
    if (usesStream_)
        takeStream(seconds);
    else
        takeMeters(seconds);
    // What has been quiet all the while looks as before.
    if (quiet_ == columns_) added_ = before;
    if (added_ > before || (quiet_ == columns_ && added_ > 0)) damage(plot_.area);
}

Rect GainHistory::covered() const
{
    return {plot_.area.x, plot_.area.y, columns_ / scale(),
            std::ceil(plot_.area.h * scale() - 1e-6) / scale()};
}

void GainHistory::look(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {threshold_.get(), hysteresis_.get(0), ceiling_.get()});
}

void GainHistory::drawStatic(Canvas& canvas)
{
    image_ = {};
    if (isSmall()) return;
    auto shown = plot_;
    drawUp(canvas, shown, linearTicks(kLevels, 5, true), FiguresAt::Right);
    const double baseline = plot_.area.bottom() + 16;
    double x = 12;
    const auto entry = [&](const char* text, Ink ink) {
        canvas.fillRounded({x, baseline - 7, 8, 7}, 2, ink);
        x = canvas.text(Type::Axis, text, x + 13, baseline, Align::Left, Color::Text3).right() + 16;
    };
    if (inputs_.exist()) entry("Input", Color::Level);
    if (outputs_.exist()) entry("Output", Color::Output);
    if (reductions_.exist()) entry("Reduction", Color::Accent);
    for (double t = -6; t <= 0; t += 2) {
        const auto text = t == 0 ? std::string("now") : figure(t) + " s";
        const double w = canvas.textWidth(Type::Axis, text);
        const double at = t == 0 ? plot_.area.right() - w / 2 : plot_.across(t);
        if (at - w / 2 > x)
            canvas.text(Type::Axis, text, at, baseline, Align::Centre, Color::Text3);
    }
}

/// The columns from `from` on, in the picture, which covers the plot's area.
void GainHistory::paint(Canvas& canvas, int from)
{
    const double pixel = 1 / scale();
    const Rect whole{0, 0, columns_ * pixel, plot_.area.h};
    const Plot plot{whole, plot_.x, plot_.y};
    const auto saved = canvas.save();
    canvas.clip({from * pixel, 0, whole.w, whole.h});
    canvas.fill(whole, Color::Well);
    drawUp(canvas, plot, linearTicks(kLevels, 5, true), FiguresAt::None);
    // Lines reach over from the columns before.
    const int first = std::max(0, from - static_cast<int>(4 * scale()) - 1);
    const auto course = [&](double Column::*which, auto&& up) {
        points_.clear();
        for (int i = first; i < columns_; ++i)
            points_.push_back({(i + 0.5) * pixel, up(at(i).*which)});
        if (!points_.empty()) points_.push_back({whole.w + 2, points_.back().y});
    };
    const auto level = [&](double db) { return plot.upWithin(db); };
    course(&Column::input, level);
    canvas.area(points_, whole.h, Paint(Color::Level, 0, Ink(Color::Level, 0.55), whole.h));
    course(&Column::output, level);
    canvas.polyline(points_, 1.25, Color::Output);
    course(&Column::reduction, [&](double db) { return plot.upWithin(-db); });
    canvas.area(points_, 0, Ink(Color::Accent, 0.2));
    canvas.polyline(points_, 1.75, Color::Accent);
}

void GainHistory::draw(Canvas& canvas)
{
    const int height = static_cast<int>(std::ceil(plot_.area.h * scale() - 1e-6));
    const bool isNew = image_.isEmpty() || variant_ != canvas.theme().variant();
    if (isNew) {
        image_ = ScrollingImage(columns_, height);
        variant_ = canvas.theme().variant();
    } else if (added_ > 0 && added_ < columns_) {
        image_.scroll(added_);
    }
    if (isNew || added_ > 0) {
        Canvas own(image_.pixels(), scale(), canvas.fonts(), canvas.theme());
        // What stood at the right end was drawn before its successors were known.
        const int seam = static_cast<int>(std::ceil(2 * scale()));
        paint(own, isNew ? 0 : std::max(0, columns_ - added_ - seam));
        added_ = 0;
    }
    canvas.copy(image_.pixels(), plot_.area.x, plot_.area.y);
    const auto& area = plot_.area;
    for (double t = -6; t < 0; t += 2)
        canvas.vertical(plot_.across(t), area.y, area.bottom(), Ink(Color::Text3, 0.18));
    const auto line = [&](double db, Ink ink) {
        if (db >= kLevels.minimum && db <= kLevels.maximum)
            canvas.horizontal(area.x, area.right(), plot_.up(db), ink, Dash::Dots);
    };
    line(threshold_.get(), Color::Text3);
    // It opens at one and closes at the other.
    if (hysteresis_.get(0) > 0) line(threshold_.get() - hysteresis_.get(), Color::Text3);
    line(ceiling_.get(), Color::Warn);
}

std::string GainHistory::describe() const
{
    const auto shown = now();
    std::string text = "History of 8 s";
    const auto add = [&](const char* name, double db) {
        if (!std::isnan(db)) text += std::string(", ") + name + " " + figure(db, 1) + " dB";
    };
    add("input", shown.input);
    add("output", shown.output);
    add("reduction", -shown.reduction);
    return text;
}

}  // namespace quillworks::editors
