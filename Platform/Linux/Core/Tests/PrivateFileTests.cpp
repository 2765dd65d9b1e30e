#include "PlatformCore/PrivateFile.h"

#include "FileFaults/FileFaults.h"
#include "TestSupport/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>

namespace fs = std::filesystem;

namespace {

class PrivateFileTest : public testing::Test {
protected:
    static std::string contents(const fs::path& file) {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    auto count() const { return std::distance(fs::directory_iterator(folder.path), {}); }

    const TemporaryFolder folder;
    const fs::path file = folder.path / "file";
    const Bytes text{'n', 'e', 'w'};
};

TEST_F(PrivateFileTest, ANewFileIsForItsOwnerAloneWhateverTheMask) {
    const mode_t before = umask(0);
    PrivateFile::replace(file, text);
    umask(before);
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_EQ(contents(file), "new");
    EXPECT_EQ(count(), 1);
}

TEST_F(PrivateFileTest, ALinkStaysAndWhatItLeadsToIsReplaced) {
    const fs::path link = folder.path / "link";
    std::ofstream(file) << "old";
    fs::create_symlink("file", link);
    PrivateFile::replace(link, text);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(contents(file), "new");
}

TEST_F(PrivateFileTest, ALinkToAFileThatIsNotThereYetStaysAndTheFileIsMade) {
    fs::create_directory(folder.path / "place");
    const fs::path link = folder.path / "link";
    fs::create_symlink("place/other", link);
    fs::create_symlink("file", folder.path / "place" / "other");
    PrivateFile::replace(link, text);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::is_symlink(folder.path / "place" / "other"));
    EXPECT_EQ(contents(folder.path / "place" / "file"), "new");
}

TEST_F(PrivateFileTest, LinksThatLeadInACircleAreRefused) {
    fs::create_symlink("file", folder.path / "link");
    fs::create_symlink("link", file);
    EXPECT_THROW(PrivateFile::replace(file, text), std::system_error);
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_EQ(count(), 2);
}

TEST_F(PrivateFileTest, AWriteThatFailsLeavesTheOldFileAndNothingBesides) {
    std::ofstream(file) << "old";
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit tight{2, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    std::error_code why;
    try {
        PrivateFile::replace(file, text);
    } catch (const std::system_error& error) {
        why = error.code();
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(why, std::errc::file_too_large);
    EXPECT_EQ(contents(file), "old");
    EXPECT_EQ(count(), 1);
}

TEST_F(PrivateFileTest, WhicheverCallFailsTheOldFileOrTheNewOneIsThereAndNothingBesides) {
    const fs::path link = folder.path / "link";
    fs::create_symlink("file", link);
    std::optional<std::string> failed = "";
    int failing = 1;
    for (; failed; ++failing) {
        std::ofstream(file) << "old";
        std::error_code why;
        std::string what;
        bool hasRenamed = false;
        {
            const FileFaults faults(failing, ENOSPC);
            try {
                PrivateFile::replace(link, text);
            } catch (const std::system_error& error) {
                why = error.code();
                what = error.what();
            }
            failed = faults.failedCall();
            hasRenamed = faults.hasRenamed();
        }
        SCOPED_TRACE(failed.value_or("none"));
        EXPECT_EQ(contents(file), hasRenamed ? "new" : "old");
        EXPECT_EQ(why == std::errc::no_space_on_device, !hasRenamed);
        EXPECT_EQ(what, hasRenamed ? "" : link.native() + ": No space left on device");
        EXPECT_TRUE(fs::is_symlink(link));
        EXPECT_EQ(count(), 2);
        ASSERT_LT(failing, 20);
    }
    EXPECT_GT(failing, 9) << "making, writing, flushing, closing, renaming, and three with the folder";
}

TEST_F(PrivateFileTest, WhatIsNoFileIsRefusedAndStays) {
    const fs::path pipe = folder.path / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THROW(PrivateFile::replace(pipe, text), std::system_error);
    EXPECT_THROW(PrivateFile::replace("/dev/null", text), std::system_error);
    EXPECT_THROW(PrivateFile::replace(folder.path, text), std::system_error);
    EXPECT_THROW(PrivateFile::replace(folder.path / "", text), std::system_error);
    EXPECT_THROW(PrivateFile::replace(folder.path / "gone" / "file", text), std::system_error);
    EXPECT_TRUE(fs::is_fifo(pipe));
    EXPECT_EQ(count(), 1);
}

}  // namespace
