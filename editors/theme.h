// SPDX-License-Identifier: ISC
// Colours and type of one variant of the skin, looked up once for whoever draws.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "vnk/skin.h"

namespace quillworks::editors {

/// The skin's colour tokens; Accent is that of the effect's family.
enum class Color {
    Background,
    Panel,
    Well,
    Raised,
    Edge,
    Track,
    Grid,
    GridEnd,
    Text,
    Text2,
    Text3,
    Focus,
    Level,
    Output,
    Ok,
    Warn,
    OnAccent,
    Accent,
    CapTop,  // of a knob, lit from above
    CapBottom,
};
inline constexpr int kColors = 20;

enum class Type {
    Title,
    CompactTitle,
    PanelTitle,
    Label,
    Button,
    Value,
    Axis,
    MeterScale,
};
inline constexpr int kTypes = 8;

enum class Weight { Regular, Medium, SemiBold };

/// A colour token and how much of it: 0 .. 1.
struct Ink {
    Color color = Color::Text;
    double opacity = 1;

    constexpr Ink(Color c, double o = 1) : color(c), opacity(o) {}
};

class Theme {
public:
    struct Face {
        Weight weight = Weight::Regular;
        double size = 12;  // px
    };

    /// A variant that the skin lacks is the dark one; an unknown family's accent is plain text.
    Theme(const VNK::Skin& skin, const std::string& variant, const std::string& accent);

    std::uint32_t rgb(Color color) const noexcept  // 0xRRGGBB
    {
        return colors_[static_cast<std::size_t>(color)];
    }
    const Face& face(Type type) const noexcept { return faces_[static_cast<std::size_t>(type)]; }
    const std::string& variant() const noexcept { return variant_; }

private:
    std::string variant_;
    std::array<std::uint32_t, kColors> colors_{};
    std::array<Face, kTypes> faces_{};
};

/// Contrast of two colours as WCAG 2.2 defines it, 1 .. 21.
double contrast(std::uint32_t a, std::uint32_t b) noexcept;

}  // namespace quillworks::editors
