// SPDX-License-Identifier: ISC
// IR Maker: measures a room, a loudspeaker or a device with a sweep and writes its response.
#pragma once

#include <array>

#include "dsp/course.h"
#include "dsp/smoothed.h"
#include "framework/bypass_gains.h"
#include "framework/effect_component.h"
#include "framework/peak_levels.h"
#include "framework/precision_algorithm.h"
#include "framework/worker.h"
#include "reverb/response_maker.h"
#include "reverb/sweep_run.h"
#include "vnk/effect_displays.h"
#include "vnk/impulse_responses.h"

namespace quillworks {

inline constexpr int kMostMeasured = 16;  // channels of either side

/// All else reaches the sound by way of the worker, who plans each measurement as a whole.
struct IrMakerSettings {
    float sweepLength, lowFrequency;  // s, Hz: for the length that is shown
    float thru;                       // switch
};

template <typename T> class IrMakerCore {
public:
    using Settings = IrMakerSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned { Length = 1, Thru = 2 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept;
    /// Behind prepare; `serial` of the exchange's preparation.
    void setExchange(CaptureExchange& exchange, std::uint32_t serial) noexcept;

private:
    void processSlice(const AudioBlock<T>& part) noexcept;
    const float* takeReference(const AudioBlock<T>& part, float* room) const noexcept;
    void passThrough(const AudioBlock<T>& part) noexcept;

    double sampleRate_ = 48000;
    int inputs_ = 0, outputs_ = 0;
    SweepRun run_;
    BypassGains monitorGains_;
    bool isMonitored_ = false;
    Smoothed<T> monitor_;
    Course<T> monitorCourse_;
    PeakLevels<T> peaks_;
    double sweepSeconds_ = 0;
    std::vector<std::array<T, kSubBlock>> dry_;  // of the inputs
};

class IrMakerAlgorithm final
    : public PrecisionAlgorithm<IrMakerCore, AudioSideChainInsertAlgorithm> {
public:
    IrMakerAlgorithm();
    /// Any number of microphones and of loudspeakers up to 16.
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;
    CaptureExchange& exchange() noexcept { return exchange_; }

private:
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override;

    CaptureExchange exchange_;
};

class IrMakerComponent final
    : public VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays, VNK::IImpulseResponses> {
public:
    explicit IrMakerComponent(IrMakerAlgorithm& algorithm);
    ~IrMakerComponent() override;

    // Its display "response" shows the last measurement; nobody has to feed it.
    const char* displayName(std::int32_t index) const noexcept override;
    void setDisplaysOpen(bool) noexcept override {}
    void updateDisplays() noexcept override {}
    bool snapshot(const char* name, VNK::IDisplaySink* sink) noexcept override;

    bool makeSweep(VNK::SweepPlan& plan, VNK::IResponseSink* sink) noexcept override;
    bool solve(const VNK::SweepRecording& recording, const VNK::SolvePlan& plan,
               VNK::IResponseSink* sink, VNK::ResponseFigures& figures) noexcept override;
    bool readResponse(const double* const* channels, std::int32_t count, std::int64_t frames,
                      double sampleRate, VNK::ResponseFacts& facts) noexcept override;
    const char* refusal() const noexcept override { return refusal_.c_str(); }

private:
    bool isBusy() const noexcept override { return worker_.isBusy(); }
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void reconcile() noexcept override;
    bool acceptsText(const std::string& key, const std::string& text,
                     std::string& reason) const override;
    void textChanged(const std::string& key) noexcept override;
    std::string problemOf(const std::string& key) const override;
    ResponseMaker::Wishes wishes(const CaptureShape& shape) const;
    bool refuse(const char* reason) noexcept;

    IrMakerAlgorithm& measured_;
    mutable std::mutex mutex_;  // of the texts, which the worker reads too
    std::string folder_, name_;
    std::string refusal_;
    ResponseMaker maker_;
    WorkerJob worker_;  // last: its end is waited for before anything else goes
};

}  // namespace quillworks
