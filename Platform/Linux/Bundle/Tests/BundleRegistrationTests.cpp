#include "PlatformBundle/BundleRegistration.h"

#include "PlatformBundle/PosixProcessLauncher.h"
#include "PlatformBundle/PropertyListBundleReader.h"
#include "PlatformBundle/RegisteredFile.h"

#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

class BundleRegistrationTest : public ::testing::Test {
protected:
    AppBundle bundleAt(const fs::path& path, const std::string& icon = "picture") const {
        makeTestBundle(path, "1.2.3");
        const fs::path resources = path / "Contents" / "Resources";
        write(resources / "zorvane.Vimble.desktop",
              "[Desktop Entry]\nType=Application\nName=Vimble\nExec=vimble %U\nMimeType=x-scheme-handler/vimble;\n");
        write(resources / "icons/hicolor/48x48/apps/zorvane.Vimble.png", icon);
        write(resources / "icons/hicolor/scalable/apps/zorvane.Vimble.svg", "<svg/>");
        return PropertyListBundleReader().open(path).value();
    }

    TemporaryFolder root;
    fs::path dataHome = root.path / "share";
    fs::path entry = dataHome / "applications/zorvane.Vimble.desktop";
    fs::path icon = dataHome / "icons/hicolor/48x48/apps/zorvane.Vimble.png";
    PosixProcessLauncher launcher;
    BundleRegistration registration{dataHome, launcher};
};

TEST_F(BundleRegistrationTest, ANewBundleGetsItsEntryAndIcons) {
    const AppBundle bundle = bundleAt(root.path / "Vimble.app");
    EXPECT_TRUE(registration.add(bundle));
    const std::string program = (bundle.path / "Contents/Linux/Vimble").native();
    EXPECT_EQ(contents(entry), "[Desktop Entry]\nType=Application\nName=Vimble\nExec=\"" + program +
                                   "\" %U\nTryExec=" + program + "\nMimeType=x-scheme-handler/vimble;\n");
    EXPECT_EQ(contents(icon), "picture");
    EXPECT_EQ(contents(dataHome / "icons/hicolor/scalable/apps/zorvane.Vimble.svg"), "<svg/>");
    // The desktop's own programs may run as other users.
    struct stat status {};
    ASSERT_EQ(::stat(entry.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644u);
}

TEST_F(BundleRegistrationTest, ThoseWhoOpenLinksOfOurSchemeFindIt) {
    if (!fs::exists("/usr/bin/update-desktop-database")) GTEST_SKIP() << "this machine has no such tool";
    registration.add(bundleAt(root.path / "Vimble.app"));
    EXPECT_THAT(contents(dataHome / "applications/mimeinfo.cache"),
                HasSubstr("x-scheme-handler/vimble=zorvane.Vimble.desktop;"));
}

TEST_F(BundleRegistrationTest, ASecondStartWritesNothing) {
    const AppBundle bundle = bundleAt(root.path / "Vimble.app");
    registration.add(bundle);
    const auto inode = [](const fs::path& path) {
        struct stat status {};
        ::stat(path.c_str(), &status);
        return status.st_ino;
    };
    const auto entryBefore = inode(entry);
    const auto iconBefore = inode(icon);
    EXPECT_FALSE(registration.add(bundle));
    EXPECT_EQ(inode(entry), entryBefore);
    EXPECT_EQ(inode(icon), iconBefore);
}

TEST_F(BundleRegistrationTest, OfTwoCopiesTheLastStartedHasIt) {
    const AppBundle one = bundleAt(root.path / "one/Vimble.app");
    const AppBundle two = bundleAt(root.path / "two/Vimble.app", "newer picture");
    registration.add(one);
    EXPECT_TRUE(registration.add(two));
    EXPECT_THAT(contents(entry), AllOf(HasSubstr("/two/"), Not(HasSubstr("/one/"))));
    EXPECT_EQ(contents(icon), "newer picture");
    EXPECT_TRUE(registration.add(one));
    EXPECT_THAT(contents(entry), AllOf(HasSubstr("/one/"), Not(HasSubstr("/two/"))));
}

TEST_F(BundleRegistrationTest, ABundleThatWasMovedSaysWhereItLiesNow) {
    const fs::path before = root.path / "Vimble.app";
    const fs::path after = root.path / "Other place" / "Vimble.app";
    registration.add(bundleAt(before));
    fs::create_directory(after.parent_path());
    fs::rename(before, after);
    EXPECT_TRUE(registration.add(PropertyListBundleReader().open(after).value()));
    EXPECT_THAT(contents(entry), HasSubstr("Exec=\"" + (after / "Contents/Linux/Vimble").native() + "\" %U\n"));
}

TEST_F(BundleRegistrationTest, OnlyWholeFilesAreEverThere) {
    registration.add(bundleAt(root.path / "Vimble.app"));
    for (const auto& file : fs::recursive_directory_iterator(dataHome))
        EXPECT_THAT(file.path().filename().native(), Not(StartsWith("."))) << file.path();
}

TEST_F(BundleRegistrationTest, WhatCanNotBeWrittenIsToldWithItsName) {
    const AppBundle bundle = bundleAt(root.path / "Vimble.app");
    write(dataHome, "a file where the folder should be");
    try {
        registration.add(bundle);
        FAIL() << "it was written";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr(dataHome.native()), Not(HasSubstr("\n"))));
    }
}

