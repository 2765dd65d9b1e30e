#include "ChatWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

using testing::HasSubstr;
using testing::Not;

namespace {

/// Two people on a running relay.
class TerminalChatTest : public testing::Test {
protected:
    void SetUp() override {
        world.startRelay();
        world.admit("ann", true);
        world.admit("bob");
    }

    std::unique_ptr<Process> connected(const std::string& name, std::vector<std::string> arguments = {}) {
        auto process = world.client(name, std::move(arguments));
        process->lineWith("list of ");
        return process;
    }

    /// Whether a user's saved room holds a text.
    bool isSaved(const std::string& name, const std::string& text) {
        for (const auto& [path, contents] : world.snapshot(name))
            if (path.ends_with("Room.json") && contents.find(text) != std::string::npos) return true;
        return false;
    }

    ChatWorld world;
};

}  // namespace

TEST_F(TerminalChatTest, TwoPeopleTalkInTheRoomAndDirectlyAndTheRosterFollows) {
    auto ann = connected("ann");
    EXPECT_TRUE(ann->output().starts_with("Vimble 1.0.0\nSession Starting Up\n"));
    auto bob = connected("bob");
    const std::string bobKey = world.key("bob");
    EXPECT_TRUE(ann->exactLine("anonymous" + bobKey.substr(0, 6) + " is online"));

    ann->write("/name Ann\n/emoji 🙂\nhello, everybody\n");
    EXPECT_TRUE(bob->exactLine("anonymous" + world.key("ann").substr(0, 6) + " changed name to Ann"));
    EXPECT_TRUE(bob->exactLine("Ann changed emoji to 🙂"));
    EXPECT_TRUE(bob->exactLine("Message from Ann: hello, everybody"));

    bob->write("@Ann only you: \x1b[31m \\ é\n");
    EXPECT_TRUE(ann->exactLine("Message from anonymous" + bobKey.substr(0, 6) + R"(: only you: \u{1b}[31m \\ é)"));
    ann->write("@" + bobKey.substr(0, 6) + " and only you\n");
    EXPECT_TRUE(bob->exactLine("Message from Ann: and only you"));

    ann->write("/who\n");
    const auto answer = ann->lineThatBegins("← command response: ");
    ASSERT_TRUE(answer);
    EXPECT_THAT(*answer, HasSubstr(bobKey));

    bob->closeInput();
    EXPECT_EQ(bob->wait(), 0);
    EXPECT_TRUE(ann->exactLine("anonymous" + bobKey.substr(0, 6) + " went away"));
    EXPECT_EQ(ann->errors(), "");
    EXPECT_EQ(bob->errors(), "");
}

TEST_F(TerminalChatTest, HistoryIsThereAfterAnyOfTheThreeWasKilled) {
    auto ann = connected("ann");
    auto bob = connected("bob");
    ann->write("/name Ann\nbefore the storm\n");
    EXPECT_TRUE(bob->exactLine("Message from Ann: before the storm"));
    EXPECT_TRUE(eventually([&] { return isSaved("ann", "before the storm") && isSaved("bob", "before the storm"); }));

    // Kill a client: the relay keeps for it what is said meanwhile.
    ann->kill();
    EXPECT_TRUE(bob->exactLine("Ann went away"));
    bob->write("while Ann was dead\n");
    EXPECT_TRUE(world.waitForCount("packs_stored_total", 1));

    // Kill the relay: the other client reconnects by itself, and sends what was typed in the gap.
    world.relay->kill();
    EXPECT_TRUE(bob->exactLine("You disconnected from the server"));
    bob->write("into the gap\n");
    world.startRelay();
    EXPECT_TRUE(bob->exactLine("Connected to the server"));
    EXPECT_TRUE(world.waitForCount("mail_packs", 2));

    // Start the first client again.
    ann = connected("ann");
    EXPECT_TRUE(ann->lineWith(": while Ann was dead"));
    EXPECT_TRUE(ann->lineWith(": into the gap"));
    ann->closeInput();
    EXPECT_EQ(ann->wait(), 0);
    for (const char* text : {"before the storm", "while Ann was dead", "into the gap"}) {
        EXPECT_TRUE(isSaved("ann", text)) << text;
        EXPECT_TRUE(eventually([&] { return isSaved("bob", text); })) << text;
    }
    // Kill and restart the other client.
    bob->kill();
    bob = connected("bob");
    bob->closeInput();
    EXPECT_EQ(bob->wait(), 0);
    EXPECT_TRUE(isSaved("bob", "into the gap"));
}

