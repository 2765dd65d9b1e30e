#include "Base/File.h"

#include "FileFaults/FileFaults.h"
#include "TestSupport/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;
using File::Durability;
using File::Links;
using File::Replacement;
using testing::ElementsAre;

namespace {

constexpr std::size_t limit = 100;  // bytes

class FileTest : public testing::Test {
protected:
    static std::string contents(const fs::path& path) {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static std::string read(const fs::path& path, Links links = Links::follow) {
        return std::string(textOf(File::read(path, limit, links)));
    }
    static void write(const fs::path& path, std::string_view text) { std::ofstream(path) << text; }
    static unsigned mode(const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder.path)) names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }
    /// The error that an operation throws.
    static std::error_code errorOf(const std::function<void()>& operation) {
        try {
            operation();
        } catch (const std::system_error& error) {
            return error.code();
        }
        return {};
    }

    const TemporaryFolder folder;
    const fs::path file = folder.path / "file";
    const ByteView text = bytesOf("new");
};

// Each way in which the program replaces a file.
const std::array ways{
    Replacement{.durability = Durability::crash},
    Replacement{.durability = Durability::powerLoss},
    Replacement{.durability = Durability::crash, .permissions = 0644},
    Replacement{.durability = Durability::powerLoss, .permissions = 0644},
    Replacement{.durability = Durability::crash, .temporaryName = ".own.tmp"},
    Replacement{.durability = Durability::powerLoss, .permissions = 0640, .temporaryName = ".own-XXXXXX"},
};

TEST_F(FileTest, AReplacedFileHasTheNewContentsAndNothingIsBesideIt) {
    for (const Replacement& way : ways) {
        write(file, "something older and longer");
        File::replace(file, text, way);
        EXPECT_EQ(contents(file), "new");
        File::replace(file, {}, way);
        EXPECT_EQ(contents(file), "");
        EXPECT_THAT(names(), ElementsAre("file"));
    }
}

TEST_F(FileTest, AFileThatIsNotThereIsMade) {
    for (const Replacement& way : ways) {
        File::replace(file, text, way);
        EXPECT_EQ(contents(file), "new");
        fs::remove(file);
    }
}

TEST_F(FileTest, ThePermissionsAreThoseAskedForWhateverTheMaskAndTheOldFileSay) {
    for (const mode_t mask : {0000, 0022, 0077}) {
        for (const Replacement& way : ways) {
            write(file, "old");
            fs::permissions(file, fs::perms(0666));
            const mode_t before = ::umask(mask);
            File::replace(file, text, way);
            ::umask(before);
            EXPECT_EQ(mode(file), way.permissions);
        }
    }
}

TEST_F(FileTest, WhoHasTheOldFileOpenKeepsItsContents) {
    write(file, "old");
    std::ifstream open(file);
    File::replace(file, text, {.durability = Durability::crash});
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(open), {}), "old");
    EXPECT_EQ(contents(file), "new");
}

TEST_F(FileTest, ALinkIsReplacedAndNotWhatItLeadsTo) {
    write(folder.path / "target", "target");
    fs::create_symlink("target", file);
    File::replace(file, text, {.durability = Durability::crash});
    EXPECT_FALSE(fs::is_symlink(file));
    EXPECT_EQ(contents(file), "new");
    EXPECT_EQ(contents(folder.path / "target"), "target");
}

TEST_F(FileTest, WhatHasTheTemporaryNameIsRemovedAndNotWrittenInto) {
    const Replacement way{.durability = Durability::crash, .temporaryName = "beside"};
    const fs::path beside = folder.path / "beside";
    write(folder.path / "target", "target");
    fs::create_symlink("target", beside);
    File::replace(file, text, way);
    EXPECT_EQ(contents(folder.path / "target"), "target");

    write(beside, "open to all");
    fs::permissions(beside, fs::perms(0666));
    std::ifstream open(beside);
    File::replace(file, text, way);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(open), {}), "open to all");
    EXPECT_EQ(mode(file), 0600u);
    EXPECT_THAT(names(), ElementsAre("file", "target"));

    fs::create_directory(beside);
    EXPECT_TRUE(errorOf([&] { File::replace(file, text, way); }));
    EXPECT_TRUE(fs::is_directory(beside));
}

