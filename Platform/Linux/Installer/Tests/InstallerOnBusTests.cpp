// The real service, started by a real session bus out of real bundles.

#include "Base/FileDescriptor.h"
#include "InstallerFixture.h"
#include "PlatformBundle/RunningProcess.h"
#include "PlatformBundle/Spawn.h"
#include "PlatformBundle/StagingFolders.h"
#include "QtTestSupport/QtWait.h"
#include "UpdateKit/InstallerXPC.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Code = InstallerClientError::Code;

class InstallerOnBusTest : public InstallerFixture {
protected:
    /// What the new application has to report of itself.
    std::vector<std::string> expectedReport() const {
        return {"version 1.1.0",         "program " + (current / "Contents/Linux/Vimble").native(),
                "session own",           "folder " + reports.native(),
                "mark one two",          "display :77",
                "bus " + bus->address(), "argument <a b>",
                "argument <>",           "argument <--data-dir=x>"};
    }

    void expectInstalled() {
        EXPECT_THAT(namesIn(apps), ElementsAre("Vimble.app"));
        EXPECT_THAT(namesIn(downloads), IsEmpty());
        EXPECT_EQ(version(current), "1.1.0");
        EXPECT_TRUE(isSealed(current));
    }
};

TEST_F(InstallerOnBusTest, TheOldOneIsAskedToEndAndTheNewOneRunsInItsPlaceAsItDid) {
    startAll();
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    EXPECT_EQ(signalThatEndedIt(), SIGTERM);
    EXPECT_EQ(reportOfNewOne(), expectedReport());
    expectInstalled();
    EXPECT_THAT(bus->logLines("UpdateKitInstaller/service: replac"), SizeIs(2)) << bus->log();
}

TEST_F(InstallerOnBusTest, OneThatDoesNotListenIsKilled) {
    startAll("stubborn");
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    EXPECT_EQ(signalThatEndedIt(), SIGKILL);
    EXPECT_EQ(reportOfNewOne(), expectedReport());
    expectInstalled();
}

TEST_F(InstallerOnBusTest, NobodyClearsTheUpdateAwayOnceTheApplicationWasAskedToEnd) {
    // Prepare the update as the application does, which holds it until it ends.
    auto preparing = std::make_unique<StagingFolders>(downloads);
    staged = preparing->make() / "extracted" / "Vimble.app";
    fs::create_directories(staged.parent_path());
    startAll("stubborn");
    const auto result = ask(request());
    ASSERT_TRUE(turnUntil([&] { return fs::exists(reports.native() + ".asked-to-end"); })) << bus->log();
    preparing.reset();
    StagingFolders another(downloads);
    another.removeLeftovers();
    EXPECT_TRUE(fs::exists(staged));
    ::kill(application, SIGKILL);
    EXPECT_TRUE(turnUntil([&] { return result->isOver; })) << bus->log();
    EXPECT_EQ(result->error, std::nullopt);
    EXPECT_EQ(reportOfNewOne(), expectedReport());
    EXPECT_EQ(version(current), "1.1.0");
    another.removeLeftovers();
    EXPECT_THAT(namesIn(downloads / "UpdateKit"), IsEmpty());
}

