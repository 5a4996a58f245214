// SPDX-License-Identifier: ISC
#include "framework/worker.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace quillworks {
namespace {

constexpr auto kLook = std::chrono::milliseconds(20);
constexpr int kNice = 10;  // behind what people and audio threads wait for

}  // namespace

/// The thread, while there are jobs.
class Worker {
public:
    /// Never destroyed: effects in static objects may outlive any other.
    static Worker& instance()
    {
        alignas(Worker) static std::byte place[sizeof(Worker)];
        static Worker* const worker = new (place) Worker;
        static const Ending ending;
        [[maybe_unused]] static const int forks = pthread_atfork(beforeFork, inParent, inChild);
        return *worker;
    }

    /// At the end of a process that has left effects behind, and when the module goes.
    void end()
    {
        if (!thread_.joinable()) return;
        {
            const std::lock_guard lock(mutex_);
            ends_ = true;
            for (auto* job : jobs_) job->isCancelled_.store(true, std::memory_order_relaxed);
        }
        wake_.notify_one();
        thread_.join();
    }

    void add(WorkerJob& job)
    {
        const std::lock_guard starting(startMutex_);
        {
            const std::lock_guard lock(mutex_);
            jobs_.push_back(&job);
            if (jobs_.size() > 1) return;
            ends_ = false;
        }
        try {
            thread_ = std::thread([this] { loop(); });
        } catch (...) {
            const std::lock_guard lock(mutex_);
            jobs_.clear();
            throw;
        }
    }

    void remove(WorkerJob& job)
    {
        const std::lock_guard starting(startMutex_);
        {
            std::unique_lock lock(mutex_);
            ended_.wait(lock, [&] { return running_ != &job; });
            std::erase(jobs_, &job);
            if (!jobs_.empty()) return;
            std::vector<WorkerJob*>().swap(jobs_);
            ends_ = true;
        }
        wake_.notify_one();
        if (thread_.joinable()) thread_.join();
    }

    void wake()
    {
        {
            const std::lock_guard lock(mutex_);
            isWanted_ = true;
        }
        wake_.notify_one();
    }

private:
    // A process that is forked off has the list but not the thread, nor anybody who would give the
    // locks back. Its own effects get a new thread; those that it has inherited get no work done.
    static void beforeFork() { instance().mutex_.lock(); }
    static void inParent() { instance().mutex_.unlock(); }
    static void inChild()
    {
        Worker& inherited = instance();
        new (&inherited) Worker;  // the old thread's handle, which nobody can join, is forgotten
    }

    struct Ending {
        ~Ending() { instance().end(); }
    };

    void loop()
    {
        // Of this thread alone; where it is refused the worker runs as everybody does.
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
        std::unique_lock lock(mutex_);
        while (!ends_) {
            isWanted_ = false;
            // The list may change while a job runs, and a new pass begins then.
            for (std::size_t i = 0; i < jobs_.size() && !ends_; ++i) {
                WorkerJob* const job = jobs_[i];
                running_ = job;
                lock.unlock();
                job->runIfRequested();
                lock.lock();
                running_ = nullptr;
                ended_.notify_all();
            }
            wake_.wait_for(lock, kLook, [this] { return isWanted_ || ends_; });
        }
    }

    std::mutex startMutex_;  // one at a time starts and ends the thread
    std::mutex mutex_;
    std::condition_variable wake_, ended_;
    std::vector<WorkerJob*> jobs_;
    WorkerJob* running_ = nullptr;
    bool isWanted_ = false, ends_ = false;
    std::thread thread_;
};

WorkerJob::WorkerJob(std::function<void(const Progress&)> run) : run_(std::move(run))
{
    Worker::instance().add(*this);
}

WorkerJob::~WorkerJob()
{
    isCancelled_.store(true, std::memory_order_relaxed);
    Worker::instance().remove(*this);
}

void WorkerJob::requestNow()
{
    request();
    Worker::instance().wake();
}

bool WorkerJob::runIfRequested()
{
    const auto serial = requested_.load(std::memory_order_acquire);
    if (serial == done_.load(std::memory_order_relaxed)) return false;
    if (!isCancelled_.load(std::memory_order_relaxed)) {
        try {
            run_(Progress(*this, serial));
        } catch (...) {  // out of memory: what was there stays in use
        }
    }
    done_.store(serial, std::memory_order_release);
    return true;
}

}  // namespace quillworks
