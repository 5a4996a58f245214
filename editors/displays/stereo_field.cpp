// SPDX-License-Identifier: ISC
#include "editors/displays/stereo_field.h"

#include <algorithm>
#include <array>
#include <bit>
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
constexpr std::size_t kWord = 64;         // strips
constexpr double kQuick = 0.15;           // s of persistence below which every row is faded at once
constexpr int kBand = 32;                 // rows that are told at once

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
    const auto strips = static_cast<std::size_t>((side_ + kStrip - 1) / kStrip);
    stride_ = static_cast<int>(strips) * kStrip;
    words_ = (strips + kWord - 1) / kWord;
    const auto rows = static_cast<std::size_t>(side_);
    glow_.assign(rows * strips * kStrip, 0);
    lit_.assign(rows * words_, 0);
    stale_.assign(rows * words_, 0);
    isDark_ = true;
}

/// From -1 .. 1 to 0 .. 1 of the square. x is right minus left, y left plus right.
Point StereoField::place(View view, double x, double y)
{
    if (view == View::XY) {
        const double half = std::numbers::sqrt2 / 2;
        const double left = (y - x) * half, right = (y + x) * half;
        return {(1 + left) / 2, (1 - right) / 2};
    }
    if (view == View::Polar) {
        if (y < 0) {
            x = -x;
            y = -y;
        }
        constexpr double kPerOctave = 6.0205999 / kPolarRange;
        const double r2 = x * x + y * y;
        const double shown =
            std::max(0.0, 1 + 0.5 * kPerOctave * double(std::log2(static_cast<float>(r2))));
        const double k = shown > 0 ? shown / std::sqrt(r2) : 0;
        return {(1 + x * k) / 2, 0.75 - y * k * 0.5};
    }
    return {(1 + x) / 2, (1 - y) / 2};
}

/// f(row, strip) for the strips that are marked; where it is false the mark goes.
template <class F> void StereoField::forEachStrip(std::vector<std::uint64_t>& strips, F&& f)
{
    for (std::size_t i = 0; i < strips.size(); ++i)
        for (auto rest = strips[i]; rest; rest &= rest - 1) {
            const auto row = i / words_;
            const auto strip =
                i % words_ * kWord + static_cast<std::size_t>(std::countr_zero(rest));
            if (!f(row, strip)) strips[i] &= ~(rest & (~rest + 1));
        }
}

/// Even and odd rows in turn, each by the time that has passed since its last: a step of light is
/// not seen where its neighbours stand between, and it is half the work.
void StereoField::fade(double passed)
{
    const double persistence = persistence_.get(kPersistence);
    const auto turn = std::exchange(isOddTurn_, !isOddTurn_) ? std::size_t{1} : std::size_t{0};
    for (const auto parity : {std::size_t{0}, std::size_t{1}}) {
        pending_[parity] += passed;
        if (parity == turn || persistence < kQuick)
            fadeRows(parity, std::exchange(pending_[parity], 0), persistence);
    }
    isDark_ = std::all_of(lit_.begin(), lit_.end(), [](std::uint64_t lit) { return lit == 0; });
}

void StereoField::fadeRows(std::size_t parity, double passed, double persistence)
{
    const auto keep = static_cast<std::uint16_t>(
        persistence > 0 ? std::min(65535.0, 65536 * std::exp(-passed / persistence)) : 0.0);
    const auto stride = static_cast<std::size_t>(stride_);
    for (auto row = parity; row < static_cast<std::size_t>(side_); row += 2)
        for (std::size_t w = 0; w < words_; ++w) {
            auto& lit = lit_[row * words_ + w];
            stale_[row * words_ + w] |= lit;
            auto* const lights = glow_.data() + row * stride + w * kWord * kStrip;
            for (auto rest = lit; rest; rest &= rest - 1) {
                const auto strip = static_cast<std::size_t>(std::countr_zero(rest));
                if (!fadeLight(lights + strip * kStrip, keep, kFaintest))
                    lit &= ~(std::uint64_t{1} << strip);
            }
        }
}

/// `at`: of the square, 0 .. 1.
void StereoField::light(Point at)
{
    const int size = std::max(1, static_cast<int>(scale() + 0.25));
    const int column = static_cast<int>(at.x * side_), row = static_cast<int>(at.y * side_);
    const int from = std::max(0, column), to = std::min(side_, column + size);
    if (from >= to) return;
    const auto first = static_cast<std::size_t>(from / kStrip);
    const auto last = static_cast<std::size_t>((to - 1) / kStrip);
    for (int py = std::max(0, row); py < std::min(side_, row + size); ++py) {
        const auto line = static_cast<std::size_t>(py);
        for (auto strip = first; strip <= last; ++strip) {
            const auto word = line * words_ + strip / kWord;
            lit_[word] |= std::uint64_t{1} << strip % kWord;
            stale_[word] |= std::uint64_t{1} << strip % kWord;
        }
        auto* const lights = glow_.data() + line * static_cast<std::size_t>(stride_);
        for (int px = from; px < to; ++px)
            lights[px] = static_cast<std::uint16_t>(std::min(65535u, lights[px] + kSpark));
    }
}

