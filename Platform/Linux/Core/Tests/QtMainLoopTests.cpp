#include "PlatformCore/QtMainLoop.h"

#include "QtTestSupport/QtWait.h"

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Steady = std::chrono::steady_clock;

double msSince(Steady::time_point start) {
    return std::chrono::duration<double, std::milli>(Steady::now() - start).count();
}

TEST(QtMainLoopTest, PostedWorkRunsLaterAndInOrder) {
    QtMainLoop loop;
    std::string ran;
    loop.post([&] {
        ran += "a";
        loop.post([&] { ran += "c"; });
    });
    loop.post([&] { ran += "b"; });
    EXPECT_EQ(ran, "");
    ASSERT_TRUE(turnUntil([&] { return ran.size() == 3; }));
    EXPECT_EQ(ran, "abc");
}

TEST(QtMainLoopTest, WorkOfEachThreadRunsOnTheMainThreadInItsOrder) {
    QtMainLoop loop;
    constexpr int count = 2000;
    std::vector<std::vector<int>> ran(3);
    bool isAlwaysMain = true;
    std::vector<std::thread> threads;
    for (auto& mine : ran)
        threads.emplace_back([&loop, &mine, &isAlwaysMain] {
            EXPECT_FALSE(loop.isMainThread());
            for (int i = 0; i < count; ++i)
                loop.post([&loop, &mine, &isAlwaysMain, i] {
                    isAlwaysMain = isAlwaysMain && loop.isMainThread();
                    mine.push_back(i);
                });
        });
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(turnUntil([&] { return ran[0].size() + ran[1].size() + ran[2].size() == 3 * count; }));
    EXPECT_TRUE(isAlwaysMain);
    for (const auto& mine : ran) EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
}

TEST(QtMainLoopTest, ANestedLoopGoesOnWithTheQueue) {
    QtMainLoop loop;
    bool isSecondDone = false;
    bool sawSecondInside = false;
    loop.post([&] { sawSecondInside = turnUntil([&] { return isSecondDone; }, 5000); });
    loop.post([&] { isSecondDone = true; });
    ASSERT_TRUE(turnUntil([&] { return isSecondDone; }));
    EXPECT_TRUE(sawSecondInside);
}

TEST(QtMainLoopTest, TimersFireOnceInTheOrderOfTheirTimesAndNeverEarly) {
    QtMainLoop loop;
    std::string fired;
    double lateBy = -1;
    const auto start = Steady::now();
    loop.startTimer(0.06, [&] {
        fired += "c";
        lateBy = msSince(start) - 60;
    });
    loop.startTimer(0.02, [&] { fired += "a"; });
    loop.startTimer(0.04, [&] { fired += "b"; });
    loop.startTimer(-5, [&] { fired += "0"; });
    EXPECT_EQ(fired, "");
    ASSERT_TRUE(turnUntil([&] { return fired.size() == 4; }));
    EXPECT_EQ(fired, "0abc");
    EXPECT_GE(lateBy, 0);
}

TEST(QtMainLoopTest, ACancelledTimerNeverFiresAndForeignIdsAreIgnored) {
    QtMainLoop loop;
    bool hasFired = false;
    const auto timer = loop.startTimer(0.01, [&] { hasFired = true; });
    EXPECT_NE(timer, 0u);
    loop.cancelTimer(timer);
    loop.cancelTimer(timer);
    loop.cancelTimer(12345);
    bool isLater = false;
    loop.startTimer(0.03, [&] { isLater = true; });
    ASSERT_TRUE(turnUntil([&] { return isLater; }));
    EXPECT_FALSE(hasFired);
}

TEST(QtMainLoopTest, ATimerMayCancelItselfAndStartAnother) {
    QtMainLoop loop;
    MainLoop::TimerId timer = 0;
    bool isDone = false;
    timer = loop.startTimer(0, [&] {
        loop.cancelTimer(timer);
        loop.startTimer(0, [&] { isDone = true; });
    });
    EXPECT_TRUE(turnUntil([&] { return isDone; }));
}

TEST(QtMainLoopTest, ADelayBeyondWhatQtHoldsDoesNotFireAtOnce) {
    QtMainLoop loop;
    int fired = 0;
    for (const double days : {24.9, 30.0, 49.8, 400.0, 1e9}) loop.startTimer(days * 86400, [&] { ++fired; });
    loop.startTimer(1e300, [&] { ++fired; });
    bool isLater = false;
    loop.startTimer(0.05, [&] { isLater = true; });
    ASSERT_TRUE(turnUntil([&] { return isLater; }));
    EXPECT_EQ(fired, 0);
}

/// Calls its loop when it dies, as closures that hold the last reference to something do.
struct Meddler {
    explicit Meddler(QtMainLoop& loop) : loop(loop) {}
    ~Meddler() {
        loop.cancelTimer(1);
        loop.post([] { FAIL() << "posted to a dying loop"; });
    }
    QtMainLoop& loop;
};

TEST(QtMainLoopTest, WhatIsPendingIsDroppedWithTheLoop) {
    std::weak_ptr<Meddler> weak;
    bool hasRun = false;
    {
        QtMainLoop loop;
        const auto meddler = std::make_shared<Meddler>(loop);
        weak = meddler;
        loop.startTimer(0, [&hasRun, meddler] { hasRun = true; });
        loop.post([&hasRun, meddler] { hasRun = true; });
    }
    EXPECT_TRUE(weak.expired());
    QCoreApplication::processEvents();
    EXPECT_FALSE(hasRun);
}

TEST(QtMainLoopTest, TheClockIsTheWallClock) {
    const QtMainLoop loop;
    const double system = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_NEAR(loop.now().toUnix(), system, 5);
}

}  // namespace
