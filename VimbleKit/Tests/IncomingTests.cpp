#include "TestSupport/Session.h"

#include "VimbleKit/Incoming.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using Strings = std::vector<std::string>;

/// Runs `Incoming` on a store and a signal of its own, without a session.
class IncomingTest : public testing::Test, public SignalTarget {
protected:
    IncomingTest() {
        core->commit([](State& state) { state.publicKey = keyTextOf(1); });
        core->subscribe(*this, [](IncomingTest& self, const State&) { ++self.commits; });
        events.subscribe(*this, [](IncomingTest& self, const Event& event) {
            self.told.push_back(event);
            if (self.then) self.then(event);
        });
    }

    void receivePack(std::uint8_t author, const PackPlaintext& record) {
        incoming.receivedPack({keysOf(author).publicKey, keysOf(1).publicKey, Nonce{}, record.encoded()});
    }

    /// The events since the last call, as lines; rosters as their keys' numbers.
    Strings take() {
        Strings lines;
        for (const Event& event : std::exchange(told, {})) {
            if (const auto* roster = std::get_if<Events::Roster>(&event)) {
                std::string line = "roster";
                for (const Person& person : roster->users) line += " " + person.displayName();
                lines.push_back(line);
            } else {
                lines.push_back(ConsoleLines::line(event).value_or(""));
            }
        }
        return lines;
    }
    int takeCommits() { return std::exchange(commits, 0); }
    const Person& person(std::uint8_t number) const { return *core->state().people.find(keyTextOf(number)); }
    static std::string anonymous(std::uint8_t number) { return "anonymous" + keyTextOf(number).substr(0, 6); }

    TestLoop loop;
    std::shared_ptr<Core<State>> core = Core<State>::make(loop, State());
    Signal<Event> events{loop};
    Incoming incoming{loop, *core, events};
    std::vector<Event> told;
    std::function<void(const Event&)> then;
    int commits = 0;
};

// ---- lists

TEST_F(IncomingTest, OnAFirstListEverybodyIsAddedTheUserToo) {
    incoming.receivedPeople({listed(1), listed(2, false, true)});
    EXPECT_EQ(takeCommits(), 1);
    ASSERT_EQ(told.size(), 3u);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& add = std::get<Events::Add>(told[i]);
        EXPECT_EQ(add.admin, add.added);
        EXPECT_EQ(add.when, loop.now());
        EXPECT_EQ(*core->state().people.find(add.added.publicKey), add.added);
    }
    EXPECT_EQ(person(1), (Person{keyTextOf(1), "", "", false, true}));
    EXPECT_EQ(person(2), (Person{keyTextOf(2), "", "", true, false}));
    const auto& roster = std::get<Events::Roster>(told[2]);
    EXPECT_EQ(roster.users, core->state().roster());
}

TEST_F(IncomingTest, TheSameListAgainTellsOnlyARoster) {
    incoming.receivedPeople({listed(1), listed(2, false)});
    take();
    takeCommits();
    const State before = core->state();
    incoming.receivedPeople({listed(1), listed(2, false)});
    EXPECT_EQ(take().size(), 1u);
    EXPECT_EQ(takeCommits(), 1);
    EXPECT_EQ(core->state(), before);
}

TEST_F(IncomingTest, ComingAndGoingIsToldOfOthersOnly) {
    incoming.receivedPeople({listed(1), listed(2), listed(3, false)});
    take();
    incoming.receivedPeople({listed(1, false), listed(2, false), listed(3)});
    const auto seen = told;
    const auto lines = take();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ((std::set<std::string>(lines.begin(), lines.begin() + 2)),
              (std::set<std::string>{anonymous(2) + " went away", anonymous(3) + " is online"}));
    for (const Event& event : seen) {
        if (const auto* join = std::get_if<Events::Join>(&event)) {
            EXPECT_EQ(join->user, person(3));
        }
        if (const auto* leave = std::get_if<Events::Leave>(&event)) {
            EXPECT_EQ(leave->user, person(2));
        }
    }
    EXPECT_FALSE(person(1).isOnline);
}

TEST_F(IncomingTest, AChangeOfRightsIsNoEvent) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    incoming.receivedPeople({listed(1, true, true), listed(2, true, true)});
    EXPECT_EQ(take().size(), 1u);
    EXPECT_TRUE(person(1).isAdmin && person(2).isAdmin);
}