TEST_F(TerminalChatTest, MailIsInTheHistoryAlsoWhenNobodyReadsTheOutputAnyMore) {
    auto ann = connected("ann");
    {
        auto bob = connected("bob");
        EXPECT_TRUE(ann->lineWith(" is online"));
        bob->kill();
        EXPECT_TRUE(ann->lineWith(" went away"));
    }
    for (int round = 0; round < 5; ++round) {
        const std::string text = "while Bob was away, " + std::to_string(round);
        ann->write(text + "\n");
        EXPECT_TRUE(ann->lineThatBegins("→ chat ×"));
        // Bob's output is closed after one line. The next line, which his client can't write any more, is about the
        // list, and his mail follows right behind it.
        auto bob = world.client("bob", {"--json"});
        EXPECT_TRUE(bob->lineThatBegins(R"({"type":"banner")"));
        bob->closeOutput();
        EXPECT_TRUE(bob->wait());
    }
    auto bob = connected("bob");
    bob->closeInput();
    EXPECT_EQ(bob->wait(), 0);
    for (int round = 0; round < 5; ++round)
        EXPECT_TRUE(isSaved("bob", "while Bob was away, " + std::to_string(round))) << round;
}

TEST_F(TerminalChatTest, JsonIsAnObjectALineThatTellsTheRoomFromAPerson) {
    auto ann = connected("ann", {"--json"});
    auto bob = connected("bob");
    const std::string bobKey = world.key("bob");
    EXPECT_TRUE(ann->output().starts_with(R"({"type":"banner","version":"1.0.0","key":")" + world.key("ann")));
    bob->write("to all\n@" + world.key("ann") + " to one\n");
    const auto room = ann->lineWith(R"("text":"to all")");
    ASSERT_TRUE(room);
    EXPECT_THAT(*room, HasSubstr(R"({"type":"message","room":true,"from":")" + bobKey));
    const auto direct = ann->lineWith(R"("text":"to one")");
    ASSERT_TRUE(direct);
    EXPECT_THAT(*direct, HasSubstr(R"({"type":"message","room":false,"from":")" + bobKey));
    ann->write("mine\n");
    EXPECT_TRUE(ann->lineThatBegins(R"({"type":"sent","room":true,"text":"mine")"));
    bob->closeInput();
    EXPECT_TRUE(ann->lineThatBegins(R"({"type":"leave","key":")" + bobKey));
}

TEST_F(TerminalChatTest, ARefusedKeyIsToldWithTheKeyThatTheAdministratorNeeds) {
    auto carol = world.client("carol");
    EXPECT_EQ(carol->wait(), 1);
    EXPECT_THAT(carol->output(), HasSubstr("\nAuthorization failed: "));
    EXPECT_THAT(carol->errors(), HasSubstr(world.key("carol")));
    EXPECT_THAT(carol->errors(), HasSubstr("administrator"));

    auto ann = connected("ann");
    ann->write("/add " + world.key("carol") + "\n");
    EXPECT_TRUE(ann->lineWith(" was added to the conversation"));
    EXPECT_TRUE(ann->lineThatBegins("← command response: "));
    carol = connected("carol");
    EXPECT_TRUE(ann->exactLine("anonymous" + world.key("carol").substr(0, 6) + " is online"));
}

TEST_F(TerminalChatTest, ARefusedPersonAtATerminalTriesAgainWithEnter) {
    auto start = world.clientStart("carol", {"--server", world.server()});
    start.input = Process::Input::terminal;
    Process carol(start);
    EXPECT_TRUE(carol.errorWith("press Enter"));
    world.admit("carol");
    EXPECT_TRUE(world.waitForCount("members", 3));
    carol.write("\n");
    EXPECT_TRUE(carol.lineWith("list of 3 people"));
    carol.write("\x04");  // Ctrl-D
    EXPECT_EQ(carol.wait(), 0);
}

TEST_F(TerminalChatTest, AtTheEndOfInputAScriptsLinesHaveArrived) {
    auto start = world.clientStart("ann", {"--server", world.server()});
    start.inputFile = (world.folder.path / "script").string();
    std::ofstream(start.inputFile) << "/name Ann\r\none\n@" << world.key("bob") << " two\nlast without an end";
    std::string errors;
    EXPECT_EQ(world.run(start, nullptr, &errors), 0) << errors;
    EXPECT_EQ(errors, "");

    auto bob = connected("bob");
    EXPECT_TRUE(bob->exactLine("Message from Ann: one"));
    EXPECT_TRUE(bob->exactLine("Message from Ann: two"));
    EXPECT_TRUE(bob->exactLine("Message from Ann: last without an end"));
}

TEST_F(TerminalChatTest, WhatIsSaidBeforeTheRelayIsThereArrivesWhenItComes) {
    world.relay->signal(SIGTERM);
    EXPECT_EQ(world.relay->wait(), 0);
    auto ann = world.client("ann");
    ann->write("early bird\n");
    ann->closeInput();
    EXPECT_TRUE(ann->errorWith("no link: "));
    world.startRelay();
    EXPECT_EQ(ann->wait(), 0);
    // The same trouble is reported only once.
    EXPECT_EQ(ann->errors().find("no link: "), ann->errors().rfind("no link: "));

    auto bob = connected("bob");
    EXPECT_TRUE(bob->lineWith(": early bird"));
}

TEST_F(TerminalChatTest, ASignalSavesAndEnds) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        auto ann = connected("ann");
        const std::string text = "before signal " + std::to_string(signal);
        ann->write(text + "\n");
        EXPECT_TRUE(ann->lineWith(": " + text));
        ann->signal(signal);
        EXPECT_EQ(ann->wait(), 0) << ann->errors();
        EXPECT_TRUE(isSaved("ann", text));
    }
}

TEST_F(TerminalChatTest, AFolderInUseIsToldWithWhoUsesItAndNothingChanges) {
    auto ann = connected("ann");
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(world.dataFolder("ann") / "app/Endpoint.json"); }));
    // Ann's program has written its files by now. Stop it, so that any change to them is the second program's doing.
    ann->signal(SIGSTOP);
    const auto before = world.snapshot("ann");
    std::string output, errors;
    EXPECT_EQ(world.run(world.clientStart("ann", {"--server", "chat.example.org"}), &output, &errors), 1);
    EXPECT_EQ(world.snapshot("ann"), before);
    EXPECT_EQ(output, "");
    EXPECT_THAT(errors, HasSubstr("in use by vimble-terminal (process " + std::to_string(ann->id()) + ")"));
    // The public key can be asked for even while the folder is in use.
    EXPECT_EQ(world.run(world.clientStart("ann", {"--public-key"})), 0);
    ann->signal(SIGCONT);
}

