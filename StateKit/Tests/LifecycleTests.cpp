#include "StateKit/Lifecycle.h"

#include <functional>
#include <memory>
#include <vector>

#include "TestSupport/FakeActivity.h"
#include "TestSupport/TestLoop.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

using Event = Lifecycle::Event;

struct Watcher : SignalTarget {
    std::vector<Event> seen;
    std::function<void()> then;

    void happened(const Event& event) {
        seen.push_back(event);
        if (then) then();
    }
};

struct LifecycleTest : testing::Test {
    TestLoop loop;
    FakeApplication application;
    std::unique_ptr<Lifecycle> lifecycle = std::make_unique<Lifecycle>(loop, application.activity());
    Watcher watcher;

    void SetUp() override { lifecycle->subscribe(watcher, &Watcher::happened); }
};

TEST_F(LifecycleTest, ObservesFromItsMaking) { EXPECT_TRUE(application.isObserved()); }

TEST_F(LifecycleTest, EachMoveIsItsEvent) {
    application.becomeActive();
    application.resignActive();
    application.terminate();
    EXPECT_THAT(watcher.seen, ElementsAre(Event::enteredForeground, Event::enteredBackground, Event::terminated));
}

TEST_F(LifecycleTest, KnowsWhetherTheApplicationIsInFrontAlsoInsideAReport) {
    std::vector<bool> reported;
    watcher.then = [&] { reported.push_back(lifecycle->isActive()); };
    EXPECT_FALSE(lifecycle->isActive());
    application.becomeActive();
    EXPECT_TRUE(lifecycle->isActive());
    application.resignActive();
    EXPECT_FALSE(lifecycle->isActive());
    EXPECT_THAT(reported, ElementsAre(true, false));
}

TEST_F(LifecycleTest, EveryLossOfTheActiveStateIsTold) {
    application.resignActive();
    application.resignActive();
    EXPECT_THAT(watcher.seen, ElementsAre(Event::enteredBackground, Event::enteredBackground));
}

TEST_F(LifecycleTest, DestroyingItEndsTheObservation) {
    lifecycle.reset();
    EXPECT_FALSE(application.isObserved());
}

TEST_F(LifecycleTest, MayBeDestroyedInsideAReport) {
    watcher.then = [this] { lifecycle.reset(); };
    application.terminate();
    application.becomeActive();
    EXPECT_THAT(watcher.seen, ElementsAre(Event::terminated));
}

TEST(LifecycleDeathTest, TheSharedOneMustBeConfiguredBeforeItsUse) {
    EXPECT_DEATH(Lifecycle::shared(), "Lifecycle.shared was used before it was configured");
}

TEST(LifecycleSharedTest, IsMadeOnceAtItsFirstUse) {
    static TestLoop loop;  // both outlive the shared instance
    static FakeApplication application;
    static int made = 0;
    Lifecycle::configureShared([] {
        ++made;
        return std::make_unique<Lifecycle>(loop, application.activity());
    });
    EXPECT_FALSE(application.isObserved());
    Lifecycle& shared = Lifecycle::shared();
    EXPECT_EQ(&shared, &Lifecycle::shared());
    EXPECT_EQ(made, 1);
    EXPECT_TRUE(application.isObserved());
}

}  // namespace
