#include "TestSupport/Session.h"

#include "VimbleKit/KitError.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using Strings = std::vector<std::string>;

class MethodsTest : public testing::Test {
protected:
    /// Connected, with the user and two others on the list.
    Kit& connected() { return session.startConnected({listed(1), listed(2), listed(3, false)}); }

    const std::string& myName() const { return session.kit->state().me()->name; }
    const std::string& myEmoji() const { return session.kit->state().me()->emoji; }

    Session session;
    Watcher watcher;
};

// ---- connect, disconnect

TEST_F(MethodsTest, ConnectingIsAWishAlsoWithoutANetwork) {
    session.path.update(false);
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    EXPECT_EQ(kit.state().connection, Connection::offline);
    EXPECT_TRUE(session.transport.links.empty());
    session.path.update(true);
    EXPECT_EQ(session.transport.links.size(), 1u);
}

TEST_F(MethodsTest, ConnectingTwiceMakesOneLink) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    kit.connect();
    session.server().accept({listed(1)});
    kit.connect();
    EXPECT_EQ(session.transport.links.size(), 1u);
}

TEST_F(MethodsTest, DisconnectingIsFinal) {
    Kit& kit = connected();
    watcher.watch(kit);
    kit.disconnect();
    EXPECT_EQ(kit.state().connection, Connection::setup);
    session.loop.run();
    EXPECT_EQ(watcher.take(), (Strings{"Session Offline", "You disconnected from the server"}));
    session.loop.advance(1000);
    EXPECT_EQ(session.transport.links.size(), 1u);
    EXPECT_EQ(State::load(session.folder.path, {}).connection, Connection::setup);
    kit.disconnect();  // there is nothing left to end
    EXPECT_TRUE(watcher.take().empty());
}

TEST_F(MethodsTest, DisconnectingDropsAnArmedRetry) {
    Kit& kit = connected();
    session.server().link->end();
    kit.disconnect();
    session.loop.advance(1000);
    EXPECT_EQ(session.transport.links.size(), 1u);
}

// ---- setEndpoint

TEST_F(MethodsTest, ThePresentEndpointChangesNothing) {
    Kit& kit = connected();
    const Socket* socket = kit.socket();
    Watcher states;
    states.watchState(kit);
    kit.setEndpoint(session.endpoint);
    EXPECT_EQ(kit.socket(), socket);
    EXPECT_TRUE(states.take().empty());
    EXPECT_TRUE(kit.socket()->isConnected());
}

TEST_F(MethodsTest, ANewServerStartsFreshAndIsNotConnectedTo) {
    Kit& kit = connected();
    kit.send("hi", Kit::roomKey);
    watcher.watch(kit);
    kit.setEndpoint(session.otherEndpoint);

    State fresh;
    fresh.publicKey = session.own;
    fresh.endpoint = session.otherEndpoint;
    EXPECT_EQ(kit.state(), fresh);
    EXPECT_EQ(kit.socket()->endpoint(), session.otherEndpoint.url());
    EXPECT_FALSE(kit.socket()->isConnecting());
    session.loop.advance(1000);
    EXPECT_EQ(session.transport.links.size(), 1u);
    // The old socket's last report reaches nobody.
    EXPECT_TRUE(watcher.take().empty());
    EXPECT_EQ(session.transport.links[0]->sent.back().closeCode, CloseCode::normalClosure);
    EXPECT_TRUE(session.transport.links[0]->isDestroyed);
}

TEST_F(MethodsTest, AServerThatWasUsedBeforeBringsItsHistoryBack) {
    Kit& kit = connected();
    kit.setName("Me");
    kit.send("hi", Kit::roomKey);
    kit.send("psst", keyTextOf(2));
    const Chat room = kit.state().room;
    const auto conversations = kit.state().conversations;
    kit.setEndpoint(session.otherEndpoint);  // saves the old server's state at once
    kit.setEndpoint(session.endpoint);
    EXPECT_EQ(kit.state().room, room);
    EXPECT_EQ(kit.state().conversations, conversations);
    EXPECT_EQ(myName(), "Me");
    EXPECT_EQ(kit.state().publicKey, session.own);
    EXPECT_EQ(kit.state().connection, Connection::offline);
    EXPECT_EQ(session.transport.links.size(), 1u);
    kit.connect();
    EXPECT_EQ(session.transport.links.size(), 2u);
}

