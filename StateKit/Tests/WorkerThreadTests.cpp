#include "StateKit/WorkerThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

TEST(WorkerThreadTest, WorkIsDoneInItsOrderOnOneOtherThread) {
    std::vector<int> done;
    std::vector<std::thread::id> threads;
    {
        WorkerThread worker;
        for (int i = 0; i < 100; ++i)
            worker.run([&, i] {
                done.push_back(i);
                threads.push_back(std::this_thread::get_id());
            });
    }
    std::vector<int> expected(100);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(done, expected);
    for (const std::thread::id id : threads) EXPECT_EQ(id, threads.front());
    EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST(WorkerThreadTest, TheEndWaitsForWhatHasBegunNoLongerThanItIsTold) {
    std::promise<void> mayEnd;
    WorkerThread worker;
    worker.run([gate = mayEnd.get_future().share()] { gate.wait(); });
    EXPECT_FALSE(worker.finish(0ms));
    mayEnd.set_value();
    EXPECT_TRUE(worker.finish(1min));
}

TEST(WorkerThreadTest, WithNothingToDoThereIsNothingToWaitFor) {
    WorkerThread worker;
    EXPECT_TRUE(worker.finish(0ms));
}

TEST(WorkerThreadTest, WhatTheWorkHeldIsGoneWhenItIsDone) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = held;
    WorkerThread worker;
    worker.run([held = std::move(held)] {});
    ASSERT_TRUE(worker.finish(1min));
    EXPECT_TRUE(watch.expired());
}

TEST(WorkerThreadTest, ItTakesMoreWorkAfterAnEarlierEnd) {
    bool isDone = false;
    WorkerThread worker;
    worker.run([] {});
    ASSERT_TRUE(worker.finish(1min));
    worker.run([&isDone] { isDone = true; });
    ASSERT_TRUE(worker.finish(1min));
    EXPECT_TRUE(isDone);
}

TEST(WorkerThreadTest, WhereTheRestIsDroppedTheEndWaitsOnlyForWhatRuns) {
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<int> ran = 0;
    const auto owned = std::make_shared<int>(0);
    std::thread releasing;
    {
        WorkerThread worker(WorkerThread::AtEnd::drops);
        worker.run([&] {
            begun.set_value();
            mayEnd.get_future().wait();
            ++ran;
        });
        worker.run([&ran, owned] { ++ran; });
        begun.get_future().wait();
        EXPECT_EQ(owned.use_count(), 2);
        // The destructor empties the queue before it waits; this thread ends the first piece after that.
        releasing = std::thread([&owned, &mayEnd] {
            while (owned.use_count() > 1) std::this_thread::yield();
            mayEnd.set_value();
        });
    }
    releasing.join();
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(owned.use_count(), 1);
}

}  // namespace
