// SPDX-License-Identifier: ISC
#include "framework/worker.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "dsp/shared_tables.h"
#include "framework/handover.h"
#include "tests/support/audio_thread_guard.h"

namespace quillworks::test {
namespace {

using namespace std::chrono_literals;

template <class F> bool comesTrue(F&& condition)
{
    for (int i = 0; i < 5000 && !condition(); ++i) std::this_thread::sleep_for(1ms);
    return condition();
}

TEST(WorkerJob, RunsOnceMoreAfterEachRequestFromAnyThread)
{
    std::atomic<int> wanted{0}, made{-1}, runs{0};
    WorkerJob job([&](const WorkerJob::Progress&) { made = wanted.load(), ++runs; });
    EXPECT_FALSE(job.isBusy());
    std::thread audio([&] {
        for (int i = 1; i <= 200; ++i) {
            wanted = i;
            const AudioThreadGuard guard;
            job.request();
        }
    });
    audio.join();
    ASSERT_TRUE(comesTrue([&] { return !job.isBusy(); }));
    EXPECT_EQ(made, 200);
    EXPECT_LE(runs, 200);
    wanted = 201;
    job.requestNow();
    EXPECT_TRUE(comesTrue([&] { return made == 201; }));
}

TEST(WorkerJob, EndsSoonWhenItsOwnerGoesAndLeavesOthersAlone)
{
    std::atomic<bool> begun{false}, ended{false};
    std::atomic<int> others{0};
    WorkerJob other([&](const WorkerJob::Progress&) { ++others; });
    auto job = std::make_unique<WorkerJob>([&](const WorkerJob::Progress& progress) {
        begun = true;
        while (!progress.isCancelled()) std::this_thread::sleep_for(1ms);
        ended = true;
    });
    job->requestNow();
    ASSERT_TRUE(comesTrue([&] { return begun.load(); }));
    job.reset();
    EXPECT_TRUE(ended) << "nothing of it runs on";
    other.requestNow();
    EXPECT_TRUE(comesTrue([&] { return others == 1; }));
    WorkerJob throwing([](const WorkerJob::Progress&) { throw std::bad_alloc(); });
    throwing.requestNow();
    EXPECT_TRUE(comesTrue([&] { return !throwing.isBusy(); })) << "an exception ends in it";
}

TEST(WorkerJob, KnowsThatItIsOvertaken)
{
    std::atomic<bool> begun{false}, mayEnd{false}, wasOvertaken{false};
    WorkerJob job([&](const WorkerJob::Progress& progress) {
        begun = true;
        while (!mayEnd) std::this_thread::sleep_for(1ms);
        wasOvertaken = wasOvertaken || progress.isOvertaken();
    });
    job.requestNow();
    ASSERT_TRUE(comesTrue([&] { return begun.load(); }));
    job.request();
    mayEnd = true;
    ASSERT_TRUE(comesTrue([&] { return !job.isBusy(); }));
    EXPECT_TRUE(wasOvertaken);
}

/// Counts those alive.
struct Counted {
    explicit Counted(int n) : number(n) { ++alive; }
    ~Counted() { --alive; }
    int number;
    static inline std::atomic<int> alive{0};
};

TEST(Handover, GivesTheLatestAndDestroysEverythingOffTheAudioThread)
{
    {
        Handover<Counted> handover;
        std::atomic<bool> done{false};
        std::thread giver([&] {
            for (int i = 1; i <= 2000; ++i) handover.give(std::make_unique<Counted>(i));
            done = true;
        });
        int last = 0;
        for (bool more = true; more;) {
            more = !done;  // once more after the last
            const AudioThreadGuard guard;
            if (handover.take()) {
                const int number = handover.current()->number;
                EXPECT_GT(number, last);
                last = number;
                if (handover.previous()) {
                    EXPECT_LT(handover.previous()->number, number) << "alive until released";
                }
            } else {
                handover.release();
            }
        }
        giver.join();
        for (int i = 0; i < 3; ++i) {  // what came while the way back was taken
            handover.release();
            handover.collect();
            if (handover.take()) last = handover.current()->number;
        }
        EXPECT_EQ(last, 2000);
        EXPECT_LE(Counted::alive, 4);
    }
    EXPECT_EQ(Counted::alive, 0);
}

/// Ends the process while a job, which no one has taken away, makes tables one after another.
[[noreturn]] void endWhileTablesAreMade()
{
    std::atomic<int> made{0};
    [[maybe_unused]] static auto* const job = new WorkerJob([&](const auto& progress) {
        std::shared_ptr<const std::string> kept[8];
        for (int i = 0; !progress.isCancelled(); made = ++i)
            kept[i % 8] = SharedTables<int, std::string>::instance().get(
                i, [&] { return std::string(100, 'x'); });
    });
    // Goes after the tables would, and before the thread is ended.
    struct Slow {
        ~Slow() { std::this_thread::sleep_for(20ms); }
    };
    [[maybe_unused]] static const Slow slow;
    job->requestNow();
    while (made < 1000) std::this_thread::yield();
    std::exit(7);
}

TEST(WorkerJobDeathTest, WhatAJobUsesOutlastsItAtTheEndOfAProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int i = 0; i < 3; ++i)
        EXPECT_EXIT(endWhileTablesAreMade(), testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace quillworks::test