TEST_F(IncomingTest, RemovalsComeFirstAndTheRosterLast) {
    incoming.receivedPeople({listed(1), listed(2), listed(3), listed(4)});
    receivePack(3, {std::nullopt, "C", "", std::nullopt});
    take();
    loop.advance(5);
    incoming.receivedPeople({listed(1), listed(4, false), listed(5)});
    ASSERT_EQ(told.size(), 5u);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& removal = std::get<Events::Remove>(told[i]);
        EXPECT_EQ(removal.admin, removal.removed);
        EXPECT_EQ(removal.when, loop.now());
        EXPECT_FALSE(core->state().people.contains(removal.removed.publicKey));
    }
    EXPECT_TRUE(std::holds_alternative<Events::Roster>(told[4]));
    EXPECT_EQ(core->state().people.size(), 3u);
}

TEST_F(IncomingTest, WhoComesBackIsNamelessButTheirConversationStays) {
    incoming.receivedPeople({listed(1), listed(2)});
    receivePack(2, {std::nullopt, "B", "🦊", "hi"});
    take();
    incoming.receivedPeople({listed(1)});
    EXPECT_EQ(take(), (Strings{"B was removed from the conversation", "roster " + anonymous(1)}));
    incoming.receivedPeople({listed(1), listed(2)});
    EXPECT_EQ(take()[0], anonymous(2) + " was added to the conversation");
    EXPECT_EQ(person(2), (Person{keyTextOf(2), "", "", false, true}));
    EXPECT_EQ(core->state().conversations.find(keyTextOf(2))->messages.size(), 1u);
}

TEST_F(IncomingTest, AListKeepsTheNamesOfThoseWhoStay) {
    incoming.receivedPeople({listed(1), listed(2)});
    receivePack(2, {std::nullopt, "B", "🦊", std::nullopt});
    incoming.receivedPeople({listed(2, false, true), listed(1)});
    EXPECT_EQ(person(2), (Person{keyTextOf(2), "B", "🦊", true, false}));
}

TEST_F(IncomingTest, OfARepeatedEntryTheLastCounts) {
    incoming.receivedPeople({listed(2, true, true), listed(2, false, false)});
    EXPECT_EQ(person(2), (Person{keyTextOf(2), "", "", false, false}));
    EXPECT_EQ(take().size(), 2u);
}

TEST_F(IncomingTest, AnEmptyListRemovesEverybody) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    incoming.receivedPeople({});
    EXPECT_EQ(take().size(), 3u);
    EXPECT_TRUE(core->state().people.empty());
}

// ---- packs

TEST_F(IncomingTest, APackFromNobodyOnTheListIsIgnored) {
    incoming.receivedPeople({listed(1)});
    take();
    takeCommits();
    receivePack(2, {"room", "B", "", "hi"});
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(takeCommits(), 0);
    EXPECT_EQ(core->state().room, Chat());
}

TEST_F(IncomingTest, APackWithoutARecordIsIgnored) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    takeCommits();
    for (const char* plaintext :
         {"", "x", "{}", R"({"text":"hi"})", R"({"name":"","emoji":"")", R"({"name":1,"emoji":""})"}) {
        const auto bytes = bytesOf(plaintext);
        incoming.receivedPack({keysOf(2).publicKey, keysOf(1).publicKey, Nonce{}, Bytes(bytes.begin(), bytes.end())});
    }
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(takeCommits(), 0);
}

TEST_F(IncomingTest, APackThatSaysNothingNewCommitsNothing) {
    incoming.receivedPeople({listed(1), listed(2)});
    receivePack(2, {std::nullopt, "B", "🦊", std::nullopt});
    take();
    takeCommits();
    receivePack(2, {std::nullopt, "B", "🦊", std::nullopt});
    EXPECT_EQ(takeCommits(), 0);
    EXPECT_TRUE(take().empty());
}

TEST_F(IncomingTest, AFirstNameIsToldFromTheAnonymousForm) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    takeCommits();
    receivePack(2, {std::nullopt, "B", "🦊", std::nullopt});
    EXPECT_EQ(takeCommits(), 2);
    ASSERT_EQ(told.size(), 2u);
    const auto& name = std::get<Events::NameSet>(told[0]);
    EXPECT_EQ(name.from, anonymous(2));
    EXPECT_EQ(name.user, person(2));
    EXPECT_EQ(name.when, loop.now());
    const auto& emoji = std::get<Events::EmojiSet>(told[1]);
    EXPECT_EQ(emoji.from, "😐");
    EXPECT_EQ(emoji.user, (Person{keyTextOf(2), "B", "🦊", false, true}));
}

