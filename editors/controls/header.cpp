// SPDX-License-Identifier: ISC
#include "editors/controls/header.h"

#include <cmath>

#include "editors/controls/buttons.h"

namespace quillworks::editors {
namespace {

constexpr double kButton = 24;
constexpr double kFieldWidth = 263;

/// The name of the preset, with a dot where it has been changed; a press opens the list.
class PresetField final : public Control {
public:
    PresetField(ControlHost& host, const Rect& bounds, Presets& presets, bool isLarge)
        : Control(host, "Presets", "Preset", bounds), presets_(presets), isLarge_(isLarge)
    {}

    void draw(Canvas& canvas) override
    {
        shown_ = describe();
        const auto name = presets_.name();
        const double base = bounds().centre().y + 4;
        const auto ink = isHovered_ ? Color::Text : isLarge_ ? Color::Text : Color::Text2;
        const auto text = canvas.fitted(Type::Value, name, bounds().w - 16);
        const double w = canvas.textWidth(Type::Value, text);
        double left = bounds().x + (bounds().w - w) / 2;
        if (!isLarge_) left = bounds().right() - w;
        canvas.text(Type::Value, text, left, base, Align::Left, ink);
        if (presets_.isModified()) canvas.circle({left - 8, base - 4}, 2.5, Color::Accent);
    }
    void tick(double) override
    {
        if (describe() != shown_) damage();
    }
    void pointer(const PointerEvent& event) override
    {
        if (press_.pointer(event, bounds())) open();
    }
    void hover(bool isOver) override
    {
        if (isHovered_ == isOver) return;
        isHovered_ = isOver;
        damage();
    }
    bool key(const KeyEvent& event) override
    {
        if (event.modifiers) return false;
        switch (event.key) {
        case Key::Space:
        case Key::Enter:
            open();
            return true;
        case Key::Up:
            presets_.step(-1);
            return true;
        case Key::Down:
            presets_.step(1);
            return true;
        default:
            return false;
        }
    }
    std::string describe() const override
    {
        return presets_.name() + (presets_.isModified() ? " (changed)" : "");
    }
    Tip tip() const override { return {"Preset: " + presets_.name(), "Press for the list.", {}}; }

private:
    void open() { host().openList(bounds(), presets_.list()); }

