#include "SessionWorld.h"

#include "VimbleKit/KitError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const TerminalSession::Settings interactive{.form = OutputForm::plain, .version = "1.2", .isInteractive = true};
const TerminalSession::Settings json{.form = OutputForm::json, .version = "1.2", .isInteractive = false};

}  // namespace

// ---- output

TEST(TerminalSessionTest, TheBannerComesFirstAndThenWhatHappensInItsOrder) {
    SessionWorld world;
    world.startAndAnswer();
    const auto& lines = world.output.lines;
    ASSERT_GE(lines.size(), 9u);
    EXPECT_EQ(lines[0], "Vimble 1.2");
    EXPECT_EQ(lines[1], "Session Starting Up");
    EXPECT_EQ(lines[2], "→ scmd: list");
    EXPECT_EQ(lines[3], "Session Online");
    EXPECT_EQ(lines[4], "Connected to the server");
    EXPECT_EQ(lines[5], "← list of 3 people");
    EXPECT_EQ(world.output.count("anonymous"), 3);
    EXPECT_THAT(lines.back(), HasSubstr("Roster update: [Person("));
    EXPECT_THAT(world.output.notes, IsEmpty());
}

TEST(TerminalSessionTest, WordsOfOthersAreEscapedAndOurArrowsAreNot) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    server.relay(world.bob, {"room", "Bo\x1b[2Jb", "🙂", "a\nb \u202e \\ é"});
    EXPECT_TRUE(world.output.has(R"(Message from Bo\u{1b}[2Jb: a\nb \u{202e} \\ é)"));
    world.type("hello → there\n");
    EXPECT_THAT(world.output.lines.back(), AllOf(HasSubstr("→ chat ×["), HasSubstr(": hello → there")));
}

TEST(TerminalSessionTest, AMessageWithControlCharactersDoesNotSpoilTheSavedHistory) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    const std::string text = "a long line with \x1b[2J in the middle of it";
    server.relay(world.bob, {"room", "Bob", "", text});
    world.session->inputEnded();
    world.loop.run();
    const State saved = State::load(world.folder.path, {});
    ASSERT_EQ(saved.room.messages.size(), 1u);
    EXPECT_EQ(saved.room.messages[0].text, text);
}

TEST(TerminalSessionTest, JsonTellsTheRoomFromADirectMessageAlsoAtOneInstantWithOneText) {
    SessionWorld world(json);
    FakeServer& server = world.startAndAnswer();
    world.output.lines.clear();
    server.relay(world.bob, {"room", "Bob", "🙂", "hi"});
    server.relay(world.bob, {std::nullopt, "Bob", "🙂", "hi"});
    server.relay(world.bob, {"room", "Bob", "🙂", "hi"});
    std::vector<std::string> rooms;
    for (const std::string& line : world.output.lines)
        if (line.find(R"("type":"message")") != std::string::npos)
            rooms.push_back(line.find(R"("room":true)") != std::string::npos ? "room" : "direct");
    EXPECT_THAT(rooms, ElementsAre("room", "direct", "room"));
}

TEST(TerminalSessionTest, JsonTellsWhatTheUserSaid) {
    SessionWorld world(json);
    world.startAndAnswer();
    world.type("hi\n@" + keyTextOf(2) + " you\n/who\n@nobody x\n");
    EXPECT_EQ(world.output.count(R"({"type":"banner","version":"1.2","key":")" + keyTextOf(1)), 1);
    EXPECT_EQ(world.output.count(R"({"type":"sent","room":true,"text":"hi")"), 1);
    EXPECT_EQ(world.output.count(R"({"type":"sent","room":false,"to":")" + keyTextOf(2) + R"(","text":"you")"), 1);
    EXPECT_EQ(world.output.count(R"({"type":"sentCommand","command":"who")"), 1);
    EXPECT_EQ(world.output.count(R"({"type":"notSent","line":"@nobody x")"), 1);
}

// ---- sending

TEST(TerminalSessionTest, ALineGoesToEverybodyAndADirectMessageToOne) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    world.type("hello\n");
    EXPECT_THAT(server.takePacks(), SizeIs(3));
    world.type("hello again\n");
    const auto room = world.takeRecords(server, world.bob);
    ASSERT_THAT(room, SizeIs(1));
    EXPECT_EQ(room[0].text, "hello again");
    EXPECT_EQ(room[0].kind, "room");

    world.type("@" + keyTextOf(2).substr(0, 6) + " only you\n");
    const auto packs = server.takePacks();
    ASSERT_THAT(packs, SizeIs(1));
    const auto direct = recordIn(packs[0], world.bob);
    ASSERT_TRUE(direct);
    EXPECT_EQ(direct->text, "only you");
    EXPECT_EQ(direct->kind, std::nullopt);
}

