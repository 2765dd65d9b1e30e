// A new link is handed the packs that an older link of the same member has not proved: when a network fails,
// the client is back within seconds, while the relay learns only after a minute or so that the old link is dead.

#include "RelayWorld.h"

#include <gtest/gtest.h>

namespace {

using Texts = std::vector<std::string>;

/// So long that a few packs fill a page of mail (256 KiB).
constexpr std::size_t longText = 60'000;

class RelayTakeOverTest : public testing::Test {
protected:
    RelayTakeOverTest() {
        world.admit(ada, true);
        world.admit(bob);
        world.admit(cai);
    }

    /// Long texts that begin with their numbers.
    Texts writeLong(TestLink& author, int from, int to) {
        Texts written;
        for (int number = from; number <= to; ++number) {
            written.push_back(std::to_string(number) + std::string(longText, '.'));
            world.write(author, bob, written.back());
        }
        world.turn();
        return written;
    }
    /// Lets a link answer the pings that it has received so far.
    void proveOnce(TestLink& link) {
        for (const std::uint64_t payload : std::exchange(link.pings, {}))
            world.core().pongReceived(link, payload, world.now);
        world.core().turnEnded(world.now);
    }
    void expectNothingIsLeft() {
        world.advance(1);
        EXPECT_TRUE(world.store.rows.empty());
        EXPECT_EQ(world.core().gauges().mailPacks, 0u);
        EXPECT_EQ(world.core().gauges().mailBytes, 0u);
        for (const Somebody* person : {&bob, &cai}) {
            TestLink& link = world.join(*person);
            EXPECT_TRUE(link.texts.empty());
            world.die(link);
        }
    }
    static Texts joined(Texts first, const Texts& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    Somebody ada{"ada"};
    Somebody bob{"bob"};
    Somebody cai{"cai"};
    RelayWorld world;
};

TEST_F(RelayTakeOverTest, ANewLinkIsHandedInOrderAndFirstWhatAnOlderOneHasNotProved) {
    for (const Seconds age : {0.0, 0.2}) {  // before the batch that writes the mail to the store, and after it
        TestLink& author = world.join(ada);
        TestLink& dead = world.join(bob, false);
        world.write(author, bob, "one");
        world.write(author, bob, "two");
        world.turn();
        world.advance(age);
        world.write(author, bob, "three");

        TestLink& back = world.open(bob);
        back.isProving = false;
        world.say(back, "list");
        world.write(author, bob, "four");
        world.turn();
        EXPECT_EQ(back.log, (Texts{"list", "text one", "text two", "text three", "ping"}));
        back.isProving = true;
        world.turn();
        EXPECT_EQ(back.texts, (Texts{"one", "two", "three", "four"}));
        EXPECT_EQ(dead.texts, (Texts{"one", "two", "three", "four"}));

        world.die(dead);
        world.advance(1);
        EXPECT_EQ(back.texts.size(), 4u);
        world.die(back);
        expectNothingIsLeft();
    }
}

TEST_F(RelayTakeOverTest, MailAndWhatWaitsBehindItAreTakenOverToo) {
    TestLink& author = world.join(ada);
    const Texts mail = writeLong(author, 1, 12);
    TestLink& dead = world.join(bob, false);
    const Texts live = writeLong(author, 13, 15);
    EXPECT_LT(dead.texts.size(), 12u);
    TestLink& back = world.join(bob, false);
    const Texts newer = writeLong(author, 16, 17);
    EXPECT_EQ(back.texts, dead.texts);
    back.isProving = true;
    world.turn();
    EXPECT_EQ(back.texts, joined(joined(mail, live), newer));
    world.die(dead);
    EXPECT_EQ(back.texts.size(), 17u);
    world.die(back);
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, WhatSeveralDeadLinksHoldComesOnceAndInOrder) {
    TestLink& author = world.join(ada);
    Texts written;
    std::vector<TestLink*> dead;
    for (int count = 0; count < 4; ++count) {
        dead.push_back(&world.join(bob, false));
        written = joined(written, writeLong(author, 3 * count + 1, 3 * count + 3));
        world.advance(0.03);
    }
    const TestLink& back = world.join(bob);
    EXPECT_EQ(back.texts, written);
    for (TestLink* link : dead) world.die(*link);
    EXPECT_EQ(back.texts, written);
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, WhatALivingLinkHasProvedIsNotHandedOnAgain) {
    TestLink& author = world.join(ada);
    world.join(bob, false);
    TestLink& alive = world.join(bob);
    world.write(author, bob, "one");
    world.turn();
    EXPECT_EQ(alive.texts, Texts{"one"});
    EXPECT_TRUE(world.join(bob).texts.empty());
}

TEST_F(RelayTakeOverTest, ASlowLinkThatLivesMissesAndRepeatsNothing) {
    TestLink& author = world.join(ada);
    TestLink& slow = world.join(bob, false);
    world.write(author, bob, "one");
    world.turn();
    const TestLink& second = world.join(bob);
    world.write(author, bob, "two");
    world.turn();
    world.advance(5);
    world.write(author, bob, "three");
    world.turn();
    slow.isProving = true;
    world.turn();
    world.write(author, bob, "four");
    world.turn();
    EXPECT_EQ(slow.texts, (Texts{"one", "two", "three", "four"}));
    EXPECT_EQ(second.texts, (Texts{"one", "two", "three", "four"}));
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, ASlowLinkRepeatsNothingWhenTheNewOneDiesAgain) {
    TestLink& author = world.join(ada);
    TestLink& slow = world.join(bob, false);
    const Texts written = writeLong(author, 1, 12);
    TestLink& brief = world.join(bob, false);
    EXPECT_FALSE(brief.texts.empty());
    world.die(brief);
    world.advance(1);
    EXPECT_EQ(world.core().gauges().mailPacks, 0u);
    slow.isProving = true;
    world.turn();
    EXPECT_EQ(slow.texts, written);
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, TwoLinksThatComeTogetherBothHaveTheMail) {
    TestLink& author = world.join(ada);
    const Texts mail = writeLong(author, 1, 12);
    TestLink& first = world.join(bob, false);
    TestLink& second = world.join(bob, false);
    for (int round = 0; round < 10; ++round) {
        // Both links were handed a page before the proof of one could spare the other that page.
        proveOnce(round % 2 == 0 ? first : second);
        proveOnce(round % 2 == 0 ? second : first);
    }
    first.isProving = second.isProving = true;
    const Texts live = writeLong(author, 13, 13);
    for (const TestLink* link : {&first, &second}) EXPECT_EQ(link->texts, joined(mail, live));
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, ALateProofOfTheOlderLinkSparesTheNewOneTheRest) {
    TestLink& author = world.join(ada);
    TestLink& slow = world.join(bob, false);
    const Texts written = writeLong(author, 1, 12);
    TestLink& back = world.join(bob, false);
    const std::size_t page = back.texts.size();
    EXPECT_LT(page, 12u);
    slow.isProving = true;
    world.turn();
    EXPECT_EQ(world.core().counters().packsProved, 12u);
    const Texts live = writeLong(author, 13, 13);
    EXPECT_EQ(back.texts.size(), page);
    back.isProving = true;
    world.turn();
    EXPECT_EQ(back.texts, joined(Texts(written.begin(), written.begin() + static_cast<std::ptrdiff_t>(page)), live));
    EXPECT_EQ(slow.texts, joined(written, live));
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, AnOlderLinkThatDiesMeanwhileChangesNothing) {
    for (const bool isFirstPageProved : {false, true}) {
        TestLink& author = world.join(ada);
        TestLink& dead = world.join(bob, false);
        const Texts written = writeLong(author, 1, 12);
        TestLink& back = world.join(bob, false);
        if (isFirstPageProved) proveOnce(back);
        const Texts live = writeLong(author, 13, 13);
        world.die(dead);
        world.advance(1);
        EXPECT_LT(back.texts.size(), 12u);
        back.isProving = true;
        world.turn();
        EXPECT_EQ(back.texts, joined(written, live));
        world.die(back);
        expectNothingIsLeft();
    }
}

TEST_F(RelayTakeOverTest, WhenBothDieUnprovedTheNextHasAllInOrder) {
    for (const bool isOlderFirst : {false, true}) {
        TestLink& author = world.join(ada);
        TestLink& older = world.join(bob, false);
        Texts written = writeLong(author, 1, 12);
        TestLink& newer = world.join(bob, false);
        written = joined(written, writeLong(author, 13, 14));
        world.die(isOlderFirst ? older : newer);
        world.die(isOlderFirst ? newer : older);
        EXPECT_EQ(world.core().gauges().mailPacks, 14u);
        TestLink& next = world.join(bob);
        EXPECT_EQ(next.texts, written);
        world.die(next);
        world.advance(1);
        EXPECT_TRUE(world.store.rows.empty());
    }
}

TEST_F(RelayTakeOverTest, RemovingTheMemberMeanwhileDeletesAllOfIt) {
    TestLink& admin = world.join(ada);
    const TestLink& older = world.join(bob, false);
    writeLong(admin, 1, 12);
    const TestLink& newer = world.join(bob, false);
    writeLong(admin, 13, 14);
    world.say(admin, "remove " + bob.hex());
    world.turn();
    EXPECT_EQ(older.closeCode, CloseCode::policyViolation);
    EXPECT_EQ(newer.closeCode, CloseCode::policyViolation);
    EXPECT_EQ(world.core().gauges().unprovedPacks, 0u);
    world.advance(1);
    EXPECT_TRUE(world.store.rows.empty());
    world.say(admin, "add " + bob.hex());
    EXPECT_TRUE(world.join(bob).texts.empty());
}

TEST_F(RelayTakeOverTest, AFullQueueIsTakenOverInPagesThatAreWithinTheBounds) {
    world.limits.queuedBytes = 1'000'000;
    TestLink& author = world.join(ada);
    TestLink& dead = world.join(bob, false);
    const Texts written = writeLong(author, 1, 16);  // a little less than the bound
    ASSERT_FALSE(dead.closeCode);
    const TestLink& back = world.join(bob);
    EXPECT_FALSE(back.closeCode);
    EXPECT_EQ(back.texts, written);
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, ANewLinkThatDoesNotReadIsClosedAtTheBoundsToo) {
    world.limits.queuedBytes = 1'000'000;
    TestLink& author = world.join(ada);
    const TestLink& dead = world.join(bob, false);
    Texts written = writeLong(author, 1, 10);
    const TestLink& deaf = world.join(bob, false);
    written = joined(written, writeLong(author, 11, 18));
    EXPECT_EQ(dead.closeCode, CloseCode::tryAgainLater);
    EXPECT_FALSE(deaf.closeCode);
    written = joined(written, writeLong(author, 19, 30));
    EXPECT_EQ(deaf.closeCode, CloseCode::tryAgainLater);
    EXPECT_EQ(world.core().counters().closedSlowReader, 2u);
    EXPECT_EQ(world.core().gauges().mailPacks, 30u);
    EXPECT_EQ(world.join(bob).texts, written);
    expectNothingIsLeft();
}

TEST_F(RelayTakeOverTest, OnlyThePacksOfTheOneMemberAreWrittenForIt) {
    TestLink& author = world.join(ada);
    world.join(bob, false);
    world.join(cai, false);
    world.write(author, bob, "for Bob");
    world.write(author, cai, "for Cai");
    world.join(bob, false);
    EXPECT_EQ(world.store.rows.size(), 1u);
}

TEST_F(RelayTakeOverTest, WithoutAnythingUnprovedTheStoreIsNotAsked) {
    TestLink& author = world.join(ada);
    world.join(bob);
    world.write(author, bob, "hello");
    world.turn();
    const std::size_t before = world.store.operations;
    world.join(bob);
    EXPECT_EQ(world.store.operations, before);
}

TEST_F(RelayTakeOverTest, APackToOneselfIsNotTakenOver) {
    TestLink& first = world.join(bob);
    world.join(bob, false);
    world.write(first, bob, "note");
    world.turn();
    EXPECT_TRUE(world.join(bob).texts.empty());
    EXPECT_TRUE(world.store.rows.empty());
}

TEST_F(RelayTakeOverTest, AfterAKilledRelayItComesOnce) {
    TestLink& author = world.join(ada);
    world.join(bob, false);
    const Texts written = writeLong(author, 1, 8);
    world.join(bob, false);
    world.kill();
    EXPECT_EQ(world.join(bob).texts, written);
    expectNothingIsLeft();
}

/// Takes over an older link's packs while the n-th operation of the store fails.
class RelayTakeOverFailureTest : public testing::TestWithParam<int> {};

TEST_P(RelayTakeOverFailureTest, NothingIsLostAndOrderHolds) {
    const Somebody ada("ada"), bob("bob");
    RelayWorld world;
    world.admit(ada, true);
    world.admit(bob);
    TestLink& author = world.join(ada);
    TestLink& older = world.join(bob, false);
    Texts written;
    const auto write = [&](int count) {
        for (; count > 0 && !author.closeCode; --count) {
            written.push_back(std::to_string(written.size() + 1) + std::string(longText, '.'));
            world.write(author, bob, written.back());
        }
        world.turn();
    };
    write(12);
    world.store.failAfter(GetParam(), 2);
    TestLink& newer = world.join(bob, false);
    write(2);
    newer.isProving = true;
    world.turn();
    world.advance(1);
    write(1);
    const bool hasFailed = world.core().counters().storeFailures > 0;
    for (const TestLink* link : {&author, &older, &newer}) {
        EXPECT_EQ(link->closeCode, hasFailed ? std::optional(CloseCode::internalError) : std::nullopt);
    }
    EXPECT_EQ(hasFailed, GetParam() < 8) << "the test must fail the store everywhere, and not only there";
    world.advance(10);
    EXPECT_FALSE(world.core().storeFailure());
    const TestLink& last = world.join(bob);
    ASSERT_LE(last.texts.size(), written.size());
    ASSERT_GE(newer.texts.size() + last.texts.size(), written.size());
    // The last link gets exactly the packs that the new link has not proved: none is left out or proved before.
    Texts all(newer.texts.begin(),
              newer.texts.begin() + static_cast<std::ptrdiff_t>(written.size() - last.texts.size()));
    all.insert(all.end(), last.texts.begin(), last.texts.end());
    EXPECT_EQ(all, written);
    world.advance(1);
    EXPECT_TRUE(world.store.rows.empty());
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, RelayTakeOverFailureTest, testing::Range(0, 12));

}  // namespace
