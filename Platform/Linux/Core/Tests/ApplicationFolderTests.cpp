#include "PlatformCore/ApplicationFolder.h"

#include "TestSupport/EnvironmentVariable.h"
#include "TestSupport/TemporaryFolder.h"

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

class ApplicationFolderTest : public ::testing::Test {
protected:
    ApplicationFolder open(std::optional<fs::path> dataDir = std::nullopt) { return {dataDir, "vimble-test", now}; }

    fs::path leftover(const std::string& name, double hoursOld) {
        const fs::path path = cache / "zorvane.Vimble" / "tmp" / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path) << "x";
        age(path, hoursOld);
        return path;
    }

    void age(const fs::path& path, double hoursOld) const {
        const auto seconds = static_cast<time_t>(now.toUnix() - hoursOld * 3600);
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }

    static unsigned mode(const fs::path& path) {
        struct stat status {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }

    TemporaryFolder home;
    const fs::path data = home.path / "data";
    const fs::path cache = home.path / "cache";
    const EnvironmentVariable dataHome{"XDG_DATA_HOME", data.string()};
    const EnvironmentVariable cacheHome{"XDG_CACHE_HOME", cache.string()};
    const Date now{800000000};
};

TEST_F(ApplicationFolderTest, ItIsMadeForItsUserAloneInTheFolderForData) {
    umask(0);
    const ApplicationFolder folder = open();
    umask(022);
    EXPECT_EQ(folder.path(), data / "zorvane.Vimble");
    EXPECT_EQ(folder.temporary(), cache / "zorvane.Vimble" / "tmp");
    EXPECT_EQ(mode(folder.path()), 0700u);
    EXPECT_EQ(mode(folder.temporary()), 0700u);
    EXPECT_EQ(mode(folder.path() / ".lock"), 0600u);
}

TEST_F(ApplicationFolderTest, AnotherFolderMayBeGivenAlsoARelativeOne) {
    EXPECT_EQ(open(home.path / "a" / "b" / "").path(), home.path / "a" / "b");
    const fs::path before = fs::current_path();
    fs::current_path(home.path);
    EXPECT_EQ(open("here").path(), home.path / "here");
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(data));
}

TEST_F(ApplicationFolderTest, WithoutVariablesItLiesInTheHomeFolder) {
    const EnvironmentVariable noData("XDG_DATA_HOME", std::nullopt);
    const EnvironmentVariable relative("XDG_CACHE_HOME", "not/absolute");
    const EnvironmentVariable homeFolder("HOME", home.path.string());
    const ApplicationFolder folder = open();
    EXPECT_EQ(folder.path(), home.path / ".local/share/zorvane.Vimble");
    EXPECT_EQ(folder.temporary(), home.path / ".cache/zorvane.Vimble/tmp");
}

TEST_F(ApplicationFolderTest, ASecondProgramIsToldWhoHasIt) {
    const ApplicationFolder first = open();
    try {
        const ApplicationFolder second({}, "another", now);
        FAIL() << "two programs hold the folder";
    } catch (const ApplicationFolderInUse& error) {
        EXPECT_EQ(error.program, "vimble-test");
        EXPECT_EQ(error.processId, getpid());
        EXPECT_EQ(std::string(error.what()), (data / "zorvane.Vimble").string() +
                                                 " is in use by vimble-test (process " + std::to_string(getpid()) +
                                                 ")");
    }
    const ApplicationFolder elsewhere = open(home.path / "elsewhere");
}

TEST_F(ApplicationFolderTest, AnotherProcessIsKeptOutUntilTheFirstDiesHoweverItDies) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        const ApplicationFolder folder({}, "the first", now);
        if (write(ready[1], "x", 1) != 1) _exit(1);
        pause();
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    try {
        open();
        FAIL();
    } catch (const ApplicationFolderInUse& error) {
        EXPECT_EQ(error.program, "the first");
        EXPECT_EQ(error.processId, child);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_NO_THROW(open());
    close(ready[0]);
    close(ready[1]);
}

