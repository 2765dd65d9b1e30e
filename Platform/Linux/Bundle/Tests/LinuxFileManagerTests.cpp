#include "PlatformBundle/LinuxFileManager.h"

#include "FlushedFiles.h"
#include "PlatformBundle/FileTree.h"
#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

/// Runs a function in a process of its own, since it changes something that a process can't change back.
/// @return the exit status; 100 for an exception
int inChild(const std::function<int()>& run) {
    const pid_t child = ::fork();
    if (child == 0) {
        int status = 100;
        try {
            status = run();
        } catch (const std::exception& error) {
            (void)!::write(2, error.what(), std::string(error.what()).size());
        }
        ::_exit(status);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 200;
}

/// The number of the error that an operation fails with; 0 for none.
int errorOf(const std::function<void()>& run) {
    try {
        run();
    } catch (const std::system_error& error) {
        return error.code().value();
    }
    return 0;
}

class LinuxFileManagerTest : public testing::Test {
protected:
    LinuxFileManagerTest() {
        makeTestBundle(staged, "1.1.0");
        fs::create_directory(folder.path / "apps");
    }
    ~LinuxFileManagerTest() override { FileTree::remove(staged); }

    TemporaryFolder folder;
    fs::path staged = folder.path / "New.app";
    fs::path destination = folder.path / "apps" / "Vimble.app";
    LinuxFileManager files;
};

/// Tests on two volumes. They are skipped if this user may not mount.
class TwoVolumesTest : public LinuxFileManagerTest {
protected:
    /// Runs with `folder.path / "apps"` on a volume of its own.
    /// @param size  how much room it has
    int withVolume(const std::string& size, const std::function<int()>& run) {
        return inChild([&] {
            if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount("none", (folder.path / "apps").c_str(), "tmpfs", 0, ("size=" + size).c_str()) != 0)
                return cannotMount;
            return run();
        });
    }
    static constexpr int cannotMount = 77;
};

TEST_F(LinuxFileManagerTest, AMoveOnOneVolumeKeepsEverything) {
    const auto before = treeOf(staged);
    EXPECT_EQ(files.prepareMove(staged, destination), staged);
    files.move(staged, destination);
    EXPECT_FALSE(files.exists(staged));
    EXPECT_EQ(treeOf(destination), before);
    files.remove(destination);
}

TEST_F(LinuxFileManagerTest, AMoveReplacesNothing) {
    fs::create_directory(destination);
    EXPECT_EQ(errorOf([&] { files.move(staged, destination); }), EEXIST);
    EXPECT_TRUE(files.exists(staged));
    EXPECT_TRUE(fs::is_empty(destination));
}

TEST_F(LinuxFileManagerTest, AMoveOfNothingIsAnError) {
    EXPECT_EQ(errorOf([&] { files.move(folder.path / "gone", destination); }), ENOENT);
    EXPECT_EQ(errorOf([&] { (void)files.prepareMove(folder.path / "gone", destination); }), ENOENT);
    EXPECT_EQ(errorOf([&] { (void)files.prepareMove(staged, folder.path / "gone" / "A.app"); }), ENOENT);
}

TEST_F(LinuxFileManagerTest, ACopyIsEqualInEverything) {
    FileTree::copy(staged, destination);
    EXPECT_EQ(treeOf(destination), treeOf(staged));
    EXPECT_EQ(fs::last_write_time(destination / "Contents" / "empty.txt"),
              fs::last_write_time(staged / "Contents" / "empty.txt"));
    FileTree::remove(destination);
}

