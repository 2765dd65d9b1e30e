// From the click on the bar to the running new version, with real parts only, no doubles.

#include "DesktopUpdateFixture.h"
#include "ReleaseServer.h"

#include <csignal>
#include <cstdlib>
#include <map>

namespace fs = std::filesystem;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class DesktopUpdateTest : public DesktopUpdateFixture {
protected:
    const std::vector<std::string> windows = {"People", "Console", "Room", "Bob"};

    /// Opens every kind of window, side by side.
    void openWindows() {
        ann->doubleClick("People", "Bob, online");
        ann->say("Bob", "before the update");
        EXPECT_TRUE(bob->lineWith("before the update"));
        ann->activate("People");
        ann->press("ctrl+2");
        ann->expectActive("Console");
        ann->press("ctrl+3");
        ann->expectActive("Room");
        ann->place("People", 40, 60, 220, 420);
        ann->place("Console", 300, 480, 500, 260);
        ann->place("Room", 700, 40, 440, 330);
        ann->place("Bob", 310, 70, 370, 360);
        ann->activate("People");
    }

    /// Where each window is.
    std::map<std::string, std::string> frames() {
        std::map<std::string, std::string> found;
        for (const std::string& window : windows)
            if (const auto id = ann->screen().window(window)) found[window] = ann->screen().frame(*id);
        return found;
    }

    /// What a process has written to its log. A process that the installer has started writes to the bus's log, as the
    /// installer does.
    std::string logOf(pid_t process) {
        if (process != ann->program().id()) return ann->screen().busLog();
        EXPECT_EQ(ann->program().wait(), 0);
        EXPECT_THAT(lines(ann->program().errors(), "Sanitizer"), IsEmpty()) << ann->program().errors();
        return ann->program().errors();
    }

    /// Clicks "Update" in the bar, and checks all that can be seen of the update.
    /// @param old  the running process
    /// @return the new process
    pid_t update(pid_t old, const std::string& from, const std::string& to) {
        seesBar(to);
        EXPECT_THAT(frames(), SizeIs(windows.size()));
        const auto before = frames();
        std::vector<std::string> arguments = argumentsOf(old);
        ann->picture("bar-" + to);
        clickUpdate();
        const pid_t process = successorOf(old);
        if (HasFailure()) return process;
        EXPECT_TRUE(ann->comesTrue([&] { return frames() == before; }))
            << testing::PrintToString(frames()) << " instead of " << testing::PrintToString(before);
        EXPECT_EQ(argumentsOf(process), arguments);
        EXPECT_TRUE(hasEnded(old));

        // Bob sees Ann go and come back, and her windows still show what was said.
        EXPECT_TRUE(bob->lineWith(" went away"));
        EXPECT_TRUE(bob->lineWith(" is online"));
        ann->sees("People", "Bob, online");
        ann->sees("Bob", "before the update");
        ann->say("Bob", "as " + to);
        EXPECT_TRUE(bob->lineWith("as " + to));
        ann->picture("updated-to-" + to);

        EXPECT_EQ(Publisher::versionOf(bundle()), to);
        EXPECT_TRUE(Publisher::isSealed(bundle()));
        EXPECT_TRUE(ann->comesTrue([&] { return namesIn(programs) == std::vector<std::string>{"Vimble.app"}; }))
            << testing::PrintToString(namesIn(programs));
        // The old process leaves its staging folder behind, and the new one removes it.
        EXPECT_TRUE(ann->comesTrue([&] { return staged().empty(); })) << testing::PrintToString(staged());
        expectInOrder(logOf(old), {"UpdateKit: manifest version " + to + " vs current version " + from,
                                   "check prepared update " + to, "Update prepared: Vimble " + to + " ("});
        const std::string number = ", for process " + std::to_string(old) + "\n";
        const std::vector<std::string> told{
            "UpdateKitInstaller/service: replacing " + bundle().native() + " by ", number,
            "UpdateKitInstaller/service: replaced " + bundle().native() + " by ", number};
        EXPECT_TRUE(ann->comesTrue([&] { return lines(ann->screen().busLog(), told[2]).size() == updates + 1; }));
        ++updates;
        expectInOrder(ann->screen().busLog(), told);
        return process;
    }

