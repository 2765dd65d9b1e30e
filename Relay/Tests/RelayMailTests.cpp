// Packs: their routing, order, proof and mail, and what happens to them when the store fails.

#include "RelayWorld.h"

#include <gtest/gtest.h>

namespace {

using Texts = std::vector<std::string>;

class RelayMailTest : public testing::Test {
protected:
    RelayMailTest() {
        world.admit(ada, true);
        world.admit(bob);
        world.admit(cai);
    }

    Somebody ada{"ada"};
    Somebody bob{"bob"};
    Somebody cai{"cai"};
    Somebody eve{"eve"};  // is not admitted
    RelayWorld world;
};

TEST_F(RelayMailTest, APackGoesToEveryLinkOfItsTargetAndToNobodyElse) {
    TestLink& author = world.join(ada);
    const TestLink& first = world.join(bob);
    const TestLink& second = world.join(bob);
    const TestLink& other = world.join(cai);
    world.write(author, bob, "hello");
    world.turn();
    EXPECT_EQ(first.texts, Texts{"hello"});
    EXPECT_EQ(second.texts, Texts{"hello"});
    EXPECT_TRUE(other.texts.empty());
    EXPECT_TRUE(author.texts.empty());
}

TEST_F(RelayMailTest, APackOfAnotherAuthorThanItsLinksKeyIsRefused) {
    TestLink& link = world.join(ada);
    const TestLink& reader = world.join(bob);
    world.frame(link, RelayWorld::packOf(cai, bob.key(), "forged"));
    world.turn();
    EXPECT_TRUE(reader.texts.empty());
    EXPECT_EQ(link.answers, Texts{"cerr The author of a pack must be the key of its link."});
    EXPECT_EQ(world.core().counters().refusedAuthor, 1u);
}

TEST_F(RelayMailTest, APackToOneselfGoesToTheOtherLinksAndIsDroppedWithoutOne) {
    TestLink& first = world.join(ada);
    TestLink& second = world.join(ada);
    world.write(first, ada, "note");
    world.turn();
    EXPECT_TRUE(first.texts.empty());
    EXPECT_EQ(second.texts, Texts{"note"});
    world.die(second);
    world.write(first, ada, "nobody reads this");
    world.advance(1);
    EXPECT_TRUE(first.texts.empty());
    EXPECT_TRUE(first.answers.empty());
    EXPECT_TRUE(world.store.rows.empty());
    EXPECT_EQ(world.core().gauges().mailPacks, 0u);
}

TEST_F(RelayMailTest, APackToOneselfWhoseReaderDiesIsNotMail) {
    TestLink& first = world.join(ada);
    TestLink& second = world.join(ada, false);
    world.write(first, ada, "note");
    world.advance(1);
    world.die(second);
    world.advance(1);
    EXPECT_TRUE(first.texts.empty());
    EXPECT_TRUE(world.store.rows.empty());
}

TEST_F(RelayMailTest, AnUnknownTargetIsAnErrorToTheAuthorAndNothingIsStored) {
    TestLink& link = world.join(ada);
    world.write(link, eve, "hello?");
    world.advance(1);
    EXPECT_EQ(link.answers, Texts{"cerr There is no member " + eve.hex() + "."});
    EXPECT_TRUE(world.store.rows.empty());
    EXPECT_FALSE(link.closeCode);
}

TEST_F(RelayMailTest, APackThatIsTooLargeIsAnErrorToTheAuthorAndNothingIsStored) {
    world.limits.packBytes = 200;
    TestLink& link = world.join(ada);
    world.write(link, bob, std::string(200 - 104, 'x'));
    EXPECT_TRUE(link.answers.empty());
    world.write(link, bob, std::string(200 - 103, 'x'));
    EXPECT_EQ(link.answers, Texts{"cerr That pack is too large: 201 bytes, and at most 200 are taken."});
    world.advance(1);
    EXPECT_EQ(world.store.rows.size(), 1u);
}

TEST_F(RelayMailTest, AFrameThatIsNoPackIsAnErrorToItsSender) {
    TestLink& link = world.join(ada);
    world.frame(link, Bytes(88, 1));
    EXPECT_EQ(link.answers, Texts{"cerr That was no pack."});
    EXPECT_FALSE(link.closeCode);
}

TEST_F(RelayMailTest, AFullMailboxIsAnErrorToTheAuthor) {
    world.limits.mailPacks = 2;
    TestLink& link = world.join(ada);
    for (const char* text : {"one", "two", "three"}) world.write(link, bob, text);
    EXPECT_EQ(link.answers, Texts{"cerr The mailbox of " + bob.hex() + " is full."});
    world.advance(1);
    EXPECT_EQ(world.store.rows.size(), 2u);
    // Mail that was delivered makes room in the mailbox.
    world.die(world.join(bob));
    world.write(link, bob, "four");
    EXPECT_EQ(link.answers.size(), 1u);
}

TEST_F(RelayMailTest, AMailboxIsFullByItsBytesToo) {
    world.limits.mailBytes = 250;
    TestLink& link = world.join(ada);
    world.write(link, bob, "one");
    world.write(link, bob, "two");
    world.write(link, bob, "three");
    EXPECT_EQ(link.answers, Texts{"cerr The mailbox of " + bob.hex() + " is full."});
}

TEST_F(RelayMailTest, MailComesInOrderAfterTheListAndBeforeLivePacks) {
    TestLink& author = world.join(ada);
    for (const char* text : {"one", "two", "three"}) world.write(author, bob, text);
    world.advance(1);
    world.write(author, bob, "four");  // not yet written to the store
    TestLink& reader = world.open(bob);
    reader.isProving = false;
    world.say(reader, "list");
    world.write(author, bob, "five");
    world.turn();
    EXPECT_EQ(reader.log, (Texts{"list", "text one", "text two", "text three", "text four", "ping"}));
    reader.isProving = true;
    world.turn();
    EXPECT_EQ(reader.texts, (Texts{"one", "two", "three", "four", "five"}));
    world.advance(1);
    EXPECT_TRUE(world.store.rows.empty());
    EXPECT_EQ(world.core().gauges().mailPacks, 0u);
}

TEST_F(RelayMailTest, ManyPagesOfMailComeInOrderWithLivePacksBehind) {
    TestLink& author = world.join(ada);
    Texts expected;
    for (int index = 0; index < 2500; ++index) {
        expected.push_back(std::to_string(index));
        world.write(author, bob, expected.back());
    }
    TestLink& reader = world.join(bob, false);
    for (int round = 0; reader.texts.size() < 2600; ++round) {
        ASSERT_LT(round, 1000);
        if (expected.size() < 2600) {
            expected.push_back("live " + std::to_string(round));
            world.write(author, bob, expected.back());
        }
        for (const std::uint64_t payload : std::exchange(reader.pings, {}))
            world.core().pongReceived(reader, payload, world.now);
        world.core().turnEnded(world.now);
    }
    EXPECT_EQ(reader.texts, expected);
}

TEST_F(RelayMailTest, APackThatIsProvedAtOnceNeverTouchesTheStore) {
    TestLink& author = world.join(ada);
    const TestLink& reader = world.join(bob);
    world.advance(1);
    const std::size_t before = world.store.operations;
    for (int count = 0; count < 100; ++count) {
        world.write(author, bob, "hello");
        world.turn();
        world.advance(0.01);
    }
    EXPECT_EQ(reader.texts.size(), 100u);
    EXPECT_EQ(world.core().counters().packsProved, 100u);
    EXPECT_EQ(world.store.operations, before);
}

TEST_F(RelayMailTest, APackIsInTheStoreWithinATenthOfASecondUnlessItIsProved) {
    TestLink& author = world.join(ada);
    TestLink& reader = world.join(bob, false);
    world.advance(0.5);
    for (int step = 0; step < 50; ++step) {
        world.write(author, bob, "held " + std::to_string(step));
        world.write(author, cai, "mail " + std::to_string(step));
        world.turn();
        world.advance(0.007);
        for (const auto& [id, row] : world.store.rows) EXPECT_LE(row.arrived, world.now);
        // The store has every pack that arrived more than a tenth of a second ago.
        const std::size_t due = step < 15 ? 0 : 2 * (step - 15 + 1);
        EXPECT_GE(world.store.rows.size(), due) << step;
    }
    world.kill();
    EXPECT_GE(world.store.rows.size(), 2 * (50u - 15u));
    (void)reader;
}

TEST_F(RelayMailTest, WhatIsInTheStoreComesAfterAKilledRelayStartsAgain) {
    TestLink& author = world.join(ada);
    world.join(bob, false);
    world.write(author, bob, "one");
    world.write(author, bob, "two");
    world.turn();
    world.advance(0.1);
    world.kill();
    EXPECT_EQ(world.join(bob).texts, (Texts{"one", "two"}));
    world.advance(1);
    EXPECT_TRUE(world.store.rows.empty());
}

TEST_F(RelayMailTest, AProvedPackIsForgottenInTheStoreToo) {
    TestLink& author = world.join(ada);
    TestLink& reader = world.join(bob, false);
    world.write(author, bob, "slow");
    world.turn();
    world.advance(0.2);
    EXPECT_EQ(world.store.rows.size(), 1u);
    reader.isProving = true;
    world.turn();
    world.advance(0.2);
    EXPECT_TRUE(world.store.rows.empty());
    world.die(reader);
    EXPECT_TRUE(world.join(bob).texts.empty());
}

TEST_F(RelayMailTest, WhatALinkHeldWithoutProofIsMailWhenItDies) {
    for (const Seconds life : {0.0, 0.2}) {  // before the batch that writes the mail to the store, and after it
        TestLink& author = world.join(ada);
        TestLink& reader = world.join(bob, false);
        world.write(author, bob, "one");
        world.write(author, bob, "two");
        world.turn();
        EXPECT_EQ(reader.texts.size(), 2u);
        world.advance(life);
        world.die(reader);
        EXPECT_EQ(world.core().gauges().mailPacks, 2u);
        TestLink& again = world.join(bob);
        EXPECT_EQ(again.texts, (Texts{"one", "two"}));
        EXPECT_EQ(world.core().gauges().mailPacks, 0u);
        world.die(again);
    }
}

TEST_F(RelayMailTest, OneProofIsEnoughOfTwoLinks) {
    TestLink& author = world.join(ada);
    TestLink& deaf = world.join(bob, false);
    world.join(bob);
    world.write(author, bob, "one");
    world.turn();
    world.die(deaf);
    world.advance(1);
    EXPECT_EQ(world.core().gauges().mailPacks, 0u);
    EXPECT_TRUE(world.store.rows.empty());
}

TEST_F(RelayMailTest, MailThatALinkHasNotProvedGoesToTheNextOneToo) {
    TestLink& author = world.join(ada);
    world.write(author, bob, "one");
    world.write(author, bob, "two");
    TestLink& first = world.join(bob, false);
    EXPECT_EQ(first.texts.size(), 2u);
    TestLink& second = world.join(bob);
    world.write(author, bob, "live");
    world.turn();
    EXPECT_EQ(second.texts, (Texts{"one", "two", "live"}));
    world.die(first);
    world.advance(1);
    EXPECT_EQ(second.texts, (Texts{"one", "two", "live"}));
    EXPECT_TRUE(world.store.rows.empty());
}

TEST_F(RelayMailTest, AListThatNamesTheAuthorGoesBeforeTheAuthorsPack) {
    TestLink& admin = world.join(ada);
    const TestLink& reader = world.join(bob);
    world.advance(1);
    world.say(admin, "add " + eve.hex());
    TestLink& newcomer = world.join(eve);
    world.write(newcomer, bob, "I am new");
    world.turn();
    // No time has passed, so the delayed list to all links has not been sent yet.
    ASSERT_EQ(reader.texts, Texts{"I am new"});
    EXPECT_TRUE(reader.knows(eve));
    const auto text = std::find(reader.log.begin(), reader.log.end(), "text I am new");
    EXPECT_EQ(*(text - 1), "list");
}

TEST_F(RelayMailTest, AListThatNamesTheAuthorGoesBeforeWhatWaitedBehindTheMail) {
    TestLink& admin = world.join(ada);
    world.write(admin, bob, "old");
    world.advance(0.5);
    TestLink& reader = world.join(bob, false);
    world.say(admin, "add " + eve.hex());
    TestLink& newcomer = world.join(eve);
    // The reader's link is still being handed mail, and has not been told of the newcomer.
    world.write(newcomer, bob, "new");
    world.turn();
    ASSERT_EQ(reader.texts, Texts{"old"});
    reader.isProving = true;
    world.turn();
    const auto text = std::find(reader.log.begin(), reader.log.end(), "text new");
    ASSERT_NE(text, reader.log.end());
    EXPECT_EQ(std::count(reader.log.begin(), text, "list"), 2);
    EXPECT_TRUE(reader.knows(eve));
}

TEST_F(RelayMailTest, RemovingAMemberClosesTheirLinksWith1008AndDeletesTheirMail) {
    TestLink& admin = world.join(ada);
    TestLink& author = world.join(cai);
    world.write(author, bob, "waits");
    world.advance(1);
    world.write(author, bob, "is not yet written");
    const TestLink& removed = world.join(bob, false);
    world.say(admin, "remove " + bob.hex());
    world.turn();
    EXPECT_EQ(removed.closeCode, CloseCode::policyViolation);
    EXPECT_EQ(world.core().counters().closedRemoved, 1u);
    world.advance(1);
    EXPECT_TRUE(world.store.rows.empty());
    EXPECT_FALSE(admin.knows(bob));
    world.say(admin, "add " + bob.hex());
    EXPECT_TRUE(world.join(bob).texts.empty());
}

TEST_F(RelayMailTest, ChangesOfTheMembersInTheStoreAreFollowed) {
    TestLink& admin = world.join(ada);
    const TestLink& removed = world.join(bob);
    world.advance(1);
    world.store.people = {{ada.key(), false}, {cai.key(), true}, {eve.key(), false}};
    world.core().membersChanged(world.now);
    world.advance(0.1);
    EXPECT_EQ(removed.closeCode, CloseCode::policyViolation);
    const std::vector<MetaPerson> expected{
        {ada.hex(), false, true}, {cai.hex(), true, false}, {eve.hex(), false, false}};
    EXPECT_EQ(admin.lists.back(), expected);
    EXPECT_FALSE(world.join(eve).closeCode);
}

TEST_F(RelayMailTest, MailThatIsTooOldIsDeleted) {
    world.limits.mailDays = 1;
    TestLink& author = world.join(ada);
    world.write(author, bob, "old");
    world.advance(20 * 3600);
    world.write(author, bob, "young");
    world.advance(6 * 3600);
    EXPECT_EQ(world.core().counters().mailExpired, 1u);
    EXPECT_EQ(world.core().gauges().mailPacks, 1u);
    EXPECT_EQ(world.join(bob).texts, Texts{"young"});
}

TEST_F(RelayMailTest, ARelayThatStartsDeletesNothingForAnHour) {
    world.limits.mailDays = 1;
    world.write(world.join(ada), bob, "old");
    world.advance(1);
    world.kill();
    world.now = world.now + 2 * 86400;
    world.core();
    world.advance(3599);
    EXPECT_EQ(world.core().gauges().mailPacks, 1u);
    world.advance(2);
    EXPECT_EQ(world.core().gauges().mailPacks, 0u);
}

TEST_F(RelayMailTest, ShuttingDownPutsWhatIsNotProvedIntoTheMail) {
    TestLink& author = world.join(ada);
    world.join(bob, false);
    world.write(author, bob, "held");
    world.write(author, cai, "mail");
    world.turn();
    EXPECT_TRUE(world.store.rows.empty());
    EXPECT_TRUE(world.core().shutDown(world.now));
    EXPECT_EQ(world.store.rows.size(), 2u);
    world.kill();
    EXPECT_EQ(world.join(bob).texts, Texts{"held"});
}

TEST_F(RelayMailTest, ShuttingDownWithAFailingStoreSaysSoAndCanBeRepeated) {
    TestLink& author = world.join(ada);
    world.write(author, cai, "mail");
    world.store.failAfter(0, 1);
    EXPECT_FALSE(world.core().shutDown(world.now));
    EXPECT_EQ(author.closeCode, CloseCode::goingAway);
    EXPECT_TRUE(world.core().shutDown(world.now));
    EXPECT_EQ(world.store.rows.size(), 1u);
}

TEST_F(RelayMailTest, WhileTheStoreFailsLinksAreClosedWith1011AndNothingIsForgotten) {
    TestLink& author = world.join(ada);
    const TestLink& reader = world.join(bob, false);
    world.write(author, bob, "held");
    world.write(author, cai, "mail");
    world.turn();
    world.store.failAfter(0);
    world.advance(0.1);
    EXPECT_EQ(author.closeCode, CloseCode::internalError);
    EXPECT_EQ(reader.closeCode, CloseCode::internalError);
    EXPECT_EQ(world.open(ada).closeCode, CloseCode::internalError);
    EXPECT_TRUE(world.core().storeFailure());
    world.advance(10);
    EXPECT_EQ(world.reports.size(), 1u);
    world.store.repair();
    world.advance(2);
    EXPECT_FALSE(world.core().storeFailure());
    EXPECT_EQ(world.reports.size(), 2u);
    EXPECT_EQ(world.join(bob).texts, Texts{"held"});
    EXPECT_EQ(world.join(cai).texts, Texts{"mail"});
}

TEST_F(RelayMailTest, ARelayThatCannotReadItsStoreDoesNotStart) {
    // The start reads the last id, the members, and the mail that waits for the one member.
    for (int failing = 0; failing < 3; ++failing) {
        RelayWorld other;
        other.admit(ada);
        other.store.failAfter(failing);
        EXPECT_THROW(other.core(), StoreError) << failing;
        other.kill();
    }
}

/// Does everything that touches the store while the n-th operation of the store fails.
class RelayStoreFailureTest : public testing::TestWithParam<int> {};

TEST_P(RelayStoreFailureTest, NothingIsLostAndNobodyIsThrownOut) {
    const Somebody ada("ada"), bob("bob"), cai("cai"), dan("dan");
    RelayWorld world;
    for (const Somebody* person : {&ada, &bob, &cai}) world.admit(*person, person == &ada);
    world.core();
    // After the start, as many operations as the parameter says succeed, and then three fail.
    world.store.failAfter(GetParam(), 3);

    Texts written, bobRead, caiRead;
    const auto read = [](const TestLink& link, Texts& into) {
        into.insert(into.end(), link.texts.begin(), link.texts.end());
    };
    for (int round = 0; round < 6; ++round) {
        TestLink& author = world.join(ada);
        TestLink& reader = world.join(bob, round % 2 == 0);
        for (int count = 0; count < 3 && !author.closeCode; ++count) {
            written.push_back(std::to_string(round) + "." + std::to_string(count));
            world.write(author, bob, written.back());
            world.write(author, cai, written.back());
            world.turn();
            world.advance(0.03);
        }
        if (!author.closeCode) world.say(author, round % 2 == 0 ? "add " + dan.hex() : "remove " + dan.hex());
        world.advance(0.1);
        for (TestLink* link : {&author, &reader}) {
            if (link->closeCode) {
                EXPECT_EQ(*link->closeCode, CloseCode::internalError);
            } else {
                world.die(*link);
            }
        }
        // Texts that were not proved come again, so count only those of a reader that proves.
        if (round % 2 == 0) read(reader, bobRead);
        world.advance(5);
    }
    // The store may fail only now, so join several times.
    for (int again = 0; again < 4; ++again) {
        for (const Somebody* person : {&bob, &cai}) {
            TestLink& link = world.join(*person);
            read(link, person == &bob ? bobRead : caiRead);
            if (!link.closeCode) world.die(link);
            world.advance(5);
        }
    }
    EXPECT_EQ(caiRead, written);
    for (const std::string& text : written) EXPECT_GE(std::count(bobRead.begin(), bobRead.end(), text), 1) << text;
    for (const auto& link : world.links) EXPECT_NE(link->closeCode, CloseCode::policyViolation);
    world.advance(1);
    EXPECT_TRUE(world.store.rows.empty());
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, RelayStoreFailureTest, testing::Range(0, 60));

}  // namespace
