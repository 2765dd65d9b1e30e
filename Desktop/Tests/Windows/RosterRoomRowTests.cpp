#include "RosterFixture.h"

#include "DesktopKit/RoomRow.h"

#include <QAccessible>

namespace {

class RosterRoomRowTest : public RosterTest {
protected:
    void showWithRoom() {
        show();
        roster->setOpenRoom([this] { ++opens; });
    }
    RoomRow& row() const { return child<RoomRow>("roomRow"); }
    QString spoken() const { return QAccessible::queryAccessibleInterface(&row())->text(QAccessible::Name); }

    int opens = 0;
};

TEST_F(RosterRoomRowTest, ItStandsAboveTheListAndIsNobodyInIt) {
    connect({1, 2});
    showWithRoom();
    EXPECT_EQ(table().model()->rowCount(), 2);
    EXPECT_EQ(row().height(), 24);
    EXPECT_LT(row().mapTo(roster.get(), QPoint()).y(), table().mapTo(roster.get(), QPoint()).y());
}

TEST_F(RosterRoomRowTest, ADoubleClickOpensTheRoomAndAClickDoesNot) {
    connect({1, 2});
    showWithRoom();
    QTest::mouseClick(&row(), Qt::LeftButton);
    EXPECT_EQ(opens, 0);
    EXPECT_TRUE(row().hasFocus());
    QTest::mouseDClick(&row(), Qt::LeftButton);
    EXPECT_EQ(opens, 1);
}

TEST_F(RosterRoomRowTest, ReturnEnterAndSpaceOpenTheRoom) {
    connect({1, 2});
    showWithRoom();
    row().setFocus();
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space}) QTest::keyClick(&row(), key);
    EXPECT_EQ(opens, 3);
    EXPECT_TRUE(opened.take().empty());
}

TEST_F(RosterRoomRowTest, UpAndDownGoBetweenItAndThePeople) {
    connect({1, 2});
    showWithRoom();
    table().setFocus();
    table().selectRow(1);
    QTest::keyClick(&table(), Qt::Key_Up);
    EXPECT_TRUE(table().hasFocus());
    QTest::keyClick(&table(), Qt::Key_Up);
    EXPECT_TRUE(row().hasFocus());
    table().selectRow(-1);
    QTest::keyClick(&row(), Qt::Key_Down);
    EXPECT_TRUE(table().hasFocus());
    EXPECT_EQ(table().selectedRow(), 0);
}

TEST_F(RosterRoomRowTest, TheTabKeyReachesIt) {
    connect({1, 2});
    showWithRoom();
    table().setFocus();
    QTest::keyClick(&table(), Qt::Key_Tab, Qt::ShiftModifier);
    EXPECT_TRUE(row().hasFocus());
}

TEST_F(RosterRoomRowTest, ItTellsWhatHasNotBeenInView) {
    connect({1, 2});
    showWithRoom();
    EXPECT_EQ(spoken(), QStringLiteral("Room"));
    const QImage before = row().grab().toImage();
    session.server().relay(keysOf(2), {"room", "B", "", "hi"});
    session.server().relay(keysOf(2), {"room", "B", "", "hi again"});
    EXPECT_EQ(spoken(), QStringLiteral("Room, 2 unread"));
    EXPECT_NE(row().grab().toImage(), before);
    session.kit->markRoomRead();
    EXPECT_EQ(spoken(), QStringLiteral("Room"));
    EXPECT_EQ(row().grab().toImage(), before);
}

TEST_F(RosterRoomRowTest, WhatComesWhileTheRoomIsOpenIsNotUnread) {
    connect({1, 2});
    showWithRoom();
    roster->setRoomOpen(true);
    session.server().relay(keysOf(2), {"room", "B", "", "hi"});
    EXPECT_EQ(spoken(), QStringLiteral("Room"));
    roster->setRoomOpen(false);
    EXPECT_EQ(spoken(), QStringLiteral("Room, 1 unread"));
}

TEST_F(RosterRoomRowTest, TheUsersOwnWordsAreNeverUnread) {
    connect({1, 2});
    showWithRoom();
    session.kit->send("mine", Kit::roomKey);
    ASSERT_EQ(session.kit->state().room.messages.size(), 1u);
    EXPECT_EQ(spoken(), QStringLiteral("Room"));
}

TEST_F(RosterRoomRowTest, ALongAbsenceIsCountedToAHundred) {
    State state;
    state.publicKey = "me";
    for (int i = 0; i < 5000; ++i) state.room.messages.push_back({i % 2 == 0 ? "me" : "you", "words", {}});
    EXPECT_EQ(RoomRow::LocalState(&state).unread, 100);
    state.room.readCount = 4990;
    EXPECT_EQ(RoomRow::LocalState(&state).unread, 5);
}

TEST_F(RosterRoomRowTest, ACountBeyondTheMessagesIsNothingUnread) {
    State state;
    state.room.readCount = 5;
    EXPECT_EQ(RoomRow::LocalState(&state).unread, 0);
    EXPECT_EQ(RoomRow::LocalState(nullptr).unread, 0);
}

TEST_F(RosterRoomRowTest, WithoutAnybodyToOpenItNothingHappens) {
    connect({1});
    show();
    QTest::mouseDClick(&row(), Qt::LeftButton);
    EXPECT_EQ(opens, 0);
}

}  // namespace
