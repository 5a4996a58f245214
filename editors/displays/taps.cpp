// SPDX-License-Identifier: ISC
#include "editors/displays/taps.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr double kSilence = 0.003;  // linear: echoes below it are not drawn
constexpr int kMost = 64;
constexpr double kBar = 4;  // quarter notes

}  // namespace

EchoDisplay::EchoDisplay(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      sync_(model, "sync"),
      reduction_(value("reduction")),
      frozen_(value("frozen")),
      levels_(values("levels"))
{}

/// A note value counts halves: a quarter note is 0.5.
double EchoDisplay::period(const Value& beats, const Value& time) const
{
    return isSynced() && beats.exists() ? 2 * beats.get() : time.get() / 1000;
}

void EchoDisplay::sized()
{
    plot_.area = {10, 8, width() - 20, height() - (isSmall() ? 16 : 30)};
    if (height() < 90) plot_.area = {10, 6, width() - 20, height() - 24};
    plot_.y = {-1.1, 1.1, false};
}

/// A few bars, or so many seconds that the first echoes are told apart.
double EchoDisplay::end() const
{
    echoes_.clear();
    list(echoes_);
    double last = 0;
    for (const auto& echo : echoes_)
        if (echo.gain > 0.03) last = std::max(last, echo.place);
    if (isSynced()) return std::clamp(std::ceil(last / kBar) * kBar, kBar, 4 * kBar);
    for (const double seconds : {0.1, 0.25, 0.5, 1.0, 2.0, 4.0})
        if (last <= seconds) return seconds;
    return 8;
}

void EchoDisplay::look(std::vector<double>& numbers) const
{
    echoes_.clear();
    list(echoes_);
    for (const auto& echo : echoes_)
        numbers.insert(numbers.end(), {echo.place, echo.gain, echo.pan});
    numbers.insert(numbers.end(), {std::round(reduction_.get(0) * 4), frozen_.get(0)});
    for (int c = 0; c < levels_.count(); ++c)
        numbers.push_back(std::round(std::max(-60.0, levels_.decibels(c)) * 2));
}

void EchoDisplay::lookStatic(std::vector<double>& numbers) const
{
    numbers.insert(numbers.end(), {double(isSynced()), end()});
}

void EchoDisplay::drawStatic(Canvas& canvas)
{
    plot_.x = {0, end(), false};
    const auto& area = plot_.area;
    if (isSynced()) {
        const double step = plot_.x.maximum > 8 ? 1 : 0.5;
        for (double q = 0; q <= plot_.x.maximum + 1e-9; q += step) {
            const bool isBar = std::fmod(q, kBar) < 1e-9;
            canvas.vertical(plot_.across(q), area.y, area.bottom(),
                            isBar                    ? Color::Track
                            : std::fmod(q, 1) < 1e-9 ? Color::GridEnd
                                                     : Color::Grid);
            if (q + step > plot_.x.maximum || std::fmod(q, 1) > 1e-9) continue;
            const auto text = std::to_string(static_cast<int>(q / kBar) + 1) + "." +
                              std::to_string(static_cast<int>(std::fmod(q, kBar)) + 1);
            canvas.text(Type::Axis, text, plot_.across(q) + 3, height() - 7, Align::Left,
                        Color::Text3);
        }
    } else {
        auto ticks = linearTicks(plot_.x, 10, false);
        for (auto& tick : ticks) {
            tick.text = tick.value == 0 ? "0" : shortTime(tick.value);
            canvas.vertical(plot_.across(tick.value), area.y, area.bottom(), Color::Grid);
            canvas.text(Type::Axis, tick.text,
                        std::min(plot_.across(tick.value),
                                 area.right() - canvas.textWidth(Type::Axis, tick.text)) +
                            3,
                        height() - 7, Align::Left, Color::Text3);
        }
    }
    canvas.horizontal(area.x, area.right(), plot_.up(0), Color::GridEnd);
}

void EchoDisplay::draw(Canvas& canvas)
{
    echoes_.clear();
    list(echoes_);
    const auto& area = plot_.area;
    const auto saved = canvas.save();
    canvas.clip(area.inset(-4));
    // What is taken off while the voice plays lies as a shade from both rims.
    const double duck = std::pow(10, -std::abs(reduction_.get(0)) / 20);
    if (duck < 0.995) {
        const double h = (1 - duck) * area.h / 2;
        canvas.fill({area.x, area.y, area.w, h}, Ink(Color::Accent, 0.12));
        canvas.fill({area.x, area.bottom() - h, area.w, h}, Ink(Color::Accent, 0.12));
    }
    // The sound itself.
    canvas.fill({plot_.across(0) - 1, plot_.up(1), 2, plot_.up(-1) - plot_.up(1)}, Color::Output);
    const bool isFrozen = frozen_.isOn();
    for (const auto& echo : echoes_) {
        const double x = plot_.across(echo.place);
        if (x > area.right() + 1) continue;
        // Each side's share of the height, by equal power.
        const double angle = (echo.pan + 1) * 0.7853981634;
        const double gain = std::sqrt(std::min(1.0, echo.gain));  // so that soft ones are seen
        const double up = gain * std::cos(angle) * 1.2, down = gain * std::sin(angle) * 1.2;
        const double top = plot_.up(std::min(1.0, up)), bottom = plot_.up(-std::min(1.0, down));
        const Ink ink(Color::Accent, (isFrozen ? 1 : 0.35 + 0.65 * gain) * (0.4 + 0.6 * duck));
        canvas.fillRounded({x - 2.5, top, 5, std::max(2.0, bottom - top)}, 2, ink);
        canvas.circle({x, plot_.up((up - down) * 0.5)}, 3.5, Color::Text);
    }
    if (isFrozen)
        canvas.text(Type::Axis, "Frozen", area.right() - 4, area.y + 12, Align::Right,
                    Color::Accent);
    // What is heard of them now.
    if (const double level = levels_.largestDecibels(); level > -60) {
        const double h = (level + 60) / 60 * area.h;
        canvas.fill({area.right() - 3, area.bottom() - h, 3, h}, Ink(Color::Ok, 0.8));
    }
}

std::string EchoDisplay::describe() const
{
    echoes_.clear();
    list(echoes_);
    std::string text = "Echoes";
    for (std::size_t i = 0; i < std::min<std::size_t>(8, echoes_.size()); ++i)
        text +=
            (i ? ", " : " at ") +
            (isSynced() ? figure(echoes_[i].place, 2) + " beats" : shortTime(echoes_[i].place)) +
            " " + figure(20 * std::log10(std::max(1e-6, echoes_[i].gain)), 1) + " dB";
    return text;
}

Taps::Taps(const VNK::SkinBox& box, EffectModel& model)
    : EchoDisplay(box, model),
      beats_(value("beats")),
      time_(value("time")),
      beatsRight_(value("beatsRight")),
      timeRight_(value("timeRight")),
      offset_(value("offset")),
      stagger_(value("stagger")),
      feedback_(value("feedback")),
      routing_(value("routing")),
      link_(model, "link")
{}

void Taps::list(std::vector<Echo>& echoes) const
{
    // An offset is in ms; of a beat it is not known how long it lasts.
    const double offset = isSynced() ? 0 : offset_.get(0) / 1000;
    const double left = std::max(1e-3, period(beats_, time_) + offset);
    const bool isLinked = !beatsRight_.exists() || link_.isOn();
    const double right = isLinked ? left : std::max(1e-3, period(beatsRight_, timeRight_) + offset);
    const double g = std::clamp(feedback_.get(0) / 100, 0.0, 1.0);
    enum { kStereo, kCross, kPingPongLeft, kPingPongRight };
    const int routing = beatsRight_.exists() ? static_cast<int>(routing_.get(0)) : kStereo;
    if (routing == kPingPongLeft || routing == kPingPongRight) {
        double at = 0, gain = 1, side = routing == kPingPongLeft ? -1 : 1;
        for (int k = 0; k < kMost && gain > kSilence; ++k, gain *= g, side = -side) {
            at += side < 0 ? left : right;
            echoes.push_back({at, gain, side});
        }
        return;
    }
    for (const double side : {-1.0, 1.0}) {
        if (side > 0 && isLinked && routing == kStereo) break;  // both at once
        double at = 0, gain = 1, now = side;
        for (int k = 0; k < kMost && gain > kSilence; ++k, gain *= g) {
            at += now < 0 ? left : right;
            const bool isBoth = isLinked && routing == kStereo;
            echoes.push_back({at, gain, isBoth ? 0 : now});
            if (routing == kCross) now = -now;
        }
    }
    // The rear answers later, or earlier.
    const double stagger = stagger_.get(0) / 100;
    if (std::abs(stagger) < 0.005) return;
    double at = 0, gain = 1;
    for (int k = 0; k < kMost && gain > kSilence; ++k, gain *= g) {
        at += left * (1 + stagger);
        echoes.push_back({at, 0.5 * gain, 0});
    }
}

EchoLine::EchoLine(const VNK::SkinBox& box, EffectModel& model)
    : EchoDisplay(box, model),
      beats_(value("beats")),
      time_(value("time")),
      feedback_(value("feedback")),
      width_(value("width")),
      mode_(value("mode"))
{}

void EchoLine::list(std::vector<Echo>& echoes) const
{
    const double step = std::max(1e-3, period(beats_, time_));
    const double g = std::clamp(feedback_.get(0) / 100, 0.0, 1.0);
    enum { kMono, kPingPong, kStereo };
    const int mode = static_cast<int>(mode_.get(0));
    const double width = width_.get(0) / 100;
    double gain = 1;
    for (int k = 0; k < kMost && gain > kSilence; ++k, gain *= g) {
        const double pan = mode == kPingPong ? (k % 2 ? width : -width) : 0;
        echoes.push_back({(k + 1) * step, gain, pan});
    }
}

}  // namespace quillworks::editors