TEST(TerminalSessionTest, ACommandGoesToTheServerWithoutItsSlash) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    world.type("/who is there\n//x\n/\n\n");
    EXPECT_THAT(server.takeCommands(), ElementsAre("who is there", "/x"));
    world.type("/name Ann Lee\n");
    EXPECT_EQ(world.kit->state().me()->name, "Ann Lee");
    EXPECT_THAT(server.takeCommands(), IsEmpty());
}

TEST(TerminalSessionTest, AMisspeltNameIsToldAndGoesToNobody) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    world.type("@Bbo secret\n@ secret\n@\n");
    EXPECT_THAT(server.takePacks(), IsEmpty());
    EXPECT_THAT(world.output.notes, SizeIs(3));
    EXPECT_THAT(world.output.notes[0], HasSubstr("there is nobody called \"Bbo\""));
}

TEST(TerminalSessionTest, WhatIsTypedBeforeTheLinkWaitsForTheListAndGoesInOrder) {
    SessionWorld world;
    world.start();
    world.type("one\n/two\n@" + keyTextOf(2).substr(0, 8) + " three\n/name Ann\nfour\n");
    FakeServer server(world.transport.links.back(), world.me.publicKey);
    server.link->ready();
    server.greet();
    world.loop.run();
    EXPECT_THAT(server.takeCommands(), ElementsAre("list"));

    // Nothing is sent before the user is on the list.
    server.sendList({{keyTextOf(2), false, true}});
    world.loop.run();
    EXPECT_THAT(server.takePacks(), IsEmpty());

    server.sendList(SessionWorld::everybody());
    world.loop.run();
    std::vector<std::string> order;
    for (const EncryptedPack& pack : server.takePacks()) {
        if (pack.targetKey == server.keys.publicKey)
            order.emplace_back("command");
        else if (const auto record = recordIn(pack, world.bob))
            order.push_back(record->text.value_or("name " + record->name));
    }
    EXPECT_THAT(order, ElementsAre("one", "command", "three", "name Ann", "four"));
    EXPECT_THAT(world.output.notes, IsEmpty());
}

TEST(TerminalSessionTest, NothingIsSealedForAListThatHasNotComeOverThisLink) {
    SessionWorld world;
    FakeServer& first = world.startAndAnswer();
    first.link->end();
    world.loop.run();
    world.type("while away\n");
    world.loop.advance(1.0);  // the first retry

    ASSERT_THAT(world.transport.links, SizeIs(2));
    FakeServer second(world.transport.links.back(), world.me.publicKey);
    second.link->ready();
    second.greet();
    // The link is authenticated, but has no list: the engine would seal the line for nobody, and forget it.
    second.sendResponse("welcome");
    world.loop.run();
    EXPECT_TRUE(world.kit->canSend());
    EXPECT_TRUE(world.takeRecords(second, world.bob).empty());

    second.sendList(SessionWorld::everybody());
    world.loop.run();
    const auto records = world.takeRecords(second, world.bob);
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(records[0].text, "while away");
}