TEST_F(LinuxFileManagerTest, ACopyOfWhatIsNoFileLeavesNothing) {
    ASSERT_EQ(::mkfifo((staged / "Contents" / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(errorOf([&] { FileTree::copy(staged, destination); }), EINVAL);
    EXPECT_TRUE(fs::is_empty(destination.parent_path()));
}

TEST_F(LinuxFileManagerTest, ACopyReplacesNothing) {
    fs::create_directory(destination);
    EXPECT_EQ(errorOf([&] { FileTree::copy(staged, destination); }), EEXIST);
    EXPECT_TRUE(fs::exists(destination));
}

TEST_F(LinuxFileManagerTest, RemovingFollowsNoLinks) {
    fs::create_directories(folder.path / "other");
    std::ofstream(folder.path / "other" / "mine") << "x";
    fs::create_directory_symlink(folder.path / "other", staged / "Contents" / "link");
    files.remove(staged);
    EXPECT_FALSE(fs::exists(fs::symlink_status(staged)));
    EXPECT_TRUE(fs::exists(folder.path / "other" / "mine"));

    fs::create_directory_symlink(folder.path / "other", staged);
    files.remove(staged);
    EXPECT_FALSE(fs::exists(fs::symlink_status(staged)));
    EXPECT_TRUE(fs::exists(folder.path / "other" / "mine"));
    files.remove(staged);  // a missing path is no error
}

TEST_F(LinuxFileManagerTest, ClosedFoldersAreRemovedToo) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    EXPECT_EQ(::chmod(folder.path.c_str(), 0777), 0);
    EXPECT_EQ(inChild([&] {
                  if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 1;
                  const fs::path own = folder.path / "own";
                  makeTestBundle(own, "1");
                  fs::create_directory(own / "closed");
                  std::ofstream(own / "closed" / "f") << "x";
                  if (::chmod((own / "closed").c_str(), 0) != 0) return 2;
                  files.remove(own);
                  return fs::exists(fs::symlink_status(own)) ? 3 : 0;
              }),
              0);
}

TEST_F(LinuxFileManagerTest, AFolderThatMayNotBeWrittenToIsToldBeforeAnyMove) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    EXPECT_EQ(::chmod(folder.path.c_str(), 0755), 0);
    fs::create_directory(destination);
    EXPECT_EQ(inChild([&] {
                  if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 1;
                  if (errorOf([&] { (void)files.prepareMove(staged, destination); }) != EACCES) return 2;
                  if (errorOf([&] { files.move(destination, folder.path / "apps" / "backup"); }) != EACCES) return 3;
                  return 0;
              }),
              0);
    EXPECT_TRUE(fs::exists(destination));
}

TEST_F(TwoVolumesTest, AMoveAcrossVolumesIsACopyAndARename) {
    const int status = withVolume("10m", [&] {
        const auto before = treeOf(staged);
        files.move(staged, destination);
        const auto& apps = destination.parent_path();
        if (treeOf(destination) != before || fs::exists(staged)) return 1;
        return std::distance(fs::directory_iterator(apps), fs::directory_iterator()) == 1 ? 0 : 2;
    });
    if (status == cannotMount) GTEST_SKIP() << "this user may not mount";
    EXPECT_EQ(status, 0);
}

TEST_F(TwoVolumesTest, AMoveIsPreparedByACopyOnTheDestinationsVolume) {
    const int status = withVolume("10m", [&] {
        // A copy that an earlier move has left.
        fs::create_directories(folder.path / "apps" / ".Vimble.app.incoming" / "stale");
        const auto copy = files.prepareMove(staged, destination);
        if (copy.parent_path() != destination.parent_path() || treeOf(copy) != treeOf(staged)) return 1;
        for (const auto& each : fs::recursive_directory_iterator(copy))
            if (!each.is_symlink() && !FlushedFiles::contain(each)) return 3;
        files.move(copy, destination);
        return treeOf(destination) == treeOf(staged) ? 0 : 2;
    });
    if (status == cannotMount) GTEST_SKIP() << "this user may not mount";
    EXPECT_EQ(status, 0);
}

TEST_F(TwoVolumesTest, AFullDiskLeavesNothingBehind) {
    const int status = withVolume("200k", [&] {
        if (errorOf([&] { (void)files.prepareMove(staged, destination); }) != ENOSPC) return 1;
        if (!fs::is_empty(destination.parent_path())) return 2;
        if (errorOf([&] { files.move(staged, destination); }) != ENOSPC) return 3;
        return fs::is_empty(destination.parent_path()) && fs::exists(staged / "Contents" / "Info.plist") ? 0 : 4;
    });
    if (status == cannotMount) GTEST_SKIP() << "this user may not mount";
    EXPECT_EQ(status, 0);
}

TEST_F(TwoVolumesTest, AReadOnlyVolumeIsToldBeforeAnyMove) {
    const int status = withVolume("10m", [&] {
        if (::mount("none", destination.parent_path().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) return 5;
        return errorOf([&] { (void)files.prepareMove(staged, destination); }) == EROFS ? 0 : 1;
    });
    if (status == cannotMount) GTEST_SKIP() << "this user may not mount";
    EXPECT_EQ(status, 0);
}

}  // namespace
