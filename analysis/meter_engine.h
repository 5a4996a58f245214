// SPDX-License-Identifier: ISC
// What the engines and parameter tables of all meters with displays have in common.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "framework/display_engine.h"
#include "framework/parameter.h"

namespace quillworks {

/// What every meter's user can do beside its own settings.
struct MeterSettings {
    bool isFrozen = false;
    std::uint32_t holdResets = 0;  // how often holds have been reset
};

/// An engine for audio: takes bad samples out and counts them, counts gaps, and stands still while
/// it is frozen, during which the signal goes by.
class MeterEngine : public DisplayEngine {
public:
    CaptureFormat format(const ProcessSpec& spec) const final
    {
        return {spec.channels, spec.sampleRate};
    }
    void prepare(const ProcessSpec& spec) final;
    void release() noexcept final;
    void reset() final;
    void gap(std::int64_t next) final;
    void feed(float* const* x, int n, std::int64_t first) final;
    void publish(MeterSlots& meters) noexcept final;
    void show(int index, VNK::IDisplaySink& sink) const final;

    void set(const MeterSettings& settings);

    const ProcessSpec& spec() const noexcept { return spec_; }

protected:
    // What a meter does. Frames come without seams between two calls of begin.
    virtual void prepareMeter(const ProcessSpec& spec) = 0;
    virtual void releaseMeter() noexcept = 0;
    /// Forgets the signal; `first` will be the number of the next frame.
    virtual void begin(std::int64_t first) = 0;
    /// The same, and what has been shown, after the reset of the whole effect.
    virtual void clear() = 0;
    virtual void take(const float* const* x, int n) = 0;
    virtual void resetHolds() {}
    virtual void publishMeter(MeterSlots& meters) noexcept = 0;
    virtual void showMeter(int index, VNK::IDisplaySink& sink) const = 0;

