// SPDX-License-Identifier: ISC
#include "editors/displays/pan_field.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <span>

namespace quillworks::editors {
namespace {

constexpr double kRadian = std::numbers::pi / 180;
constexpr double kDoubleClick = 0.4;   // s
constexpr double kReach = 14;          // px
constexpr double kReachesFrom = 0.12;  // of the rim: a source next to the head
constexpr double kLfe = 1000;          // no direction

/// Directions of the usual layouts' channels, degrees clockwise from the front, those above after
/// those at the ear's height; others stand in a ring.
double azimuthOf(int channel, int channels)
{
    static constexpr std::array kStereo{-30.0, 30.0, 0.0};
    static constexpr std::array kQuad{-45.0, 45.0, -135.0, 135.0};
    static constexpr std::array kFive{-30.0, 30.0, 0.0, -110.0, 110.0};
    static constexpr std::array kFiveOne{-30.0, 30.0,  0.0,  kLfe,   -110.0,
                                         110.0, -45.0, 45.0, -135.0, 135.0};
    static constexpr std::array kSevenOne{-30.0,  30.0,  0.0,   kLfe, -90.0,  90.0,
                                          -135.0, 135.0, -45.0, 45.0, -135.0, 135.0};
    static constexpr std::array kNineOne{-30.0, 30.0, 0.0,   kLfe, -90.0, 90.0, -135.0, 135.0,
                                         -60.0, 60.0, -45.0, 45.0, -90.0, 90.0, -135.0, 135.0};
    const auto of = [&](std::span<const double> angles) {
        return angles[static_cast<std::size_t>(channel)];
    };
    switch (channels) {
    case 1:
        return 0;
    case 2:
    case 3:
        return of(kStereo);
    case 4:
        return of(kQuad);
    case 5:
        return of(kFive);
    case 6:
    case 10:
        return of(kFiveOne);
    case 8:
    case 12:
        return of(kSevenOne);
    case 16:
        return of(kNineOne);
    default:
        return 360.0 * channel / channels;
    }
}

double wrapped(double degrees)
{
    return std::remainder(degrees, 360.0);
}

}  // namespace

PanField::PanField(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      across_(value("across")),
      along_(value("along")),
      azimuth_(value("azimuth")),
      elevation_(value("elevation")),
      distance_(value("distance")),
      width_(value("width")),
      left_(values("left")),
      right_(values("right"))
{
    first_ = isRoom() ? across_.parameter() : azimuth_.parameter();
    second_ = isRoom() ? along_.parameter() : distance_.parameter();
    if (first_ < 0) std::swap(first_, second_);
}

void PanField::sized()
{
    const double foot = isSmall() ? 0 : 16;
    centre_ = {width() / 2, (height() - foot) / 2 + (isSmall() ? 0 : 4)};
    reach_ = std::max(10.0, std::min(width(), height() - foot) / 2 - (isSmall() ? 14 : 22));
}

/// `radius` 0 .. 1.
Point PanField::place(double azimuth, double radius) const
{
    return {centre_.x + reach_ * radius * std::sin(azimuth * kRadian),
            centre_.y - reach_ * radius * std::cos(azimuth * kRadian)};
}

double PanField::radius() const
{
    const int p = distance_.parameter();
    if (p < 0) return 1;
    return kReachesFrom + (1 - kReachesFrom) * double(model().position(p));
}

Point PanField::source() const
{
    if (isRoom())
        return {centre_.x + reach_ * across_.get(0) / 100,
                centre_.y - reach_ * along_.get(0) / 100};
    return place(azimuth_.get(0), radius());
}

/// On the walls of a room, else on the rim.
Point PanField::speaker(int channel, int channels) const
{
    const double azimuth = azimuthOf(channel, channels);
    if (azimuth == kLfe) return {centre_.x - reach_ * 0.6, centre_.y - reach_};
    if (!isRoom()) return place(azimuth, 1);
    const double x = std::sin(azimuth * kRadian), y = std::cos(azimuth * kRadian);
    const double most = std::max(std::abs(x), std::abs(y));
    return {centre_.x + reach_ * x / most, centre_.y - reach_ * y / most};
}

void PanField::look(std::vector<double>& numbers) const
{
    for (const auto* v : {&across_, &along_, &azimuth_, &elevation_, &distance_, &width_})
        numbers.push_back(v->get(0));
    for (const auto* gains : {&left_, &right_})
        for (int c = 0; c < gains->count(); ++c) numbers.push_back(std::round((*gains)[c] * 100));
}

void PanField::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(left_.count());
}

void PanField::drawStatic(Canvas& canvas)
{
    const auto& c = centre_;
    if (isRoom()) {
        canvas.strokeRounded({c.x - reach_, c.y - reach_, 2 * reach_, 2 * reach_}, 0, 0,
                             Color::GridEnd);
        canvas.horizontal(c.x - reach_, c.x + reach_, c.y, Color::Grid);
        canvas.vertical(c.x, c.y - reach_, c.y + reach_, Color::Grid);
        canvas.strokeCircle(c, reach_ * 0.5, canvas.hairline(), Color::Grid);
    } else {
        for (const double r : {1.0, 2.0 / 3, 1.0 / 3})
            canvas.strokeCircle(c, reach_ * r, canvas.hairline(),
                                r == 1 ? Color::GridEnd : Color::Grid);
        for (int a = 0; a < 360; a += 30)
            canvas.line(place(a, 0.33), place(a, 1), canvas.hairline(),
                        a % 90 ? Color::Grid : Color::GridEnd);
        if (!isSmall()) {
            canvas.text(Type::Axis, "0°", c.x, c.y - reach_ - 6, Align::Centre, Color::Text3);
            canvas.text(Type::Axis, "90°", c.x + reach_ + 6, c.y + 3.5, Align::Left, Color::Text3);
            canvas.text(Type::Axis, "-90°", c.x - reach_ - 6, c.y + 3.5, Align::Right,
                        Color::Text3);
        }
    }
    // The head, with its nose to the front.
    const double head = std::min(9.0, reach_ * 0.14);
    const Point nose[] = {
        {c.x - 3, c.y - head + 1}, {c.x, c.y - head - 4}, {c.x + 3, c.y - head + 1}};
    canvas.polygon(nose, Color::Track);
    canvas.circle(c, head, Color::Track);
}

void PanField::draw(Canvas& canvas)
{
    // Speakers, lit by the louder of both sources.
    const int channels = left_.count();
    for (int i = 0; i < channels; ++i) {
        const double gain = std::max(left_[i], std::isnan(right_[i]) ? 0 : right_[i]);
        const auto at = speaker(i, channels);
        canvas.fillRounded({at.x - 5, at.y - 5, 10, 10}, 2, Color::Raised);
        if (gain > 0.001)
            canvas.fillRounded({at.x - 5, at.y - 5, 10, 10}, 2,
                               Ink(Color::Accent, std::clamp(gain, 0.0, 1.0)));
    }
    const auto at = source();
    const double half = width_.get(0) / 2;
    const double toMiddle = std::hypot(at.x - centre_.x, at.y - centre_.y);
    const double azimuth = std::atan2(at.x - centre_.x, centre_.y - at.y) / kRadian;
    if (half > 0.5 && toMiddle > 1) {
        const auto side = [&](double degrees) { return place(degrees, toMiddle / reach_); };
        canvas.arc(centre_, toMiddle, azimuth - half, azimuth + half, 6, Ink(Color::Accent, 0.2));
        for (const double s : {-1.0, 1.0}) {
            const auto ear = side(azimuth + s * half);
            canvas.circle(ear, 4.5, Color::Output);
            if (!isSmall())
                canvas.text(Type::MeterScale, s < 0 ? "L" : "R", ear.x, ear.y - 8, Align::Centre,
                            Color::Text2);
        }
    }
    canvas.line(centre_, at, 0, Ink(Color::Accent, 0.5));
    drawHandle(canvas, at, isHeld_, hasFocus_);
    // Height: an arc from the ear's level up to 90 degrees.
    if (elevation_.exists() && !isSmall()) {
        const double r = 14, x = width() - r - 12, y = height() - 12;
        const double up = std::clamp(elevation_.get(0), -45.0, 90.0);
        canvas.arc({x, y - 4}, r, 0, 90, 2, Color::Track);
        if (std::abs(up) > 0.5)
            canvas.arc({x, y - 4}, r, std::min(90.0, 90 - up), std::max(90.0, 90 - up), 2.5,
                       Color::Accent);
        canvas.text(Type::Axis, elevation_.text(), x - 4, y, Align::Right, Color::Text2);
    }
    if (isSmall()) return;
    std::string text;
    for (const auto* v : {&azimuth_, &distance_, &across_, &along_})
        if (v->exists())
            text +=
                (text.empty() ? "" : "   ") + (width() > 300 ? v->title() + " " : "") + v->text();
    canvas.text(Type::Axis, canvas.fitted(Type::Axis, text, width() - 80), 10, height() - 10,
                Align::Left, Color::Text2);
}

void PanField::setAngle(const Value& value, double degrees)
{
    const auto& info = model().info(value.parameter());
    model().set(value.parameter(),
                static_cast<float>(info.wraps || info.minimum < -90 ? wrapped(degrees) : degrees));
}

void PanField::moveTo(Point at)
{
    const double x = (at.x - centre_.x) / reach_, y = (centre_.y - at.y) / reach_;
    if (isRoom()) {
        model().set(across_.parameter(), static_cast<float>(100 * std::clamp(x, -1.0, 1.0)));
        if (along_.parameter() >= 0)
            model().set(along_.parameter(), static_cast<float>(100 * std::clamp(y, -1.0, 1.0)));
        return;
    }
    if (azimuth_.parameter() >= 0 && std::hypot(x, y) > 0.02)
        setAngle(azimuth_, std::atan2(x, y) / kRadian);
    if (distance_.parameter() >= 0) {
        const double r = azimuth_.exists() ? std::hypot(x, y) : y;
        model().setPosition(distance_.parameter(),
                            static_cast<float>((r - kReachesFrom) / (1 - kReachesFrom)));
    }
}

void PanField::begin()
{
    if (second_ >= 0) model().beginGroup();
    for (const int p : {first_, second_})
        if (p >= 0) model().begin(p);
}

void PanField::end()
{
    for (const int p : {first_, second_})
        if (p >= 0) model().end(p);
    if (second_ >= 0) model().endGroup();
}

bool PanField::pointer(const PointerEvent& event)
{
    if (first_ < 0) return false;
    switch (event.action) {
    case PointerAction::Press: {
        if (event.button != 1 || isHeld_) return false;
        const bool isSecond = event.seconds - pressed_ < kDoubleClick;
        pressed_ = isSecond ? -1 : event.seconds;
        begin();
        if (isSecond) {
            for (const int p : {first_, second_})
                if (p >= 0) model().set(p, model().info(p).defaultValue);
            end();
            damage();
            return true;
        }
        isHeld_ = true;
        const auto at = source();
        // Grasped where it is, or brought to the pointer.
        const bool isOn = std::hypot(event.x - at.x, event.y - at.y) < kReach;
        offset_ = isOn ? Point{at.x - event.x, at.y - event.y} : Point{};
        if (!isOn) moveTo({event.x, event.y});
        damage();
        return true;
    }
    case PointerAction::Move:
        if (!isHeld_) return false;
        if (event.modifiers & kShift) {  // a tenth of the way
            const auto at = source();
            const Point wanted{event.x + offset_.x, event.y + offset_.y};
            const Point to{at.x + 0.1 * (wanted.x - at.x), at.y + 0.1 * (wanted.y - at.y)};
            moveTo(to);
            offset_ = {to.x - event.x, to.y - event.y};
        } else {
            moveTo({event.x + offset_.x, event.y + offset_.y});
        }
        return true;
    case PointerAction::Release:
        if (!isHeld_ || event.button != 1) return false;
        isHeld_ = false;
        end();
        damage();
        return true;
    default:
        return false;
    }
}

int PanField::wheelParameter() const
{
    for (const auto* v : {&width_, &elevation_})
        if (v->parameter() >= 0) return v->parameter();
    return first_;
}

bool PanField::wheel(const WheelEvent& event)
{
    return turn(wheelParameter(), event);
}

std::vector<Grasp> PanField::grasps()
{
    if (first_ < 0) return {};
    const auto at = source();
    Grasp grasp;
    grasp.at = Rect{at.x, at.y, 0, 0}.inset(-kReach);
    // Without an angle the way to the middle is upright.
    grasp.across = isRoom() || azimuth_.exists() ? first_ : -1;
    grasp.up = grasp.across < 0 ? first_ : second_;
    grasp.wheel = wheelParameter();
    return {grasp};
}

bool PanField::key(const KeyEvent& event)
{
    const double by = event.modifiers & kShift ? 0.001 : 0.01;
    switch (event.key) {
    case Key::Left:
        return step(first_, -by);
    case Key::Right:
        return step(first_, by);
    case Key::Up:
        return step(second_, by);
    case Key::Down:
        return step(second_, -by);
    case Key::Delete:
        for (const int p : {first_, second_})
            if (p >= 0) model().set(p, model().info(p).defaultValue);
        return true;
    default:
        return false;
    }
}

void PanField::setFocus(bool has)
{
    hasFocus_ = has;
    damage();
}

std::string PanField::describe() const
{
    std::string text = "Position";
    for (const auto* v : {&azimuth_, &elevation_, &distance_, &across_, &along_, &width_})
        if (v->exists()) text += ", " + v->title() + " " + v->text();
    return text;
}

std::string PanField::tip(double, double) const
{
    if (first_ < 0) return {};
    const int turned = wheelParameter();
    return turned == first_ ? "Drag the source."
                            : std::string("Drag the source; the wheel sets its ") +
                                  (turned == width_.parameter() ? "width." : "height.");
}

}  // namespace quillworks::editors
