// SPDX-License-Identifier: ISC
// The bar at the top of a form: bypass, title, pages, presets, A/B and the menu.
#pragma once

#include <memory>

#include "editors/control.h"
#include "editors/presets.h"

namespace quillworks::editors {

/// What the header's buttons do with their view.
struct HeaderActions {
    std::string title;
    std::vector<std::string> pages;  // names, if there is more than one
    std::function<int()> page;
    std::function<void(int)> showPage;
    std::function<void(const Rect&)> openMenu;
    Presets* presets = nullptr;
};

using Controls = std::vector<std::unique_ptr<Control>>;

/// `isLarge` for an Editor; smaller forms have the name of the preset only.
void makeHeader(ControlHost& host, const Rect& bounds, bool isLarge, const HeaderActions& actions,
                Fonts& fonts, const Theme& theme, Controls& controls);

/// The bypass switch; null where the effect has none.
std::unique_ptr<Control> makePower(ControlHost& host, const Rect& bounds);

/// A text that stands still.
class Caption final : public Control {
public:
    Caption(ControlHost& host, std::string text, const Rect& bounds, Type type, Ink ink)
        : Control(host, "Caption", std::move(text), bounds), type_(type), ink_(ink)
    {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas&) override {}
    bool takesFocus() const override { return false; }
    Tip tip() const override { return {}; }
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;

private:
    Type type_;
    Ink ink_;
};

/// The ground of a header or panel, with the panel's title.
class Ground final : public Control {
public:
    Ground(ControlHost& host, std::string title, const Rect& bounds, double radius)
        : Control(host, "Ground", std::move(title), bounds), radius_(radius)
    {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas&) override {}
    bool takesFocus() const override { return false; }
    Tip tip() const override { return {}; }
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;

private:
    double radius_;
};

/// The ground of a field.
class Well final : public Control {
public:
    Well(ControlHost& host, const Rect& bounds) : Control(host, "Well", "", bounds) {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas&) override {}
    bool takesFocus() const override { return false; }
};

}  // namespace quillworks::editors
