#include "AttentionKit/Notifier.h"

#include "TestSupport/FakeNotificationCenter.h"
#include "TestSupport/FakeSoundPlayer.h"
#include "TestSupport/FakeUserAttention.h"
#include "TestSupport/MemoryDefaults.h"
#include "TestSupport/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <set>

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

using Kind = UserNotification::Kind;

constexpr std::uint8_t ann = 2;
constexpr std::uint8_t bob = 3;

class NotifierTest : public testing::Test {
protected:
    /// Starts a session that has received the server's list, with the user (person 1) and Ann on it.
    void startConnected() { startConnected({listed(1), listed(ann)}); }
    void startConnected(const std::vector<MetaPerson>& people) {
        session.startConnected(people);
        make();
        notifier->start();
        session.server().relay(keysOf(ann), {std::nullopt, "Ann", "🐙", std::nullopt});
    }
    void make() {
        notifier.emplace(NotifierEnvironment{session.loop, *session.kit, defaults, sounds, notifications, attention});
    }
    void restart() {
        notifier.reset();
        defaults = MemoryDefaults(defaults.values);
        make();
    }

    void annSays(const std::string& text) { session.server().relay(keysOf(ann), {std::nullopt, "Ann", "🐙", text}); }
    void annSaysInTheRoom(const std::string& text) { session.server().relay(keysOf(ann), {"room", "Ann", "🐙", text}); }
    void annIsAway() { session.server().sendList({listed(1), listed(ann, false)}); }
    void annComes() { session.server().sendList({listed(1), listed(ann)}); }

    /// Lets the delay of notifications pass, and returns those on the screen.
    std::vector<UserNotification> shown() {
        session.loop.advance(0.05);
        return notifications.delivered;
    }

    Session session;
    MemoryDefaults defaults;
    FakeSoundPlayer sounds;
    FakeNotificationCenter notifications{session.loop};
    FakeUserAttention attention;
    std::optional<Notifier> notifier;
};

auto titled(const std::string& title) { return testing::Field(&UserNotification::title, title); }
auto saying(const std::string& text) { return testing::Field(&UserNotification::body, text); }
auto under(const std::string& text) { return testing::Field(&UserNotification::subtitle, text); }

// ---- the switches

TEST_F(NotifierTest, AllSwitchesAreOnAtTheFirstLaunchAndNothingIsWritten) {
    session.start();
    make();
    EXPECT_TRUE(notifier->isBounceIconEnabled());
    EXPECT_TRUE(notifier->isChatNotificationsEnabled());
    EXPECT_TRUE(notifier->isJoinNotificationsEnabled());
    EXPECT_THAT(defaults.values, IsEmpty());
}

TEST_F(NotifierTest, EachSwitchSurvivesARestartByItself) {
    session.start();
    make();
    notifier->setBounceIconEnabled(false);
    restart();
    EXPECT_FALSE(notifier->isBounceIconEnabled());
    EXPECT_TRUE(notifier->isChatNotificationsEnabled());
    EXPECT_TRUE(notifier->isJoinNotificationsEnabled());

    notifier->setBounceIconEnabled(true);
    notifier->setChatNotificationsEnabled(false);
    restart();
    EXPECT_TRUE(notifier->isBounceIconEnabled());
    EXPECT_FALSE(notifier->isChatNotificationsEnabled());

    notifier->setJoinNotificationsEnabled(false);
    restart();
    EXPECT_FALSE(notifier->isChatNotificationsEnabled());
    EXPECT_FALSE(notifier->isJoinNotificationsEnabled());
}

TEST_F(NotifierTest, EverySetIsWrittenUnderItsKey) {
    session.start();
    make();
    notifier->setBounceIconEnabled(true);
    notifier->setChatNotificationsEnabled(false);
    notifier->setJoinNotificationsEnabled(true);
    const MemoryDefaults::Values written{{"Notifier.IsBounceIconEnabled", true},
                                         {"Notifier.IsChatNotificationsEnabled", false},
                                         {"Notifier.IsJoinNotificationsEnabled", true}};
    EXPECT_EQ(defaults.values, written);
}

// ---- start

