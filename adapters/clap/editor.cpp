// SPDX-License-Identifier: ISC
#include "adapters/clap/editor.h"

#include <string_view>

#include "framework/resources.h"

namespace quillworks::clap {
namespace {

int toInt(std::uint32_t n)
{
    return static_cast<int>(std::min<std::uint32_t>(n, 32767));
}

}  // namespace

/// A question of the window system alone: scanners, which have no timer, ask it too.
bool Editor::isPossible(const char* api) noexcept
{
    return api && std::string_view(api) == CLAP_WINDOW_API_X11;
}

bool Editor::create(const char* api, bool isFloating)
{
    if (isThere()) return false;
    const bool isAny = isFloating && (!api || !*api);
    if (!isAny && !isPossible(api)) return false;
    adapters::EditorWindow::Setup setup;
    setup.effect = adapters::SwitchedComponent::of(effect_, switch_);
    setup.resources = resourcesFolder();
    setup.writer = std::make_unique<adapters::TellingWriter>(setup.effect, listener_);
    if (!isFloating)
        setup.window.mayResize = [this](int width, int height) {
            return host_.requestSize(width, height);
        };
    window_ = adapters::EditorWindow::open(std::move(setup));
    if (!isThere()) return false;
    isFloating_ = isFloating;
    isTold_ = false;
    // The editor has no thread of its own: without the host's timer it would stand still.
    if (host_.startTimer(kTimerMs, timer_)) return true;
    window_.reset();
    return false;
}

void Editor::destroy() noexcept
{
    if (!isThere()) return;
    host_.stopTimer(timer_);
    timer_ = CLAP_INVALID_ID;
    if (!isPolling_) window_.reset();
}

bool Editor::setScale(double scale)
{
    if (!isThere() || !(scale > 0)) return false;
    window().setScale(scale);
    return true;
}

bool Editor::getSize(std::uint32_t& width, std::uint32_t& height)
{
    if (!isThere()) return false;
    width = static_cast<std::uint32_t>(window().width());
    height = static_cast<std::uint32_t>(window().height());
    return true;
}

bool Editor::getResizeHints(clap_gui_resize_hints_t& hints)
{
    if (!isThere()) return false;
    hints = {true, true, true, static_cast<std::uint32_t>(window().width()),
             static_cast<std::uint32_t>(window().height())};
    return true;
}

bool Editor::adjustSize(std::uint32_t& width, std::uint32_t& height)
{
    if (!isThere()) return false;
    int w = toInt(width), h = toInt(height);
    window().surface().fitSize(w, h);
    width = static_cast<std::uint32_t>(w);
    height = static_cast<std::uint32_t>(h);
    return true;
}

bool Editor::setSize(std::uint32_t width, std::uint32_t height)
{
    if (!isThere()) return false;
    window().setSize(toInt(width), toInt(height));
    return true;
}

bool Editor::setParent(const clap_window_t& parent)
{
    return isThere() && !isFloating_ && isPossible(parent.api) &&
           window().embedIn(static_cast<std::uint32_t>(parent.x11));
}

bool Editor::setTransient(const clap_window_t& above)
{
    if (!isThere() || !isFloating_ || !isPossible(above.api)) return false;
    window().stayAbove(static_cast<std::uint32_t>(above.x11));
    return true;
}

void Editor::suggestTitle(const char* title)
{
    if (isThere() && title) window().setTitle(title);
}

bool Editor::show()
{
    if (!isThere()) return false;
    window().show();
    return true;
}

bool Editor::hide()
{
    if (!isThere()) return false;
    window().hide();
    return true;
}

void Editor::onTimer(clap_id timer)
{
    if (!isThere() || timer != timer_) return;
    isPolling_ = true;
    const bool isOpen = window_->poll();
    isPolling_ = false;
    // The host may have destroyed the editor within, and may when it hears that the window is gone.
    if (timer_ == CLAP_INVALID_ID)
        window_.reset();
    else if (!isOpen && !std::exchange(isTold_, true))
        host_.editorClosed();
}

}  // namespace quillworks::clap
