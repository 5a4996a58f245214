// SPDX-License-Identifier: ISC
#include "editors/displays/sonogram_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "vnk/effect_displays.h"

namespace quillworks::editors {
namespace {

/// Takes the columns behind a time, the loudest of all curves in each row.
class ColumnSink final : public VNK::IDisplaySink {
public:
    double after = -1;
    std::vector<double> times;               // of all columns
    std::vector<std::vector<float>> levels;  // of those behind `after`

    std::size_t first() const
    {
        return static_cast<std::size_t>(std::upper_bound(times.begin(), times.end(), after) -
                                        times.begin());
    }
    void beginObject(const char*) override { column_ = 0; }
    void beginList(const char*) override {}
    void end() override {}
    void number(const char*, double) override {}
    void numbers(const char* key, const float* values, std::int64_t n) override
    {
        if (key) return;
        const auto at = column_++;
        if (at < first() || n <= 0) return;
        const auto place = at - first();
        const auto count = static_cast<std::size_t>(n);
        if (levels.size() <= place) levels.resize(place + 1);
        auto& to = levels[place];
        if (to.size() != count) return to.assign(values, values + n);
        for (std::size_t i = 0; i < count; ++i) to[i] = std::max(to[i], values[i]);
    }
    void numbers(const char* key, const double* values, std::int64_t n) override
    {
        if (key && std::string_view(key) == "time") times.assign(values, values + n);
    }
    void text(const char*, const char*) override {}
    void flag(const char*, bool) override {}

private:
    std::size_t column_ = 0;
};

/// From the ground through the accent to white.
std::array<std::uint32_t, 256> lights(const Theme& theme)
{
    const auto dark = theme.rgb(Color::Well), middle = theme.rgb(Color::Accent),
               light = theme.rgb(Color::Text);
    std::array<std::uint32_t, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        const double p = double(i) / 255;
        const bool isLow = p < 0.65;
        const double t = isLow ? p / 0.65 : (p - 0.65) / 0.35;
        const auto from = isLow ? dark : middle, to = isLow ? middle : light;
        const auto part = [&](int shift) {
            const double a = double(from >> shift & 0xFF), b = double(to >> shift & 0xFF);
            return static_cast<std::uint32_t>(a + t * (b - a) + 0.5) << shift;
        };
        table[i] = 0xFF000000u | part(16) | part(8) | part(0);
    }
    return table;
}

}  // namespace

void SonogramPicture::setLevels(double low, double high)
{
    if (low == low_ && high == high_) return;
    low_ = low;
    high_ = high;
    isStale_ = true;
}

void SonogramPicture::resize(int width, int height)
{
    if (width == image_.width() && height == image_.height()) return;
    image_ = ScrollingImage(width, height);
    isStale_ = true;
}

bool SonogramPicture::update(EffectModel& model)
{
    ColumnSink sink;
    sink.after = columns_.empty() ? -1 : columns_.back().time;
    if (!model.snapshot("sonogram", sink)) return false;
    const bool hasBegunAnew =
        !columns_.empty() && (sink.times.empty() || sink.times.back() < columns_.back().time ||
                              sink.times.front() > columns_.back().time);
    if (hasBegunAnew) {
        const bool wasEmpty = columns_.empty();
        columns_.clear();
        isStale_ = true;
        if (sink.times.empty()) return !wasEmpty;
    }
    const auto first = sink.first();
    for (std::size_t i = 0; i < sink.levels.size() && first + i < sink.times.size(); ++i)
        columns_.push_back({sink.times[first + i], std::move(sink.levels[i])});
    const auto old = std::find_if(columns_.begin(), columns_.end(), [&](const Column& c) {
        return c.time > columns_.back().time - kSeconds;
    });
    columns_.erase(columns_.begin(), old);
    return !sink.levels.empty() || hasBegunAnew;
}

/// The columns of the picture from `from` on.
void SonogramPicture::paint(const Theme& theme, int from)
{
    const auto table = lights(theme);
    const auto pixels = image_.pixels();
    const double perPixel = kSeconds / image_.width();
    const double scale = 255 / std::max(1e-6, high_ - low_);
    auto column = columns_.begin();
    for (int x = from; x < image_.width(); ++x) {
        const double time = painted_ - (image_.width() - 1 - x) * perPixel;
        column = std::lower_bound(column, columns_.end(), time,
                                  [](const Column& c, double t) { return c.time < t; });
        const bool isThere = column != columns_.end() && column->time < time + 4 * perPixel + 0.1 &&
                             !column->levels.empty() && time >= columns_.front().time - perPixel;
        for (int y = 0; y < image_.height(); ++y) {
            double level = low_;
            if (isThere) {
                const auto rows = static_cast<int>(column->levels.size());
                const int row = rows - 1 - y * rows / image_.height();
                level =
                    double(column->levels[static_cast<std::size_t>(std::clamp(row, 0, rows - 1))]);
            }
            const double light = std::isnan(level) ? 0 : (level - low_) * scale;
            auto* const to = reinterpret_cast<char*>(pixels.data) + y * pixels.stride;
            reinterpret_cast<std::uint32_t*>(to)[x] =
                table[static_cast<std::size_t>(std::clamp(light, 0.0, 255.0))];
        }
    }
}

void SonogramPicture::draw(Canvas& canvas, const Rect& area)
{
    if (image_.isEmpty()) return;
    if (variant_ != canvas.theme().variant()) isStale_ = true;
    variant_ = canvas.theme().variant();
    const double now = columns_.empty() ? 0 : columns_.back().time;
    const double perPixel = kSeconds / image_.width();
    const int passed = static_cast<int>((now - painted_) / perPixel);
    if (isStale_ || passed < 0 || passed >= image_.width()) {
        painted_ = now;
        paint(canvas.theme(), 0);
        isStale_ = false;
    } else if (passed > 0) {
        painted_ += passed * perPixel;
        image_.scroll(passed);
        paint(canvas.theme(), image_.width() - passed);
    }
    canvas.copy(image_.pixels(), area.x, area.y);
}

}  // namespace quillworks::editors
