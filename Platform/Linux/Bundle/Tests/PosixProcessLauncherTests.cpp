#include "PlatformBundle/PosixProcessLauncher.h"

#include "TestSupport/TemporaryFolder.h"

#include <chrono>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <stop_token>
#include <sys/stat.h>
#include <system_error>
#include <thread>

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

TEST(PosixProcessLauncherTest, AToolThatIsCalledOffIsStoppedAtOnce) {
    TemporaryFolder folder;
    const auto pipe = folder.path / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::stop_source stop;
    std::string failure;
    std::thread runner([&] {
        // The time-out is longer than any test may take.
        PosixProcessLauncher launcher(std::chrono::hours(1), stop.get_token());
        try {
            (void)launcher.launch("/bin/sh", {"-c", "echo $$ > '" + pipe.native() + "'; exec sleep 3600"});
        } catch (const std::system_error& error) {
            failure = error.code() == std::errc::operation_canceled ? "called off" : error.what();
        }
    });
    pid_t tool = 0;
    std::ifstream(pipe) >> tool;
    EXPECT_EQ(kill(tool, 0), 0);
    stop.request_stop();
    runner.join();
    EXPECT_EQ(failure, "called off");
    EXPECT_NE(kill(tool, 0), 0) << "it still runs";
    PosixProcessLauncher later(std::chrono::hours(1), stop.get_token());
    EXPECT_THROW((void)later.launch("/bin/sleep", {"3600"}), std::system_error);
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