TEST_F(NotifierTest, NothingIsToldBeforeTheStart) {
    session.startConnected({listed(1), listed(ann)});
    make();
    annSays("hello");
    EXPECT_FALSE(notifier->isObserving());
    EXPECT_EQ(notifier->state(), Notifier::LocalState(nullptr));
    EXPECT_EQ(notifications.authorizationRequests, 0);
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(NotifierTest, TheStartAsksToBeAllowedAndTakesTheStateAsItIs) {
    startConnected();
    EXPECT_TRUE(notifier->isObserving());
    EXPECT_EQ(notifications.authorizationRequests, 1);
    ASSERT_TRUE(notifier->state().user);
    EXPECT_EQ(notifier->state().user->publicKey, session.own);
    EXPECT_EQ(notifier->state().endpoint, session.endpoint);
}

TEST_F(NotifierTest, ASecondStartHasNoEffect) {
    startConnected();
    notifier->start();
    annSays("hello");
    EXPECT_EQ(notifications.authorizationRequests, 1);
    EXPECT_THAT(shown(), SizeIs(1));
    EXPECT_THAT(attention.requests, SizeIs(1));
}

// ---- messages

TEST_F(NotifierTest, AMessageIsHeardAndShownAndAsksToBeLookedAt) {
    startConnected();
    annSays("see you at eight");
    EXPECT_THAT(sounds.take(), ElementsAre("chat"));
    EXPECT_THAT(attention.requests, ElementsAre("Ann: see you at eight"));
    const auto notices = shown();
    ASSERT_THAT(notices, SizeIs(1));
    EXPECT_EQ(notices[0].kind, Kind::message);
    EXPECT_EQ(notices[0].title, "🐙 Ann");
    EXPECT_EQ(notices[0].subtitle, "chat.example.org");
    EXPECT_EQ(notices[0].body, "see you at eight");
}

TEST_F(NotifierTest, ANotificationComesAFewHundredthsOfASecondLater) {
    startConnected();
    annSays("hello");
    session.loop.advance(0.049);
    EXPECT_THAT(notifications.delivered, IsEmpty());
    EXPECT_EQ(notifications.pendingCount(), 1u);
    session.loop.advance(0.002);
    EXPECT_THAT(notifications.delivered, SizeIs(1));
    EXPECT_EQ(notifications.pendingCount(), 0u);
}

TEST_F(NotifierTest, TheRoomAndATalkAreTreatedAlike) {
    startConnected();
    annSays("hello");
    session.loop.advance(1);
    annSaysInTheRoom("hello");
    EXPECT_THAT(sounds.take(), ElementsAre("chat", "chat"));
    EXPECT_THAT(attention.requests, ElementsAre("Ann: hello", "Ann: hello"));
    const auto notices = shown();
    ASSERT_THAT(notices, SizeIs(2));
    EXPECT_NE(notices[0].identifier, notices[1].identifier);
    UserNotification other = notices[1];
    other.identifier = notices[0].identifier;
    EXPECT_EQ(notices[0], other);
}

TEST_F(NotifierTest, SomebodyWithoutANameOrEmojiIsShownAsEverywhere) {
    startConnected({listed(1), listed(ann), listed(bob)});
    session.server().relay(keysOf(bob), {std::nullopt, "", "", "hello"});
    EXPECT_THAT(shown(), ElementsAre(titled("😐 anonymous" + keyTextOf(bob).substr(0, 6))));
}

TEST_F(NotifierTest, WordsOfOthersArriveAsTheyWereSaid) {
    startConnected();
    const std::string text = "<b>bold</b>\n& \u202Eso on";
    annSays(text);
    EXPECT_THAT(shown(), ElementsAre(saying(text)));
}

TEST_F(NotifierTest, IdentifiersAreRandomUuids) {
    startConnected();
    std::set<std::string> identifiers;
    for (int i = 0; i < 50; ++i) annSays("hello");
    for (const UserNotification& notification : notifications.added) {
        EXPECT_THAT(notification.identifier, MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
                                                          "[0-9a-f]{12}"));
        identifiers.insert(notification.identifier);
    }
    EXPECT_THAT(identifiers, SizeIs(50));
}

TEST_F(NotifierTest, TheUsersOwnWordsFromElsewhereAreNotTold) {
    startConnected();
    session.server().relay(keysOf(1), {"room", "Me", "", "Me, myself"});
    ASSERT_THAT(session.kit->state().room.messages, SizeIs(1));
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_THAT(attention.requests, IsEmpty());
}

TEST_F(NotifierTest, AMessageBeforeTheListNamesTheUserIsNotTold) {
    startConnected({listed(ann)});
    annSays("hello");
    ASSERT_TRUE(session.kit->state().conversations.contains(keyTextOf(ann)));
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_THAT(attention.requests, IsEmpty());
}

