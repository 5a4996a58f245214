// SPDX-License-Identifier: ISC
// Editors of the built plug-ins in small hosts of each format: a hand drags the compressor's
// threshold, and the host hears of it as a gesture.
#include <clap/entry.h>
#include <clap/events.h>
#include <clap/ext/gui.h>
#include <clap/ext/latency.h>
#include <clap/ext/params.h>
#include <clap/ext/timer-support.h>
#include <clap/plugin-factory.h>
#include <clap/plugin.h>
#include <dlfcn.h>
#include <lv2/core/lv2.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/ui/ui.h>
#include <travesty/edit_controller.h>
#include <travesty/factory.h>
#include <travesty/view.h>

#include <cstring>
#include <map>
#include <set>

#include "adapters/vst3/abi.h"
#include "tests/support/build_paths.h"
#include "tests/windows/x_server.h"

namespace quillworks::test {
namespace {

/// "begin", "value", "end", with values that follow one another said once.
struct Heard {
    std::vector<std::string> steps;
    double last = 0;
    int id = -1;

    void add(const char* step)
    {
        if (steps.empty() || steps.back() != step) steps.push_back(step);
    }
};
const std::vector<std::string> kOneGesture = {"begin", "value", "end"};

class PluginEditors : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!server_.isThere()) GTEST_SKIP() << "Xvfb is not installed";
        desktop_ = std::make_unique<Desktop>();
        host_ = desktop().window(100, 100, 900, 600);
    }
    Desktop& desktop() { return *desktop_; }
    static void* load(const char* file)
    {
        void* const binary = dlopen(file, RTLD_NOW | RTLD_LOCAL);
        if (!binary) throw std::runtime_error(dlerror());
        return binary;
    }
    static constexpr int kKnobX = 160, kKnobY = 443;  // on the screen
    /// Downwards by a quarter of its way, then lets go.
    template <class Idle> void dragTheThreshold(Idle&& idle)
    {
        desktop().move(kKnobX, kKnobY);
        settle(idle);
        desktop().press();
        for (int i = 1; i <= 5; ++i) {
            desktop().move(kKnobX, kKnobY + 10 * i);
            settle(idle);
        }
        desktop().release();
        settle(idle);
    }
    template <class Idle> void pressThePower(Idle&& idle)
    {
        desktop().click(127, 120);
        settle(idle);
    }
    template <class Idle> static void settle(Idle&& idle)
    {
        for (int i = 0; i < 5; ++i) {
            idle();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    /// Whether the host's window shows a form: many colours, and not what stood there before.
    template <class Idle> bool isShown(Idle&& idle)
    {
        return eventually([&] {
            idle();
            const auto all = desktop().pixels(host_, 0, 0, 840, 448);
            return std::set<std::uint32_t>(all.begin(), all.end()).size() > 50;
        });
    }

    XServer server_;
    std::unique_ptr<Desktop> desktop_;
    xcb_window_t host_ = 0;
};

TEST_F(PluginEditors, OfLv2WriteToTheHostsPorts)
{
    const std::string bundle = paths::lv2Folder + "/quillworks.lv2/";
    const auto descriptorOf = reinterpret_cast<const LV2UI_Descriptor* (*)(std::uint32_t)>(
        dlsym(load((bundle + "quillworks-ui.so").c_str()), "lv2ui_descriptor"));
    const auto pluginOf = reinterpret_cast<const LV2_Descriptor* (*)(std::uint32_t)>(
        dlsym(load((bundle + "quillworks.so").c_str()), "lv2_descriptor"));
    const LV2_Descriptor* plugin = nullptr;
    for (std::uint32_t i = 0; (plugin = pluginOf(i)); ++i)
        if (!std::strcmp(plugin->URI, "urn:quillworks:compressor")) break;
    ASSERT_TRUE(plugin);
    const auto* const ui = descriptorOf(0);
    ASSERT_TRUE(ui);
    struct Host {
        Heard heard;
        std::map<std::uint32_t, float> ports;
    };
    const auto write = [](LV2UI_Controller host, std::uint32_t port, std::uint32_t size,
                          std::uint32_t format, const void* data) {
        ASSERT_EQ(size, sizeof(float));
        ASSERT_EQ(format, 0u);
        auto& h = *static_cast<Host*>(host);
        h.heard.add("value");
        h.heard.id = static_cast<int>(port);
        std::memcpy(&h.ports[port], data, size);
    };
    LV2_Handle const running = plugin->instantiate(plugin, 48000, bundle.c_str(), nullptr);
    ASSERT_TRUE(running);
    int foreign[64] = {};
    // With the plug-in itself, without it, and with what some host takes for it.
    for (void* const instance :
         {running, static_cast<void*>(nullptr), static_cast<void*>(foreign)}) {
        Host host;
        LV2UI_Touch touch{&host, [](LV2UI_Feature_Handle h, std::uint32_t, bool isHeld) {
                              static_cast<Host*>(h)->heard.add(isHeld ? "begin" : "end");
                          }};
        const LV2_Feature parent{LV2_UI__parent,
                                 reinterpret_cast<void*>(static_cast<std::uintptr_t>(host_))},
            touching{LV2_UI__touch, &touch}, access{LV2_INSTANCE_ACCESS_URI, instance};
        const LV2_Feature* const features[] = {&parent, &touching, instance ? &access : nullptr,
                                               nullptr};
        LV2UI_Widget widget = nullptr;
        const auto editor =
            ui->instantiate(ui, plugin->URI, bundle.c_str(), write, &host, &widget, features);
        ASSERT_TRUE(editor);
        const auto* const idling =
            static_cast<const LV2UI_Idle_Interface*>(ui->extension_data(LV2_UI__idleInterface));
        const auto idle = [&] { EXPECT_EQ(idling->idle(editor), 0); };
        EXPECT_TRUE(isShown(idle));
        dragTheThreshold(idle);
        EXPECT_EQ(host.heard.steps, kOneGesture);
        ASSERT_EQ(host.ports.size(), 1u);
        EXPECT_LT(host.ports.begin()->second, -5);
        const float automated = -3;
        ui->port_event(editor, static_cast<std::uint32_t>(host.heard.id), sizeof automated, 0,
                       &automated);
        ui->port_event(editor, 9999, sizeof automated, 0, &automated);
        settle(idle);
        EXPECT_EQ(host.heard.steps, kOneGesture) << "what comes from the host does not go back";
        ui->cleanup(editor);
    }
    plugin->cleanup(running);
    const LV2_Feature* const none[] = {nullptr};
    LV2UI_Widget widget = nullptr;
    EXPECT_FALSE(ui->instantiate(ui, plugin->URI, bundle.c_str(), write, nullptr, &widget, none));
}

TEST_F(PluginEditors, OfClapTellGesturesAndFloat)
{
    const auto& entry = *static_cast<const clap_plugin_entry_t*>(
        dlsym(load(paths::clapFile.c_str()), "clap_entry"));
    ASSERT_TRUE(entry.init(paths::clapFile.c_str()));
    const auto* const factory =
        static_cast<const clap_plugin_factory_t*>(entry.get_factory(CLAP_PLUGIN_FACTORY_ID));
    static clap_id timer;
    static int timers;
    timers = 0;
    clap_host_t host{};
    host.clap_version = CLAP_VERSION;
    host.name = "test";
    host.get_extension = [](const clap_host_t*, const char* id) -> const void* {
        static constexpr clap_host_timer_support_t kTimer{
            [](const clap_host_t*, std::uint32_t, clap_id* made) {
                *made = timer = 7;
                return ++timers, true;
            },
            [](const clap_host_t*, clap_id) { return --timers, true; }};
        return std::strcmp(id, CLAP_EXT_TIMER_SUPPORT) ? nullptr : &kTimer;
    };
    const clap_plugin_t* plugin = nullptr;
    for (std::uint32_t i = 0; i < factory->get_plugin_count(factory); ++i) {
        const auto* const descriptor = factory->get_plugin_descriptor(factory, i);
        if (std::strstr(descriptor->name, "Compressor"))
            plugin = factory->create_plugin(factory, &host, descriptor->id);
    }
    ASSERT_TRUE(plugin && plugin->init(plugin));
    const auto& gui =
        *static_cast<const clap_plugin_gui_t*>(plugin->get_extension(plugin, CLAP_EXT_GUI));
    const auto& timing = *static_cast<const clap_plugin_timer_support_t*>(
        plugin->get_extension(plugin, CLAP_EXT_TIMER_SUPPORT));
    const auto& params =
        *static_cast<const clap_plugin_params_t*>(plugin->get_extension(plugin, CLAP_EXT_PARAMS));
    const auto& latency =
        *static_cast<const clap_plugin_latency_t*>(plugin->get_extension(plugin, CLAP_EXT_LATENCY));
    const auto delay = latency.get(plugin);
    Heard heard;
    clap_output_events_t out{
        &heard, [](const clap_output_events_t* events, const clap_event_header_t* event) {
            auto& h = *static_cast<Heard*>(events->ctx);
            if (event->type == CLAP_EVENT_PARAM_GESTURE_BEGIN) h.add("begin");
            if (event->type == CLAP_EVENT_PARAM_GESTURE_END) h.add("end");
            if (event->type == CLAP_EVENT_PARAM_VALUE) h.add("value");
            return true;
        }};
    const clap_input_events_t in{nullptr, [](const clap_input_events_t*) { return 0u; }, nullptr};
    const auto idle = [&] {
        timing.on_timer(plugin, timer);
        params.flush(plugin, &in, &out);
    };
    EXPECT_FALSE(gui.is_api_supported(plugin, CLAP_WINDOW_API_WAYLAND, false));
    EXPECT_FALSE(gui.show(plugin)) << "there is none yet";
    clap_host_t scanner = host;
    scanner.get_extension = [](const clap_host_t*, const char*) -> const void* { return nullptr; };
    const auto* const scanned = factory->create_plugin(factory, &scanner, plugin->desc->id);
    ASSERT_TRUE(scanned && scanned->init(scanned));
    EXPECT_TRUE(gui.is_api_supported(scanned, CLAP_WINDOW_API_X11, false));
    EXPECT_FALSE(gui.create(scanned, CLAP_WINDOW_API_X11, false)) << "there is no timer";
    scanned->destroy(scanned);
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(gui.create(plugin, CLAP_WINDOW_API_X11, false));
        std::uint32_t width = 0, height = 0;
        EXPECT_TRUE(gui.get_size(plugin, &width, &height));
        EXPECT_EQ(width, 840u);
        clap_window_t parent{CLAP_WINDOW_API_X11, {}};
        parent.x11 = host_;
        EXPECT_TRUE(gui.set_parent(plugin, &parent) && gui.show(plugin));
        EXPECT_TRUE(isShown(idle));
        heard = {};
        dragTheThreshold(idle);
        EXPECT_EQ(heard.steps, kOneGesture);
        heard = {};
        pressThePower(idle);
        EXPECT_EQ(heard.steps, std::vector<std::string>{"value"}) << "of the format's switch";
        EXPECT_EQ(latency.get(plugin), delay) << "which keeps the delay";
        std::uint32_t w = 1300, h = 700;
        EXPECT_TRUE(gui.adjust_size(plugin, &w, &h) && gui.set_size(plugin, w, h));
        EXPECT_TRUE(gui.get_size(plugin, &width, &height) && width == w && height == h && w > 840);
        gui.destroy(plugin);
        EXPECT_EQ(timers, 0);
    }
    EXPECT_TRUE(gui.create(plugin, nullptr, true));
    gui.suggest_title(plugin, "A title");
    EXPECT_TRUE(gui.show(plugin));
    settle(idle);
    plugin->destroy(plugin);  // with the editor open
    EXPECT_EQ(timers, 0);
    entry.deinit();
}

