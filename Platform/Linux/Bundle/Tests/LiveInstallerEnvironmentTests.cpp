#include "PlatformBundle/LiveInstallerEnvironment.h"

#include "Base/FileDescriptor.h"
#include "PlatformBundle/FileTree.h"
#include "PlatformBundle/LinuxFileManager.h"
#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/RunningProcess.h"
#include "PlatformBundle/Spawn.h"
#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/InstallerReply.h"
#include "UpdateKit/InstallerServiceError.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// A program that ignores the polite request to end, and says when it begins to.
constexpr const char* stubborn = "trap '' TERM; echo ready; read x < pipe";

class LiveInstallerEnvironmentTest : public testing::Test {
protected:
    LiveInstallerEnvironmentTest() {
        makeTestBundle(current, "1.0.0");
        makeTestBundle(staged, "1.1.0");
        // The old application is a copy of the shell: a script would not do, since its process runs from /bin/sh.
        const fs::path old = current / "Contents" / "Linux" / "Vimble";
        fs::remove(old);
        fs::copy_file("/bin/sh", old);
        // The new application writes down how it was started.
        std::ofstream(staged / "Contents" / "Linux" / "Vimble")
            << "#!/bin/sh\nread -r _ _ _ _ _ session _ < /proc/$$/stat\n"
               "{ printf '%s\\n' \"$MARK\" \"$PWD\" \"$@\"; [ $session = $$ ] && echo leader; } > told\n";
        fs::create_directories(home);
        EXPECT_EQ(::mkfifo((home / "pipe").c_str(), 0600), 0);
        writeTool("echo Signature=adhoc");
    }
    ~LiveInstallerEnvironmentTest() override {
        if (old > 0) {
            ::kill(old, SIGKILL);
            ::waitpid(old, nullptr, 0);
        }
        FileTree::remove(current);
        FileTree::remove(staged);
    }

    void writeTool(const std::string& script) {
        std::ofstream(tool) << "#!/bin/sh\n" << script << "\n";
        fs::permissions(tool, fs::perms::owner_all);
    }

    /// Starts the old application, and waits until it says that it is ready.
    void start(const fs::path& executable, const std::string& script) {
        std::array<int, 2> ends;
        ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        const FileDescriptor readEnd(ends[0]);
        FileDescriptor writeEnd(ends[1]);
        SpawnRequest request;
        request.executable = executable;
        request.arguments = {"-c", script, "x", "a b"};
        request.environment = {{"MARK=one two", "PATH=/usr/bin:/bin", "", "JOURNAL_STREAM=1:1"}};
        request.workingFolder = home;
        request.output = writeEnd.get();
        old = spawn(request);
        writeEnd.reset();
        char byte = 0;
        ASSERT_EQ(::read(readEnd.get(), &byte, 1), 1);
    }
    void startOld(const std::string& script) { start(current / "Contents" / "Linux" / "Vimble", script); }

    InstallerEnvironment environment() {
        return liveInstallerEnvironment(std::make_shared<PosixProcessLauncher>(),
                                        std::make_shared<PropertyListBundleReader>(), tool);
    }

    InstallerReply install(pid_t process) {
        PropertyListBundleReader reader;
        LinuxFileManager files;
        InstallerPollingPolicy policy;
        policy.interval = interval;
        policy.gracefulAttempts = attempts;
        return installUpdate({staged, current, process},
                             [&] { return std::make_unique<InstallerService>(files, reader, environment(), policy); });
    }

    /// Waits for the end of the old application. @return the signal that ended it; 0 if none did
    int signalThatEndedOld() {
        int status = 0;
        ::waitpid(old, &status, 0);
        old = -1;
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }

    std::string told() const {
        std::ostringstream text;
        text << std::ifstream(home / "told").rdbuf();
        return text.str();
    }

    /// Installs an application that runs a command of the shell. @return what that wrote
    std::string toldByTheNewOne(const std::string& command) {
        std::ofstream(staged / "Contents" / "Linux" / "Vimble") << "#!/bin/sh\n"
                                                                << command << " > '" << home.native() << "/told'\n";
        startOld("echo ready; read x < pipe");
        EXPECT_EQ(install(old), InstallerReply());
        (void)signalThatEndedOld();
        EXPECT_GT(::waitpid(-1, nullptr, 0), 0);
        return told();
    }

    TemporaryFolder folder;
    fs::path current = folder.path / "Vimble.app";
    fs::path staged = folder.path / "New.app";
    fs::path home = folder.path / "home";
    fs::path tool = folder.path / "tool";
    pid_t old = -1;
    int attempts = 500;
    double interval = 0.01;
};

