// SPDX-License-Identifier: ISC
// A running plug-in: the host's calls on one side, component and algorithm on the other.
#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "adapters/clap/editor.h"
#include "adapters/clap/gesture_queue.h"
#include "adapters/clap/host.h"
#include "adapters/clap/plugins.h"
#include "adapters/common/switched_effect.h"

namespace quillworks::clap {

class Instance final : public VNK::IEffectListener, public adapters::IHostSwitch {
public:
    /// Throws without memory. [any thread]
    Instance(std::shared_ptr<const Plugins> plugins, const Plugin& plugin, const clap_host_t* host);
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    const clap_plugin_t* handle() const noexcept { return &handle_; }
    const VNK::HostedEffect& effect() const noexcept { return effect_; }
    static Instance& of(const clap_plugin_t* handle) noexcept
    {
        return *static_cast<Instance*>(handle->plugin_data);
    }

    // As the operations of the format of the same names.
    bool init();
    bool activate(double sampleRate, std::uint32_t maxFrames);
    void deactivate() noexcept;
    bool startProcessing() noexcept;
    void stopProcessing() noexcept;
    void reset() noexcept;
    clap_process_status process(const clap_process_t& process) noexcept;
    static const void* extension(const char* id) noexcept;

    std::uint32_t latency() const noexcept;
    std::uint32_t tail() const noexcept { return effect_->algorithm()->getTailLength(); }
    void setOffline(bool isOffline) noexcept { isOffline_ = isOffline; }

    // Ports and their configurations, which are the effect's layouts.
    std::uint32_t countPorts(bool isInput) const noexcept;
    bool getPort(std::uint32_t index, bool isInput, clap_audio_port_info_t& info) const;
    std::uint32_t countConfigs() const noexcept;
    bool getConfig(std::uint32_t index, AudioPortsConfig& config) const;
    bool selectConfig(clap_id config);

    std::uint32_t countParameters() const noexcept;
    bool getParameter(std::uint32_t place, clap_param_info_t& info) const;
    bool getValue(clap_id id, double& value) const noexcept;
    bool valueToText(clap_id id, double value, char* text, std::uint32_t size) const noexcept;
    bool textToValue(clap_id id, const char* text, double& value) const noexcept;
    void flush(const clap_input_events_t* in, const clap_output_events_t* out) noexcept;

    Editor& editor() noexcept { return editor_; }

    bool save(const clap_ostream_t& stream) noexcept;
    bool load(const clap_istream_t& stream);

    // What the effect says of its own accord.
    void message(const char* name) noexcept override;
    void parameterChanged(std::int32_t index) noexcept override;

    // The switch in the editor.
    bool isOn() const noexcept override { return isOn_; }
    void switchByHand(bool isOn) noexcept override;

    void editBegun(std::int32_t index) noexcept override { hold(index, true); }
    void editEnded(std::int32_t index) noexcept override { hold(index, false); }

private:
    using Role = adapters::OfferedParameter::Role;

    const adapters::Layout& layout() const noexcept { return plugin_.offered.layouts[layout_]; }
    int sideChannels() const noexcept
    {
        return plugin_.offered.hasSideChain ? adapters::sideChainOf(layout().output).channels : 0;
    }
    bool connect(const clap_process_t& process) noexcept;
    void run(int from, int frames) noexcept;
    void read(const clap_event_header_t& event) noexcept;
    void readTransport(const clap_event_transport_t* transport) noexcept;
    void set(int place, double value) noexcept;
    double present(int place) const noexcept;
    Plugin::Scale scale(int place) const noexcept
    {
        return plugin_.scales[static_cast<std::size_t>(place)];
    }
    double toHost(int place, float value) const noexcept;
    float toEffect(int place, double value) const noexcept;
    void report(const clap_output_events_t* out) noexcept;
    bool tellValues(const clap_output_events_t& out) noexcept;
    void tellMeters(const clap_output_events_t* out, int frames) noexcept;
    void findMeters();
    /// Place of a meter's id in the plug-in's list, or -1.
    int findMeter(clap_id id) const noexcept;
    float reading(int meter) const noexcept;
    void hold(std::int32_t index, bool begins) noexcept;
    void checkDelays() noexcept;
    /// Count of changes of a parameter's value that the host knows of.
    std::atomic<std::uint32_t>& told(int place) noexcept
    {
        return told_[static_cast<std::size_t>(place)];
    }

    // What every block looks at comes first.
    adapters::SwitchedEffect<float> running_;
    adapters::SongPosition position_;
    std::atomic<bool> isOn_{true}, isSwitched_{false}, isSideChainOn_{false};
    std::atomic<bool> isActive_{false}, isOffline_{false}, hasNews_{false}, isRestartAsked_{false};
    std::atomic<std::uint32_t> latency_{0};  // as the host was told
    std::uint32_t tail_ = 0;                 // the same
    double sampleRate_ = 0;
    std::array<const float*, VNK::kMaxChannels> in_{};
    std::array<float*, VNK::kMaxChannels> out_{};
    std::array<const float*, 2> side_{};
    std::shared_ptr<const Plugins> plugins_;  // hosts may give up the library first
    VNK::HostedEffect effect_;
    const Plugin& plugin_;
    Host host_;
    std::unique_ptr<std::atomic<std::uint32_t>[]> told_;
    GestureQueue gestures_;
    std::vector<int> meterIndices_;  // in the effect's list in its layout
    std::vector<float> shown_;       // as the host was told
    int framesToMeters_ = 0;         // until the host is told again
    std::size_t layout_ = 0;
    bool isPreparing_ = false, isRestoring_ = false;
    clap_plugin_t handle_;
    Editor editor_{effect_, *this, *this, host_};
};

}  // namespace quillworks::clap