TEST_F(InstallerOnBusTest, AnUpdateThatIsBeingClearedAwayIsNotTaken) {
    staged = StagingFolders(downloads).make() / "Vimble.app";
    startAll();
    const FileDescriptor clearing(::open(staged.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(::flock(clearing.get(), LOCK_EX | LOCK_NB), 0);
    const std::string why = staged.parent_path().native() + " is being removed by another program";
    EXPECT_EQ(install(request()), InstallerClientError::installationFailed(why, false));
    expectNothingHappened(why);
}

TEST_F(InstallerOnBusTest, TheServiceOutlivesWhoeverAskedIt) {
    startAllWithSlowTool();
    SpawnRequest caller;
    caller.executable = "/usr/bin/dbus-send";
    caller.arguments = {"--bus=" + bus->address(),
                        "--print-reply",
                        std::string("--dest=") + serviceName,
                        InstallerXPC::objectPath,
                        std::string(InstallerXPC::interface) + "." + InstallerXPC::method,
                        "string:" + InstallerXPC::urlOf(staged),
                        "string:" + InstallerXPC::urlOf(current),
                        "int32:" + std::to_string(application)};
    const pid_t process = spawn(caller);
    waitForTool();
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
    letToolGo();
    EXPECT_EQ(signalThatEndedIt(), SIGTERM);
    EXPECT_EQ(reportOfNewOne(), expectedReport());
    expectInstalled();
}

TEST_F(InstallerOnBusTest, TheServiceEndsAndTheNextUpdateMeetsTheNewOne) {
    startAll();
    ASSERT_EQ(install(request()), std::nullopt) << bus->log();
    EXPECT_EQ(bus->processOf(serviceName), std::nullopt) << "still there after its answer";
    (void)reportOfNewOne();

    makeBundle(staged, "1.2.0");
    sign(staged, chain);
    InstallerRequest next = request();
    for (const std::string& name : namesIn(reports))
        if (name != std::to_string(application)) next.currentProcessIdentifier = std::stoi(name);
    EXPECT_EQ(install(next), std::nullopt) << bus->log();
    EXPECT_EQ(version(current), "1.2.0");
    EXPECT_TRUE(turnUntil([&] { return namesIn(reports).size() == 3; }));
}

TEST_F(InstallerOnBusTest, AProcessThatIsGoneAlreadyIsNoObstacle) {
    startAll();
    ::kill(application, SIGKILL);
    ASSERT_EQ(signalThatEndedIt(), SIGKILL);
    EXPECT_EQ(install(request()), std::nullopt) << bus->log();
    expectInstalled();
}

TEST_F(InstallerOnBusTest, AServiceThatIsKilledAtWorkIsToldAtOnceAndTheApplicationGoesOn) {
    startAllWithSlowTool();
    const auto result = ask(request());
    waitForTool();
    const auto service = bus->processOf(serviceName);
    ASSERT_TRUE(service);
    ::kill(*service, SIGKILL);
    EXPECT_TRUE(turnUntil([&] { return result->isOver; }));
    ASSERT_TRUE(result->error);
    EXPECT_EQ(result->error->code(), Code::connectionFailed);
    EXPECT_FALSE(result->error->payload().empty());
    expectNothingHappened("replacing");
    letToolGo();
}

TEST_F(InstallerOnBusTest, TheSecondOfTwoAtOnceIsToldSoAndTheFirstSucceeds) {
    startAllWithSlowTool();
    const auto first = ask(request());
    waitForTool();
    const auto second = install(request());
    ASSERT_TRUE(second);
    EXPECT_EQ(*second, InstallerClientError::installationFailed("Another update is being installed", false));
    EXPECT_FALSE(first->isOver);
    letToolGo();
    EXPECT_TRUE(turnUntil([&] { return first->isOver; }));
    EXPECT_EQ(first->error, std::nullopt);
    EXPECT_EQ(signalThatEndedIt(), SIGTERM);
}

TEST_F(InstallerOnBusTest, WithoutItsBusTheServiceFinishesAndEnds) {
    startAllWithSlowTool();
    const auto result = ask(request());
    waitForTool();
    const auto service = bus->processOf(serviceName);
    ASSERT_TRUE(service);
    bus->kill();
    EXPECT_TRUE(turnUntil([&] { return result->isOver; }));
    ASSERT_TRUE(result->error);
    EXPECT_EQ(result->error->code(), Code::connectionFailed);
    letToolGo();
    EXPECT_TRUE(turnUntil([&] { return !isProcessRunning(*service); })) << bus->log();
    EXPECT_EQ(signalThatEndedIt(), SIGTERM);
    EXPECT_EQ(reportOfNewOne(), expectedReport());
    EXPECT_EQ(version(current), "1.1.0");
}

TEST_F(InstallerOnBusTest, ARequestThatIsDroppedTellsNobodyAndGoesOn) {
    startAllWithSlowTool();
    const auto result = ask(request());
    waitForTool();
    requests.clear();
    letToolGo();
    EXPECT_EQ(reportOfNewOne(), expectedReport());
    EXPECT_TRUE(turnUntil([&] { return !bus->processOf(serviceName); }));
    EXPECT_FALSE(result->isOver);
}

}  // namespace
