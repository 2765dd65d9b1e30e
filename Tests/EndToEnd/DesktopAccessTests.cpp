#include "Desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

TEST(DesktopAccessTest, SomebodyNewIsRefusedUntilTheirKeyIsAddedAndThenSeesWhoIsThere) {
    ChatWorld world;
    world.startRelay();
    world.admit("bob");
    auto bob = world.client("bob");
    bob->lineWith("list of ");

    Desk ann(world, "ann");
    ann.start(ann.programStart());
    ann.activate("People");
    ann.sees("People", "For access, send your public key shown below to Tolvik.");
    const auto field = ann.sees("People", "Your public key");
    ASSERT_TRUE(field);
    std::string key = ann.tree().text(*field);
    std::erase(key, '\n');
    EXPECT_THAT(key, MatchesRegex("[0-9a-f]{64}"));
    ann.picture("access-screen");

    ann.opensMenu([&] { ann.click("People", "Share"); });
    ann.picture("share-menu");
    ann.press("Down");
    ann.press("Down");
    ann.press("Return");
    ann.expectActive("Your Public Key");
    ann.picture("qr-code");
    ann.press("Escape");
    EXPECT_TRUE(ann.comesTrue([&] { return !ann.hasWindow("Your Public Key"); }));

    ann.click("People", "chat.vimble.example", "combo box");
    ann.press("ctrl+a");
    ann.type(world.server());
    ann.picture("server-typed");
    ann.click("People", "Connect");
    ann.sees({}, "Not authorized to connect to the server");
    ann.sees({}, "Connecting to the vimble server requires an administrator to add your public key");
    ann.picture("refused");
    ann.press("Return");
    ann.seesNoMore({}, "Not authorized");

    world.admitKey(key);
    ann.click("People", "Connect");
    EXPECT_TRUE(ann.program().exactLine("Transitioning Online"));
    ann.sees("People", "anonymous" + world.key("bob").substr(0, 6) + ", online");
    bob->write("/name Bob\n");
    ann.sees("People", "Bob, online");
    ann.sees("People", "anonymous" + key.substr(0, 6));
    ann.sees("People", "Room");
    ann.picture("people");
    EXPECT_TRUE(bob->exactLine("anonymous" + key.substr(0, 6) + " was added to the conversation"));

    // The program remembers the server: the next start names none.
    ann.quit();
    EXPECT_TRUE(bob->exactLine("anonymous" + key.substr(0, 6) + " went away"));
    ann.start(ann.programStart());
    ann.sees("People", "Bob, online");
    ann.activate("People");
    ann.quit();
}

TEST(DesktopAccessTest, ThePassphraseIsAskedForInAWindowTwiceWhenItIsNewAndAgainAfterAWrongOne) {
    ChatWorld world;
    world.startRelay();
    Desk ann(world, "ann");
    auto start = ann.programStart({"--server", world.server()});
    start.environment.erase("VIMBLE_SECRET_PASSPHRASE");

    ann.start(start, "Choose a Passphrase");
    ann.activate("Choose a Passphrase");
    ann.type("hush é");
    ann.press("Tab");
    ann.type("hash");
    ann.sees("Choose a Passphrase", "The two differ.");
    ann.picture("new-passphrase-differs");
    ann.press("ctrl+a");
    ann.type("hush é");
    ann.seesNoMore("Choose a Passphrase", "The two differ.");
    ann.press("Return");
    // The program has made a new key, which this relay does not know.
    ann.sees({}, "Not authorized to connect to the server");
    ann.press("Return");
    ann.seesNoMore({}, "Not authorized");
    ann.activate("People");
    ann.quit();

    ann.start(start, "Passphrase");
    ann.activate("Passphrase");
    ann.type("hash");
    ann.press("Return");
    ann.sees("Passphrase", "That was not the passphrase.");
    ann.picture("wrong-passphrase");
    ann.activate("Passphrase");
    ann.type("hush é");
    ann.press("Return");
    ann.sees("People", "Connect");
    ann.sees({}, "Not authorized to connect to the server");
    ann.press("Return");
    ann.seesNoMore({}, "Not authorized");
    ann.activate("People");
    ann.quit();

    // Cancelling the dialog ends the program.
    ann.start(start, "Passphrase");
    ann.activate("Passphrase");
    ann.press("Escape");
    EXPECT_EQ(ann.program().wait(), 1);
    EXPECT_THAT(ann.program().errors(), Not(HasSubstr("Sanitizer")));
}
