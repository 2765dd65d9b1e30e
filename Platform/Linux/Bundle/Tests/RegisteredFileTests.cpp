#include "PlatformBundle/RegisteredFile.h"

#include "FileFaults/FileFaults.h"
#include "TestSupport/TemporaryFolder.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>

namespace fs = std::filesystem;
using ::testing::ElementsAre;

namespace {

class RegisteredFileTest : public ::testing::Test {
protected:
    static std::string contents(const fs::path& path) {
        std::ifstream stream(path);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(file.parent_path())) names.push_back(entry.path().filename());
        return names;
    }
    template <class Operation>
    static std::optional<std::string> errorOf(Operation operation) {
        try {
            operation();
            return std::nullopt;
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    const TemporaryFolder root;
    const fs::path file = root.path / "some" / "folder" / "file";
};

TEST_F(RegisteredFileTest, AFileIsMadeWithItsFoldersForAllToReadAndOnlyWrittenWhereItDiffers) {
    EXPECT_TRUE(RegisteredFile::update(file, "text"));
    EXPECT_EQ(contents(file), "text");
    EXPECT_EQ(static_cast<unsigned>(fs::status(file).permissions()), 0644u);
    EXPECT_FALSE(RegisteredFile::update(file, "text"));
    for (const char* other : {"test", "tex", "text!", ""}) {
        EXPECT_TRUE(RegisteredFile::update(file, other));
        EXPECT_EQ(contents(file), other);
        EXPECT_EQ(RegisteredFile::read(file), other);
    }
    EXPECT_THAT(names(), ElementsAre("file"));
}

TEST_F(RegisteredFileTest, WhatIsNoFileOrTooLargeIsNotRead) {
    EXPECT_EQ(errorOf([&] { RegisteredFile::read(file); }), file.native() + ": No such file or directory");
    fs::create_directories(file.parent_path());
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(errorOf([&] { RegisteredFile::read(file); }), file.native() + ": Invalid argument");
    fs::remove(file);
    std::ofstream(file) << "x";
    fs::resize_file(file, 1 << 20);
    EXPECT_EQ(RegisteredFile::read(file).size(), std::size_t(1) << 20);
    fs::resize_file(file, (1 << 20) + 1);
    EXPECT_EQ(errorOf([&] { RegisteredFile::read(file); }), file.native() + ": File too large");
}

TEST_F(RegisteredFileTest, WhicheverCallFailsTheOldFileOrTheNewOneIsThereAndNothingBesides) {
    std::optional<std::string> failed = "";
    int failing = 1;
    for (; failed; ++failing) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << "old";
        std::optional<std::string> error;
        bool hasRenamed = false;
        {
            const FileFaults faults(failing, ENOSPC);
            error = errorOf([&] { RegisteredFile::update(file, "new"); });
            failed = faults.failedCall();
            hasRenamed = faults.hasRenamed();
        }
        SCOPED_TRACE(failed.value_or("none"));
        EXPECT_EQ(contents(file), hasRenamed ? "new" : "old");
        if (hasRenamed)
            EXPECT_EQ(error, std::nullopt);
        else
            EXPECT_EQ(error, file.native() + ": No space left on device");
        EXPECT_THAT(names(), ElementsAre("file"));
        ASSERT_LT(failing, 20);
    }
    EXPECT_GT(failing, 8) << "a look at the old one, making, writing, its mode, closing, renaming";
}

}  // namespace