TEST_F(MethodsTest, AChangeOfServersThatCantSaveGoesOn) {
    Kit& kit = connected();
    session.loop.advance(3);
    std::filesystem::remove(session.file("Room"));
    std::filesystem::create_directory(session.file("Room"));
    session.log.take();
    kit.setEndpoint(session.otherEndpoint);
    EXPECT_EQ(kit.state().endpoint, session.otherEndpoint);
    EXPECT_EQ(session.log.take().size(), 1u);
}

TEST_F(MethodsTest, AChangeOfServersDropsAnArmedRetry) {
    Kit& kit = connected();
    session.server().link->end();
    kit.setEndpoint(session.otherEndpoint);
    session.loop.advance(1000);
    EXPECT_EQ(session.transport.links.size(), 1u);
}

// ---- name and emoji

TEST_F(MethodsTest, ANameGoesToEverybodyAndThenIntoTheState) {
    Kit& kit = connected();
    kit.setEmoji("🦊");
    session.server().takePacks();
    watcher.watchTraffic(kit);
    watcher.then = [&](const std::string&) { EXPECT_EQ(myName(), ""); };  // sent before the state changes
    kit.setName("Me");
    EXPECT_EQ(watcher.take().size(), 1u);
    EXPECT_EQ(myName(), "Me");
    const auto packs = session.server().takePacks();
    ASSERT_EQ(packs.size(), 3u);
    for (std::uint8_t reader = 1; reader <= 3; ++reader)
        EXPECT_EQ(recordIn(packs[reader - 1u], keysOf(reader)),
                  (PackPlaintext{std::nullopt, "Me", "🦊", std::nullopt}));
}

TEST_F(MethodsTest, AnEmojiGoesToEverybodyWithTheName) {
    Kit& kit = connected();
    kit.setName("Me");
    session.server().takePacks();
    kit.setEmoji("🦊");
    EXPECT_EQ(myEmoji(), "🦊");
    const auto packs = session.server().takePacks();
    ASSERT_EQ(packs.size(), 3u);
    EXPECT_EQ(recordIn(packs[1], keysOf(2)), (PackPlaintext{std::nullopt, "Me", "🦊", std::nullopt}));
}

TEST_F(MethodsTest, WithoutALinkOrAnOwnEntryNothingIsSentOrChanged) {
    const auto everything = [](Kit& kit) {
        kit.setName("Me");
        kit.setEmoji("🦊");
        kit.command("name Me");
        kit.command("emoji 🦊");
        kit.send("hi", Kit::roomKey);
        kit.send("hi", keyTextOf(2));
        kit.send("hi", "not hexadecimal");
        kit.send("\xff", Kit::roomKey);
        EXPECT_FALSE(kit.canSend());
    };
    Kit& kit = session.start();
    everything(kit);  // no server
    kit.command("who");
    EXPECT_EQ(kit.state().room, Chat());

    kit.setEndpoint(session.endpoint);
    kit.connect();
    session.server().link->ready();
    session.server().greet();
    session.server().takePacks();
    const State before = kit.state();
    everything(kit);  // not authenticated
    kit.command("who");
    EXPECT_EQ(kit.state(), before);
    EXPECT_TRUE(session.server().takePacks().empty());

    session.server().sendList({listed(2)});
    const State without = kit.state();
    everything(kit);  // not on the list
    EXPECT_EQ(kit.state(), without);
    EXPECT_TRUE(session.server().takePacks().empty());
    kit.command("who");  // needs no own entry
    EXPECT_EQ(session.server().takeCommands(), (Strings{"who"}));

    session.server().sendList({listed(1), listed(2)});
    EXPECT_TRUE(kit.canSend());
    session.server().link->end();
    const State down = kit.state();
    everything(kit);
    kit.command("who");
    EXPECT_EQ(kit.state(), down);
    EXPECT_EQ(myName(), "");
}

// ---- command

