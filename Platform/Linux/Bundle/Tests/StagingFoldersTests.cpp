#include "PlatformBundle/StagingFolders.h"

#include "TestSupport/TemporaryFolder.h"

#include <array>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class StagingFoldersTest : public testing::Test {
protected:
    std::size_t count() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(folder.path / "UpdateKit"), fs::directory_iterator()));
    }

    TemporaryFolder folder;
};

TEST_F(StagingFoldersTest, EachFolderIsNewAndThisUsersAlone) {
    StagingFolders folders(folder.path);
    const auto first = folders.make();
    const auto second = folders.make();
    EXPECT_NE(first, second);
    EXPECT_EQ(first.parent_path(), folder.path / "UpdateKit");
    EXPECT_THAT(first.filename().native(),
                testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    struct stat status {};
    ASSERT_EQ(stat(first.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
}

TEST_F(StagingFoldersTest, ARemovedFolderIsGoneWithAllThatIsInIt) {
    StagingFolders folders(folder.path);
    const auto path = folders.make();
    fs::create_directories(path / "a" / "b");
    std::ofstream(path / "a" / "file") << "x";
    fs::permissions(path / "a", fs::perms::owner_read | fs::perms::owner_exec);
    folders.remove(path);
    EXPECT_EQ(count(), 0U);
    folders.remove(path);
}

TEST_F(StagingFoldersTest, WhatALivingProgramUsesIsLeftAlone) {
    StagingFolders living(folder.path);
    const auto used = living.make();
    StagingFolders another(folder.path);
    another.removeLeftovers();
    const auto own = another.make();
    another.removeLeftovers();
    EXPECT_TRUE(fs::exists(used));
    EXPECT_TRUE(fs::exists(own));
}

TEST_F(StagingFoldersTest, WhatADeadProgramHasLeftIsRemoved) {
    const pid_t child = fork();
    if (child == 0) {
        StagingFolders folders(folder.path);
        fs::create_directories(folders.make() / "extracted" / "Vimble.app");
        _exit(count() == 1 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(count(), 1U);
    std::ofstream(folder.path / "UpdateKit" / "stray") << "x";
    fs::create_symlink("/etc", folder.path / "UpdateKit" / "link");
    StagingFolders folders(folder.path);
    const auto own = folders.make();
    folders.removeLeftovers();
    EXPECT_EQ(count(), 1U);
    EXPECT_TRUE(fs::exists(own));
    EXPECT_TRUE(fs::exists("/etc/passwd"));
}

TEST_F(StagingFoldersTest, WhatIsRemovedIsGoneFromItsPlaceBeforeAnythingInItIs) {
    StagingFolders folders(folder.path);
    const auto own = folders.make();
    fs::create_directories(own / "extracted" / "Vimble.app");
    const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, own.parent_path().c_str(), IN_MOVED_FROM), 0);
    ASSERT_GE(inotify_add_watch(watch, (own / "extracted").c_str(), IN_DELETE), 0);
    folders.remove(own);
    std::vector<std::string> events;
    alignas(inotify_event) std::array<char, 4096> buffer;
    const ssize_t size = ::read(watch, buffer.data(), buffer.size());
    ::close(watch);
    for (ssize_t at = 0; at < size;) {
        const auto* const event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
        if (event->len > 0) events.emplace_back(event->name);
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    EXPECT_EQ(events, (std::vector<std::string>{own.filename(), "Vimble.app"}));
    EXPECT_EQ(count(), 0U);
}

TEST_F(StagingFoldersTest, TheTopIsLockedAgainstOthers) {
    StagingFolders folders(folder.path);
    folders.make();
    const int top = ::open((folder.path / "UpdateKit").c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(top, 0);
    EXPECT_NE(flock(top, LOCK_EX | LOCK_NB), 0);
    ::close(top);
}

TEST_F(StagingFoldersTest, ATopThatWasTakenAwayIsMadeAnew) {
    StagingFolders folders(folder.path);
    folders.make();
    fs::remove_all(folder.path / "UpdateKit");
    EXPECT_TRUE(fs::exists(folders.make()));
}

TEST_F(StagingFoldersTest, AnUpdateThatIsHeldOutlivesTheProgramThatPreparedIt) {
    auto program = std::make_unique<StagingFolders>(folder.path);
    const auto path = program->make();
    const auto update = path / "extracted" / "UpdateKit" / "Vimble.app";
    fs::create_directories(update);
    auto held = StagingFolders::hold(update);
    program.reset();
    StagingFolders another(folder.path / "");
    another.removeLeftovers();
    EXPECT_TRUE(fs::exists(update));
    const int top = ::open((folder.path / "UpdateKit").c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(top, 0);
    EXPECT_NE(flock(top, LOCK_EX | LOCK_NB), 0) << "all of it may be cleared away";
    ::close(top);
    held.reset();
    another.removeLeftovers();
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(StagingFoldersTest, AnUpdateThatIsBeingRemovedCanNotBeHeld) {
    const auto path = StagingFolders(folder.path).make();
    const int another = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(another, 0);
    ASSERT_EQ(flock(another, LOCK_EX | LOCK_NB), 0);
    EXPECT_THROW(StagingFolders::hold(path / "Vimble.app"), std::runtime_error);
    ::close(another);
}

TEST_F(StagingFoldersTest, WhatLiesElsewhereOrNowhereNeedsNoHolding) {
    for (const fs::path& path :
         {folder.path / "Vimble.app", folder.path / "UpdateKit" / "gone" / "Vimble.app", fs::path("/"), fs::path()})
        EXPECT_NO_THROW(StagingFolders::hold(path)) << path;
}

TEST_F(StagingFoldersTest, ATemporaryFolderThatWasTakenAwayIsMadeAnewForThisUserAlone) {
    const fs::path temporary = folder.path / "cache" / "tmp";
    fs::create_directories(temporary);
    StagingFolders folders(temporary);
    folders.make();
    fs::remove_all(folder.path / "cache");
    EXPECT_TRUE(fs::exists(folders.make()));
    EXPECT_EQ(fs::status(temporary).permissions(), fs::perms::owner_all);
}

TEST_F(StagingFoldersTest, WhereNothingWasEverLeftThereIsNothingToDo) {
    StagingFolders folders(folder.path);
    folders.removeLeftovers();
    EXPECT_TRUE(fs::is_empty(folder.path));
}

TEST_F(StagingFoldersTest, WhereNoFolderCanBeMadeItSaysSo) {
    std::ofstream(folder.path / "file") << "x";
    StagingFolders folders(folder.path / "file");
    EXPECT_THROW(folders.make(), std::system_error);
    StagingFolders deeper(folder.path / "file" / "a" / "b");
    EXPECT_THROW(deeper.make(), std::system_error);
    std::ofstream(folder.path / "UpdateKit") << "x";
    StagingFolders others(folder.path);
    EXPECT_THROW(others.make(), std::system_error);
}

}  // namespace
