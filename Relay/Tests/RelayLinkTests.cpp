// Greeting, first pack, presence, and the limits of links.

#include "RelayWorld.h"

#include <gtest/gtest.h>

namespace {

class RelayLinkTest : public testing::Test {
protected:
    RelayLinkTest() {
        world.admit(ada, true);
        world.admit(bob);
    }

    std::uint64_t closedFor(std::uint64_t RelayCounters::*counter) { return world.core().counters().*counter; }

    Somebody ada{"ada"};
    Somebody bob{"bob"};
    Somebody eve{"eve"};  // is not admitted
    RelayWorld world;
};

TEST_F(RelayLinkTest, EveryLinkIsGreetedWithAKeyOfItsOwn) {
    const TestLink& first = world.open(ada);
    const TestLink& second = world.open(ada);
    ASSERT_TRUE(first.serverKey && second.serverKey);
    EXPECT_NE(*first.serverKey, *second.serverKey);
}

TEST_F(RelayLinkTest, AMemberWhoSaysListIsAnsweredWithTheListThatNamesThemOnline) {
    const TestLink& link = world.join(ada);
    ASSERT_EQ(link.lists.size(), 1u);
    const std::vector<MetaPerson> expected{{ada.hex(), true, true}, {bob.hex(), false, false}};
    EXPECT_EQ(link.lists[0], expected);
    EXPECT_FALSE(link.closeCode);
}

TEST_F(RelayLinkTest, AKeyThatIsNotAdmittedIsClosedWith1008) {
    const TestLink& link = world.join(eve);
    EXPECT_EQ(link.closeCode, CloseCode::policyViolation);
    EXPECT_TRUE(link.lists.empty());
    EXPECT_EQ(closedFor(&RelayCounters::closedUnknownKey), 1u);
}

TEST_F(RelayLinkTest, AFirstPackThatIsNotTheSealedCommandListIsClosedWith1008) {
    const std::vector<std::function<Bytes(const TestLink&)>> wrong{
        [&](const TestLink&) { return Bytes(); },
        [&](const TestLink&) { return Bytes(88, 1); },
        [&](const TestLink&) { return Bytes(89, 1); },
        [&](const TestLink& link) { return RelayWorld::packOf(ada, *link.serverKey, "help"); },
        [&](const TestLink& link) { return RelayWorld::packOf(ada, *link.serverKey, "list "); },
        [&](const TestLink& link) { return RelayWorld::packOf(ada, *link.serverKey, ""); },
        [&](const TestLink&) { return RelayWorld::packOf(ada, bob.key(), "list"); },
        [&](const TestLink& link) {
            Bytes frame = RelayWorld::packOf(ada, *link.serverKey, "list");
            frame.back() ^= 1;
            return frame;
        },
        [&](const TestLink& link) {
            // Eve sealed the pack, but its sender says Ada.
            Bytes frame = RelayWorld::packOf(eve, *link.serverKey, "list");
            std::copy(ada.key().begin(), ada.key().end(), frame.begin());
            return frame;
        },
    };
    for (const auto& make : wrong) {
        TestLink& link = world.open(ada);
        world.frame(link, make(link));
        EXPECT_EQ(link.closeCode, CloseCode::policyViolation);
        EXPECT_TRUE(link.log.empty());
    }
    EXPECT_EQ(closedFor(&RelayCounters::closedBadFirstPack), wrong.size());
    EXPECT_EQ(world.core().gauges().links, 0u);
}

TEST_F(RelayLinkTest, ARecordedFirstPackOpensNoOtherLink) {
    TestLink& first = world.open(ada);
    const Bytes recorded = RelayWorld::packOf(ada, *first.serverKey, "list");
    world.frame(first, recorded);
    EXPECT_EQ(first.lists.size(), 1u);
    TestLink& second = world.open(ada);
    world.frame(second, recorded);
    EXPECT_EQ(second.closeCode, CloseCode::policyViolation);
}

TEST_F(RelayLinkTest, ALinkWithoutAFirstPackIsClosedInTimeAndMayComeBack) {
    const TestLink& link = world.open(ada);
    world.advance(world.limits.firstPack - 0.5);
    EXPECT_FALSE(link.closeCode);
    world.advance(2);
    EXPECT_EQ(link.closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(closedFor(&RelayCounters::closedFirstPackLate), 1u);
}

TEST_F(RelayLinkTest, WhoComesAndGoesIsToldToEverybodyWithinMilliseconds) {
    const TestLink& first = world.join(ada);
    TestLink& second = world.join(bob);
    EXPECT_FALSE(first.seesOnline(bob));
    world.advance(0.02);
    EXPECT_TRUE(first.seesOnline(bob));
    world.die(second);
    world.advance(0.02);
    EXPECT_FALSE(first.seesOnline(bob));
    EXPECT_EQ(first.lists.size(), 3u);
}

TEST_F(RelayLinkTest, AMemberWithTwoLinksIsOnlineUntilTheLastIsGone) {
    const TestLink& reader = world.join(ada);
    TestLink& first = world.join(bob);
    TestLink& second = world.join(bob);
    world.die(first);
    world.advance(0.02);
    EXPECT_TRUE(reader.seesOnline(bob));
    world.die(second);
    world.advance(0.02);
    EXPECT_FALSE(reader.seesOnline(bob));
}

TEST_F(RelayLinkTest, WhoGoesAndComesBackAtOnceCausesNoList) {
    const TestLink& reader = world.join(ada);
    TestLink& link = world.join(bob);
    world.advance(1);
    const auto before = reader.lists.size();
    world.die(link);
    world.join(bob);
    world.advance(1);
    EXPECT_EQ(reader.lists.size(), before);
}

TEST_F(RelayLinkTest, AboveAHundredMembersListsAreGatheredOverASecond) {
    std::vector<Somebody> crowd;
    for (int index = 0; index < 150; ++index) {
        crowd.emplace_back("somebody");
        world.admit(crowd.back());
    }
    const TestLink& watcher = world.join(ada);
    world.advance(2);
    const auto before = world.core().counters().listsSent;
    const auto watched = watcher.lists.size();
    for (const Somebody& person : crowd) {
        world.join(person);
        world.advance(0.001);
    }
    // Each newcomer was sent one list; the links that were there before have been sent none yet.
    EXPECT_EQ(world.core().counters().listsSent - before, crowd.size());
    world.advance(1.5);
    EXPECT_EQ(watcher.lists.size(), watched + 1);
    for (const Somebody& person : crowd) EXPECT_TRUE(watcher.seesOnline(person));
    EXPECT_LE(world.core().counters().listsSent - before, 2 * crowd.size() + 1);
}

TEST_F(RelayLinkTest, AQuietLinkIsPingedAndOneThatDoesNotAnswerIsClosedWith1001) {
    const TestLink& alive = world.join(ada);
    TestLink& dead = world.join(bob);
    world.advance(1);
    dead.isProving = false;
    world.advance(world.limits.silence / 2 + 2);
    EXPECT_EQ(dead.pings.size(), 1u);
    EXPECT_FALSE(dead.closeCode);
    world.advance(world.limits.silence + 2);
    EXPECT_EQ(dead.closeCode, CloseCode::goingAway);
    EXPECT_FALSE(alive.closeCode);
    EXPECT_FALSE(alive.seesOnline(bob));
    EXPECT_EQ(closedFor(&RelayCounters::closedSilent), 1u);
}

TEST_F(RelayLinkTest, APongThatAnswersNoPingProvesNothing) {
    TestLink& reader = world.join(bob);
    reader.isProving = false;
    TestLink& author = world.join(ada);
    world.advance(1);
    for (const std::uint64_t payload : std::exchange(reader.pings, {}))
        world.core().pongReceived(reader, payload, world.now);
    world.turn();
    world.write(author, bob, "one");
    world.core().pongReceived(reader, 12345, world.now);
    world.turn();
    EXPECT_EQ(world.core().counters().packsProved, 0u);
    world.core().pongReceived(reader, reader.pings.back(), world.now);
    EXPECT_EQ(world.core().counters().packsProved, 1u);
    world.core().pongReceived(reader, reader.pings.back(), world.now);
    EXPECT_EQ(world.core().counters().packsProved, 1u);
}

TEST_F(RelayLinkTest, LinksFromOneAddressAreLimitedAndGivenBack) {
    world.limits.linksPerAddress = 2;
    TestLink& first = world.open(ada, "here");
    world.open(ada, "here");
    EXPECT_EQ(world.open(ada, "here").closeCode, CloseCode::tryAgainLater);
    EXPECT_FALSE(world.open(ada, "there").closeCode);
    EXPECT_EQ(closedFor(&RelayCounters::closedAddressLinks), 1u);
    world.die(first);
    EXPECT_FALSE(world.open(ada, "here").closeCode);
}

TEST_F(RelayLinkTest, LinksAltogetherAreLimited) {
    world.limits.links = 2;
    world.open(ada, "1");
    world.open(ada, "2");
    EXPECT_EQ(world.open(ada, "3").closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(closedFor(&RelayCounters::closedTooManyLinks), 1u);
}

TEST_F(RelayLinkTest, AReaderThatProvesNothingIsClosedBeforeTooMuchIsQueued) {
    world.limits.queuedBytes = 10000;
    TestLink& slow = world.join(bob);
    slow.isProving = false;
    TestLink& author = world.join(ada);
    for (int count = 0; count < 200 && !slow.closeCode; ++count) {
        world.write(author, bob, std::string(100, 'x'));
        world.turn();
    }
    EXPECT_EQ(slow.closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(closedFor(&RelayCounters::closedSlowReader), 1u);
    // No pack for the slow reader is lost: all are kept as mail.
    EXPECT_EQ(world.core().gauges().mailPacks, slow.texts.size());
}

TEST_F(RelayLinkTest, AKeyThatSendsTooFastIsClosedWhenWhatWasReadIsPassedOn) {
    world.limits.textsPerSecond = 1;
    world.limits.burst = 2;
    TestLink& author = world.join(ada);
    const TestLink& reader = world.join(bob);
    // The limit assumes at least ten members, so one text a second allows ten packs a second here.
    for (int count = 0; count < 20; ++count) world.write(author, bob, "text");
    world.turn();
    EXPECT_FALSE(author.closeCode);
    world.write(author, bob, "one more");
    world.turn();
    EXPECT_EQ(author.closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(reader.texts.size(), 21u);
    EXPECT_EQ(closedFor(&RelayCounters::closedTooFast), 1u);
    // The limit belongs to the key: a new link does not lift it, time does.
    TestLink& again = world.join(ada);
    world.write(again, bob, "too early");
    world.turn();
    EXPECT_EQ(again.closeCode, CloseCode::tryAgainLater);
    world.advance(1);
    TestLink& later = world.join(ada);
    world.write(later, bob, "fine");
    world.turn();
    EXPECT_FALSE(later.closeCode);
}

TEST_F(RelayLinkTest, AFloodOfGarbageIsNotAnsweredBeyondTheLimitAndPacksInItArePassedOn) {
    world.limits.textsPerSecond = 1;
    world.limits.burst = 2;
    TestLink& author = world.join(ada);
    const TestLink& reader = world.join(bob);
    for (int count = 0; count < 1000; ++count) world.frame(author, {});
    world.write(author, bob, "text");
    EXPECT_FALSE(author.closeCode);
    world.turn();
    EXPECT_EQ(author.answers.size(), 20u);
    EXPECT_EQ(author.closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(closedFor(&RelayCounters::closedTooFast), 1u);
    EXPECT_EQ(reader.texts.size(), 1u);
}

TEST_F(RelayLinkTest, CommandsWhoseAnswersAreNotReadAreNotObeyedWithoutEnd) {
    world.limits.queuedBytes = 10000;
    TestLink& author = world.join(ada);
    for (int count = 0; count < 1000; ++count) world.say(author, "help");
    // The relay stops after the answer that exceeds the bound.
    EXPECT_LE(author.answers.size(), 1 + 10000 / author.answers.at(0).size());
    world.turn();
    EXPECT_EQ(author.closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(closedFor(&RelayCounters::closedSlowReader), 1u);
}

TEST_F(RelayLinkTest, TheRateGrowsWithTheNumberOfMembers) {
    world.limits.textsPerSecond = 1;
    world.limits.burst = 1;
    std::vector<Somebody> crowd;
    for (int index = 0; index < 48; ++index) {
        crowd.emplace_back("somebody");
        world.admit(crowd.back());
    }
    TestLink& author = world.join(ada);
    for (int count = 0; count < 50; ++count) world.write(author, bob, "text");
    world.turn();
    EXPECT_FALSE(author.closeCode);
    world.write(author, bob, "one more");
    world.turn();
    EXPECT_TRUE(author.closeCode);
}

TEST_F(RelayLinkTest, WhatIsReportedOfALinkThatIsClosedIsIgnored) {
    TestLink& link = world.open(eve);
    world.say(link, "list");
    ASSERT_TRUE(link.closeCode);
    world.say(link, "list");
    world.core().pongReceived(link, 1, world.now);
    world.core().linkClosed(link, world.now);
    world.core().linkClosed(link, world.now);
    EXPECT_EQ(closedFor(&RelayCounters::closedUnknownKey), 1u);
}

TEST_F(RelayLinkTest, ShuttingDownClosesEveryLinkWith1001AndRefusesNewOnes) {
    const TestLink& link = world.join(ada);
    const TestLink& silent = world.open(bob);
    EXPECT_TRUE(world.core().shutDown(world.now));
    EXPECT_EQ(link.closeCode, CloseCode::goingAway);
    EXPECT_EQ(silent.closeCode, CloseCode::goingAway);
    EXPECT_EQ(world.open(ada).closeCode, CloseCode::goingAway);
    EXPECT_EQ(closedFor(&RelayCounters::closedShutDown), 3u);
}

}  // namespace