    std::size_t updates = 0;  // so far
};

}  // namespace

TEST_F(DesktopUpdateTest, FromTheFirstVersionToTheNewest) {
    install("1.0.0", publisher.manifest());
    publisher.release("1.2.0", publisher.manifest());
    start();
    openWindows();
    ASSERT_FALSE(HasFailure());
    const pid_t process = update(ann->program().id(), "1.0.0", "1.2.0");
    quitSuccessor(process);
}

TEST_F(DesktopUpdateTest, FromAReleaseToTheNextAndFromThereToTheNewest) {
    ReleaseServer server(publisher.releases());
    install("1.0.1", server.url());
    publisher.release("1.0.1", server.url());
    start();
    openWindows();
    ASSERT_FALSE(HasFailure());
    EXPECT_TRUE(ann->program().errorWith("automatic check completed — no update available"));
    EXPECT_FALSE(hasBar());

    // The window says that the program is checking, for as long as it is.
    publisher.release("1.1.0", server.url());
    server.hold("latest.json");
    checkForUpdates();
    EXPECT_TRUE(server.isHeld());
    ann->sees("People", "Checking for Updates...");
    ann->picture("checking");
    server.letGo();
    pid_t process = update(ann->program().id(), "1.0.1", "1.1.0");
    ASSERT_FALSE(HasFailure());

    // The old bundle's installer service has ended, so the new bundle's installs the next update.
    ann->seesNoMore("People", "Checking for Updates...");
    checkForUpdates();
    ann->sees("People", "No Update Available");
    ann->picture("no-update");
    publisher.release("1.2.0", server.url());
    checkForUpdates();
    process = update(process, "1.1.0", "1.2.0");
    quitSuccessor(process);
}

TEST_F(DesktopUpdateTest, ABundleThatBringsEverythingAlongLooksForItsUpdatesOverTls) {
    const auto certificate = ReleaseServer::Certificate::make(world.folder.path);
    if (!certificate.beTrusted()) GTEST_SKIP() << "this user may not say whom the programs trust";
    ReleaseServer server(publisher.releases(), &certificate);
    install("1.1.0", server.url(), Layout::selfContained);
    publisher.release("1.2.0", server.url(), Layout::selfContained);
    start();
    openWindows();
    ASSERT_FALSE(HasFailure());
    const auto loads = [&](pid_t process, const std::string& library) {
        const std::string map = Publisher::textIn("/proc/" + std::to_string(process) + "/maps");
        EXPECT_THAT(lines(map, library), ::testing::Not(IsEmpty())) << library;
        for (const std::string& line : lines(map, library))
            EXPECT_THAT(line, ::testing::HasSubstr((bundle() / "Contents/Frameworks").native()));
    };
    seesBar("1.2.0");
    loads(ann->program().id(), "libqopensslbackend.so");
    loads(ann->program().id(), "libQt6Widgets.so");
    const pid_t process = update(ann->program().id(), "1.1.0", "1.2.0");
    loads(process, "libQt6Widgets.so");
    loads(process, "libqxcb.so");
    quitSuccessor(process);
}

