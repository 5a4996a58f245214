// SPDX-License-Identifier: ISC
// The plug-in interface CLAP: its headers, and the extensions that version 1.1.1 of them, which
// distributions carry, has but leaves out. Layouts and names are fixed by the published interface.
#pragma once

#include <clap/entry.h>
#include <clap/events.h>
#include <clap/ext/audio-ports.h>
#include <clap/ext/gui.h>
#include <clap/ext/latency.h>
#include <clap/ext/params.h>
#include <clap/ext/state.h>
#include <clap/ext/thread-check.h>
#include <clap/ext/timer-support.h>
#include <clap/plugin-factory.h>
#include <clap/plugin-features.h>
#include <clap/plugin.h>
#include <clap/process.h>
#include <clap/stream.h>

namespace quillworks::clap {

inline constexpr const char* kTailExtension = "clap.tail";

struct PluginTail {
    /// Frames, UINT32_MAX (any from INT32_MAX on) for ever. [main thread, audio thread]
    std::uint32_t (*get)(const clap_plugin_t* plugin);
};

struct HostTail {
    void (*changed)(const clap_host_t* host);  // [audio thread]
};

inline constexpr const char* kRenderExtension = "clap.render";

enum class RenderMode : std::int32_t { RealTime = 0, Offline = 1 };

struct PluginRender {
    bool (*hasHardRealTimeRequirement)(const clap_plugin_t* plugin);    // [main thread]
    bool (*set)(const clap_plugin_t* plugin, std::int32_t renderMode);  // [main thread]
};

inline constexpr const char* kLogExtension = "clap.log";

enum class Severity : std::int32_t { Warning = 2, HostMisbehaving = 5 };

struct HostLog {
    void (*log)(const clap_host_t* host, std::int32_t severity, const char* text);  // [any thread]
};

inline constexpr const char* kAudioPortsConfigExtension = "clap.audio-ports-config";

struct AudioPortsConfig {
    clap_id id;
    char name[CLAP_NAME_SIZE];
    std::uint32_t inputPorts, outputPorts;
    bool hasMainInput;
    std::uint32_t mainInputChannels;
    const char* mainInputType;
    bool hasMainOutput;
    std::uint32_t mainOutputChannels;
    const char* mainOutputType;
};

struct PluginAudioPortsConfig {
    std::uint32_t (*count)(const clap_plugin_t* plugin);  // [main thread]
    bool (*get)(const clap_plugin_t* plugin, std::uint32_t index,
                AudioPortsConfig* config);                        // [main thread]
    bool (*select)(const clap_plugin_t* plugin, clap_id config);  // [main thread, not active]
};

}  // namespace quillworks::clap