TEST(TerminalSessionTest, WhomAMessageIsForIsDecidedWhenItIsTyped) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    server.relay(world.bob, {std::nullopt, "Bob", "", std::nullopt});
    world.keepsDrains = true;
    // Type so many lines that the last ones have to wait.
    for (int i = 0; i < 200; ++i) world.session->read("x\n");
    world.session->read("@Bob secret\n");
    world.loop.run();
    world.takeRecords(server, world.bob);
    server.relay(world.bob, {std::nullopt, "Robert", "", std::nullopt});
    server.relay(keysOf(3), {std::nullopt, "Bob", "", std::nullopt});
    world.loop.advance(1.0);
    const auto records = world.takeRecords(server, world.bob);
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(records[0].text, "secret");
}

TEST(TerminalSessionTest, LinesGoOutAtAPaceThatARelayMinds) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    std::string text;
    for (int i = 0; i < 1000; ++i) text += "line\n";
    world.type(text);
    EXPECT_THAT(world.takeRecords(server, world.bob), SizeIs(200));
    world.loop.advance(1.0);
    const auto inOneSecond = world.takeRecords(server, world.bob).size();
    EXPECT_GE(inOneSecond, 70u);
    EXPECT_LE(inOneSecond, 80u);
    world.loop.advance(10.0);
    EXPECT_EQ(world.takeRecords(server, world.bob).size(), 800 - inOneSecond);
    EXPECT_THAT(world.kit->state().room.messages, SizeIs(1000));
}

TEST(TerminalSessionTest, TheInputIsNotReadOnWhileTooMuchWaits) {
    SessionWorld world;
    world.start();
    const std::string line(InputLines::maximumBytes, 'x');
    for (std::size_t bytes = 0; bytes <= TerminalSession::mostWaitingBytes; bytes += line.size())
        world.session->read(line + "\n");
    world.loop.run();
    EXPECT_THAT(world.output.reading, ElementsAre(false));
    world.answer({{keyTextOf(1), false, true}});
    EXPECT_THAT(world.output.reading, ElementsAre(false, true));
}

TEST(TerminalSessionTest, OnlySomebodyAtAKeyboardIsToldThatTheirWordsWait) {
    SessionWorld script;
    script.start();
    script.type("hello\n");
    EXPECT_THAT(script.output.notes, IsEmpty());

    SessionWorld person(interactive);
    person.start();
    EXPECT_THAT(person.output.notes, ElementsAre("connecting to chat.example.org; your key is " + keyTextOf(1)));
    person.type("hello\n");
    person.type("hello?\n");
    EXPECT_THAT(person.output.notes, ElementsAre(testing::_, "there is no link yet; what you say waits for it"));
}

TEST(TerminalSessionTest, ALineThatATerminalMayHaveCutIsRefused) {
    SessionWorld person(interactive);
    FakeServer& server = person.startAndAnswer();
    person.type(std::string(4095, 'x') + "\n");
    EXPECT_THAT(person.output.notes.back(), testing::StartsWith("not sent: a terminal cuts lines at 4095 bytes"));
    EXPECT_THAT(server.takePacks(), IsEmpty());
    person.type(std::string(4094, 'x') + "\n");
    EXPECT_EQ(person.takeRecords(server, person.bob).size(), 1u);

    SessionWorld script;
    FakeServer& other = script.startAndAnswer();
    script.type(std::string(4095, 'x') + "\n");
    EXPECT_EQ(script.takeRecords(other, script.bob).size(), 1u);
}

TEST(TerminalSessionTest, TroubleBelowTheEngineIsToldWithoutItsControlCharacters) {
    SessionWorld world;
    world.start();
    world.session->trouble("refused\x1b");
    EXPECT_THAT(world.output.notes, ElementsAre("no link: refused\\u{1b}"));
}

// ---- the end of input

TEST(TerminalSessionTest, WithNothingSaidTheEndOfInputEndsAtOnceAndSavesTheWishToBeConnected) {
    SessionWorld world;
    world.start();
    world.session->inputEnded();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(0));
    const State saved = State::load(world.folder.path, {});
    EXPECT_EQ(saved.endpoint, Endpoint::parse("chat.example.org"));
    EXPECT_EQ(saved.connection, Connection::offline);
}

