// SPDX-License-Identifier: ISC
#include "editors/controls/readout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>

namespace quillworks::editors {
namespace {

constexpr double kGap = 6;       // label and value
constexpr double kBarRoom = 60;  // px from which on there is a bar
constexpr double kBarHeight = 6;
constexpr double kValueRoom = 56;  // of a bar's value

using Fitting = std::function<bool(const std::string&)>;

/// Without its unit, for where there is no room for that.
std::string bare(const std::string& text)
{
    const bool isNumber = text.find_first_of("0123456789") < 2;
    return isNumber ? text.substr(0, text.find(' ')) : text;
}

/// The first of the texts that fits: as it is, without its unit, without its decimals too.
std::string shortestOf(const Fitting& fits, const std::string& text)
{
    const auto number = bare(text);
    if (fits(text)) return text;
    if (fits(number) || number.find('.') == number.npos) return number;
    char whole[32];
    std::snprintf(whole, sizeof whole, "%.0f", std::strtod(number.c_str(), nullptr));
    return whole;
}

std::string titleOf(const EffectModel& model, const VNK::SkinControl& skin)
{
    if (const auto at = skin.attributes.find("title"); at != skin.attributes.end())
        return at->second;
    if (const int p = model.parameter(skin.key); p >= 0) {
        const auto& info = model.info(p);
        return info.shortTitle && *info.shortTitle ? info.shortTitle : info.title;
    }
    const int m = model.meter(skin.key);
    return m >= 0 ? model.meterInfo(m).title : skin.key;
}

}  // namespace

Readout::Readout(ControlHost& host, const VNK::SkinControl& skin, const Rect& bounds)
    : Control(host, skin.kind, titleOf(host.model(), skin), bounds), key_(skin.key)
{
    bind();
}

void Readout::bind()
{
    layout_ = model().layout();
    parameter_ = model().parameter(key_);
    meter_ = parameter_ < 0 ? model().meter(key_) : -1;
    std::string unit;
    if (parameter_ >= 0) {
        const auto& info = model().info(parameter_);
        minimum_ = info.minimum;
        maximum_ = info.maximum;
        unit = info.unit;
    } else if (meter_ >= 0) {
        const auto& info = model().meterInfo(meter_);
        minimum_ = info.minimum;
        maximum_ = info.maximum;
        unit = info.unit;
    }
    isLevel_ = unit == "dB" && maximum_ <= 0;  // a reduction or a level below full scale
}

float Readout::reading() const
{
    return parameter_ >= 0 ? model().value(parameter_) : model().reading(meter_);
}

std::string Readout::text(float value) const
{
    if (parameter_ >= 0) return shortened(model().text(parameter_, value));
    return meter_ >= 0 ? shortened(model().meterText(meter_, value)) : "-";
}

void Readout::tick(double)
{
    if (layout_ != model().layout()) bind();
    // What an engine works out is nothing until somebody looks, in a form without displays too.
    if (std::isnan(reading())) model().openDisplays();
    if (describe() != shown_) damage();
}

void Readout::pointer(const PointerEvent& event)
{
    if (event.action != PointerAction::Press || event.button != 3) return;
    ListContent menu;
    menu.entries.push_back({title(), {}});
    menu.entries.push_back({"Copy", [this] { host().copyText(describe()); }});
    for (auto& entry : host().commonEntries()) menu.entries.push_back(std::move(entry));
    host().openList({event.x, event.y, 0, 0}, std::move(menu));
}

Tip Readout::tip() const
{
    Tip tip{title(), {}, {}};
    if (parameter_ >= 0) {
        tip.title = model().info(parameter_).title;
        tip.help = model().info(parameter_).help;
    } else if (meter_ >= 0) {
        tip.title = model().meterInfo(meter_).title;
    }
    return tip;
}

double Readout::labelWidth(Fonts& fonts, const Theme& theme) const
{
    const auto& face = theme.face(Type::Label);
    return fonts.width(face.weight, face.size, title());
}

void Readout::drawBar(Canvas& canvas, const Rect& r) const
{
    canvas.fillRounded(r, 2, Color::Well);
    const double range = double(maximum_) - minimum_;
    const double down = (double(maximum_) - reading()) / std::min(range, 24.0);
    if (!(down > 0)) return;
    const double w = std::clamp(down, 0.0, 1.0) * r.w;
    canvas.fillRounded({r.right() - w, r.y, w, r.h}, 2, Color::Accent);
}

void Readout::draw(Canvas& canvas)
{
    const auto& r = bounds();
    shown_ = describe();
    const double label = labelWidth(canvas.fonts(), canvas.theme());
    const double value = canvas.textWidth(Type::Value, shown_);
    const double base = r.centre().y + 4;
    if (label + kGap + value > r.w) {  // above each other
        canvas.text(Type::Axis, canvas.fitted(Type::Axis, title(), r.w), r.centre().x, r.y + 9,
                    Align::Centre, Color::Text2);
        const auto fits = [&](const std::string& text) {
            return canvas.textWidth(Type::Value, text) <= r.w;
        };
        canvas.text(Type::Value, canvas.fitted(Type::Value, shortestOf(fits, shown_), r.w),
                    r.centre().x, r.bottom() - 3, Align::Centre, Color::Text);
        return;
    }
    canvas.text(Type::Label, title(), r.x, base, Align::Left, Color::Text2);
    const double room = r.w - label - kValueRoom - 2 * kGap;
    if (isLevel_ && room >= kBarRoom)
        drawBar(canvas, {r.x + label + kGap + 2, r.centre().y - kBarHeight / 2, room, kBarHeight});
    canvas.text(Type::Value, shown_, r.right(), base, Align::Right,
                isLevel_ ? Color::Accent : Color::Text);
}

std::vector<std::string> Readout::sampleTexts() const
{
    std::vector<std::string> texts;
    const bool isStepped = parameter_ >= 0
                               ? model().info(parameter_).kind != VNK::ValueKind::Continuous
                               : meter_ >= 0 && model().meterInfo(meter_).choices > 0;
    const float range = maximum_ - minimum_;
    const int places = isStepped ? std::clamp(static_cast<int>(range), 0, 64) : 16;
    for (int i = 0; i <= places; ++i)
        // Between round values, where there are decimals to show.
        texts.push_back(text(isStepped ? minimum_ + static_cast<float>(i)
                                       : minimum_ + range * static_cast<float>(i) / 16.03f));
    return texts;
}

void Readout::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    checkText(fonts, theme.face(Type::Axis), title(), bounds().w, problems);
    const auto& face = theme.face(Type::Value);
    const auto fits = [&](const std::string& text) {
        return fonts.width(face.weight, face.size, withMinus(text)) <= bounds().w;
    };
    for (const auto& text : sampleTexts())
        checkText(fonts, face, shortestOf(fits, text), bounds().w, problems);
}

}  // namespace quillworks::editors
