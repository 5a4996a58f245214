// SPDX-License-Identifier: ISC
#include "editors/controls/display_control.h"

namespace quillworks::editors {
namespace {

constexpr double kRadius = 6;

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

void DisplayControl::passDamage()
{
    if (display_->takeStaticDamage()) host().damageStatic(bounds());
    for (const auto& damage : display_->takeDamage())
        host().damage(damage.moved(bounds().x, bounds().y));
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
    display_->pointer(own);
    passDamage();
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
    return isUsed;
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
