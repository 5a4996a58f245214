// SPDX-License-Identifier: ISC
// A plug-in: component, processor and controller in one object.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "adapters/common/switched_effect.h"
#include "adapters/editor/switched_component.h"
#include "adapters/vst3/plugins.h"
#include "adapters/vst3/queues.h"

namespace quillworks::vst3 {

/// The functions have the format's names, and its rules say who calls them when. The controller
/// keeps the values that the host has shown it; what is heard comes with the blocks' queues.
class Instance final : public VNK::IEffectListener, public adapters::IHostSwitch {
public:
    /// Throws without memory. [main thread]
    Instance(std::shared_ptr<const Plugins> plugins, const Plugin& plugin);
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    const VNK::HostedEffect& effect() const noexcept { return effect_; }

    v3_result queryInterface(const std::uint8_t* iid, void** object) noexcept;
    std::uint32_t ref() noexcept;
    std::uint32_t unref() noexcept;

    v3_result initialize(v3_funknown** context) noexcept;
    v3_result terminate() noexcept;

    // Component.
    v3_result getControllerClassId(std::uint8_t* id) noexcept;
    v3_result setIoMode(std::int32_t mode) noexcept;
    std::int32_t getBusCount(std::int32_t media, std::int32_t direction) noexcept;
    v3_result getBusInfo(std::int32_t media, std::int32_t direction, std::int32_t bus,
                         v3_bus_info* info) noexcept;
    v3_result getRoutingInfo(v3_routing_info* input, v3_routing_info* output) noexcept;
    v3_result activateBus(std::int32_t media, std::int32_t direction, std::int32_t bus,
                          v3_bool state) noexcept;
    v3_result setActive(v3_bool state) noexcept;
    v3_result setState(v3_bstream** stream) noexcept;
    v3_result getState(v3_bstream** stream) noexcept;

    // Processor.
    v3_result setBusArrangements(v3_speaker_arrangement* inputs, std::int32_t inputCount,
                                 v3_speaker_arrangement* outputs,
                                 std::int32_t outputCount) noexcept;
    v3_result getBusArrangement(std::int32_t direction, std::int32_t bus,
                                v3_speaker_arrangement* places) noexcept;
    v3_result canProcessSampleSize(std::int32_t size) noexcept;
    std::uint32_t getLatencySamples() noexcept;
    v3_result setupProcessing(v3_process_setup* setup) noexcept;
    v3_result setProcessing(v3_bool state) noexcept;
    v3_result process(v3_process_data* data) noexcept;
    std::uint32_t getTailSamples() noexcept;
    std::uint32_t getContextRequirements() noexcept;

    // Controller.
    v3_result setComponentState(v3_bstream** stream) noexcept;
    v3_result setControllerState(v3_bstream** stream) noexcept;
    v3_result getControllerState(v3_bstream** stream) noexcept;
    std::int32_t getParameterCount() noexcept;
    v3_result getParameterInfo(std::int32_t place, v3_param_info* info) noexcept;
    v3_result getStringForValue(v3_param_id id, double position, std::int16_t* text) noexcept;
    v3_result getValueForString(v3_param_id id, std::int16_t* text, double* position) noexcept;
    double toPlain(v3_param_id id, double position) noexcept;
    double toNormalised(v3_param_id id, double plain) noexcept;
    double getParameter(v3_param_id id) noexcept;
    v3_result setParameter(v3_param_id id, double position) noexcept;
    v3_result setComponentHandler(v3_component_handler** handler) noexcept;
    v3_plugin_view** createView(const char* name) noexcept;

