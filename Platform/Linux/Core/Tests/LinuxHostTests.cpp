#include "PlatformCore/LinuxHost.h"

#include "TestSupport/EnvironmentVariable.h"
#include "TestSupport/TemporaryFolder.h"

#include <fstream>
#include <sys/utsname.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

class LinuxHostTest : public ::testing::Test {
protected:
    void write(const char* file, const std::string& text) const {
        fs::create_directories((root.path / file).parent_path());
        std::ofstream(root.path / file) << text;
    }

    TemporaryFolder root;
    LinuxHost host{root.path};
};

TEST_F(LinuxHostTest, TheBundlesKeysAreCompiledIn) {
    EXPECT_EQ(host.bundleInfo("CFBundleName"), "Vimble");
    EXPECT_EQ(host.bundleInfo("CFBundleIdentifier"), "zorvane.Vimble");
    EXPECT_THAT(host.bundleInfo("CFBundleShortVersionString").value(),
                ::testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
    EXPECT_TRUE(host.bundleInfo("CFBundleVersion"));
    EXPECT_EQ(host.bundleInfo("LDUserAgentApp"), std::nullopt);
    EXPECT_EQ(host.bundleInfo(""), std::nullopt);
}

TEST_F(LinuxHostTest, InABundleItsPropertyListHoldsAndNothingElse) {
    const char* program = "Vimble.app/Contents/Linux/Vimble";
    write(program, "");
    write("Vimble.app/Contents/Info.plist",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
          "<key>CFBundleShortVersionString</key><string>12.34.56</string>"
          "<key>UpdateKitManifestURL</key><string>https://example.org/latest.json</string></dict></plist>\n");
    const LinuxHost bundled(root.path, root.path / program);
    ASSERT_TRUE(bundled.bundle());
    EXPECT_EQ(bundled.bundle()->path, fs::canonical(root.path) / "Vimble.app");
    EXPECT_EQ(bundled.bundleInfo("CFBundleShortVersionString"), "12.34.56");
    EXPECT_EQ(bundled.bundleInfo("UpdateKitManifestURL"), "https://example.org/latest.json");
    EXPECT_EQ(bundled.bundleInfo("CFBundleName"), std::nullopt);
    EXPECT_FALSE(host.bundle());
}

TEST_F(LinuxHostTest, TheSystemsNameIsThePrettyOne) {
    write("etc/os-release",
          "NAME=Debian\nPRETTY_NAME=\"Debian GNU/Linux 12 (\\\"bookworm\\\")\"\r\nPRETTY_NAME_OLD=x\n");
    EXPECT_EQ(host.operatingSystemVersion(), "Debian GNU/Linux 12 (\"bookworm\")");
    write("etc/os-release", "PRETTY_NAME='Single $quoted'\n");
    EXPECT_EQ(host.operatingSystemVersion(), "Single $quoted");
    write("etc/os-release", "PRETTY_NAME=Bare\n");
    EXPECT_EQ(host.operatingSystemVersion(), "Bare");
}

TEST_F(LinuxHostTest, TheSecondPlaceAndTheKernelStandIn) {
    utsname system{};
    uname(&system);
    EXPECT_EQ(host.operatingSystemVersion(), std::string(system.sysname) + " " + system.release);
    write("usr/lib/os-release", "PRETTY_NAME=Second\n");
    EXPECT_EQ(host.operatingSystemVersion(), "Second");
    EXPECT_EQ(host.hardwareName(), system.machine);
}

TEST_F(LinuxHostTest, WhatStandsInAFileCanNotBreakAHeaderOrGrowWithoutEnd) {
    write("etc/os-release", std::string("PRETTY_NAME=\"a\tb\x1b[2J\x7f\"\n"));
    EXPECT_EQ(host.operatingSystemVersion(), "ab[2J");
    std::string many;
    for (int i = 0; i < 150; ++i) many += "\u00e9";
    write("etc/os-release", "PRETTY_NAME=x" + many + "\n");
    EXPECT_EQ(host.operatingSystemVersion(), "x" + many.substr(0, 198));
    write("etc/os-release", "PRETTY_NAME=" + std::string(100000, 'y') + "\n");
    EXPECT_THAT(host.operatingSystemVersion(), ::testing::StartsWith("Linux"));
}

TEST_F(LinuxHostTest, TheLocaleComesFromTheEnvironmentInItsOrder) {
    const EnvironmentVariable all("LC_ALL", std::nullopt);
    const EnvironmentVariable messages("LC_MESSAGES", std::nullopt);
    const EnvironmentVariable lang("LANG", "de_CH.UTF-8@euro");
    EXPECT_EQ(host.localeIdentifier(), "de_CH");
    const EnvironmentVariable nearer("LC_MESSAGES", "fr_CH");
    EXPECT_EQ(host.localeIdentifier(), "fr_CH");
    const EnvironmentVariable nearest("LC_ALL", "C.UTF-8");
    EXPECT_EQ(host.localeIdentifier(), "en_US_POSIX");
}

TEST_F(LinuxHostTest, TheTimeZoneIsAnIdentifier) {
    const EnvironmentVariable zone("TZ", "Europe/Zurich");
    EXPECT_EQ(host.timeZoneIdentifier(), "Europe/Zurich");
}

TEST_F(LinuxHostTest, TheComputersPrettyNameGoesBeforeItsHostName) {
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    if (std::string(name) != "localhost") {
        EXPECT_EQ(host.computerName(), name);
    }
    write("etc/machine-info", "ICON_NAME=computer\nPRETTY_HOSTNAME=\"Anna's Laptop\"\n");
    EXPECT_EQ(host.computerName(), "Anna's Laptop");
    write("etc/machine-info", "PRETTY_HOSTNAME=\"\"\n");
    EXPECT_NE(host.computerName(), "");
}

TEST(LinuxHostOfThisMachineTest, TellsSomethingOfEachKind) {
    const LinuxHost host;
    EXPECT_NE(host.operatingSystemVersion(), "");
    EXPECT_NE(host.timeZoneIdentifier(), "");
    EXPECT_NE(host.localeIdentifier(), "");
}

}  // namespace