TEST_F(MethodsTest, TheWordNameSetsWhatStandsBehindIt) {
    Kit& kit = connected();
    kit.command("name Ada");
    EXPECT_EQ(myName(), "Ada");
    kit.command("name Ada Lovelace");
    EXPECT_EQ(myName(), "Ada Lovelace");
    kit.command("   name Grace  Hopper");
    EXPECT_EQ(myName(), "Grace  Hopper");
}

TEST_F(MethodsTest, AWordOfOursWithNothingBehindItDoesNothing) {
    Kit& kit = connected();
    const State before = kit.state();
    for (const char* line : {"name", "name ", "name    ", " name ", "emoji", "emoji   ", "", " ", "     "})
        kit.command(line);
    EXPECT_EQ(kit.state(), before);
    EXPECT_TRUE(session.server().takePacks().empty());
}

TEST_F(MethodsTest, TheWordEmojiSetsTheFirstCharacterAlone) {
    Kit& kit = connected();
    kit.command("emoji 🦊🐻");
    EXPECT_EQ(myEmoji(), "🦊");
    kit.command("emoji 🐻 🦊");
    EXPECT_EQ(myEmoji(), "🐻");
    kit.command("emoji 👩🏽‍💻 is one");
    EXPECT_EQ(myEmoji(), "👩🏽‍💻");
    kit.command("emoji 🇨🇭🇩🇪");
    EXPECT_EQ(myEmoji(), "🇨🇭");
}

TEST_F(MethodsTest, AnyOtherLineGoesToTheServerAsItCame) {
    Kit& kit = connected();
    const Strings lines{"who", "add KEY", "Name Ada", "  names x ", "NAME", "emojis", "name\tx"};
    for (const std::string& line : lines) kit.command(line);
    EXPECT_EQ(session.server().takeCommands(), lines);
    EXPECT_EQ(myName(), "");
}

// ---- send

TEST_F(MethodsTest, ATextToTheRoomGoesToEverybodyAndIntoTheRoom) {
    Kit& kit = connected();
    kit.setName("Me");
    session.server().takePacks();
    watcher.watch(kit);
    session.loop.advance(5);
    kit.send("hello", Kit::roomKey);
    const auto packs = session.server().takePacks();
    ASSERT_EQ(packs.size(), 3u);
    for (std::uint8_t reader = 1; reader <= 3; ++reader)
        EXPECT_EQ(recordIn(packs[reader - 1u], keysOf(reader)), (PackPlaintext{"room", "Me", "", "hello"}));
    EXPECT_EQ(kit.state().room, (Chat{{{session.own, "hello", session.loop.now()}}, 0}));
    EXPECT_TRUE(kit.state().conversations.empty());
    EXPECT_TRUE(watcher.take().empty());  // no event for the user's own text
}

TEST_F(MethodsTest, ADirectTextGoesToOneAndIntoTheConversation) {
    Kit& kit = connected();
    kit.send("one", keyTextOf(2));
    kit.send("two", keyTextOf(2));
    const auto packs = session.server().takePacks();
    ASSERT_EQ(packs.size(), 2u);
    EXPECT_EQ(recordIn(packs[0], keysOf(2)), (PackPlaintext{std::nullopt, "", "", "one"}));
    const Chat* chat = kit.state().conversations.find(keyTextOf(2));
    ASSERT_TRUE(chat);
    ASSERT_EQ(chat->messages.size(), 2u);
    EXPECT_EQ(chat->messages[1], (Message{session.own, "two", session.loop.now()}));
    EXPECT_TRUE(kit.state().room.messages.empty());
}

TEST_F(MethodsTest, ATextToOneselfIsADirectOne) {
    Kit& kit = connected();
    kit.send("note", session.own);
    const auto packs = session.server().takePacks();
    ASSERT_EQ(packs.size(), 1u);
    EXPECT_EQ(packs[0].targetKey, keysOf(1).publicKey);
    EXPECT_EQ(kit.state().conversations.find(session.own)->messages.size(), 1u);
}

