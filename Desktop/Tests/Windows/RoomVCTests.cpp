#include "DesktopKit/RoomVC.h"
#include "TalkWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RoomVCTest : public testing::Test {
protected:
    RoomVCTest() { open(); }

    void open() {
        vc = std::make_unique<RoomVC>(world.kit(), world.session.loop);
        vc->resize(512, 384);
    }
    void toRoom(const Keys& author, const std::string& name, const std::string& emoji, const std::string& text) {
        world.says(author, {"room", name, emoji, text});
    }
    TalkWorld::Strings rows() const { return TalkWorld::rows(vc->output()); }
    std::string typed() { return TalkWorld::typed(vc->input()); }
    void type(const QString& text) { TalkWorld::type(vc->input(), text); }

    TalkWorld world;
    std::unique_ptr<RoomVC> vc;
};

TEST_F(RoomVCTest, ShowsWhatWasSaidToAllAndNothingElse) {
    toRoom(world.ann, "Ann", "🐙", "hello all");
    world.annSays("to you alone");
    toRoom(world.bob, "Bob", "🦉", "hello Ann");
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: hello all", "text: hello Ann"));
}

TEST_F(RoomVCTest, ATextGoesToEverybodyForTheRoom) {
    type("hello all");
    EXPECT_EQ(typed(), "");
    const PackPlaintext record{"room", "", "", "hello all"};
    const auto packs = world.session.server().takePacks();
    for (const Keys* reader : {&world.ann, &world.bob}) {
        int found = 0;
        for (const auto& pack : packs)
            if (pack.targetKey == reader->publicKey && recordIn(pack, *reader) == record) ++found;
        EXPECT_EQ(found, 1);
    }
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: hello all"));
    EXPECT_TRUE(world.state().conversations.empty());
}

TEST_F(RoomVCTest, ASlashIsACommandHereToo) {
    type("/");
    type("/who");
    EXPECT_THAT(world.session.server().takeCommands(), ElementsAre("who"));
    EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(RoomVCTest, WhatCouldNotBeSentComesBack) {
    world.loseLink();
    EXPECT_TRUE(vc->input().isOffline());
    type("is anybody there?");
    world.session.loop.run();
    EXPECT_EQ(typed(), "is anybody there?");
    world.findLink();
    EXPECT_FALSE(vc->input().isOffline());
    QTest::keyClick(&vc->input().textView(), Qt::Key_Return);
    world.session.loop.run();
    EXPECT_EQ(typed(), "");
    EXPECT_THAT(rows(), ElementsAre("daybreak", "text: is anybody there?"));
}

TEST_F(RoomVCTest, NewNamesAndEmojiOfEverybodyAreActivities) {
    world.annIsCalled("Anna");
    world.says(world.bob, {std::nullopt, "Bob", "🐓", std::nullopt});
    EXPECT_THAT(rows(), ElementsAre("daybreak", "activity: Ann name → Anna", "activity: Bob emoji → 🐓"));
}

TEST_F(RoomVCTest, WhoIsAddedOrRemovedIsAnActivityAndComingAndGoingIsNone) {
    world.session.server().sendList({listed(1), listed(2, false), listed(3)});
    world.session.server().sendList({listed(1), listed(2, true), listed(3)});
    EXPECT_THAT(rows(), IsEmpty());
    world.session.server().sendList({listed(1), listed(2), listed(4)});
    EXPECT_THAT(rows(),
                ElementsAre("daybreak", "activity: Bob was removed from the conversation",
                            "activity: anonymous" + keyTextOf(4).substr(0, 6) + " was added to the conversation"));
    EXPECT_EQ(vc->activities().size(), 2u);
}

TEST_F(RoomVCTest, ANameCantDisturbTheWordsBesideIt) {
    world.annIsCalled("x\u202Ey\nz");
    world.session.server().sendList({listed(1), listed(3)});
    ASSERT_EQ(vc->activities().size(), 2u);
    for (const Activity& activity : vc->activities()) {
        EXPECT_EQ(activity.text.find("\u202E"), std::string::npos);
        EXPECT_EQ(activity.text.find('\n'), std::string::npos);
    }
}

TEST_F(RoomVCTest, WhoHasANameThatCantBeSeenIsAnonymousAndTheirRowsKeepTheirRoom) {
    const std::string unseen = "\u200E";
    const std::string anonymous = "anonymous" + world.annKey.substr(0, 6);
    vc->resize(400, 300);
    vc->show();
    toRoom(world.ann, unseen, "🐙", "one");
    EXPECT_EQ(vc->output().spokenRow(1).section(',', 0, 0), toQt(anonymous));
    EXPECT_EQ(vc->activities().back().text, "Ann name → " + anonymous);
    // There is room for a name above the text even before the name has come.
    world.annIsCalled("Ann");
    toRoom(world.bob, "Bob", "🦉", "two");
    EXPECT_EQ(vc->output().rowRect(1).height(), vc->output().rowRect(2).height());
}

TEST_F(RoomVCTest, RowsSayWhoSpeaks) {
    toRoom(world.ann, "Ann", "🐙", "one");
    toRoom(world.bob, "Bob", "🦉", "two");
    EXPECT_TRUE(vc->output().spokenRow(1).startsWith("Ann, "));
    EXPECT_TRUE(vc->output().spokenRow(2).startsWith("Bob, "));
    world.session.server().sendList({listed(1), listed(3)});  // Ann is no longer on the list
    EXPECT_TRUE(vc->output().spokenRow(1).startsWith("Anonymous, "));
}

TEST_F(RoomVCTest, TheRoomIsReadWhenItAppearsAndWhenItGoes) {
    toRoom(world.ann, "Ann", "🐙", "one");
    EXPECT_EQ(world.state().room.readCount, 0);
    vc->show();
    EXPECT_EQ(world.state().room.readCount, 1);
    toRoom(world.ann, "Ann", "🐙", "two");
    EXPECT_EQ(world.state().room.readCount, 1);
    vc->hide();
    EXPECT_EQ(world.state().room.readCount, 2);
    toRoom(world.ann, "Ann", "🐙", "three");
    EXPECT_EQ(world.state().room.readCount, 2);
    vc->show();
    EXPECT_EQ(world.state().room.readCount, 3);
}

TEST_F(RoomVCTest, AppearingBringsTheFocusToTheInput) {
    vc->show();
    EXPECT_EQ(vc->focusWidget(), &vc->input().textView());
}

TEST_F(RoomVCTest, TheUsersOwnNewNameAndEmojiAreNotedOnce) {
    world.kit().setName("Rose");
    world.kit().setEmoji("🌹");
    world.kit().setEmoji("🌹");
    const std::string anonymous = Person{keyTextOf(1), "", "", false, true}.displayName();
    EXPECT_THAT(rows(), ElementsAre("daybreak", "activity: " + anonymous + " name → Rose", "activity: Rose emoji → 🌹"));
}

TEST_F(RoomVCTest, AnotherServersListIsNoNewName) {
    world.kit().setName("Rose");
    const auto before = vc->activities().size();
    world.kit().setEndpoint(world.session.otherEndpoint);
    EXPECT_EQ(vc->activities().size(), before);
}

}  // namespace