TEST_F(FileTest, AnyOtherNamesBesideAreLeftAlone) {
    write(folder.path / ".file.abcdef", "another's");
    File::replace(file, text, {.durability = Durability::powerLoss});
    EXPECT_THAT(names(), ElementsAre(".file.abcdef", "file"));
    EXPECT_EQ(contents(folder.path / ".file.abcdef"), "another's");
}

TEST_F(FileTest, AFileInTheCurrentFolderNeedsNoFolderInItsPath) {
    const fs::path before = fs::current_path();
    fs::current_path(folder.path);
    for (const Replacement& way : ways) {
        write("file", "old");
        File::replace("file", text, way);
        EXPECT_EQ(contents("file"), "new");
    }
    fs::current_path(before);
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(FileTest, OntoAFolderOrIntoNoneIsAnErrorThatNamesTheFile) {
    fs::create_directory(file);
    for (const Replacement& way : ways) {
        try {
            File::replace(file, text, way);
            ADD_FAILURE() << "a folder was replaced";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::is_a_directory);
            EXPECT_THAT(error.what(), testing::StartsWith(file.native()));
        }
        EXPECT_EQ(errorOf([&] { File::replace(folder.path / "no" / "file", text, way); }),
                  std::errc::no_such_file_or_directory);
        EXPECT_THAT(names(), ElementsAre("file"));
    }
}

