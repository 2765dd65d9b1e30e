#include "PlatformDesktop/SingleInstance.h"

#include "PlatformCore/ApplicationFolder.h"
#include "TestSupport/EnvironmentVariable.h"
#include "TestSupport/TemporaryFolder.h"

#include <QDBusConnection>

#include <filesystem>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

TEST(SingleInstanceTest, TheDefaultFolderHasThePlainNameHoweverItIsWritten) {
    const TemporaryFolder home;
    const EnvironmentVariable dataHome("XDG_DATA_HOME", home.path.string());
    EXPECT_EQ(SingleInstance::busName(std::nullopt), QStringLiteral("zorvane.Vimble"));
    EXPECT_EQ(SingleInstance::busName(home.path / "zorvane.Vimble"), QStringLiteral("zorvane.Vimble"));
    EXPECT_EQ(SingleInstance::busName(home.path / "x" / ".." / "zorvane.Vimble" / ""),
              QStringLiteral("zorvane.Vimble"));
}

TEST(SingleInstanceTest, AnotherFolderHasANameOfItsOwnThatLinksAndDotsDoNotChange) {
    const TemporaryFolder folder;
    fs::create_directories(folder.path / "a" / "b");
    fs::create_directory_symlink(folder.path / "a", folder.path / "link");

    const QString name = SingleInstance::busName(folder.path / "a" / "b");
    EXPECT_TRUE(name.startsWith(QStringLiteral("zorvane.Vimble.d"))) << name.toStdString();
    EXPECT_EQ(name.size(), QStringLiteral("zorvane.Vimble.d").size() + 32);
    EXPECT_EQ(SingleInstance::busName(folder.path / "link" / "b"), name);
    EXPECT_EQ(SingleInstance::busName(folder.path / "a" / "." / "b" / ".." / "b" / ""), name);
    EXPECT_NE(SingleInstance::busName(folder.path / "a"), name);
    EXPECT_NE(SingleInstance::busName(folder.path / "a" / "B"), name);
}

TEST(SingleInstanceTest, AFolderHasItsNameBeforeItIsMade) {
    const TemporaryFolder folder;
    const QString before = SingleInstance::busName(folder.path / "new" / "");
    fs::create_directories(folder.path / "new");
    EXPECT_EQ(SingleInstance::busName(folder.path / "new"), before);
}

TEST(SingleInstanceTest, TheObjectsPathComesFromTheName) {
    EXPECT_EQ(SingleInstance::objectPath(QStringLiteral("zorvane.Vimble")), QStringLiteral("/zorvane/Vimble"));
    EXPECT_EQ(SingleInstance::objectPath(QStringLiteral("zorvane.Vimble.d0f")), QStringLiteral("/zorvane/Vimble/d0f"));
}

TEST(SingleInstanceTest, WithoutABusItSaysSoAtOnce) {
    const QDBusConnection nowhere = QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent/bus"),
                                                                  QStringLiteral("SingleInstanceTest"));
    ASSERT_FALSE(nowhere.isConnected());
    SingleInstance instance(QStringLiteral("zorvane.Vimble"), nowhere);
    EXPECT_EQ(instance.claim({QStringLiteral("vimble:1")}, {}), SingleInstance::Outcome::noBus);
    EXPECT_FALSE(instance.error().isEmpty());
    QDBusConnection::disconnectFromBus(QStringLiteral("SingleInstanceTest"));
}

}  // namespace
