// From the bar to the new version, with nothing that stands for anything else.

#include "DesktopUpdateFixture.h"

#include <map>

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class DesktopUpdateTest : public DesktopUpdateFixture {
protected:
    const std::vector<std::string> windows = {"People", "Console", "Room", "Bob"};

    /// Every kind of window, side by side.
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

    /// What a process has written for the system's log. One that the installer has started writes where that does.
    std::string logOf(pid_t process) {
        if (process != ann->program().id()) return ann->screen().busLog();
        EXPECT_EQ(ann->program().wait(), 0);
        EXPECT_THAT(lines(ann->program().errors(), "Sanitizer"), IsEmpty()) << ann->program().errors();
        return ann->program().errors();
    }

    /// Clicks "Update" in the bar, and looks at all that there is to see of what it does.
    /// @param old  the process that runs
    /// @return the new one
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

        // The one who was away is back, and nothing that was said is lost.
        EXPECT_TRUE(bob->lineWith(" went away"));
        EXPECT_TRUE(bob->lineWith(" is online"));
        ann->sees("People", "Bob, online");
        ann->sees("Bob", "before the update");
        ann->say("Bob", "as " + to);
        EXPECT_TRUE(bob->lineWith("as " + to));
        ann->picture("updated-to-" + to);

        EXPECT_EQ(Publisher::versionOf(bundle()), to);
        EXPECT_TRUE(Publisher::isSealed(bundle()));
        EXPECT_THAT(namesIn(programs), ElementsAre("Vimble.app"));
        // The old process leaves its folder, the new one takes it away.
        EXPECT_TRUE(ann->comesTrue([&] { return staged().empty(); })) << testing::PrintToString(staged());
        expectInOrder(logOf(old), {"UpdateKit: manifest version " + to + " vs current version " + from,
                                   "check prepared update " + to, "Update prepared: Vimble " + to + " ("});
        const std::string number = ", for process " + std::to_string(old) + "\n";
        expectInOrder(ann->screen().busLog(),
                      {"UpdateKitInstaller/service: replacing " + bundle().native() + " by ", number,
                       "UpdateKitInstaller/service: replaced " + bundle().native() + " by ", number});
        return process;
    }
};

}  // namespace

TEST_F(DesktopUpdateTest, FromTheFirstVersionToTheNewest) {
    install("1.0.0", publisher.manifest());
    publisher.release("1.2.0", publisher.manifest());
    start();
    ASSERT_FALSE(HasFailure());
    openWindows();
    ASSERT_FALSE(HasFailure());
    const pid_t process = update(ann->program().id(), "1.0.0", "1.2.0");
    quitSuccessor(process);
}