TEST_F(FileTest, AFullDiskLeavesTheOldFileAndNothingBesides) {
    write(file, "old");
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    // A limit on the size of files has the same effect as a full disk.
    const rlimit tight{2, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
    std::vector<std::error_code> errors;
    for (const Replacement& way : ways) errors.push_back(errorOf([&] { File::replace(file, text, way); }));
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_THAT(errors, testing::Each(testing::Eq(std::errc::file_too_large)));
    EXPECT_EQ(contents(file), "old");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(FileTest, WhicheverCallFailsTheOldFileOrTheNewOneIsThereAndNothingBesides) {
    for (const Replacement& way : ways) {
        std::optional<std::string> failed = "";
        int failing = 1;
        for (; failed; ++failing) {
            write(file, "old");
            std::error_code error;
            bool hasRenamed = false;
            {
                const FileFaults faults(failing, EIO);
                error = errorOf([&] { File::replace(file, text, way); });
                failed = faults.failedCall();
                hasRenamed = faults.hasRenamed();
            }
            SCOPED_TRACE(failed.value_or("none"));
            EXPECT_EQ(contents(file), hasRenamed ? "new" : "old");
            EXPECT_EQ(error, hasRenamed ? std::error_code() : std::error_code(EIO, std::generic_category()));
            EXPECT_THAT(names(), ElementsAre("file"));
            ASSERT_LT(failing, 20);
        }
        EXPECT_GT(failing, 5) << "making, writing, closing, renaming, and once without a failure";
    }
}

TEST_F(FileTest, AWriteThatIsInterruptedOrTakesOneByteAtATimeIsWhole) {
    for (const auto kind : {FileFaults::Kind::interrupted, FileFaults::Kind::piecemeal}) {
        for (const Replacement& way : ways) {
            write(file, "old");
            const FileFaults faults(kind);
            File::replace(file, text, way);
            EXPECT_EQ(read(file), "new");
            EXPECT_THAT(faults.calls(), testing::Contains("write").Times(testing::Gt(1)));
        }
    }
}

TEST_F(FileTest, AWriteThatTakesNothingIsAnError) {
    write(file, "old");
    {
        const FileFaults faults(FileFaults::Kind::stuck);
        EXPECT_EQ(errorOf([&] { File::replace(file, text, ways[0]); }), std::errc::io_error);
    }
    EXPECT_EQ(contents(file), "old");
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(FileTest, AgainstTheFailureOfThePowerTheFileIsFlushedBeforeItsNameAndItsFolderAfterwards) {
    const FileFaults faults;
    File::replace(file, text, {.durability = Durability::powerLoss, .permissions = 0644});
    EXPECT_THAT(faults.calls(),
                ElementsAre("mkostemp", "write", "fchmod", "fsync", "close", "rename", "open", "fsync", "close"));
}

TEST_F(FileTest, AgainstTheEndOfAProgramNothingWaitsForTheMedium) {
    const FileFaults faults;
    File::replace(file, text, {.durability = Durability::crash, .temporaryName = "beside"});
    EXPECT_THAT(faults.calls(), ElementsAre("open", "write", "close", "rename"));
}

TEST_F(FileTest, LinksAreFollowedToTheirEndWhetherAFileIsThereOrNot) {
    EXPECT_EQ(File::followed(file), file);
    fs::create_directory(folder.path / "place");
    fs::create_symlink("place/other", folder.path / "link");
    fs::create_symlink("../file", folder.path / "place" / "other");
    EXPECT_EQ(File::followed(folder.path / "link"), folder.path / "place" / ".." / "file");
    write(file, "old");
    EXPECT_EQ(File::followed(folder.path / "link"), folder.path / "place" / ".." / "file");
    fs::create_symlink("/absolute/file", folder.path / "far");
    EXPECT_EQ(File::followed(folder.path / "far"), "/absolute/file");
}

TEST_F(FileTest, AsManyLinksAreFollowedAsTheSystemFollows) {
    write(folder.path / "0", "end");
    for (int i = 1; i <= 41; ++i) fs::create_symlink(std::to_string(i - 1), folder.path / std::to_string(i));
    EXPECT_EQ(File::followed(folder.path / "40"), folder.path / "0");
    EXPECT_EQ(read(folder.path / "40"), "end");
    EXPECT_EQ(errorOf([&] { File::followed(folder.path / "41"); }), std::errc::too_many_symbolic_link_levels);
    EXPECT_EQ(errorOf([&] { read(folder.path / "41"); }), std::errc::too_many_symbolic_link_levels);
    fs::create_symlink("circle", folder.path / "circle");
    EXPECT_EQ(errorOf([&] { File::followed(folder.path / "circle"); }), std::errc::too_many_symbolic_link_levels);
}

TEST_F(FileTest, AFileIsReadUpToTheLimitAndNotBeyond) {
    for (const std::size_t size : {std::size_t(0), std::size_t(1), limit - 1, limit}) {
        const std::string all(size, 'x');
        write(file, all);
        EXPECT_EQ(read(file), all);
    }
    write(file, std::string(limit + 1, 'x'));
    EXPECT_EQ(errorOf([&] { read(file); }), std::errc::file_too_large);
    EXPECT_EQ(errorOf([&] { static_cast<void>(File::open(file, limit)); }), std::errc::file_too_large);
    EXPECT_EQ(File::open(file, limit + 1).size, limit + 1);
    write(file, "");
    EXPECT_TRUE(File::read(file, 0).empty());
}

TEST_F(FileTest, AFileThatSaysThatItIsEmptyIsReadToItsEndAndNotBeyondTheLimit) {
    // Files of /proc say that they are empty.
    const fs::path status = "/proc/self/status";
    ASSERT_EQ(File::open(status, limit).size, 0u);
    EXPECT_EQ(errorOf([&] { static_cast<void>(File::read(status, 10)); }), std::errc::file_too_large);
    const Bytes whole = File::read(status, 1 << 20);
    EXPECT_THAT(std::string(textOf(whole)), testing::StartsWith("Name:"));
    EXPECT_EQ(whole.back(), '\n');
}

TEST_F(FileTest, WhatIsNoFileIsRefusedWithoutWaiting) {
    EXPECT_EQ(errorOf([&] { read(file); }), std::errc::no_such_file_or_directory);
    EXPECT_EQ(errorOf([&] { read(folder.path); }), std::errc::is_a_directory);
    EXPECT_EQ(errorOf([&] { read("/dev/null"); }), std::errc::invalid_argument);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(errorOf([&] { read(file); }), std::errc::invalid_argument);
}

TEST_F(FileTest, ALinkIsReadThroughUnlessItIsRefused) {
    write(file, "text");
    fs::create_symlink("file", folder.path / "link");
    EXPECT_EQ(read(folder.path / "link"), "text");
    EXPECT_EQ(errorOf([&] { read(folder.path / "link", Links::refuse); }), std::errc::too_many_symbolic_link_levels);
    EXPECT_EQ(read(file, Links::refuse), "text");
}

TEST_F(FileTest, WhicheverCallOfAReadingFailsItIsAnError) {
    write(file, "text");
    std::optional<std::string> failed = "";
    int failing = 1;
    for (; failed; ++failing) {
        const FileFaults faults(failing, EIO);
        std::string found;
        const std::error_code error = errorOf([&] { found = read(file); });
        failed = faults.failedCall();
        SCOPED_TRACE(failed.value_or("none"));
        const bool isRead = !failed || failed == "close";
        EXPECT_EQ(error, isRead ? std::error_code() : std::error_code(EIO, std::generic_category()));
        EXPECT_EQ(found, isRead ? "text" : "");
        ASSERT_LT(failing, 20);
    }
    EXPECT_GT(failing, 5) << "opening, its status, two readings, and once without a failure";
}

TEST_F(FileTest, OnlyAFileThatIsNotThereToOpenIsAbsent) {
    EXPECT_EQ(File::readIfThere(file, limit), std::nullopt);
    EXPECT_EQ(File::readIfThere(folder.path / "no" / "file", limit), std::nullopt);
    EXPECT_EQ(errorOf([&] { File::readIfThere(folder.path, limit); }), std::errc::is_a_directory);
    write(file, "text");
    EXPECT_EQ(File::readIfThere(file, limit), (Bytes{'t', 'e', 'x', 't'}));
    EXPECT_EQ(errorOf([&] { File::readIfThere(file, 3); }), std::errc::file_too_large);
    std::optional<std::string> failed = "";
    for (int failing = 1; failed; ++failing) {
        const FileFaults faults(failing, ENOENT);
        std::optional<Bytes> found;
        const std::error_code error = errorOf([&] { found = File::readIfThere(file, limit); });
        failed = faults.failedCall();
        SCOPED_TRACE(failed.value_or("none"));
        const bool isRead = !failed || failed == "close";
        EXPECT_EQ(found.has_value(), isRead);
        EXPECT_EQ(error == std::errc::no_such_file_or_directory, !isRead && failed != "open");
        ASSERT_LT(failing, 20);
    }
}

TEST_F(FileTest, AReadingThatIsInterruptedOrGivesOneByteAtATimeIsWhole) {
    const std::string all(limit, 'x');
    write(file, all);
    for (const auto kind : {FileFaults::Kind::interrupted, FileFaults::Kind::piecemeal}) {
        const FileFaults faults(kind);
        EXPECT_EQ(read(file), all);
    }
}

TEST_F(FileTest, ANameInAFolderIsOpenedButNotThroughALinkAndWithoutWaiting) {
    write(file, "text");
    fs::create_symlink("file", folder.path / "link");
    ASSERT_EQ(::mkfifo((folder.path / "pipe").c_str(), 0600), 0);
    const FileDescriptor opened = File::openAt(AT_FDCWD, folder.path, O_DIRECTORY);
    ASSERT_TRUE(opened);
    EXPECT_FALSE(File::openAt(opened.get(), "link"));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(File::openAt(opened.get(), "gone"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(File::openAt(opened.get(), "file", O_DIRECTORY));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_TRUE(File::openAt(opened.get(), "pipe"));

    const FileDescriptor named = File::openAt(opened.get(), "file");
    ASSERT_TRUE(named);
    EXPECT_NE(::fcntl(named.get(), F_GETFD) & FD_CLOEXEC, 0);
    std::array<std::uint8_t, 3> some{};
    EXPECT_EQ(File::readInto(named.get(), some), 3u);
    EXPECT_EQ(textOf(some), "tex");
    EXPECT_EQ(File::readInto(named.get(), some), 1u);
    EXPECT_EQ(File::readInto(named.get(), some), 0u);
}

TEST_F(FileTest, ADescriptorThatCanNotBeReadOrWrittenSaysWhy) {
    std::array<std::uint8_t, 3> some{};
    EXPECT_EQ(File::readInto(-1, some), std::nullopt);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(File::writeAll(-1, some));
    EXPECT_EQ(errno, EBADF);
    EXPECT_TRUE(File::writeAll(-1, {})) << "there is nothing to write";
}

}  // namespace
