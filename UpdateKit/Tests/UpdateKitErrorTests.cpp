#include "UpdateKit/UpdateKitError.h"

#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/InstallerServiceError.h"
#include "UpdateKit/UpdateEvent.h"

#include <gtest/gtest.h>

namespace {

TEST(UpdateKitErrorTest, EachCaseHasItsText) {
    using Code = UpdateKitError::Code;
    const auto text = [](Code code) { return std::string(UpdateKitError(code, "why").what()); };
    EXPECT_EQ(text(Code::invalidManifest), "Invalid release manifest: why");
    EXPECT_EQ(text(Code::invalidVersion), "Unable to parse version: why");
    EXPECT_EQ(text(Code::manifestLoadingFailed), "Failed to load release manifest: why");
    EXPECT_EQ(text(Code::downloadFailed), "Failed to download update archive: why");
    EXPECT_EQ(text(Code::validationFailed), "Update validation failed: why");
    EXPECT_EQ(text(Code::installationFailed), "Installation failed: why");
    EXPECT_EQ(text(Code::noUpdateAvailable), "No update available");
    EXPECT_EQ(text(Code::missingBundleVersion), "Main bundle does not contain a version string");
    EXPECT_EQ(text(Code::extractionFailed), "Failed to extract update archive");
    EXPECT_EQ(text(Code::noAppBundleInArchive), "No .app bundle found in update archive");
    EXPECT_EQ(text(Code::multipleAppBundlesInArchive), "Multiple .app bundles found in update archive");
    EXPECT_EQ(text(Code::noPreparedUpdate), "No prepared update is available");
}

TEST(UpdateKitErrorTest, ErrorsAreEqualByCaseAndPayload) {
    using Code = UpdateKitError::Code;
    EXPECT_EQ(UpdateKitError(Code::downloadFailed, "a"), UpdateKitError(Code::downloadFailed, "a"));
    EXPECT_FALSE(UpdateKitError(Code::downloadFailed, "a") == UpdateKitError(Code::downloadFailed, "b"));
    EXPECT_FALSE(UpdateKitError(Code::downloadFailed, "a") == UpdateKitError(Code::validationFailed, "a"));
    EXPECT_EQ(UpdateKitError(Code::noPreparedUpdate, "a"), UpdateKitError(Code::noPreparedUpdate));
}

TEST(InstallerClientErrorTest, OnlyAFailedConnectionHasWordsInFront) {
    const auto connection = InstallerClientError::connectionFailed("gone");
    EXPECT_STREQ(connection.what(), "Installation failed: gone");
    EXPECT_FALSE(connection.shouldPresentToUser());
    const auto installation = InstallerClientError::installationFailed("Do this.", true);
    EXPECT_STREQ(installation.what(), "Do this.");
    EXPECT_TRUE(installation.shouldPresentToUser());
    EXPECT_FALSE(installation == InstallerClientError::installationFailed("Do this.", false));
    EXPECT_EQ(connection, InstallerClientError::connectionFailed("gone"));
}

TEST(InstallerServiceErrorTest, EachCaseHasItsTextAndOneIsForTheUser) {
    using Code = InstallerServiceError::Code;
    const auto text = [](Code code) { return std::string(InstallerServiceError(code, "/a").what()); };
    EXPECT_EQ(text(Code::missingAppBundle), "Missing app bundle at /a");
    EXPECT_EQ(text(Code::missingExecutable), "App bundle at /a has no executable");
    EXPECT_EQ(text(Code::processTerminationFailed), "Unable to terminate running app: /a");
    EXPECT_EQ(text(Code::userActionRequired), "/a");
    EXPECT_EQ(text(Code::replacementFailed), "Unable to replace installed app: /a");
    EXPECT_EQ(text(Code::relaunchFailed), "Unable to relaunch updated app: /a");
    EXPECT_EQ(text(Code::signatureMismatch), "Staged update is not signed by the same identity as the installed app");
    EXPECT_EQ(text(Code::processDidNotExit), "Running app did not exit in time");
    for (const Code code :
         {Code::missingAppBundle, Code::missingExecutable, Code::processTerminationFailed, Code::replacementFailed,
          Code::relaunchFailed, Code::signatureMismatch, Code::processDidNotExit})
        EXPECT_FALSE(InstallerServiceError(code).shouldPresentToUser());
    EXPECT_TRUE(InstallerServiceError(Code::userActionRequired).shouldPresentToUser());
}

TEST(UpdateEventTest, CategoriesAreNamedAndValuesComparedByContent) {
    std::string names;
    for (const auto category :
         {UpdateFailureCategory::manifest, UpdateFailureCategory::download, UpdateFailureCategory::extraction,
          UpdateFailureCategory::validation, UpdateFailureCategory::installation, UpdateFailureCategory::unknown})
        names += std::string(name(category)) + " ";
    EXPECT_EQ(names, "manifest download extraction validation installation unknown ");

    ReadyUpdateInfo ready{"1.4.0", "Vimble", std::nullopt, *Url::parse("https://h/x.zip")};
    auto dated = ready;
    dated.publicationDate = Date{1.0};
    EXPECT_FALSE(UpdateEvent(ready) == UpdateEvent(dated));
    EXPECT_EQ(UpdateEvent(ready), UpdateEvent(ready));
    using Reason = UpdateNoUpdateReason;
    EXPECT_FALSE((Reason{Reason::NoNewerVersion{}}) == (Reason{Reason::SystemVersionUnsupported{"1", "12"}}));
    EXPECT_FALSE((Reason{Reason::SystemVersionUnsupported{"1", "12"}}) ==
                 (Reason{Reason::SystemVersionUnsupported{"1", "13"}}));
}

}  // namespace
