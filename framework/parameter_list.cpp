// SPDX-License-Identifier: ISC
#include "framework/parameter_list.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace quillworks {
namespace {

using VNK::ValueKind;

struct UnitName {
    std::string_view key;
    const char* shown;
};
constexpr UnitName kUnits[] = {
    {"Media.DB", "dB"},       {"Media.GainDB", "dB"}, {"Media.Milliseconds", "ms"},
    {"Media.Ratio", "ratio"}, {"Media.Gain", ""},     {"Media.StereoPan", ""},
    {"Media.LUFS", "LUFS"},
};

bool isRatio(const AlgorithmParameter& p)
{
    return std::string_view(p.unit) == "Media.Ratio";
}

std::string_view trimmed(std::string_view s)
{
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char x, char y) { return lower(x) == lower(y); });
}

/// The shortest decimal text with at most `digits` after the point that does not lose the step one
/// hears: enough that text and value agree to a thousandth.
std::string number(double value)
{
    const double magnitude = std::abs(value);
    const int decimals = magnitude >= 1000 ? 1 : magnitude >= 100 ? 2 : magnitude >= 0.1 ? 3 : 6;
    char buffer[64];
    const auto end =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, decimals);
    std::string text(buffer, end.ptr);
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

/// A number at the start of `text`; what follows it is left there.
bool readNumber(std::string_view& text, double& value)
{
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec != std::errc() || !std::isfinite(value)) return false;
    text = trimmed(text.substr(static_cast<std::size_t>(result.ptr - text.data())));
    return true;
}

}  // namespace

float AlgorithmParameter::limited(float value) const noexcept
{
    if (kind == ValueKind::Toggle) return value != 0 ? 1.0f : 0.0f;
    if (kind == ValueKind::List) value = std::nearbyint(value);
    return std::clamp(value, minimum, maximum);
}

float AlgorithmParameter::origin() const noexcept
{
    if (notes.origin) return *notes.origin;
    return has(VNK::isBipolar) ? curve->toValue(0.5f, minimum, maximum) : minimum;
}

void AlgorithmParameterList::add(AlgorithmParameter p, Kind kind)
{
    if (kind == Kind::Meter || kind == Kind::Reading) {
        p.flags |= VNK::isReadOnly;
        if (!p.notes.texts.empty()) p.kind = ValueKind::List;
        p.meter = static_cast<int>(meters_.size());
        meters_.push_back(p);
    } else {
        p.slot = static_cast<int>(slots_.size());
        slots_.push_back({p.tag, kind == Kind::Trigger});
    }
    switch (kind) {
    case Kind::Command:
    case Kind::Reading:
        return;  // no parameter
    case Kind::Toggle:
        p.kind = ValueKind::Toggle;
        p.flags |= VNK::isToggle;
        break;
    case Kind::Trigger:
        p.kind = ValueKind::Toggle;
        p.flags |= VNK::isToggle | VNK::isTrigger;
        break;
    case Kind::Bypass:
        p.kind = ValueKind::Toggle;
        p.flags |= VNK::isBypass;
        break;
    case Kind::List:
        p.kind = ValueKind::List;
        p.flags |= VNK::isList;
        break;
    case Kind::Tempo:
        p.isTempo = true;
        p.flags |= VNK::isNotStored | VNK::isNotAutomatable;
        break;
    case Kind::Meter:
    case Kind::Float:
        break;
    }
    parameters_.push_back(std::move(p));
}

MeterTags AlgorithmParameterList::tagsOf(const std::vector<AlgorithmParameter>& meters)
{
    std::vector<Tag> tags;
    for (const auto& meter : meters) tags.push_back(meter.tag);
    return MeterTags(tags);
}

int AlgorithmParameterList::find(std::string_view key) const noexcept
{
    for (std::size_t i = 0; i < parameters_.size(); ++i)
        if (parameters_[i].key == key) return static_cast<int>(i);
    return -1;
}

int AlgorithmParameterList::findTag(Tag tag) const noexcept
{
    for (std::size_t i = 0; i < parameters_.size(); ++i)
        if (parameters_[i].tag == tag) return static_cast<int>(i);
    return -1;
}

int AlgorithmParameterList::findSlot(Tag tag) const noexcept
{
    for (std::size_t i = 0; i < slots_.size(); ++i)
        if (slots_[i].tag == tag) return static_cast<int>(i);
    return -1;
}

const char* AlgorithmParameterFormatter::unitText(const AlgorithmParameter& p) noexcept
{
    for (const auto& unit : kUnits)
        if (unit.key == p.unit) return unit.shown;
    return p.unit;
}

std::string AlgorithmParameterFormatter::text(const AlgorithmParameter& p, float value)
{
    if (std::isnan(value)) return "-";
    if (p.kind == ValueKind::Toggle && p.notes.texts.empty()) return value != 0 ? "On" : "Off";
    if (!p.notes.texts.empty()) {
        const auto step = static_cast<std::size_t>(std::max(0.0f, p.limited(value) - p.minimum));
        if (step < p.notes.texts.size()) return p.notes.texts[step];
    }
    if (*p.notes.minText && value <= p.minimum) return p.notes.minText;
    if (*p.notes.maxText && value >= p.maximum) return p.notes.maxText;
    if (p.notes.toText) return p.notes.toText(value);
    if (isRatio(p)) {  // 1 : 1 in the middle, expansion below, compression above
        if (value == 1) return "1 : 1";
        return value > 1 ? number(value) + " : 1" : "1 : " + number(1 / double(value));
    }
    const std::string unit = unitText(p);
    return unit.empty() ? number(value) : number(value) + " " + unit;
}

bool AlgorithmParameterFormatter::value(const AlgorithmParameter& p, std::string_view text,
                                        float& value)
{
    text = trimmed(text);
    const auto is = [&](std::string_view other) {
        return !other.empty() && equalsIgnoringCase(text, other);
    };
    for (std::size_t i = 0; i < p.notes.texts.size(); ++i)
        if (is(p.notes.texts[i])) return value = p.minimum + static_cast<float>(i), true;
    if (p.kind == ValueKind::Toggle && (is("on") || is("off")))
        return value = is("on") ? 1 : 0, true;
    if (is(p.notes.minText)) return value = p.minimum, true;
    if (is(p.notes.maxText)) return value = p.maximum, true;

    if (p.notes.fromText) {
        if (const auto read = p.notes.fromText(text)) {
            const bool isWithin = *read >= p.minimum && *read <= p.maximum;
            if (isWithin) value = *read;
            return isWithin;
        }
    }
    double v = 0;
    if (!readNumber(text, v)) return false;
    if (isRatio(p) && !text.empty() && text.front() == ':') {
        double second = 0;
        text = trimmed(text.substr(1));
        if (!readNumber(text, second) || !(v > 0) || !(second > 0)) return false;
        v /= second;
    }
    if (!text.empty() && !equalsIgnoringCase(text, unitText(p))) return false;
    if (p.kind != ValueKind::Continuous && v != std::nearbyint(v)) return false;
    // A value written with few digits may lie a rounding beyond an end that has more.
    const double slack = 1e-6 * std::max(std::abs(double(p.minimum)), std::abs(double(p.maximum)));
    if (!(v >= p.minimum - slack && v <= p.maximum + slack)) return false;
    value = std::clamp(static_cast<float>(v), p.minimum, p.maximum);
    return true;
}

}  // namespace quillworks
