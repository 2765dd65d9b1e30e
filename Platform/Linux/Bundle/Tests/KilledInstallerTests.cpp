// Kills the installer at each system call that changes a file or a folder, in turn, and looks at what is on disk. These
// calls are smaller steps than any that the installer itself knows.

#include "PlatformBundle/FileTree.h"
#include "PlatformBundle/LinuxFileManager.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/InstallerService.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// Whether a child that has stopped is about to change a file or a folder.
bool isChange(pid_t child) {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0) return false;
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return false;
    if (info.entry.nr == SYS_openat) return (info.entry.args[2] & O_CREAT) != 0;
    static const std::set<std::uint64_t> changes{
#ifdef SYS_rename
        SYS_rename,    SYS_unlink,   SYS_rmdir,     SYS_mkdir,   SYS_symlink,   SYS_chmod,
#endif
        SYS_renameat2, SYS_renameat, SYS_unlinkat,  SYS_mkdirat, SYS_symlinkat, SYS_write,
        SYS_fchmod,    SYS_fchmodat, SYS_utimensat,
    };
    return changes.contains(info.entry.nr);
}

enum class End { killed, finished, untraceable, failed };

/// Runs something in a child that is killed at its n-th change.
template <class Run>
End killedAt(int n, Run run) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(77);
        ::raise(SIGSTOP);
        int status = 0;
        try {
            run();
        } catch (const std::exception&) {
            status = 1;
        }
        ::_exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status)) return End::untraceable;
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (int count = 0;;) {
        if (::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0 || ::waitpid(child, &status, 0) != child)
            return End::failed;
        if (WIFEXITED(status)) return WEXITSTATUS(status) == 0 ? End::finished : End::failed;
        const bool isCall = WIFSTOPPED(status) && WSTOPSIG(status) == (SIGTRAP | 0x80);
        if (!isCall || !isChange(child) || ++count < n) continue;
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        return End::killed;
    }
}

class KilledInstallerTest : public testing::Test {
protected:
    ~KilledInstallerTest() override { FileTree::remove(folder.path); }

    void prepare() {
        for (const auto& place : {apps, downloads})
            for (const auto& each : fs::directory_iterator(place)) FileTree::remove(each.path());
        makeTestBundle(current, "1.0.0");
        makeTestBundle(staged, "1.1.0");
        makeTestBundle(backup, "0.0.1");  // left by an earlier failure
    }

    void install() {
        LinuxFileManager files;
        PropertyListBundleReader reader;
        InstallerEnvironment environment;
        environment.readCodeSignatureProfile = [](const fs::path&) {
            return CodeSignatureProfile{CodeSignatureProfile::Kind::adhoc, std::nullopt, {}};
        };
        environment.removeQuarantine = environment.relaunchApp = [](const fs::path&) {};
        environment.terminateProcess = [](std::int32_t, const fs::path&) {};
        environment.forceTerminateProcess = [](std::int32_t) {};
        environment.processIsRunning = [](std::int32_t) { return false; };
        environment.sleep = [](double) {};
        InstallerService service(files, reader, environment, {});
        const InstallerLaunchRequest request{staged, current, 412};
        service.validate(request);
        service.run(request);
    }

    /// @return what is wrong with what lies there; empty if nothing is
    std::string whatIsWrong() const {
        if (fs::exists(current)) {
            const auto tree = treeOf(current);
            return tree == old || tree == update ? "" : "the bundle is neither the old one nor the new one";
        }
        if (!fs::exists(backup)) return "there is no bundle at all";
        return treeOf(backup) == old ? "" : "the backup is not the old bundle";
    }

    /// @return what went wrong; empty if nothing did
    std::string killEverywhere() {
        fs::create_directories(apps);
        fs::create_directories(downloads);
        prepare();
        old = treeOf(current);
        update = treeOf(staged);
        for (int n = 1;; ++n) {
            prepare();
            const End end = killedAt(n, [this] { install(); });
            if (end == End::untraceable) return "untraceable";
            if (end == End::failed) return "call " + std::to_string(n) + ": the installer failed";
            const std::string wrong = whatIsWrong();
            if (!wrong.empty()) return "call " + std::to_string(n) + ": " + wrong;
            if (end == End::killed) continue;
            killed = n - 1;
            return treeOf(current) == update ? "" : "at the end the new one is not there";
        }
    }

    TemporaryFolder folder;
    fs::path apps = folder.path / "apps";
    fs::path downloads = folder.path / "downloads";
    fs::path current = apps / "Vimble.app";
    fs::path backup = apps / "Vimble.previous-412.app";
    fs::path staged = downloads / "New.app";
    std::map<std::string, std::string> old;
    std::map<std::string, std::string> update;
    int killed = 0;  // how many times
};

TEST_F(KilledInstallerTest, WhereverItIsKilledAWholeBundleIsThere) {
    const std::string wrong = killEverywhere();
    if (wrong == "untraceable") GTEST_SKIP() << "this user may not trace";
    EXPECT_EQ(wrong, "");
    EXPECT_GT(killed, 20);
}

TEST_F(KilledInstallerTest, AcrossVolumesToo) {
    fs::create_directories(downloads);
    std::array<int, 2> ends;
    ASSERT_EQ(::pipe(ends.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        std::string said = "unmountable";
        if (::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            ::mount("none", downloads.c_str(), "tmpfs", 0, "size=10m") == 0)
            said = killEverywhere();
        if (said.empty() && killed < 60) said = "there were only " + std::to_string(killed) + " calls";
        (void)!::write(ends[1], said.data(), said.size());
        ::_exit(0);
    }
    ::close(ends[1]);
    ::waitpid(child, nullptr, 0);
    std::array<char, 200> said{};
    (void)!::read(ends[0], said.data(), said.size() - 1);
    ::close(ends[0]);
    const std::string wrong = said.data();
    if (wrong == "untraceable" || wrong == "unmountable") GTEST_SKIP() << "this user may not trace, or not mount";
    EXPECT_EQ(wrong, "");
}

}  // namespace