    bool isPrepared() const noexcept { return isPrepared_; }
    /// The name of each channel, "-" for one without a place.
    const std::vector<std::string>& channelNames() const noexcept { return names_; }
    std::int64_t next() const noexcept { return next_; }

private:
    ProcessSpec spec_;
    std::vector<std::string> names_;
    bool isPrepared_ = false, isSeam_ = true;
    std::int64_t next_ = 0;  // number of the next frame
    MeterSettings settings_;
    std::int64_t lost_ = 0, bad_ = 0;
};

/// The algorithm of a meter: equal layouts of up to 16 channels.
template <template <typename> class CoreOf, class Engine>
class MeterAlgorithm : public DisplayAlgorithm<CoreOf, Engine> {
public:
    using DisplayAlgorithm<CoreOf, Engine>::DisplayAlgorithm;

protected:
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override
    {
        constexpr int kMostChannels = 16;
        return input.channels <= kMostChannels &&
               DisplayAlgorithm<CoreOf, Engine>::acceptsArrangement(input, output);
    }
};

/// Of a meter whose display is all there is: nothing reaches the sound.
struct CaptureSettings {};

/// The core of such a meter: hands the signal on.
template <typename T> class CaptureCore {
public:
    using Settings = CaptureSettings;
    static constexpr CoreHooks kHooks{};

    void prepare(const ProcessSpec&) noexcept {}
    void reset() noexcept {}
    void apply(const Settings&, unsigned) noexcept {}
    void process(const AudioBlock<T>& block) noexcept
    {
        const T* x[VNK::kMaxChannels];
        for (int c = 0; c < block.channels; ++c) x[c] = block[c];
        ring_->write(x, block.frames);
    }
    void setCapture(CaptureRing& ring) noexcept { ring_ = &ring; }

private:
    CaptureRing* ring_ = nullptr;
};

/// The component of a meter: freezing, resetting holds, and feeding in the background. The engine
/// gets its settings by a function and not by an override, since the worker may be feeding while
/// the object of a class derived from this is being destroyed.
template <class Algorithm> class MeterComponent : public DisplayComponent<Algorithm> {
public:
    using Engine = typename Algorithm::EngineType;
    /// Hands the values of the meter's own rows to the engine. [any thread but audio]
    using Configure = void (*)(const MeterComponent& values, Engine& engine);

    /// `command`: key of a trigger that is counted for the engine, beside that of the holds.
    MeterComponent(Algorithm& algorithm, EffectTraits traits, std::vector<const char*> names,
                   Configure configure, const char* command = "")
        : DisplayComponent<Algorithm>(algorithm, std::move(traits), std::move(names)),
          algorithm_(algorithm),
          configure_(configure),
          command_(command),
          feeder_([this](const WorkerJob::Progress&) { feedInBackground(); })
    {}
    ~MeterComponent() override { algorithm_.setFeeder(nullptr); }

    // For Configure.
    using AudioEffectComponent::isOn;
    using AudioEffectComponent::tempo;
    using AudioEffectComponent::value;
    std::uint32_t commands() const noexcept { return commands_.load(std::memory_order_relaxed); }

protected:
    /// Overriders call it. Commands arrive on any thread; the engine looks when it is fed.
    void changed(const AlgorithmParameter& parameter, float before,
                 AudioEffectComponent::Setter by) noexcept override
    {
        const std::string_view key = parameter.key;
        if (key == "resethold") holdResets_.fetch_add(1, std::memory_order_relaxed);
        if (key == command_) commands_.fetch_add(1, std::memory_order_relaxed);
        if (key == "background") followBackground();
        AudioEffectComponent::changed(parameter, before, by);
    }
    void reconcile() noexcept override { followBackground(); }

private:
    void configure(Engine& engine) final { handOver(engine); }
    void handOver(Engine& engine)
    {
        engine.set(MeterSettings{isOn("freeze"), holdResets_.load(std::memory_order_relaxed)});
        configure_(*this, engine);
    }
    void followBackground() noexcept
    {
        algorithm_.setFeeder(isOn("background") ? &feeder_ : nullptr);
        feeder_.request();
    }
    /// On the worker thread, where a virtual function must not be looked up: the object may be on
    /// its way through its destructors.
    void feedInBackground() noexcept
    {
        auto& feed = algorithm_.feed();
        auto& engine = algorithm_.engine();
        if (const bool wanted = isOn("background"); wanted != isFedInBackground_)
            feed.setOpen(isFedInBackground_ = wanted, engine, this->meterSlots());
        if (isFedInBackground_) feed.update(engine, this->meterSlots(), [&] { handOver(engine); });
    }

    Algorithm& algorithm_;
    const Configure configure_;
    const std::string_view command_;
    std::atomic<std::uint32_t> holdResets_{0}, commands_{0};
    bool isFedInBackground_ = false;  // of the worker thread
    WorkerJob feeder_;                // last: its end is waited for before anything else goes
};

// Rows behind each meter's own parameters, before "bypass". Nothing is heard of them, so nothing
// crosses to the audio thread.
template <class S> constexpr std::array<Parameter<S>, 3> meterParameters()
{
    using namespace conversion;
    return {
        Parameter<S>{"freeze",
                     "Frez"_tag,
                     "Freeze",
                     Kind::Toggle,
                     0,
                     1,
                     0,
                     "",
                     nullptr,
                     0,
                     asIs,
                     {.group = "Display", .help = "The display stands still; the sound goes on."}},
        Parameter<S>{
            "resethold",
            "RstH"_tag,
            "Reset Hold",
            Kind::Trigger,
            0,
            1,
            0,
            "",
            nullptr,
            0,
            asIs,
            {.group = "Display", .help = "Averages, holds and counts of faults begin anew."}},
        Parameter<S>{"background",
                     "Bkgd"_tag,
                     "Background",
                     Kind::Toggle,
                     0,
                     1,
                     0,
                     "",
                     nullptr,
                     0,
                     asIs,
                     {.group = "Display",
                      .help = "Measures also while nothing shows it, for hosts that read meters."}},
    };
}

/// Readings behind each meter's own.
template <class S> constexpr std::array<Parameter<S>, 2> meterReadings()
{
    return {Parameter<S>{"lost", "Lost"_tag, "Lost", Kind::Reading, 0, 16777216, 0, ""},
            Parameter<S>{"bad", "Bad "_tag, "Bad Samples", Kind::Reading, 0, 16777216, 0, ""}};
}

}  // namespace quillworks
