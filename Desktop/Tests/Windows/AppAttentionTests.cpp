#include "AppFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// A run of the program, connected, with Ann (person 2) on the list, and in the background.
class AppAttentionTest : public AppTest {
protected:
    void SetUp() override { ASSERT_TRUE(startConnected()); }

    bool startConnected() {
        if (!start()) return false;
        session.kit->setEndpoint(session.endpoint);
        session.kit->connect();
        session.loop.run();
        session.server().accept({listed(1), listed(2)});
        return true;
    }

    void annSays(const std::string& text) { session.server().relay(keysOf(2), {std::nullopt, "Ann", "🐙", text}); }
    void annSaysInTheRoom(const std::string& text) { session.server().relay(keysOf(2), {"room", "Ann", "🐙", text}); }

    /// The notifications that are on the screen some time later.
    std::vector<std::string> shown() {
        session.loop.advance(1);
        std::vector<std::string> titles;
        for (const UserNotification& notification : notifications.delivered)
            titles.push_back(notification.title + ": " + notification.body);
        return titles;
    }

    ChatterWindow* chat() { return app->chatterWindows().existing(keyTextOf(2)); }
};

TEST_F(AppAttentionTest, TheLaunchStartsToFollowTheSession) {
    EXPECT_TRUE(app->notifier().isObserving());
    EXPECT_EQ(notifications.authorizationRequests, 1);
    annSays("hello");
    EXPECT_THAT(sounds.take(), ElementsAre("chat"));
    EXPECT_THAT(shown(), ElementsAre("🐙 Ann: hello"));
}

TEST_F(AppAttentionTest, TheSwitchesAreTheUsersAndHoldThroughARestart) {
    EXPECT_TRUE(app->notifier().isChatNotificationsEnabled());
    app->notifier().setChatNotificationsEnabled(false);
    endProgram();
    ASSERT_TRUE(startConnected());
    EXPECT_FALSE(app->notifier().isChatNotificationsEnabled());
    annSays("hello");
    EXPECT_THAT(shown(), IsEmpty());
}

// ---- which window asks

TEST_F(AppAttentionTest, WithOnlyPeopleOpenItAsks) {
    annSays("hello");
    annSaysInTheRoom("hello");
    EXPECT_THAT(alerted, ElementsAre(&app->rosterWindow(), &app->rosterWindow()));
}

TEST_F(AppAttentionTest, AnOpenTalkAsksForWhatIsSaidInIt) {
    app->openConversation(person(2));
    app->openConversation(person(3));
    app->openRoom();
    annSays("hello");
    EXPECT_THAT(alerted, ElementsAre(chat()));
    chat()->showMinimized();
    annSays("are you there?");
    EXPECT_THAT(alerted, ElementsAre(chat(), chat()));
}

TEST_F(AppAttentionTest, TheOpenRoomAsksForWhatIsSaidInIt) {
    app->openConversation(person(2));
    app->openRoom();
    annSaysInTheRoom("hello");
    EXPECT_THAT(alerted, ElementsAre(&app->roomWindow()));
    app->roomWindow().showMinimized();
    annSaysInTheRoom("anybody?");
    EXPECT_THAT(alerted, ElementsAre(&app->roomWindow(), &app->roomWindow()));
}

TEST_F(AppAttentionTest, ATextSaidTwiceAsksWhereItCameLast) {
    app->openConversation(person(2));
    app->openRoom();
    annSays("hello");
    session.loop.advance(1);
    annSaysInTheRoom("hello");
    session.loop.advance(1);
    annSays("hello");
    EXPECT_THAT(alerted, ElementsAre(chat(), &app->roomWindow(), chat()));
}

TEST_F(AppAttentionTest, ForAClosedTalkPeopleAsksAndNoOtherTalk) {
    app->openConversation(person(2));
    app->openConversation(person(3));
    app->openRoom();
    chat()->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    annSays("hello");
    app->roomWindow().close();
    annSaysInTheRoom("hello");
    EXPECT_THAT(alerted, ElementsAre(&app->rosterWindow(), &app->rosterWindow()));
}

TEST_F(AppAttentionTest, AWindowThatIsNotOnTheScreenNeverAsks) {
    app->openConversation(person(3));
    app->rosterWindow().close();
    ASSERT_FALSE(app->rosterWindow().isVisible());
    annSays("hello");
    annSaysInTheRoom("hello");
    EXPECT_THAT(alerted, IsEmpty());
    EXPECT_THAT(shown(), SizeIs(2));
}

TEST_F(AppAttentionTest, NobodyAsksWhileTheProgramIsInFront) {
    application.becomeActive();
    annSays("hello");
    EXPECT_THAT(alerted, IsEmpty());
    EXPECT_THAT(shown(), ElementsAre("🐙 Ann: hello"));
    application.resignActive();
    annSays("hello");
    EXPECT_THAT(alerted, SizeIs(1));
}

// ---- which notifications are removed

TEST_F(AppAttentionTest, WhenTheUserTurnsToTheProgramItsNotificationsGo) {
    annSays("one");
    EXPECT_THAT(shown(), SizeIs(1));
    annSays("two");
    application.becomeActive();
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(AppAttentionTest, WhenTheUserTurnsAwayNothingGoes) {
    application.becomeActive();
    annSays("one");
    application.resignActive();
    EXPECT_THAT(shown(), SizeIs(1));
}

TEST_F(AppAttentionTest, AtTheEndOfTheProgramNothingStaysThatCouldBeClicked) {
    annSays("one");
    EXPECT_THAT(shown(), SizeIs(1));
    annSays("two");
    sounds.take();
    alerted.clear();
    app->applicationWillTerminate();
    EXPECT_THAT(shown(), IsEmpty());
    // The link still receives texts while those that were sent are on their way out.
    annSays("three");
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(alerted, IsEmpty());
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_THAT(session.kit->state().conversations.find(keyTextOf(2))->messages, SizeIs(3));
}

}  // namespace