TEST_F(IncomingTest, AnEmptyNameBlanksTheOldOne) {
    incoming.receivedPeople({listed(1), listed(2)});
    receivePack(2, {std::nullopt, "B", "🦊", std::nullopt});
    take();
    receivePack(2, {std::nullopt, "", "", std::nullopt});
    EXPECT_EQ(take(), (Strings{"B changed name to " + anonymous(2), anonymous(2) + " changed emoji to 😐"}));
    EXPECT_EQ(person(2).name, "");
}

TEST_F(IncomingTest, ADirectTextEntersTheConversationOfItsAuthor) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    takeCommits();
    loop.advance(7);
    then = [&](const Event& event) {
        if (!std::holds_alternative<Events::Message>(event)) return;
        EXPECT_EQ(core->state().conversations.find(keyTextOf(2))->messages.back().text, "hi");
    };
    receivePack(2, {std::nullopt, "B", "🦊", "hi"});
    EXPECT_EQ(takeCommits(), 3);
    EXPECT_EQ(take(), (Strings{anonymous(2) + " changed name to B", "B changed emoji to 🦊", "Message from B: hi"}));
    const Chat& chat = *core->state().conversations.find(keyTextOf(2));
    EXPECT_EQ(chat, (Chat{{{keyTextOf(2), "hi", loop.now()}}, 0}));
    EXPECT_EQ(core->state().room, Chat());
}

TEST_F(IncomingTest, ARoomTextEntersTheRoom) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    receivePack(2, {"room", "", "", "hi"});
    EXPECT_EQ(take(), (Strings{"Message from " + anonymous(2) + ": hi"}));
    EXPECT_EQ(core->state().room.messages.size(), 1u);
    EXPECT_TRUE(core->state().conversations.empty());
}

TEST_F(IncomingTest, AnyOtherKindIsDirectAndAnEmptyTextIsAText) {
    incoming.receivedPeople({listed(1), listed(2)});
    for (const char* kind : {"Room", "", "room "}) receivePack(2, {kind, "", "", ""});
    EXPECT_EQ(core->state().conversations.find(keyTextOf(2))->messages.size(), 3u);
    EXPECT_EQ(core->state().room, Chat());
}

TEST_F(IncomingTest, ARoomPackWithoutTextOnlySaysWhoTheWriterIs) {
    incoming.receivedPeople({listed(1), listed(2)});
    take();
    receivePack(2, {"room", "B", "", std::nullopt});
    EXPECT_EQ(take(), (Strings{anonymous(2) + " changed name to B"}));
    EXPECT_EQ(core->state().room, Chat());
}

TEST_F(IncomingTest, ACopyOfOnesOwnTextIsTakenAsANewOne) {
    incoming.receivedPeople({listed(1)});
    take();
    receivePack(1, {"room", "", "", "hi"});
    EXPECT_EQ(take(), (Strings{"Message from " + anonymous(1) + ": hi"}));
    EXPECT_EQ(core->state().room.messages.size(), 1u);
}

TEST_F(IncomingTest, AppendingLeavesTheReadCountAlone) {
    incoming.receivedPeople({listed(1), listed(2)});
    receivePack(2, {std::nullopt, "", "", "hi"});
    core->commit(
        [](State& state) { state.conversations.update(keyTextOf(2), [](Chat& chat) { chat.readCount = 1; }); });
    receivePack(2, {std::nullopt, "", "", "again"});
    EXPECT_EQ(core->state().conversations.find(keyTextOf(2))->readCount, 1);
}

TEST_F(IncomingTest, WithoutObserversTheStateIsFoldedAllTheSame) {
    events.unsubscribe(*this);
    incoming.receivedPeople({listed(1), listed(2)});
    receivePack(2, {"room", "B", "", "hi"});
    EXPECT_EQ(person(2).name, "B");
    EXPECT_EQ(core->state().room.messages.size(), 1u);
    EXPECT_TRUE(told.empty());
}

}  // namespace
