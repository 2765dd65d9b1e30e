#include "VimbleKit/ConsoleLines.h"

#include <gtest/gtest.h>

namespace {

const Person ada{"0123456789", "Ada", "🦊", false, true};
const Person nobody{"abcdef9876", "", "", false, true};
const Date when{1};

std::optional<std::string> line(const Event& event) { return ConsoleLines::line(event); }

TEST(ConsoleLinesTest, TheBannerHasTheVersionOrZero) {
    EXPECT_EQ(ConsoleLines::banner("1.2.3"), "Vimble 1.2.3");
    EXPECT_EQ(ConsoleLines::banner({}), "Vimble 0.0");
}

TEST(ConsoleLinesTest, TrafficStandsBehindItsArrow) {
    EXPECT_EQ(ConsoleLines::line(NetworkIO{NetworkIO::Direction::inbound, "list of 3 people"}), "← list of 3 people");
    EXPECT_EQ(ConsoleLines::line(NetworkIO{NetworkIO::Direction::outbound, "scmd: who"}), "→ scmd: who");
}

TEST(ConsoleLinesTest, TheSessionsStatesHaveALineEach) {
    EXPECT_EQ(ConsoleLines::line(Online::startup), "Session Starting Up");
    EXPECT_EQ(ConsoleLines::line(Online::online), "Session Online");
    EXPECT_EQ(ConsoleLines::line(Online::offline), "Session Offline");
}

TEST(ConsoleLinesTest, EventsHaveTheirLines) {
    EXPECT_EQ(line(Events::Add{ada, nobody, when}), "anonymousabcdef was added to the conversation");
    EXPECT_EQ(line(Events::Remove{nobody, ada, when}), "Ada was removed from the conversation");
    EXPECT_EQ(line(Events::Join{nobody, when}), "anonymousabcdef is online");
    EXPECT_EQ(line(Events::Leave{ada, when}), "Ada went away");
    EXPECT_EQ(line(Events::NameSet{ada, "anonymous012345", when}), "anonymous012345 changed name to Ada");
    EXPECT_EQ(line(Events::EmojiSet{ada, "😐", when}), "Ada changed emoji to 🦊");
    EXPECT_EQ(line(Events::EmojiSet{nobody, "🦊", when}), "anonymousabcdef changed emoji to 😐");
    EXPECT_EQ(line(Events::Message{ada, "hi: there", when}), "Message from Ada: hi: there");
    EXPECT_EQ(line(Events::ConnectFailed{"why"}), "Connection failed: why");
    EXPECT_EQ(line(Events::AuthorizationFailed{"why"}), "Authorization failed: why");
    EXPECT_EQ(line(Events::Error{"why"}), "Something went wrong: why");
    EXPECT_EQ(line(Events::Connected{}), "Connected to the server");
    EXPECT_EQ(line(Events::Disconnected{}), "You disconnected from the server");
}

TEST(ConsoleLinesTest, TheAnswersToCommandsHaveNoLine) {
    EXPECT_FALSE(line(Events::CommandFailed{"x"}));
    EXPECT_FALSE(line(Events::CommandResponded{"x"}));
}

TEST(ConsoleLinesTest, ARosterShowsEveryFieldByName) {
    EXPECT_EQ(line(Events::Roster{{}}), "Roster update: []");
    EXPECT_EQ(line(Events::Roster{{ada}}),
              "Roster update: [Person(publicKey: \"0123456789\", name: \"Ada\", emoji: \"🦊\", isAdmin: false, "
              "isOnline: true)]");
}

}  // namespace