TEST_F(TerminalChatTest, AReaderWhoGoesEndsTheProgram) {
    auto ann = connected("ann");
    auto bob = connected("bob");
    ann->closeOutput();
    bob->write("is anybody there?\n");
    // This text's line is the first that Ann's program can't write.
    EXPECT_EQ(ann->wait(), 0) << ann->errors();
}

TEST_F(TerminalChatTest, TheLastServerIsUsedWhereNoneIsNamed) {
    connected("ann")->kill();
    auto first = connected("ann");
    first->closeInput();
    EXPECT_EQ(first->wait(), 0);
    Process second(world.clientStart("ann"));
    EXPECT_TRUE(second.lineWith("list of 2 people"));
}

TEST_F(TerminalChatTest, DebugLinesGoToStandardErrorAndOnlyIfAskedFor) {
    auto ann = connected("ann", {"--debug"});
    EXPECT_TRUE(ann->errorWith("Got Websocket server key: "));
    EXPECT_TRUE(ann->errorWith("core state changed"));
    EXPECT_THAT(ann->output(), Not(HasSubstr("Websocket")));
    auto bob = connected("bob");
    bob->closeInput();
    EXPECT_EQ(bob->wait(), 0);
    EXPECT_EQ(bob->errors(), "");
}

TEST_F(TerminalChatTest, LinesThatCanNotBeTakenAreRefusedAndCounted) {
    auto ann = connected("ann");
    ann->write(std::string(70000, 'x') + "\n\xff\xfe\n@nobody hi\n" + std::string(65536, 'y') + "\n");
    EXPECT_TRUE(ann->errorWith("not sent: a line is longer than 64 KiB"));
    EXPECT_TRUE(ann->errorWith("not sent: a line is not UTF-8"));
    EXPECT_TRUE(ann->errorWith("not sent: there is nobody called \"nobody\""));
    ann->closeInput();
    EXPECT_EQ(ann->wait(), 1);
    EXPECT_THAT(ann->errors(), HasSubstr("3 lines were not sent\n"));
    EXPECT_TRUE(isSaved("ann", std::string(65536, 'y')));
}
