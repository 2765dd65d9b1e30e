#include "ScanKit/BackgroundThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace {

TEST(BackgroundThreadTest, RunsItsWorkInOrderOnAnotherThread) {
    std::vector<int> order;
    std::promise<std::thread::id> done;
    BackgroundThread background;
    for (int number = 0; number < 100; ++number) background.run([&order, number] { order.push_back(number); });
    background.run([&] { done.set_value(std::this_thread::get_id()); });
    EXPECT_NE(done.get_future().get(), std::this_thread::get_id());
    for (int number = 0; number < 100; ++number) EXPECT_EQ(order.at(static_cast<std::size_t>(number)), number);
}

TEST(BackgroundThreadTest, ItsEndWaitsForWhatRunsAndDropsWhatHasNotBegun) {
    std::promise<void> begun;
    std::promise<void> mayEnd;
    std::atomic<int> ran = 0;
    const auto owned = std::make_shared<int>(0);
    {
        BackgroundThread background;
        background.run([&] {
            begun.set_value();
            mayEnd.get_future().wait();
            ++ran;
        });
        background.run([&ran, owned] { ++ran; });
        begun.get_future().wait();
        EXPECT_EQ(owned.use_count(), 2);
        // The destructor empties the queue before it waits; this lets the first piece go once it has.
        std::thread([&owned, &mayEnd] {
            while (owned.use_count() > 1) std::this_thread::yield();
            mayEnd.set_value();
        }).detach();
    }
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(owned.use_count(), 1);
}

TEST(BackgroundThreadTest, WithoutWorkItEndsAtOnce) { const BackgroundThread background; }

}  // namespace
