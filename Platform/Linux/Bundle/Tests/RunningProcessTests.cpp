#include "PlatformBundle/RunningProcess.h"

#include "PlatformBundle/Spawn.h"
#include "TestSupport/TemporaryFolder.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

/// A program that goes on until it is killed.
class Sleeper {
public:
    Sleeper() {
        SpawnRequest request;
        request.executable = "/bin/sleep";
        request.arguments = {"1000"};
        id = spawn(request);
    }
    ~Sleeper() {
        ::kill(id, SIGKILL);
        ::waitpid(id, nullptr, 0);
    }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    /// Ends the program, and leaves it without anybody having waited for it.
    void endWithoutNotice() const {
        ::kill(id, SIGKILL);
        siginfo_t info;
        ::waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT);
    }

    pid_t id;
};

TEST(RunningProcessTest, HowAProcessWasStartedCanBeRead) {
    TemporaryFolder folder;
    SpawnRequest request;
    request.executable = "/bin/sh";
    request.arguments = {"-c", "kill -STOP $$", "", "a b"};
    request.environment = {{"A=one two", "EMPTY=", "B=\u00E9=x"}};
    request.workingFolder = folder.path;
    const pid_t shell = spawn(request);
    // The system shows a process without arguments until its program runs, so wait until the shell has stopped itself.
    ::waitpid(shell, nullptr, WUNTRACED);
    const auto process = RunningProcess::open(shell);
    ASSERT_TRUE(process);
    const auto context = process->launchContext();
    ASSERT_TRUE(context);
    EXPECT_EQ(context->executable, std::filesystem::canonical("/bin/sh"));
    EXPECT_EQ(context->arguments, request.arguments);
    EXPECT_EQ(context->environment, *request.environment);
    EXPECT_EQ(context->workingFolder, std::filesystem::canonical(folder.path));
    ::kill(shell, SIGKILL);
    ::waitpid(shell, nullptr, 0);
}

TEST(RunningProcessTest, AProcessThatHasEndedDoesNotRunThoughNobodyTookNote) {
    const Sleeper sleeper;
    const auto process = RunningProcess::open(sleeper.id);
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->isRunning());
    EXPECT_TRUE(isProcessRunning(sleeper.id));
    EXPECT_TRUE(process->signal(0));
    sleeper.endWithoutNotice();
    EXPECT_FALSE(process->isRunning());
    EXPECT_FALSE(isProcessRunning(sleeper.id));
    EXPECT_FALSE(process->launchContext());
    EXPECT_FALSE(RunningProcess::open(sleeper.id));
}

TEST(RunningProcessTest, ANumberThatNobodyHasDoesNotRun) {
    pid_t gone = 0;
    {
        const Sleeper sleeper;
        gone = sleeper.id;
    }
    EXPECT_FALSE(RunningProcess::open(gone));
    EXPECT_FALSE(isProcessRunning(gone));
}

TEST(RunningProcessTest, AHandleOutlivesItsProcess) {
    std::optional<RunningProcess> process;
    {
        const Sleeper sleeper;
        process = RunningProcess::open(sleeper.id);
    }
    ASSERT_TRUE(process);
    EXPECT_FALSE(process->isRunning());
    EXPECT_FALSE(process->signal(SIGKILL));
}

TEST(RunningProcessTest, NumbersThatMeanGroupsAreRefused) {
    EXPECT_THROW((void)RunningProcess::open(0), std::system_error);
    EXPECT_THROW((void)RunningProcess::open(-1), std::system_error);
}

TEST(RunningProcessTest, AProcessOfAnotherUserRunsAndMayNotBeTouched) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    const Sleeper sleeper;
    const pid_t child = ::fork();
    if (child == 0) {
        int status = 1;
        if (::setgid(65534) == 0 && ::setuid(65534) == 0 && isProcessRunning(sleeper.id)) {
            const auto process = RunningProcess::open(sleeper.id);
            status = process && process->isRunning() ? 2 : 3;
            try {
                (void)process->signal(SIGTERM);
            } catch (const std::system_error& error) {
                if (status == 2 && error.code().value() == EPERM) status = 0;
            }
        }
        ::_exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(isProcessRunning(sleeper.id));
}

}  // namespace
