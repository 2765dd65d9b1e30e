#include "StateKit/Core.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport/TestLoop.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Page {
    std::vector<std::string> lines;
    int number = 0;

    bool operator==(const Page&) const = default;
};

/// Sees of the page only its number.
struct PageNumber {
    using StateType = Page;
    explicit PageNumber(const Page* page) : number(page ? page->number : -1) {}

    int number;
    bool operator==(const PageNumber&) const = default;
};

auto adding(std::string line) {
    return [line = std::move(line)](Page& page) { page.lines.push_back(line); };
}

struct Reader : SignalTarget {
    std::vector<std::vector<std::string>> read;
    std::vector<int> numbers;

    void pageChanged(const Page& page) { read.push_back(page.lines); }
    void numberChanged(const PageNumber& subset) { numbers.push_back(subset.number); }
};

struct CoreTest : testing::Test {
    TestLoop loop;
    std::shared_ptr<Core<Page>> core = Core<Page>::make(loop, {});
    Reader reader;

    void subscribe() { core->subscribe(reader, &Reader::pageChanged); }
    const std::vector<std::string>& lines() { return core->state().lines; }
};

TEST_F(CoreTest, StartsWithTheStateThatItWasGivenAndPublishesNothing) {
    const auto other = Core<Page>::make(loop, {{"a"}, 3});
    EXPECT_EQ(other->state(), (Page{{"a"}, 3}));
    subscribe();
    loop.run();
    EXPECT_THAT(reader.read, IsEmpty());
}

TEST_F(CoreTest, ACommitReachesTheSubscribersBeforeItReturns) {
    subscribe();
    core->commit(adding("a"));
    EXPECT_THAT(reader.read, ElementsAre(ElementsAre("a")));
    EXPECT_THAT(lines(), ElementsAre("a"));
}

TEST_F(CoreTest, ResendGivesTheStateToThatSubscriberOnly) {
    Reader other;
    core->subscribe(other, &Reader::pageChanged);
    core->commit(adding("a"));
    subscribe();
    EXPECT_THAT(reader.read, IsEmpty());
    core->resend(reader);
    EXPECT_THAT(reader.read, ElementsAre(ElementsAre("a")));
    EXPECT_EQ(other.read.size(), 1u);
}

TEST_F(CoreTest, ResendGoesThroughTheFilterOfTheSubscriber) {
    core->subscribeSubset<PageNumber>(reader, &Reader::numberChanged);
    core->resend(reader);
    core->resend(reader);
    EXPECT_THAT(reader.numbers, ElementsAre(0));
}

TEST_F(CoreTest, ACommitBeneathAnOverlayIsShownUnderItAndStaysWithoutIt) {
    const auto token = core->overlay(adding("overlay"));
    core->commit(adding("commit"));
    EXPECT_THAT(lines(), ElementsAre("commit", "overlay"));
    core->removeOverlay(token);
    EXPECT_THAT(lines(), ElementsAre("commit"));
}

TEST_F(CoreTest, OverlaysAreReplayedInTheirOrderWhateverWasCommittedBetweenThem) {
    core->commit(adding("1"));
    const auto a = core->overlay(adding("A"));
    core->commit(adding("2"));
    const auto b = core->overlay(adding("B"));
    core->commit(adding("3"));
    EXPECT_THAT(lines(), ElementsAre("1", "2", "3", "A", "B"));
    core->removeOverlay(a);
    EXPECT_THAT(lines(), ElementsAre("1", "2", "3", "B"));
    core->removeOverlay(b);
    EXPECT_THAT(lines(), ElementsAre("1", "2", "3"));
}

TEST_F(CoreTest, AnOverlayIsReplayedAndNotKeptAsAValue) {
    (void)core->overlay([](Page& page) { page.number *= 10; });
    core->commit([](Page& page) { page.number = 3; });
    EXPECT_EQ(core->state().number, 30);
    core->commit([](Page& page) { EXPECT_EQ(page.number, 3); });
}

TEST_F(CoreTest, TokensRiseFromOneAndAreNeverReused) {
    const auto first = core->overlay(adding("A"));
    const auto second = core->overlay(adding("B"));
    core->removeOverlay(first);
    core->removeOverlay(second);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_EQ(core->overlay(adding("C")), 3);
}

TEST_F(CoreTest, OverlayAndRemovalPublishOnceEach) {
    subscribe();
    const auto token = core->overlay(adding("A"));
    core->removeOverlay(token);
    EXPECT_THAT(reader.read, ElementsAre(ElementsAre("A"), IsEmpty()));
}