TEST(TerminalSessionTest, AtTheEndOfInputWhatWasSaidIsProvedAndSaved) {
    SessionWorld world;
    world.keepsDrains = true;
    world.startAndAnswer();
    world.session->read("hello\nlast");
    world.session->inputEnded();
    world.loop.run();
    EXPECT_THAT(world.output.endings, IsEmpty());
    ASSERT_THAT(world.drains, SizeIs(1));
    world.drains.front().second(true);
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(0));
    EXPECT_THAT(world.output.notes, IsEmpty());
    EXPECT_EQ(State::load(world.folder.path, {}).room.messages.size(), 2u);
    EXPECT_EQ(State::load(world.folder.path, {}).connection, Connection::offline);
    // The session does not disconnect: ending the program closes the link.
    EXPECT_EQ(world.kit->state().connection, Connection::online);
}

TEST(TerminalSessionTest, WhatCouldNotBeSentWithinThirtySecondsIsCounted) {
    SessionWorld world;
    world.start();
    world.type("one\ntwo\n");
    world.session->inputEnded();
    world.loop.advance(29.9);
    EXPECT_THAT(world.output.endings, IsEmpty());
    world.loop.advance(0.2);
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_THAT(world.output.notes, ElementsAre("2 lines were not sent"));
}

TEST(TerminalSessionTest, ALinkThatComesWithinTheTimeStillTakesEverything) {
    SessionWorld world;
    world.start();
    world.type("one\n");
    world.session->inputEnded();
    world.loop.advance(25.0);
    FakeServer& server = world.answer(SessionWorld::everybody());
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(0));
    EXPECT_FALSE(server.link->takeSent().size() > 3);
}

TEST(TerminalSessionTest, LinesWhoseLinkDiedBeforeTheProofAreCountedAsInDoubtAndNotSentAgain) {
    SessionWorld world;
    world.keepsDrains = true;
    FakeServer& server = world.startAndAnswer();
    world.type("one\ntwo\n");
    world.type("three\n");
    server.link->end();
    world.drains.front().second(false);
    world.loop.run();
    EXPECT_THAT(world.output.notes, ElementsAre("the link was lost: the last 2 lines may not have arrived"));
    ASSERT_THAT(world.drains, SizeIs(2));
    world.drains.back().second(false);
    world.loop.advance(1.0);
    FakeServer& second = world.answer(SessionWorld::everybody());
    EXPECT_THAT(second.takePacks(), IsEmpty());
    world.session->inputEnded();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_EQ(world.output.notes.back(), "3 lines may not have arrived");
}

TEST(TerminalSessionTest, RefusedLinesCountToo) {
    SessionWorld world;
    world.startAndAnswer();
    world.type("@nobody x\n\xff\n");
    world.session->inputEnded();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_EQ(world.output.notes.back(), "2 lines were not sent");
}

TEST(TerminalSessionTest, TheAnswerToACommandIsWaitedForAWhile) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    world.session->read("/who\n");
    world.session->inputEnded();
    world.loop.advance(1.0);
    EXPECT_THAT(world.output.endings, IsEmpty());
    server.sendResponse("nobody");
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(0));
    EXPECT_TRUE(world.output.has("← command response: nobody"));

    SessionWorld silent;
    silent.startAndAnswer();
    silent.session->read("/who\n");
    silent.session->inputEnded();
    silent.loop.advance(TerminalSession::answerPatience + 0.1);
    EXPECT_THAT(silent.output.endings, ElementsAre(0));
}

