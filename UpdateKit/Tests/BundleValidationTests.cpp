#include "UpdateKit/BundleValidation.h"

#include "TestSupport/LogLines.h"
#include "TestSupport/TemporaryFolder.h"
#include "UpdateKit/UpdateKitError.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

class OneBundle : public BundleReader {
public:
    std::optional<AppBundle> open(const std::filesystem::path& path) override {
        auto result = bundle;
        if (result) result->path = path;
        return result;
    }

    std::optional<AppBundle> bundle;
};

class BundleValidationTest : public testing::Test {
protected:
    BundleValidationTest() {
        std::filesystem::create_directories(application / "Contents" / "Linux");
        std::ofstream(application / "Contents" / "Linux" / "Vimble") << "x";
        reader.bundle.emplace();
        reader.bundle->info = {{"CFBundleExecutable", "Vimble"},
                               {"CFBundleShortVersionString", "1.4"},
                               {"CFBundleVersion", "77"},
                               {"CFBundleDisplayName", "Vimble!"},
                               {"CFBundleName", "Vimble"}};
    }

    ValidatedAppBundle validate() {
        return validateDownloadedApp(application, expectation, reader, [&](const std::filesystem::path& path) {
            asked.push_back(path);
            if (path == unreadable) throw std::runtime_error(whyUnreadable);
            return path == application ? downloaded : current;
        });
    }

    std::string refusal() {
        try {
            (void)validate();
        } catch (const UpdateKitError& error) {
            EXPECT_EQ(error.code(), UpdateKitError::Code::validationFailed);
            return error.payload();
        }
        return "taken";
    }

    TemporaryFolder folder;
    std::filesystem::path application = folder.path / "New Vimble.app";
    DownloadExpectation expectation{{1, 4, 0}, {1, 3, 0}, {12, 0, 0}, "/opt/Vimble.app"};
    OneBundle reader;
    CodeSignatureProfile current{CodeSignatureProfile::Kind::signed_, "T", {"A", "B"}};
    CodeSignatureProfile downloaded = current;
    std::filesystem::path unreadable;
    std::string whyUnreadable = "the seal is broken";
    std::vector<std::filesystem::path> asked;
};

TEST_F(BundleValidationTest, TheAnnouncedNewerBundleOfTheSameSignerIsGood) {
    EXPECT_EQ(validate(), (ValidatedAppBundle{{1, 4, 0}, "Vimble!"}));
    EXPECT_EQ(asked, (std::vector<std::filesystem::path>{"/opt/Vimble.app", application}));
}

TEST_F(BundleValidationTest, ABundleThatCannotBeOpenedIsRefused) {
    reader.bundle.reset();
    EXPECT_EQ(refusal(), "Downloaded bundle is unreadable");
}

TEST_F(BundleValidationTest, ABundleWithoutItsExecutableIsRefused) {
    std::filesystem::remove(application / "Contents" / "Linux" / "Vimble");
    EXPECT_EQ(refusal(), "Downloaded app bundle has no executable");
    for (const char* name : {"", ".", "..", "../../x", "/bin/sh", "Linux/Vimble"}) {
        reader.bundle->info["CFBundleExecutable"] = name;
        EXPECT_EQ(refusal(), "Downloaded app bundle has no executable") << name;
    }
    reader.bundle->info.erase("CFBundleExecutable");
    EXPECT_EQ(refusal(), "Downloaded app bundle has no executable");
}

TEST_F(BundleValidationTest, WithoutTheShortVersionTheOtherOneCounts) {
    reader.bundle->info.erase("CFBundleShortVersionString");
    EXPECT_EQ(refusal(), "Downloaded app version 77.0.0 does not match manifest version 1.4.0");
    reader.bundle->info.erase("CFBundleVersion");
    EXPECT_EQ(refusal(), "Downloaded app bundle is missing a version string");
    reader.bundle->info["CFBundleVersion"] = "1.4.0";
    EXPECT_EQ(validate().version, (SemanticVersion{1, 4, 0}));
}

TEST_F(BundleValidationTest, AVersionThatIsNoneIsRefused) {
    reader.bundle->info["CFBundleShortVersionString"] = "soon";
    EXPECT_EQ(refusal(), "Downloaded app has an invalid version string");
}

TEST_F(BundleValidationTest, ABundleThatIsNotNewerIsRefused) {
    expectation.currentVersion = {1, 4, 0};
    EXPECT_EQ(refusal(), "Downloaded app is not newer than the current app");
    expectation.currentVersion = {1, 5, 0};
    EXPECT_EQ(refusal(), "Downloaded app is not newer than the current app");
    // A version other than the announced one is reported first.
    expectation.expectedVersion = {2, 0, 0};
    EXPECT_EQ(refusal(), "Downloaded app version 1.4.0 does not match manifest version 2.0.0");
}

TEST_F(BundleValidationTest, ASystemBelowTheMinimumIsRefused) {
    reader.bundle->info["LSMinimumSystemVersion"] = " 12.1 ";
    EXPECT_EQ(refusal(), "Downloaded app requires macOS 12.1.0 or newer");
    for (const char* harmless : {"12", "", " \n", "any", "11.9.9"}) {
        reader.bundle->info["LSMinimumSystemVersion"] = harmless;
        EXPECT_EQ(refusal(), "taken") << harmless;
    }
}

TEST_F(BundleValidationTest, ASignatureThatCannotBeReadIsRefused) {
    unreadable = application;
    EXPECT_EQ(refusal(), "Unable to inspect code signature for New Vimble.app");
    unreadable = "/opt/Vimble.app";
    EXPECT_EQ(refusal(), "Unable to inspect code signature for New Vimble.app");
}

TEST_F(BundleValidationTest, WhyASignatureCannotBeReadIsInTheLogInOneLine) {
    LogLines log;
    unreadable = application;
    whyUnreadable = "vimble-codesign: Contents/x was changed\nand\x1b[31m more\n";
    EXPECT_EQ(refusal(), "Unable to inspect code signature for New Vimble.app");
    EXPECT_THAT(log.take(),
                testing::ElementsAre("error zorvane.UpdateKit/BundleValidation: UpdateKit: code signature refused — "
                                     "vimble-codesign: Contents/x was changed\\nand\\u{1b}[31m more"));
}

TEST_F(BundleValidationTest, AnotherSignerIsRefused) {
    downloaded.authorityChain = {"A"};
    EXPECT_EQ(refusal(), "Downloaded app is not signed by the same identity as the current app");
    downloaded = {CodeSignatureProfile::Kind::adhoc, std::nullopt, {}};
    EXPECT_EQ(refusal(), "Downloaded app is not signed by the same identity as the current app");
}

TEST_F(BundleValidationTest, TheNameShownIsTheFirstThereIs) {
    reader.bundle->info.erase("CFBundleDisplayName");
    EXPECT_EQ(validate().displayName, "Vimble");
    reader.bundle->info.erase("CFBundleName");
    EXPECT_EQ(validate().displayName, "New Vimble");
}

}  // namespace