TEST_F(ApplicationFolderTest, TheLockGoesWithItsHolder) {
    { const ApplicationFolder folder = open(); }
    EXPECT_NO_THROW(open());
}

TEST_F(ApplicationFolderTest, ALockWithoutAReadableNameIsStillALock) {
    fs::create_directories(data / "zorvane.Vimble");
    const int file = ::open((data / "zorvane.Vimble/.lock").c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(flock(file, LOCK_EX), 0);
    try {
        open();
        FAIL();
    } catch (const ApplicationFolderInUse& error) {
        EXPECT_EQ(error.processId, std::nullopt);
        EXPECT_THAT(error.what(), HasSubstr("in use by another program"));
    }
    close(file);
}

TEST_F(ApplicationFolderTest, AFolderThatCanNotBeMadeIsAnErrorWithItsReason) {
    std::ofstream(data.string()) << "a file where the folder should be";
    EXPECT_THROW(open(), ApplicationFolderError);
    EXPECT_THROW(open(data / "below"), ApplicationFolderError);
    EXPECT_THROW(open("/proc/nothing"), ApplicationFolderError);
}

TEST_F(ApplicationFolderTest, ATemporaryFolderThatIsALinkOrAnothersIsRefused) {
    fs::create_directories(cache / "zorvane.Vimble");
    fs::create_directories(home.path / "elsewhere");
    fs::create_directory_symlink(home.path / "elsewhere", cache / "zorvane.Vimble/tmp");
    EXPECT_THROW(open(), ApplicationFolderError);
    fs::remove(cache / "zorvane.Vimble/tmp");
    fs::create_directories(cache / "zorvane.Vimble/tmp");
    if (geteuid() == 0) {
        ASSERT_EQ(chown((cache / "zorvane.Vimble/tmp").c_str(), 65534, 65534), 0);
        EXPECT_THROW(open(), ApplicationFolderError);
        ASSERT_EQ(chown((cache / "zorvane.Vimble/tmp").c_str(), 0, 0), 0);
    }
    chmod((cache / "zorvane.Vimble/tmp").c_str(), 0777);
    const ApplicationFolder folder = open();
    EXPECT_EQ(mode(folder.temporary()), 0700u);
}

TEST_F(ApplicationFolderTest, AnOldFolderThatSomebodyHasLockedIsNoLeftover) {
    const fs::path locked = leftover("locked/file", 25).parent_path();
    age(locked, 25);
    const int holder = ::open(locked.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(holder, LOCK_SH), 0);
    open();
    EXPECT_TRUE(fs::exists(locked / "file"));
    ::close(holder);
    open();
    EXPECT_FALSE(fs::exists(locked));
}

TEST_F(ApplicationFolderTest, OnlyLeftoversOlderThanADayAreRemovedAndNoLinkIsFollowed) {
    const fs::path fresh = leftover("fresh", 23);
    const fs::path old = leftover("old", 25);
    const fs::path oldFolder = leftover("folder/deep/file", 25).parent_path().parent_path();
    const fs::path busyFolder = leftover("busy/file", 1).parent_path();
    fs::create_directories(home.path / "precious");
    std::ofstream(home.path / "precious/file") << "keep";
    const fs::path link = cache / "zorvane.Vimble/tmp/link";
    fs::create_directory_symlink(home.path / "precious", link);
    for (const fs::path& path : {oldFolder / "deep", oldFolder, busyFolder, link}) age(path, 25);

    const ApplicationFolder folder = open();
    EXPECT_TRUE(fs::exists(fresh));
    EXPECT_TRUE(fs::exists(busyFolder / "file")) << "a folder in use was taken for old";
    EXPECT_FALSE(fs::exists(old));
    EXPECT_FALSE(fs::exists(oldFolder));
    EXPECT_FALSE(fs::is_symlink(link));
    EXPECT_TRUE(fs::exists(home.path / "precious/file"));
}

}  // namespace
