#include "UpdateKit/BundleSearch.h"

#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/UpdateKitError.h"

#include <gtest/gtest.h>

namespace {

class BundleSearchTest : public testing::Test {
protected:
    void makeFolder(const char* name) { std::filesystem::create_directories(folder.path / name); }

    void expectRefused(UpdateKitError::Code code) {
        try {
            ADD_FAILURE() << "found " << findAppBundle(folder.path);
        } catch (const UpdateKitError& error) {
            EXPECT_EQ(error.code(), code);
        }
    }

    TemporaryFolder folder;
};

TEST_F(BundleSearchTest, TheOneApplicationIsFoundHoweverDeep) {
    makeFolder("a/b/c/A.app/Contents");
    makeFolder("a/docs");
    EXPECT_EQ(findAppBundle(folder.path), folder.path / "a/b/c/A.app");
}

TEST_F(BundleSearchTest, AnApplicationInAnApplicationIsNotSeen) {
    makeFolder("A.app/Contents/Frameworks/B.app");
    EXPECT_EQ(findAppBundle(folder.path), folder.path / "A.app");
}

TEST_F(BundleSearchTest, TwoApplicationsAreTooMany) {
    makeFolder("A.app");
    makeFolder("x/B.app");
    expectRefused(UpdateKitError::Code::multipleAppBundlesInArchive);
}

TEST_F(BundleSearchTest, HiddenOnesAreNotSeen) {
    makeFolder(".A.app");
    makeFolder(".hidden/B.app");
    makeFolder(".app");
    expectRefused(UpdateKitError::Code::noAppBundleInArchive);
    makeFolder("C.app");
    EXPECT_EQ(findAppBundle(folder.path), folder.path / "C.app");
}

TEST_F(BundleSearchTest, TheEndingIsExact) {
    makeFolder("A.App");
    makeFolder("B.app2");
    makeFolder("app");
    expectRefused(UpdateKitError::Code::noAppBundleInArchive);
}

TEST_F(BundleSearchTest, LinksAreNotFollowed) {
    makeFolder("A.app");
    std::filesystem::create_symlink(".", folder.path / "again");
    EXPECT_EQ(findAppBundle(folder.path), folder.path / "A.app");
    std::filesystem::create_symlink("A.app", folder.path / "B.app");
    expectRefused(UpdateKitError::Code::multipleAppBundlesInArchive);
}

TEST_F(BundleSearchTest, NothingThereMeansNone) {
    expectRefused(UpdateKitError::Code::noAppBundleInArchive);
    std::filesystem::remove(folder.path);
    expectRefused(UpdateKitError::Code::noAppBundleInArchive);
}

}  // namespace