    // Units: the groups of the parameters, and the factory presets.
    std::int32_t getUnitCount() noexcept;
    v3_result getUnitInfo(std::int32_t unit, v3_unit_info* info) noexcept;
    std::int32_t getProgramListCount() noexcept;
    v3_result getProgramListInfo(std::int32_t list, v3_program_list_info* info) noexcept;
    v3_result getProgramName(std::int32_t list, std::int32_t program, std::int16_t* name) noexcept;
    v3_result getProgramInfo(std::int32_t list, std::int32_t program, const char* attribute,
                             std::int16_t* value) noexcept;
    v3_result hasPitchNames(std::int32_t list, std::int32_t program) noexcept;
    v3_result getPitchName(std::int32_t list, std::int32_t program, std::int16_t pitch,
                           std::int16_t* name) noexcept;
    std::int32_t getSelectedUnit() noexcept;
    v3_result selectUnit(std::int32_t unit) noexcept;
    v3_result getUnitByBus(std::int32_t media, std::int32_t direction, std::int32_t bus,
                           std::int32_t channel, std::int32_t* unit) noexcept;
    v3_result setProgramData(std::int32_t list, std::int32_t program, v3_bstream** data) noexcept;

    // What the effect says of its own accord. [main thread]
    void message(const char* name) noexcept override;
    void parameterChanged(std::int32_t index) noexcept override;
    void editBegun(std::int32_t index) noexcept override;
    void editEnded(std::int32_t index) noexcept override;

    // The switch in the editor. [main thread]
    bool isOn() const noexcept override { return isOn_; }
    void switchByHand(bool isOn) noexcept override;

private:
    using Role = adapters::OfferedParameter::Role;
    using Face = vst3::Face<Instance>;

    bool is64() const noexcept { return setup_.symbolic_sample_size == V3_SAMPLE_64; }
    const VNK::SpeakerArrangement& arrangement(bool isInput, int bus) const noexcept
    {
        return bus > 0 ? side_ : isInput ? input_ : output_;
    }
    bool hasBus(std::int32_t media, std::int32_t direction, std::int32_t bus) noexcept
    {
        return bus >= 0 && bus < getBusCount(media, direction);
    }
    template <typename T>
    void processAs(adapters::SwitchedEffect<T>& running, const v3_process_data& data) noexcept;
    void readContext(const v3_process_context* context) noexcept;
    void take(v3_param_id id, double position) noexcept;
    void report(v3_param_changes** changes) noexcept;
    double present(int place) const noexcept;
    float plain(int place, double position) const noexcept;
    bool hasPrograms() const noexcept { return !plugin_.programs.empty(); }
    bool isProgramParameter(v3_param_id id) const noexcept
    {
        return hasPrograms() && id == kProgramParameter;
    }
    int lastProgram() const noexcept { return static_cast<int>(plugin_.programs.size()) - 1; }
    void chooseProgram(double position) noexcept;
    void showPresent() noexcept;
    void restart(std::int32_t flags) noexcept;
    bool isHeard() const noexcept { return handler_ && !isRestoring_; }
    void tellLatency() noexcept;
    /// Count of changes of a parameter's value that the host knows of.
    std::atomic<std::uint32_t>& told(int place) noexcept
    {
        return told_[static_cast<std::size_t>(place)];
    }

    // What every block looks at comes first.
    adapters::SwitchedEffect<float> running32_;
    adapters::SwitchedEffect<double> running64_;
    adapters::SongPosition position_;
    std::atomic<bool> isOn_{true}, isSideActive_{false}, isActive_{false}, hasNews_{false};
    v3_process_setup setup_{V3_REALTIME, V3_SAMPLE_32, 1024, 48000};
    VNK::SpeakerArrangement input_, output_, side_;
    std::shared_ptr<const Plugins> plugins_;  // hosts may give up the library first
    VNK::HostedEffect effect_;
    const Plugin& plugin_;
    ChangeQueues queues_;
    std::unique_ptr<std::atomic<std::uint32_t>[]> told_;

    // Of the controller.
    std::vector<double> shown_;
    double program_ = 0;
    v3_component_handler** handler_ = nullptr;
    v3_component_handler2** groupHandler_ = nullptr;  // the same host's; null where it has none
    std::uint32_t latency_ = 0;                       // as the host was told
    bool isPreparing_ = false, isRestoring_ = false;

    std::atomic<std::uint32_t> references_{1};
    Face component_, processor_, controller_, units_, requirements_;
};

}  // namespace quillworks::vst3
