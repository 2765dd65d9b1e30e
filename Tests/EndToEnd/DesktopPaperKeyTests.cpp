#include "Desk.h"
#include "Keyring.h"
#include "QrPicture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

/// A relay, and Cleo at a terminal, whose client prints the keys of those who come, go and write.
class DesktopPaperKeyTest : public testing::Test {
protected:
    void SetUp() override {
        world.startRelay();
        world.admit("cleo");
        cleo = world.client("cleo", {"--json"});
        cleo->lineWith(R"("type":"roster")");
    }

    static void openPreferences(Desk& desk) {
        desk.activate("People");
        desk.opensMenu([&] { desk.press("alt+v"); });
        desk.press("p");
        desk.expectActive("Preferences");
    }

    /// Waits until the preferences show a key, or that there is none. @return what they show
    static std::string shownKey(Desk& desk) {
        const auto field = desk.sees("Preferences", "Public Key", "text");
        if (!field) return {};
        std::string key;
        EXPECT_TRUE(desk.comesTrue([&] {
            key = desk.tree().text(*field);
            std::erase(key, '\n');
            return !key.empty();
        }));
        return key;
    }

    static void showsKey(Desk& desk, const std::string& key) {
        EXPECT_TRUE(desk.comesTrue([&] { return shownKey(desk) == key; })) << shownKey(desk);
    }

    /// Goes from the preferences to the scanner of paper keys.
    static void goToScanner(Desk& desk) {
        desk.press("alt+r");
        desk.expectActive(sheet);
        desk.sees(sheet, "Use Random Key", "radio button");
        desk.picture("key-source");
        desk.press("Down");
        desk.sees(sheet, "Scan...", "push button");
        desk.picture("key-source-scan");
        desk.press("Return");
        desk.sees(sheet, "Open Image...");
        desk.sees(sheet, "No camera found");
        const auto replace = desk.sees(sheet, "Replace", "push button");
        ASSERT_TRUE(replace);
        EXPECT_FALSE(desk.tree().isEnabled(*replace));
        desk.picture("scanner");
    }

    static void openImage(Desk& desk, const fs::path& picture) {
        desk.click(sheet, "Open Image...");
        desk.expectActive("Open Image");
        desk.type(picture.string());
        desk.picture("open-image");
        desk.press("Return");
        EXPECT_TRUE(desk.comesTrue([&] { return !desk.hasWindow("Open Image"); }));
        desk.expectActive(sheet);
    }

    static void sheetIsGone(Desk& desk) {
        EXPECT_TRUE(desk.comesTrue([&] { return !desk.hasWindow(sheet); }));
        desk.expectActive("Preferences");
    }

    static void quitFromPreferences(Desk& desk) {
        desk.activate("Preferences");
        desk.quit();
    }

    /// Cleo gets this text, in the room, from the user with this key.
    void hears(const std::string& key, const std::string& text) {
        const auto line = cleo->lineWith(R"("text":")" + text + '"');
        ASSERT_TRUE(line);
        EXPECT_THAT(*line, HasSubstr(R"({"type":"message","room":true,"from":")" + key + '"'));
    }

    static constexpr char sheet[] = "Replace Secret Key";
    ChatWorld world;
    std::unique_ptr<Process> cleo;
};

}  // namespace

