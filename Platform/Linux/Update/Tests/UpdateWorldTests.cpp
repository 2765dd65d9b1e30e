#include "PlatformUpdate/Reachability.h"
#include "PlatformUpdate/SystemVersion.h"
#include "PlatformUpdate/TransferRate.h"
#include "PlatformUpdate/UpdateThread.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <thread>

namespace {

using testing::ElementsAre;

// ---- TransferRate

class TransferRateTest : public testing::Test {
protected:
    TestLoop loop;
    int ends = 0;
    std::vector<std::uint64_t> steps;
    std::unique_ptr<TransferRate> rate = std::make_unique<TransferRate>(
        loop, [this](std::uint64_t total) { steps.push_back(total); },
        [this] {
            ++ends;
            rate.reset();
        });
};

TEST_F(TransferRateTest, NothingFor60SecondsIsTooSlow) {
    loop.advance(59.9);
    EXPECT_EQ(ends, 0);
    EXPECT_EQ(steps.size(), 11U);
    loop.advance(0.1);
    EXPECT_EQ(ends, 1);
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(TransferRateTest, FourKibibytesASecondAreEnough) {
    for (int second = 0; second < 600; ++second) {
        rate->add(4096);
        loop.advance(1);
    }
    EXPECT_EQ(ends, 0);
}

TEST_F(TransferRateTest, OneByteLessIsTooSlow) {
    rate->add(60 * 4096 - 1);
    loop.advance(60);
    EXPECT_EQ(ends, 1);
}

TEST_F(TransferRateTest, ARushAtTheBeginningCountsForAMinuteOnly) {
    rate->add(1 << 30);
    loop.advance(62);
    EXPECT_EQ(ends, 0);
    loop.advance(3);
    EXPECT_EQ(ends, 1);
}

// ---- SystemVersion

TEST(SystemVersionTest, ItIsTheSystemsOwnElseTheKernels) {
    EXPECT_EQ(systemVersion("12", "6.1.0-18-amd64"), (SemanticVersion{12, 0, 0}));
    EXPECT_EQ(systemVersion("24.04", "6.8.0"), (SemanticVersion{24, 4, 0}));
    for (const char* none : {"", "rolling", "1.2.3.4", "-1", "12.x"}) {
        EXPECT_EQ(systemVersion(none, "6.1.0-18-amd64"), (SemanticVersion{6, 1, 0})) << none;
        EXPECT_EQ(systemVersion(none, "6.8-rc1"), (SemanticVersion{6, 8, 0}));
        EXPECT_EQ(systemVersion(none, "5.15.153.1-microsoft"), (SemanticVersion{5, 15, 153}));
        EXPECT_EQ(systemVersion(none, "odd"), SemanticVersion());
        EXPECT_EQ(systemVersion(none, ""), SemanticVersion());
    }
}

TEST(SystemVersionTest, ItIsReadWhereTheSystemTellsIt) {
    TemporaryFolder root;
    EXPECT_NE(systemVersion(root.path), SemanticVersion()) << "the kernel's";
    std::filesystem::create_directories(root.path / "etc");
    std::ofstream(root.path / "etc/os-release") << "NAME=\"Some System\"\nVERSION_ID=\"12\"\n";
    EXPECT_EQ(systemVersion(root.path), (SemanticVersion{12, 0, 0}));
}

// ---- Reachability

TEST(ReachabilityTest, ItTellsWhatWasSaidLastAndThenEachWord) {
    TestLoop loop;
    FakePath path;
    Internets internets(loop, path.monitor());
    Reachability reachability(internets);
    internets.start();
    std::vector<bool> told;
    auto watch = reachability.watch([&](bool isReachable) { told.push_back(isReachable); });
    EXPECT_THAT(told, ElementsAre(false));
    path.update(true);
    loop.run();
    EXPECT_THAT(told, ElementsAre(false, true));
    std::vector<bool> later;
    const auto second = reachability.watch([&](bool isReachable) { later.push_back(isReachable); });
    EXPECT_THAT(later, ElementsAre(true));
    watch.reset();
    path.update(false);
    loop.run();
    EXPECT_EQ(told.size(), 2U);
    EXPECT_THAT(later, ElementsAre(true, false));
}

// ---- UpdateThread

TEST(UpdateThreadTest, ItsLoopIsOnAThreadOfItsOwn) {
    UpdateThread thread;
    EXPECT_FALSE(thread.loop().isMainThread());
    std::promise<bool> answer;
    thread.loop().post([&] { answer.set_value(thread.loop().isMainThread()); });
    EXPECT_TRUE(answer.get_future().get());
}

TEST(UpdateThreadTest, WhatWasPostedIsDoneBeforeItEnds) {
    int count = 0;
    {
        UpdateThread thread;
        for (int i = 0; i < 100; ++i) thread.loop().post([&count] { ++count; });
    }
    EXPECT_EQ(count, 100);
}

TEST(UpdateThreadTest, WhatHangsOnItsLoopDiesOnIt) {
    std::thread::id died;
    std::thread::id lived;
    {
        UpdateThread thread;
        auto witness = std::shared_ptr<void>(nullptr, [&](void*) { died = std::this_thread::get_id(); });
        thread.loop().post([&, &loop = thread.loop(), held = std::move(witness)] {
            lived = std::this_thread::get_id();
            loop.startTimer(3600, [held] {});
        });
    }
    EXPECT_EQ(died, lived);
    EXPECT_NE(died, std::this_thread::get_id());
}

}  // namespace