/// The host's side of a view: frame, run loop, and who hears of edits.
struct Vst3Host {
    static v3_result V3_API query(void* self, const std::uint8_t* iid, void** object)
    {
        auto& host = *static_cast<vst3::Face<Vst3Host>*>(self)->owner;
        if (!v3_tuid_match(iid, v3_run_loop_iid)) return V3_NO_INTERFACE;
        *object = &host.loop;
        return V3_OK;
    }
    static std::uint32_t V3_API count(void*) { return 1; }
    static Vst3Host& of(void* self) { return *static_cast<vst3::Face<Vst3Host>*>(self)->owner; }

    struct FrameCalls : v3_funknown {
        v3_plugin_frame frame;
    };
    struct LoopCalls : v3_funknown {
        v3_run_loop loop;
    };
    struct HandlerCalls : v3_funknown {
        v3_component_handler handler;
    };
    static const FrameCalls frameCalls;
    static const LoopCalls loopCalls;
    static const HandlerCalls handlerCalls;

    vst3::Face<Vst3Host> frame{&frameCalls, this}, loop{&loopCalls, this},
        handler{&handlerCalls, this};
    Heard heard;
    int fds = 0;
    v3_timer_handler** timer = nullptr;
};

const Vst3Host::FrameCalls Vst3Host::frameCalls{
    {Vst3Host::query, Vst3Host::count, Vst3Host::count},
    {[](void*, v3_plugin_view**, v3_view_rect*) -> v3_result { return V3_OK; }}};
