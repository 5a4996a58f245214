// SPDX-License-Identifier: ISC
#include "editors/displays/stereo_field.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <utility>

#include "editors/displays/blend.h"

namespace quillworks::editors {
namespace {

constexpr double kPolarRange = 60;    // dB
constexpr double kPersistence = 0.3;  // s, where nobody sets it
constexpr int kPointsPerFrame = 4;
constexpr unsigned kSpark = 14000;        // that a point adds to the glow
constexpr std::uint16_t kFaintest = 400;  // below that nothing is seen

}  // namespace

StereoField::StereoField(const VNK::SkinBox& box, EffectModel& model)
    : BoundDisplay(box, model),
      view_(value("view")),
      pair_(value("pair")),
      gain_(value("gain")),
      persistence_(value("persistence")),
      correlation_(value("correlation"))
{}

void StereoField::sized()
{
    const double foot = isSmall() ? 6 : 34;
    const double side = std::max(8.0, std::min(width(), height() - foot) - 16);
    square_ = {(width() - side) / 2, 8, side, side};
    strip_ = {24, height() - 20, width() - 90, 6};
    side_ = static_cast<int>(std::lround(side * scale()));
    glow_.assign(static_cast<std::size_t>(side_) * static_cast<std::size_t>(side_), 0);
    lit_.assign(static_cast<std::size_t>(side_), {});
    glowing_ = {};
    isDark_ = true;
}

/// From -1 .. 1 to 0 .. 1 of the square. x is right minus left, y left plus right.
Point StereoField::place(double x, double y) const
{
    if (view() == View::XY) {
        const double half = std::numbers::sqrt2 / 2;
        const double left = (y - x) * half, right = (y + x) * half;
        return {(1 + left) / 2, (1 - right) / 2};
    }
    if (view() == View::Polar) {
        if (y < 0) {
            x = -x;
            y = -y;
        }
        constexpr double kPerOctave = 6.0205999 / kPolarRange;
        const double r2 = x * x + y * y;
        const double shown = std::max(0.0, 1 + 0.5 * kPerOctave * std::log2(r2));
        const double k = shown > 0 ? shown / std::sqrt(r2) : 0;
        return {(1 + x * k) / 2, 0.75 - y * k * 0.5};
    }
    return {(1 + x) / 2, (1 - y) / 2};
}

/// Whether anything still glows.
bool StereoField::fade(double passed)
{
    const double persistence = persistence_.get(kPersistence);
    const auto keep = static_cast<std::uint16_t>(
        persistence > 0 ? std::min(65535.0, 65536 * std::exp(-passed / persistence)) : 0.0);
    bool glows = false;
    for (std::size_t y = 0; y < lit_.size(); ++y) {
        auto& lit = lit_[y];
        if (lit.from >= lit.to) continue;
        auto* const row = glow_.data() + y * lit_.size();
        unsigned any = 0;
        for (int x = lit.from; x < lit.to; ++x) {
            const auto left =
                static_cast<std::uint16_t>(static_cast<std::uint32_t>(row[x]) * keep >> 16);
            row[x] = left < kFaintest ? std::uint16_t{0} : left;
            any |= row[x];
        }
        if (!any) lit = {};
        glows |= any != 0;
    }
    return glows;
}

void StereoField::light(double x, double y)
{
    const auto at = place(x, y);
    const int size = std::max(1, static_cast<int>(scale() + 0.25));
    const int column = static_cast<int>(at.x * side_), row = static_cast<int>(at.y * side_);
    const int from = std::max(0, column), to = std::min(side_, column + size);
    if (from >= to) return;
    for (int py = std::max(0, row); py < std::min(side_, row + size); ++py) {
        auto& lit = lit_[static_cast<std::size_t>(py)];
        lit =
            lit.from < lit.to ? Lit{std::min(lit.from, from), std::max(lit.to, to)} : Lit{from, to};
        for (int px = from; px < to; ++px) {
            auto& glow = glow_[static_cast<std::size_t>(py) * static_cast<std::size_t>(side_) +
                               static_cast<std::size_t>(px)];
            glow = static_cast<std::uint16_t>(std::min(65535u, glow + kSpark));
        }
    }
}

/// Where anything glows, as a part of the display.
Rect StereoField::glowing() const
{
    int left = side_, right = 0, top = side_, bottom = 0;
    for (int y = 0; y < side_; ++y) {
        const auto& lit = lit_[static_cast<std::size_t>(y)];
        if (lit.from >= lit.to) continue;
        left = std::min(left, lit.from);
        right = std::max(right, lit.to);
        top = std::min(top, y);
        bottom = y + 1;
    }
    if (right <= left) return {};
    // The square may lie between pixels.
    return Rect{square_.x + left / scale(), square_.y + top / scale(), (right - left) / scale(),
                (bottom - top) / scale()}
        .inset(-1);
}

void StereoField::ticked(double seconds)
{
    const auto& node = model().display(".recent");
    const double frames = node["frames"].number(), passed = seconds - before_;
    before_ = seconds;
    const auto& x = node["x"].numbers();
    const auto& y = node["y"].numbers();
    const bool isNew = frames >= 0 && frames != frames_;
    if (!isNew && (isDark_ || passed <= 0)) return;
    isDark_ = !fade(std::clamp(passed, 0.0, 1.0));
    if (isNew) {
        const double fresh = frames_ >= 0 && frames > frames_ ? frames - frames_ : frames;
        const auto count =
            std::min({x.size(), y.size(), static_cast<std::size_t>(kPointsPerFrame * fresh)});
        for (std::size_t i = x.size() - count; i < x.size(); ++i)
            if (x[i] != 0 || y[i] != 0) {  // silence is dark
                light(x[i], y[i]);
                isDark_ = false;
            }
    }
    frames_ = frames;
    const auto before = std::exchange(glowing_, glowing());
    damage(before.united(glowing_));
}

void StereoField::look(std::vector<double>& numbers) const
{
    numbers.push_back(std::round(correlation_.get(2) * 100));
}

/// The foot with the correlation.
void StereoField::lookChanged()
{
    const double top = strip_.y - 6;
    damage({0, top, width(), height() - top});
}

void StereoField::lookStatic(std::vector<double>& numbers) const
{
    numbers.push_back(view_.get(0));
}

void StereoField::drawStatic(Canvas& canvas)
{
    const auto& s = square_;
    const auto c = s.centre();
    const double r = s.w / 2;
    const auto name = [&](const char* text, double x, double y) {
        if (!isSmall()) canvas.text(Type::Axis, text, x, y, Align::Centre, Color::Text3);
    };
    switch (view()) {
    case View::XY:
        canvas.strokeRounded(s, 0, 0, Color::GridEnd);
        canvas.horizontal(s.x, s.right(), c.y, Color::Grid);
        canvas.vertical(c.x, s.y, s.bottom(), Color::Grid);
        canvas.line({s.x, s.bottom()}, {s.right(), s.y}, 0, Color::GridEnd);
        name("L", s.right() - 8, c.y - 5);
        name("R", c.x + 9, s.y + 12);
        break;
    case View::Polar: {
        const double base = s.y + 0.75 * s.h;
        for (const double share : {1.0, 2.0 / 3, 1.0 / 3})
            canvas.arc({c.x, base}, r * share, -90, 90, canvas.hairline(),
                       share == 1 ? Color::GridEnd : Color::Grid);
        canvas.horizontal(s.x, s.right(), base, Color::GridEnd);
        for (const double degrees : {-45.0, 0.0, 45.0}) {
            const double a = degrees * std::numbers::pi / 180;
            canvas.line({c.x, base}, {c.x + r * std::sin(a), base - r * std::cos(a)}, 0,
                        Color::Grid);
        }
        name("L", c.x - 0.74 * r, base - 0.74 * r);
        name("R", c.x + 0.74 * r, base - 0.74 * r);
        break;
    }
    default:
        canvas.strokeCircle(c, r - 0.5, canvas.hairline(), Color::GridEnd);
        canvas.strokeCircle(c, r / 2, canvas.hairline(), Color::Grid);
        canvas.horizontal(s.x, s.right(), c.y, Color::Grid);
        canvas.vertical(c.x, s.y, s.bottom(), Color::Grid);
        const double d = r * std::numbers::sqrt2 / 2;
        canvas.line({c.x - d, c.y - d}, {c.x + d, c.y + d}, 0, Color::GridEnd);
        canvas.line({c.x + d, c.y - d}, {c.x - d, c.y + d}, 0, Color::GridEnd);
        name("L", c.x - d - 8, c.y - d - 3);
        name("R", c.x + d + 8, c.y - d - 3);
        name("M", c.x + 9, s.y + 13);
        name("S", s.right() - 9, c.y - 5);
    }
    if (isSmall() || !correlation_.exists()) return;
    canvas.fillRounded(strip_, 3, Color::Panel);
    canvas.text(Type::Axis, "-1", strip_.x - 4, strip_.bottom() + 1, Align::Right, Color::Text3);
    canvas.vertical(strip_.centre().x, strip_.y - 3, strip_.bottom() + 3, Color::Text3);
}

void StereoField::drawGlow(Canvas& canvas) const
{
    if (isDark_) return;
    const StripColour colour(0xFF000000u | canvas.theme().rgb(Color::Accent));
    const auto place = canvas.inPicture(square_.x, square_.y, side_, side_);
    canvas.paint(place, [&](const Pixels& pixels, const PixelRect& part) {
        for (int y = part.y - place.y; y < part.bottom() - place.y; ++y) {
            const auto& lit = lit_[static_cast<std::size_t>(y)];
            const int end = std::min(lit.to, part.right() - place.x);
            const auto* const glow = glow_.data() + std::ptrdiff_t(y) * side_;
            auto* const row = pixels.data + (y + place.y) * (pixels.stride / 4) + place.x;
            for (int x = std::max(lit.from, part.x - place.x); x < end; x += kStrip) {
                std::array<std::uint16_t, kStrip> cover{};
                const int count = std::min(kStrip, end - x);
                for (int i = 0; i < count; ++i) {
                    const unsigned light = glow[x + i] >> 8;
                    cover[static_cast<std::size_t>(i)] =
                        static_cast<std::uint16_t>(light + (light >> 7));
                }
                blendStrip(row + x, count, cover.data(), colour);
            }
        }
    });
}

void StereoField::draw(Canvas& canvas)
{
    drawGlow(canvas);
    const double now = correlation_.get(2);
    if (isSmall() || !correlation_.exists() || !(now >= -1)) return;
    const Ink ink = now < 0 ? Color::Warn : Color::Accent;
    const double zero = strip_.centre().x, x = strip_.x + (now + 1) / 2 * strip_.w;
    canvas.fill({std::min(x, zero), strip_.y, std::abs(x - zero), strip_.h}, Ink(ink.color, 0.4));
    canvas.fill({x - 1, strip_.y - 3, 2, strip_.h + 6}, ink);
    canvas.text(Type::Axis, figure(now, 2, true), strip_.right() + 10, strip_.bottom() + 1,
                Align::Left, ink);
}

std::string StereoField::describe() const
{
    return "Stereo field" + (view_.exists() ? ", " + view_.text() : std::string()) +
           ", correlation " + correlation_.text();
}

}  // namespace quillworks::editors
