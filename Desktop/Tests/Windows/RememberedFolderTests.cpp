#include "DesktopKit/RememberedFolder.h"

#include "TestSupport/FakeServer.h"
#include "TestSupport/TemporaryFolder.h"

#include <QByteArray>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <variant>

using testing::HasSubstr;

namespace {

class RememberedFolderTest : public testing::Test {
protected:
    RememberedFolderTest() { qputenv("XDG_CACHE_HOME", QByteArray::fromStdString((home.path / "cache").string())); }
    ~RememberedFolderTest() override {
        if (cacheBefore.isNull())
            qunsetenv("XDG_CACHE_HOME");
        else
            qputenv("XDG_CACHE_HOME", cacheBefore);
    }

    FolderAtStart take() const { return takeFolder(dataDir, {800000000}); }

    const QByteArray cacheBefore = qgetenv("XDG_CACHE_HOME");
    TemporaryFolder home;
    const std::filesystem::path dataDir = home.path / "data";
};

TEST_F(RememberedFolderTest, ItReadsWhatTheLastRunHasLeft) {
    State state;
    state.endpoint = Endpoint("https://chat.example.org");
    state.people.set(keyTextOf(2), {keyTextOf(2), "Ann", "", false, false});
    std::filesystem::create_directories(dataDir);
    state.save(dataDir);
    RememberedFolder folder(dataDir, {800000000});
    EXPECT_EQ(folder.folder().path(), dataDir);
    const State read = folder.takeState();
    EXPECT_EQ(read.endpoint, state.endpoint);
    ASSERT_NE(read.people.find(keyTextOf(2)), nullptr);
    EXPECT_EQ(read.people.find(keyTextOf(2))->name, "Ann");
}

TEST_F(RememberedFolderTest, ItMayGoBeforeAnybodyHasTakenTheState) {
    { const FolderAtStart first = take(); }
    const FolderAtStart second = take();
    EXPECT_TRUE(std::holds_alternative<std::unique_ptr<RememberedFolder>>(second));
}

TEST_F(RememberedFolderTest, AFolderThatIsTakenNamesTheOther) {
    const FolderAtStart first = take();
    const FolderAtStart second = take();
    ASSERT_TRUE(std::holds_alternative<FolderInUse>(second));
    EXPECT_THAT(std::get<FolderInUse>(second).text, HasSubstr("vimble"));
}

TEST_F(RememberedFolderTest, AFolderThatCantBeMadeIsAnotherTrouble) {
    std::ofstream(dataDir) << "in the way";
    const FolderAtStart taken = take();
    ASSERT_TRUE(std::holds_alternative<FolderTrouble>(taken));
    EXPECT_THAT(std::get<FolderTrouble>(taken).text, HasSubstr("data"));
}

}  // namespace