const Vst3Host::LoopCalls Vst3Host::loopCalls{
    {Vst3Host::query, Vst3Host::count, Vst3Host::count},
    {[](void* self, v3_event_handler**, int) -> v3_result {
         return ++Vst3Host::of(self).fds, V3_OK;
     },
     [](void* self, v3_event_handler**) -> v3_result { return --Vst3Host::of(self).fds, V3_OK; },
     [](void* self, v3_timer_handler** timer, std::uint64_t) -> v3_result {
         return Vst3Host::of(self).timer = timer, V3_OK;
     },
     [](void* self, v3_timer_handler**) -> v3_result {
         return Vst3Host::of(self).timer = nullptr, V3_OK;
     }}};
const Vst3Host::HandlerCalls Vst3Host::handlerCalls{
    {Vst3Host::query, Vst3Host::count, Vst3Host::count},
    {[](void* self, v3_param_id) -> v3_result {
         return Vst3Host::of(self).heard.add("begin"), V3_OK;
     },
     [](void* self, v3_param_id, double) -> v3_result {
         return Vst3Host::of(self).heard.add("value"), V3_OK;
     },
     [](void* self, v3_param_id) -> v3_result {
         return Vst3Host::of(self).heard.add("end"), V3_OK;
     },
     [](void*, std::int32_t) -> v3_result { return V3_OK; }}};

