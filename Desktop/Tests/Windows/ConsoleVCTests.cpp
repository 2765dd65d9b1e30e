#include "DesktopKit/ConsoleVC.h"
#include "DesktopViews/ConnectionView.h"
#include "DesktopViews/ConsoleInputField.h"
#include "DesktopViews/ConsoleOutputView.h"
#include "TestSupport/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QTest>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class ConsoleVCTest : public testing::Test {
protected:
    /// Starts the session, as the program does, with a console that hears all of it.
    void start() {
        session.start();
        console = std::make_unique<ConsoleVC>(*session.kit, "1.2", [] { return Date{}; });
        console->resize(640, 480);
        console->show();
        take();
    }
    void connect(const std::vector<MetaPerson>& people) {
        session.kit->setEndpoint(session.endpoint);
        session.kit->connect();
        session.loop.run();
        session.server().accept(people);
        session.loop.run();
        session.server().takePacks();
    }
    /// The lines since the last call.
    std::vector<std::string> take() {
        std::vector<std::string> lines;
        const QStringList all = console->output().toPlainText().split('\n');
        for (; taken < all.size(); ++taken) lines.push_back(all[taken].toStdString());
        return lines;
    }
    /// The lines since the last call, without those of the traffic.
    std::vector<std::string> takeSaid() {
        std::vector<std::string> lines = take();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("←") || line.starts_with("→"); });
        return lines;
    }
    void enter(const QString& text) {
        QTest::keyClicks(&console->input().textField(), text);
        QTest::keyClick(&console->input().textField(), Qt::Key_Return);
        session.loop.run();
    }
    std::vector<std::string> commands() { return session.server().takeCommands(); }
    void says(std::uint8_t author, const PackPlaintext& record) {
        session.server().relay(keysOf(author), record);
        session.loop.run();
    }

    Session session;
    std::unique_ptr<ConsoleVC> console;
    qsizetype taken = 0;
};

}  // namespace

TEST_F(ConsoleVCTest, BeginsWithTheBannerAndTheSessionStartingUp) {
    session.start();
    console = std::make_unique<ConsoleVC>(*session.kit, "1.2", [] { return Date{}; });
    EXPECT_THAT(take(), ElementsAre("Vimble 1.2", "Session Starting Up"));
    EXPECT_TRUE(console->input().isOffline());
    EXPECT_FALSE(console->input().connection().isHidden());

    taken = 0;
    console = std::make_unique<ConsoleVC>(*session.kit, std::nullopt, [] { return Date{}; });
    EXPECT_THAT(take(), ElementsAre("Vimble 0.0", "Session Starting Up"));
}

TEST_F(ConsoleVCTest, TellsOfTheLinkAndShowsThePillUnlessOnline) {
    start();
    connect({listed(1)});
    const auto lines = take();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_THAT(lines, testing::Contains("Session Online"));
    EXPECT_THAT(lines, testing::Contains("Connected to the server"));
    EXPECT_THAT(lines, testing::Contains(StartsWith("← ")));
    EXPECT_THAT(lines, testing::Contains(StartsWith("→ ")));
    EXPECT_FALSE(console->input().isOffline());

    session.kit->disconnect();
    session.loop.run();
    EXPECT_THAT(takeSaid(), ElementsAre("Session Offline", "You disconnected from the server"));
    EXPECT_TRUE(console->input().isOffline());
}

TEST_F(ConsoleVCTest, HearsAllWhileItIsHidden) {
    start();
    console->hide();
    connect({listed(1)});
    EXPECT_THAT(takeSaid(), testing::Contains("Session Online"));
    EXPECT_FALSE(console->input().isOffline());
}

TEST_F(ConsoleVCTest, ACommandGoesToTheServerWithOrWithoutItsSlash) {
    start();
    connect({listed(1)});
    enter("/who");
    EXPECT_THAT(commands(), ElementsAre("who"));
    enter("who");
    EXPECT_THAT(commands(), ElementsAre("who"));
    enter("//who");
    EXPECT_THAT(commands(), ElementsAre("/who"));
    EXPECT_EQ(console->input().textField().text(), "");
}

TEST_F(ConsoleVCTest, ALoneSlashEmptiesTheFieldAndSendsNothing) {
    start();
    connect({listed(1)});
    take();
    enter("/");
    EXPECT_THAT(commands(), IsEmpty());
    EXPECT_THAT(take(), IsEmpty());
    EXPECT_EQ(console->input().textField().text(), "");
    enter("//");
    EXPECT_THAT(commands(), ElementsAre("/"));
}

TEST_F(ConsoleVCTest, WhatIsTypedIsShownByTheTrafficAlone) {
    start();
    connect({listed(1)});
    take();
    enter("who");
    EXPECT_THAT(take(), ElementsAre(StartsWith("→ ")));
}

TEST_F(ConsoleVCTest, ANameIsChangedByCommand) {
    start();
    connect({listed(1), listed(2)});
    takeSaid();
    enter("/name Ann");
    EXPECT_EQ(session.kit->state().me()->name, "Ann");
}

TEST_F(ConsoleVCTest, OfflineACommandIsStillTakenFromTheField) {
    start();
    take();
    enter("/who");
    EXPECT_EQ(console->input().textField().text(), "");
    EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ConsoleVCTest, AnswersToCommandsAreShownByTheTrafficAlone) {
    start();
    connect({listed(1)});
    take();
    session.server().sendResponse("five members");
    session.server().sendError("no such command");
    session.loop.run();
    EXPECT_THAT(take(), ElementsAre(StartsWith("← "), StartsWith("← ")));
}

TEST_F(ConsoleVCTest, SomebodyWithoutANameComesOnline) {
    start();
    connect({listed(1), listed(2, false)});
    takeSaid();
    session.server().sendList({listed(1), listed(2, true)});
    session.loop.run();
    EXPECT_THAT(takeSaid(), testing::Contains("anonymousce8d3a is online").Times(1));
}

TEST_F(ConsoleVCTest, AHostileNameKeepsToItsLine) {
    start();
    connect({listed(1), listed(2)});
    take();
    says(2, {std::nullopt, "Eve\nSession Offline\u202e<b>x</b>", "🙂", std::nullopt});
    for (const std::string& line : take()) {
        EXPECT_NE(line, "Session Offline");
        EXPECT_EQ(line.find("\u202e"), std::string::npos) << line;
    }
    EXPECT_FALSE(console->input().isOffline());
}

TEST_F(ConsoleVCTest, ShownItGivesTheFocusToTheField) {
    start();
    EXPECT_EQ(console->focusWidget(), &console->input().textField());
}

TEST_F(ConsoleVCTest, TheLineOfCommandTakesTheLastFortyPoints) {
    start();
    EXPECT_EQ(console->output().geometry(), QRect(0, 0, 640, 440));
    EXPECT_EQ(console->input().geometry(), QRect(0, 440, 640, 40));
}

TEST_F(ConsoleVCTest, TheSessionDoesNotMindThatItGoes) {
    start();
    connect({listed(1)});
    console.reset();
    session.server().sendResponse("five members");
    session.loop.run();
    EXPECT_TRUE(session.kit->canSend());
}
