#include "UpdateKit/UpdateEvent.h"

#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/UpdateKitError.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

namespace {

using Category = UpdateFailureCategory;
using Code = UpdateKitError::Code;

TEST(UpdateFailureInfoTest, EachErrorOfTheUpdaterHasItsCategory) {
    const std::vector<std::pair<Code, Category>> expected{
        {Code::invalidManifest, Category::manifest},        {Code::manifestLoadingFailed, Category::manifest},
        {Code::downloadFailed, Category::download},         {Code::extractionFailed, Category::extraction},
        {Code::noAppBundleInArchive, Category::extraction}, {Code::multipleAppBundlesInArchive, Category::extraction},
        {Code::validationFailed, Category::validation},     {Code::installationFailed, Category::installation},
        {Code::noPreparedUpdate, Category::installation},   {Code::invalidVersion, Category::unknown},
        {Code::noUpdateAvailable, Category::unknown},       {Code::missingBundleVersion, Category::unknown},
    };
    for (const auto& [code, category] : expected) {
        const UpdateKitError error(code, "why");
        const auto info = UpdateFailureInfo::of(std::make_exception_ptr(error));
        EXPECT_EQ(info.category, category) << error.what();
        EXPECT_EQ(info.summary, error.localizedDescription());
        EXPECT_EQ(info.shouldPresentToUser, code == Code::noPreparedUpdate) << error.what();
    }
}

TEST(UpdateFailureInfoTest, TheInstallersErrorsSayWhetherTheyAreForTheUser) {
    for (const bool isForUser : {false, true}) {
        const auto error = InstallerClientError::installationFailed("Move it.", isForUser);
        EXPECT_EQ(UpdateFailureInfo::of(std::make_exception_ptr(error)),
                  (UpdateFailureInfo{Category::installation, "Move it.", isForUser}));
    }
    const auto error = InstallerClientError::connectionFailed("nobody there");
    EXPECT_EQ(UpdateFailureInfo::of(std::make_exception_ptr(error)),
              (UpdateFailureInfo{Category::installation, "Installation failed: nobody there", false}));
}

TEST(UpdateFailureInfoTest, AForeignErrorIsUnknownAndKeepsItsText) {
    EXPECT_EQ(UpdateFailureInfo::of(std::make_exception_ptr(std::runtime_error("disk full"))),
              (UpdateFailureInfo{Category::unknown, "disk full", false}));
    EXPECT_EQ(UpdateFailureInfo::of(std::make_exception_ptr(5)).category, Category::unknown);
}

}  // namespace
