// SPDX-License-Identifier: ISC
#include "adapters/vst3/editor_view.h"

#include <cstring>

#include "adapters/vst3/instance.h"
#include "framework/resources.h"

namespace quillworks::vst3 {
namespace {

template <auto member> constexpr auto* call = &Call<member>::call;
using V = EditorView;

constexpr v3_funknown kObject{call<&V::queryInterface>, call<&V::ref>, call<&V::unref>};

struct ViewCalls : v3_funknown {
    v3_plugin_view view;
};
struct ScaleCalls : v3_funknown {
    v3_plugin_view_content_scale scale;
};
struct EventCalls : v3_funknown {
    v3_event_handler handler;
};
struct TimerCalls : v3_funknown {
    v3_timer_handler timer;
};

constexpr ViewCalls kViewCalls{
    kObject,
    {call<&V::isPlatformTypeSupported>, call<&V::attached>, call<&V::removed>, call<&V::onWheel>,
     call<&V::onKey>, call<&V::onKey>, call<&V::getSize>, call<&V::onSize>, call<&V::onFocus>,
     call<&V::setFrame>, call<&V::canResize>, call<&V::checkSizeConstraint>}};
constexpr ScaleCalls kScaleCalls{kObject, {call<&V::setContentScaleFactor>}};
constexpr EventCalls kEventCalls{kObject, {call<&V::onFd>}};
constexpr TimerCalls kTimerCalls{kObject, {call<&V::onTimer>}};

/// Exceptions, which only a lack of memory throws, end here.
template <class F> bool guarded(F&& f) noexcept
{
    try {
        return f();
    } catch (...) {
        return false;
    }
}

}  // namespace

EditorView::EditorView(Instance& instance, const VNK::HostedEffect& effect) noexcept
    : instance_(instance),
      effect_(effect),
      view_{&kViewCalls, this},
      scaling_{&kScaleCalls, this},
      events_{&kEventCalls, this},
      timer_{&kTimerCalls, this}
{
    instance_.ref();
}

EditorView::~EditorView()
{
    removed();
    window_.reset();
    instance_.unref();
}

v3_result EditorView::queryInterface(const std::uint8_t* iid, void** object) noexcept
{
    if (!iid || !object) return V3_INVALID_ARG;
    const struct {
        const std::uint8_t* iid;
        Face* face;
    } faces[] = {
        {v3_funknown_iid, &view_},
        {v3_plugin_view_iid, &view_},
        {v3_plugin_view_content_scale_iid, &scaling_},
        {v3_event_handler_iid, &events_},
        {v3_timer_handler_iid, &timer_},
    };
    *object = nullptr;
    for (const auto& known : faces)
        if (v3_tuid_match(known.iid, iid)) {
            *object = known.face;
            ref();
            return V3_OK;
        }
    return V3_NO_INTERFACE;
}

std::uint32_t EditorView::ref() noexcept
{
    return references_.fetch_add(1, std::memory_order_relaxed) + 1;
}

std::uint32_t EditorView::unref() noexcept
{
    const auto left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

/// Hosts ask for the size before they have a window for it.
bool EditorView::open() noexcept
{
    if (window_) return true;
    return guarded([&] {
        adapters::EditorWindow::Setup setup;
        setup.effect = adapters::SwitchedComponent::of(effect_, instance_);
        setup.resources = resourcesFolder();
        setup.writer = std::make_unique<adapters::TellingWriter>(setup.effect, instance_);
        setup.window.hostScale = hostScale_;
        setup.window.mayResize = [this](int width, int height) { return mayResize(width, height); };
        window_ = adapters::EditorWindow::open(std::move(setup));
        return window_ != nullptr;
    });
}

bool EditorView::mayResize(int width, int height) noexcept
{
    if (!frame_) return false;
    v3_view_rect rect{0, 0, width, height};
    return v3_cpp_obj(frame_)->resize_view(frame_, handle(), &rect) == V3_OK;
}

v3_result EditorView::isPlatformTypeSupported(const char* type) noexcept
{
    return type && !std::strcmp(type, V3_VIEW_PLATFORM_TYPE_X11) ? V3_TRUE : V3_FALSE;
}

v3_result EditorView::attached(void* parent, const char* type) noexcept
{
    if (!parent || isPlatformTypeSupported(type) != V3_TRUE) return V3_INVALID_ARG;
    // The editor has no thread of its own: the host's run loop drives it.
    if (loop_ || !frame_ || !open()) return V3_FALSE;
    v3_run_loop** loop = nullptr;
    if (v3_cpp_obj_query_interface(frame_, v3_run_loop_iid, &loop) != V3_OK || !loop)
        return V3_FALSE;
    const auto window = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(parent));
    if (!guarded([&] { return window_->window().embedIn(window); })) {
        v3_cpp_obj_unref(loop);
        return V3_FALSE;
    }
    loop_ = loop;
    auto& calls = *v3_cpp_obj(loop);
    calls.register_event_handler(loop, reinterpret_cast<v3_event_handler**>(&events_),
                                 window_->window().fd());
    calls.register_timer(loop, reinterpret_cast<v3_timer_handler**>(&timer_), kTimerMs);
    return V3_OK;
}

v3_result EditorView::removed() noexcept
{
    if (!loop_) return V3_FALSE;
    auto** const loop = std::exchange(loop_, nullptr);
    auto& calls = *v3_cpp_obj(loop);
    calls.unregister_event_handler(loop, reinterpret_cast<v3_event_handler**>(&events_));
    calls.unregister_timer(loop, reinterpret_cast<v3_timer_handler**>(&timer_));
    v3_cpp_obj_unref(loop);
    if (!isPolling_) window_.reset();
    return V3_OK;
}

/// Wheel, keys and focus come from the server, which knows where the pointer is.
v3_result EditorView::onWheel(float) noexcept
{
    return V3_FALSE;
}

v3_result EditorView::onKey(std::int16_t, std::int16_t, std::int16_t) noexcept
{
    return V3_FALSE;
}

v3_result EditorView::onFocus(v3_bool) noexcept
{
    return V3_OK;
}

v3_result EditorView::getSize(v3_view_rect* rect) noexcept
{
    if (!rect) return V3_INVALID_ARG;
    if (!open()) return V3_FALSE;
    *rect = {0, 0, window_->window().width(), window_->window().height()};
    return V3_OK;
}

v3_result EditorView::onSize(v3_view_rect* rect) noexcept
{
    if (!rect) return V3_INVALID_ARG;
    if (!window_) return V3_FALSE;
    const bool isDone = guarded([&] {
        window_->window().setSize(rect->right - rect->left, rect->bottom - rect->top);
        return true;
    });
    return isDone ? V3_OK : V3_NOMEM;
}

v3_result EditorView::setFrame(v3_plugin_frame** frame) noexcept
{
    frame_ = frame;
    return V3_OK;
}

v3_result EditorView::canResize() noexcept
{
    return V3_TRUE;
}

v3_result EditorView::checkSizeConstraint(v3_view_rect* rect) noexcept
{
    if (!rect) return V3_INVALID_ARG;
    if (!open()) return V3_FALSE;
    int width = rect->right - rect->left, height = rect->bottom - rect->top;
    window_->window().surface().fitSize(width, height);
    rect->right = rect->left + width;
    rect->bottom = rect->top + height;
    return V3_OK;
}

v3_result EditorView::setContentScaleFactor(float factor) noexcept
{
    if (!(factor > 0)) return V3_INVALID_ARG;
    hostScale_ = double(factor);
    if (!window_) return V3_OK;
    const bool isDone = guarded([&] {
        auto& window = window_->window();
        const int before = window.width();
        window.setScale(hostScale_);
        if (window.width() != before) mayResize(window.width(), window.height());
        return true;
    });
    return isDone ? V3_OK : V3_NOMEM;
}

void EditorView::onFd(int) noexcept
{
    poll();
}

void EditorView::onTimer() noexcept
{
    poll();
}

void EditorView::poll() noexcept
{
    if (!window_ || isPolling_) return;
    // A host may take the view away, or let go of it, within.
    ref();
    isPolling_ = true;
    guarded([&] { return window_->poll(); });
    isPolling_ = false;
    if (!loop_) window_.reset();
    unref();
}

}  // namespace quillworks::vst3