TEST_F(DesktopPaperKeyTest, WhoHasOnlyThePaperIsTheSamePersonOnANewMachine) {
    const fs::path pdf = world.folder.path / "key.pdf";
    const fs::path picture = world.folder.path / "key.png";
    std::string annKey;
    {
        // Her key is in her desktop's keyring, as nearly every user's is.
        Desk ann(world, "ann");
        const Keyring keyring(ann.screen());
        Process::Start start = ann.programStart({"--server", world.server()});
        std::erase(start.command, "--secret-file");
        std::erase(start.command, world.secretFile("ann").string());
        start.environment.erase("VIMBLE_SECRET_PASSPHRASE");
        ann.start(start);
        ann.sees({}, "Not authorized to connect to the server");
        ann.press("Return");
        ann.seesNoMore({}, "Not authorized");
        openPreferences(ann);
        annKey = shownKey(ann);
        EXPECT_THAT(annKey, MatchesRegex("[0-9a-f]{64}"));
        EXPECT_FALSE(fs::exists(world.secretFile("ann")));
        ann.picture("preferences");
        world.admitKey(annKey);
        ann.click("People", "Connect");
        EXPECT_TRUE(cleo->lineWith(R"("type":"join","key":")" + annKey));
        ann.activate("People");
        ann.press("ctrl+3");
        ann.say("Room", "/name Ann");
        ann.say("Room", "it is me");
        hears(annKey, "it is me");

        ann.activate("Preferences");
        ann.press("alt+e");
        ann.expectActive("Print Secret Key");
        ann.picture("print-dialog");
        const auto name = ann.sees("Print Secret Key", "", "text");
        ASSERT_TRUE(name);
        ann.activate("Print Secret Key");
        ann.click("Print Secret Key", name->name, "text");
        ann.press("ctrl+a");
        ann.type(pdf.string());
        EXPECT_TRUE(ann.comesTrue([&] { return ann.tree().text(*name) == pdf.string(); })) << ann.tree().text(*name);
        ann.picture("print-dialog-file");
        ann.click("Print Secret Key", "Print", "push button");
        EXPECT_TRUE(ann.comesTrue([&] { return fs::exists(pdf); }));
        EXPECT_TRUE(ann.comesTrue([&] { return !ann.hasWindow("Print Secret Key"); }));
        EXPECT_EQ(fs::status(pdf).permissions(), fs::perms::owner_read | fs::perms::owner_write);
        // Ann loses her machine, and the keyring with it.
        ann.program().kill();
    }
    EXPECT_TRUE(cleo->lineWith(R"("type":"leave","key":")" + annKey));
    cleo->write("@" + annKey + " where are you?\n");
    EXPECT_TRUE(world.waitForCount("packs_stored_total", 1));

    world.admit("bob");
    const std::string bobKey = world.key("bob");
    ASSERT_NE(bobKey, annKey);
    Desk bob(world, "bob");
    ASSERT_EQ(bob.screen()
                  .run({"/usr/bin/pdftoppm", "-r", "150", "-png", "-singlefile", pdf.string(),
                        (world.folder.path / "key").string()})
                  .status,
              0);
    bob.start();
    EXPECT_TRUE(cleo->lineWith(R"("type":"join","key":")" + bobKey));
    openPreferences(bob);
    showsKey(bob, bobKey);
    goToScanner(bob);
    openImage(bob, picture);
    bob.sees(sheet, "Paper key read");
    bob.picture("scanned");
    bob.press("Return");
    sheetIsGone(bob);
    showsKey(bob, annKey);
    bob.picture("replaced");

    // The running session keeps the old key until the program ends.
    bob.activate("People");
    bob.press("ctrl+3");
    bob.say("Room", "still the old one");
    hears(bobKey, "still the old one");
    quitFromPreferences(bob);
    EXPECT_TRUE(cleo->lineWith(R"("type":"leave","key":")" + bobKey));

    bob.start();
    EXPECT_TRUE(cleo->lineWith(R"("type":"join","key":")" + annKey));
    // The relay has kept what Cleo wrote to Ann's key meanwhile.
    const std::string cleoName = "anonymous" + world.key("cleo").substr(0, 6);
    bob.doubleClick("People", cleoName + ", online");
    bob.sees(cleoName, "where are you?");
    bob.picture("same-person");
    bob.say("Room", "me again");
    hears(annKey, "me again");
    EXPECT_EQ(world.key("bob"), annKey);
    bob.activate("People");
    bob.quit();
}

TEST_F(DesktopPaperKeyTest, ACodeOfSomethingElseIsMarkedRedAndGivingUpLeavesTheKey) {
    const fs::path wrong = world.folder.path / "wrong.pgm";
    QrPicture::write(wrong, "https://example.org/fox");
    const fs::path empty = world.folder.path / "empty.pgm";
    QrPicture::write(empty, "");
    world.admit("ann");
    const std::string annKey = world.key("ann");
    Desk ann(world, "ann");
    ann.start();
    EXPECT_TRUE(cleo->lineWith(R"("type":"join","key":")" + annKey));
    openPreferences(ann);
    showsKey(ann, annKey);

    // Cancel on the first page of the sheet.
    ann.press("alt+r");
    ann.expectActive(sheet);
    ann.press("Escape");
    sheetIsGone(ann);
    showsKey(ann, annKey);

    // Cancel after pictures that hold no paper key.
    goToScanner(ann);
    openImage(ann, empty);
    ann.sees(sheet, "No QR code was found in the picture");
    openImage(ann, wrong);
    ann.sees(sheet, "Not a paper key");
    const auto replace = ann.sees(sheet, "Replace", "push button");
    ASSERT_TRUE(replace);
    EXPECT_FALSE(ann.tree().isEnabled(*replace));
    ann.picture("wrong-code");
    ann.press("Escape");
    sheetIsGone(ann);
    showsKey(ann, annKey);

    // Cancel after a good paper key.
    const fs::path good = world.folder.path / "good.pgm";
    QrPicture::write(good, std::string(64, '7'));
    goToScanner(ann);
    openImage(ann, wrong);
    ann.sees(sheet, "Not a paper key");
    openImage(ann, good);
    ann.sees(sheet, "Paper key read");
    ann.click(sheet, "Cancel");
    sheetIsGone(ann);
    showsKey(ann, annKey);
    quitFromPreferences(ann);
    EXPECT_EQ(world.key("ann"), annKey);
}

TEST_F(DesktopPaperKeyTest, ARandomKeyIsAStrangerFromTheNextStartOn) {
    world.admit("ann");
    const std::string annKey = world.key("ann");
    Desk ann(world, "ann");
    ann.start();
    EXPECT_TRUE(cleo->lineWith(R"("type":"join","key":")" + annKey));
    openPreferences(ann);
    showsKey(ann, annKey);
    ann.press("alt+r");
    ann.expectActive(sheet);
    ann.press("Return");
    sheetIsGone(ann);
    EXPECT_TRUE(ann.comesTrue([&] { return shownKey(ann) != annKey; }));
    const std::string newKey = shownKey(ann);
    EXPECT_THAT(newKey, MatchesRegex("[0-9a-f]{64}"));
    ann.activate("People");
    ann.press("ctrl+3");
    ann.say("Room", "still me");
    hears(annKey, "still me");
    quitFromPreferences(ann);

    EXPECT_EQ(world.key("ann"), newKey);
    ann.start();
    ann.sees({}, "Not authorized to connect to the server");
    ann.press("Return");
    ann.seesNoMore({}, "Not authorized");
    const auto field = ann.sees("People", "Your public key");
    ASSERT_TRUE(field);
    std::string shown = ann.tree().text(*field);
    std::erase(shown, '\n');
    EXPECT_EQ(shown, newKey);
    ann.activate("People");
    ann.quit();
}
