#include "PlatformBundle/RunningBundle.h"

#include "PlatformBundle/PropertyListBundleReader.h"

#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

class RunningBundleTest : public ::testing::Test {
protected:
    fs::path folder() const { return fs::canonical(root.path); }

    TemporaryFolder root;
    PropertyListBundleReader reader;
};

TEST_F(RunningBundleTest, AProgramAndAServiceLieInTheirBundle) {
    const fs::path bundle = folder() / "a b.app";
    makeTestBundle(bundle, "1.2.3");
    fs::create_directory(bundle / "Contents" / "Services");
    fs::copy(bundle / "Contents" / "Linux" / "Vimble", bundle / "Contents" / "Services" / "Installer");
    for (const char* program : {"Contents/Linux/Vimble", "Contents/Services/Installer"}) {
        const auto found = bundleOf(reader, bundle / program);
        ASSERT_TRUE(found) << program;
        EXPECT_EQ(found->path, bundle);
        EXPECT_EQ(found->versionText(), "1.2.3");
    }
}

TEST_F(RunningBundleTest, ALinkFromElsewhereLeadsToTheBundle) {
    makeTestBundle(folder() / "Vimble.app", "1.2.3");
    fs::create_symlink(folder() / "Vimble.app" / "Contents" / "Linux" / "Vimble", folder() / "vimble");
    const auto found = bundleOf(reader, folder() / "vimble");
    ASSERT_TRUE(found);
    EXPECT_EQ(found->path, folder() / "Vimble.app");
}

TEST_F(RunningBundleTest, WhatLiesElsewhereIsInNoBundle) {
    makeTestBundle(folder() / "Vimble.app", "1.2.3");
    const fs::path contents = folder() / "Vimble.app" / "Contents";
    EXPECT_FALSE(bundleOf(reader, contents / "Frameworks" / "libx.so.1"));
    EXPECT_FALSE(bundleOf(reader, contents / "Linux" / "nothing"));
    EXPECT_FALSE(bundleOf(reader)) << "this test is in none";
    fs::rename(folder() / "Vimble.app", folder() / "Vimble");
    EXPECT_FALSE(bundleOf(reader, folder() / "Vimble" / "Contents" / "Linux" / "Vimble"));
}

TEST_F(RunningBundleTest, ByItsPathAloneAProgramIsInABundleOrNot) {
    EXPECT_EQ(bundleFolderOf("/opt/My Vimble.app/Contents/Linux/Vimble"), "/opt/My Vimble.app");
    EXPECT_EQ(bundleFolderOf("/opt/My Vimble.app/Contents/Services/x"), "/opt/My Vimble.app");
    for (const char* elsewhere : {"/usr/bin/vimble", "/x/Contents/Linux/vimble", "/x/A.app/Contents/vimble",
                                  "/x/A.app/Linux/vimble", "/vimble", ""})
        EXPECT_EQ(bundleFolderOf(elsewhere), std::nullopt) << elsewhere;
}

TEST_F(RunningBundleTest, ThisProgramHasItsFolderInstead) {
    EXPECT_EQ(runningApplication(), fs::canonical("/proc/self/exe").parent_path());
}

TEST_F(RunningBundleTest, ABundleWithoutAPropertyListIsNone) {
    makeTestBundle(folder() / "Vimble.app", "1.2.3");
    fs::remove(folder() / "Vimble.app" / "Contents" / "Info.plist");
    EXPECT_FALSE(bundleOf(reader, folder() / "Vimble.app" / "Contents" / "Linux" / "Vimble"));
}

}  // namespace
