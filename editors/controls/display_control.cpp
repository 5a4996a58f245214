// SPDX-License-Identifier: ISC
#include "editors/controls/display_control.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "editors/value_entry.h"

namespace quillworks::editors {
namespace {

constexpr double kRadius = 6;
constexpr double kStill = 3;                           // px that a click may stray
constexpr double kFieldWidth = 92, kFieldHeight = 24;  // px
constexpr double kAbove = 34;                          // px of a field over what it belongs to

std::string kindOf(const VNK::SkinBox& box)
{
    const auto kind = box.attributes.find("kind");
    return kind == box.attributes.end() ? std::string() : kind->second;
}

}  // namespace

DisplayControl::DisplayControl(ControlHost& host, const VNK::SkinBox& box, const Rect& bounds)
    : Control(host, "Display", kindOf(box), bounds), display_(makeDisplay(box, host.model()))
{}

void DisplayControl::setScale(double scale)
{
    if (display_) display_->setSize(bounds().w, bounds().h, scale);
}

void DisplayControl::drawStatic(Canvas& canvas)
{
    canvas.fillRounded(bounds(), kRadius, Color::Well);
    canvas.strokeRounded(bounds(), kRadius, 0, Color::Edge);
    if (!display_)
        return void(canvas.text(Type::Axis, title(), bounds().centre().x, bounds().centre().y + 4,
                                Align::Centre, Color::Text3));
    const auto saved = canvas.save();
    canvas.translate(bounds().x, bounds().y);
    canvas.clip({0, 0, bounds().w, bounds().h});
    display_->drawStatic(canvas);
}

void DisplayControl::draw(Canvas& canvas)
{
    if (!display_) return;
    const auto saved = canvas.save();
    canvas.translate(bounds().x, bounds().y);
    canvas.clip({0, 0, bounds().w, bounds().h});
    display_->draw(canvas);
}

void DisplayControl::drawMoved(Canvas& canvas)
{
    if (!display_) return;
    const auto saved = canvas.save();
    canvas.translate(bounds().x, bounds().y);
    canvas.clip({0, 0, bounds().w, bounds().h});
    display_->drawMoved(canvas);
}

void DisplayControl::passDamage()
{
    if (display_->takeStaticDamage()) host().damageStatic(bounds());
    for (const auto& damage : display_->takeDamage())
        host().damage(damage.moved(bounds().x, bounds().y));
    for (const auto& moved : display_->takeMoved())
        host().moved(moved.moved(bounds().x, bounds().y));
}

void DisplayControl::tick(double seconds)
{
    if (!display_) return;
    display_->tick(seconds);
    passDamage();
}

void DisplayControl::pointer(const PointerEvent& event)
{
    if (!display_) return;
    auto own = event;
    own.x -= bounds().x;
    own.y -= bounds().y;
    if (!pressValue(own)) display_->pointer(own);
    passDamage();
}

int DisplayControl::graspAt(double x, double y) const
{
    const auto all = display_->grasps();
    int found = -1;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto c = all[i].at.centre();
        const double distance = std::hypot(c.x - x, c.y - y);
        if (!all[i].at.contains(x, y) || distance >= least) continue;
        least = distance;
        found = static_cast<int>(i);
    }
    return found;
}

bool DisplayControl::pressValue(const PointerEvent& own)
{
    switch (own.action) {
    case PointerAction::Press: {
        const int grasp = graspAt(own.x, own.y);
        if (own.button == 3 && grasp >= 0) {
            display_->focusGrasp(grasp);
            openMenu(grasp, {own.x, own.y});
            return true;
        }
        pressed_ = {own.x, own.y};
        isOnValue_ =
            own.button == 1 && grasp >= 0 &&
            display_->grasps()[static_cast<std::size_t>(grasp)].value.contains(own.x, own.y);
        return false;
    }
    case PointerAction::Move:
        isOnValue_ &= std::hypot(own.x - pressed_.x, own.y - pressed_.y) <= kStill;
        // What a click strays by is no drag.
        return isOnValue_;
    case PointerAction::Release:
        if (!isOnValue_) return false;
        isOnValue_ = false;
        display_->pointer(own);
        enterValue(display_->focusedGrasp(), 0);
        return true;
    default:
        return false;
    }
}

void DisplayControl::enterValue(int grasp, std::size_t n, const std::string& text)
{
    const auto all = display_->grasps();
    if (grasp < 0 || grasp >= static_cast<int>(all.size())) return;
    const auto& held = all[static_cast<std::size_t>(grasp)];
    const auto parameters = held.parameters();
    if (held.isSwitch || n >= parameters.size()) return;
    auto field = held.value;
    if (field.isEmpty()) {
        const auto c = held.at.centre();
        const double y = c.y < kAbove + 4 ? c.y + kAbove - kFieldHeight : c.y - kAbove;
        field = {c.x - kFieldWidth / 2, y, kFieldWidth, kFieldHeight};
    }
    field.x = std::clamp(field.x, 2.0, std::max(2.0, bounds().w - field.w - 2));
    field.y = std::clamp(field.y, 2.0, std::max(2.0, bounds().h - field.h - 2));
    const int p = parameters[n];
    auto request = valueRequest(model(), p, field.moved(bounds().x, bounds().y),
                                text.empty() ? model().text(p) : text, text.empty());
    if (n + 1 < parameters.size())
        request.goOn = [this, grasp, n] {
            enterValue(grasp, n + 1);
            return true;
        };
    host().editText(*this, std::move(request));
}

void DisplayControl::openMenu(int grasp, Point at)
{
    const auto all = display_->grasps();
    if (grasp < 0 || grasp >= static_cast<int>(all.size())) return;
    const auto& held = all[static_cast<std::size_t>(grasp)];
    const auto parameters = held.parameters();
    ListContent menu;
    for (std::size_t n = 0; n < parameters.size(); ++n) {
        std::function<void()> enter;
        if (!held.isSwitch) enter = [this, grasp, n] { enterValue(grasp, n); };
        addValueEntries(menu.entries, host(), parameters[n], std::move(enter));
    }
    for (auto& entry : host().commonEntries()) menu.entries.push_back(std::move(entry));
    host().openList({bounds().x + at.x, bounds().y + at.y, 0, 0}, std::move(menu));
}

bool DisplayControl::wheel(const WheelEvent& event)
{
    if (!display_) return false;
    auto own = event;
    own.x -= bounds().x;
    own.y -= bounds().y;
    const bool isUsed = display_->wheel(own);
    passDamage();
    return isUsed;
}

bool DisplayControl::key(const KeyEvent& event)
{
    if (!display_) return false;
    const bool isUsed = display_->key(event);
    passDamage();
    const int grasp = display_->focusedGrasp();
    if (isUsed || grasp < 0 || (event.modifiers & kAlt)) return isUsed;
    if (event.key == Key::Menu || (event.key == Key::F10 && event.modifiers & kShift)) {
        const auto all = display_->grasps();
        if (grasp < static_cast<int>(all.size()))
            openMenu(grasp, all[static_cast<std::size_t>(grasp)].at.centre());
        return true;
    }
    if (event.key != Key::Enter && !beginsValue(event)) return false;
    enterValue(grasp, 0, event.key == Key::Enter ? std::string() : event.text);
    return true;
}

void DisplayControl::setFocus(bool hasFocus)
{
    if (!display_) return;
    display_->setFocus(hasFocus);
    passDamage();
}

Tip DisplayControl::tip() const
{
    if (!display_) return {};
    return {display_->tip(pointed_.x - bounds().x, pointed_.y - bounds().y), {}, {}};
}

}  // namespace quillworks::editors
