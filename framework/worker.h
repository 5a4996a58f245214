// SPDX-License-Identifier: ISC
// Work that is too long for the audio thread and must not hold up the main thread: reading files,
// planning transforms, building tables.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace quillworks {

/// What one effect has done by the process' worker thread: a thread of low priority that lives as
/// long as any such job does and runs one of them at a time. A request only counts up, so that
/// automation on the audio thread may ask as well; the worker looks at the counts every 20 ms.
class WorkerJob {
public:
    /// What a running job may ask.
    class Progress {
    public:
        /// The effect is being destroyed: end soon, whatever is half done.
        bool isCancelled() const noexcept
        {
            return job_.isCancelled_.load(std::memory_order_relaxed);
        }
        /// It has been requested again: what is being made is out of date, though it may serve
        /// until the next is there.
        bool isOvertaken() const noexcept
        {
            return job_.requested_.load(std::memory_order_relaxed) != serial_;
        }

    private:
        friend class WorkerJob;
        Progress(const WorkerJob& job, std::uint32_t serial) : job_(job), serial_(serial) {}

        const WorkerJob& job_;
        std::uint32_t serial_;
    };

    /// `run` does all that is wanted by then. Exceptions end in it: what it throws is dropped.
    /// Throws std::system_error where no thread can be had. [main thread]
    explicit WorkerJob(std::function<void(const Progress&)> run);
    /// Waits for the end of a running job, which is cancelled. [main thread, not processing]
    ~WorkerJob();
    WorkerJob(const WorkerJob&) = delete;
    WorkerJob& operator=(const WorkerJob&) = delete;

    /// Asks for a run that begins after this call; within 20 ms where the worker is free.
    /// [any thread, wait-free]
    void request() noexcept { requested_.fetch_add(1, std::memory_order_release); }
    /// The same, without the wait for the worker's next look. [not the audio thread]
    void requestNow();
    /// Whether a request has not been done yet. [any thread]
    bool isBusy() const noexcept
    {
        return done_.load(std::memory_order_acquire) != requested_.load(std::memory_order_acquire);
    }

private:
    friend class Worker;
    /// Runs it if it has been requested. [worker thread]
    bool runIfRequested();

    const std::function<void(const Progress&)> run_;
    std::atomic<std::uint32_t> requested_{0}, done_{0};
    std::atomic<bool> isCancelled_{false};
};

}  // namespace quillworks