// ---- mentions

TEST_F(NotifierTest, ATextWithTheUsersNameHasASoundOfItsOwn) {
    startConnected();
    session.kit->setName("Max");
    annSays("where is Max?");
    EXPECT_THAT(sounds.take(), ElementsAre("mention"));
    EXPECT_THAT(shown(), ElementsAre(saying("where is Max?")));
}

TEST_F(NotifierTest, ANameInsideAWordCounts) {
    startConnected();
    session.kit->setName("Max");
    annSays("what a Maximum");
    EXPECT_THAT(sounds.take(), ElementsAre("mention"));
}

TEST_F(NotifierTest, ANameInOtherLettersIsNone) {
    startConnected();
    session.kit->setName("Max");
    annSays("max MAX mAX");
    EXPECT_THAT(sounds.take(), ElementsAre("chat"));
}

TEST_F(NotifierTest, AUserWithoutANameIsMentionedByTheirAnonymousForm) {
    startConnected();
    annSays("who is anonymous" + session.own.substr(0, 6) + "?");
    EXPECT_THAT(sounds.take(), ElementsAre("mention"));
    annSays("who is anonymous" + session.own.substr(0, 5) + "?");
    EXPECT_THAT(sounds.take(), ElementsAre("chat"));
}

TEST_F(NotifierTest, ANewNameCountsFromThenOn) {
    startConnected();
    session.kit->setName("Max");
    session.kit->setName("Mia");
    annSays("Max?");
    EXPECT_THAT(sounds.take(), ElementsAre("chat"));
    annSays("Mia?");
    EXPECT_THAT(sounds.take(), ElementsAre("mention"));
}

// ---- people who come online

TEST_F(NotifierTest, SomebodyWhoComesIsHeardAndShownWithoutAWindowAskingForAnything) {
    startConnected();
    annIsAway();
    annComes();
    EXPECT_THAT(sounds.take(), ElementsAre("join"));
    EXPECT_THAT(attention.requests, IsEmpty());
    const auto notices = shown();
    ASSERT_THAT(notices, SizeIs(1));
    EXPECT_EQ(notices[0].kind, Kind::presence);
    EXPECT_EQ(notices[0].title, "🐙 Ann is online");
    EXPECT_EQ(notices[0].subtitle, "chat.example.org");
    EXPECT_EQ(notices[0].body, "");
}

