#include "StateKit/Internets.h"

#include <functional>
#include <memory>
#include <vector>

#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/TestLoop.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Status = Internets::Status;

struct Watcher : SignalTarget {
    std::vector<Status> seen;
    std::function<void()> then;

    void changed(const Status& status) {
        seen.push_back(status);
        if (then) then();
    }
};

struct InternetsTest : testing::Test {
    TestLoop loop;
    FakePath path;
    std::unique_ptr<Internets> internets = std::make_unique<Internets>(loop, path.monitor());
    Watcher watcher;

    void SetUp() override { internets->subscribe(watcher, &Watcher::changed); }
};

TEST_F(InternetsTest, IsOfflineUntilTheFirstReport) {
    EXPECT_EQ(internets->status(), Status::offline);
    internets->start();
    EXPECT_EQ(internets->status(), Status::offline);
    EXPECT_THAT(watcher.seen, IsEmpty());
}

TEST_F(InternetsTest, WatchesOnlyFromItsStart) {
    EXPECT_FALSE(path.isWatched());
    internets->start();
    EXPECT_TRUE(path.isWatched());
}

TEST_F(InternetsTest, EveryUpdateIsToldAlsoOneThatRepeatsTheStatus) {
    internets->start();
    path.update(true);
    path.update(true);
    path.update(false);
    path.update(false);
    EXPECT_THAT(watcher.seen, ElementsAre(Status::online, Status::online, Status::offline, Status::offline));
}

TEST_F(InternetsTest, TheStatusIsThereBeforeTheSubscribersAreTold) {
    internets->start();
    Status atThatMoment = Status::offline;
    watcher.then = [&] { atThatMoment = internets->status(); };
    path.update(true);
    EXPECT_EQ(atThatMoment, Status::online);
}

TEST_F(InternetsTest, StoppingEndsTheWatchAndKeepsTheStatus) {
    internets->start();
    path.update(true);
    internets->stop();
    EXPECT_FALSE(path.isWatched());
    EXPECT_EQ(internets->status(), Status::online);
}

TEST_F(InternetsTest, DestroyingItEndsTheWatch) {
    internets->start();
    internets.reset();
    EXPECT_FALSE(path.isWatched());
}

TEST_F(InternetsTest, MayBeDestroyedInsideAReport) {
    internets->start();
    watcher.then = [this] { internets.reset(); };
    path.update(true);
    EXPECT_THAT(watcher.seen, ElementsAre(Status::online));
    EXPECT_FALSE(path.isWatched());
}

TEST_F(InternetsTest, AMonitorThatReportsAfterTheEndIsNotHeard) {
    std::function<void(bool)> kept;
    struct LateMonitor : PathMonitor {
        explicit LateMonitor(std::function<void(bool)>& kept) : kept(kept) {}
        void start(std::function<void(bool)> handler) override { kept = std::move(handler); }
        void cancel() override {}
        std::function<void(bool)>& kept;
    };
    auto other = std::make_unique<Internets>(loop, std::make_unique<LateMonitor>(kept));
    other->start();
    other.reset();
    kept(true);
}

TEST(InternetsDeathTest, TheSharedOneMustBeConfiguredBeforeItsUse) {
    EXPECT_DEATH(Internets::shared(), "Internets.shared was used before it was configured");
}

TEST(InternetsSharedTest, IsMadeAndStartedOnceAtItsFirstUse) {
    static TestLoop loop;  // both outlive the shared instance
    static FakePath path;
    static int made = 0;
    Internets::configureShared([] {
        ++made;
        return std::make_unique<Internets>(loop, path.monitor());
    });
    EXPECT_EQ(made, 0);
    Internets& shared = Internets::shared();
    EXPECT_EQ(&shared, &Internets::shared());
    EXPECT_EQ(made, 1);
    EXPECT_EQ(path.startCount(), 1);
    path.update(true);
    EXPECT_EQ(shared.status(), Status::online);
}

}  // namespace