    Presets& presets_;
    bool isLarge_, isHovered_ = false;
    std::string shown_;
    Press press_;
};

void drawPower(Canvas& canvas, const Rect& r, const ButtonState& state)
{
    const Ink ink = state.isOn ? Color::Accent : state.isHovered ? Color::Text2 : Color::Text3;
    const auto c = r.centre();
    canvas.arc({c.x, c.y + 0.5}, 6.5, 35, 325, 1.75, ink);
    canvas.line({c.x, c.y - 8}, {c.x, c.y - 1}, 1.75, ink);
}

auto drawArrow(double direction)
{
    return [direction](Canvas& canvas, const Rect& r, const ButtonState& state) {
        const auto c = r.centre();
        const Point points[] = {{c.x - 2.5 * direction, c.y - 5},
                                {c.x + 2.5 * direction, c.y},
                                {c.x - 2.5 * direction, c.y + 5}};
        canvas.polyline(points, 1.75, state.isHovered ? Color::Text : Color::Text2);
    };
}

void drawDots(Canvas& canvas, const Rect& r, const ButtonState& state)
{
    for (const double x : {-6.0, 0.0, 6.0})
        canvas.circle({r.centre().x + x, r.centre().y}, 1.75,
                      state.isHovered ? Color::Text : Color::Text2);
}

auto drawTab(const std::string& title)
{
    return [title](Canvas& canvas, const Rect& r, const ButtonState& state) {
        const Ink ink = state.isOn ? Color::Text : state.isHovered ? Color::Text : Color::Text2;
        canvas.text(Type::Button, title, r.centre().x, r.centre().y + 4, Align::Centre, ink);
        if (state.isOn)
            canvas.fillRounded({r.x + 6, r.bottom() - 3, r.w - 12, 2}, 1, Color::Accent);
    };
}

/// One letter of A/B; a dot on the other one where the two differ.
auto drawLetter(EffectModel& model, int set)
{
    return [&model, set](Canvas& canvas, const Rect& r, const ButtonState& state) {
        if (state.isOn)
            canvas.fillRounded(r, 4, Color::Accent);
        else
            canvas.fillRounded(r, 4, Color::Raised);
        canvas.text(Type::Button, set ? "B" : "A", r.centre().x, r.centre().y + 4, Align::Centre,
                    state.isOn        ? Color::OnAccent
                    : state.isHovered ? Color::Text
                                      : Color::Text2);
        if (!state.isOn && model.editing()->setsDiffer())
            canvas.circle({r.right() - 5, r.y + 5}, 2, Color::Accent);
    };
}

void makeCompare(ControlHost& host, double right, double top, Controls& controls)
{
    auto& model = host.model();
    auto& editing = *model.editing();
    for (int set = 0; set < 2; ++set)
        controls.push_back(std::make_unique<ActionButton>(
            host, set ? "Setting B" : "Setting A", Rect{right - 95 + 29 * set, top, 28, kButton},
            drawLetter(model, set), [&editing, set] { editing.selectSet(set); },
            [&editing, set] { return (editing.comparedSet() == set) + 2 * editing.setsDiffer(); }));
    controls.push_back(std::make_unique<ActionButton>(
        host, "Copy to the other setting", Rect{right - 32, top, 32, kButton},
        [&editing](Canvas& canvas, const Rect& r, const ButtonState& state) {
            drawButton(canvas, r, editing.comparedSet() ? "→ A" : "→ B",
                       {false, state.isDown, state.isHovered});
        },
        [&editing] { editing.copyToOtherSet(); },
        [&editing] { return 2 * editing.comparedSet(); }));
}

}  // namespace

std::unique_ptr<Control> makePower(ControlHost& host, const Rect& bounds)
{
    auto& model = host.model();
    for (int i = 0; i < model.countParameters(); ++i)
        if (model.info(i).has(VNK::isBypass))
            return std::make_unique<ActionButton>(
                host, "On", bounds, drawPower,
                [&model, i] { model.set(i, model.value(i) >= 0.5f ? 0.0f : 1.0f); },
                [&model, i] { return model.value(i) < 0.5f ? 1 : 0; });
    return nullptr;
}

void makeHeader(ControlHost& host, const Rect& bounds, bool isLarge, const HeaderActions& actions,
                Fonts& fonts, const Theme& theme, Controls& controls)
{
    const double top = bounds.y + (bounds.h - kButton) / 2;
    const auto width = [&](Type type, const std::string& text) {
        return fonts.width(theme.face(type).weight, theme.face(type).size, text);
    };
    controls.push_back(std::make_unique<Ground>(host, "", bounds, 0));
    double left = bounds.x + (isLarge ? 15 : 11);
    if (auto power = makePower(host, {left, top, kButton, kButton})) {
        controls.push_back(std::move(power));
        left += isLarge ? 33 : 31;
    }
    const auto type = isLarge ? Type::Title : Type::CompactTitle;
    const double titleWidth = std::ceil(width(type, actions.title));
    controls.push_back(std::make_unique<Caption>(
        host, actions.title, Rect{left, bounds.y, titleWidth + 1, bounds.h}, type, Color::Text));
    left += titleWidth + 16;
    if (actions.pages.size() > 1)
        for (int i = 0; i < static_cast<int>(actions.pages.size()); ++i) {
            const auto& name = actions.pages[static_cast<std::size_t>(i)];
            const double w = std::ceil(width(Type::Button, name)) + 16;
            controls.push_back(std::make_unique<ActionButton>(
                host, name, Rect{left, top, w, kButton}, drawTab(name),
                [show = actions.showPage, i] { show(i); },
                [page = actions.page, i] { return page() == i ? 1 : 0; }));
            left += w;
        }

    double right = bounds.right() - (isLarge ? 16 : 11);
    const Rect menu{right - kButton, top, kButton, kButton};
    right = menu.x - 7;
    Controls compare;
    if (isLarge && host.model().editing()) {
        makeCompare(host, right, top, compare);
        right -= 95 + 12;
    }
    auto& presets = *actions.presets;
    if (isLarge) {
        const double room = right - left - 16;
        const double w = std::min(kFieldWidth, room);
        const double x = std::clamp(bounds.centre().x - w / 2, left + 8, right - w - 8);
        const Rect field{x, top + 1, w, kButton - 2};
        if (w >= 96) {
            controls.push_back(std::make_unique<Well>(host, field));
            controls.push_back(std::make_unique<ActionButton>(
                host, "Previous preset", Rect{field.x + 2, top, kButton, kButton}, drawArrow(-1),
                [&presets] { presets.step(-1); }));
            controls.push_back(std::make_unique<PresetField>(
                host, Rect{field.x + 28, field.y + 1, w - 56, field.h - 2}, presets, true));
            controls.push_back(std::make_unique<ActionButton>(
                host, "Next preset", Rect{field.right() - 26, top, kButton, kButton}, drawArrow(1),
                [&presets] { presets.step(1); }));
        }
    } else if (right - left > 60) {
        controls.push_back(std::make_unique<PresetField>(
            host,
            Rect{std::max(left, right - 200), top, right - std::max(left, right - 200), kButton},
            presets, false));
    }
    for (auto& control : compare) controls.push_back(std::move(control));
    controls.push_back(std::make_unique<ActionButton>(
        host, "Menu", menu, drawDots, [open = actions.openMenu, menu] { open(menu); }));
}

void Caption::drawStatic(Canvas& canvas)
{
    const double size = canvas.face(type_).size;
    canvas.text(type_, canvas.fitted(type_, title(), bounds().w + 2), bounds().x,
                bounds().centre().y + size * 0.36, Align::Left, ink_);
}

void Caption::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    checkText(fonts, theme.face(type_), title(), bounds().w + 1, problems);
}

void Ground::drawStatic(Canvas& canvas)
{
    canvas.fillRounded(bounds(), radius_, Color::Panel);
    if (!title().empty())
        canvas.text(Type::PanelTitle, canvas.fitted(Type::PanelTitle, title(), bounds().w - 24),
                    bounds().x + 12, bounds().y + 19, Align::Left, Color::Text2);
}

void Ground::check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const
{
    checkText(fonts, theme.face(Type::PanelTitle), title(), bounds().w - 16, problems);
}

void Well::drawStatic(Canvas& canvas)
{
    canvas.fillRounded(bounds(), 4, Color::Well);
    canvas.strokeRounded(bounds(), 4, 0, Color::Edge);
}

}  // namespace quillworks::editors
