// SPDX-License-Identifier: ISC
// Life and sound of a plug-in.
#include "adapters/vst3/instance.h"

#include <cmath>
#include <cstring>
#include <new>

#include "adapters/common/offline.h"
#include "adapters/vst3/calls.h"

namespace quillworks::vst3 {
namespace {

constexpr int kLongestPiece = 8192;  // frames; longer blocks are cut

}  // namespace

Instance::Instance(std::shared_ptr<const Plugins> plugins, const Plugin& plugin)
    : plugins_(std::move(plugins)),
      effect_(plugins_->catalogue().create(plugin.offered)),
      plugin_(plugin),
      queues_(static_cast<std::size_t>(plugin.parameters.count()) + 16),
      shown_(static_cast<std::size_t>(plugin.parameters.count())),
      component_{&kComponentCalls, this},
      processor_{&kProcessorCalls, this},
      controller_{&kControllerCalls, this},
      units_{&kUnitCalls, this},
      requirements_{&kRequirementsCalls, this}
{
    if (!effect_) throw std::bad_alloc();
    told_ = std::make_unique<std::atomic<std::uint32_t>[]>(shown_.size());
    input_ = plugin.offered.layouts[0].input;
    output_ = plugin.offered.layouts[0].output;
    side_ = adapters::sideChainOf(output_);
    effect_->algorithm()->setSpeakerArrangement(input_, output_);
    effect_->setListener(this);
    showPresent();
}

Instance::~Instance()
{
    effect_->setListener(nullptr);
    setComponentHandler(nullptr);
}

v3_result Instance::queryInterface(const std::uint8_t* iid, void** object) noexcept
{
    if (!iid || !object) return V3_INVALID_ARG;
    const struct {
        const std::uint8_t* iid;
        Face* face;
    } faces[] = {
        {v3_funknown_iid, &component_},
        {v3_plugin_base_iid, &component_},
        {v3_component_iid, &component_},
        {v3_audio_processor_iid, &processor_},
        {v3_edit_controller_iid, &controller_},
        {v3_unit_information_iid, &units_},
        {v3_process_context_requirements_iid, &requirements_},
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

std::uint32_t Instance::ref() noexcept
{
    return references_.fetch_add(1, std::memory_order_relaxed) + 1;
}

std::uint32_t Instance::unref() noexcept
{
    const auto left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}

v3_result Instance::initialize(v3_funknown**) noexcept
{
    return V3_OK;
}

v3_result Instance::terminate() noexcept
{
    setComponentHandler(nullptr);
    isActive_ = false;
    return V3_OK;
}

v3_result Instance::setupProcessing(v3_process_setup* setup) noexcept
{
    const bool isPossible = setup && setup->max_block_size > 0 &&
                            canProcessSampleSize(setup->symbolic_sample_size) == V3_OK &&
                            setup->sample_rate >= 1 &&
                            setup->sample_rate <= VNK::kHighestSampleRate;
    if (!isPossible) return V3_INVALID_ARG;
    if (isActive_) return V3_FALSE;
    setup_ = *setup;
    return V3_OK;
}

v3_result Instance::setActive(v3_bool state) noexcept
{
    if (!state) {
        isActive_ = false;
        return V3_OK;
    }
    if (isActive_) return V3_OK;
    const int sides = plugin_.offered.hasSideChain ? side_.channels : 0;
    const auto prepare = [&](auto& running, VNK::Precision precision) {
        return running.prepare(effect_,
                               {input_, output_, precision, setup_.sample_rate,
                                std::min(setup_.max_block_size, kLongestPiece)},
                               sides);
    };
    isPreparing_ = true;
    bool isReady = false;
    try {
        isReady = is64() ? prepare(running64_, VNK::Precision::Double)
                         : prepare(running32_, VNK::Precision::Float);
    } catch (...) {  // out of memory
    }
    isPreparing_ = false;
    if (!isReady) return V3_NOMEM;
    position_.prepare(setup_.sample_rate);
    position_.forget();
    isActive_ = true;
    return V3_OK;
}

/// A host that starts anew does not want to hear what was left over.
v3_result Instance::setProcessing(v3_bool state) noexcept
{
    if (!isActive_) return V3_NOT_INITIALIZED;
    if (!state) return V3_OK;
    is64() ? running64_.reset() : running32_.reset();
    position_.forget();
    return V3_OK;
}

v3_result Instance::canProcessSampleSize(std::int32_t size) noexcept
{
    return size == V3_SAMPLE_32 || size == V3_SAMPLE_64 ? V3_OK : V3_FALSE;
}

std::uint32_t Instance::getLatencySamples() noexcept
{
    return latency_ = effect_->algorithm()->getLatency();
}

std::uint32_t Instance::getTailSamples() noexcept
{
    static_assert(VNK::kEndlessTail == 0xFFFFFFFF, "as the format has it");
    return effect_->algorithm()->getTailLength();
}

std::uint32_t Instance::getContextRequirements() noexcept
{
    return V3_PROCESS_CTX_NEED_PROJECT_TIME | V3_PROCESS_CTX_NEED_TEMPO |
           V3_PROCESS_CTX_NEED_TRANSPORT_STATE;
}

v3_result Instance::process(v3_process_data* data) noexcept
{
    if (!data) return V3_INVALID_ARG;
    if (!isActive_) return V3_NOT_INITIALIZED;
    if (data->symbolic_sample_size != setup_.symbolic_sample_size) return V3_INVALID_ARG;
    if (data->process_mode == V3_OFFLINE) adapters::waitWhileBusy(effect_);
    readContext(data->ctx);
    is64() ? processAs(running64_, *data) : processAs(running32_, *data);
    report(data->output_params);
    return V3_OK;
}

/// Buses and channels that the host leaves out are silent, or not heard.
template <typename T>
void Instance::processAs(adapters::SwitchedEffect<T>& running, const v3_process_data& data) noexcept
{
    T* in[VNK::kMaxChannels] = {};
    T* out[VNK::kMaxChannels] = {};
    T* side[VNK::kMaxChannels] = {};
    const auto connect = [](const v3_audio_bus_buffers* buses, int count, int bus, T** pointers) {
        if (!buses || bus >= count) return;
        T** channels;
        if constexpr (sizeof(T) == sizeof(float))
            channels = buses[bus].channel_buffers_32;
        else
            channels = buses[bus].channel_buffers_64;
        const int n = channels ? std::clamp(buses[bus].num_channels, 0, VNK::kMaxChannels) : 0;
        std::copy_n(channels, n, pointers);
    };
    connect(data.inputs, data.num_input_buses, 0, in);
    connect(data.inputs, data.num_input_buses, 1, side);
    connect(data.outputs, data.num_output_buses, 0, out);
    if (data.outputs && data.num_output_buses > 0) data.outputs[0].channel_silence_bitset = 0;
    running.setSideChain(isSideActive_);

    const int total = std::max(0, data.nframes);
    queues_.begin(data.input_params, total);
    for (int done = 0;;) {
        const int frame = queues_.nextFrame();
        if (frame > done) running.process({in, out, side}, done, frame - done, isOn_, position_);
        done = frame;
        queues_.takeUpTo(frame, [this](v3_param_id id, double position) { take(id, position); });
        if (done >= total) break;
    }
}

void Instance::readContext(const v3_process_context* context) noexcept
{
    if (!context) return position_.forget();
    const auto has = [&](std::uint32_t flag) { return (context->state & flag) != 0; };
    adapters::SongWord word;
    word.speed = has(V3_PROCESS_CTX_PLAYING) ? 1 : 0;
    if (has(V3_PROCESS_CTX_TEMPO_VALID) && std::isfinite(context->bpm))
        word.tempo = std::max(0.0, context->bpm);
    word.isBeatKnown = has(V3_PROCESS_CTX_PROJECT_TIME_VALID);
    word.quarterNotes = context->project_time_quarters;
    word.isFrameKnown = true;
    word.frame = static_cast<double>(context->project_time_in_samples);
    position_.set(word);
}

}  // namespace quillworks::vst3