TEST_F(MethodsTest, ATextThatCantBeSentLeavesTheStateAsItWas) {
    Kit& kit = session.startConnected({listed(1), {"abcd", false, true}, listed(2)});
    const State before = kit.state();
    Watcher states;
    states.watchState(kit);
    EXPECT_THROW(kit.send("hi", "not hexadecimal"), SocketError);
    EXPECT_TRUE(session.server().takePacks().empty());
    EXPECT_THROW(kit.send("hi", "abcd"), NaclError);
    EXPECT_TRUE(session.server().takePacks().empty());
    EXPECT_THROW(kit.send("hi", Kit::roomKey), NaclError);
    EXPECT_EQ(session.server().takePacks().size(), 1u);  // those before the bad key have it
    EXPECT_THROW(kit.setName("Me"), NaclError);
    EXPECT_THROW(kit.command("emoji 🦊"), NaclError);
    EXPECT_EQ(kit.state(), before);
    EXPECT_TRUE(states.take().empty());
}

TEST_F(MethodsTest, TextThatIsNotUtf8IsRefusedAndKeepsNothingFromBeingSaved) {
    Kit& kit = connected();
    const State before = kit.state();
    EXPECT_THROW(kit.send("\xff", Kit::roomKey), SocketError);
    EXPECT_THROW(kit.send("\xff", keyTextOf(2)), SocketError);
    EXPECT_THROW(kit.setName("\xff"), SocketError);
    EXPECT_THROW(kit.command("emoji \xff"), SocketError);
    EXPECT_THROW(kit.command("\xff"), SocketError);
    EXPECT_EQ(kit.state(), before);
    EXPECT_TRUE(session.server().takePacks().empty());
    kit.save();
}

TEST_F(MethodsTest, WhatWasSentToOneServerDoesNotEnterTheHistoryOfAnother) {
    const std::function<void(Kit&)> operations[] = {
        [](Kit& kit) { kit.send("hi", Kit::roomKey); }, [](Kit& kit) { kit.send("hi", keyTextOf(2)); },
        [](Kit& kit) { kit.setName("Me"); }, [](Kit& kit) { kit.setEmoji("🦊"); }};
    for (const auto& operation : operations) {
        Session each;
        Kit& kit = each.startConnected({listed(1), listed(2)});
        Watcher traffic;
        traffic.watchTraffic(kit);
        traffic.then = [&](const std::string&) { kit.setEndpoint(each.otherEndpoint); };
        operation(kit);
        State fresh;
        fresh.publicKey = each.own;
        fresh.endpoint = each.otherEndpoint;
        EXPECT_EQ(kit.state(), fresh);
    }
}

// ---- what was in view

TEST_F(MethodsTest, MarkingAConversationReadNotesItsLength) {
    Kit& kit = connected();
    kit.send("one", keyTextOf(2));
    kit.send("two", keyTextOf(2));
    EXPECT_EQ(kit.state().conversations.find(keyTextOf(2))->readCount, 0);
    kit.markRead(keyTextOf(2));
    EXPECT_EQ(kit.state().conversations.find(keyTextOf(2))->readCount, 2);
    kit.send("three", keyTextOf(2));
    EXPECT_EQ(kit.state().conversations.find(keyTextOf(2))->readCount, 2);
}

TEST_F(MethodsTest, MarkingAnUnknownKeyChangesNothingButIsPublished) {
    Kit& kit = connected();
    kit.send("hi", Kit::roomKey);
    const State before = kit.state();
    watcher.watchState(kit);
    kit.markRead("unknown");
    kit.markRead(Kit::roomKey);
    EXPECT_EQ(kit.state(), before);
    EXPECT_EQ(watcher.take().size(), 2u);
}

TEST_F(MethodsTest, MarkingTheRoomReadNotesItsLength) {
    Kit& kit = connected();
    kit.send("hi", Kit::roomKey);
    kit.markRoomRead();
    EXPECT_EQ(kit.state().room.readCount, 1);
}

TEST_F(MethodsTest, OnlyALinkSatisfiesRequireOnline) {
    Kit& kit = session.start();
    try {
        kit.requireOnline();
        FAIL();
    } catch (const KitError& error) {
        EXPECT_EQ(error, KitError(KitError::Code::notConnected));
    }
    kit.setEndpoint(session.endpoint);
    kit.connect();
    EXPECT_THROW(kit.requireOnline(), KitError);
    session.server().accept({});
    EXPECT_NO_THROW(kit.requireOnline());
}

}  // namespace