TEST_F(BundleRegistrationTest, AHomeThatCanOnlyBeReadStaysAsItIs) {
    const AppBundle bundle = bundleAt(root.path / "Vimble.app");
    fs::create_directory(dataHome);
    fs::permissions(dataHome, fs::perms(0555));
    fs::permissions(root.path, fs::perms(0755));
    const pid_t child = ::fork();
    if (child == 0) {
        // Become another user, since root may write anywhere.
        if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(3);
        try {
            registration.add(bundle);
        } catch (const std::runtime_error& error) {
            ::_exit(std::string(error.what()).find("Permission denied") == std::string::npos ? 2 : 0);
        }
        ::_exit(1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(fs::is_empty(dataHome));
}

TEST_F(BundleRegistrationTest, ABundleWithoutAnEntryIsRefused) {
    const AppBundle bundle = bundleAt(root.path / "Vimble.app");
    fs::remove(bundle.path / "Contents/Resources/zorvane.Vimble.desktop");
    EXPECT_THROW(registration.add(bundle), std::runtime_error);
    EXPECT_FALSE(fs::exists(entry));
}

TEST(BundleRegistrationExecTest, CharactersWithAMeaningAreEscapedForTheArgumentAndForTheFile) {
    const auto exec = [](const char* path) { return BundleRegistration::exec(path, "%U"); };
    EXPECT_EQ(exec("/a/b c"), R"("/a/b c" %U)");
    EXPECT_EQ(exec("/100%/U"), R"(/bin/sh -c "exec \\"\\$0\\" \\"\\$@\\"" "/100%%/U" %U)");
    EXPECT_EQ(exec("/a\"b"), R"("/a\\"b" %U)");
    EXPECT_EQ(exec("/a`b$c"), R"("/a\\`b\\$c" %U)");
    EXPECT_EQ(exec("/a\\b"), R"("/a\\\\b" %U)");
    EXPECT_EQ(exec("/\u00E9'=;#"), "\"/\u00E9'=;#\" %U");
    EXPECT_EQ(BundleRegistration::exec("/a", ""), "\"/a\"");
}

TEST(BundleRegistrationExecTest, ADesktopStartsAProgramInAFolderOfAnyName) {
    const TemporaryFolder root;
    const fs::path entry = root.path / "entry.desktop";
    PosixProcessLauncher launcher;
    for (const char* name : {"plain", "a b", "100%U %% %f", "it's \"q\" `b` $HOME", "back\\slash \\n \\\\",
                             "=;#~&|<>()[]{}*?!^", "-x", " lead", "x=1", "x=1%", "\u00E9 \u6F22 \U0001F600"}) {
        SCOPED_TRACE(name);
        const fs::path program = root.path / name / "Vimble";
        write(program, "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\"\n");
        fs::permissions(program, fs::perms(0755));
        write(entry, BundleRegistration::entryFor(program, "[Desktop Entry]\nType=Application\nName=V\nExec=x\n"));
        const auto told = launcher.launch("/usr/bin/gio", {"launch", entry.native(), "vimble://host/a", "vimble://b"});
        EXPECT_EQ(told.output, program.native() + "\nvimble://host/a\nvimble://b\n");
        EXPECT_EQ(told.status, 0);
    }
}

TEST(BundleRegistrationExecTest, WhatNoEntryCanNameIsRefused) {
    for (const char* path : {"/a\nExec=evil", "/a\tb", "/a\x7f", "/a\xff"})
        EXPECT_THROW(BundleRegistration::exec(path, "%U"), std::runtime_error) << path;
}

TEST(BundleRegistrationExecTest, TheEntriesOwnPlaceIsNotKept) {
    EXPECT_EQ(BundleRegistration::entryFor("/x/Vimble", "[Desktop Entry]\nTryExec=vimble\nExec=vimble %U\nName=Vimble"),
              "[Desktop Entry]\nExec=\"/x/Vimble\" %U\nTryExec=/x/Vimble\nName=Vimble\n");
}

}  // namespace