TEST_F(DesktopUpdateTest, OfTwoProgramsOfOneBundleTheOtherGoesOnAndIsReplacedWhenItAsksAgain) {
    installWithHeldTool("1.0.0", publisher.manifest());
    publisher.release("1.2.0", publisher.manifest());
    start();
    Process::Start otherStart = bundleStart();
    for (std::string& word : otherStart.command)
        if (word == world.dataFolder("ann").string()) word = world.dataFolder("annex").string();
    fs::create_directories(world.folder.path / "annex");
    Process other(otherStart);
    const auto shown = [&] { return ann->screen().windows("People"); };
    ASSERT_TRUE(ann->comesTrue([&] { return other.readAvailable(), shown().size() == 2; })) << other.errors();
    for (std::size_t i = 0; i < 2; ++i)
        ASSERT_TRUE(ann->screen().xdotool({"windowmove", shown()[i], i == 0 ? "40" : "700", "60"}));
    // Where the "Update" buttons of both windows are now.
    const auto buttons = [&] {
        std::vector<AccessibleTree::Place> places;
        for (const auto& item : ann->tree().items("People"))
            if (item.name == "Update" && item.role == "push button")
                if (const auto place = ann->tree().place(item)) places.push_back(*place);
        return places;
    };
    const auto press = [&](const AccessibleTree::Place& place) {
        ann->screen().click(place.x + place.width / 2, place.y + place.height / 2);
    };
    ASSERT_TRUE(ann->comesTrue([&] {
        other.readAvailable();
        const auto places = buttons();
        return places.size() == 2 && std::abs(places[0].x - places[1].x) > 300;
    }));
    ann->picture("two-bars");

    holdTool();
    press(buttons()[0]);
    ASSERT_TRUE(isToolHeld());
    press(buttons()[1]);
    const std::string refusal = "(installation): Another update is being installed";
    const auto isRefused = [&](Process& program) {
        program.readAvailable();
        return !lines(program.errors(), refusal).empty();
    };
    ASSERT_TRUE(ann->comesTrue([&] { return isRefused(other) || isRefused(ann->program()); }));
    Process& second = isRefused(other) ? other : ann->program();
    Process& first = isRefused(other) ? ann->program() : other;
    EXPECT_THAT(running(), SizeIs(2));
    letToolGo();
    EXPECT_EQ(first.wait(), 0) << first.errors();
    const pid_t process = successorOf(first.id());
    EXPECT_EQ(Publisher::versionOf(bundle()), "1.2.0");
    EXPECT_TRUE(Publisher::isSealed(bundle()));
    EXPECT_FALSE(hasEnded(second.id()));

    // Both programs run with Ann's key, so both get what is sent to her.
    EXPECT_TRUE(ann->comesTrue([&] { return !lines(ann->screen().busLog(), "Transitioning Online").empty(); }));
    bob->write("@" + annKey + " to both of you\n");
    EXPECT_TRUE(ann->comesTrue([&] {
        second.readAvailable();
        return world.isSaved("ann", "to both of you") && world.isSaved("annex", "to both of you");
    }));

    // The bundle that the other program was started from is gone by now, but that program can still update.
    ASSERT_TRUE(ann->comesTrue([&] { return buttons().size() == 1; }));
    ann->picture("one-bar");
    press(buttons()[0]);
    EXPECT_EQ(second.wait(), 0) << second.errors();
    const pid_t last = successorOf(process);
    EXPECT_TRUE(ann->comesTrue([&] { return shown().size() == 2 && buttons().empty(); }));
    ann->picture("both-new");
    EXPECT_EQ(Publisher::versionOf(bundle()), "1.2.0");
    EXPECT_TRUE(Publisher::isSealed(bundle()));
    EXPECT_TRUE(ann->comesTrue([&] { return namesIn(programs) == std::vector<std::string>{"Vimble.app"}; }))
        << testing::PrintToString(namesIn(programs));
    EXPECT_FALSE(hasEnded(process));
    const auto dataOf = [&](Process& program) {
        return world.dataFolder(&program == &other ? "annex" : "ann").string();
    };
    EXPECT_THAT(argumentsOf(process), ::testing::Contains(dataOf(first)));
    EXPECT_THAT(argumentsOf(last), ::testing::Contains(dataOf(second)));
    for (const pid_t each : {process, last}) {
        ::kill(each, SIGTERM);
        EXPECT_TRUE(ann->comesTrue([&] { return hasEnded(each); }));
    }
}