TEST_F(CoreTest, RemovingATokenThatNamesNoneChangesNothingAndPublishesOnce) {
    const auto token = core->overlay(adding("A"));
    const auto kept = core->overlay(adding("B"));
    core->removeOverlay(token);
    subscribe();
    core->removeOverlay(token);
    core->removeOverlay(99);
    core->removeOverlay(0);
    EXPECT_EQ(reader.read.size(), 3u);
    EXPECT_THAT(lines(), ElementsAre("B"));
    core->removeOverlay(kept);
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(CoreTest, ACommitThatChangesNothingReachesPlainSubscribersButNotSubsets) {
    Reader other;
    subscribe();
    core->subscribeSubset<PageNumber>(other, &Reader::numberChanged);
    core->commit([](Page&) {});
    core->commit([](Page&) {});
    EXPECT_EQ(reader.read.size(), 2u);
    EXPECT_EQ(other.numbers.size(), 1u);  // the first value is always delivered
}

TEST_F(CoreTest, ChangesAreToldByTheMembersThatWereNamed) {
    core->subscribeChanges(reader, std::tuple{&Page::number}, &Reader::pageChanged);
    core->resend(reader);
    core->commit(adding("a"));
    EXPECT_EQ(reader.read.size(), 1u);
    core->commit([](Page& page) { page.number = 5; });
    EXPECT_THAT(reader.read, ElementsAre(IsEmpty(), ElementsAre("a")));
}

TEST_F(CoreTest, AnActionReadsTheNewStateFromTheStore) {
    std::vector<std::string> seen;
    core->subscribe(reader, [&](Reader&, const Page&) { seen = core->state().lines; });
    core->commit(adding("a"));
    EXPECT_THAT(seen, ElementsAre("a"));
}

TEST_F(CoreTest, ACommitInsideAnActionCompletesBeforeTheOuterDeliveryGoesOn) {
    Reader after;
    core->subscribe(reader, [&](Reader& self, const Page& page) {
        self.pageChanged(page);
        if (page.lines.size() == 1) core->commit(adding("b"));
    });
    core->subscribe(after, &Reader::pageChanged);
    core->commit(adding("a"));
    EXPECT_THAT(reader.read, ElementsAre(ElementsAre("a"), ElementsAre("a", "b")));
    EXPECT_THAT(after.read, ElementsAre(ElementsAre("a", "b"), ElementsAre("a")));
    EXPECT_THAT(lines(), ElementsAre("a", "b"));
}

TEST_F(CoreTest, ACommitInsideAMutationIsLostButPublished) {
    subscribe();
    core->commit([&](Page& page) {
        page.lines.push_back("outer");
        core->commit(adding("inner"));
        EXPECT_THAT(lines(), ElementsAre("inner"));
    });
    EXPECT_THAT(lines(), ElementsAre("outer"));
    EXPECT_THAT(reader.read, ElementsAre(ElementsAre("inner"), ElementsAre("outer")));
}

TEST_F(CoreTest, AnOverlayMayRemoveItself) {
    Core<Page>::Token token = 0;
    int runs = 0;
    token = core->overlay([&, kept = std::string("captured, and long enough for the heap")](Page& page) {
        if (++runs == 2) core->removeOverlay(token);
        page.lines.push_back(kept);
    });
    core->commit([](Page&) {});
    core->commit([](Page&) {});
    EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(CoreTest, AMutationThatThrowsLeavesTheStateAsItWas) {
    subscribe();
    core->commit(adding("a"));
    EXPECT_THROW(core->commit([](Page& page) {
        page.lines.push_back("b");
        throw 1;
    }),
                 int);
    EXPECT_THAT(lines(), ElementsAre("a"));
    EXPECT_EQ(reader.read.size(), 1u);
}

TEST_F(CoreTest, TheOwnerMayDropTheStoreInsideAnAction) {
    Reader after;
    core->subscribe(reader,
                    [&, kept = std::string("captured, and long enough for the heap")](Reader& self, const Page&) {
                        core.reset();
                        self.read.push_back({kept});
                    });
    core->subscribe(after, &Reader::pageChanged);
    const auto held = core;
    held->commit(adding("a"));
    EXPECT_EQ(reader.read.size(), 1u);
    EXPECT_THAT(after.read, ElementsAre(ElementsAre("a")));
}

TEST_F(CoreTest, DestructionTellsNobody) {
    subscribe();
    core.reset();
    loop.run();
    EXPECT_THAT(reader.read, IsEmpty());
}

/// Tells on which thread it died.
struct Tracer {
    std::thread::id* diedOn;
    explicit Tracer(std::thread::id* diedOn) : diedOn(diedOn) {}
    ~Tracer() { *diedOn = std::this_thread::get_id(); }
};

TEST_F(CoreTest, AStoreWhoseLastReferenceFallsOnAnotherThreadDiesOnTheMainThread) {
    std::thread::id diedOn;
    core->subscribe(reader, [tracer = std::make_shared<Tracer>(&diedOn)](Reader&, const Page&) {});
    std::thread([held = std::move(core)]() mutable { held.reset(); }).join();
    EXPECT_EQ(diedOn, std::thread::id());
    loop.run();
    EXPECT_EQ(diedOn, std::this_thread::get_id());
}

TEST_F(CoreTest, AStoreThatNoLoopWillDropAnyMoreDiesWithTheLoop) {
    std::thread::id diedOn;
    {
        TestLoop shortLived;
        auto dying = Core<Page>::make(shortLived, {});
        dying->subscribe(reader, [tracer = std::make_shared<Tracer>(&diedOn)](Reader&, const Page&) {});
        std::thread([held = std::move(dying)]() mutable { held.reset(); }).join();
        EXPECT_EQ(diedOn, std::thread::id());
    }
    EXPECT_EQ(diedOn, std::this_thread::get_id());
}

}  // namespace
