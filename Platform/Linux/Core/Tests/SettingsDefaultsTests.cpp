#include "PlatformCore/SettingsDefaults.h"

#include "QtTestSupport/QtWait.h"
#include "TestSupport/EnvironmentVariable.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

constexpr char key[] = "Notifier.IsBounceIconEnabled";

class SettingsDefaultsTest : public testing::Test {
protected:
    void SetUp() override { open(); }

    /// Opens the settings as a start of the program does, after the earlier ones have been closed.
    void open() {
        defaults.reset();
        defaults.emplace(folder.path);
    }
    /// Writes the file as a user might by hand, and opens it.
    void openWith(const std::string& text) {
        defaults.reset();
        std::ofstream(file) << text;
        open();
    }
    std::string contents() const {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    LogLines log;
    TemporaryFolder folder;
    const fs::path file = folder.path / "UserDefaults.ini";
    std::optional<SettingsDefaults> defaults;
};

TEST_F(SettingsDefaultsTest, WithoutAValueABooleanIsWhatWasRegistered) {
    EXPECT_FALSE(defaults->boolForKey(key));
    defaults->registerDefaults({{key, true}, {"other", false}});
    EXPECT_TRUE(defaults->boolForKey(key));
    EXPECT_FALSE(defaults->boolForKey("other"));
    open();
    EXPECT_FALSE(defaults->boolForKey(key));
    EXPECT_FALSE(fs::exists(file)) << "what is registered is not written";
}

TEST_F(SettingsDefaultsTest, WhatIsSetIsReadAtOnceAndAfterARestart) {
    defaults->registerDefaults({{key, true}});
    defaults->setBool(key, false);
    defaults->setString("UpdateKit.lastSeenVersion", "1.4.0");
    for (int run = 0; run < 2; ++run) {
        EXPECT_FALSE(defaults->boolForKey(key));
        EXPECT_EQ(defaults->stringForKey("UpdateKit.lastSeenVersion"), "1.4.0");
        open();
        defaults->registerDefaults({{key, true}});
    }
    defaults->setBool(key, true);
    open();
    EXPECT_TRUE(defaults->boolForKey(key));
}

TEST_F(SettingsDefaultsTest, TheKeyStandsInTheFileAsItIs) {
    defaults->setBool(key, false);
    open();
    EXPECT_THAT(contents(), HasSubstr("\nNotifier.IsBounceIconEnabled=false\n"));
}

TEST_F(SettingsDefaultsTest, WhatIsSetReachesTheDiskWithoutTheEndOfTheProgram) {
    defaults->setBool(key, false);
    EXPECT_TRUE(turnUntil([&] { return contents().find("Enabled=false") != std::string::npos; }));
}

TEST_F(SettingsDefaultsTest, AnyTextComesBackAsItWas) {
    for (const std::string text :
         {"", " ", "a, b", "\"", "\\x", "@Invalid()", "@@", "%41", "é 漢 😀", "line\nline\ttab", "true", ";#="}) {
        defaults->setString("text", text);
        open();
        EXPECT_EQ(defaults->stringForKey("text"), text);
    }
}

TEST_F(SettingsDefaultsTest, BooleansAreReadAsAPersonWouldWriteThem) {
    for (const char* text : {"true", "True", "TRUE", "1", "\"true\"", " true "}) {
        openWith("[General]\n" + std::string(key) + "=" + text + "\n");
        EXPECT_TRUE(defaults->boolForKey(key)) << text;
    }
    for (const char* text : {"false", "False", "FALSE", "0", "\"false\"", " false "}) {
        openWith("[General]\n" + std::string(key) + "=" + text + "\n");
        defaults->registerDefaults({{key, true}});
        EXPECT_FALSE(defaults->boolForKey(key)) << text;
    }
}

TEST_F(SettingsDefaultsTest, AValueThatIsNoBooleanCountsAsNone) {
    for (const char* text : {"", "banana", "2", "true, false", "@Invalid()", "@ByteArray(true)", "@Variant(\\0\\0)"}) {
        openWith("[General]\n" + std::string(key) + "=" + text + "\n");
        EXPECT_FALSE(defaults->boolForKey(key)) << text;
        defaults->registerDefaults({{key, true}});
        EXPECT_TRUE(defaults->boolForKey(key)) << text;
    }
}

TEST_F(SettingsDefaultsTest, WhatIsNoTextIsNothing) {
    EXPECT_EQ(defaults->stringForKey("missing"), std::nullopt);
    openWith("[General]\nlist=a, b\n");
    EXPECT_EQ(defaults->stringForKey("list"), std::nullopt);
}

TEST_F(SettingsDefaultsTest, DamageCostsOnlyTheDamagedLines) {
    const std::string readable = std::string(key) + "=false\n";
    for (const std::string& text :
         {std::string("[General]\nno line of ours\n") + readable, "[General\n" + readable + "[General]\n" + readable,
          "[General]\n" + readable + std::string("\0\xFF\xFE[[[", 6), "[General]\n" + readable + "cut=\"sho"}) {
        openWith(text);
        defaults->registerDefaults({{key, true}});
        EXPECT_FALSE(defaults->boolForKey(key)) << text;
        defaults->setBool("other", true);
        open();
        EXPECT_FALSE(defaults->boolForKey(key)) << text;
        EXPECT_TRUE(defaults->boolForKey("other")) << text;
    }
}

TEST_F(SettingsDefaultsTest, NoiseIsAFileWithoutValues) {
    std::string noise;
    for (int i = 0; i < 5000; ++i) noise += static_cast<char>((i * 7919) % 251);
    openWith(noise);
    defaults->registerDefaults({{key, true}});
    EXPECT_TRUE(defaults->boolForKey(key));
    defaults->setBool(key, false);
    open();
    EXPECT_FALSE(defaults->boolForKey(key));
}

TEST_F(SettingsDefaultsTest, WhatCanNotBeWrittenHoldsUntilTheEndAndIsLogged) {
    defaults.reset();
    fs::create_directory(file);  // nobody can write there, not even the superuser
    open();
    defaults->registerDefaults({{key, true}});
    defaults->setBool(key, false);
    QCoreApplication::processEvents();
    EXPECT_FALSE(defaults->boolForKey(key));
    log.take();
    defaults.reset();
    EXPECT_THAT(log.take(), ElementsAre("error zorvane.Vimble/SettingsDefaults: The settings could not be written to " +
                                        file.native()));
    open();
    defaults->registerDefaults({{key, true}});
    EXPECT_TRUE(defaults->boolForKey(key));
}

TEST_F(SettingsDefaultsTest, AReadOnlyFileIsReadAndStaysAsItIs) {
    // The superuser can write anywhere, so a child process does this as another user.
    openWith("[General]\n" + std::string(key) + "=false\n");
    defaults.reset();
    fs::permissions(file, fs::perms(0444));
    fs::permissions(folder.path, fs::perms(0555));
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(2);
        LogLines lines;
        std::optional<SettingsDefaults> own(folder.path);
        if (own->boolForKey(key)) ::_exit(3);
        own->setBool(key, true);
        if (!own->boolForKey(key)) ::_exit(4);
        own.reset();
        ::_exit(lines.take().size() == 1 ? 0 : 5);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(contents(), EndsWith("=false\n"));
    fs::permissions(folder.path, fs::perms(0755));
}

TEST(SettingsDefaultsPlaceTest, WithoutADataFolderTheyLieUnderTheIdentifier) {
    const TemporaryFolder home;
    const EnvironmentVariable configHome("XDG_CONFIG_HOME", home.path.native());
    {
        SettingsDefaults defaults(std::nullopt);
        defaults.setBool(key, true);
    }
    EXPECT_TRUE(fs::exists(home.path / "zorvane.Vimble" / "UserDefaults.ini"));
}

}  // namespace
