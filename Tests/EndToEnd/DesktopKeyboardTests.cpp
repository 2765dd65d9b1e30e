#include "Desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// Ann is at a desk, Bob at a terminal; both are members.
class DesktopKeyboardTest : public testing::Test {
protected:
    void SetUp() override {
        world.startRelay();
        world.admit("ann", true);
        world.admit("bob");
        bob = world.client("bob");
        bob->lineWith("list of ");
        ann.emplace(world, "ann");
        ann->start();
        EXPECT_TRUE(bob->lineWith("is online"));
        bob->write("/name Bob\n");
        ann->sees("People", "Bob, online");
        ann->activate("People");
    }

    ChatWorld world;
    std::unique_ptr<Process> bob;
    std::optional<Desk> ann;
};

}  // namespace

TEST_F(DesktopKeyboardTest, ATalkIsOpenedHeldAndClosed) {
    ann->press("Down");
    ann->press("Return");
    ann->expectActive("Bob");
    ann->say("Bob", "no mouse here");
    EXPECT_TRUE(bob->lineWith("no mouse here"));
    ann->press("ctrl+w");
    EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("Bob"); }));
    ann->expectActive("People");
    ann->quit();
}

TEST_F(DesktopKeyboardTest, TheMenusAreOpenedByTheirLetters) {
    ann->opensMenu([&] { ann->press("alt+w"); });
    ann->picture("window-menu");
    ann->press("r");
    ann->expectActive("Room");
    ann->opensMenu([&] { ann->press("alt+e"); });
    ann->picture("edit-menu");
    // The first Escape leaves the menu, the second the menu bar.
    ann->press("Escape");
    ann->press("Escape");
    // The commands act on the input, although the menu bar has the focus while one is chosen.
    const auto input = ann->sees("Room", "Message", "text");
    ASSERT_TRUE(input);
    const auto inputHolds = [&](const std::string& text) {
        EXPECT_TRUE(ann->comesTrue([&] { return ann->tree().text(*input) == text; })) << ann->tree().text(*input);
    };
    const auto edit = [&](const std::string& letter) {
        ann->opensMenu([&] { ann->press("alt+e"); });
        ann->press(letter);
    };
    EXPECT_TRUE(ann->comesTrue([&] { return ann->tree().isFocused(*input); }));
    ann->type("words");
    inputHolds("words");
    edit("a");
    edit("t");
    inputHolds("");
    edit("p");
    inputHolds("words");
    ann->opensMenu([&] { ann->press("alt+v"); });
    ann->picture("program-menu");
    ann->press("a");
    ann->expectActive("About Vimble");
    ann->sees("About Vimble", "Vimble 1.0.0");
    ann->picture("about");
    ann->press("Escape");
    EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("About Vimble"); }));

    // The keys hide a window that is on the screen, also one behind others, and show one that is hidden.
    ann->activate("Room");
    ann->press("ctrl+1");
    EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("People"); }));
    ann->press("ctrl+1");
    ann->expectActive("People");
    ann->sees("People", "Bob, online");
    ann->quit();
}

TEST_F(DesktopKeyboardTest, WhoDisconnectsComesToTheAccessScreenAndBackByReturn) {
    ann->opensMenu([&] { ann->press("alt+v"); });
    ann->press("d");
    ann->sees("People", "For access, send your public key");
    EXPECT_TRUE(bob->lineWith("went away"));
    ann->picture("disconnected");
    ann->press("Return");
    ann->sees("People", "Bob, online");
    EXPECT_TRUE(bob->lineWith("is online"));
    ann->quit();
}
