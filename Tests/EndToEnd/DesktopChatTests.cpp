#include "Desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

using testing::HasSubstr;

namespace {

/// Ann and Bob on a running relay. In tests that do not look at Bob's screen he is at a terminal.
class DesktopChatTest : public testing::Test {
protected:
    void SetUp() override {
        world.startRelay();
        world.admit("ann", true);
        world.admit("bob");
    }

    std::unique_ptr<Process> bobAtATerminal() {
        auto bob = world.client("bob");
        bob->lineWith("list of ");
        bob->write("/name Bob\n/emoji 🦊\n");
        return bob;
    }

    /// The rows of a transcript that are showing at the moment, from the top.
    static std::vector<std::string> rowsShown(Desk& desk, const std::string& window) {
        std::vector<std::string> rows;
        for (const auto& item : desk.tree().items(window))
            if (item.role == "list item") rows.push_back(item.name);
        return rows;
    }

    ChatWorld world;
};

}  // namespace

TEST_F(DesktopChatTest, TwoPeopleNameThemselvesAndTalk) {
    Desk ann(world, "ann");
    Desk bob(world, "bob");
    const std::string annAtFirst = "anonymous" + world.key("ann").substr(0, 6);
    const std::string bobAtFirst = "anonymous" + world.key("bob").substr(0, 6);
    ann.start();
    bob.start();
    ann.doubleClick("People", bobAtFirst + ", online");
    ann.say(bobAtFirst, "/name Ann");
    bob.sees("People", "Ann, online");
    ann.sees("People", "Ann");
    bob.doubleClick("People", "Ann, online");
    bob.say("Ann", "/name Bob");
    bob.say("Ann", "/emoji 🦊");
    ann.sees("People", "Bob, online");
    // The window's title changes with the name, and a row in the talk says so.
    ann.activate("Bob");
    ann.sees("Bob", bobAtFirst + " name → Bob");
    ann.picture("talk-opened");

    ann.say("Bob", "hello, Bob");
    bob.sees("Ann", "hello, Bob");
    bob.say("Ann", "é, 漢 and 😀: see https://example.org/fox");
    ann.sees("Bob", "é, 漢 and 😀: see https://example.org/fox");
    for (const char* text : {"one", "two", "three"}) bob.say("Ann", text);
    ann.sees("Bob", "three");
    ann.picture("talk-answered");
    bob.picture("talk-answered");

    // Bob goes, and Ann sees it.
    bob.quit();
    ann.activate("People");
    ann.seesNoMore("People", "Bob");
    ann.picture("bob-away");
    ann.quit();
}

TEST_F(DesktopChatTest, WhoScrollsBackReadsOnWhileTextsArrive) {
    auto bob = bobAtATerminal();
    Desk ann(world, "ann");
    const std::string annKey = world.key("ann");
    ann.start();
    EXPECT_TRUE(bob->lineWith("is online"));
    for (int number = 1; number <= 60; ++number)
        bob->write("@" + annKey + " text number " + std::to_string(number) +
                   ", as long as it takes for a second line " +
                   "in a window that nobody has made any wider than it was\n");
    ann.doubleClick("People", "Bob, online");
    ann.activate("Bob");
    ann.sees("Bob", "text number 60,");
    ann.picture("at-the-end");
    for (int page = 0; page < 3; ++page) ann.press("Page_Up");
    ann.seesNoMore("Bob", "text number 60,");

    const auto transcript = ann.sees("Bob", "Transcript");
    ASSERT_TRUE(transcript);
    const auto place = ann.tree().place(*transcript);
    ASSERT_TRUE(place);
    // Leave out the scroll bar, which changes with each new text.
    const std::string part = std::to_string(place->width - 20) + "x" + std::to_string(place->height) + "+" +
                             std::to_string(place->x) + "+" + std::to_string(place->y);
    const auto rows = rowsShown(ann, "Bob");
    ASSERT_FALSE(rows.empty());
    const auto before = ann.picture("scrolled-back", part);

    for (int number = 61; number <= 70; ++number)
        bob->write("@" + annKey + " text number " + std::to_string(number) + "\n");
    EXPECT_TRUE(ann.comesTrue([&] { return world.isSaved("ann", "text number 70"); }));
    EXPECT_EQ(rowsShown(ann, "Bob"), rows);
    const auto after = ann.picture("while-texts-arrived", part);
    EXPECT_EQ(ann.screen().difference(before, after), 0);

    // Once the transcript is at its end again, it follows new texts.
    ann.click("Bob", "Transcript");
    ann.press("End");
    ann.sees("Bob", "text number 70");
    bob->write("@" + annKey + " the last one\n");
    ann.sees("Bob", "the last one");
    const auto atTheEnd = ann.picture("followed", part);
    EXPECT_GT(ann.screen().difference(after, atTheEnd).value_or(0), 0);
    ann.quit();
}

