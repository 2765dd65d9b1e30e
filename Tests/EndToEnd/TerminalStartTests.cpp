#include "ChatWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

namespace {

/// Starts that are refused with one line on standard error and status 1, and that change no file.
class TerminalStartTest : public testing::Test {
protected:
    void expectRefusal(const Process::Start& start, std::string_view because) {
        const auto before = world.snapshot(".");
        std::string output, errors;
        EXPECT_EQ(world.run(start, &output, &errors), 1) << errors;
        EXPECT_EQ(world.snapshot("."), before);
        EXPECT_EQ(output, "");
        EXPECT_THAT(errors, StartsWith("vimble-terminal: "));
        EXPECT_THAT(errors, HasSubstr(std::string(because)));
        EXPECT_EQ(errors.find('\n'), errors.size() - 1) << errors;
    }

    ChatWorld world;
};

}  // namespace

TEST_F(TerminalStartTest, AServerTextThatGivesNoEndpointIsRefused) {
    for (const char* text : {"nonsense", "two words.example", "  ", "", "localhost:8080", "https://"})
        expectRefusal(world.clientStart("ann", {"--server", text}), "is no server");
}

TEST_F(TerminalStartTest, AWrongPassphraseIsRefused) {
    world.key("ann");
    auto start = world.clientStart("ann", {"--server", "localhost"});
    start.environment["VIMBLE_SECRET_PASSPHRASE"] = "open barley";
    expectRefusal(start, "wrong passphrase");
}

TEST_F(TerminalStartTest, AStoreThatCanNotBeReadIsRefused) {
    auto start = world.clientStart("ann", {"--server", "localhost"});
    std::ofstream(world.secretFile("ann")) << "this is not a file of secrets";
    expectRefusal(start, "not a file of secrets");
    fs::remove(world.secretFile("ann"));
    fs::create_directory(world.secretFile("ann"));
    expectRefusal(start, "secret.sealed");
}

TEST_F(TerminalStartTest, WithoutAKeyringTheUserHearsOfTheOtherWay) {
    Process::Start start = world.clientStart("ann");
    start.command = {TERMINAL_PROGRAM, "--data-dir", world.dataFolder("ann").string(), "--server", "localhost"};
    expectRefusal(start, "--secret-file");
}

TEST_F(TerminalStartTest, WithoutATerminalThePassphraseCanNotBeAskedFor) {
    auto start = world.clientStart("ann", {"--public-key"});
    start.environment.erase("VIMBLE_SECRET_PASSPHRASE");
    std::string output, errors;
    EXPECT_EQ(world.run(start, &output, &errors), 1);
    EXPECT_EQ(output, "");
    EXPECT_THAT(errors, HasSubstr("VIMBLE_SECRET_PASSPHRASE"));
    EXPECT_FALSE(fs::exists(world.secretFile("ann")));
}

TEST_F(TerminalStartTest, WithNoServerEverUsedThereIsNoIdentityEither) {
    std::string errors;
    EXPECT_EQ(world.run(world.clientStart("ann"), nullptr, &errors), 1);
    EXPECT_THAT(errors, HasSubstr("--server"));
    EXPECT_FALSE(fs::exists(world.secretFile("ann")));
}

TEST_F(TerminalStartTest, WrongOptionsHaveAStatusOfTheirOwn) {
    std::string output, errors;
    EXPECT_EQ(world.run(world.clientStart("ann", {"--sever", "localhost"}), &output, &errors), 2);
    EXPECT_EQ(output, "");
    EXPECT_THAT(errors, HasSubstr("--sever"));
}

TEST_F(TerminalStartTest, HelpAndVersionAskForNothing) {
    std::string output;
    EXPECT_EQ(world.run(world.clientStart("ann", {"--help"}), &output), 0);
    EXPECT_THAT(output, StartsWith("Usage: vimble-terminal"));
    EXPECT_EQ(world.run(world.clientStart("ann", {"--version"}), &output), 0);
    EXPECT_EQ(output, "vimble-terminal 1.0.0\n");
    EXPECT_FALSE(fs::exists(world.dataFolder("ann")));
    EXPECT_FALSE(fs::exists(world.secretFile("ann")));
}