TEST_F(LiveInstallerEnvironmentTest, TheNewApplicationTakesThePlaceOfTheOldWithAllThatItWasStartedWith) {
    startOld("echo ready; read x < pipe");
    const auto expected = treeOf(staged);
    EXPECT_EQ(install(old), InstallerReply());
    EXPECT_EQ(signalThatEndedOld(), SIGTERM);
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);  // the new one
    EXPECT_EQ(told(), "one two\n" + home.native() + "\n-c\necho ready; read x < pipe\nx\na b\nleader\n");
    EXPECT_EQ(treeOf(current), expected);
    EXPECT_FALSE(fs::exists(staged));
    EXPECT_FALSE(fs::exists(folder.path / ("Vimble.previous-" + std::to_string(old) + ".app")));
}

TEST_F(LiveInstallerEnvironmentTest, AnApplicationThatIgnoresTheRequestIsKilled) {
    startOld(stubborn);
    attempts = 1;
    EXPECT_EQ(install(old), InstallerReply());
    EXPECT_EQ(signalThatEndedOld(), SIGKILL);
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_TRUE(told().starts_with("one two\n"));
}

TEST_F(LiveInstallerEnvironmentTest, ThePauseBetweenTwoLooksEndsWithTheProcess) {
    // The application takes a moment to end, so that the first look still finds it.
    startOld(
        "exec 2>/dev/null; trap 'i=0; while [ $i -lt 20000 ]; do i=$((i + 1)); done; exit 7' TERM; echo ready; read x "
        "< pipe");
    attempts = 1;
    interval = 1e6;
    EXPECT_EQ(install(old), InstallerReply());
    EXPECT_EQ(signalThatEndedOld(), 0) << "it was killed";
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_TRUE(told().starts_with("one two\n"));
}

TEST_F(LiveInstallerEnvironmentTest, AProcessFromElsewhereIsNotTouched) {
    start("/bin/sh", "echo ready; read x < pipe");
    const auto before = treeOf(current);
    EXPECT_EQ(install(old).errorMessage, "Unable to terminate running app: process " + std::to_string(old) +
                                             " does not run from " + current.native());
    EXPECT_TRUE(isProcessRunning(old));
    EXPECT_EQ(treeOf(current), before);
    EXPECT_TRUE(fs::exists(staged));
}

TEST_F(LiveInstallerEnvironmentTest, AFolderThatOnlyBeginsWithTheBundlesNameIsElsewhere) {
    makeTestBundle(folder.path / "Vimble.app2", "1");
    const fs::path executable = folder.path / "Vimble.app2" / "sh";
    fs::copy_file("/bin/sh", executable);
    start(executable, "echo ready; read x < pipe");
    EXPECT_TRUE(install(old).errorMessage.value_or("").ends_with(" does not run from " + current.native()));
    EXPECT_TRUE(isProcessRunning(old));
}

TEST_F(LiveInstallerEnvironmentTest, AProcessFromBeforeAnEarlierUpdateIsReplacedToo) {
    startOld("echo ready; read x < pipe");
    fs::rename(current, folder.path / "Vimble.previous-412.app");
    FileTree::remove(folder.path / "Vimble.previous-412.app");
    makeTestBundle(current, "1.0.5");
    ASSERT_EQ(install(old), InstallerReply());
    EXPECT_EQ(signalThatEndedOld(), SIGTERM);
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_TRUE(told().starts_with("one two\n"));
}

TEST_F(LiveInstallerEnvironmentTest, AFolderBesideItThatOnlyLooksLikeAnEarlierOneIsElsewhere) {
    for (const char* name : {"Vimble.previous-.app", "Vimble.previous-4x.app", "Vimble.previous-4",
                             "Other.previous-4.app", "Vimble.previous-4.app2", "Vimble.previous-app"}) {
        SCOPED_TRACE(name);
        fs::create_directories(folder.path / name);
        fs::copy_file("/bin/sh", folder.path / name / "sh");
        start(folder.path / name / "sh", "echo ready; read x < pipe");
        EXPECT_TRUE(install(old).errorMessage.value_or("").ends_with(" does not run from " + current.native()));
        EXPECT_TRUE(isProcessRunning(old));
        ::kill(old, SIGKILL);
        (void)signalThatEndedOld();
    }
}

TEST_F(LiveInstallerEnvironmentTest, TheNewOneIsToldOfTheJournalThatItsOutputReallyGoesTo) {
    ::setenv("JOURNAL_STREAM", "8:1234", /*overwrite=*/1);
    EXPECT_EQ(toldByTheNewOne("echo \"${JOURNAL_STREAM-none}\""), "8:1234\n");
    ::unsetenv("JOURNAL_STREAM");
}

TEST_F(LiveInstallerEnvironmentTest, WithoutAJournalTheNewOneIsToldOfNone) {
    EXPECT_EQ(toldByTheNewOne("echo \"${JOURNAL_STREAM-none}\""), "none\n");
}