TEST_F(NotifierTest, SomebodyWhoComesAfterTheUserWasTakenOffTheListIsNotTold) {
    startConnected();
    session.server().sendList({listed(ann, false)});
    session.server().sendList({listed(ann)});
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(NotifierTest, NothingElseThatHappensIsTold) {
    startConnected();
    annIsAway();
    session.server().relay(keysOf(ann), {std::nullopt, "Anna", "🦊", std::nullopt});
    session.server().sendList({listed(1), listed(ann, false), listed(bob)});
    session.server().sendList({listed(1), listed(ann, false)});
    session.server().sendResponse("you are a member");
    session.server().sendError("no such command");
    session.server().link->end("reset");
    session.loop.run();
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_THAT(attention.requests, IsEmpty());
}

TEST_F(NotifierTest, AHundredPeopleAfterAReconnectionSoundOnceAndAreAllShown) {
    std::vector<MetaPerson> people{listed(1)};
    for (std::uint8_t number = 2; number < 102; ++number) people.push_back(listed(number, false));
    startConnected(people);
    session.server().link->end("reset");
    session.loop.run();
    const auto links = session.transport.links.size();
    while (session.transport.links.size() == links) ASSERT_TRUE(session.loop.step());
    for (MetaPerson& person : people) person.isOnline = true;
    session.server().accept(people);

    EXPECT_THAT(sounds.take(), ElementsAre("join"));
    EXPECT_EQ(notifications.pendingCount(), 100u);
    const auto notices = shown();
    EXPECT_THAT(notices, SizeIs(100));
    EXPECT_THAT(notices,
                Each(AllOf(testing::Field(&UserNotification::kind, Kind::presence), under("chat.example.org"))));
}

// ---- what the switches turn off

TEST_F(NotifierTest, InFrontNoWindowAsksForAnythingAndTheNotificationGoesOutAllTheSame) {
    startConnected();
    attention.isInFront = true;
    annSays("hello");
    EXPECT_THAT(attention.requests, IsEmpty());
    EXPECT_THAT(sounds.take(), ElementsAre("chat"));
    EXPECT_THAT(shown(), SizeIs(1));
}

TEST_F(NotifierTest, WithEverythingOffTheSoundsStillPlay) {
    startConnected();
    notifier->setBounceIconEnabled(false);
    notifier->setChatNotificationsEnabled(false);
    notifier->setJoinNotificationsEnabled(false);
    annSays("hello");
    annSays("hello, anonymous" + session.own.substr(0, 6));
    annIsAway();
    annComes();
    EXPECT_THAT(sounds.take(), ElementsAre("chat", "mention", "join"));
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_THAT(attention.requests, IsEmpty());
}

TEST_F(NotifierTest, AWindowAsksWithoutANotification) {
    startConnected();
    notifier->setChatNotificationsEnabled(false);
    annSays("hello");
    EXPECT_THAT(attention.requests, ElementsAre("Ann: hello"));
    EXPECT_THAT(shown(), IsEmpty());
}

TEST_F(NotifierTest, ANotificationComesWithoutAWindowAsking) {
    startConnected();
    notifier->setBounceIconEnabled(false);
    annSays("hello");
    EXPECT_THAT(attention.requests, IsEmpty());
    EXPECT_THAT(shown(), SizeIs(1));
}

TEST_F(NotifierTest, MessagesAndArrivalsAreSwitchedApart) {
    startConnected();
    annIsAway();
    notifier->setChatNotificationsEnabled(false);
    annSays("hello");
    annComes();
    EXPECT_THAT(shown(), ElementsAre(titled("🐙 Ann is online")));
    notifier->clearNotifications();

    notifier->setChatNotificationsEnabled(true);
    notifier->setJoinNotificationsEnabled(false);
    annIsAway();
    annComes();
    annSays("hello");
    EXPECT_THAT(shown(), ElementsAre(titled("🐙 Ann")));
}

// ---- removing notifications

TEST_F(NotifierTest, ClearingTakesAwayWhatIsShownAndWhatIsPending) {
    startConnected();
    annSays("one");
    EXPECT_THAT(shown(), SizeIs(1));
    annSays("two");
    notifier->clearNotifications();
    EXPECT_THAT(shown(), IsEmpty());
    annSays("three");
    EXPECT_THAT(shown(), ElementsAre(saying("three")));
}

TEST_F(NotifierTest, AtTheEndNothingStaysOnTheScreenAndNothingMoreIsTold) {
    startConnected();
    annSays("one");
    EXPECT_THAT(shown(), SizeIs(1));
    sounds.take();
    attention.requests.clear();
    notifier->stop();
    session.loop.advance(1);
    annSays("two");
    annIsAway();
    annComes();
    notifier->start();
    annSays("three");
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_THAT(sounds.take(), IsEmpty());
    EXPECT_THAT(attention.requests, IsEmpty());
}

// ---- servers

TEST_F(NotifierTest, TheSubtitleIsTheHostOfTheServerInUse) {
    startConnected();
    session.kit->setEndpoint(Endpoint("http://localhost:8080/path"));
    session.kit->connect();
    session.loop.run();
    session.server().accept({listed(1), listed(ann)});
    annSays("hello");
    EXPECT_THAT(shown(), ElementsAre(under("localhost")));
}

// ---- the shared notifier

TEST(NotifierDeathTest, TheSharedOneMustBeConfiguredBeforeItsUse) {
    EXPECT_DEATH(Notifier::shared(), "Notifier::shared was used before Notifier::configureShared");
}

TEST(NotifierSharedTest, IsMadeOnceAtItsFirstUse) {
    // This is never torn down, like the shared notifier that uses it.
    struct Machine {
        Session session;
        MemoryDefaults defaults;
        FakeSoundPlayer sounds;
        FakeNotificationCenter notifications{session.loop};
        FakeUserAttention attention;
    };
    static auto* const machine = new Machine;
    static int made = 0;
    machine->session.start();
    Notifier::configureShared([] {
        ++made;
        return NotifierEnvironment{machine->session.loop, *machine->session.kit,  machine->defaults,
                                   machine->sounds,       machine->notifications, machine->attention};
    });
    Notifier& shared = Notifier::shared();
    EXPECT_EQ(&shared, &Notifier::shared());
    EXPECT_EQ(made, 1);
    EXPECT_FALSE(shared.isObserving());
    std::filesystem::remove_all(machine->session.folder.path);
}

}  // namespace