TEST_F(DesktopChatTest, TheRoomShowsWhoSpeaks) {
    auto bob = bobAtATerminal();
    Desk ann(world, "ann");
    ann.start();
    ann.sees("People", "Bob, online");
    bob->write("is anybody here?\n");
    // The row shows how many texts are unread.
    ann.sees("People", "Room, 1 unread");
    ann.activate("People");
    ann.picture("one-unread");
    ann.press("ctrl+3");
    ann.expectActive("Room");
    ann.sees("Room", "Bob,");
    ann.sees("Room", "is anybody here?");
    ann.seesNoMore("People", "unread");

    ann.say("Room", "/name Ann");
    ann.sees("People", "Ann, online");
    ann.say("Room", "we are");
    EXPECT_TRUE(bob->exactLine("Message from Ann: we are"));
    bob->write("good\nvery good\n");
    ann.sees("Room", "very good");
    world.admit("cleo");
    ann.sees("Room", "anonymous" + world.key("cleo").substr(0, 6));
    ann.picture("room");

    ann.press("ctrl+2");
    ann.expectActive("Console");
    ann.picture("console");
    // The same keys hide the window again.
    ann.press("ctrl+2");
    EXPECT_TRUE(ann.comesTrue([&] { return !ann.hasWindow("Console"); }));
    ann.activate("Room");
    ann.quit();
}

TEST_F(DesktopChatTest, ThePillTellsOfARelayThatIsGoneUntilItIsBack) {
    auto bob = bobAtATerminal();
    Desk ann(world, "ann");
    ann.start();
    ann.doubleClick("People", "Bob, online");
    ann.say("Bob", "before");
    EXPECT_TRUE(bob->lineWith("before"));
    EXPECT_FALSE(ann.find("Bob", "Offline"));

    world.relay->kill();
    ann.sees("Bob", "Offline");
    ann.sees("People", "Offline", "combo box");
    ann.picture("offline");
    // A text that can't be sent is put back into the field.
    ann.say("Bob", "into the gap");
    const auto input = ann.sees("Bob", "Message", "text");
    ASSERT_TRUE(input);
    EXPECT_TRUE(ann.comesTrue([&] { return ann.tree().text(*input) == "into the gap"; }));
    ann.picture("offline-text-kept");

    world.startRelay();
    ann.seesNoMore("Bob", "Offline");
    ann.sees("People", "Bob, online");
    ann.activate("Bob");
    ann.press("Return");
    EXPECT_TRUE(bob->lineWith("into the gap"));
    ann.sees("Bob", "into the gap", "list item");
    ann.picture("back");
    ann.quit();
}

TEST_F(DesktopChatTest, WhatIsShownIsCopiedAndALinkOpens) {
    // This stands for the program with which a desktop opens links.
    const auto opener = world.folder.path / "bin";
    std::filesystem::create_directories(opener);
    std::ofstream(opener / "xdg-open") << "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" << (opener / "opened").string()
                                       << "'\n";
    std::filesystem::permissions(opener / "xdg-open", std::filesystem::perms::owner_all);

    auto bob = bobAtATerminal();
    Desk ann(world, "ann");
    auto start = ann.programStart({"--server", world.server()});
    start.environment["PATH"] = opener.string() + ":" + start.environment["PATH"];
    ann.start(start);
    EXPECT_TRUE(bob->lineWith("is online"));
    bob->write("/name Bob\n@" + world.key("ann") + " https://example.org/the/long/tail/of/a/fox?colour=red\n");
    ann.doubleClick("People", "Bob, online");
    ann.activate("Bob");
    const auto row = ann.sees("Bob", "https://example.org", "list item");
    ASSERT_TRUE(row);
    const auto place = ann.tree().place(*row);
    ASSERT_TRUE(place);
    // This point is in the middle of the link, which fills nearly all of the row.
    ann.screen().click(place->x + 150, place->y + place->height / 2);
    EXPECT_TRUE(ann.comesTrue([&] { return std::filesystem::exists(opener / "opened"); }));
    ann.picture("link");
    std::string opened;
    std::getline(std::ifstream(opener / "opened"), opened);
    EXPECT_EQ(opened, "https://example.org/the/long/tail/of/a/fox?colour=red");

    // Copy all of the transcript, and paste it into the input.
    ann.click("Bob", "Transcript");
    ann.press("ctrl+a");
    ann.press("ctrl+c");
    const auto input = ann.sees("Bob", "Message", "text");
    ASSERT_TRUE(input);
    ann.click("Bob", "Message", "text");
    ann.press("ctrl+v");
    EXPECT_TRUE(ann.comesTrue([&] {
        return ann.tree().text(*input).find("https://example.org/the/long/tail/of/a/fox?colour=red") !=
               std::string::npos;
    })) << ann.tree().text(*input);
    ann.picture("pasted");
    ann.quit();
}