TEST_F(PluginEditors, OfVst3TellGesturesAndLiveByTheRunLoop)
{
    void* const file = load(paths::vst3File.c_str());
    ASSERT_TRUE(reinterpret_cast<bool (*)(void*)>(dlsym(file, "ModuleEntry"))(file));
    auto** const factory = static_cast<v3_plugin_factory**>(
        reinterpret_cast<void* (*)()>(dlsym(file, "GetPluginFactory"))());
    v3_edit_controller** controller = nullptr;
    for (std::int32_t i = 0; i < v3_cpp_obj(factory)->num_classes(factory); ++i) {
        v3_class_info info{};
        v3_cpp_obj(factory)->get_class_info(factory, i, &info);
        if (std::strstr(info.name, "Compressor"))
            v3_cpp_obj(factory)->create_instance(factory, info.class_id, v3_edit_controller_iid,
                                                 reinterpret_cast<void**>(&controller));
    }
    ASSERT_TRUE(controller);
    Vst3Host host;
    v3_cpp_obj(controller)
        ->set_component_handler(controller,
                                reinterpret_cast<v3_component_handler**>(&host.handler));
    EXPECT_FALSE(v3_cpp_obj(controller)->create_view(controller, "other"));
    const auto idle = [&] {
        if (host.timer) v3_cpp_obj(host.timer)->on_timer(host.timer);
    };
    void* const window = reinterpret_cast<void*>(static_cast<std::uintptr_t>(host_));
    v3_plugin_view** view = nullptr;
    for (int round = 0; round < 3; ++round) {
        view = v3_cpp_obj(controller)->create_view(controller, "editor");
        ASSERT_TRUE(view);
        auto& calls = *v3_cpp_obj(view);
        EXPECT_NE(calls.attached(view, window, V3_VIEW_PLATFORM_TYPE_X11), V3_OK)
            << "without a run loop";
        calls.set_frame(view, reinterpret_cast<v3_plugin_frame**>(&host.frame));
        v3_view_rect rect{};
        EXPECT_EQ(calls.get_size(view, &rect), V3_OK);
        EXPECT_EQ(rect.right, 840);
        ASSERT_EQ(calls.attached(view, window, V3_VIEW_PLATFORM_TYPE_X11), V3_OK);
        EXPECT_EQ(host.fds, 1);
        EXPECT_TRUE(isShown(idle));
        host.heard = {};
        dragTheThreshold(idle);
        EXPECT_EQ(host.heard.steps, kOneGesture);
        host.heard = {};
        pressThePower(idle);
        EXPECT_EQ(host.heard.steps, kOneGesture) << "of the format's switch";
        rect = {0, 0, 1300, 700};
        EXPECT_EQ(calls.check_size_constraint(view, &rect), V3_OK);
        EXPECT_EQ(calls.on_size(view, &rect), V3_OK);
        if (round == 2) break;
        EXPECT_EQ(calls.removed(view), V3_OK);
        EXPECT_EQ(host.fds, 0);
        EXPECT_EQ(v3_cpp_obj_unref(view), 0u);
    }
    // A host that gives up the controller first, and the view without taking it away.
    v3_cpp_obj_unref(controller);
    idle();
    EXPECT_EQ(v3_cpp_obj_unref(view), 0u);
    EXPECT_EQ(host.fds, 0);
    EXPECT_FALSE(host.timer);
}

}  // namespace
}  // namespace quillworks::test
