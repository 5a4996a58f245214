// SPDX-License-Identifier: ISC
#include "editors/view_offscreen.h"

#include <cstring>

namespace quillworks::editors {
namespace {

constexpr double kTick = 1.0 / 30;

}  // namespace

GestureRecorder::GestureRecorder(VNK::HostedEffect effect, std::vector<Event>& events)
    : effect_(std::move(effect)), events_(events)
{}

VNK::ParameterInfo GestureRecorder::info(int parameter) const
{
    VNK::ParameterInfo info{};
    effect_.getParameter(parameter, info);
    return info;
}

void GestureRecorder::begin(int parameter)
{
    events_.push_back({Event::Begin, info(parameter).key});
    effect_.beginEdit(info(parameter).tag);
}

void GestureRecorder::set(int parameter, float value)
{
    events_.push_back({Event::Value, info(parameter).key, value});
    effect_.setValue(parameter, value);
}

void GestureRecorder::end(int parameter)
{
    events_.push_back({Event::End, info(parameter).key});
    effect_.endEdit(info(parameter).tag);
}

void GestureRecorder::beginGroup()
{
    events_.push_back({Event::BeginGroup, {}});
    effect_.beginGroupEdit();
}

void GestureRecorder::endGroup()
{
    events_.push_back({Event::EndGroup, {}});
    effect_.endGroupEdit();
}

OffscreenWindow::OffscreenWindow(Surface& surface) : surface_(surface)
{
    surface_.setHost(this);
}

OffscreenWindow::~OffscreenWindow()
{
    if (popup_) popup_->setHost(nullptr);
    surface_.setHost(nullptr);
}

void OffscreenWindow::wait(double seconds)
{
    const double end = seconds_ + seconds;
    while (seconds_ + 1e-9 < end) {
        seconds_ = std::min(end, seconds_ + kTick);
        surface_.tick(seconds_);
        if (popup_) popup_->tick(seconds_);
        draw();
    }
}

void OffscreenWindow::pointer(PointerAction action, double x, double y, int button,
                              unsigned modifiers)
{
    const auto top = popup_;
    if (top) {
        const double px = x - popupX_, py = y - popupY_;
        const bool isInside = px >= 0 && py >= 0 && px < top->width() && py < top->height();
        if (isInside) return top->pointer({action, px, py, button, modifiers, seconds_});
        if (action == PointerAction::Press) {
            showPopup(nullptr, 0, 0);
            top->closed();
            if (top->takesPointer()) return;
        } else if (top->takesPointer()) {
            return;
        }
    }
    surface_.pointer({action, x, y, button, modifiers, seconds_});
}

void OffscreenWindow::move(double x, double y, unsigned modifiers)
{
    pointer(PointerAction::Move, x, y, 0, modifiers);
}

void OffscreenWindow::press(double x, double y, int button, unsigned modifiers)
{
    pointer(PointerAction::Press, x, y, button, modifiers);
}

void OffscreenWindow::release(double x, double y, int button, unsigned modifiers)
{
    pointer(PointerAction::Release, x, y, button, modifiers);
}

void OffscreenWindow::wheel(double x, double y, double notches, unsigned modifiers)
{
    if (popup_ && popup_->takesPointer())
        return popup_->wheel({x - popupX_, y - popupY_, notches, modifiers, seconds_});
    surface_.wheel({x, y, notches, modifiers, seconds_});
}

bool OffscreenWindow::key(Key key, const std::string& text, unsigned modifiers)
{
    const KeyEvent event{key, text, modifiers, seconds_};
    const auto top = popup_;
    return (top && top->key(event)) || surface_.key(event);
}

std::vector<PixelRect> OffscreenWindow::draw()
{
    if (picture_.width() != surface_.width() || picture_.height() != surface_.height()) {
        picture_ = Image(surface_.width(), surface_.height());
        isWhole_ = true;
    }
    auto drawn = surface_.draw(picture_.pixels(), isWhole_);
    isWhole_ = false;
    return drawn;
}

const Image& OffscreenWindow::picture()
{
    draw();
    return picture_;
}

Image OffscreenWindow::withPopups()
{
    draw();
    Image all(picture_.width(), picture_.height());
    const auto& from = picture_.pixels();
    std::memcpy(all.pixels().data, from.data,
                static_cast<std::size_t>(from.stride) * static_cast<std::size_t>(from.height));
    if (!popup_) return all;
    Image popup(popup_->width(), popup_->height());
    popup_->draw(popup.pixels(), true);
    for (int y = 0; y < popup.height(); ++y)
        for (int x = 0; x < popup.width(); ++x) {
            const int ax = x + popupX_, ay = y + popupY_;
            if (ax < 0 || ay < 0 || ax >= all.width() || ay >= all.height()) continue;
            all.pixels().data[ay * all.width() + ax] = popup.pixels().data[y * popup.width() + x];
        }
    return all;
}

void OffscreenWindow::resize(int width, int height)
{
    surface_.setSize(width, height);
}

void OffscreenWindow::showPopup(std::shared_ptr<Surface> popup, int x, int y)
{
    if (popup_) popup_->setHost(nullptr);
    popup_ = std::move(popup);
    popupX_ = x;
    popupY_ = y;
    if (popup_) popup_->setHost(this);
}

}  // namespace quillworks::editors