void StereoField::tellMoved()
{
    const double pixel = 1 / scale();
    for (int band = 0; band < side_; band += kBand) {
        const int end = std::min(side_, band + kBand);
        int left = side_, right = 0, top = side_, bottom = 0;
        for (int row = band; row < end; ++row)
            for (std::size_t w = 0; w < words_; ++w) {
                const auto bits = stale_[static_cast<std::size_t>(row) * words_ + w];
                if (!bits) continue;
                const int first = static_cast<int>(w * kWord) * kStrip;
                left = std::min(left, first + std::countr_zero(bits) * kStrip);
                right = std::max(right, first + (64 - std::countl_zero(bits)) * kStrip);
                top = std::min(top, row);
                bottom = row + 1;
            }
        // The square may lie between pixels.
        if (left < right)
            moved(Rect{square_.x + left * pixel, square_.y + top * pixel,
                       (std::min(right, side_) - left) * pixel, (bottom - top) * pixel}
                      .inset(-pixel));
    }
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
    fade(std::clamp(passed, 0.0, 1.0));
    if (isNew) {
        const double fresh = frames_ >= 0 && frames > frames_ ? frames - frames_ : frames;
        const auto count =
            std::min({x.size(), y.size(), static_cast<std::size_t>(kPointsPerFrame * fresh)});
        const auto as = view();
        for (std::size_t i = x.size() - count; i < x.size(); ++i)
            if (x[i] != 0 || y[i] != 0) {  // silence is dark
                light(place(as, x[i], y[i]));
                isDark_ = false;
            }
    }
    frames_ = frames;
    tellMoved();
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

void StereoField::drawGlow(Canvas& canvas)
{
    if (isDark_) return;
    const auto colour = 0xFF000000u | canvas.theme().rgb(Color::Accent);
    const auto place = canvas.inPicture(square_.x, square_.y, side_, side_);
    canvas.paint(place, [&](const Pixels& pixels, const PixelRect& part) {
        forEachStrip(lit_, [&](std::size_t row, std::size_t strip) {
            const int y = static_cast<int>(row) + place.y, x = static_cast<int>(strip) * kStrip;
            const int from = std::max(x, part.x - place.x);
            const int to = std::min({x + kStrip, side_, part.right() - place.x});
            if (y < part.y || y >= part.bottom() || from >= to) return true;
            auto* const own = pixels.data + y * (pixels.stride / 4) + place.x;
            std::array<std::uint32_t, kStrip> copy{};
            std::copy(own + from, own + to, copy.begin() + (from - x));
            blendLight(copy.data(), copy.data(), glow_.data() + row * std::size_t(stride_) + x,
                       colour);
            std::copy(copy.begin() + (from - x), copy.begin() + (to - x), own + from);
            return true;
        });
    });
}

void StereoField::drawMoved(Canvas& canvas)
{
    const auto colour = 0xFF000000u | canvas.theme().rgb(Color::Accent);
    const auto place = canvas.inPicture(square_.x, square_.y, side_, side_);
    const auto& ground = canvas.ground();
    canvas.paint(place, [&](const Pixels& pixels, const PixelRect& part) {
        const int width = part.right() - place.x;  // where the square's border is cut
        forEachStrip(stale_, [&](std::size_t row, std::size_t strip) {
            const int y = static_cast<int>(row) + place.y, x = static_cast<int>(strip) * kStrip;
            const int columns = std::min({kStrip, side_ - x, width - x});
            if (y < part.y || y >= part.bottom() || columns < 1) return false;
            auto* const own = pixels.data + y * (pixels.stride / 4) + place.x + x;
            const auto* const below = ground.data + y * (ground.stride / 4) + place.x + x;
            const auto* const lights = glow_.data() + row * std::size_t(stride_) + x;
            if (columns == kStrip) {
                blendLight(own, below, lights, colour);
            } else {
                std::array<std::uint32_t, kStrip> copy{};
                std::copy_n(below, columns, copy.begin());
                blendLight(copy.data(), copy.data(), lights, colour);
                std::copy_n(copy.begin(), columns, own);
            }
            return false;
        });
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
