#include "PlatformBundle/PosixProcessLauncher.h"

#include "TestSupport/TemporaryFolder.h"

#include <chrono>
#include <gtest/gtest.h>
#include <system_error>

namespace {

ProcessResult shell(const std::string& script) { return PosixProcessLauncher().launch("/bin/sh", {"-c", script}); }

TEST(PosixProcessLauncherTest, OutputAndErrorsAreOneText) {
    EXPECT_EQ(shell("echo one; echo two >&2; echo three"), (ProcessResult{0, "one\ntwo\nthree\n"}));
}

TEST(PosixProcessLauncherTest, ArgumentsArriveAsTheyAre) {
    EXPECT_EQ(PosixProcessLauncher().launch("/usr/bin/printf", {"%s|", "a b", "", "$x;*"}).output, "a b||$x;*|");
}

TEST(PosixProcessLauncherTest, TheStatusTellsExitsAndSignals) {
    EXPECT_EQ(shell("exit 7").status, 7);
    EXPECT_EQ(shell("kill -9 $$").status, 128 + 9);
}

TEST(PosixProcessLauncherTest, ThereIsNothingToRead) { EXPECT_EQ(shell("cat").status, 0); }

TEST(PosixProcessLauncherTest, OutputLongerThanAPipeIsReadWhileTheToolRuns) {
    EXPECT_EQ(shell("head -c 500000 /dev/zero").output.size(), 500'000U);
}

TEST(PosixProcessLauncherTest, AToolThatPrintsWithoutEndIsStopped) {
    EXPECT_THROW((void)shell("yes"), std::system_error);
}

TEST(PosixProcessLauncherTest, AToolThatTakesTooLongIsStopped) {
    PosixProcessLauncher launcher(std::chrono::milliseconds(50));
    EXPECT_THROW((void)launcher.launch("/bin/sleep", {"1000"}), std::system_error);
}

TEST(PosixProcessLauncherTest, AToolThatIsNotThereIsAnError) {
    EXPECT_THROW((void)PosixProcessLauncher().launch("/nonexistent/tool", {}), std::system_error);
    TemporaryFolder folder;
    EXPECT_THROW((void)PosixProcessLauncher().launch(folder.path, {}), std::system_error);
}

TEST(PosixProcessLauncherTest, NoFilesOfOursAreOpenInTheTool) {
    // 3 is the folder that ls itself has open.
    EXPECT_EQ(PosixProcessLauncher().launch("/bin/ls", {"/proc/self/fd"}).output, "0\n1\n2\n3\n");
}

}  // namespace
