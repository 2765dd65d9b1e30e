#include "PlatformCore/ServiceRegistration.h"

#include "QtTestSupport/PrivateBus.h"
#include "QtTestSupport/QtWait.h"
#include "TestSupport/TemporaryFolder.h"

#include <QDBusMessage>

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

constexpr const char* name = "zorvane.Test.Started";

std::string contentsOf(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class ServiceRegistrationTest : public ::testing::Test {
protected:
    fs::path file() const { return bus.dataHome() / "dbus-1/services" / (std::string(name) + ".service"); }

    /// A program in a folder of that name, which leaves a mark beside itself.
    fs::path program(const std::string& folderName) const {
        const fs::path place = folder.path / folderName;
        fs::create_directories(place);
        std::ofstream(place / "run") << "#!/bin/sh\n: > \"${0%/*}/mark\"\n";
        fs::permissions(place / "run", fs::perms(0755));
        return place / "run";
    }

    bool write(const fs::path& path) {
        return ServiceRegistration::write(name, path, bus.dataHome(), bus.connection());
    }

    TemporaryFolder folder;
    PrivateBus bus{folder.path / "bus"};
};

TEST_F(ServiceRegistrationTest, TheFileSaysNameAndProgram) {
    EXPECT_EQ(ServiceRegistration::fileText(name, "/opt/Vimble.app/Contents/Services/x-1_2+3"),
              "[D-BUS Service]\nName=zorvane.Test.Started\nExec=/opt/Vimble.app/Contents/Services/x-1_2+3\n");
}

TEST_F(ServiceRegistrationTest, AProgramInAFolderOfAnyNameIsStarted) {
    int count = 0;
    for (const char* each : {"plain", "a b", "it's", "a \"b\" $c `d` #e %f !*?[]{}<>|&;()", "back\\slash \\n \\\\",
                             "tab\tand\nline", "\u00E9 \u6F22 \U0001F600", "=", "~"}) {
        const fs::path path = program(each);
        // Use another name each time, since the bus goes on waiting for the program to take the name.
        const std::string service = name + std::to_string(++count);
        ASSERT_TRUE(ServiceRegistration::write(service, path, bus.dataHome(), bus.connection())) << each;
        bus.connection().send(QDBusMessage::createMethodCall(QString::fromStdString(service), QStringLiteral("/"),
                                                             QStringLiteral("a.b"), QStringLiteral("c")));
        EXPECT_TRUE(turnUntil([&] { return fs::exists(path.parent_path() / "mark"); })) << each << "\n" << bus.log();
    }
}

TEST_F(ServiceRegistrationTest, ABusWithAnotherHomeFindsItInTheFolderOfTheSession) {
    const fs::path runtime = folder.path / "runtime";
    fs::create_directories(runtime);
    fs::permissions(runtime, fs::perms::owner_all);
    const char* before = std::getenv("XDG_RUNTIME_DIR");
    const std::string kept = before != nullptr ? before : "";
    ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), /*overwrite=*/1);
    PrivateBus another{folder.path / "another"};
    before != nullptr ? ::setenv("XDG_RUNTIME_DIR", kept.c_str(), /*overwrite=*/1) : ::unsetenv("XDG_RUNTIME_DIR");

    const fs::path path = program("plain");
    ASSERT_TRUE(ServiceRegistration::write(name, path, runtime, another.connection()));
    another.connection().send(QDBusMessage::createMethodCall(QLatin1String(name), QStringLiteral("/"),
                                                             QStringLiteral("a.b"), QStringLiteral("c")));
    EXPECT_TRUE(turnUntil([&] { return fs::exists(path.parent_path() / "mark"); })) << another.log();
}

TEST_F(ServiceRegistrationTest, WhatIsThereAlreadyIsNotWrittenAgain) {
    ASSERT_TRUE(write("/opt/one"));
    const auto before = fs::last_write_time(file()) - std::chrono::hours(1);
    fs::last_write_time(file(), before);
    EXPECT_FALSE(write("/opt/one"));
    EXPECT_EQ(fs::last_write_time(file()), before);
    EXPECT_TRUE(write("/opt/two"));
    EXPECT_EQ(contentsOf(file()), ServiceRegistration::fileText(name, "/opt/two"));
    std::ofstream(file(), std::ios::app) << "more";
    EXPECT_TRUE(write("/opt/two"));
    EXPECT_EQ(contentsOf(file()), ServiceRegistration::fileText(name, "/opt/two"));
}

TEST_F(ServiceRegistrationTest, APathThatTheBusCanNotReadIsRefused) {
    EXPECT_THROW(write("/opt/\xff/run"), std::runtime_error);
    EXPECT_THROW(write("run"), std::runtime_error);
    EXPECT_FALSE(fs::exists(file()));
}

TEST_F(ServiceRegistrationTest, ANameThatIsNoFilesNameIsRefused) {
    for (const char* each : {"", "../x", "a/b", ".x", "a\nb", "a b"})
        EXPECT_THROW((void)ServiceRegistration::fileText(each, "/opt/run"), std::runtime_error) << each;
}

TEST_F(ServiceRegistrationTest, AFolderThatCanNotBeMadeIsAnError) {
    std::ofstream(bus.dataHome() / "dbus-1") << "a file";
    EXPECT_THROW(write("/opt/run"), std::runtime_error);
}

TEST_F(ServiceRegistrationTest, WithoutABusTheFileIsWrittenAllTheSame) {
    EXPECT_TRUE(ServiceRegistration::write(name, "/opt/run", bus.dataHome(), QDBusConnection(QString())));
    EXPECT_EQ(contentsOf(file()), ServiceRegistration::fileText(name, "/opt/run"));
}

}  // namespace
