// SPDX-License-Identifier: ISC
#include "editors/displays/pan_arc.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks::editors {
namespace {

constexpr double kRight = std::numbers::pi / 2;  // of the arc's end
constexpr double kFollow = 0.15;                 // s, of the arrow
constexpr double kSilence = 1e-7;                // power below which there is no direction
constexpr double kLeastSpread = 0.01;            // below it both are where the position is
constexpr double kArrow = 9;                     // px around the arrow's tip

}  // namespace

PanArc::PanArc(const VNK::SkinBox& box, EffectModel& model)
    : HandleDisplay(box, model),
      inputs_{Input{value("left"), value("leftLevel"), "L"},
              Input{value("right"), value("rightLevel"), "R"}},
      position_(value("position")),
      spread_(value("spread")),
      outputs_(values("out"))
{
    handles().all().resize(inputs_.size());
}

void PanArc::sized()
{
    const double foot = isSmall() ? 8 : 20, head = isSmall() ? 10 : 26, side = isSmall() ? 10 : 34;
    reach_ = std::max(10.0, std::min(width() / 2 - side, height() - head - foot));
    middle_ = {width() / 2, (height() + head - foot + reach_) / 2};
    shown_ = middle_;
    place();
}

double PanArc::placeOf(const Input& input) const
{
    return std::clamp((position_.get(0) + spread_.get(100) / 100 * input.pan.get(0)) / 100, -1.0,
                      1.0);
}

double PanArc::panFor(double place) const
{
    const double spread = spread_.get(100) / 100;
    if (std::abs(spread) < kLeastSpread) return 100 * place;
    return (100 * place - position_.get(0)) / spread;
}

Point PanArc::at(double place, double radius) const
{
    const double turn = place * kRight;
    return {middle_.x + reach_ * radius * std::sin(turn),
            middle_.y - reach_ * radius * std::cos(turn)};
}

void PanArc::place()
{
    auto& all = handles().all();
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        const auto& input = inputs_[i];
        auto& handle = all[i];
        handle.at = at(placeOf(input));
        handle.x = {input.pan.parameter(), -100, 100, middle_.x - reach_, middle_.x + reach_};
        handle.x.warped = [this](double x) {
            const double side = std::clamp((x - middle_.x) / reach_, -1.0, 1.0);
            return panFor(std::asin(side) / kRight);
        };
        handle.wheel = input.level.parameter();
    }
}

void PanArc::look(std::vector<double>& numbers) const
{
    for (const auto& input : inputs_)
        numbers.insert(numbers.end(), {input.pan.get(0), input.level.get(0)});
    numbers.insert(numbers.end(), {position_.get(0), spread_.get(100)});
}

/// The energy vector of a pair (Gerzon 1992, "General metatheory of auditory localisation"), each
/// side at its end of the arc: as long as it is sure, and nothing in silence.
Point PanArc::arrow() const
{
    const double all = left_ + right_;
    if (all < kSilence) return middle_;
    const double angle = 2 * std::atan2(std::sqrt(right_), std::sqrt(left_)) / kRight - 1;
    const double pixel = 0.5 / scale();
    const auto tip = at(angle, 0.92);
    return {std::round(tip.x / pixel) * pixel, std::round(tip.y / pixel) * pixel};
}

void PanArc::ticked(double seconds)
{
    const double passed = before_ < 0 ? 1 : std::clamp(seconds - before_, 0.0, 1.0);
    before_ = seconds;
    const double share = 1 - std::exp(-passed / kFollow);
    const auto follow = [&](double& mean, double db) {
        const double now = db > -120 ? std::pow(10, db / 10) : 0;
        mean += share * (now - mean);
    };
    follow(left_, outputs_.decibels(0));
    follow(right_, outputs_.decibels(outputs_.count() > 1 ? 1 : 0));
    const auto now = arrow();
    if (now.x == shown_.x && now.y == shown_.y) return;
    for (const auto& tip : {shown_, now})
        damage(Rect{std::min(tip.x, middle_.x), std::min(tip.y, middle_.y),
                    std::abs(tip.x - middle_.x), std::abs(tip.y - middle_.y)}
                   .inset(-kArrow));
    shown_ = now;
}

void PanArc::drawStatic(Canvas& canvas)
{
    const auto& m = middle_;
    for (const double share : {1.0, 2.0 / 3, 1.0 / 3})
        canvas.arc(m, reach_ * share, -90, 90, canvas.hairline(),
                   share == 1 ? Color::GridEnd : Color::Grid);
    canvas.horizontal(m.x - reach_, m.x + reach_, m.y, Color::GridEnd);
    for (const double place : {-0.75, -0.5, -0.25, 0.0, 0.25, 0.5, 0.75})
        canvas.line(at(place, 1.0 / 3), at(place), 0, place == 0 ? Color::GridEnd : Color::Grid);
    if (isSmall()) return;
    canvas.text(Type::Axis, "C", m.x, m.y - reach_ - 14, Align::Centre, Color::Text3);
    canvas.text(Type::Axis, "Left", m.x - reach_, m.y + 15, Align::Centre, Color::Text3);
    canvas.text(Type::Axis, "Right", m.x + reach_, m.y + 15, Align::Centre, Color::Text3);
}

void PanArc::draw(Canvas& canvas)
{
    place();
    const double ends[] = {placeOf(inputs_[0]), placeOf(inputs_[1])};
    // Between both lies the image.
    canvas.arc(middle_, reach_, std::min(ends[0], ends[1]) * 90, std::max(ends[0], ends[1]) * 90, 5,
               Ink(Color::Accent, 0.3));
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        // Its level as the length of its ray.
        const auto& level = inputs_[i].level;
        const double length =
            level.parameter() < 0 ? 1 : double(model().position(level.parameter()));
        canvas.line(middle_, at(ends[i], length), 2, Ink(Color::Accent, 0.45));
    }
    if (std::hypot(shown_.x - middle_.x, shown_.y - middle_.y) > 1) {
        canvas.line(middle_, shown_, 1.5, Color::Text);
        drawDot(canvas, shown_, Color::Text);
    }
    handles().draw(canvas);
    if (isSmall()) return;
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        const auto beyond = at(ends[i], 1 + 14 / reach_);
        const bool isHidden = handles().hovered() >= 0 || (i == 0 && ends[0] == ends[1]);
        if (!isHidden)
            canvas.text(Type::Axis, inputs_[i].name, beyond.x, beyond.y + 3.5, Align::Centre,
                        Color::Text2);
    }
    handles().drawLabel(canvas, {0, 0, width(), height()});
}

std::string PanArc::describe() const
{
    std::string text = "Image";
    for (const auto& input : inputs_) text += ", " + input.pan.title() + " " + input.pan.text();
    return text + ", " + position_.title() + " " + position_.text() + ", " + spread_.title() + " " +
           spread_.text();
}

std::string PanArc::tip(double, double) const
{
    return "Drag a ring along the arc for its input's place; the wheel sets its level.";
}

}  // namespace quillworks::editors
