#include "UpdateKit/UpdateKit.h"

#include "TestSupport/FakeUpdateWorld.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/MemoryDefaults.h"
#include "TestSupport/TestLoop.h"
#include "UpdateKit/UpdateKitError.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Observer : SignalTarget {
    explicit Observer(UpdateKit& kit) {
        kit.observeReady(*this, [](Observer& self, const UpdateReadyMessage& message) {
            self.told.push_back("ready " + message.info.version);
            if (self.onReady) self.onReady();
        });
        kit.observeFailed(*this, [](Observer& self, const UpdateFailedMessage& message) {
            self.told.push_back("failed " + message.info.summary);
        });
        kit.observeCheckedNoUpdate(*this, [](Observer& self, const UpdateCheckedNoUpdateMessage& message) {
            self.told.push_back("no update " + message.info.summary);
        });
    }
    std::vector<std::string> told;
    std::function<void()> onReady;
};

class UpdateKitTest : public testing::Test {
protected:
    ~UpdateKitTest() override {
        kit.reset();
        ownLoop.run();
    }

    void make(const std::string& url = "https://host/latest.json") {
        kit = std::make_unique<UpdateKit>(mainLoop, ownLoop, defaults, *Url::parse(url), world.environment());
        observer = std::make_unique<Observer>(*kit);
    }

    void turn() {
        ownLoop.run();
        mainLoop.run();
    }

    TestLoop mainLoop;
    TestLoop ownLoop;
    FakeUpdateWorld world{ownLoop};
    MemoryDefaults defaults;
    LogLines log;
    std::unique_ptr<UpdateKit> kit;
    std::unique_ptr<Observer> observer;
};

TEST_F(UpdateKitTest, ItBeginsAutomaticChecksByItself) {
    make("file:///srv/latest.json");
    EXPECT_THAT(world.takeOperations(), IsEmpty()) << "not on the main thread";
    ownLoop.run();
    EXPECT_THAT(observer->told, IsEmpty()) << "not on the coordinator's thread";
    mainLoop.run();
    EXPECT_THAT(observer->told, ElementsAre("ready 1.4.0"));
    ownLoop.advance(3600);
    mainLoop.run();
    EXPECT_EQ(observer->told.size(), 1U);
}

TEST_F(UpdateKitTest, EachKindOfEventIsAMessageInTheOrderOfHappening) {
    make();
    kit->installUpdate();
    turn();
    kit->checkForUpdates();
    ownLoop.run();
    world.manifest = R"({"version": "1", "url": "x"})";
    kit->checkForUpdates();
    turn();
    EXPECT_THAT(observer->told, ElementsAre("failed No prepared update is available", "ready 1.4.0",
                                            "no update No update is currently available."));
}

TEST_F(UpdateKitTest, TheStagedUpdateIsInstalledWhenAskedFor) {
    make();
    kit->checkForUpdates();
    turn();
    kit->installUpdate();
    turn();
    EXPECT_EQ(world.installations.size(), 1U);
    EXPECT_THAT(observer->told, ElementsAre("ready 1.4.0"));
}

TEST_F(UpdateKitTest, AfterItsDeathNobodyIsToldAnything) {
    make("file:///srv/latest.json");
    ownLoop.run();
    kit.reset();
    turn();
    EXPECT_THAT(observer->told, IsEmpty());
}

TEST_F(UpdateKitTest, ItsDeathEndsTheCoordinatorOnItsOwnThread) {
    make();
    turn();
    EXPECT_TRUE(world.reachability);
    world.held = {"download"};
    kit->checkForUpdates();
    turn();
    EXPECT_FALSE(world.staging().empty());
    kit.reset();
    EXPECT_TRUE(world.reachability) << "not within the call";
    ownLoop.run();
    EXPECT_FALSE(world.reachability);
    EXPECT_FALSE(ownLoop.hasTimers());
    EXPECT_THAT(world.staging(), IsEmpty());
}