TEST_F(LiveInstallerEnvironmentTest, WhatAProcessHasWipedOfItsEnvironmentIsNotHandedOn) {
    // A variable that was overwritten with zeros looks like many variables without a name.
    EXPECT_EQ(toldByTheNewOne("tr '\\0' '\\n' < /proc/$$/environ | grep -vc ="), "0\n");
}

TEST_F(LiveInstallerEnvironmentTest, NumbersThatMeanGroupsAreRefused) {
    for (const int number : {0, -1})
        EXPECT_EQ(install(number).errorMessage, "Unable to terminate running app: Invalid argument");
    EXPECT_TRUE(fs::exists(staged));
}

TEST_F(LiveInstallerEnvironmentTest, AfterAProcessThatWasGoneTheNewOneIsStartedWithoutArguments) {
    startOld("echo ready");
    (void)signalThatEndedOld();
    // The working folder of the old one is unknown too, so the new one must be told a whole path to write to.
    std::ofstream(staged / "Contents" / "Linux" / "Vimble") << "#!/bin/sh\necho $# > '" << home.native() << "/told'\n";
    EXPECT_EQ(install(999'999'999), InstallerReply());
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    EXPECT_EQ(told(), "0\n");
}

TEST_F(LiveInstallerEnvironmentTest, AProcessThatEndedWithoutNoticeIsGone) {
    startOld("echo ready");
    siginfo_t info;
    ::waitid(P_PID, static_cast<id_t>(old), &info, WEXITED | WNOWAIT);
    auto live = environment();
    EXPECT_NO_THROW(live.terminateProcess(old, current));
    EXPECT_FALSE(live.processIsRunning(old));
}

TEST_F(LiveInstallerEnvironmentTest, WhoeverGotTheNumberOfAProcessThatWasGoneIsNotKilled) {
    auto live = environment();
    live.terminateProcess(999'999'999, current);
    start("/bin/sh", "echo ready; read x < pipe");
    live.forceTerminateProcess(old);
    EXPECT_FALSE(live.processIsRunning(old));
    EXPECT_TRUE(isProcessRunning(old));
}

TEST_F(LiveInstallerEnvironmentTest, AProcessOfAnotherUserIsNotTouched) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    startOld("echo ready; read x < pipe");
    ::chmod(folder.path.c_str(), 0777);
    const pid_t child = ::fork();
    if (child == 0) {
        int status = 1;
        if (::setgid(65534) == 0 && ::setuid(65534) == 0) {
            auto live = environment();
            status = live.processIsRunning(old) ? 2 : 3;
            try {
                live.terminateProcess(old, current);
            } catch (const InstallerServiceError& error) {
                const bool isRight =
                    std::string(error.what()) == "Unable to terminate running app: Operation not permitted";
                if (status == 2 && isRight) status = 0;
            }
        }
        ::_exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(isProcessRunning(old));
}

TEST_F(LiveInstallerEnvironmentTest, ABundleWhoseSealDoesNotHoldIsRefusedInTheToolsWords) {
    startOld("echo ready; read x < pipe");
    writeTool("case $3 in *New.app) echo \"$3: altered\"; exit 1;; esac; echo Signature=adhoc");
    EXPECT_EQ(install(old), (InstallerReply{staged.native() + ": altered\n", false}));
    EXPECT_TRUE(isProcessRunning(old));
    EXPECT_TRUE(fs::exists(staged));
}

TEST_F(LiveInstallerEnvironmentTest, AnUnwritableFolderIsToldWhileTheApplicationRuns) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    // Everything belongs to another user, except the folder that the bundle lies in.
    ::chmod(folder.path.c_str(), 0755);
    ::chmod(tool.c_str(), 0755);
    const pid_t child = ::fork();
    if (child == 0) {
        int status = 1;
        if (::setgid(65534) == 0 && ::setuid(65534) == 0) {
            const auto reply = install(::getpid());
            const bool isRight =
                reply.shouldPresentToUser && reply.errorMessage.value_or("").starts_with("UpdateKit couldn't replace");
            status = isRight ? 0 : 2;
        }
        ::_exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(fs::exists(current));
    EXPECT_TRUE(fs::exists(staged));
}

TEST_F(LiveInstallerEnvironmentTest, AnApplicationThatCannotBeStartedIsTold) {
    startOld("echo ready; read x < pipe");
    fs::permissions(staged / "Contents" / "Linux" / "Vimble", fs::perms::owner_read);
    EXPECT_EQ(install(old).errorMessage, "Unable to relaunch updated app: start " +
                                             (current / "Contents" / "Linux" / "Vimble").native() +
                                             ": Permission denied");
}

TEST(ToolBesideThisProgramTest, TheToolIsTheOneInTheSameFolder) {
    EXPECT_EQ(toolBesideThisProgram("x"), fs::canonical("/proc/self/exe").parent_path() / "x");
}

}  // namespace