TEST_F(TerminalStartTest, TheIdentityIsMadeOnceAndStays) {
    const std::string key = world.key("ann");
    EXPECT_THAT(key, testing::MatchesRegex("[0-9a-f]{64}"));
    EXPECT_EQ(world.key("ann"), key);
    EXPECT_NE(world.key("bob"), key);
    const auto before = world.snapshot("ann");
    EXPECT_EQ(world.key("ann"), key);
    EXPECT_EQ(world.snapshot("ann"), before);
}

TEST_F(TerminalStartTest, ThePassphraseIsAskedForOnTheTerminalWithoutAnEchoAndTwiceWhenItIsNew) {
    auto start = world.clientStart("ann", {"--public-key"});
    start.environment.erase("VIMBLE_SECRET_PASSPHRASE");
    start.terminal = Process::Terminal::controlling;
    Process first(start);
    // The program must not read the passphrase from here, since it prompts on the terminal.
    first.write("from the pipe\nfrom the pipe\n");
    EXPECT_TRUE(first.promptWith("New passphrase: "));
    first.type("hush\n");
    EXPECT_TRUE(first.promptWith("Once more: "));
    first.type("hash\n");
    EXPECT_TRUE(first.promptWith("The two differ.\r\nNew passphrase: "));
    first.type("hush\n");
    EXPECT_TRUE(first.promptWith("differ.\r\nNew passphrase: \r\nOnce more: "));
    first.type("hush\n");
    EXPECT_EQ(first.wait(), 0);
    EXPECT_THAT(first.output(), testing::MatchesRegex("[0-9a-f]{64}\n"));
    EXPECT_THAT(first.shown(), Not(HasSubstr("hush")));

    Process second(start);
    EXPECT_TRUE(second.promptWith("Passphrase: "));
    second.type("hush\n");
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(second.output(), first.output());

    start.environment["VIMBLE_SECRET_PASSPHRASE"] = "hush";
    std::string output;
    EXPECT_EQ(world.run(start, &output), 0);
    EXPECT_EQ(output, first.output());
}

TEST_F(TerminalStartTest, ThePassphraseIsNotToBeSeenInTheEnvironment) {
    auto start = world.clientStart("ann", {"--server", "http://127.0.0.1:9"});
    Process process(start);
    EXPECT_TRUE(process.exactLine("Session Starting Up"));
    std::ifstream file("/proc/" + std::to_string(process.id()) + "/environ");
    const std::string contents(std::istreambuf_iterator<char>(file), {});
    EXPECT_THAT(contents, HasSubstr("XDG_DATA_HOME"));
    EXPECT_THAT(contents, Not(HasSubstr("open sesame")));
}

TEST_F(TerminalStartTest, EmptyInputEndsAtOnce) {
    auto start = world.clientStart("ann", {"--server", "http://127.0.0.1:9"});
    start.inputFile = "/dev/null";
    std::string output;
    EXPECT_EQ(world.run(start, &output), 0);
    EXPECT_THAT(output, StartsWith("Vimble 1.0.0\n"));
}

TEST_F(TerminalStartTest, NoGraphicalLibraryIsLinked) {
    Process::Start start;
    start.command = {"/usr/bin/ldd", TERMINAL_PROGRAM};
    start.environment = world.environment;
    std::string libraries;
    ASSERT_EQ(world.run(start, &libraries), 0);
    EXPECT_THAT(libraries, HasSubstr("libQt6Core"));
    for (const char* library : {"libQt6Gui", "libQt6Widgets", "libX11", "libxcb", "libwayland", "libGL.", "libEGL"})
        EXPECT_THAT(libraries, Not(HasSubstr(library)));
}
