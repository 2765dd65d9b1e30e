#include "PlatformUpdate/BackgroundWork.h"

#include "TestSupport/TestLoop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <stdexcept>
#include <string>

namespace {

class BackgroundWorkTest : public testing::Test {
protected:
    Completion<int> told() {
        return [this](Outcome<int> outcome) {
            EXPECT_TRUE(loop.isMainThread());
            ++count;
            try {
                value = outcome.take();
            } catch (const std::exception& failure) {
                error = failure.what();
            }
            if (dropsItself) handle.reset();
        };
    }
    void waitForPost() {
        while (count == 0) {
            loop.run();
            std::this_thread::yield();
        }
    }

    TestLoop loop;
    std::shared_ptr<void> handle;
    bool dropsItself = false;
    int count = 0;
    int value = 0;
    std::string error;
};

TEST_F(BackgroundWorkTest, ItIsDoneOnAnotherThreadAndToldOnTheLoops) {
    handle = BackgroundWork<int>::begin(
        loop, [this](const std::stop_token&) { return loop.isMainThread() ? 1 : 2; }, told());
    EXPECT_EQ(count, 0) << "told within the call";
    waitForPost();
    EXPECT_EQ(value, 2);
    handle.reset();
    loop.run();
    EXPECT_EQ(count, 1);
}

TEST_F(BackgroundWorkTest, WhatItThrowsIsItsOutcome) {
    handle = BackgroundWork<int>::begin(
        loop, [](const std::stop_token&) -> int { throw std::runtime_error("no luck"); }, told());
    waitForPost();
    EXPECT_EQ(error, "no luck");
}

TEST_F(BackgroundWorkTest, DroppedItIsStoppedAndWaitedForAndNothingIsTold) {
    std::promise<void> begun;
    std::atomic<bool> hasEnded = false;
    const auto held = std::make_shared<int>(0);
    handle = BackgroundWork<int>::begin(
        loop,
        [&](const std::stop_token& stop) {
            begun.set_value();
            while (!stop.stop_requested()) std::this_thread::yield();
            hasEnded = true;
            return 1;
        },
        [held, tell = told()](Outcome<int> outcome) { tell(std::move(outcome)); });
    begun.get_future().wait();
    handle.reset();
    EXPECT_TRUE(hasEnded);
    EXPECT_EQ(held.use_count(), 1) << "the completion is still there";
    loop.run();
    EXPECT_EQ(count, 0);
}

TEST_F(BackgroundWorkTest, DroppedBetweenItsEndAndTheWordOfItNothingIsTold) {
    std::atomic<bool> hasEnded = false;
    handle = BackgroundWork<int>::begin(
        loop,
        [&](const std::stop_token&) {
            hasEnded = true;
            return 1;
        },
        told());
    while (!hasEnded) std::this_thread::yield();
    handle.reset();
    loop.run();
    EXPECT_EQ(count, 0);
}

TEST_F(BackgroundWorkTest, ItMayBeDroppedInItsCompletion) {
    dropsItself = true;
    handle = BackgroundWork<int>::begin(
        loop, [](const std::stop_token&) { return 7; }, told());
    waitForPost();
    EXPECT_EQ(value, 7);
    EXPECT_FALSE(handle);
}

}  // namespace
