// SPDX-License-Identifier: ISC
// Displays: what an algorithm captures on the audio thread, and the engine that makes figures of it
// on the thread of whoever looks.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "dsp/capture_ring.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "framework/worker.h"
#include "vnk/effect_displays.h"

namespace quillworks {

/// What is captured: audio at the sample rate, or values of the control grid.
struct CaptureFormat {
    int channels = 0;
    double rate = 0;  // frames a second
};

/// Makes the figures of all displays of an effect. A pure function of its settings, the frames and
/// their numbers: what it shows does not depend on how often it was fed. One thread at a time,
/// never the audio thread; all may throw std::bad_alloc.
class DisplayEngine {
public:
    virtual ~DisplayEngine() = default;

    virtual CaptureFormat format(const ProcessSpec& spec) const = 0;
    /// Somebody looks, or the layout is another: takes memory, and nothing is known.
    virtual void prepare(const ProcessSpec& spec) = 0;
    /// Nobody looks: gives the memory back, and there is nothing to show.
    virtual void release() noexcept = 0;
    /// The signal begins anew; the next frame is number 0.
    virtual void reset() = 0;
    /// Frames up to number `next` are missing.
    virtual void gap(std::int64_t next) = 0;
    /// The next n frames, channel by channel, from number `first` on; the engine may change them.
    virtual void feed(float* const* x, int n, std::int64_t first) = 0;
    /// Writes the readings; called after feeding, resetting and releasing.
    virtual void publish(MeterSlots& meters) noexcept = 0;
    /// What display `index` shows.
    virtual void show(int index, VNK::IDisplaySink& sink) const = 0;
};

/// Between an algorithm that captures and those who look.
class DisplayFeed {
public:
    /// The audio thread's end.
    CaptureRing& ring() noexcept { return ring_; }

    /// The algorithm has been prepared. May throw std::bad_alloc. [main thread, not processing]
    void prepare(const ProcessSpec& spec, DisplayEngine& engine);

    // Of those who look, on any thread but audio.
    void setOpen(bool open, DisplayEngine& engine, MeterSlots& meters) noexcept;
    /// `configure` hands the present settings to the engine.
    template <class F>
    void update(DisplayEngine& engine, MeterSlots& meters, F&& configure) noexcept
    {
        const std::lock_guard lock(mutex_);
        if (!isRunning()) return;
        guarded(engine, [&] {
            configure();
            take(engine);
        });
        engine.publish(meters);
    }
    bool show(const DisplayEngine& engine, int index, VNK::IDisplaySink& sink) noexcept;

private:
    bool isRunning() const noexcept { return reader_ && spec_.channels > 0; }
    /// Without memory there are no displays until somebody opens them anew.
    template <class F> void guarded(DisplayEngine& engine, F&& f) noexcept
    {
        try {
            f();
        } catch (...) {
            reader_.reset();
            engine.release();
        }
    }
    void start(DisplayEngine& engine);
    void take(DisplayEngine& engine);

    CaptureRing ring_;
    std::mutex mutex_;  // of engine, reader and ring memory; never taken by the audio thread
    std::optional<CaptureRing::Reader> reader_;
    std::vector<float> frames_;  // of a reader's piece, channel by channel
    ProcessSpec spec_;
    int openings_ = 0;
};

/// The algorithm of an effect with displays: prepares the feed, and gives each core its ring by
/// `void setCapture(CaptureRing&) noexcept`, before it is reset.
template <template <typename> class CoreOf, class Engine, class Base = AudioInsertAlgorithm>
class DisplayAlgorithm : public PrecisionAlgorithm<CoreOf, Base> {
    using Precision = PrecisionAlgorithm<CoreOf, Base>;

public:
    using EngineType = Engine;

    /// `engine`: what the engine is made of.
    template <class Rows, class... Args>
    explicit DisplayAlgorithm(const Rows& rows, Args&&... engine)
        : Precision(rows), engine_(std::forward<Args>(engine)...)
    {}

    DisplayFeed& feed() noexcept { return feed_; }
    Engine& engine() noexcept { return engine_; }
    /// A job that is asked for behind every block, so that displays are fed while nobody looks;
    /// null for none. [any thread]
    void setFeeder(WorkerJob* job) noexcept { feeder_.store(job, std::memory_order_release); }

protected:
    void publish(MeterSlots& meters) noexcept override
    {
        Precision::publish(meters);
        if (auto* const job = feeder_.load(std::memory_order_acquire)) job->request();
    }
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override
    {
        feed_.prepare(spec, engine_);
        Precision::prepareCore(spec, precision);
        this->withCore([this](auto& core) { core.setCapture(feed_.ring()); });
    }
    void resetCore() noexcept override
    {
        feed_.ring().reset();
        Precision::resetCore();
    }

private:
    Engine engine_;
    DisplayFeed feed_;
    std::atomic<WorkerJob*> feeder_{nullptr};
};

/// The component of such an effect. Algorithm is a DisplayAlgorithm.
template <class Algorithm>
class DisplayComponent : public VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays> {
public:
    /// `names`: of the displays, in the engine's order. One that begins with a point is for editors
    /// that draw on what they have drawn: it stands last, and is not listed.
    DisplayComponent(Algorithm& algorithm, EffectTraits traits, std::vector<const char*> names)
        : VNK::Extended<AudioEffectComponent, VNK::IEffectDisplays>(algorithm, std::move(traits)),
          displays_(algorithm),
          names_(std::move(names))
    {}

    const char* displayName(std::int32_t index) const noexcept final
    {
        const auto i = static_cast<std::size_t>(index);
        return index >= 0 && i < names_.size() && *names_[i] != '.' ? names_[i] : nullptr;
    }
    void setDisplaysOpen(bool open) noexcept override
    {
        displays_.feed().setOpen(open, displays_.engine(), meterSlots());
    }
    void updateDisplays() noexcept override
    {
        auto& engine = displays_.engine();
        displays_.feed().update(engine, meterSlots(), [&] { configure(engine); });
    }
    bool snapshot(const char* name, VNK::IDisplaySink* sink) noexcept override
    {
        for (std::size_t i = 0; name && sink && i < names_.size(); ++i)
            if (std::string_view(name) == names_[i])
                return displays_.feed().show(displays_.engine(), static_cast<int>(i), *sink);
        return false;
    }

protected:
    /// Hands the present values to the engine. Under the feed's mutex; may throw std::bad_alloc.
    /// [any thread but audio]
    virtual void configure(typename Algorithm::EngineType&) {}

private:
    Algorithm& displays_;
    std::vector<const char*> names_;
};

}  // namespace quillworks
