#include "PlatformBundle/DownloadMarks.h"

#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

bool mark(const fs::path& path, const char* name) { return ::lsetxattr(path.c_str(), name, "x", 1, 0) == 0; }
bool isMarked(const fs::path& path, const char* name) { return ::lgetxattr(path.c_str(), name, nullptr, 0) >= 0; }

constexpr const char* origin = "user.xdg.origin.url";
constexpr const char* referrer = "user.xdg.referrer.url";
constexpr const char* other = "user.comment";

TEST(DownloadMarksTest, TheMarksGoFromEveryFileAndFolderAndNothingElseDoes) {
    TemporaryFolder folder;
    const fs::path bundle = folder.path / "A.app";
    makeTestBundle(bundle, "1");
    const std::vector<fs::path> places{bundle, bundle / "Contents", bundle / "Contents" / "Linux" / "Vimble"};
    for (const auto& place : places)
        for (const char* name : {origin, referrer, other})
            if (!mark(place, name)) GTEST_SKIP() << "no extended attributes in the temporary folder";
    removeDownloadMarks(bundle);
    for (const auto& place : places) {
        EXPECT_FALSE(isMarked(place, origin));
        EXPECT_FALSE(isMarked(place, referrer));
        EXPECT_TRUE(isMarked(place, other));
    }
}

TEST(DownloadMarksTest, WhatALinkLeadsToKeepsItsMarks) {
    TemporaryFolder folder;
    const fs::path bundle = folder.path / "A.app";
    makeTestBundle(bundle, "1");
    const fs::path outside = folder.path / "outside";
    fs::create_directory(outside);
    std::ofstream(outside / "file") << "x";
    if (!mark(outside / "file", origin)) GTEST_SKIP() << "no extended attributes in the temporary folder";
    fs::create_directory_symlink(outside, bundle / "folder");
    fs::create_symlink(outside / "file", bundle / "link");
    removeDownloadMarks(bundle);
    removeDownloadMarks(bundle / "folder");
    EXPECT_TRUE(isMarked(outside / "file", origin));
}

TEST(DownloadMarksTest, NothingThereIsFine) {
    TemporaryFolder folder;
    EXPECT_NO_THROW(removeDownloadMarks(folder.path / "gone"));
}

}  // namespace
