#include "StateKit/Heartbeat.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport/TestLoop.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Writes down when it was called, in seconds since the test began.
struct Clock : SignalTarget {
    explicit Clock(TestLoop& loop) : loop(loop), begin(loop.now()) {}
    void called() {
        times.push_back(loop.now() - begin);
        if (then) then();
    }

    TestLoop& loop;
    Date begin;
    std::vector<Seconds> times;
    std::function<void()> then;
};

struct HeartbeatTest : testing::Test {
    TestLoop loop;
    std::shared_ptr<Heartbeat> heartbeat = Heartbeat::make(loop, 2, 30);
    Clock fired{loop};
    std::vector<std::string> completed;

    void SetUp() override { heartbeat->subscribe(fired, &Clock::called); }
    std::function<void()> completion(std::string name) {
        return [this, name = std::move(name)] { completed.push_back(name); };
    }
};

TEST_F(HeartbeatTest, ABeatFiresOnceAfterTheInterval) {
    heartbeat->beat();
    EXPECT_THAT(fired.times, IsEmpty());
    loop.advance(1.9);
    EXPECT_THAT(fired.times, IsEmpty());
    loop.advance(100);
    EXPECT_THAT(fired.times, ElementsAre(2));
}

TEST_F(HeartbeatTest, TwoBeatsWithinTheIntervalFireOnceAfterTheSecond) {
    heartbeat->beat();
    loop.advance(1);
    heartbeat->beat();
    loop.advance(100);
    EXPECT_THAT(fired.times, ElementsAre(3));
}

TEST_F(HeartbeatTest, BeatsEverySecondFireAtTheFirstAfterThirtySecondsAndCountAnew) {
    for (int second = 0; second < 60; ++second) {
        heartbeat->beat();
        loop.advance(1);
    }
    EXPECT_THAT(fired.times, ElementsAre(31));
    loop.advance(100);
    // The beats from 32 to 59 belong to the second firing, which comes two seconds after the last of them.
    EXPECT_THAT(fired.times, ElementsAre(31, 61));
}

TEST_F(HeartbeatTest, AnOverdueBeatFiresInsideTheCallAndLeavesNoTimer) {
    for (int second = 0; second <= 30; ++second) {
        heartbeat->beat();
        loop.advance(1);
    }
    EXPECT_THAT(fired.times, IsEmpty());
    heartbeat->beat(completion("overdue"));
    EXPECT_THAT(fired.times, ElementsAre(31));
    EXPECT_THAT(completed, ElementsAre("overdue"));
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(HeartbeatTest, ARequestOfExactlyThirtySecondsIsNotOverdue) {
    for (int second = 0; second < 30; ++second) {
        heartbeat->beat();
        loop.advance(1);
    }
    heartbeat->beat();
    EXPECT_THAT(fired.times, IsEmpty());
}

TEST_F(HeartbeatTest, MaxDelayIsOnlyThereToBeRead) {
    heartbeat = Heartbeat::make(loop, 2, 5);
    heartbeat->subscribe(fired, &Clock::called);
    EXPECT_EQ(heartbeat->interval, 2);
    EXPECT_EQ(heartbeat->maxDelay, 5);
    EXPECT_EQ(Heartbeat::make(loop, 2)->maxDelay, std::nullopt);
    for (int second = 0; second < 40; ++second) {
        heartbeat->beat();
        loop.advance(1);
    }
    EXPECT_THAT(fired.times, ElementsAre(31));
}

TEST_F(HeartbeatTest, OnlyTheCompletionOfTheBeatThatFiresIsRun) {
    heartbeat->beat(completion("first"));
    loop.advance(1);
    heartbeat->beat(completion("second"));
    loop.advance(100);
    EXPECT_THAT(completed, ElementsAre("second"));
}

TEST_F(HeartbeatTest, ABeatWithoutACompletionDropsTheEarlierOne) {
    heartbeat->beat(completion("first"));
    heartbeat->beat();
    loop.advance(100);
    EXPECT_THAT(fired.times, ElementsAre(2));
    EXPECT_THAT(completed, IsEmpty());
}

TEST_F(HeartbeatTest, TheSubscribersAreToldBeforeTheCompletion) {
    fired.then = [this] { completed.push_back("fired"); };
    heartbeat->beat(completion("completion"));
    loop.advance(2);
    EXPECT_THAT(completed, ElementsAre("fired", "completion"));
}

TEST_F(HeartbeatTest, ABeatInsideAFiringBeginsANewCount) {
    fired.then = [this] {
        if (fired.times.size() < 3) heartbeat->beat();
    };
    heartbeat->beat();
    loop.advance(100);
    EXPECT_THAT(fired.times, ElementsAre(2, 4, 6));
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(HeartbeatTest, APendingTimerKeepsItAliveUntilItFires) {
    const std::weak_ptr<Heartbeat> weak = heartbeat;
    heartbeat->beat(completion("late"));
    heartbeat.reset();
    EXPECT_FALSE(weak.expired());
    loop.advance(2);
    EXPECT_THAT(fired.times, ElementsAre(2));
    EXPECT_THAT(completed, ElementsAre("late"));
    EXPECT_TRUE(weak.expired());
}

TEST_F(HeartbeatTest, AnIdleOneDiesWithItsOwner) {
    const std::weak_ptr<Heartbeat> weak = heartbeat;
    heartbeat->beat();
    loop.advance(2);
    heartbeat.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(HeartbeatTest, TheOwnerMayDropItInsideAFiring) {
    fired.then = [this] { heartbeat.reset(); };
    heartbeat->beat(completion("after"));
    loop.advance(2);
    EXPECT_THAT(completed, ElementsAre("after"));
}

TEST_F(HeartbeatTest, WhoUnsubscribedIsNotTold) {
    heartbeat->unsubscribe(fired);
    heartbeat->beat(completion("still"));
    loop.advance(2);
    EXPECT_THAT(fired.times, IsEmpty());
    EXPECT_THAT(completed, ElementsAre("still"));
}

TEST_F(HeartbeatTest, ALoopThatDiesDropsThePendingOneUnfired) {
    std::weak_ptr<Heartbeat> weak;
    {
        TestLoop shortLived;
        auto pending = Heartbeat::make(shortLived, 2);
        weak = pending;
        pending->beat(completion("never"));
        pending.reset();
    }
    EXPECT_TRUE(weak.expired());
    EXPECT_THAT(completed, IsEmpty());
}

}  // namespace