TEST_F(UpdateKitTest, AnObserverMayEndIt) {
    make("file:///srv/latest.json");
    observer->onReady = [this] { kit.reset(); };
    turn();
    EXPECT_EQ(kit, nullptr);
    turn();
    EXPECT_THAT(observer->told, ElementsAre("ready 1.4.0"));
}

TEST_F(UpdateKitTest, WhatTheManifestTellsIsToldOnTheMainThread) {
    make();
    std::vector<std::string> told;
    const auto note = [&](Outcome<std::optional<ReadyUpdateInfo>> outcome) {
        try {
            const auto found = outcome.take();
            told.push_back(found ? found->version : "nothing");
        } catch (const UpdateKitError& error) {
            told.push_back(error.what());
        }
    };
    kit->availableUpdate(note);
    ownLoop.run();
    EXPECT_THAT(told, IsEmpty());
    mainLoop.run();
    world.manifest = R"({"version": "1.3", "url": "x"})";
    kit->availableUpdate(note);
    turn();
    world.failures["load"] = std::make_exception_ptr(std::runtime_error("off"));
    kit->availableUpdate(note);
    turn();
    EXPECT_THAT(told, ElementsAre("1.4.0", "nothing", "Failed to load release manifest: off"));
    EXPECT_THAT(observer->told, IsEmpty());
    EXPECT_THAT(world.staging(), IsEmpty());
}

TEST_F(UpdateKitTest, APreparationOfItsOwnIsNoEvent) {
    make();
    std::optional<StagedUpdate> staged;
    kit->prepareUpdate([&](Outcome<std::optional<StagedUpdate>> outcome) { staged = outcome.take(); });
    turn();
    ASSERT_TRUE(staged);
    EXPECT_EQ(staged->version, (SemanticVersion{1, 4, 0}));
    EXPECT_THAT(observer->told, IsEmpty());
}

TEST_F(UpdateKitTest, AVersionThatRunsForTheFirstTimeIsNotedOnce) {
    make();
    EXPECT_TRUE(kit->noteLaunchedVersion());
    EXPECT_EQ(defaults.stringForKey("UpdateKit.lastSeenVersion"), "1.3.0");
    EXPECT_FALSE(kit->noteLaunchedVersion());
    world.info["CFBundleShortVersionString"] = "v1.4";
    EXPECT_TRUE(kit->noteLaunchedVersion());
    EXPECT_EQ(defaults.stringForKey("UpdateKit.lastSeenVersion"), "1.4.0");
    world.info.clear();
    EXPECT_FALSE(kit->noteLaunchedVersion());
    world.info["CFBundleVersion"] = "odd";
    EXPECT_FALSE(kit->noteLaunchedVersion());
    EXPECT_EQ(defaults.stringForKey("UpdateKit.lastSeenVersion"), "1.4.0");
}

TEST_F(UpdateKitTest, TheTwoThreadsMayBeTwoThreads) {
    // For the thread sanitizer: the coordinator's loop turns on a thread of its own from beginning to end.
    for (int round = 0; round < 20; ++round) {
        std::unique_ptr<TestLoop> threadLoop;
        std::atomic<bool> isReady = false;
        std::atomic<bool> isEnding = false;
        std::optional<FakeUpdateWorld> threadWorld;
        std::thread thread([&] {
            threadLoop = std::make_unique<TestLoop>();
            threadWorld.emplace(*threadLoop);
            isReady = true;
            while (!isEnding) threadLoop->run();
            threadLoop->run();
        });
        while (!isReady) std::this_thread::yield();
        auto threaded = std::make_unique<UpdateKit>(mainLoop, *threadLoop, defaults,
                                                    *Url::parse("file:///srv/latest.json"), threadWorld->environment());
        Observer threadObserver(*threaded);
        if (round % 2 == 0)
            while (threadObserver.told.empty()) mainLoop.run();
        threaded.reset();
        isEnding = true;
        thread.join();
        mainLoop.run();
        EXPECT_EQ(threadObserver.told.size(), round % 2 == 0 ? 1U : 0U);
    }
}

}  // namespace
