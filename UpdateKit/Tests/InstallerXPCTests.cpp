#include "UpdateKit/InstallerXPC.h"

#include "TestSupport/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr std::int32_t someProcess = 412;

/// @return why it is refused; empty if it is not
std::string refusal(const std::string& staged, const std::string& current, std::int32_t process = someProcess) {
    try {
        (void)InstallerXPC::launchRequest(staged, current, process);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(InstallerXPCTest, TheServicesNameIsTheIdentifierAndASuffix) {
    EXPECT_EQ(InstallerXPC::serviceName("zorvane.Vimble"), "zorvane.Vimble.UpdateKitInstallerXPC");
    EXPECT_EQ(InstallerXPC::serviceName(""), std::nullopt);
    EXPECT_EQ(InstallerXPC::serviceName(std::nullopt), std::nullopt);
}

TEST(InstallerXPCTest, APathOfAnyBytesArrivesAsItWas) {
    const fs::path staged = "/tmp/a b%20c#d?\xff\n'\"/New.app";
    const fs::path current = "/opt/\u00E9/Vimble.app";
    const auto request =
        InstallerXPC::launchRequest(InstallerXPC::urlOf(staged), InstallerXPC::urlOf(current), someProcess);
    EXPECT_EQ(request.stagedApp, staged);
    EXPECT_EQ(request.currentApp, current);
    EXPECT_EQ(request.currentProcessIdentifier, someProcess);
}

TEST(InstallerXPCTest, ASlashAtTheEndAndStepsOnTheWayMakeNoDifference) {
    const auto request = InstallerXPC::launchRequest("file:///tmp/x/./New.app/", "file:///opt/y/../Vimble.app", 1);
    EXPECT_EQ(request.stagedApp, fs::path("/tmp/x/New.app"));
    EXPECT_EQ(request.currentApp, fs::path("/opt/Vimble.app"));
}

TEST(InstallerXPCTest, WhatIsNoAbsoluteFileUrlIsRefused) {
    const std::string good = "file:///opt/Vimble.app";
    for (const std::string& bad : std::vector<std::string>{
             "", "/opt/New.app", "New.app", "file:New.app", "file://elsewhere/opt/New.app", "http://host/New.app",
             "file:///opt/New%00.app", "file:///" + std::string(16 << 10, 'a')}) {
        EXPECT_EQ(refusal(bad, good), "The staged application is given by no absolute file URL") << bad;
        EXPECT_EQ(refusal(good, bad), "The current application is given by no absolute file URL") << bad;
    }
}

TEST(InstallerXPCTest, TwoThatAreOneOrLieInEachOtherAreRefused) {
    const TemporaryFolder folder;
    fs::create_directories(folder.path / "A.app/Contents/B.app");
    fs::create_directories(folder.path / "A.app2");
    fs::create_directory_symlink(folder.path, folder.path / "link");
    const auto url = [&](const char* name) { return InstallerXPC::urlOf(folder.path / name); };
    const std::string why = "The staged and the current application are one, or lie in each other";
    EXPECT_EQ(refusal(url("A.app"), url("A.app/")), why);
    EXPECT_EQ(refusal(url("A.app/Contents/B.app"), url("A.app")), why);
    EXPECT_EQ(refusal(url("A.app"), url("A.app/Contents/B.app")), why);
    EXPECT_EQ(refusal(url("link/A.app"), url("A.app")), why);
    EXPECT_EQ(refusal(url("A.app2"), url("A.app")), "");
}

TEST(InstallerXPCTest, ASymbolicLinkIsNoApplication) {
    const TemporaryFolder folder;
    fs::create_directories(folder.path / "A.app");
    fs::create_directory_symlink("A.app", folder.path / "link.app");
    const std::string link = InstallerXPC::urlOf(folder.path / "link.app");
    EXPECT_THAT(refusal(link, "file:///opt/Vimble.app"), HasSubstr("The staged application is a symbolic link: "));
    EXPECT_THAT(refusal("file:///opt/New.app", link), HasSubstr("The current application is a symbolic link: "));
}

TEST(InstallerXPCTest, ANumberThatIsNoOtherProcessIsRefused) {
    for (const std::int32_t number : {0, -1, INT32_MIN, static_cast<std::int32_t>(::getpid())})
        EXPECT_EQ(refusal("file:///opt/New.app", "file:///opt/Vimble.app", number),
                  std::to_string(number) + " is not the application's process");
}

}  // namespace
