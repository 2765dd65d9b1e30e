#include "UpdateKit/ProcessRunner.h"

#include "UpdateKit/CodeSignatureReader.h"

#include <gtest/gtest.h>

namespace {

class FakeLauncher : public ProcessLauncher {
public:
    ProcessResult launch(const std::filesystem::path& executable, const std::vector<std::string>& arguments) override {
        command = executable.native();
        for (const auto& argument : arguments) command += " " + argument;
        return result;
    }

    ProcessResult result;
    std::string command;
};

TEST(ProcessRunnerTest, TheOutputComesBack) {
    FakeLauncher launcher;
    launcher.result = {0, "h\u00E9\n"};
    EXPECT_EQ(runProcess(launcher, "/tool", {"a", "b"}, OnFailure::raise, "D"), "h\u00E9\n");
    EXPECT_EQ(launcher.command, "/tool a b");
}

TEST(ProcessRunnerTest, BytesThatAreNoTextCountAsNone) {
    FakeLauncher launcher;
    launcher.result = {0, "a\xff"};
    EXPECT_EQ(runProcess(launcher, "/tool", {}, OnFailure::raise, "D"), "");
}

TEST(ProcessRunnerTest, AStatusOtherThanNullIsAnErrorWithTheOutputAsItsText) {
    FakeLauncher launcher;
    launcher.result = {3, "no seal"};
    try {
        (void)runProcess(launcher, "/tool", {}, OnFailure::raise, "D");
        FAIL();
    } catch (const ProcessError& error) {
        EXPECT_EQ(error.domain, "D");
        EXPECT_EQ(error.code, 3);
        EXPECT_STREQ(error.what(), "no seal");
    }
    EXPECT_EQ(runProcess(launcher, "/tool", {}, OnFailure::ignore, "D"), "no seal");
}

TEST(ProcessRunnerTest, AProfileIsAskedOfTheGivenTool) {
    FakeLauncher launcher;
    launcher.result = {0, "Signature=adhoc\n"};
    EXPECT_EQ(readCodeSignatureProfile(launcher, "/x/vimble-codesign", "/a/A.app", "D").kind,
              CodeSignatureProfile::Kind::adhoc);
    EXPECT_EQ(launcher.command, "/x/vimble-codesign -d --verbose=4 /a/A.app");
    launcher.result = {1, "A.app: not sealed\n"};
    EXPECT_THROW((void)readCodeSignatureProfile(launcher, "/x/vimble-codesign", "/a/A.app", "D"), ProcessError);
}

}  // namespace
