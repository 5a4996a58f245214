// SPDX-License-Identifier: ISC
#include "editors/theme.h"

#include <algorithm>
#include <cmath>

namespace quillworks::editors {
namespace {

constexpr const char* kColorNames[kColors] = {
    "bg",    "panel", "well",  "raised", "edge", "track", "grid", "grid2", "text", "text2",
    "text3", "focus", "level", "out",    "ok",   "warn",  "ink",  "",      "",     "",
};
constexpr const char* kTypeNames[kTypes] = {
    "title", "compactTitle", "panelTitle", "label", "button", "value", "axis", "meterScale",
};

Weight weightOf(const std::string& font)
{
    if (font == "semibold") return Weight::SemiBold;
    return font == "medium" ? Weight::Medium : Weight::Regular;
}

}  // namespace

Theme::Theme(const VNK::Skin& skin, const std::string& variant, const std::string& accent)
    : variant_(skin.variants.contains(variant) ? variant : "dark")
{
    // The base, then what differs from it.
    for (const auto& name : {std::string("dark"), variant_}) {
        const auto tokens = skin.variants.find(name);
        if (tokens == skin.variants.end()) continue;
        const auto read = [&](const std::string& token, std::uint32_t& rgb) {
            if (const auto at = tokens->second.colors.find(token);
                at != tokens->second.colors.end())
                rgb = at->second;
        };
        for (std::size_t i = 0; i < kColors; ++i) read(kColorNames[i], colors_[i]);
        auto& own = colors_[static_cast<std::size_t>(Color::Accent)];
        if (!own) own = rgb(Color::Text);
        read("accent-" + accent, own);
        for (std::size_t i = 0; i < kTypes; ++i)
            if (const auto at = tokens->second.types.find(kTypeNames[i]);
                at != tokens->second.types.end())
                faces_[i] = {weightOf(at->second.font), at->second.size};
    }
    const auto cap = [&](Color color, std::uint32_t rgb) {
        colors_[static_cast<std::size_t>(color)] = rgb;
    };
    cap(Color::CapTop, 0x3C424C);
    cap(Color::CapBottom, 0x292E35);
    // The focus ring must differ from what it goes around.
    if (rgb(Color::Focus) == rgb(Color::Accent)) {
        const auto& dark = skin.variants.find("dark");
        if (dark != skin.variants.end())
            if (const auto at = dark->second.colors.find("accent-dynamics");
                at != dark->second.colors.end())
                colors_[static_cast<std::size_t>(Color::Focus)] = at->second;
    }
}

double contrast(std::uint32_t a, std::uint32_t b) noexcept
{
    const auto luminance = [](std::uint32_t rgb) {
        const auto linear = [&](int shift) {
            const double c = (rgb >> shift & 0xFF) / 255.0;
            return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(16) + 0.7152 * linear(8) + 0.0722 * linear(0);
    };
    const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
    return (light + 0.05) / (dark + 0.05);
}

}  // namespace quillworks::editors