TEST(TerminalSessionTest, AStateThatCannotBeSavedIsTold) {
    SessionWorld world;
    world.start();
    // Put a file in the place of the state's folder.
    std::filesystem::remove_all(world.folder.path);
    Bytes nothing;
    std::FILE* file = std::fopen(world.folder.path.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    world.session->inputEnded();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_THAT(world.output.notes, ElementsAre(HasSubstr("the state could not be saved")));
}

// ---- signals, and the end of the output's reader

TEST(TerminalSessionTest, AnInterruptionSavesAndCountsWhatWaits) {
    SessionWorld world;
    world.start();
    world.type("one\n");
    world.session->interrupted();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_THAT(world.output.notes, ElementsAre("1 line was not sent"));
    EXPECT_TRUE(State::load(world.folder.path, {}).endpoint);
}

TEST(TerminalSessionTest, AnInterruptionWaitsTwoSecondsForTheProofOfWhatWentOut) {
    SessionWorld world;
    world.keepsDrains = true;
    world.startAndAnswer();
    world.type("one\n");
    world.session->interrupted();
    world.type("too late\n");
    world.loop.advance(1.9);
    EXPECT_THAT(world.output.endings, IsEmpty());
    world.loop.advance(0.2);
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_THAT(world.output.notes, ElementsAre("1 line may not have arrived"));
    world.drains.front().second(true);  // an answer after the end changes nothing
    world.loop.run();
    EXPECT_THAT(world.output.endings, SizeIs(1));
}

TEST(TerminalSessionTest, ASecondInterruptionEndsAtOnce) {
    SessionWorld world;
    world.keepsDrains = true;
    world.startAndAnswer();
    world.type("one\n");
    world.session->interrupted();
    world.session->interrupted();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
}

TEST(TerminalSessionTest, AnInterruptionCutsTheWaitAtTheEndOfInputShort) {
    SessionWorld world;
    world.start();
    world.type("one\n");
    world.session->inputEnded();
    world.loop.advance(1.0);
    world.session->interrupted();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
}

TEST(TerminalSessionTest, WhenNobodyReadsTheOutputTheProgramEnds) {
    SessionWorld world;
    world.startAndAnswer();
    const auto before = world.output.lines.size();
    world.session->outputClosed();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(0));
    EXPECT_EQ(world.output.lines.size(), before);
}

// ---- a refused key

TEST(TerminalSessionTest, ARefusedKeyEndsAScriptWithTheKeyThatTheAdministratorNeeds) {
    SessionWorld world;
    world.start();
    world.type("hello\n");
    FakeServer server(world.transport.links.back(), world.me.publicKey);
    server.link->ready();
    server.greet();
    server.refuse();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
    EXPECT_THAT(world.output.notes,
                ElementsAre(AllOf(HasSubstr("administrator"), HasSubstr(keyTextOf(1))), "1 line was not sent"));
    EXPECT_EQ(world.output.count("Authorization failed: "), 1);
    EXPECT_TRUE(world.output.has("Session Offline"));
}

TEST(TerminalSessionTest, ARemovedMemberHearsTheWholeStoryBeforeTheEnd) {
    SessionWorld world;
    FakeServer& server = world.startAndAnswer();
    server.refuse();
    world.loop.run();
    EXPECT_EQ(world.output.lines.back(), "You disconnected from the server");
    EXPECT_THAT(world.output.endings, ElementsAre(1));
}

TEST(TerminalSessionTest, ARefusedPersonAtAKeyboardMayTryAgainWithEnter) {
    SessionWorld world(interactive);
    world.start();
    world.type("hello\n");
    FakeServer refusing(world.transport.links.back(), world.me.publicKey);
    refusing.link->ready();
    refusing.greet();
    refusing.refuse();
    world.loop.run();
    EXPECT_THAT(world.output.endings, IsEmpty());
    EXPECT_THAT(world.output.notes.back(), AllOf(HasSubstr(keyTextOf(1)), HasSubstr("press Enter")));

    world.type("\n");
    FakeServer& server = world.answer(SessionWorld::everybody());
    world.loop.run();
    EXPECT_EQ(world.kit->state().connection, Connection::online);
    EXPECT_EQ(world.kit->state().room.messages.size(), 1u);
    // Enter alone does not connect again now.
    world.type("\n");
    EXPECT_EQ(world.transport.links.size(), 2u);
    static_cast<void>(server);
}

TEST(TerminalSessionTest, TheEndOfInputAfterARefusalDoesNotWait) {
    SessionWorld world(interactive);
    world.start();
    world.type("hello\n");
    FakeServer server(world.transport.links.back(), world.me.publicKey);
    server.link->ready();
    server.greet();
    server.refuse();
    world.loop.run();
    world.session->inputEnded();
    world.loop.run();
    EXPECT_THAT(world.output.endings, ElementsAre(1));
}
