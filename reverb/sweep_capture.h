// SPDX-License-Identifier: ISC
// A measurement under way: what is to be played, the memory for what comes back, and how both pass
// between the audio thread and the worker.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "framework/worker.h"
#include "reverb/measured_response.h"

namespace quillworks {

/// Before the first sweep everything is silent; from 0.1 s on the background is measured.
inline constexpr double kQuietSeconds = 0.5, kNoiseFromSeconds = 0.1;

/// What the effect has been prepared for.
struct CaptureShape {
    double sampleRate = 0;  // 0: not prepared
    int inputs = 0, outputs = 0;
    std::uint32_t serial = 0;  // of the preparation
};

struct CapturePlan {
    enum class Sources { FirstOutput, AllAtOnce, EachInTurn };

    SweepSettings sweep;
    double tailSeconds = 4;
    Sources sources = Sources::EachInTurn;
    int inputs = 1, outputs = 1;
    int passes = 1;
    bool hasReference = false;

    int sourceCount() const noexcept { return sources == Sources::EachInTurn ? outputs : 1; }
    /// Memory of the recording. More than kMostBytes is refused.
    double bytes() const noexcept;
    static constexpr double kMostBytes = 1024.0 * 1024 * 1024;

    bool operator==(const CapturePlan&) const = default;
};

/// Made and read by the worker, filled by the audio thread in between.
class SweepCapture {
public:
    /// Of a plan that is too large, it says so and holds nothing. Throws std::bad_alloc.
    SweepCapture(const CapturePlan& plan, const CaptureShape& shape);
    /// One that says so for want of memory.
    static std::unique_ptr<SweepCapture> refused(CapturePlan plan, const CaptureShape& shape);

    const CapturePlan& plan() const noexcept { return plan_; }
    std::uint32_t serial() const noexcept { return serial_; }
    bool isRefused() const noexcept { return isRefused_; }
    int sweepFrames() const noexcept { return static_cast<int>(data_.excitation.size()); }
    /// Sweep and tail.
    int frames() const noexcept { return static_cast<int>(data_.frames()); }
    const float* sweep() const noexcept { return data_.excitation.data(); }

    // Of the audio thread, until it gives the capture back.
    /// `frames` frames of the microphones from `first` on, of the background.
    void takeNoise(const float* const* inputs, int first, int frames) noexcept;
    /// The same of a pass of a source, added up; `reference` may be null: silence.
    void take(const float* const* inputs, const float* reference, int source, int first,
              int frames) noexcept;
    /// The start that it serves, as counted by the exchange.
    void setStart(std::uint32_t start) noexcept { start_ = start; }
    enum class State { Given, Complete, Abandoned };
    void giveBack(State state) noexcept { state_.store(state, std::memory_order_release); }

    // Of the worker.
    State state() const noexcept { return state_.load(std::memory_order_acquire); }
    std::uint32_t start() const noexcept { return start_; }
    /// What has been recorded, as the mean of its passes.
    SweepMeasurement& finish() noexcept;

private:
    CapturePlan plan_;
    std::uint32_t serial_, start_ = 0;
    int noiseFrames_ = 0;
    bool isRefused_;
    SweepMeasurement data_;
    std::atomic<State> state_{State::Given};
};

/// Owns the captures, and counts what is asked for. Belongs to the algorithm, which may outlive the
/// component and its worker.
class CaptureExchange {
public:
    // [any thread]
    /// Asks for a measurement, in place of the one under way.
    void start() noexcept
    {
        starts_.fetch_add(1, std::memory_order_relaxed);
        requestWork();
    }
    /// Ends the one under way, and takes a start back that has not been seen.
    void stop() noexcept
    {
        begun_.store(starts_.load(std::memory_order_relaxed), std::memory_order_relaxed);
        served_.store(starts_.load(std::memory_order_relaxed), std::memory_order_relaxed);
        stops_.fetch_add(1, std::memory_order_relaxed);
    }
    /// Whether a start still lacks its capture.
    bool isWaiting() const noexcept
    {
        return starts_.load(std::memory_order_relaxed) != served_.load(std::memory_order_relaxed);
    }
    void requestWork() noexcept
    {
        if (auto* const worker = worker_.load(std::memory_order_acquire)) worker->request();
    }
    /// Null for none. The one before is used no more when nothing is processed. [main thread]
    void setWorker(WorkerJob* worker) noexcept { worker_.store(worker, std::memory_order_release); }

    // [main thread, not processing]
    void prepare(double sampleRate, int inputs, int outputs);

    // [worker thread]
    CaptureShape shape() const;
    /// To the audio thread; what it has not taken yet is freed.
    void offer(std::unique_ptr<SweepCapture> capture);
    /// Whether a capture of this plan, for the present shape, lies ready.
    bool isOffered(const CapturePlan& plan) const noexcept;
    /// A recording that has come back, which is the caller's now; null for none. Frees those that
    /// were given up.
    std::unique_ptr<SweepCapture> collect();
    /// How many measurements have begun.
    std::uint32_t begun() const noexcept { return begun_.load(std::memory_order_relaxed); }

    // [audio thread]
    std::uint32_t stops() const noexcept { return stops_.load(std::memory_order_relaxed); }
    /// Whether a start has come since the last one that began; it begins.
    bool takeStart() noexcept
    {
        const auto starts = starts_.load(std::memory_order_relaxed);
        return begun_.exchange(starts, std::memory_order_relaxed) != starts;
    }
    /// What has been offered, or null.
    SweepCapture* take() noexcept;
    /// The start that began is waited for no more.
    void serve() noexcept
    {
        served_.store(begun_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    }

private:
    std::atomic<WorkerJob*> worker_{nullptr};
    std::atomic<std::uint32_t> starts_{0}, begun_{0}, served_{0}, stops_{0};
    std::atomic<SweepCapture*> offered_{nullptr};
    mutable std::mutex mutex_;  // of the shape; never taken by the audio thread
    CaptureShape shape_;
    std::vector<std::unique_ptr<SweepCapture>> captures_;  // of the worker
};

}  // namespace quillworks
