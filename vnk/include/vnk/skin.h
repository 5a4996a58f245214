// SPDX-License-Identifier: ISC
// The skin: colours and type of a theme, and the forms of the effects' editor views. Positions are
// in grid units; a form names parameters by key, not by pixel.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "vnk/class_factory.h"
#include "vnk/export.h"

namespace VNK {

struct SkinType {
    std::string font;
    float size = 0;  // px
};

/// One variant of the tokens ("dark"); others hold only what differs from it.
struct SkinTokens {
    std::map<std::string, std::uint32_t> colors;  // 0xRRGGBB
    std::map<std::string, SkinType> types;
};

/// A control or display; `attributes` as written, the key among them.
struct SkinControl {
    std::string
        kind;  // "Knob", "Slider", "Toggle", "Segments", "Choice", "Button", "Readout", "File"
    std::string key;
    std::map<std::string, std::string> attributes;
};

/// A rectangle of a view in grid units: header, panel with its controls, or display.
struct SkinBox {
    std::string kind;  // "Header", "Panel", "Display"
    std::string title, page;
    int x = 0, y = 0, w = 0, h = 0;
    std::vector<SkinControl> controls;
    std::map<std::string, std::string> attributes;  // of a display: what it shows
};

struct SkinView {
    std::string name, title;
    int width = 0, height = 0;
    std::vector<SkinBox> boxes;
};

struct SkinEffect {
    std::string className;  // display name
    std::string accent;     // family whose accent colour it takes
    std::vector<SkinView> views;
};

struct Skin {
    int unit = 8;  // px
    std::map<std::string, SkinTokens> variants;
    std::vector<SkinEffect> effects;

    /// The form of a view; null where the automatic form is to be made.
    VNK_API const SkinView* findView(const std::string& name) const noexcept;
};

/// Reads a skin document. False with one line of reason when it is not well-formed, lacks a token,
/// or holds an element or attribute that a skin does not know.
VNK_API bool readSkin(const void* data, std::size_t bytes, Skin& skin, std::string& reason);

/// Holds the skin against the effects: every class, view, key and meter exists and is bound once
/// per view, kind and control fit, nothing overlaps or leaves its form, and every parameter that is
/// stored and automatable is reachable in the first view. Creates each effect that the skin names.
VNK_API bool checkSkin(const Skin& skin, IClassFactory& factory, std::string& reason);

}  // namespace VNK
