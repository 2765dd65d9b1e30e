// What the real service refuses: the application goes on as if nothing had been asked.

#include "InstallerFixture.h"
#include "PlatformBundle/Spawn.h"

#include <csignal>
#include <fstream>
#include <functional>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr const char* mismatch = "Staged update is not signed by the same identity as the installed app";

class InstallerRefusalTest : public InstallerFixture {
protected:
    /// @param shouldPresentToUser  whether the text is worded for the user
    void expectRefused(const InstallerRequest& request, const std::string& why, bool shouldPresentToUser = false) {
        const auto error = install(request);
        ASSERT_TRUE(error) << "installed";
        EXPECT_EQ(error->code(), InstallerClientError::Code::installationFailed) << error->what();
        EXPECT_THAT(error->what(), HasSubstr(why));
        EXPECT_EQ(error->shouldPresentToUser(), shouldPresentToUser);
        expectNothingHappened(why);
    }

    /// @param change  what somebody does to the staged bundle after the application has found it good
    void expectRefusedAfter(const std::function<void()>& change, const std::string& why) {
        startAll();
        change();
        expectRefused(request(), why);
        EXPECT_TRUE(fs::exists(staged));
    }
};

TEST_F(InstallerRefusalTest, AnotherIdentity) {
    const TestChain other = chainOf({{.commonName = "Other Releases", .unit = "OTHER00001"},
                                     {.commonName = "Other Intermediate", .unit = "", .isAuthority = true},
                                     {.commonName = "Other Root", .unit = "", .isAuthority = true}});
    expectRefusedAfter([&] { sign(staged, other); }, mismatch);
}

TEST_F(InstallerRefusalTest, TheRightNamesOnOtherKeys) {
    expectRefusedAfter([&] { sign(staged, usualChain()); }, mismatch);
}

TEST_F(InstallerRefusalTest, AdhocAgainstSigned) {
    expectRefusedAfter([&] { sealAdhoc(staged); }, mismatch);
}

TEST_F(InstallerRefusalTest, SignedAgainstAdhoc) {
    makeBundles();
    sealAdhoc(current);
    sign(staged, chain);
    startBus();
    startApplication();
    expectRefused(request(), mismatch);
}

TEST_F(InstallerRefusalTest, AByteChanged) {
    expectRefusedAfter([&] { std::ofstream(staged / "Contents/Linux/Vimble", std::ios::app) << "x"; },
                       "Contents/Linux/Vimble");
}

TEST_F(InstallerRefusalTest, AProgramMore) {
    expectRefusedAfter([&] { fs::copy_file("/bin/true", staged / "Contents/Linux/helper"); }, "Contents/Linux/helper");
}

TEST_F(InstallerRefusalTest, NoSeal) {
    expectRefusedAfter([&] { fs::remove_all(staged / "Contents/_CodeSignature"); }, "not sealed");
}

TEST_F(InstallerRefusalTest, AnAlteredSeal) {
    expectRefusedAfter([&] { std::ofstream(staged / "Contents/_CodeSignature/Seal", std::ios::app) << "\n"; },
                       "vimble-codesign: ");
}

TEST_F(InstallerRefusalTest, ASealWithoutItsSignature) {
    expectRefusedAfter([&] { fs::remove(staged / "Contents/_CodeSignature/Signature"); }, "vimble-codesign: ");
}

TEST_F(InstallerRefusalTest, AnAlteredCurrentBundle) {
    startAll();
    std::ofstream(current / "Contents/Frameworks/libmore.so") << "x";
    expectRefused(request(), "Contents/Frameworks/libmore.so");
}

TEST_F(InstallerRefusalTest, NothingStaged) {
    startAll();
    InstallerRequest other = request();
    other.stagedApp = downloads / "Other.app";
    expectRefused(other, "Missing app bundle at " + other.stagedApp.native());
}

TEST_F(InstallerRefusalTest, NothingToRun) {
    expectRefusedAfter([&] { fs::remove(staged / "Contents/Linux/Vimble"); },
                       "App bundle at " + staged.native() + " has no executable");
}

TEST_F(InstallerRefusalTest, AProcessThatDoesNotRunFromTheBundle) {
    startAll();
    SpawnRequest start;
    start.executable = "/bin/sleep";
    start.arguments = {"1000"};
    const pid_t bystander = spawn(start);
    InstallerRequest other = request();
    other.currentProcessIdentifier = bystander;
    expectRefused(other, "Unable to terminate running app: ");
    EXPECT_EQ(::waitpid(bystander, nullptr, WNOHANG), 0) << "it was ended";
    ::kill(bystander, SIGKILL);
    ::waitpid(bystander, nullptr, 0);
}

TEST_F(InstallerRefusalTest, TheBundleItself) {
    startAll();
    InstallerRequest other = request();
    other.stagedApp = current;
    expectRefused(other, "The staged and the current application are one, or lie in each other");
}

}  // namespace
