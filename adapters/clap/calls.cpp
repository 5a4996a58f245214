// SPDX-License-Identifier: ISC
#include "adapters/clap/calls.h"

#include <string_view>

namespace quillworks::clap {
namespace {

Instance& at(const clap_plugin_t* plugin) noexcept
{
    return Instance::of(plugin);
}

/// Exceptions, which only a lack of memory throws, end here.
template <class F> bool guarded(F&& f) noexcept
{
    try {
        return f();
    } catch (...) {
        return false;
    }
}

constexpr clap_plugin_params_t kParams{
    .count = [](const clap_plugin_t* p) { return at(p).countParameters(); },
    .get_info =
        [](const clap_plugin_t* p, std::uint32_t index, clap_param_info_t* info) {
            return info && guarded([&] { return at(p).getParameter(index, *info); });
        },
    .get_value = [](const clap_plugin_t* p, clap_id id,
                    double* value) { return value && at(p).getValue(id, *value); },
    .value_to_text = [](const clap_plugin_t* p, clap_id id, double value, char* text,
                        std::uint32_t size) { return at(p).valueToText(id, value, text, size); },
    .text_to_value = [](const clap_plugin_t* p, clap_id id, const char* text,
                        double* value) { return value && at(p).textToValue(id, text, *value); },
    .flush = [](const clap_plugin_t* p, const clap_input_events_t* in,
                const clap_output_events_t* out) { at(p).flush(in, out); }};

constexpr clap_plugin_audio_ports_t kAudioPorts{
    .count = [](const clap_plugin_t* p, bool isInput) { return at(p).countPorts(isInput); },
    .get =
        [](const clap_plugin_t* p, std::uint32_t index, bool isInput,
           clap_audio_port_info_t* info) {
            return info && guarded([&] { return at(p).getPort(index, isInput, *info); });
        }};

constexpr PluginAudioPortsConfig kAudioPortsConfig{
    .count = [](const clap_plugin_t* p) { return at(p).countConfigs(); },
    .get =
        [](const clap_plugin_t* p, std::uint32_t index, AudioPortsConfig* config) {
            return config && guarded([&] { return at(p).getConfig(index, *config); });
        },
    .select = [](const clap_plugin_t* p,
                 clap_id config) { return guarded([&] { return at(p).selectConfig(config); }); }};

constexpr clap_plugin_state_t kState{
    .save = [](const clap_plugin_t* p,
               const clap_ostream_t* stream) { return stream && at(p).save(*stream); },
    .load =
        [](const clap_plugin_t* p, const clap_istream_t* stream) {
            return stream && guarded([&] { return at(p).load(*stream); });
        }};

constexpr clap_plugin_latency_t kLatency{
    .get = [](const clap_plugin_t* p) { return at(p).latency(); }};

constexpr PluginTail kTail{.get = [](const clap_plugin_t* p) { return at(p).tail(); }};

constexpr PluginRender kRender{
    .hasHardRealTimeRequirement = [](const clap_plugin_t*) { return false; },
    .set =
        [](const clap_plugin_t* p, std::int32_t mode) {
            at(p).setOffline(mode == static_cast<std::int32_t>(RenderMode::Offline));
            return true;
        }};

Editor& editorAt(const clap_plugin_t* plugin) noexcept
{
    return at(plugin).editor();
}

constexpr clap_plugin_gui_t kEditor{
    .is_api_supported = [](const clap_plugin_t*, const char* api,
                           bool) { return Editor::isPossible(api); },
    .get_preferred_api =
        [](const clap_plugin_t*, const char** api, bool* isFloating) {
            if (!api || !isFloating) return false;
            *api = CLAP_WINDOW_API_X11;
            *isFloating = false;
            return true;
        },
    .create =
        [](const clap_plugin_t* p, const char* api, bool isFloating) {
            return guarded([&] { return editorAt(p).create(api, isFloating); });
        },
    .destroy = [](const clap_plugin_t* p) { editorAt(p).destroy(); },
    .set_scale = [](const clap_plugin_t* p,
                    double scale) { return guarded([&] { return editorAt(p).setScale(scale); }); },
    .get_size =
        [](const clap_plugin_t* p, std::uint32_t* width, std::uint32_t* height) {
            return width && height && editorAt(p).getSize(*width, *height);
        },
    .can_resize = [](const clap_plugin_t*) { return true; },
    .get_resize_hints =
        [](const clap_plugin_t* p, clap_gui_resize_hints_t* hints) {
            return hints && editorAt(p).getResizeHints(*hints);
        },
    .adjust_size =
        [](const clap_plugin_t* p, std::uint32_t* width, std::uint32_t* height) {
            return width && height && editorAt(p).adjustSize(*width, *height);
        },
    .set_size =
        [](const clap_plugin_t* p, std::uint32_t width, std::uint32_t height) {
            return guarded([&] { return editorAt(p).setSize(width, height); });
        },
    .set_parent =
        [](const clap_plugin_t* p, const clap_window_t* window) {
            return window && guarded([&] { return editorAt(p).setParent(*window); });
        },
    .set_transient =
        [](const clap_plugin_t* p, const clap_window_t* window) {
            return window && guarded([&] { return editorAt(p).setTransient(*window); });
        },
    .suggest_title = [](const clap_plugin_t* p,
                        const char* title) { editorAt(p).suggestTitle(title); },
    .show = [](const clap_plugin_t* p) { return guarded([&] { return editorAt(p).show(); }); },
    .hide = [](const clap_plugin_t* p) { return guarded([&] { return editorAt(p).hide(); }); }};

constexpr clap_plugin_timer_support_t kTimer{.on_timer = [](const clap_plugin_t* p, clap_id id) {
    guarded([&] { return editorAt(p).onTimer(id), true; });
}};

}  // namespace

const void* Instance::extension(const char* id) noexcept
{
    static constexpr struct {
        std::string_view id;
        const void* calls;
    } all[] = {{CLAP_EXT_PARAMS, &kParams},
               {CLAP_EXT_AUDIO_PORTS, &kAudioPorts},
               {kAudioPortsConfigExtension, &kAudioPortsConfig},
               {CLAP_EXT_STATE, &kState},
               {CLAP_EXT_LATENCY, &kLatency},
               {kTailExtension, &kTail},
               {CLAP_EXT_GUI, &kEditor},
               {CLAP_EXT_TIMER_SUPPORT, &kTimer},
               {kRenderExtension, &kRender}};
    for (const auto& one : all)
        if (id && one.id == id) return one.calls;
    return nullptr;
}

clap_plugin_t callsOf(const Plugin& plugin, Instance& instance) noexcept
{
    return {
        .desc = &plugin.descriptor,
        .plugin_data = &instance,
        .init = [](const clap_plugin_t* p) { return guarded([&] { return at(p).init(); }); },
        .destroy = [](const clap_plugin_t* p) { delete &at(p); },
        .activate =
            [](const clap_plugin_t* p, double sampleRate, std::uint32_t, std::uint32_t maxFrames) {
                return guarded([&] { return at(p).activate(sampleRate, maxFrames); });
            },
        .deactivate = [](const clap_plugin_t* p) { at(p).deactivate(); },
        .start_processing = [](const clap_plugin_t* p) { return at(p).startProcessing(); },
        .stop_processing = [](const clap_plugin_t* p) { at(p).stopProcessing(); },
        .reset = [](const clap_plugin_t* p) { at(p).reset(); },
        .process = [](const clap_plugin_t* p,
                      const clap_process_t* process) -> clap_process_status {
            return process ? at(p).process(*process)
                           : static_cast<clap_process_status>(CLAP_PROCESS_ERROR);
        },
        .get_extension = [](const clap_plugin_t*,
                            const char* id) { return Instance::extension(id); },
        .on_main_thread = [](const clap_plugin_t*) {}};
}

}  // namespace quillworks::clap
