#include "RelayShell/FileLock.h"

#include "TestSupport/TemporaryFolder.h"

#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class FileLockTest : public testing::Test {
protected:
    TemporaryFolder folder;
    std::filesystem::path file = folder.path / "new" / "lock";
};

TEST_F(FileLockTest, OneAtATimeHasIt) {
    FileLock first(file), second(file);
    EXPECT_TRUE(first.tryTake());
    EXPECT_FALSE(second.tryTake());
    first.giveBack();
    EXPECT_TRUE(second.tryTake());
    EXPECT_FALSE(first.tryTake());
}

TEST_F(FileLockTest, ItGoesWithItsObject) {
    std::optional<FileLock> first(file);
    ASSERT_TRUE(first->tryTake());
    FileLock moved(std::move(*first));
    FileLock second(file);
    first.reset();
    EXPECT_FALSE(second.tryTake());
    moved.close();
    EXPECT_TRUE(second.tryTake());
}

TEST_F(FileLockTest, AProcessThatWasForkedKeepsItUntilItEnds) {
    std::optional<FileLock> first(file);
    FileLock second(file);
    ASSERT_TRUE(first->tryTake());
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        char byte;
        ::close(pipe[1]);
        ::_exit(static_cast<int>(::read(pipe[0], &byte, 1)));
    }
    first.reset();
    EXPECT_FALSE(second.tryTake());
    ::close(pipe[1]);
    second.take();
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ::close(pipe[0]);
}

TEST_F(FileLockTest, ItsTextIsReadByOthersAndReplacedAsAWhole) {
    FileLock first(file), second(file);
    EXPECT_EQ(second.text(), "");
    first.setText("127.0.0.1:8080");
    EXPECT_EQ(second.text(), "127.0.0.1:8080");
    first.setText("[::1]:80");
    EXPECT_EQ(second.text(), "[::1]:80");
}

TEST_F(FileLockTest, WhatCannotBeOpenedIsSaid) {
    std::filesystem::create_directories(file);
    try {
        FileLock lock(file);
        FAIL() << "a folder was opened";
    } catch (const FileLockError& error) {
        EXPECT_EQ(error.what(), "the file " + file.string() + " can't be opened: Is a directory");
    }
}

TEST_F(FileLockTest, ItIsForItsUserAlone) {
    const FileLock lock(file);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
}

}  // namespace
